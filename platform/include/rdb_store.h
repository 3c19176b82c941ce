#ifndef ZARVO_RDB_STORE_H
#define ZARVO_RDB_STORE_H

#include <memory>
#include <string>
#include <vector>

#include "result_set.h"

namespace Zarvo {
namespace NativeRdb {

// An open store. It closes when the last holder releases it.
class RdbStore {
public:
    virtual ~RdbStore() = default;
    // Runs a query with its `?` arguments bound as text; null when the statement cannot run.
    virtual std::shared_ptr<ResultSet> QuerySql(const std::string &sql,
                                                const std::vector<std::string> &bindArgs = {}) = 0;
    // The database's version stamp (SQLite's user_version).
    virtual int GetVersion(int &version) = 0;
    virtual std::string GetPath() = 0;
};

}  // namespace NativeRdb
}  // namespace Zarvo

#endif  // ZARVO_RDB_STORE_H
