#ifndef ZARVO_USER_AUTH_ATTRIBUTES_H
#define ZARVO_USER_AUTH_ATTRIBUTES_H

#include <cstdint>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace Zarvo {
namespace UserIam {
namespace UserAuth {

// Extra information that the identity-management service hands to its callbacks: a set of
// values keyed by attribute, each key holding one value of one type.
class Attributes {
public:
    enum AttributeKey : uint32_t {
        ATTR_RESULT_CODE = 100000,
        ATTR_SIGNATURE = 100004,
        ATTR_TEMPLATE_ID_LIST = 100007,
        ATTR_USER_ID = 100010,
        ATTR_CREDENTIAL_COUNT = 100011,
        ATTR_OLD_CREDENTIAL_ID = 100017,
    };

    void SetInt32Value(AttributeKey key, int32_t value) { values_[key] = value; }
    void SetUint32Value(AttributeKey key, uint32_t value) { values_[key] = value; }
    void SetUint64Value(AttributeKey key, uint64_t value) { values_[key] = value; }
    void SetStringValue(AttributeKey key, const std::string &value) { values_[key] = value; }

    // Each getter answers false, leaving `value` untouched, when the key is absent or holds
    // a value of another type.
    bool GetInt32Value(AttributeKey key, int32_t &value) const { return Get(key, value); }
    bool GetUint32Value(AttributeKey key, uint32_t &value) const { return Get(key, value); }
    bool GetUint64Value(AttributeKey key, uint64_t &value) const { return Get(key, value); }
    bool GetStringValue(AttributeKey key, std::string &value) const { return Get(key, value); }

    std::vector<AttributeKey> GetKeys() const {
        std::vector<AttributeKey> keys;
        keys.reserve(values_.size());
        for (const auto &entry : values_) {
            keys.push_back(entry.first);
        }
        return keys;
    }

private:
    template <typename T>
    bool Get(AttributeKey key, T &value) const {
        auto it = values_.find(key);
        if (it == values_.end() || !std::holds_alternative<T>(it->second)) {
            return false;
        }
        value = std::get<T>(it->second);
        return true;
    }

    std::map<AttributeKey, std::variant<int32_t, uint32_t, uint64_t, std::string>> values_;
};

}  // namespace UserAuth
}  // namespace UserIam
}  // namespace Zarvo

#endif  // ZARVO_USER_AUTH_ATTRIBUTES_H
