#include "account_db.h"

#include "account_restore_vocabulary.h"
#include "rdb_errno.h"
#include "rdb_store_config.h"
#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {
namespace {

const std::string SQL_SELECT_FROM = "SELECT * FROM ";
const std::string SQL_WHERE = " WHERE ";
const std::string SQL_EQUAL = " = ";
const std::string TABLE_ACCOUNTS = "accounts";
const std::string TABLE_METADATA = "android_metadata";
const std::string TABLE_AUTHTOKENS = "authtokens";
const std::string TABLE_EXTRAS = "extras";
const std::string COLUMN_ID = "_id";
const std::string COLUMN_NAME = "name";
const std::string COLUMN_TYPE = "type";
const std::string COLUMN_KEY = "key";
const std::string COLUMN_VALUE = "value";
const std::string COLUMN_AUTHTOKEN = "authtoken";
const std::string COLUMN_ACCOUNTS_ID = "accounts_id";
// Written into the statement with its quotes: a text literal, since no column has that name.
const std::string CVID_ACCOUNT_TYPE = "\"com.corvan.cvid\"";

constexpr NativeRdb::StorageMode STORAGE_MODE = NativeRdb::StorageMode::MODE_DISK;
constexpr NativeRdb::SecurityLevel CONFIG_SECURITY_LEVEL = NativeRdb::SecurityLevel::LAST;
constexpr NativeRdb::SecurityLevel STORE_SECURITY_LEVEL = NativeRdb::SecurityLevel::S1;
constexpr int JOURNAL_SIZE = 1048576;
constexpr int PAGE_SIZE = 4096;
constexpr int DB_VERSION = 1;
constexpr int LOCALE_COLUMN = 0;

std::string SelectWhere(const std::string &table, const std::string &column, const std::string &value) {
    return SQL_SELECT_FROM + table + SQL_WHERE + column + SQL_EQUAL + value;
}

}  // namespace

int RdbCallback::OnCreate(NativeRdb::RdbStore &) {
    return NativeRdb::E_OK;
}

int RdbCallback::OnUpgrade(NativeRdb::RdbStore &, int, int) {
    return NativeRdb::E_OK;
}

AccountDB::~AccountDB() {
    rdb_.reset();
}

bool AccountDB::InitRdb(const std::string &dbPath) {
    if (rdb_ != nullptr) {
        return true;
    }
    NativeRdb::RdbStoreConfig config(dbPath, STORAGE_MODE, false, std::vector<uint8_t>(),
                                     NativeRdb::DB_DEFAULT_JOURNAL_MODE, "", "", CONFIG_SECURITY_LEVEL, true,
                                     false, JOURNAL_SIZE, PAGE_SIZE, NativeRdb::DB_DEFAULT_ENCRYPT_ALGO);
    config.SetSecurityLevel(STORE_SECURITY_LEVEL);
    int errCode = NativeRdb::E_OK;
    RdbCallback callback;
    rdb_ = NativeRdb::RdbHelper::GetRdbStore(config, DB_VERSION, callback, errCode);
    if (rdb_ == nullptr) {
        PLUGIN_LOGE(LINE_ACCOUNT_DATABASE_OPEN_ERROR, errCode);
        return false;
    }
    return true;
}

std::shared_ptr<NativeRdb::ResultSet> AccountDB::QuerySql(
    const std::string &sql, const std::vector<std::string> &selectionArgs) const {
    if (rdb_ == nullptr) {
        PLUGIN_LOGE("QuerySql failed, Pointer rdb_ is nullptr. Maybe it didn't init successfully.");
        return nullptr;
    }
    return rdb_->QuerySql(sql, selectionArgs);
}

bool AccountDB::QueryAccountsFromDB(AccountDataInfo &info, bool &hasData) {
    auto resultSet = QuerySql(SelectWhere(TABLE_ACCOUNTS, COLUMN_TYPE, CVID_ACCOUNT_TYPE), {});
    if (resultSet == nullptr) {
        PLUGIN_LOGE("QueryAccountsFromDB failed, QuerySql resultSet is nullptr.");
        return false;
    }
    int count = 0;
    int ret = resultSet->GetRowCount(count);
    if (ret != NativeRdb::E_OK) {
        PLUGIN_LOGE("QueryAccountsFromDB failed, GetRowCount return %{public}d.", ret);
        resultSet->Close();
        return false;
    }
    if (count == 0) {
        hasData = false;
        PLUGIN_LOGI("QueryAccountsFromDB success, accounts db has no cvid data.");
        resultSet->Close();
        return true;
    }
    if (resultSet->GoToFirstRow() != NativeRdb::E_OK) {
        resultSet->Close();
        return false;
    }
    bool parsed = ParseAccountsInfo(resultSet, info);
    if (parsed) {
        hasData = true;
    }
    resultSet->Close();
    return parsed;
}

