#ifndef ACCOUNT_RESTORE_VOCABULARY_H
#define ACCOUNT_RESTORE_VOCABULARY_H

// What the account restore plug-in says to the world, declared once: the work tree it reads, the
// ids it maps, the fault events it sends and the log lines others read. The plug-in writes through
// these declarations; a host tool that reads the plug-in reads through them, so the two cannot
// drift apart.

#include <cstdint>

namespace Zarvo::RestoreVocabulary {

// The work tree: the migrate server lays the source files below it, the plug-in removes it.
inline constexpr char PLUGIN_ROOT_PATH[] = "/data/service/el1/public/update/migrate_server/plugins/200/";
inline constexpr char BACK_DIR[] = "back/";                  // the account database, per user id
inline constexpr char SOURCE_XML_DIR[] = "back/sourceXml/";  // the source users' files
inline constexpr char CONVERT_XML_DIR[] = "back/convert/";   // their text XML copies
inline constexpr char USER_LIST_FILE_NAME[] = "userlist.xml";
inline constexpr char USER_FILE_SUFFIX[] = ".xml";
inline constexpr char ACCOUNT_DB_NAME[] = "accounts_ce.db";
inline constexpr char ACCOUNT_JSON_NAME[] = "account_manager_db.json";

// The account app, which receives the exported account in its backup directory.
inline constexpr char ACCOUNT_APP_BUNDLE_NAME[] = "com.corvan.zmx.corvanid";
inline constexpr char CVID_BACKUP_PATH_PREFIX[] = "/data/app/el2/";
inline constexpr char CVID_BACKUP_PATH_SUFFIX[] =
    "/base/com.corvan.zmx.corvanid/haps/zmxcore_account_backup/files/ath/ce/";

// Source user ids and OS account ids: the owner becomes the administrator account, every other
// user the OS account LOCAL_ID_OFFSET above its source id.
constexpr int32_t ADMIN_LOCAL_ID = 100;
constexpr int32_t SOURCE_ADMIN_ID = 0;
constexpr int32_t LOCAL_ID_OFFSET = 91;
// Tries of each step that retries: the OS account calls, the conversion folder, the database
// open and the hand-over of the export file.
constexpr int32_t MAX_ATTEMPTS = 4;
constexpr int32_t RETRY_INTERVAL_MS = 10;

inline constexpr char USER_TYPE_SYSTEM[] = "android.os.usertype.full.SYSTEM";
inline constexpr char USER_TYPE_SECONDARY[] = "android.os.usertype.full.SECONDARY";

// Unsigned addition: an id near the top of the range wraps to a negative local id, which the
// account manager refuses, instead of overflowing.
constexpr int32_t LocalIdOf(int32_t sourceId) {
    return sourceId == SOURCE_ADMIN_ID ? ADMIN_LOCAL_ID
                                       : static_cast<int32_t>(static_cast<uint32_t>(sourceId) +
                                                              static_cast<uint32_t>(LOCAL_ID_OFFSET));
}

// The fault event of the user restore and its parameters.
inline constexpr char EVENT_DOMAIN[] = "MIGRATESERVER";
inline constexpr char EVENT_NAME[] = "RESTORE_SO_FAIL";
inline constexpr char EVENT_TASK_ID[] = "200";
inline constexpr char PARAM_TASK_ID[] = "TASK_ID";
inline constexpr char PARAM_ERROR_TYPE[] = "ERROR_TYPE";
inline constexpr char PARAM_ERROR_CODE[] = "ERROR_CODE";
inline constexpr char PARAM_ERROR_MESSAGE[] = "ERROR_MESSAGE";
inline constexpr char SOURCE_FILE_ERROR[] = "SOURCE_FILE_ERROR";
inline constexpr char PARSE_FILE_ERROR[] = "PARSE_FILE_ERROR";
inline constexpr char CREATE_USER_ERROR[] = "CREATE_USER_ERROR";
// What follows the file name in an event's message.
inline constexpr char CONVERT_ERROR_MESSAGE[] = "convert error";
inline constexpr char USER_LIST_PARSE_ERROR_MESSAGE[] = "parse to user Id list error.";
inline constexpr char USER_INFO_PARSE_ERROR_MESSAGE[] = "parse to os user info error.";
inline constexpr char CREATE_FAILED_MESSAGE[] = " create os account failed.";
inline constexpr char UPDATE_FAILED_MESSAGE[] = " update os admin account failed.";

// Event codes. A source file that could not be converted to text XML:
constexpr int32_t CONVERT_UNKNOWN_ERROR = 0x200001;
constexpr int32_t CONVERT_READ_ERROR = 0x200002;
constexpr int32_t CONVERT_TRUNCATED = 0x200003;
constexpr int32_t CONVERT_NOT_XML = 0x200004;
constexpr int32_t CONVERT_BAD_STRING_REFERENCE = 0x200005;
constexpr int32_t CONVERT_BAD_TEXT = 0x200006;
constexpr int32_t CONVERT_WRITE_ERROR = 0x200007;
constexpr int32_t CONVERT_TOO_LARGE = 0x200008;
// A converted file that could not be parsed:
constexpr int32_t XML_FILE_NOT_EXIST = 0x200011;
constexpr int32_t XML_FILE_READ_ERROR = 0x200012;
constexpr int32_t USER_LIST_NODE_ERROR = 0x200013;
constexpr int32_t USER_NODE_ERROR = 0x200014;
constexpr int32_t USER_NAME_MISSING = 0x200015;
constexpr int32_t USER_ID_MISSING = 0x200016;
constexpr int32_t USER_FLAGS_MISSING = 0x200017;
constexpr int32_t USER_TYPE_MISSING = 0x200018;
constexpr int32_t USER_CREATED_MISSING = 0x200019;
constexpr int32_t USER_SERIAL_NUMBER_MISSING = 0x20001a;

}  // namespace Zarvo::RestoreVocabulary

