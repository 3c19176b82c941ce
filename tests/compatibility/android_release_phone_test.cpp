// Each release's sample phone, read back from its files and held against what Android leaves
// behind (docs/sample-phone.md): the expected facts are written out here, not taken from the writer.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "android_release.h"
#include "binary_xml/abx_decoder.h"
#include "binary_xml/status.h"

namespace {

namespace fs = std::filesystem;
using namespace Zarvo;

struct ReleaseFacts {
    int release;
    int userListVersion;
    bool binary;
    bool typed;
    bool userTypeConfigVersion;  // Android 12+
    int ownerFlags, secondaryFlags, guestFlags, workFlags;
    bool since14;      // lastEnteredForeground and userProperties
    bool namesCut;     // to 100 UTF-16 units
    bool reserveCopy;  // Android 15
    int accountColumns;
    bool wal;
};

void PrintTo(const ReleaseFacts &facts, std::ostream *out) {
    *out << "Android " << facts.release;
}

// clang-format off
const ReleaseFacts FACTS[] = {
    // release, version, binary, type, configVersion, owner, secondary, guest, work, 14+, cut, reserve, columns, WAL
    {7,  6,  false, false, false, 19,    16,   20,   48,   false, false, false, 6, false},
    {8,  7,  false, false, false, 19,    16,   20,   48,   false, false, false, 4, false},
    {9,  7,  false, false, false, 19,    16,   20,   48,   false, false, false, 4, true},
    {10, 7,  false, false, false, 19,    16,   20,   48,   false, false, false, 4, true},
    {11, 9,  false, true,  false, 3091,  1040, 1044, 4144, false, false, false, 4, true},
    {12, 9,  true,  true,  true,  3091,  1040, 1044, 4144, false, false, false, 4, true},
    {13, 9,  true,  true,  true,  3091,  1040, 1044, 4144, false, true,  false, 4, true},
    {14, 11, true,  true,  true,  19475, 1040, 1044, 4144, true,  true,  false, 4, true},
    {15, 11, true,  true,  true,  19475, 1040, 1044, 4144, true,  true,  true,  4, true},
};
// clang-format on

std::string ReadFile(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

using XmlDocument = std::unique_ptr<xmlDoc, decltype(&xmlFreeDoc)>;

// The file's root element once parsed, decoding binary XML with the project's decoder first.
XmlDocument ParseUserFile(const fs::path &path, bool expectBinary) {
    std::string bytes = ReadFile(path);
    EXPECT_EQ(BinaryXml::HasAbxMagic(bytes), expectBinary) << path;
    std::string xml = bytes;
    if (BinaryXml::HasAbxMagic(bytes)) {
        EXPECT_EQ(BinaryXml::DecodeAbx(bytes, xml), BinaryXml::Status::OK) << path;
    }
    XmlDocument doc(
        xmlReadMemory(xml.data(), static_cast<int>(xml.size()), nullptr, nullptr, XML_PARSE_NONET),
        xmlFreeDoc);
    EXPECT_NE(doc, nullptr) << path;
    return doc;
}

std::optional<std::string> Attribute(xmlNode *node, const char *name) {
    xmlChar *value = xmlGetProp(node, reinterpret_cast<const xmlChar *>(name));
    if (value == nullptr) {
        return std::nullopt;
    }
    std::string text(reinterpret_cast<const char *>(value));
    xmlFree(value);
    return text;
}

xmlNode *Child(xmlNode *node, const std::string &name) {
    for (xmlNode *child = node->children; child != nullptr; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && name == reinterpret_cast<const char *>(child->name)) {
            return child;
        }
    }
    return nullptr;
}

size_t Utf16Units(const std::string &utf8) {
    size_t units = 0;
    for (unsigned char c : utf8) {
        units += (c & 0xC0) != 0x80 ? (c >= 0xF0 ? 2 : 1) : 0;
    }
    return units;
}

int64_t Pragma(sqlite3 *db, const std::string &name) {
    sqlite3_stmt *statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db, ("PRAGMA " + name).c_str(), -1, &statement, nullptr), SQLITE_OK);
    int64_t value = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : -1;
    sqlite3_finalize(statement);
    return value;
}

class AndroidReleasePhoneTest : public testing::TestWithParam<ReleaseFacts> {
protected:
    void SetUp() override {
        root_ = fs::path(testing::TempDir()) / ("android" + std::to_string(GetParam().release));
        fs::remove_all(root_);
        std::optional<Fixtures::SamplePhone> phone = Fixtures::AndroidReleasePhone(GetParam().release);
        ASSERT_TRUE(phone.has_value());
        ASSERT_EQ(Fixtures::BuildSamplePhone(*phone, root_.string()), "");
    }
    void TearDown() override { fs::remove_all(root_); }
    fs::path root_;
};

