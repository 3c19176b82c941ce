#include "user_xml_parse.h"

#include <libxml/parser.h>

#include <cstdlib>

#include "account_file_util.h"
#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {
namespace {

const xmlChar *const USERS_NODE = BAD_CAST "users";
const xmlChar *const USER_NODE = BAD_CAST "user";
const xmlChar *const NAME_NODE = BAD_CAST "name";
const xmlChar *const ID_ATTR = BAD_CAST "id";
const std::string ATTR_ID = "id";
const std::string ATTR_TYPE = "type";
const std::string ATTR_FLAGS = "flags";
const std::string ATTR_CREATED = "created";
const std::string ATTR_SERIAL_NUMBER = "serialNumber";
const std::string ATTR_ICON = "icon";
const std::string ATTR_LAST_LOGGED_IN = "lastLoggedIn";

bool IsElementNamed(const xmlNode *node, const xmlChar *name) {
    return node->type == XML_ELEMENT_NODE && xmlStrcmp(node->name, name) == 0;
}

}  // namespace

int32_t UserXmlParse::ParseXmlFile(const std::string &xmlFile, xmlDocPtr &doc) {
    if (!AccountFileUtil::CheckFileExist(xmlFile)) {
        PLUGIN_LOGE("ParseXmlFile failed, xmlfile:%{public}s does not exist.", xmlFile.c_str());
        return XML_FILE_NOT_EXIST;
    }
    xmlDocPtr parsed = xmlReadFile(xmlFile.c_str(), nullptr, XML_PARSE_RECOVER);
    if (parsed == nullptr) {
        PLUGIN_LOGE("ParseXmlFile failed, xml doc is nullptr.");
        return XML_FILE_READ_ERROR;
    }
    doc = parsed;
    return 0;
}

int32_t UserXmlParse::TransformToUserList(const std::string &xmlFile, std::vector<int32_t> &userIdList) {
    xmlDocPtr doc = nullptr;
    int32_t result = ParseXmlFile(xmlFile, doc);
    if (result != 0) {
        PLUGIN_LOGE("TransformToUserList failed, xmlfile:%{public}s.", xmlFile.c_str());
        return result;
    }
    xmlNodePtr rootNode = xmlDocGetRootElement(doc);
    if (rootNode == nullptr) {
        xmlFreeDoc(doc);
        PLUGIN_LOGE("ParseXmlFile failed, xml root is nullptr.");
        return XML_FILE_READ_ERROR;
    }
    result = ParseToUserList(rootNode, userIdList);
    xmlFreeDoc(doc);
    return result;
}

int32_t UserXmlParse::ParseToUserList(xmlNodePtr &rootNode, std::vector<int32_t> &userIdList) {
    if (rootNode == nullptr || xmlStrcmp(rootNode->name, USERS_NODE) != 0) {
        PLUGIN_LOGE("ParseToUserList failed, not find users xml node.");
        return USER_LIST_NODE_ERROR;
    }
    for (xmlNodePtr node = rootNode->children; node != nullptr; node = node->next) {
        if (!IsElementNamed(node, USER_NODE)) {
            continue;
        }
        xmlChar *id = xmlGetProp(node, ID_ATTR);
        if (id == nullptr) {
            continue;
        }
        userIdList.push_back(std::atoi(reinterpret_cast<const char *>(id)));
        xmlFree(id);
    }
    return 0;
}

int32_t UserXmlParse::TransformToUserInfo(const std::string &xmlFile, OSUserDataInfo &info) {
    xmlDocPtr doc = nullptr;
    int32_t result = ParseXmlFile(xmlFile, doc);
    if (result != 0) {
        PLUGIN_LOGE("TransformToUserInfo failed, xmlfile:%{public}s.", xmlFile.c_str());
        return result;
    }
    xmlNodePtr rootNode = xmlDocGetRootElement(doc);
    if (rootNode == nullptr) {
        xmlFreeDoc(doc);
        PLUGIN_LOGE("ParseXmlFile failed, xml root is nullptr.");
        return XML_FILE_READ_ERROR;
    }
    result = ParseToUserInfo(rootNode, info);
    xmlFreeDoc(doc);
    return result;
}

