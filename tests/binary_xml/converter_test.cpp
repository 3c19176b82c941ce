#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "binary_xml_converter.h"
#include "xml_canonical.h"

namespace Zarvo::UpdateEngine {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// A user file in binary XML, byte by byte: <user id="10" type="..."><name>Ann</name></user>.
const std::string USER_FILE =
    "ABX\x00\x10"s
    "\x32\xFF\xFF\x00\x04user"s
    "\x6F\xFF\xFF\x00\x02id\x00\x00\x00\x0A"s
    "\x2F\xFF\xFF\x00\x04type\x00\x22"
    "android.os.usertype.full.SECONDARY"s
    "\x32\xFF\xFF\x00\x04name\x24\x00\x03"s
    "Ann\x33\x00\x03\x33\x00\x00\x11"s;

class BinaryXmlConverterTest : public testing::Test {
protected:
    const fs::path dir_{"/data/convert"};
    void SetUp() override { fs::create_directories(dir_); }
    void TearDown() override { fs::remove_all(dir_); }

    XmlConvertStatus ConvertBytes(const std::string &bytes, const std::string &destination) {
        std::ofstream(dir_ / "source.xml", std::ios::binary) << bytes;
        return BinaryXmlConverter().Convert((dir_ / "source.xml").string(), destination);
    }
    std::string Out() const { return (dir_ / "out.xml").string(); }
};

TEST_F(BinaryXmlConverterTest, WritesTextXmlTheParserReads) {
    ASSERT_EQ(ConvertBytes(USER_FILE, Out()), 0);
    std::ifstream in(Out(), std::ios::binary);
    std::stringstream xml;
    xml << in.rdbuf();
    EXPECT_EQ(Testing::Canonical(xml.str()),
              "<user id=[10] type=[android.os.usertype.full.SECONDARY]><name>{Ann}</></>");
}

// The plug-in turns -1..-7 into distinct result codes; each class has its own status.
TEST_F(BinaryXmlConverterTest, EachFailureClassHasItsOwnStatus) {
    EXPECT_EQ(BinaryXmlConverter().Convert((dir_ / "absent.xml").string(), Out()), -1);
    EXPECT_EQ(ConvertBytes(USER_FILE.substr(0, 20), Out()), -2);
    EXPECT_EQ(ConvertBytes("ABX\x00\x10\x0C"s, Out()), -3);
    EXPECT_EQ(ConvertBytes("ABX\x00\x10\x32\x00\x05"s, Out()), -4);
    EXPECT_EQ(ConvertBytes("ABX\x00\x32\xFF\xFF\x00\x02\xC3\x28"s, Out()), -5);
    EXPECT_EQ(ConvertBytes("ABX\x00\x32\xFF\xFF\x00\x01"
                           "a\x33\xFF\xFF\x00\x01"
                           "b"s,
                           Out()),
              -6);
    EXPECT_FALSE(fs::exists(Out()));
    EXPECT_EQ(ConvertBytes(USER_FILE, (dir_ / "missing" / "out.xml").string()), -7);
}

}  // namespace
}  // namespace Zarvo::UpdateEngine
