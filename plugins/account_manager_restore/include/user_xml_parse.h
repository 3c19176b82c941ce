#ifndef USER_XML_PARSE_H
#define USER_XML_PARSE_H

#include <libxml/tree.h>

#include <cstdint>
#include <string>
#include <vector>

#include "account_restore_vocabulary.h"

namespace Zarvo {
namespace UpdateEngine {

// One user as the source system's per-user XML file describes it.
struct OSUserDataInfo {
    int32_t id;
    std::string name;
    std::string type;
    std::string icon;
    int32_t flags;
    int64_t created;
    int64_t lastLoggedIn;
    int64_t serialNumber;
};

// Results of the parse; 0 is success. The values travel as fault-event error codes.
constexpr int32_t XML_FILE_NOT_EXIST = RestoreVocabulary::XML_FILE_NOT_EXIST;
constexpr int32_t XML_FILE_READ_ERROR = RestoreVocabulary::XML_FILE_READ_ERROR;
constexpr int32_t USER_LIST_NODE_ERROR = RestoreVocabulary::USER_LIST_NODE_ERROR;
constexpr int32_t USER_NODE_ERROR = RestoreVocabulary::USER_NODE_ERROR;
constexpr int32_t USER_NAME_MISSING = RestoreVocabulary::USER_NAME_MISSING;
constexpr int32_t USER_ID_MISSING = RestoreVocabulary::USER_ID_MISSING;
constexpr int32_t USER_FLAGS_MISSING = RestoreVocabulary::USER_FLAGS_MISSING;
constexpr int32_t USER_TYPE_MISSING = RestoreVocabulary::USER_TYPE_MISSING;
constexpr int32_t USER_CREATED_MISSING = RestoreVocabulary::USER_CREATED_MISSING;
constexpr int32_t USER_SERIAL_NUMBER_MISSING = RestoreVocabulary::USER_SERIAL_NUMBER_MISSING;

// Reads the source system's user list and per-user files (text XML). Every document it
// opens is freed before the call that opened it returns.
class UserXmlParse {
public:
    int32_t ParseXmlFile(const std::string &xmlFile, xmlDocPtr &doc);
    // Appends the ids of the list's "user" elements, in document order.
    int32_t TransformToUserList(const std::string &xmlFile, std::vector<int32_t> &userIdList);
    int32_t ParseToUserList(xmlNodePtr &rootNode, std::vector<int32_t> &userIdList);
    int32_t TransformToUserInfo(const std::string &xmlFile, OSUserDataInfo &info);
    int32_t ParseToUserInfo(xmlNodePtr &rootNode, OSUserDataInfo &info);
    int32_t ParseUserAttributes(xmlNodePtr &userNode, OSUserDataInfo &info);
    bool GetUserAttribute(xmlNodePtr &userNode, const std::string &attrName, std::string &value);
    bool GetUserName(xmlNodePtr &userNode, std::string &name);
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // USER_XML_PARSE_H