int32_t UserXmlParse::ParseToUserInfo(xmlNodePtr &rootNode, OSUserDataInfo &info) {
    if (rootNode == nullptr || xmlStrcmp(rootNode->name, USER_NODE) != 0) {
        PLUGIN_LOGE("ParseToUserInfo failed, not find user xml node.");
        return USER_NODE_ERROR;
    }
    int32_t result = ParseUserAttributes(rootNode, info);
    if (result != 0) {
        PLUGIN_LOGE("ParseToUserInfo failed, ParseUserAttributes return %{public}d.", result);
        return result;
    }
    if (GetUserName(rootNode, info.name)) {
        return 0;
    }
    if (info.id != 0) {
        PLUGIN_LOGE("ParseToUserInfo failed, has not user name.");
        return USER_NAME_MISSING;
    }
    PLUGIN_LOGI("ParseToUserInfo admin account has not user name.");
    return 0;
}

int32_t UserXmlParse::ParseUserAttributes(xmlNodePtr &userNode, OSUserDataInfo &info) {
    std::string value;
    if (!GetUserAttribute(userNode, ATTR_ID, value) || value.empty()) {
        return USER_ID_MISSING;
    }
    info.id = std::atoi(value.c_str());
    if (!GetUserAttribute(userNode, ATTR_TYPE, value) || value.empty()) {
        return USER_TYPE_MISSING;
    }
    info.type = value;
    if (!GetUserAttribute(userNode, ATTR_FLAGS, value) || value.empty()) {
        return USER_FLAGS_MISSING;
    }
    int32_t flags = std::atoi(value.c_str());
    if (flags >= 0) {
        info.flags = flags;
    }
    if (!GetUserAttribute(userNode, ATTR_CREATED, value) || value.empty()) {
        return USER_CREATED_MISSING;
    }
    info.created = std::atoll(value.c_str());
    if (!GetUserAttribute(userNode, ATTR_SERIAL_NUMBER, value) || value.empty()) {
        return USER_SERIAL_NUMBER_MISSING;
    }
    info.serialNumber = std::atoll(value.c_str());
    // Icon and last login time are optional: a missing one leaves its field as it was.
    (void)GetUserAttribute(userNode, ATTR_ICON, value);
    if (!value.empty()) {
        info.icon = value;
    }
    (void)GetUserAttribute(userNode, ATTR_LAST_LOGGED_IN, value);
    if (!value.empty()) {
        info.lastLoggedIn = std::atoll(value.c_str());
    }
    return 0;
}

bool UserXmlParse::GetUserAttribute(xmlNodePtr &userNode, const std::string &attrName, std::string &value) {
    value.clear();
    if (userNode == nullptr) {
        PLUGIN_LOGE("userNode is nullptr");
        return false;
    }
    const xmlChar *name = BAD_CAST attrName.c_str();
    if (xmlHasProp(userNode, name) == nullptr) {
        PLUGIN_LOGE("GetUserAttribute failed, missing information: has no %{public}s attribute.",
                    attrName.c_str());
        return false;
    }
    xmlChar *text = xmlGetProp(userNode, name);
    if (text == nullptr) {
        return false;
    }
    value = reinterpret_cast<const char *>(text);
    xmlFree(text);
    return true;
}

bool UserXmlParse::GetUserName(xmlNodePtr &userNode, std::string &name) {
    if (userNode == nullptr || userNode->children == nullptr) {
        return false;
    }
    xmlNodePtr nameNode = userNode->children;
    while (nameNode != nullptr && !IsElementNamed(nameNode, NAME_NODE)) {
        nameNode = nameNode->next;
    }
    if (nameNode == nullptr) {
        return false;
    }
    xmlChar *content = xmlNodeGetContent(nameNode);
    if (content == nullptr) {
        return false;
    }
    name = reinterpret_cast<const char *>(content);
    xmlFree(content);
    return true;
}

}  // namespace UpdateEngine
}  // namespace Zarvo
