#include "account_data_manager.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <thread>

#include "account_file_util.h"
#include "account_restore_vocabulary.h"
#include "file_migrate_manager.h"
#include "iremote_broker.h"
#include "iservice_registry.h"
#include "os_account_manager.h"
#include "system_ability_definition.h"
#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {
namespace {

constexpr int RETRY_TIMES = 3;
constexpr int RETRY_INTERVAL_MS = 10;
constexpr int32_t BUNDLE_INFO_FLAGS = 1;
const std::string CVID_FILE_PERM = "0700";
const std::string PATH_SEPARATOR = "/";

void PauseBeforeRetry() {
    std::this_thread::sleep_for(std::chrono::milliseconds(RETRY_INTERVAL_MS));
}

}  // namespace

AccountDataManager::AccountDataManager() : userId_(-1), accountDB_(std::make_shared<AccountDB>()) {}

AccountDataManager::~AccountDataManager() {
    accountDB_.reset();
}

bool AccountDataManager::DoRestoreData() {
    if (!CheckSourceData()) {
        PLUGIN_LOGE(LINE_ACCOUNT_SOURCE_CHECK_FAILED);
        return false;
    }
    AccountDataInfo info{};
    bool hasData = true;
    if (!ParseDataBase(info, hasData)) {
        PLUGIN_LOGE(LINE_ACCOUNT_DATABASE_NOT_READ);
        return false;
    }
    if (!hasData) {
        PLUGIN_LOGI(LINE_ACCOUNT_NOTHING_TO_CARRY);
        return true;
    }
    if (!ProcessJsonFile(info)) {
        PLUGIN_LOGE(LINE_ACCOUNT_EXPORT_FAILED);
        return false;
    }
    return true;
}

bool AccountDataManager::IsAdminUser() {
    return userId_ == ADMIN_USER_ID;
}

bool AccountDataManager::CheckSourceData() {
    if (!GetCurrentUserId()) {
        return false;
    }
    GetCurrentDbPath();
    return CheckDbFileExist() && OpenDbFile();
}

bool AccountDataManager::GetCurrentUserId() {
    std::vector<AccountSA::OsAccountInfo> accounts;
    AccountSA::ErrCode errCode = AccountSA::OsAccountManager::QueryAllCreatedOsAccounts(accounts);
    if (errCode != AccountSA::ERR_OK || accounts.empty()) {
        PLUGIN_LOGE(LINE_ACTIVE_USER_QUERY_FAILED, errCode);
        return false;
    }
    for (const auto &account : accounts) {
        if (account.GetIsActived()) {
            userId_ = account.GetLocalId();
            return true;
        }
    }
    return false;
}

void AccountDataManager::GetCurrentDbPath() {
    sourceDbPath_ = PLUGIN_BACK_PATH + std::to_string(userId_) + PATH_SEPARATOR + ACCOUNT_DB_NAME;
}

bool AccountDataManager::CheckDbFileExist() {
    if (sourceDbPath_.empty()) {
        PLUGIN_LOGE("CheckDbFileExist sourceDbPath is empty.");
        return false;
    }
    if (access(sourceDbPath_.c_str(), F_OK) == 0) {
        return true;
    }
    // Taken before the log call, whose arguments may allocate and so touch errno.
    const int accessErrno = errno;
    PLUGIN_LOGE(LINE_ACCOUNT_DATABASE_MISSING, accessErrno, sourceDbPath_.c_str());
    return false;
}

bool AccountDataManager::OpenDbFile() {
    if (accountDB_ == nullptr) {
        PLUGIN_LOGE("OpenDbFile accountDB_ is nullptr.");
        return false;
    }
    if (accountDB_->InitRdb(sourceDbPath_)) {
        return true;
    }
    for (int retry = 0; retry < RETRY_TIMES; ++retry) {
        PLUGIN_LOGI("OpenDbFile fail, will retry after %{public}d milliseconds", RETRY_INTERVAL_MS);
        PauseBeforeRetry();
        if (accountDB_->InitRdb(sourceDbPath_)) {
            return true;
        }
    }
    PLUGIN_LOGE(LINE_ACCOUNT_DATABASE_OPEN_FAILED);
    return false;
}

