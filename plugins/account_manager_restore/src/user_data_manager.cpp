#include "user_data_manager.h"

#include <chrono>
#include <map>
#include <thread>

#include "account_file_util.h"
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

const std::string SOURCE_XML_DIR =
    "/data/service/el1/public/update/migrate_server/plugins/200/back/sourceXml/";
const std::string CONVERT_XML_DIR =
    "/data/service/el1/public/update/migrate_server/plugins/200/back/convert/";
const std::string USER_LIST_FILE_NAME = "userlist.xml";
const std::string USER_FILE_SUFFIX = ".xml";
const std::string OS_USER_TYPE_SYSTEM = "android.os.usertype.full.SYSTEM";
const std::string OS_USER_TYPE_SECONDARY = "android.os.usertype.full.SECONDARY";
const std::string PHOTO_URI_PREFIX = "data:image/png;base64,";
const std::string PATH_SEPARATOR = "/";

const std::string SOURCE_FILE_ERROR = "SOURCE_FILE_ERROR";
const std::string PARSE_FILE_ERROR = "PARSE_FILE_ERROR";
const std::string CREATE_USER_ERROR = "CREATE_USER_ERROR";
const std::string CONVERT_ERROR_MESSAGE = "convert error";
const std::string USER_LIST_PARSE_ERROR_MESSAGE = "parse to user Id list error.";
const std::string USER_INFO_PARSE_ERROR_MESSAGE = "parse to os user info error.";

const std::string CONVERT_DIR_OWNER = "migrate_server";
const std::string CONVERT_DIR_PERMISSION = "0700";

constexpr int32_t ADMIN_LOCAL_ID = 100;
constexpr int32_t SOURCE_ADMIN_ID = 0;
constexpr int32_t LOCAL_ID_OFFSET = 91;
constexpr int32_t MAX_ATTEMPTS = 4;
constexpr int32_t RETRY_INTERVAL_MS = 10;

// Android user flags that decide whether a user is carried over.
constexpr uint32_t FLAG_PRIMARY = 0x00000001;
constexpr uint32_t FLAG_ADMIN = 0x00000002;
constexpr uint32_t FLAG_INITIALIZED = 0x00000010;
constexpr uint32_t FLAG_FULL = 0x00000400;
constexpr uint32_t FLAG_VENDOR_PRIVATE = 0x02000000;

