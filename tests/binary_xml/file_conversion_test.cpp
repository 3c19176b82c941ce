#include "binary_xml/file_conversion.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "binary_xml/abx_writer.h"
#include "xml_canonical.h"

namespace Zarvo::BinaryXml {
namespace {

namespace fs = std::filesystem;

class FileConversion : public testing::Test {
protected:
    const fs::path dir_{"/data/bxml"};
    void SetUp() override { fs::create_directories(dir_); }
    void TearDown() override { fs::remove_all(dir_); }

    std::string Path(const std::string &name) const { return (dir_ / name).string(); }
    void Write(const std::string &name, const std::string &content) const {
        std::ofstream(dir_ / name, std::ios::binary) << content;
    }
    std::string Read(const std::string &name) const {
        std::ifstream in(dir_ / name, std::ios::binary);
        std::stringstream content;
        content << in.rdbuf();
        return content.str();
    }
    std::size_t FileCount() const {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(dir_), fs::directory_iterator()));
    }
};

std::string UserList() {
    AbxWriter writer;
    writer.StartDocument().StartTag("users").Attribute("version", std::int32_t{9});
    writer.StartTag("user").Attribute("id", std::int32_t{0}).EndTag("user").EndTag("users").EndDocument();
    return writer.Data();
}

TEST_F(FileConversion, BinarySourceBecomesPrivateTextXml) {
    Write("userlist.abx", UserList());
    ASSERT_EQ(ConvertFile(Path("userlist.abx"), Path("userlist.xml")), Status::OK);
    EXPECT_EQ(Testing::Canonical(Read("userlist.xml")), "<users version=[9]><user id=[0]></></>");
    struct stat info {};
    ASSERT_EQ(stat(Path("userlist.xml").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(FileCount(), 2u);
}

TEST_F(FileConversion, TextSourceIsCopiedUnchanged) {
    // Android 11 and older write control characters as references that XML 1.0 forbids.
    const std::string text =
        "\xEF\xBB\xBF\n  <?xml version='1.0'?><user id=\"10\"><name>A&#0;</name></user>\n";
    Write("10.xml", text);
    ASSERT_EQ(ConvertFile(Path("10.xml"), Path("out.xml")), Status::OK);
    EXPECT_EQ(Read("out.xml"), text);
}

TEST_F(FileConversion, ConvertingInPlaceReplacesTheSource) {
    Write("0.xml", UserList());
    ASSERT_EQ(ConvertFile(Path("0.xml"), Path("0.xml")), Status::OK);
    EXPECT_TRUE(Testing::ParsesStrictly(Read("0.xml")));
    EXPECT_EQ(FileCount(), 1u);
}

TEST_F(FileConversion, UnreadableSourcesAreReportedAsSuch) {
    EXPECT_EQ(ConvertFile(Path("missing.xml"), Path("out.xml")), Status::SOURCE_UNREADABLE);
    EXPECT_EQ(ConvertFile(dir_.string(), Path("out.xml")), Status::SOURCE_UNREADABLE);
    EXPECT_EQ(ConvertFile("", Path("out.xml")), Status::SOURCE_UNREADABLE);
    Write("empty", "");
    EXPECT_EQ(ConvertFile(Path("empty"), Path("out.xml")), Status::TRUNCATED);
    for (const char *junk : {"PK\x03\x04", "hello", "<", "<!-- only a comment -->"}) {
        Write("junk", junk);
        EXPECT_EQ(ConvertFile(Path("junk"), Path("out.xml")), Status::MALFORMED) << junk;
    }
    fs::resize_file(Path("junk"), MAX_SOURCE_BYTES + 1);
    EXPECT_EQ(ConvertFile(Path("junk"), Path("out.xml")), Status::TOO_LARGE);
    EXPECT_FALSE(fs::exists(dir_ / "out.xml"));
}

TEST_F(FileConversion, AFailedConversionLeavesTheDestinationAlone) {
    Write("out.xml", "previous");
    std::string cut = UserList();
    Write("cut.abx", cut.substr(0, cut.size() - 5));
    EXPECT_EQ(ConvertFile(Path("cut.abx"), Path("out.xml")), Status::TRUNCATED);
    EXPECT_EQ(Read("out.xml"), "previous");
    EXPECT_EQ(FileCount(), 2u);
}

TEST_F(FileConversion, UnwritableDestinationsLeaveNothingBehind) {
    Write("userlist.abx", UserList());
    EXPECT_EQ(ConvertFile(Path("userlist.abx"), Path("no-dir/out.xml")), Status::DESTINATION_UNWRITABLE);
    EXPECT_EQ(ConvertFile(Path("userlist.abx"), Path("")), Status::DESTINATION_UNWRITABLE);
    EXPECT_EQ(ConvertFile(Path("userlist.abx"), ""), Status::DESTINATION_UNWRITABLE);
    fs::create_directory(dir_ / "taken");
    Write("taken/inside", "x");
    EXPECT_EQ(ConvertFile(Path("userlist.abx"), Path("taken")), Status::DESTINATION_UNWRITABLE);
    EXPECT_EQ(FileCount(), 2u);
    EXPECT_EQ(Read("taken/inside"), "x");
}

}  // namespace
}  // namespace Zarvo::BinaryXml