bool AccountDataManager::ParseDataBase(AccountDataInfo &info, bool &hasData) {
    if (!GetAccountsFromDB(info, hasData)) {
        return false;
    }
    if (!hasData) {
        return true;
    }
    // The locale is the only part of the account that may be missing.
    (void)GetMetadataFromDB(info);
    if (!GetAuthtokensFromDB(info)) {
        PLUGIN_LOGE("ParseDataBase fail, get authtokens from db failed.");
        return false;
    }
    return GetExtrasFromDB(info);
}

bool AccountDataManager::GetAccountsFromDB(AccountDataInfo &info, bool &hasData) {
    if (accountDB_ == nullptr) {
        PLUGIN_LOGE("GetAccountsFromDB accountDB_ is nullptr.");
        return false;
    }
    if (!accountDB_->QueryAccountsFromDB(info, hasData)) {
        PLUGIN_LOGE(LINE_ACCOUNT_QUERY_FAILED);
        return false;
    }
    return true;
}

bool AccountDataManager::GetMetadataFromDB(AccountDataInfo &info) {
    if (accountDB_ == nullptr) {
        PLUGIN_LOGE("GetMetadataFromDB failed, accountDB_ is nullptr.");
        return false;
    }
    if (!accountDB_->QueryMetadataFromDB(info) || info.locale.empty()) {
        PLUGIN_LOGE("GetMetadataFromDB failed, query metadata table return false.");
        return false;
    }
    return true;
}

bool AccountDataManager::GetAuthtokensFromDB(AccountDataInfo &info) {
    if (accountDB_ == nullptr) {
        PLUGIN_LOGE("GetAuthtokensFromDB accountDB_ is nullptr.");
        return false;
    }
    if (!accountDB_->QueryAuthtokensFromDB(info) || info.authtoken.empty()) {
        PLUGIN_LOGE(LINE_ACCOUNT_TOKEN_MISSING);
        return false;
    }
    return true;
}

bool AccountDataManager::GetExtrasFromDB(AccountDataInfo &info) {
    if (accountDB_ == nullptr) {
        PLUGIN_LOGE("GetExtrasFromDB accountDB_ is nullptr.");
        return false;
    }
    if (!accountDB_->QueryExtrasFromDB(info) || info.extras.empty()) {
        PLUGIN_LOGE(LINE_ACCOUNT_EXTRAS_MISSING);
        return false;
    }
    return true;
}

bool AccountDataManager::ProcessJsonFile(const AccountDataInfo &info) {
    std::string jsonText = AccountDataToJson(info);
    if (jsonText.empty()) {
        PLUGIN_LOGE("ProcessJsonFile fail, Json string is empty.");
        return false;
    }
    if (!SaveJsonToFile(jsonText)) {
        PLUGIN_LOGE("ProcessJsonFile fail, sava json to file failed.");
        return false;
    }
    return MoveFileToCvid();
}

std::string AccountDataManager::AccountDataToJson(const AccountDataInfo &info) {
    nlohmann::json json = info;
    try {
        return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::strict);
    } catch (const nlohmann::json::exception &e) {
        // Only text that is not valid UTF-8 gets here; the record cannot be exported faithfully.
        PLUGIN_LOGE(LINE_ACCOUNT_NOT_UTF8, e.what());
        return "";
    }
}

bool AccountDataManager::SaveJsonToFile(const std::string &jsonText) {
    tempJsonFilePath_ = PLUGIN_BACK_PATH + std::to_string(userId_) + PATH_SEPARATOR + ACCOUNT_JSON_NAME;
    FILE *file = std::fopen(tempJsonFilePath_.c_str(), "w");
    if (file == nullptr) {
        PLUGIN_LOGE(LINE_ACCOUNT_EXPORT_NOT_WRITTEN, tempJsonFilePath_.c_str());
        return false;
    }
    (void)std::fwrite(jsonText.data(), 1, jsonText.size(), file);
    (void)std::fflush(file);
    (void)std::fclose(file);
    PLUGIN_LOGI("SaveJsonToFile success, file = %{public}s", tempJsonFilePath_.c_str());
    return true;
}

