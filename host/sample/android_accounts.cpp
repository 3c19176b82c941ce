#include "android_accounts.h"

#include <sqlite3.h>

#include <cstdio>
#include <fstream>
#include <memory>

namespace Zarvo::Fixtures {
namespace {

// The schema as Android's account manager creates it, statement by statement and byte for byte.
constexpr const char *METADATA_TABLE = "CREATE TABLE android_metadata (locale TEXT)";
constexpr const char *ACCOUNTS_TABLE =
    "CREATE TABLE accounts ( _id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL, type TEXT NOT NULL, "
    "password TEXT, UNIQUE(name,type))";
constexpr const char *LEGACY_ACCOUNTS_TABLE =
    "CREATE TABLE accounts ( _id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL, type TEXT NOT NULL, "
    "password TEXT, previous_name TEXT, last_password_entry_time_millis_epoch INTEGER DEFAULT 0, "
    "UNIQUE(name,type))";
constexpr const char *AUTHTOKENS_TABLE =
    "CREATE TABLE authtokens (  _id INTEGER PRIMARY KEY AUTOINCREMENT,  accounts_id INTEGER NOT NULL, type "
    "TEXT "
    "NOT NULL,  authtoken TEXT,  UNIQUE (accounts_id,type))";
constexpr const char *EXTRAS_TABLE =
    "CREATE TABLE extras ( _id INTEGER PRIMARY KEY AUTOINCREMENT, accounts_id INTEGER, key TEXT NOT NULL, "
    "value "
    "TEXT, UNIQUE(accounts_id,key))";
constexpr const char *DELETE_TRIGGER =
    "CREATE TRIGGER accountsDelete DELETE ON accounts BEGIN   DELETE FROM authtokens     WHERE "
    "accounts_id=OLD._id ;   DELETE FROM extras     WHERE accounts_id=OLD._id ; END";
constexpr int ANDROID_DB_VERSION = 10;

using Database = std::unique_ptr<sqlite3, int (*)(sqlite3 *)>;
using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)>;

bool Exec(sqlite3 *db, const std::string &sql, std::string &error) {
    char *message = nullptr;
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &message) != SQLITE_OK) {
        error = "cannot run \"" + sql + "\": " + (message == nullptr ? "unknown error" : message);
        sqlite3_free(message);
        return false;
    }
    return true;
}

// One value to bind: text, integer or NULL.
struct Value {
    enum class Kind { NONE, INTEGER, TEXT } kind = Kind::NONE;
    int64_t integer = 0;
    std::string text;
    static Value Of(int64_t v) { return {Kind::INTEGER, v, {}}; }
    static Value Of(const std::string &v) { return {Kind::TEXT, 0, v}; }
    static Value Of(const std::optional<std::string> &v) { return v ? Of(*v) : Value{}; }
    static Value Of(const std::optional<int64_t> &v) { return v ? Of(*v) : Value{}; }
};

bool Insert(sqlite3 *db, const std::string &sql, const std::vector<Value> &values, std::string &error) {
    sqlite3_stmt *raw = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &raw, nullptr) != SQLITE_OK) {
        error = "cannot prepare \"" + sql + "\": " + sqlite3_errmsg(db);
        return false;
    }
    Statement statement(raw, sqlite3_finalize);
    for (size_t i = 0; i < values.size(); ++i) {
        int index = static_cast<int>(i) + 1;
        const Value &value = values[i];
        if (value.kind == Value::Kind::INTEGER) {
            sqlite3_bind_int64(raw, index, value.integer);
        } else if (value.kind == Value::Kind::TEXT) {
            sqlite3_bind_text(raw, index, value.text.data(), static_cast<int>(value.text.size()),
                              SQLITE_TRANSIENT);
        } else {
            sqlite3_bind_null(raw, index);
        }
    }
    if (sqlite3_step(raw) != SQLITE_DONE) {
        error = "cannot run \"" + sql + "\": " + sqlite3_errmsg(db);
        return false;
    }
    return true;
}

