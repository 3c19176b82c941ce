#ifndef ZARVO_PLATFORM_SQLITE_RDB_STORE_H
#define ZARVO_PLATFORM_SQLITE_RDB_STORE_H

#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

#include "rdb_store.h"
#include "rdb_store_config.h"

namespace Zarvo::NativeRdb {

// A store over one SQLite connection to an existing file. It only reads: statements that would
// write are refused, and opening never changes the file.
class SqliteRdbStore : public RdbStore {
public:
    // Opens config's file; on failure returns null and sets errCode.
    static std::shared_ptr<SqliteRdbStore> Open(const RdbStoreConfig &config, int &errCode);
    ~SqliteRdbStore() override;

    std::shared_ptr<ResultSet> QuerySql(const std::string &sql,
                                        const std::vector<std::string> &bindArgs) override;
    int GetVersion(int &version) override;
    std::string GetPath() override { return path_; }

private:
    SqliteRdbStore(sqlite3 *db, const std::string &path) : db_(db), path_(path) {}

    sqlite3 *db_;
    std::string path_;
};

}  // namespace Zarvo::NativeRdb

#endif  // ZARVO_PLATFORM_SQLITE_RDB_STORE_H
