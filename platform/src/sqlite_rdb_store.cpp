#include "sqlite_rdb_store.h"

#include <sys/stat.h>

#include <cctype>

#include "hilog/log.h"
#include "rdb_errno.h"

namespace Zarvo::NativeRdb {
namespace {

constexpr unsigned int RDB_LOG_DOMAIN = 0xD001650;
constexpr char RDB_LOG_TAG[] = "NativeRdb";

bool OnlyWhitespace(const char *text) {
    for (; text != nullptr && *text != '\0'; ++text) {
        if (!std::isspace(static_cast<unsigned char>(*text))) {
            return false;
        }
    }
    return true;
}

ValueObject ColumnValue(sqlite3_stmt *statement, int column) {
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            return ValueObject(static_cast<int64_t>(sqlite3_column_int64(statement, column)));
        case SQLITE_FLOAT:
            return ValueObject(sqlite3_column_double(statement, column));
        case SQLITE_TEXT: {
            const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(statement, column));
            int size = sqlite3_column_bytes(statement, column);
            return ValueObject(std::string(text == nullptr ? "" : text, text == nullptr ? 0 : size));
        }
        case SQLITE_BLOB: {
            const auto *blob = static_cast<const uint8_t *>(sqlite3_column_blob(statement, column));
            int size = sqlite3_column_bytes(statement, column);
            return ValueObject(blob == nullptr ? ValueObject::Blob() : ValueObject::Blob(blob, blob + size));
        }
        default:
            return ValueObject();
    }
}

}  // namespace

std::shared_ptr<SqliteRdbStore> SqliteRdbStore::Open(const RdbStoreConfig &config, int &errCode) {
    const std::string &path = config.GetPath();
    if (path.empty() || path[0] != '/') {
        errCode = E_INVALID_FILE_PATH;
        return nullptr;
    }
    if (config.GetStorageMode() != StorageMode::MODE_DISK || !config.GetEncryptKey().empty()) {
        HiLogPrint(LOG_CORE, LOG_ERROR, RDB_LOG_DOMAIN, RDB_LOG_TAG,
                   "only unencrypted disk stores can be opened: %{public}s", path.c_str());
        errCode = E_NOT_SUPPORT;
        return nullptr;
    }
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        errCode = E_DB_NOT_EXIST;
        return nullptr;
    }
    sqlite3 *db = nullptr;
    int flags = (config.IsReadOnly() ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE) | SQLITE_OPEN_FULLMUTEX;
    int rc = sqlite3_open_v2(path.c_str(), &db, flags, nullptr);
    if (rc != SQLITE_OK) {
        HiLogPrint(LOG_CORE, LOG_ERROR, RDB_LOG_DOMAIN, RDB_LOG_TAG, "open %{public}s failed: %{public}s",
                   path.c_str(), db == nullptr ? sqlite3_errstr(rc) : sqlite3_errmsg(db));
        sqlite3_close(db);
        errCode = E_SQLITE_ERROR;
        return nullptr;
    }
    // Double-quoted text in queries is a text literal whatever SQLite's compiled default; schema
    // statements get no such leniency, and the schema cannot be written through this connection.
    sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DML, 1, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
    sqlite3_db_config(db, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    // A database in WAL mode keeps its log as found: closing does not fold it into the file.
    sqlite3_db_config(db, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    std::shared_ptr<SqliteRdbStore> store(new SqliteRdbStore(db, path));
    int version = 0;
    errCode = store->GetVersion(version);
    if (errCode != E_OK) {
        // Reading the header is what tells a database from any other file.
        return nullptr;
    }
    return store;
}

SqliteRdbStore::~SqliteRdbStore() {
    sqlite3_close_v2(db_);
}

std::shared_ptr<ResultSet> SqliteRdbStore::QuerySql(const std::string &sql,
                                                    const std::vector<std::string> &bindArgs) {
    sqlite3_stmt *statement = nullptr;
    const char *tail = nullptr;
    int rc = sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &statement, &tail);
    if (rc != SQLITE_OK || statement == nullptr) {
        HiLogPrint(LOG_CORE, LOG_ERROR, RDB_LOG_DOMAIN, RDB_LOG_TAG, "query cannot be prepared: %{public}s",
                   sqlite3_errmsg(db_));
        sqlite3_finalize(statement);
        return nullptr;
    }
    std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt *)> guard(statement, sqlite3_finalize);
    if (!sqlite3_stmt_readonly(statement) || !OnlyWhitespace(tail)) {
        HiLogPrint(LOG_CORE, LOG_ERROR, RDB_LOG_DOMAIN, RDB_LOG_TAG,
                   "QuerySql runs one reading statement only; refused: %{public}s", sql.c_str());
        return nullptr;
    }
    if (static_cast<int>(bindArgs.size()) != sqlite3_bind_parameter_count(statement)) {
        HiLogPrint(LOG_CORE, LOG_ERROR, RDB_LOG_DOMAIN, RDB_LOG_TAG,
                   "query has %{public}d parameters but %{public}zu arguments",
                   sqlite3_bind_parameter_count(statement), bindArgs.size());
        return nullptr;
    }
    for (size_t i = 0; i < bindArgs.size(); ++i) {
        sqlite3_bind_text(statement, static_cast<int>(i) + 1, bindArgs[i].data(),
                          static_cast<int>(bindArgs[i].size()), SQLITE_TRANSIENT);
    }
    int columnCount = sqlite3_column_count(statement);
    std::vector<std::string> names;
    for (int column = 0; column < columnCount; ++column) {
        const char *name = sqlite3_column_name(statement, column);
        names.emplace_back(name == nullptr ? "" : name);
    }
    std::vector<std::vector<ValueObject>> rows;
    while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
        std::vector<ValueObject> row;
        row.reserve(static_cast<size_t>(columnCount));
        for (int column = 0; column < columnCount; ++column) {
            row.push_back(ColumnValue(statement, column));
        }
        rows.push_back(std::move(row));
    }
    if (rc != SQLITE_DONE) {
        HiLogPrint(LOG_CORE, LOG_ERROR, RDB_LOG_DOMAIN, RDB_LOG_TAG, "query failed: %{public}s",
                   sqlite3_errmsg(db_));
        return nullptr;
    }
    return std::make_shared<ResultSet>(std::move(names), std::move(rows));
}

int SqliteRdbStore::GetVersion(int &version) {
    sqlite3_stmt *statement = nullptr;
    int rc = sqlite3_prepare_v2(db_, "PRAGMA user_version", -1, &statement, nullptr);
    if (rc == SQLITE_OK) {
        rc = sqlite3_step(statement);
    }
    if (rc != SQLITE_ROW) {
        HiLogPrint(LOG_CORE, LOG_ERROR, RDB_LOG_DOMAIN, RDB_LOG_TAG,
                   "%{public}s is not a usable database: %{public}s", path_.c_str(), sqlite3_errmsg(db_));
        sqlite3_finalize(statement);
        return E_SQLITE_ERROR;
    }
    version = sqlite3_column_int(statement, 0);
    sqlite3_finalize(statement);
    return E_OK;
}

}  // namespace Zarvo::NativeRdb
