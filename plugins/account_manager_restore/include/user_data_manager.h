#ifndef USER_DATA_MANAGER_H
#define USER_DATA_MANAGER_H

#include <cstdint>
#include <string>
#include <vector>

#include "account_restore_vocabulary.h"
#include "os_account_info.h"
#include "user_xml_parse.h"

namespace Zarvo {
namespace UpdateEngine {

// One user as it is to be created on (or updated in) the target's OS accounts.
struct ZarvoUserDataInfo {
    int32_t localId;
    std::string localName;
    int32_t type;  // an AccountSA::OsAccountType value
    std::string photo;
    int64_t createTime;
    int64_t lastLoginTime;
    int64_t serialNumber;
};

// A conversion failure whose status has no code of its own; the others run from 0x200002.
constexpr int32_t CONVERT_UNKNOWN_ERROR = RestoreVocabulary::CONVERT_UNKNOWN_ERROR;

// Carries the source system's users over to OS accounts: reads the user list, restores each
// listed user in turn and finally has redundant credentials cleared.
class UserDataManager {
public:
    // True when the list was read and every listed user was restored or needed no restore.
    bool DoRestoreData();
    bool ProcessUserList();
    bool RestoreSubUserInfo(int32_t userId);
    bool IsUserNeedMigrate(const std::string &type, uint32_t flags);
    void ConvertToZarvoUserInfo(const OSUserDataInfo &osUserInfo, ZarvoUserDataInfo &zarvoUserInfo);
    AccountSA::OsAccountType GetZarvoAccountType(const OSUserDataInfo &osUserInfo);

    // Converts a source file into a text XML copy under the conversion directory.
    bool PreprocessXmlFile(const std::string &fullFileName, const std::string &fileName,
                           std::string &convertedPath);
    bool CreateConvertXmlPath(const std::string &pathName);
    bool ConvertFromBinaryXml(const std::string &sourcePath, const std::string &destPath);

    // True also when an account with the local id exists already (it is left untouched).
    bool CreateZarvoAccount(const ZarvoUserDataInfo &zarvoUserInfo);
    bool UpdateZarvoAdminAcount(const ZarvoUserDataInfo &zarvoUserInfo);
    // The icon file of a source user as a PNG data URI, or empty text.
    std::string GetUserIcon(const std::string &iconPath, int32_t userId);

private:
    std::vector<int32_t> userIdList_;
    std::string fileName_;
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // USER_DATA_MANAGER_H