bool AccountDataManager::MoveFileToCvid() {
    if (tempJsonFilePath_.empty()) {
        PLUGIN_LOGE("MoveFileToCvid failed, tempJsonFilePath is empty.");
        return false;
    }
    FileParam param{};
    if (!CreateFileParam(param)) {
        return false;
    }
    std::string dir;
    for (int attempt = 0; attempt <= RETRY_TIMES; ++attempt) {
        GetCurrentCvidPath(dir);
        param.dstFile = dir;
        int32_t mkDirResult = 0;
        if (!AccountFileUtil::CheckPathExsit(dir)) {
            mkDirResult = FileMigrateManager().MkDir(param);
        }
        param.dstFile = dir + ACCOUNT_JSON_NAME;
        int32_t copyResult = FileMigrateManager().CopyAllFile(tempJsonFilePath_, param);
        if (mkDirResult == 0 && copyResult == 0) {
            PLUGIN_LOGI(LINE_ACCOUNT_HANDED_OVER, tempJsonFilePath_.c_str(), dir.c_str());
            return true;
        }
        if (attempt == RETRY_TIMES) {
            break;
        }
        PLUGIN_LOGI(LINE_ACCOUNT_HAND_OVER_RETRY, mkDirResult, copyResult, RETRY_INTERVAL_MS);
        PauseBeforeRetry();
    }
    PLUGIN_LOGE(LINE_ACCOUNT_HAND_OVER_FAILED, tempJsonFilePath_.c_str(), dir.c_str());
    return false;
}

bool AccountDataManager::CreateFileParam(FileParam &param) {
    sptr<AppExecFwk::BundleMgrProxy> bundleMgr = GetBundleMgr();
    if (bundleMgr == nullptr) {
        PLUGIN_LOGE(LINE_BUNDLE_MANAGER_UNREACHABLE);
        return false;
    }
    AppExecFwk::BundleInfo bundleInfo;
    int32_t errCode =
        bundleMgr->GetBundleInfo(ACCOUNT_APP_BUNDLE_NAME, BUNDLE_INFO_FLAGS, bundleInfo, userId_);
    if (errCode != 0) {
        PLUGIN_LOGE(LINE_BUNDLE_INFO_FAILED, ACCOUNT_APP_BUNDLE_NAME.c_str(), errCode);
        return false;
    }
    param.uid = std::to_string(bundleInfo.uid);
    param.gid = std::to_string(bundleInfo.gid);
    param.perm = CVID_FILE_PERM;
    param.recurseOpt = RecurseOpt::RECURSE_ALL;
    return true;
}

void AccountDataManager::GetCurrentCvidPath(std::string &path) {
    path = CVID_BACKUP_PATH_PREFIX + std::to_string(userId_) + CVID_BACKUP_PATH_SUFFIX;
}

sptr<AppExecFwk::BundleMgrProxy> AccountDataManager::GetBundleMgr() {
    sptr<ISystemAbilityManager> systemAbilityManager =
        SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (systemAbilityManager == nullptr) {
        PLUGIN_LOGE("GetBundleMgr GetSystemAbilityManager is null");
        return nullptr;
    }
    sptr<IRemoteObject> remoteObject =
        systemAbilityManager->GetSystemAbility(BUNDLE_MGR_SERVICE_SYS_ABILITY_ID);
    if (remoteObject == nullptr) {
        PLUGIN_LOGE("GetBundleMgr GetSystemAbility is null");
        return nullptr;
    }
    return iface_cast<AppExecFwk::BundleMgrProxy>(remoteObject);
}

}  // namespace UpdateEngine
}  // namespace Zarvo
