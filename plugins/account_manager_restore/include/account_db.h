#ifndef ACCOUNT_DB_H
#define ACCOUNT_DB_H

#include <memory>
#include <string>
#include <vector>

#include "account_data_info.h"
#include "rdb_helper.h"
#include "rdb_open_callback.h"
#include "rdb_store.h"
#include "result_set.h"

namespace Zarvo {
namespace UpdateEngine {

// Opening callback that leaves the source database as it is: no table is created, altered or repaired.
class RdbCallback : public NativeRdb::RdbOpenCallback {
public:
    int OnCreate(NativeRdb::RdbStore &rdbStore) override;
    int OnUpgrade(NativeRdb::RdbStore &rdbStore, int currentVersion, int targetVersion) override;
};

// Reads the account of the maker's account service from the Android account database.
class AccountDB {
public:
    AccountDB() = default;
    ~AccountDB();

    bool InitRdb(const std::string &dbPath);
    std::shared_ptr<NativeRdb::ResultSet> QuerySql(const std::string &sql,
                                                   const std::vector<std::string> &selectionArgs) const;
    bool QueryAccountsFromDB(AccountDataInfo &info, bool &hasData);
    bool QueryMetadataFromDB(AccountDataInfo &info);
    bool QueryAuthtokensFromDB(AccountDataInfo &info);
    bool QueryExtrasFromDB(AccountDataInfo &info);
    bool ParseAccountsInfo(const std::shared_ptr<NativeRdb::ResultSet> &resultSet, AccountDataInfo &info);
    bool ParseExtrasInfo(const std::shared_ptr<NativeRdb::ResultSet> &resultSet, ExtraInfo &extra);

private:
    std::shared_ptr<NativeRdb::RdbStore> rdb_;
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // ACCOUNT_DB_H
