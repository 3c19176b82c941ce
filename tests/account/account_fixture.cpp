#include "account_fixture.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "account_data_manager.h"

namespace Zarvo::Testing {

std::string UserBackDir(int userId) {
    return UpdateEngine::PLUGIN_BACK_PATH + std::to_string(userId) + "/";
}

std::string WriteUserAccountsDb(int userId, const Fixtures::AccountsCeDb &content) {
    std::filesystem::create_directories(UserBackDir(userId));
    std::string path = UserBackDir(userId) + UpdateEngine::ACCOUNT_DB_NAME;
    std::string error;
    EXPECT_TRUE(Fixtures::WriteAccountsCeDb(path, content, error)) << error;
    return path;
}

Fixtures::AccountsCeDb CvidAccountDb() {
    Fixtures::AccountsCeDb db;
    db.locale = "en_US";
    db.accounts = {{1, "alice@mail.example", "com.example.mail", std::nullopt},
                   {3, "alice", Fixtures::CVID_ACCOUNT_TYPE, std::nullopt}};
    db.authtokens = {{1, 1, "oauth2:mail", std::string("mail-token")},
                     {4, 3, Fixtures::CVID_ACCOUNT_TYPE, std::string("a1b2")}};
    db.extras = {{7, 3, "nick", std::string("Al")}, {9, 3, "uid", std::string("2850086")}};
    return db;
}

std::string ReadFileBytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

std::string DumpTables(const std::string &dbPath) {
    sqlite3 *db = nullptr;
    if (sqlite3_open_v2(dbPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return "cannot open " + dbPath;
    }
    std::ostringstream dump;
    auto append = [](void *out, int columns, char **values, char **) {
        auto &stream = *static_cast<std::ostringstream *>(out);
        for (int i = 0; i < columns; ++i) {
            stream << (values[i] == nullptr ? "NULL" : values[i]) << '|';
        }
        stream << '\n';
        return 0;
    };
    sqlite3_exec(db, "SELECT type, name, sql FROM sqlite_master ORDER BY name", append, &dump, nullptr);
    for (const char *table : {"android_metadata", "accounts", "authtokens", "extras", "sqlite_sequence"}) {
        std::string sql = std::string("SELECT * FROM ") + table + " ORDER BY rowid";
        dump << "-- " << table << '\n';
        sqlite3_exec(db, sql.c_str(), append, &dump, nullptr);
    }
    sqlite3_exec(db, "PRAGMA user_version", append, &dump, nullptr);
    sqlite3_close(db);
    return dump.str();
}

}  // namespace Zarvo::Testing