TEST_P(AndroidReleasePhoneTest, UserFilesHaveTheReleasesShape) {
    const ReleaseFacts &facts = GetParam();
    const fs::path users = root_ / "system/users";
    XmlDocument list = ParseUserFile(users / "userlist.xml", facts.binary);
    ASSERT_NE(list, nullptr);
    xmlNode *listRoot = xmlDocGetRootElement(list.get());
    EXPECT_EQ(Attribute(listRoot, "version"), std::to_string(facts.userListVersion));
    EXPECT_EQ(Attribute(listRoot, "userTypeConfigVersion").has_value(), facts.userTypeConfigVersion);
    EXPECT_NE(Child(listRoot, "guestRestrictions"), nullptr);

    const std::map<int, int> flagsById = {
        {0, facts.ownerFlags}, {10, facts.secondaryFlags}, {11, facts.guestFlags}, {12, facts.workFlags}};
    for (const auto &[id, flags] : flagsById) {
        const fs::path file = users / (std::to_string(id) + ".xml");
        SCOPED_TRACE(file.string());
        XmlDocument doc = ParseUserFile(file, facts.binary);
        ASSERT_NE(doc, nullptr);
        xmlNode *user = xmlDocGetRootElement(doc.get());
        EXPECT_EQ(Attribute(user, "id"), std::to_string(id));
        EXPECT_EQ(Attribute(user, "flags"), std::to_string(flags));
        EXPECT_EQ(Attribute(user, "type").has_value(), facts.typed);
        if (id == 0) {
            EXPECT_EQ(Attribute(user, "created"), "0");
        }
        EXPECT_EQ(Attribute(user, "lastEnteredForeground").has_value(), facts.since14);
        EXPECT_EQ(Child(user, "userProperties") != nullptr, facts.since14);
        EXPECT_EQ(Child(user, "name") == nullptr, id == 0);
        EXPECT_EQ(fs::exists(file.string() + ".reservecopy"), facts.reserveCopy);
        if (facts.reserveCopy) {
            EXPECT_EQ(ReadFile(file.string() + ".reservecopy"), ReadFile(file));
        }
        if (id == 10) {
            // The secondary user's photo is a PNG where its icon points.
            EXPECT_EQ(Attribute(user, "icon"), "/data/system/users/10/photo.png");
            EXPECT_EQ(ReadFile(users / "10/photo.png").substr(0, 8), "\x89PNG\r\n\x1A\n");
            xmlChar *name = xmlNodeGetContent(Child(user, "name"));
            const size_t units = Utf16Units(reinterpret_cast<const char *>(name));
            xmlFree(name);
            if (facts.namesCut) {
                EXPECT_EQ(units, 100u);
            } else {
                EXPECT_GT(units, 100u);
            }
        }
    }
    EXPECT_EQ(fs::exists(users / "userlist.xml.reservecopy"), facts.reserveCopy);
}

TEST_P(AndroidReleasePhoneTest, AccountDatabaseHasTheReleasesShape) {
    const ReleaseFacts &facts = GetParam();
    const fs::path path = root_ / "system_ce/0/accounts_ce.db";
    EXPECT_EQ(fs::exists(path.string() + "-wal"), facts.wal);
    EXPECT_EQ(fs::exists(path.string() + "-shm"), facts.wal);
    EXPECT_EQ(fs::exists(path.string() + "-journal"), !facts.wal);
    if (!facts.wal) {
        EXPECT_EQ(fs::file_size(path.string() + "-journal"), 0u);
    }
    // Bytes 18 and 19 of the header are 2 for a database in WAL mode, 1 for a rollback journal.
    EXPECT_EQ(ReadFile(path).substr(18, 2), facts.wal ? std::string("\x02\x02") : std::string("\x01\x01"));

    sqlite3 *raw = nullptr;
    ASSERT_EQ(sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    std::unique_ptr<sqlite3, decltype(&sqlite3_close)> db(raw, sqlite3_close);
    EXPECT_EQ(Pragma(raw, "user_version"), 10);
    EXPECT_EQ(Pragma(raw, "page_size"), 4096);
    EXPECT_EQ(Pragma(raw, "auto_vacuum"), 1);
    sqlite3_stmt *statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(raw, "SELECT * FROM accounts WHERE type = 'com.corvan.cvid'", -1, &statement,
                                 nullptr),
              SQLITE_OK);
    EXPECT_EQ(sqlite3_column_count(statement), facts.accountColumns);
    EXPECT_EQ(sqlite3_step(statement), SQLITE_ROW)
        << "the maker's account is readable with the -wal beside it";
    sqlite3_finalize(statement);
}

INSTANTIATE_TEST_SUITE_P(Android7To15, AndroidReleasePhoneTest, testing::ValuesIn(FACTS),
                         [](const testing::TestParamInfo<ReleaseFacts> &info) {
                             return "Android" + std::to_string(info.param.release);
                         });

TEST(AndroidReleasePhone, OnlyReleases7To15) {
    EXPECT_FALSE(Fixtures::AndroidReleasePhone(6).has_value());
    EXPECT_FALSE(Fixtures::AndroidReleasePhone(16).has_value());
}

// Java's substring counts UTF-16 units: an emoji is two, and one cut between them leaves its
// high surrogate alone.
TEST(CutToUtf16Units, CountsUnitsAndLeavesALoneHighSurrogate) {
    const std::string text =
        "a\xC3\xAB\xF0\x9F\x8C\xBB"
        "b";  // a ë 🌻 b: 1 + 1 + 2 + 1 units
    EXPECT_EQ(Fixtures::CutToUtf16Units(text, 2), "a\xC3\xAB");
    EXPECT_EQ(Fixtures::CutToUtf16Units(text, 3), "a\xC3\xAB\xED\xA0\xBC");  // U+D83C
    EXPECT_EQ(Fixtures::CutToUtf16Units(text, 4), "a\xC3\xAB\xF0\x9F\x8C\xBB");
    EXPECT_EQ(Fixtures::CutToUtf16Units(text, 100), text);
}

}  // namespace
