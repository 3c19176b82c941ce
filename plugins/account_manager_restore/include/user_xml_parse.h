#ifndef USER_XML_PARSE_H
#define USER_XML_PARSE_H

#include <libxml/tree.h>

#include <cstdint>
#include <string>
#include <vector>

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