bool WriteRows(sqlite3 *db, const AccountsCeDb &content, std::string &error) {
    for (const auto &account : content.accounts) {
        if (!Insert(db, "INSERT INTO accounts (_id, name, type, password) VALUES (?, ?, ?, ?)",
                    {Value::Of(account.id), Value::Of(account.name), Value::Of(account.type),
                     Value::Of(account.password)},
                    error)) {
            return false;
        }
    }
    for (const auto &token : content.authtokens) {
        if (!Insert(db, "INSERT INTO authtokens (_id, accounts_id, type, authtoken) VALUES (?, ?, ?, ?)",
                    {Value::Of(token.id), Value::Of(token.accountId), Value::Of(token.type),
                     Value::Of(token.authtoken)},
                    error)) {
            return false;
        }
    }
    for (const auto &extra : content.extras) {
        if (!Insert(db, "INSERT INTO extras (_id, accounts_id, key, value) VALUES (?, ?, ?, ?)",
                    {Value::Of(extra.id), Value::Of(extra.accountId), Value::Of(extra.key),
                     Value::Of(extra.value)},
                    error)) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool WriteAccountsCeDb(const std::string &path, const AccountsCeDb &content, std::string &error) {
    std::remove(path.c_str());
    for (const char *suffix : {"-journal", "-wal", "-shm"}) {
        std::remove((path + suffix).c_str());
    }
    sqlite3 *raw = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    Database db(raw, sqlite3_close);
    if (rc != SQLITE_OK) {
        error = "cannot create " + path + ": " + (raw == nullptr ? sqlite3_errstr(rc) : sqlite3_errmsg(raw));
        return false;
    }
    // File settings come before the first table, as on the phone.
    if (!Exec(raw, "PRAGMA encoding = 'UTF-8'", error) || !Exec(raw, "PRAGMA page_size = 4096", error) ||
        !Exec(raw, "PRAGMA auto_vacuum = FULL", error) || !Exec(raw, METADATA_TABLE, error)) {
        return false;
    }
    if (content.locale && !Insert(raw, "INSERT INTO android_metadata (locale) VALUES (?)",
                                  {Value::Of(*content.locale)}, error)) {
        return false;
    }
    if (!Exec(raw, "BEGIN", error) ||
        !Exec(raw, content.legacyAccountsColumns ? LEGACY_ACCOUNTS_TABLE : ACCOUNTS_TABLE, error) ||
        !Exec(raw, AUTHTOKENS_TABLE, error) || !Exec(raw, EXTRAS_TABLE, error) ||
        !Exec(raw, DELETE_TRIGGER, error) ||
        !Exec(raw, "PRAGMA user_version = " + std::to_string(ANDROID_DB_VERSION), error) ||
        !Exec(raw, "COMMIT", error)) {
        return false;
    }
    if (content.walMode) {
        // The rows stay in the write-ahead log, as on a phone whose log was not checkpointed yet.
        if (!Exec(raw, "PRAGMA journal_mode = WAL", error)) {
            return false;
        }
        sqlite3_db_config(raw, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    }
    if (!Exec(raw, "BEGIN", error) || !WriteRows(raw, content, error) || !Exec(raw, "COMMIT", error)) {
        return false;
    }
    db.reset();
    if (!content.walMode && content.withEmptyJournal) {
        std::ofstream journal(path + "-journal", std::ios::binary | std::ios::trunc);
        if (!journal) {
            error = "cannot create " + path + "-journal";
            return false;
        }
    }
    return true;
}

AccountsCeDb SamplePhoneAccounts() {
    AccountsCeDb db;
    db.locale = "zh_CN_#Hans";
    db.accounts = {
        {1, "li.wei@mail.example", "com.example.mail", std::nullopt},
        {3, "13800138000", CVID_ACCOUNT_TYPE, std::nullopt},
        {4, "李伟 🐼", "org.example.messenger", std::string("s3cret")},
    };
    db.authtokens = {
        {2, 1, "oauth2:https://mail.example/auth", std::string("ya29.a0AfH6SMBx-mail-token")},
        {5, 3, CVID_ACCOUNT_TYPE,
         std::string("CgB6e3x9QW8xY2M0ZTYtYjQ1Ny00ZmE2LWE0NDctNTg4ZDE2MmU2ZjE1EhAxNzAwMDAwMDAwMDAwMDAw"
                     "GiQ2YjJkZTk1Ni1hNGJmLTQ0ZTQtOTk2Zi1lNjQ1YjhiOGQ5YmQiBnpoX0NO")},
    };
    db.extras = {
        {7, 3, "userId", std::string("2850086000123456789")},
        {8, 3, "nickName", std::string("李伟")},
        {9, 3, "countryCode", std::string("CN")},
        {12, 4, "lastSync", std::string("1699999999000")},
    };
    return db;
}

}  // namespace Zarvo::Fixtures