bool AccountDB::ParseAccountsInfo(const std::shared_ptr<NativeRdb::ResultSet> &resultSet,
                                  AccountDataInfo &info) {
    NativeRdb::RowEntity row;
    int ret = resultSet->GetRow(row);
    if (ret != NativeRdb::E_OK) {
        PLUGIN_LOGE("ParseAccountsInfo failed, GetRow return %{public}d.", ret);
        return false;
    }
    info.id = static_cast<int>(row.Get(COLUMN_ID));
    info.name = static_cast<std::string>(row.Get(COLUMN_NAME));
    info.type = static_cast<std::string>(row.Get(COLUMN_TYPE));
    return true;
}

bool AccountDB::QueryMetadataFromDB(AccountDataInfo &info) {
    auto resultSet = QuerySql(SQL_SELECT_FROM + TABLE_METADATA, {});
    if (resultSet == nullptr) {
        PLUGIN_LOGE("QueryMetadataFromDB failed, QuerySql resultSet is nullptr.");
        return false;
    }
    bool atFirstRow = resultSet->GoToFirstRow() == NativeRdb::E_OK;
    if (atFirstRow) {
        (void)resultSet->GetString(LOCALE_COLUMN, info.locale);
    }
    resultSet->Close();
    return atFirstRow;
}

bool AccountDB::QueryAuthtokensFromDB(AccountDataInfo &info) {
    auto resultSet = QuerySql(SelectWhere(TABLE_AUTHTOKENS, COLUMN_ACCOUNTS_ID, std::to_string(info.id)), {});
    if (resultSet == nullptr) {
        PLUGIN_LOGE("QueryAuthtokensFromDB failed, QuerySql resultSet is nullptr.");
        return false;
    }
    if (resultSet->GoToFirstRow() != NativeRdb::E_OK) {
        resultSet->Close();
        return false;
    }
    NativeRdb::RowEntity row;
    if (resultSet->GetRow(row) != NativeRdb::E_OK) {
        resultSet->Close();
        return true;
    }
    if (static_cast<std::string>(row.Get(COLUMN_TYPE)) == info.type) {
        info.authtoken = static_cast<std::string>(row.Get(COLUMN_AUTHTOKEN));
    }
    resultSet->Close();
    return true;
}

bool AccountDB::QueryExtrasFromDB(AccountDataInfo &info) {
    auto resultSet = QuerySql(SelectWhere(TABLE_EXTRAS, COLUMN_ACCOUNTS_ID, std::to_string(info.id)), {});
    if (resultSet == nullptr) {
        PLUGIN_LOGE("QueryExtrasFromDB failed, QuerySql resultSet is nullptr.");
        return false;
    }
    int count = 0;
    (void)resultSet->GetRowCount(count);
    bool isAtLastRow = false;
    resultSet->IsAtLastRow(isAtLastRow);
    if (isAtLastRow) {
        resultSet->Close();
        return false;
    }
    while (!isAtLastRow) {
        ExtraInfo extra{};
        if (resultSet->GoToNextRow() != NativeRdb::E_OK || !ParseExtrasInfo(resultSet, extra)) {
            PLUGIN_LOGE("QueryExtrasFromDB failed, parsing extras data return false.");
            resultSet->Close();
            return false;
        }
        info.extras.push_back(extra);
        resultSet->IsAtLastRow(isAtLastRow);
    }
    resultSet->Close();
    return true;
}

bool AccountDB::ParseExtrasInfo(const std::shared_ptr<NativeRdb::ResultSet> &resultSet, ExtraInfo &extra) {
    NativeRdb::RowEntity row;
    int ret = resultSet->GetRow(row);
    if (ret != NativeRdb::E_OK) {
        PLUGIN_LOGE("ParseExtrasInfo failed, GetRow return %{public}d.", ret);
        return false;
    }
    extra.id = static_cast<int>(row.Get(COLUMN_ID));
    extra.key = static_cast<std::string>(row.Get(COLUMN_KEY));
    extra.value = static_cast<std::string>(row.Get(COLUMN_VALUE));
    return true;
}

}  // namespace UpdateEngine
}  // namespace Zarvo
