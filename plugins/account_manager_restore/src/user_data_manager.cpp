#include "user_data_manager.h"

#include <chrono>
#include <map>
#include <thread>

#include "account_file_util.h"
#include "account_restore_vocabulary.h"
#include "account_user_idm_client.h"
#include "binary_xml_converter.h"
#include "file_migrate_manager.h"
#include "os_account_manager.h"
#include "update_log.h"
#include "user_base64_util.h"
#include "user_event_util.h"

namespace Zarvo {
namespace UpdateEngine {
namespace {

namespace Vocabulary = RestoreVocabulary;

const std::string SOURCE_XML_DIR = std::string(Vocabulary::PLUGIN_ROOT_PATH) + Vocabulary::SOURCE_XML_DIR;
const std::string CONVERT_XML_DIR = std::string(Vocabulary::PLUGIN_ROOT_PATH) + Vocabulary::CONVERT_XML_DIR;
const std::string USER_LIST_FILE_NAME = Vocabulary::USER_LIST_FILE_NAME;
const std::string USER_FILE_SUFFIX = Vocabulary::USER_FILE_SUFFIX;
const std::string OS_USER_TYPE_SYSTEM = Vocabulary::USER_TYPE_SYSTEM;
const std::string OS_USER_TYPE_SECONDARY = Vocabulary::USER_TYPE_SECONDARY;
const std::string PHOTO_URI_PREFIX = "data:image/png;base64,";
const std::string PATH_SEPARATOR = "/";

const std::string SOURCE_FILE_ERROR = Vocabulary::SOURCE_FILE_ERROR;
const std::string PARSE_FILE_ERROR = Vocabulary::PARSE_FILE_ERROR;
const std::string CREATE_USER_ERROR = Vocabulary::CREATE_USER_ERROR;
const std::string CONVERT_ERROR_MESSAGE = Vocabulary::CONVERT_ERROR_MESSAGE;
const std::string USER_LIST_PARSE_ERROR_MESSAGE = Vocabulary::USER_LIST_PARSE_ERROR_MESSAGE;
const std::string USER_INFO_PARSE_ERROR_MESSAGE = Vocabulary::USER_INFO_PARSE_ERROR_MESSAGE;

const std::string CONVERT_DIR_OWNER = "migrate_server";
const std::string CONVERT_DIR_PERMISSION = "0700";

using Vocabulary::MAX_ATTEMPTS;
using Vocabulary::RETRY_INTERVAL_MS;

// Android user flags that decide whether a user is carried over.
constexpr uint32_t FLAG_PRIMARY = 0x00000001;
constexpr uint32_t FLAG_ADMIN = 0x00000002;
constexpr uint32_t FLAG_INITIALIZED = 0x00000010;
constexpr uint32_t FLAG_FULL = 0x00000400;
constexpr uint32_t FLAG_VENDOR_PRIVATE = 0x02000000;

// Failure status of the binary XML converter -> code reported in the fault event.
const std::map<int32_t, int32_t> XML_CONVERT_ERROR_CODES = {
    {-1, Vocabulary::CONVERT_READ_ERROR}, {-2, Vocabulary::CONVERT_TRUNCATED},
    {-3, Vocabulary::CONVERT_NOT_XML},    {-4, Vocabulary::CONVERT_BAD_STRING_REFERENCE},
    {-5, Vocabulary::CONVERT_BAD_TEXT},   {-6, Vocabulary::CONVERT_WRITE_ERROR},
    {-7, Vocabulary::CONVERT_TOO_LARGE},
};

void SleepBeforeRetry() {
    std::this_thread::sleep_for(std::chrono::milliseconds(RETRY_INTERVAL_MS));
}

void FillOsAccountInfo(const ZarvoUserDataInfo &zarvoUserInfo, AccountSA::OsAccountInfo &osAccountInfo) {
    osAccountInfo.SetLocalName(zarvoUserInfo.localName);
    osAccountInfo.SetType(static_cast<AccountSA::OsAccountType>(zarvoUserInfo.type));
    osAccountInfo.SetLocalId(zarvoUserInfo.localId);
    osAccountInfo.SetSerialNumber(zarvoUserInfo.serialNumber);
    osAccountInfo.SetCreateTime(zarvoUserInfo.createTime);
    osAccountInfo.SetLastLoginTime(zarvoUserInfo.lastLoginTime);
    if (!zarvoUserInfo.photo.empty()) {
        osAccountInfo.SetPhoto(zarvoUserInfo.photo);
    }
}

}  // namespace

bool UserDataManager::DoRestoreData() {
    PLUGIN_LOGI(LINE_USER_RESTORE_CALLED);
    AccountUserIdmClient idmClient;
    if (!ProcessUserList()) {
        idmClient.ClearRedundancyCredential();
        return false;
    }
    bool result = true;
    for (int32_t userId : userIdList_) {
        if (!RestoreSubUserInfo(userId)) {
            PLUGIN_LOGE(LINE_USER_RESTORE_FAILED, userId);
            result = false;
        }
    }
    idmClient.ClearRedundancyCredential();
    return result;
}

bool UserDataManager::ProcessUserList() {
    std::string convertedPath;
    if (!PreprocessXmlFile(SOURCE_XML_DIR + USER_LIST_FILE_NAME, USER_LIST_FILE_NAME, convertedPath)) {
        return false;
    }
    userIdList_.clear();
    UserXmlParse parser;
    int32_t result = parser.TransformToUserList(convertedPath, userIdList_);
    if (result == 0) {
        return true;
    }
    PLUGIN_LOGE(LINE_USER_LIST_NOT_PARSED, USER_LIST_FILE_NAME.c_str());
    UserEventUtil::SendUserRestoreErrorEvent(result, PARSE_FILE_ERROR,
                                             USER_LIST_FILE_NAME + USER_LIST_PARSE_ERROR_MESSAGE);
    return false;
}

bool UserDataManager::RestoreSubUserInfo(int32_t userId) {
    PLUGIN_LOGI(LINE_USER_CALLED);
    const std::string fileName = std::to_string(userId) + USER_FILE_SUFFIX;
    std::string convertedPath;
    if (!PreprocessXmlFile(SOURCE_XML_DIR + fileName, fileName, convertedPath)) {
        PLUGIN_LOGE(LINE_USER_FILE_NOT_PREPARED, fileName.c_str());
        return false;
    }
    OSUserDataInfo osUserInfo{};
    UserXmlParse parser;
    int32_t result = parser.TransformToUserInfo(convertedPath, osUserInfo);
    if (result != 0) {
        PLUGIN_LOGE(LINE_USER_FILE_NOT_PARSED, fileName.c_str());
        UserEventUtil::SendUserRestoreErrorEvent(result, PARSE_FILE_ERROR,
                                                 fileName + USER_INFO_PARSE_ERROR_MESSAGE);
        return false;
    }
    if (!IsUserNeedMigrate(osUserInfo.type, static_cast<uint32_t>(osUserInfo.flags))) {
        PLUGIN_LOGI(LINE_USER_NOT_CARRIED, userId);
        return true;
    }
    ZarvoUserDataInfo zarvoUserInfo{};
    ConvertToZarvoUserInfo(osUserInfo, zarvoUserInfo);
    if (zarvoUserInfo.type == AccountSA::OsAccountType::ADMIN) {
        return UpdateZarvoAdminAcount(zarvoUserInfo);
    }
    return CreateZarvoAccount(zarvoUserInfo);
}

bool UserDataManager::IsUserNeedMigrate(const std::string &type, uint32_t flags) {
    if (type == OS_USER_TYPE_SECONDARY) {
        return (flags & ~FLAG_INITIALIZED) == FLAG_FULL || (flags & FLAG_VENDOR_PRIVATE) != 0;
    }
    if (type == OS_USER_TYPE_SYSTEM) {
        return (flags & (FLAG_PRIMARY | FLAG_ADMIN)) == (FLAG_PRIMARY | FLAG_ADMIN);
    }
    return false;
}

AccountSA::OsAccountType UserDataManager::GetZarvoAccountType(const OSUserDataInfo &osUserInfo) {
    if (osUserInfo.type == OS_USER_TYPE_SYSTEM) {
        return AccountSA::OsAccountType::ADMIN;
    }
    if ((static_cast<uint32_t>(osUserInfo.flags) & FLAG_VENDOR_PRIVATE) != 0) {
        return AccountSA::OsAccountType::PRIVATE;
    }
    return AccountSA::OsAccountType::NORMAL;
}

void UserDataManager::ConvertToZarvoUserInfo(const OSUserDataInfo &osUserInfo,
                                             ZarvoUserDataInfo &zarvoUserInfo) {
    zarvoUserInfo.localId = Vocabulary::LocalIdOf(osUserInfo.id);
    zarvoUserInfo.localName = osUserInfo.name;
    zarvoUserInfo.createTime = osUserInfo.created;
    zarvoUserInfo.serialNumber = static_cast<int64_t>(zarvoUserInfo.localId);
    zarvoUserInfo.lastLoginTime = osUserInfo.lastLoggedIn;
    zarvoUserInfo.type = GetZarvoAccountType(osUserInfo);
    if (!osUserInfo.icon.empty()) {
        zarvoUserInfo.photo = GetUserIcon(osUserInfo.icon, osUserInfo.id);
    }
}

bool UserDataManager::PreprocessXmlFile(const std::string &fullFileName, const std::string &fileName,
                                        std::string &convertedPath) {
    if (fullFileName.empty() || fileName.empty()) {
        PLUGIN_LOGE("PreprocessXmlFile fullFileName or fileName is empty.");
        return false;
    }
    fileName_ = fileName;
    if (!AccountFileUtil::CheckPathExsit(CONVERT_XML_DIR) && !CreateConvertXmlPath(CONVERT_XML_DIR)) {
        return false;
    }
    convertedPath = CONVERT_XML_DIR + fileName;
    return ConvertFromBinaryXml(fullFileName, convertedPath);
}

bool UserDataManager::CreateConvertXmlPath(const std::string &pathName) {
    if (pathName.empty()) {
        PLUGIN_LOGE("CreateConvertXmlPath pathName is empty.");
        return false;
    }
    FileParam param{};
    param.recurseOpt = RECURSE_ALL;
    param.uid = CONVERT_DIR_OWNER;
    param.gid = CONVERT_DIR_OWNER;
    param.perm = CONVERT_DIR_PERMISSION;
    param.dstFile = pathName;
    for (int32_t attempt = 1;; ++attempt) {
        int32_t result = FileMigrateManager().MkDir(param);
        if (result == 0) {
            PLUGIN_LOGI(LINE_CONVERT_DIR_MADE, pathName.c_str());
            return true;
        }
        if (attempt == MAX_ATTEMPTS) {
            break;
        }
        PLUGIN_LOGI(LINE_CONVERT_DIR_RETRY, result, RETRY_INTERVAL_MS);
        SleepBeforeRetry();
    }
    PLUGIN_LOGE(LINE_CONVERT_DIR_FAILED, pathName.c_str());
    return false;
}

bool UserDataManager::ConvertFromBinaryXml(const std::string &sourcePath, const std::string &destPath) {
    BinaryXmlConverter converter;
    int32_t status = converter.Convert(sourcePath, destPath);
    if (status == 0) {
        return true;
    }
    auto it = XML_CONVERT_ERROR_CODES.find(status);
    int32_t errCode = it == XML_CONVERT_ERROR_CODES.end() ? CONVERT_UNKNOWN_ERROR : it->second;
    UserEventUtil::SendUserRestoreErrorEvent(errCode, SOURCE_FILE_ERROR, fileName_ + CONVERT_ERROR_MESSAGE);
    PLUGIN_LOGE(LINE_USER_FILE_NOT_CONVERTED, errCode);
    return false;
}

bool UserDataManager::CreateZarvoAccount(const ZarvoUserDataInfo &zarvoUserInfo) {
    AccountSA::OsAccountInfo osAccountInfo;
    if (AccountSA::OsAccountManager::QueryOsAccountById(zarvoUserInfo.localId, osAccountInfo) == 0) {
        UserEventUtil::SendUserRestoreErrorEvent(
            0, CREATE_USER_ERROR,
            fileName_ + " create user " + std::to_string(zarvoUserInfo.localId) + " is already exists.");
        PLUGIN_LOGI(LINE_USER_EXISTED, zarvoUserInfo.localId);
        return true;
    }
    FillOsAccountInfo(zarvoUserInfo, osAccountInfo);
    int32_t result = AccountSA::OsAccountManager::CreateOsAccountWithFullInfo(osAccountInfo);
    for (int32_t attempt = 1; result != 0 && attempt < MAX_ATTEMPTS; ++attempt) {
        PLUGIN_LOGI(LINE_USER_CREATE_RETRY, result, RETRY_INTERVAL_MS);
        SleepBeforeRetry();
        result = AccountSA::OsAccountManager::CreateOsAccountWithFullInfo(osAccountInfo);
    }
    if (result != 0) {
        PLUGIN_LOGE(LINE_USER_CREATE_FAILED, zarvoUserInfo.localId);
        UserEventUtil::SendUserRestoreErrorEvent(result, CREATE_USER_ERROR,
                                                 fileName_ + Vocabulary::CREATE_FAILED_MESSAGE);
        return false;
    }
    PLUGIN_LOGI(LINE_USER_CREATED, zarvoUserInfo.localId);
    return true;
}

bool UserDataManager::UpdateZarvoAdminAcount(const ZarvoUserDataInfo &zarvoUserInfo) {
    AccountSA::OsAccountInfo osAccountInfo;
    FillOsAccountInfo(zarvoUserInfo, osAccountInfo);
    int32_t result = AccountSA::OsAccountManager::UpdateOsAccountWithFullInfo(osAccountInfo);
    for (int32_t attempt = 1; result != 0 && attempt < MAX_ATTEMPTS; ++attempt) {
        PLUGIN_LOGI(LINE_ADMIN_UPDATE_RETRY, result, RETRY_INTERVAL_MS);
        SleepBeforeRetry();
        result = AccountSA::OsAccountManager::UpdateOsAccountWithFullInfo(osAccountInfo);
    }
    if (result != 0) {
        PLUGIN_LOGE(LINE_ADMIN_UPDATE_FAILED, zarvoUserInfo.localId);
        UserEventUtil::SendUserRestoreErrorEvent(result, CREATE_USER_ERROR,
                                                 fileName_ + Vocabulary::UPDATE_FAILED_MESSAGE);
        return false;
    }
    PLUGIN_LOGI(LINE_ADMIN_UPDATED, zarvoUserInfo.localId);
    return true;
}

std::string UserDataManager::GetUserIcon(const std::string &iconPath, int32_t userId) {
    const std::string iconFile =
        SOURCE_XML_DIR + std::to_string(userId) + PATH_SEPARATOR + AccountFileUtil::GetFileName(iconPath);
    std::string encoded = UserBase64Util::Base64Encode(AccountFileUtil::GetFileContent(iconFile));
    if (encoded.empty()) {
        return "";
    }
    return PHOTO_URI_PREFIX + encoded;
}

}  // namespace UpdateEngine
}  // namespace Zarvo