// The log lines others read, as formats of the plug-in's log macros (which put "[file(line)]" in
// front). They are macros so that they stay string literals the log macros can join and check.
#define LINE_RESTORE_DATA_CALLED "RestoreData called."
#define LINE_ACCOUNT_RESTORE_FAILED "AccountDataManager DoRestoreData failed."
#define LINE_RESTORE_DATA_ABORTED "RestoreData failed, %{public}s"

#define LINE_ACCOUNT_SOURCE_CHECK_FAILED "DoRestoreData failed, check source data return false."
#define LINE_ACCOUNT_DATABASE_NOT_READ "DoRestoreData failed, parsing database return false."
#define LINE_ACCOUNT_NOTHING_TO_CARRY "DoRestoreData success, database has no cvid data."
#define LINE_ACCOUNT_EXPORT_FAILED "DoRestoreData failed, Process the JSON file return false."
#define LINE_ACTIVE_USER_QUERY_FAILED "GetCurrentUserId get system account error, err is %{public}d"
#define LINE_ACCOUNT_DATABASE_MISSING \
    "CheckDbFileExist file is not exist errno is %{public}d, sourceDbPath_ is %{public}s"
#define LINE_ACCOUNT_DATABASE_OPEN_ERROR "InitRdb failed, rdb_ is nullptr, err = %{public}d"
#define LINE_ACCOUNT_DATABASE_OPEN_FAILED "OpenDbFile fail after retry 3 times"
#define LINE_ACCOUNT_QUERY_FAILED "GetAccountsFromDB failed, query accounts table return false."
#define LINE_ACCOUNT_TOKEN_MISSING "GetAuthtokensFromDB failed, query authtokens table return false."
#define LINE_ACCOUNT_EXTRAS_MISSING "GetExtrasFromDB failed, query extras table return false."
#define LINE_ACCOUNT_NOT_UTF8 "AccountDataToJson failed, the account holds text that is not UTF-8: %{public}s"
#define LINE_ACCOUNT_EXPORT_NOT_WRITTEN "SaveJsonToFile fail, file = %{public}s"
#define LINE_BUNDLE_MANAGER_UNREACHABLE "CreateFileParam can not get bundleMgr."
#define LINE_BUNDLE_INFO_FAILED \
    "CreateFileParam failed to get bundle info for %{public}s due to errCode %{public}d"
#define LINE_ACCOUNT_HANDED_OVER "MoveFileToCvid success, from : %{public}s, to : %{public}s"
#define LINE_ACCOUNT_HAND_OVER_RETRY                                                                \
    "MoveFileToCvid failed, MkDir result %{public}d, MoveFile result %{public}d, will retry after " \
    "%{public}d milliseconds"
#define LINE_ACCOUNT_HAND_OVER_FAILED \
    "MoveFileToCvid failed, after retry 3 times, from : %{public}s, to : %{public}s"

