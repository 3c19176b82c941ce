#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>

#include "account_fixture.h"

namespace {

using namespace Zarvo;

std::string Query(const std::string &path, const std::string &sql) {
    sqlite3 *db = nullptr;
    sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr);
    std::string result;
    sqlite3_exec(
        db, sql.c_str(),
        [](void *out, int columns, char **values, char **) {
            for (int i = 0; i < columns; ++i) {
                *static_cast<std::string *>(out) +=
                    std::string(values[i] == nullptr ? "NULL" : values[i]) + "\n";
            }
            return 0;
        },
        &result, nullptr);
    sqlite3_close(db);
    return result;
}

TEST(AndroidFixtureTest, WritesTheSchemaAndFileSettingsOfAnAndroidDatabase) {
    std::string path = Testing::WriteUserAccountsDb(100, Testing::CvidAccountDb());
    EXPECT_EQ(
        Query(path, "SELECT sql FROM sqlite_master WHERE sql IS NOT NULL ORDER BY rowid"),
        "CREATE TABLE android_metadata (locale TEXT)\n"
        "CREATE TABLE accounts ( _id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL, type TEXT NOT "
        "NULL, password TEXT, UNIQUE(name,type))\n"
        "CREATE TABLE sqlite_sequence(name,seq)\n"
        "CREATE TABLE authtokens (  _id INTEGER PRIMARY KEY AUTOINCREMENT,  accounts_id INTEGER NOT NULL, "
        "type "
        "TEXT NOT NULL,  authtoken TEXT,  UNIQUE (accounts_id,type))\n"
        "CREATE TABLE extras ( _id INTEGER PRIMARY KEY AUTOINCREMENT, accounts_id INTEGER, key TEXT NOT "
        "NULL, "
        "value TEXT, UNIQUE(accounts_id,key))\n"
        "CREATE TRIGGER accountsDelete DELETE ON accounts BEGIN   DELETE FROM authtokens     WHERE "
        "accounts_id=OLD._id ;   DELETE FROM extras     WHERE accounts_id=OLD._id ; END\n");
    EXPECT_EQ(Query(path, "PRAGMA user_version"), "10\n");
    EXPECT_EQ(Query(path, "PRAGMA page_size"), "4096\n");
    EXPECT_EQ(Query(path, "PRAGMA auto_vacuum"), "1\n");
    EXPECT_EQ(Query(path, "PRAGMA encoding"), "UTF-8\n");
    EXPECT_EQ(Query(path, "PRAGMA journal_mode"), "delete\n");
    EXPECT_EQ(Query(path, "SELECT locale FROM android_metadata"), "en_US\n");
    EXPECT_EQ(Query(path, "SELECT name, seq FROM sqlite_sequence ORDER BY name"),
              "accounts\n3\nauthtokens\n4\nextras\n9\n");
    EXPECT_EQ(std::filesystem::file_size(path + "-journal"), 0u);
}

TEST(AndroidFixtureTest, KeepsNullsAndLegacyColumnsAndTheDeleteTrigger) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.locale.reset();
    content.legacyAccountsColumns = true;
    content.extras.push_back({12, std::nullopt, "orphan", std::nullopt});
    std::string path = Testing::WriteUserAccountsDb(101, content);
    EXPECT_EQ(Query(path, "SELECT count(*) FROM android_metadata"), "0\n");
    EXPECT_EQ(Query(path, "SELECT count(*) FROM pragma_table_info('accounts')"), "6\n");
    EXPECT_EQ(Query(path, "SELECT accounts_id, value FROM extras WHERE _id = 12"), "NULL\nNULL\n");
    sqlite3 *db = nullptr;
    sqlite3_open(path.c_str(), &db);
    sqlite3_exec(db, "DELETE FROM accounts WHERE _id = 3", nullptr, nullptr, nullptr);
    sqlite3_close(db);
    EXPECT_EQ(Query(path, "SELECT count(*) FROM extras WHERE accounts_id = 3"), "0\n");
    EXPECT_EQ(Query(path, "SELECT count(*) FROM authtokens"), "1\n");
}

TEST(AndroidFixtureTest, RefusesRowsTheSchemaForbids) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.accounts.push_back({8, "alice", Fixtures::CVID_ACCOUNT_TYPE, std::nullopt});
    std::filesystem::create_directories("/data/fixture");
    std::string error;
    EXPECT_FALSE(Fixtures::WriteAccountsCeDb("/data/fixture/accounts_ce.db", content, error));
    EXPECT_NE(error.find("UNIQUE"), std::string::npos) << error;
    EXPECT_FALSE(
        Fixtures::WriteAccountsCeDb("/data/no/such/dir/accounts_ce.db", Testing::CvidAccountDb(), error));
}

}  // namespace
