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

std::string Query(const std::string &dbPath, const std::string &sql) {
    sqlite3 *db = nullptr;
    std::string rows;
    if (sqlite3_open_v2(dbPath.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        auto append = [](void *out, int columns, char **values, char **) {
            auto &text = *static_cast<std::string *>(out);
            for (int i = 0; i < columns; ++i) {
                text += std::string(values[i] == nullptr ? "NULL" : values[i]) + '|';
            }
            text += '\n';
            return 0;
        };
        sqlite3_exec(db, sql.c_str(), append, &rows, nullptr);
    }
    sqlite3_close(db);
    return rows;
}

}  // namespace Zarvo::Testing