#define LINE_USER_RESTORE_CALLED "DoRestoreData called."
#define LINE_USER_RESTORE_FAILED "DoRestoreData failed, current userId : %{public}d"
#define LINE_USER_LIST_NOT_PARSED "ProcessUserList failed, TransformToUserList xmlfile:%{public}s."
#define LINE_USER_CALLED "RestoreSubUserInfo called."
#define LINE_USER_FILE_NOT_PREPARED "RestoreSubUserInfo failed, Preprocess fileName:%{public}s return false."
#define LINE_USER_FILE_NOT_PARSED "RestoreSubUserInfo failed, TransformToUserInfo fileName:%{public}s."
#define LINE_USER_NOT_CARRIED "RestoreSubUserInfo current user (%{public}d) not need restore."
#define LINE_CONVERT_DIR_MADE "CreateConvertXmlPath success, pathName : %{public}s"
#define LINE_CONVERT_DIR_RETRY \
    "CreateConvertXmlPath failed, MkDir result %{public}d, will retry after %{public}d milliseconds"
#define LINE_CONVERT_DIR_FAILED "CreateConvertXmlPath failed, after retry 3 times, pathName : %{public}s"
#define LINE_USER_FILE_NOT_CONVERTED "ConvertFromBinaryXml failed, errCode is %{public}d."
#define LINE_USER_EXISTED "CreateZarvoAccount failed, current user id : %{public}d already exists."
#define LINE_USER_CREATE_RETRY \
    "CreateZarvoAccount failed, result %{public}d, will retry after %{public}d milliseconds"
#define LINE_USER_CREATE_FAILED "CreateZarvoAccount failed, after retry 3 times, zarvo user id : %{public}d"
#define LINE_USER_CREATED "CreateZarvoAccount success, zarvo user id : %{public}d"
#define LINE_ADMIN_UPDATE_RETRY \
    "UpdateZarvoAdminAcount failed, result %{public}d, will retry after %{public}d milliseconds"
#define LINE_ADMIN_UPDATE_FAILED \
    "UpdateZarvoAdminAcount failed, after retry 3 times, zarvo user id : %{public}d"
#define LINE_ADMIN_UPDATED "UpdateZarvoAdminAcount success, zarvo user id : %{public}d"
#define LINE_EVENT_NOT_WRITTEN "SendEvent hisysevent write failed! ret %{public}d."

// Every declared line, for a reader that goes through them all: X(NAME) for each LINE_NAME.
#define ACCOUNT_RESTORE_LINES(X)    \
    X(RESTORE_DATA_CALLED)          \
    X(ACCOUNT_RESTORE_FAILED)       \
    X(RESTORE_DATA_ABORTED)         \
    X(ACCOUNT_SOURCE_CHECK_FAILED)  \
    X(ACCOUNT_DATABASE_NOT_READ)    \
    X(ACCOUNT_NOTHING_TO_CARRY)     \
    X(ACCOUNT_EXPORT_FAILED)        \
    X(ACTIVE_USER_QUERY_FAILED)     \
    X(ACCOUNT_DATABASE_MISSING)     \
    X(ACCOUNT_DATABASE_OPEN_ERROR)  \
    X(ACCOUNT_DATABASE_OPEN_FAILED) \
    X(ACCOUNT_QUERY_FAILED)         \
    X(ACCOUNT_TOKEN_MISSING)        \
    X(ACCOUNT_EXTRAS_MISSING)       \
    X(ACCOUNT_NOT_UTF8)             \
    X(ACCOUNT_EXPORT_NOT_WRITTEN)   \
    X(BUNDLE_MANAGER_UNREACHABLE)   \
    X(BUNDLE_INFO_FAILED)           \
    X(ACCOUNT_HANDED_OVER)          \
    X(ACCOUNT_HAND_OVER_RETRY)      \
    X(ACCOUNT_HAND_OVER_FAILED)     \
    X(USER_RESTORE_CALLED)          \
    X(USER_RESTORE_FAILED)          \
    X(USER_LIST_NOT_PARSED)         \
    X(USER_CALLED)                  \
    X(USER_FILE_NOT_PREPARED)       \
    X(USER_FILE_NOT_PARSED)         \
    X(USER_NOT_CARRIED)             \
    X(CONVERT_DIR_MADE)             \
    X(CONVERT_DIR_RETRY)            \
    X(CONVERT_DIR_FAILED)           \
    X(USER_FILE_NOT_CONVERTED)      \
    X(USER_EXISTED)                 \
    X(USER_CREATE_RETRY)            \
    X(USER_CREATE_FAILED)           \
    X(USER_CREATED)                 \
    X(ADMIN_UPDATE_RETRY)           \
    X(ADMIN_UPDATE_FAILED)          \
    X(ADMIN_UPDATED)                \
    X(EVENT_NOT_WRITTEN)

#endif  // ACCOUNT_RESTORE_VOCABULARY_H