// Failure status of the binary XML converter -> code reported in the fault event.
const std::map<int32_t, int32_t> XML_CONVERT_ERROR_CODES = {
    {-1, 0x200002}, {-2, 0x200003}, {-3, 0x200004}, {-4, 0x200005},
    {-5, 0x200006}, {-6, 0x200007}, {-7, 0x200008},
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
    PLUGIN_LOGI("DoRestoreData called.");
    AccountUserIdmClient idmClient;
    if (!ProcessUserList()) {
        idmClient.ClearRedundancyCredential();
        return false;
    }
    bool result = true;
    for (int32_t userId : userIdList_) {
        if (!RestoreSubUserInfo(userId)) {
            PLUGIN_LOGE("DoRestoreData failed, current userId : %{public}d", userId);
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
    PLUGIN_LOGE("ProcessUserList failed, TransformToUserList xmlfile:%{public}s.",
                USER_LIST_FILE_NAME.c_str());
    UserEventUtil::SendUserRestoreErrorEvent(result, PARSE_FILE_ERROR,
                                             USER_LIST_FILE_NAME + USER_LIST_PARSE_ERROR_MESSAGE);
    return false;
}

bool UserDataManager::RestoreSubUserInfo(int32_t userId) {
    PLUGIN_LOGI("RestoreSubUserInfo called.");
    const std::string fileName = std::to_string(userId) + USER_FILE_SUFFIX;
    std::string convertedPath;
    if (!PreprocessXmlFile(SOURCE_XML_DIR + fileName, fileName, convertedPath)) {
        PLUGIN_LOGE("RestoreSubUserInfo failed, Preprocess fileName:%{public}s return false.",
                    fileName.c_str());
        return false;
    }
    OSUserDataInfo osUserInfo{};
    UserXmlParse parser;
    int32_t result = parser.TransformToUserInfo(convertedPath, osUserInfo);
    if (result != 0) {
        PLUGIN_LOGE("RestoreSubUserInfo failed, TransformToUserInfo fileName:%{public}s.", fileName.c_str());
        UserEventUtil::SendUserRestoreErrorEvent(result, PARSE_FILE_ERROR,
                                                 fileName + USER_INFO_PARSE_ERROR_MESSAGE);
        return false;
    }
    if (!IsUserNeedMigrate(osUserInfo.type, static_cast<uint32_t>(osUserInfo.flags))) {
        PLUGIN_LOGI("RestoreSubUserInfo current user (%{public}d) not need restore.", userId);
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
    // Unsigned addition: an id near the top of the range wraps to a negative local id, which the
    // account manager refuses, instead of overflowing.
    zarvoUserInfo.localId = osUserInfo.id == SOURCE_ADMIN_ID
                                ? ADMIN_LOCAL_ID
                                : static_cast<int32_t>(static_cast<uint32_t>(osUserInfo.id) +
                                                       static_cast<uint32_t>(LOCAL_ID_OFFSET));
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
            PLUGIN_LOGI("CreateConvertXmlPath success, pathName : %{public}s", pathName.c_str());
            return true;
        }
        if (attempt == MAX_ATTEMPTS) {
            break;
        }
        PLUGIN_LOGI(
            "CreateConvertXmlPath failed, MkDir result %{public}d, will retry after %{public}d milliseconds",
            result, RETRY_INTERVAL_MS);
        SleepBeforeRetry();
    }
    PLUGIN_LOGE("CreateConvertXmlPath failed, after retry 3 times, pathName : %{public}s", pathName.c_str());
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
    PLUGIN_LOGE("ConvertFromBinaryXml failed, errCode is %{public}d.", errCode);
    return false;
}

bool UserDataManager::CreateZarvoAccount(const ZarvoUserDataInfo &zarvoUserInfo) {
    AccountSA::OsAccountInfo osAccountInfo;
    if (AccountSA::OsAccountManager::QueryOsAccountById(zarvoUserInfo.localId, osAccountInfo) == 0) {
        UserEventUtil::SendUserRestoreErrorEvent(
            0, CREATE_USER_ERROR,
            fileName_ + " create user " + std::to_string(zarvoUserInfo.localId) + " is already exists.");
        PLUGIN_LOGI("CreateZarvoAccount failed, current user id : %{public}d already exists.",
                    zarvoUserInfo.localId);
        return true;
    }
    FillOsAccountInfo(zarvoUserInfo, osAccountInfo);
    int32_t result = AccountSA::OsAccountManager::CreateOsAccountWithFullInfo(osAccountInfo);
    for (int32_t attempt = 1; result != 0 && attempt < MAX_ATTEMPTS; ++attempt) {
        PLUGIN_LOGI("CreateZarvoAccount failed, result %{public}d, will retry after %{public}d milliseconds",
                    result, RETRY_INTERVAL_MS);
        SleepBeforeRetry();
        result = AccountSA::OsAccountManager::CreateOsAccountWithFullInfo(osAccountInfo);
    }
    if (result != 0) {
        PLUGIN_LOGE("CreateZarvoAccount failed, after retry 3 times, zarvo user id : %{public}d",
                    zarvoUserInfo.localId);
        UserEventUtil::SendUserRestoreErrorEvent(result, CREATE_USER_ERROR,
                                                 fileName_ + " create os account failed.");
        return false;
    }
    PLUGIN_LOGI("CreateZarvoAccount success, zarvo user id : %{public}d", zarvoUserInfo.localId);
    return true;
}

bool UserDataManager::UpdateZarvoAdminAcount(const ZarvoUserDataInfo &zarvoUserInfo) {
    AccountSA::OsAccountInfo osAccountInfo;
    FillOsAccountInfo(zarvoUserInfo, osAccountInfo);
    int32_t result = AccountSA::OsAccountManager::UpdateOsAccountWithFullInfo(osAccountInfo);
    for (int32_t attempt = 1; result != 0 && attempt < MAX_ATTEMPTS; ++attempt) {
        PLUGIN_LOGI(
            "UpdateZarvoAdminAcount failed, result %{public}d, will retry after %{public}d milliseconds",
            result, RETRY_INTERVAL_MS);
        SleepBeforeRetry();
        result = AccountSA::OsAccountManager::UpdateOsAccountWithFullInfo(osAccountInfo);
    }
    if (result != 0) {
        PLUGIN_LOGE("UpdateZarvoAdminAcount failed, after retry 3 times, zarvo user id : %{public}d",
                    zarvoUserInfo.localId);
        UserEventUtil::SendUserRestoreErrorEvent(result, CREATE_USER_ERROR,
                                                 fileName_ + " update os admin account failed.");
        return false;
    }
    PLUGIN_LOGI("UpdateZarvoAdminAcount success, zarvo user id : %{public}d", zarvoUserInfo.localId);
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
