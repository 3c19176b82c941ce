#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

#include "binary_xml/file_conversion.h"
#include "binary_xml_converter.h"
#include "xml_test_util.h"

namespace Zarvo::UpdateEngine {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

// A user file in binary XML, byte by byte.
const std::string USER_FILE =
    "ABX\x00\x10\x32\xFF\xFF\x00\x04user\x6F\xFF\xFF\x00\x02id\x00\x00\x00\x0A"  // <user id="10">
    "\x32\xFF\xFF\x00\x04name\x24\x00\x03Kim\x33\x00\x02\x33\x00\x00\x11"s;      // <name>Kim</name></user>

class BinaryXmlConverterTest : public testing::Test {
protected:
    const fs::path dir_{"/data/bxml"};
    void SetUp() override { fs::create_directories(dir_); }
    void TearDown() override { fs::remove_all(dir_); }

    std::string Path(const std::string &name) const { return (dir_ / name).string(); }
    std::string Write(const std::string &name, const std::string &content) const {
        std::ofstream(dir_ / name, std::ios::binary) << content;
        return Path(name);
    }
    std::size_t FileCount() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(dir_), fs::directory_iterator()));
    }
};

TEST_F(BinaryXmlConverterTest, BinaryAndTextSourcesBecomePrivateTextXml) {
    // Text is copied as is: Android 11 and older write references that XML 1.0 forbids.
    const std::string text =
        "\xEF\xBB\xBF\n  <?xml version='1.0'?><user id=\"10\"><name>A&#0;</name></user>\n";
    ASSERT_EQ(BinaryXmlConverter().Convert(Write("text.xml", text), Path("10.xml")), 0);
    EXPECT_EQ(Testing::ReadFile(Path("10.xml")), text);

    ASSERT_EQ(BinaryXmlConverter().Convert(Write("10.abx", USER_FILE), Path("10.xml")), 0);
    const std::string xml = Testing::ReadFile(Path("10.xml"));
    EXPECT_EQ(Testing::Canonical(xml), "<user id=[10]><name>{Kim}</></>");
    struct stat info {};
    ASSERT_EQ(stat(Path("10.xml").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    // The source is read whole first, so a file can be converted onto itself.
    ASSERT_EQ(BinaryXmlConverter().Convert(Path("10.abx"), Path("10.abx")), 0);
    EXPECT_EQ(Testing::ReadFile(Path("10.abx")), xml);
    EXPECT_EQ(FileCount(), 3u);
}

// The plug-in turns -1..-7 into distinct result codes, so each class of failure has its own
// status; none leaves a partial file behind.
TEST_F(BinaryXmlConverterTest, EachFailureHasTheStatusOfItsClassAndLeavesTheDestinationAlone) {
    const std::string out = Write("out.xml", "previous");
    const std::string good = Write("good.abx", USER_FILE);
    fs::create_directory(dir_ / "taken");
    Write("taken/inside", "x");
    const std::string tooLarge = Write("large", "");
    fs::resize_file(tooLarge, BinaryXml::MAX_SOURCE_BYTES + 1);
    int sources = 0;
    auto source = [&](const std::string &bytes) {
        return Write("source" + std::to_string(++sources), bytes);
    };
    const std::tuple<std::string, std::string, XmlConvertStatus> cases[] = {
        {Path("absent"), out, -1},
        {dir_.string(), out, -1},
        {"", out, -1},
        {source(""), out, -2},
        {source(USER_FILE.substr(0, 20)), out, -2},
        {source("ABX\x00\x10\x0C"s), out, -3},  // unknown type
        {source("hello"), out, -3},
        {source("<!-- no element -->"), out, -3},
        {source("ABX\x00\x10\x32\x00\x05"s), out, -4},
        {source("ABX\x00\x32\xFF\xFF\x00\x02\xC3\x28"s), out, -5},
        {source("ABX\x00\x32\xFF\xFF\x00\x01r\x33\xFF\xFF\x00\x01s"s), out, -6},
        {good, Path("missing/out.xml"), -7},
        {good, "", -7},
        {good, Path("taken"), -7},
        {tooLarge, out, -8},
    };
    for (const auto &[from, to, status] : cases) {
        EXPECT_EQ(BinaryXmlConverter().Convert(from, to), status) << from << " -> " << to;
    }
    EXPECT_EQ(Testing::ReadFile(out), "previous");
    EXPECT_EQ(Testing::ReadFile(Path("taken/inside")), "x");
    EXPECT_EQ(FileCount(), 4u + sources);
}

}  // namespace
}  // namespace Zarvo::UpdateEngine
