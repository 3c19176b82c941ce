#ifndef ACCOUNT_DATA_INFO_H
#define ACCOUNT_DATA_INFO_H

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace Zarvo {
namespace UpdateEngine {

// Keys of the exported account file.
inline const std::string ACCOUNT_KEY_ID = "id";
inline const std::string ACCOUNT_KEY_NAME = "name";
inline const std::string ACCOUNT_KEY_TYPE = "type";
inline const std::string ACCOUNT_KEY_LOCALE = "locale";
inline const std::string ACCOUNT_KEY_AUTHTOKEN = "authtoken";
inline const std::string ACCOUNT_KEY_EXTRAS = "extras";
inline const std::string ACCOUNT_KEY_KEY = "key";
inline const std::string ACCOUNT_KEY_VALUE = "value";

// One extra of the account: a row of the source extras table.
struct ExtraInfo {
    int32_t id;
    std::string key;
    std::string value;
};

// The one account of the maker's account service that is carried over.
struct AccountDataInfo {
    int32_t id;
    std::string name;
    std::string type;
    std::string locale;
    std::string authtoken;
    std::vector<ExtraInfo> extras;
};

inline void to_json(nlohmann::json &json, const ExtraInfo &extra) {
    json[ACCOUNT_KEY_ID] = extra.id;
    json[ACCOUNT_KEY_KEY] = extra.key;
    json[ACCOUNT_KEY_VALUE] = extra.value;
}

inline void to_json(nlohmann::json &json, const AccountDataInfo &info) {
    json[ACCOUNT_KEY_ID] = info.id;
    json[ACCOUNT_KEY_NAME] = info.name;
    json[ACCOUNT_KEY_TYPE] = info.type;
    json[ACCOUNT_KEY_LOCALE] = info.locale;
    json[ACCOUNT_KEY_AUTHTOKEN] = info.authtoken;
    json[ACCOUNT_KEY_EXTRAS] = info.extras;
}

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // ACCOUNT_DATA_INFO_H
