#ifndef ACCOUNT_DATA_MANAGER_H
#define ACCOUNT_DATA_MANAGER_H

#include <cstdint>
#include <memory>
#include <string>

#include "account_data_info.h"
#include "account_db.h"
#include "account_restore_vocabulary.h"
#include "bundle_mgr_proxy.h"
#include "file_migrate_types.h"
#include "refbase.h"

namespace Zarvo {
namespace UpdateEngine {

// Work directory of the plug-in with one directory per user id, and the files of a user in it.
inline const std::string PLUGIN_BACK_PATH =
    std::string(RestoreVocabulary::PLUGIN_ROOT_PATH) + RestoreVocabulary::BACK_DIR;
inline const std::string ACCOUNT_DB_NAME = RestoreVocabulary::ACCOUNT_DB_NAME;
inline const std::string ACCOUNT_JSON_NAME = RestoreVocabulary::ACCOUNT_JSON_NAME;
// The account app, which receives the exported account in its backup directory.
inline const std::string ACCOUNT_APP_BUNDLE_NAME = RestoreVocabulary::ACCOUNT_APP_BUNDLE_NAME;
inline const std::string CVID_BACKUP_PATH_PREFIX = RestoreVocabulary::CVID_BACKUP_PATH_PREFIX;
inline const std::string CVID_BACKUP_PATH_SUFFIX = RestoreVocabulary::CVID_BACKUP_PATH_SUFFIX;
constexpr int32_t ADMIN_USER_ID = RestoreVocabulary::ADMIN_LOCAL_ID;

// Carries the account of the maker's account service of the active user from the Android account
// database to the account app's data directory.
class AccountDataManager {
public:
    AccountDataManager();
    ~AccountDataManager();

    bool DoRestoreData();
    bool IsAdminUser();

    bool CheckSourceData();
    bool GetCurrentUserId();
    void GetCurrentDbPath();
    bool CheckDbFileExist();
    bool OpenDbFile();

    bool ParseDataBase(AccountDataInfo &info, bool &hasData);
    bool GetAccountsFromDB(AccountDataInfo &info, bool &hasData);
    bool GetMetadataFromDB(AccountDataInfo &info);
    bool GetAuthtokensFromDB(AccountDataInfo &info);
    bool GetExtrasFromDB(AccountDataInfo &info);

    bool ProcessJsonFile(const AccountDataInfo &info);
    std::string AccountDataToJson(const AccountDataInfo &info);
    bool SaveJsonToFile(const std::string &jsonText);

    bool MoveFileToCvid();
    bool CreateFileParam(FileParam &param);
    void GetCurrentCvidPath(std::string &path);
    sptr<AppExecFwk::BundleMgrProxy> GetBundleMgr();

private:
    int32_t userId_;
    std::string sourceDbPath_;
    std::string tempJsonFilePath_;
    std::shared_ptr<AccountDB> accountDB_;
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // ACCOUNT_DATA_MANAGER_H
