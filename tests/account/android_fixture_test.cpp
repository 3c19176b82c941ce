#include <gtest/gtest.h>

#include <filesystem>

#include "account_fixture.h"

namespace {

using namespace Zarvo;

TEST(AndroidFixtureTest, WritesTheSchemaAndFileSettingsOfAnAndroidDatabase) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.extras.push_back({12, std::nullopt, "orphan", std::nullopt});
    std::string path = Testing::WriteUserAccountsDb(100, content);
    EXPECT_EQ(
        Testing::Query(path, "SELECT sql FROM sqlite_master WHERE sql IS NOT NULL ORDER BY rowid"),
        "CREATE TABLE android_metadata (locale TEXT)|\n"
        "CREATE TABLE accounts ( _id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL, type TEXT NOT "
        "NULL, password TEXT, UNIQUE(name,type))|\n"
        "CREATE TABLE sqlite_sequence(name,seq)|\n"
        "CREATE TABLE authtokens (  _id INTEGER PRIMARY KEY AUTOINCREMENT,  accounts_id INTEGER NOT NULL, "
        "type TEXT NOT NULL,  authtoken TEXT,  UNIQUE (accounts_id,type))|\n"
        "CREATE TABLE extras ( _id INTEGER PRIMARY KEY AUTOINCREMENT, accounts_id INTEGER, key TEXT NOT "
        "NULL, value TEXT, UNIQUE(accounts_id,key))|\n"
        "CREATE TRIGGER accountsDelete DELETE ON accounts BEGIN   DELETE FROM authtokens     WHERE "
        "accounts_id=OLD._id ;   DELETE FROM extras     WHERE accounts_id=OLD._id ; END|\n");
    EXPECT_EQ(Testing::Query(path,
                             "SELECT * FROM pragma_user_version, pragma_page_size, pragma_auto_vacuum, "
                             "pragma_encoding, pragma_journal_mode"),
              "10|4096|1|UTF-8|delete|\n");
    EXPECT_EQ(Testing::Query(path, "SELECT * FROM android_metadata"), "en_US|\n");
    EXPECT_EQ(Testing::Query(path, "SELECT * FROM sqlite_sequence ORDER BY name"),
              "accounts|3|\nauthtokens|4|\nextras|12|\n");
    EXPECT_EQ(Testing::Query(path, "SELECT accounts_id, value FROM extras WHERE _id = 12"), "NULL|NULL|\n");
    EXPECT_EQ(std::filesystem::file_size(path + "-journal"), 0u);
}

TEST(AndroidFixtureTest, RefusesRowsTheSchemaForbidsAndMissingDirectories) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.accounts.push_back({8, "alice", Fixtures::CVID_ACCOUNT_TYPE, std::nullopt});
    std::string error;
    EXPECT_FALSE(Fixtures::WriteAccountsCeDb("/data/accounts_ce.db", content, error));
    EXPECT_NE(error.find("UNIQUE"), std::string::npos) << error;
    EXPECT_FALSE(
        Fixtures::WriteAccountsCeDb("/data/no/such/accounts_ce.db", Testing::CvidAccountDb(), error));
}

}  // namespace
