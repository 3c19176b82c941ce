// The runner's own reading of the phone's user files: what it keeps stays bounded by what the
// snapshot holds, whatever the files say.
#include "record_source_users.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using namespace Zarvo::Host;

const std::string PNG = std::string("\x89PNG\r\n\x1a\n", 8) + "picture";

class RecordSourceUsersTest : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "source-users-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        dir_ = pattern + "/";
    }
    void TearDown() override { fs::remove_all(dir_); }

    void Write(const std::string &name, const std::string &content) {
        fs::create_directories(fs::path(dir_ + name).parent_path());
        std::ofstream(dir_ + name, std::ios::binary) << content;
    }

    std::string dir_;
};

// Each character as two bytes, the low one first, with the byte order mark.
std::string Utf16Le(const std::string &ascii) {
    std::string wide = "\xFF\xFE";
    for (char c : ascii) {
        wide += c;
        wide += '\0';
    }
    return wide;
}

std::string Utf16Be(const std::string &ascii) {
    std::string wide = "\xFE\xFF";
    for (char c : ascii) {
        wide += '\0';
        wide += c;
    }
    return wide;
}

TEST_F(RecordSourceUsersTest, ReadsAUserListedManyTimesOnce) {
    std::string list = "<users version=\"10\">";
    for (int i = 0; i < 50; ++i) {
        list += "<user id=\"10\"/>";
    }
    Write("userlist.xml", list + "<user id=\"11\"/></users>");
    Write(
        "10.xml",
        "<user id=\"10\" type=\"android.os.usertype.full.SECONDARY\" flags=\"1040\"><name>Ann</name></user>");
    Write("10/photo.png", PNG);

    const SourceUserList read = ReadSourceUsers(dir_);
    ASSERT_EQ(read.users.size(), 51u);
    EXPECT_EQ(read.users[0].name, "Ann");
    EXPECT_EQ(read.users[0].photoPng, PNG);
    for (size_t i = 1; i < 50; ++i) {
        EXPECT_EQ(read.users[i].id, 10);
        EXPECT_FALSE(read.users[i].name.has_value());
        EXPECT_TRUE(read.users[i].photoPng.empty());
        EXPECT_NE(read.users[i].problem.find("names it again"), std::string::npos);
    }
    EXPECT_EQ(read.users[50].id, 11);
    EXPECT_EQ(read.users[50].problem, "the file is not in the snapshot");
}

TEST_F(RecordSourceUsersTest, RefusesDocumentTypesInEveryEncoding) {
    // Each entity ten of the one before: a name of 10^5 characters from a file of a few hundred
    // bytes if the entities were expanded.
    std::string declarations = "<!ENTITY e0 \"lollollol!\">";
    for (int i = 1; i <= 5; ++i) {
        declarations += "<!ENTITY e" + std::to_string(i) + " \"";
        for (int j = 0; j < 10; ++j) {
            declarations += "&e" + std::to_string(i - 1) + ";";
        }
        declarations += "\">";
    }
    const std::string user = "<?xml version=\"1.0\"?><!DOCTYPE user [" + declarations +
                             "]><user id=\"10\" type=\"t\"><name>&e5;</name></user>";
    const std::string external =
        "<!DOCTYPE user SYSTEM \"file:///etc/passwd\"><user id=\"13\"><name>n</name></user>";
    Write("userlist.xml",
          "<users><user id=\"10\"/><user id=\"11\"/><user id=\"12\"/><user id=\"13\"/></users>");
    Write("10.xml", user);
    Write("11.xml", Utf16Le(user));
    Write("12.xml", Utf16Be(user));
    Write("13.xml", Utf16Le(external));

    const SourceUserList read = ReadSourceUsers(dir_);
    ASSERT_EQ(read.users.size(), 4u);
    for (const SourceUser &refused : read.users) {
        EXPECT_FALSE(refused.name.has_value()) << refused.id << " " << refused.name.value_or("").size();
        EXPECT_EQ(refused.problem, "it declares a document type, which Android's user files never do")
            << refused.id;
    }
}

TEST_F(RecordSourceUsersTest, KeepsBoundedNamesAndPhotos) {
    // A long name is cut between characters (each "é" is two bytes) and marked.
    std::string longName;
    for (int i = 0; i < 1000; ++i) {
        longName += "\u00e9";
    }
    Write("userlist.xml", Utf16Le("<users><user id=\"0\"/><user id=\"10\"/><user id=\"11\"/>"
                                  "<user id=\"12\"/><user id=\"13\"/><user id=\"14\"/></users>"));
    Write("0.xml", "<user id=\"0\"><name>" + longName + "</name></user>");
    EXPECT_EQ(ReadSourceUsers(dir_).users[0].name, longName.substr(0, 1024) + "\u2026");

    // Photos of 7 MiB each, as many as 32 MiB hold.
    const std::string photo = PNG + std::string((7u << 20) - PNG.size(), 'p');
    Write("10/photo.png", photo);
    for (int id = 10; id <= 14; ++id) {
        Write(std::to_string(id) + ".xml", "<user id=\"" + std::to_string(id) + "\"><name>u</name></user>");
        if (id > 10) {
            fs::create_directories(dir_ + std::to_string(id));
            fs::create_hard_link(dir_ + "10/photo.png", dir_ + std::to_string(id) + "/photo.png");
        }
    }
    const SourceUserList read = ReadSourceUsers(dir_);
    ASSERT_EQ(read.users.size(), 6u);
    for (size_t i = 1; i <= 4; ++i) {
        EXPECT_EQ(read.users[i].photoPng.size(), photo.size()) << i;
    }
    EXPECT_TRUE(read.users[5].photoPng.empty());
    EXPECT_EQ(read.users[5].name, "u");
}

TEST(UserFlagNamesTest, NamesEveryFlagAndEveryUnknownBit) {
    struct Case {
        int64_t flags;
        std::string names;
    } cases[] = {
        {3091, "PRIMARY|ADMIN|INITIALIZED|FULL|SYSTEM"},
        {0x4C13, "PRIMARY|ADMIN|INITIALIZED|FULL|SYSTEM|MAIN"},
        {0x02000410, "INITIALIZED|FULL|0x02000000"},
        {0, "none"},
        {-1,
         "PRIMARY|ADMIN|GUEST|RESTRICTED|INITIALIZED|MANAGED_PROFILE|DISABLED|QUIET_MODE|EPHEMERAL|DEMO|FULL|"
         "SYSTEM|PROFILE|EPHEMERAL_ON_CREATE|MAIN|FOR_TESTING|0x00010000|0x00020000|0x00040000|0x00080000|"
         "0x00100000|0x00200000|0x00400000|0x00800000|0x01000000|0x02000000|0x04000000|0x08000000|0x10000000|"
         "0x20000000|0x40000000|0x80000000"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(UserFlagNames(c.flags), c.names) << c.flags;
    }
}

}  // namespace
