#include "phone_description.h"

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "support/json_integer.h"

namespace Zarvo::Fixtures {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

// A refusal, worded as the end of "the phone description <path>: ...".
struct DescriptionError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string KindOf(const json &value) {
    switch (value.type()) {
        case json::value_t::null:
            return "null";
        case json::value_t::boolean:
            return "a boolean";
        case json::value_t::string:
            return "a string";
        case json::value_t::array:
            return "an array";
        case json::value_t::object:
            return "an object";
        case json::value_t::number_float:
            return "a fractional number";
        default:
            return "a number";
    }
}

[[noreturn]] void WrongType(const std::string &where, const std::string &wanted, const json &value) {
    throw DescriptionError(where + " must be " + wanted + ", not " + KindOf(value));
}

// A JSON object of the description and where it sits in it ("users[2]"); every read names the
// member it reads.
class Members {
public:
    Members(const json &object, std::string where, std::initializer_list<std::string_view> known)
        : object_(object), where_(std::move(where)) {
        if (!object.is_object()) {
            WrongType(where_.empty() ? "the description" : where_, "an object", object);
        }
        for (const auto &item : object.items()) {
            bool isKnown = false;
            for (std::string_view key : known) {
                isKnown = isKnown || item.key() == key;
            }
            if (!isKnown) {
                throw DescriptionError(PathOf(item.key()) + " is not a known key");
            }
        }
    }

    bool Has(const char *key) const { return object_.contains(key); }

    std::string PathOf(const std::string &key) const { return where_.empty() ? key : where_ + "." + key; }

    const json &Required(const char *key) const {
        if (!Has(key)) {
            throw DescriptionError(PathOf(key) + " is missing");
        }
        return object_.at(key);
    }

    template <typename T>
    T Integer(const char *key) const {
        const json &value = Required(key);
        const std::string where = PathOf(key);
        const char *wanted = sizeof(T) == 4 ? "a 32-bit integer" : "a 64-bit integer";
        if (!value.is_number_integer()) {
            WrongType(where, wanted, value);
        }
        T number{};
        if (!Host::JsonInteger(value, number)) {
            throw DescriptionError(where + " does not fit in " + wanted);
        }
        return number;
    }

    template <typename T>
    T Integer(const char *key, T fallback) const {
        return Has(key) ? Integer<T>(key) : fallback;
    }

    // null and a missing member give nothing.
    template <typename T>
    std::optional<T> NullableInteger(const char *key) const {
        return Has(key) && !object_.at(key).is_null() ? std::optional<T>(Integer<T>(key)) : std::nullopt;
    }

    std::string Text(const char *key) const {
        const json &value = Required(key);
        if (!value.is_string()) {
            WrongType(PathOf(key), "a string", value);
        }
        return value.get<std::string>();
    }

    std::optional<std::string> NullableText(const char *key, std::optional<std::string> fallback) const {
        if (!Has(key)) {
            return fallback;
        }
        return object_.at(key).is_null() ? std::nullopt : std::optional<std::string>(Text(key));
    }

    // Each element of an array member, with its place ("users[2]").
    template <typename Read>
    void EachOf(const char *key, Read read) const {
        const json &array = Required(key);
        if (!array.is_array()) {
            WrongType(PathOf(key), "an array", array);
        }
        for (size_t i = 0; i < array.size(); ++i) {
            read(array[i], PathOf(key) + "[" + std::to_string(i) + "]");
        }
    }

private:
    const json &object_;
    std::string where_;
};

AndroidAccount AccountOf(const json &item, const std::string &where) {
    const Members members(item, where, {"id", "name", "type", "password"});
    AndroidAccount account;
    account.id = members.Integer<int64_t>("id");
    account.name = members.Text("name");
    account.type = members.Text("type");
    account.password = members.NullableText("password", std::nullopt);
    return account;
}

AndroidAuthToken TokenOf(const json &item, const std::string &where) {
    const Members members(item, where, {"id", "accountId", "type", "authtoken"});
    AndroidAuthToken token;
    token.id = members.Integer<int64_t>("id");
    token.accountId = members.Integer<int64_t>("accountId");
    token.type = members.Text("type");
    token.authtoken = members.NullableText("authtoken", std::nullopt);
    return token;
}

AndroidExtra ExtraOf(const json &item, const std::string &where) {
    const Members members(item, where, {"id", "accountId", "key", "value"});
    AndroidExtra extra;
    extra.id = members.Integer<int64_t>("id");
    extra.accountId = members.NullableInteger<int64_t>("accountId");
    extra.key = members.Text("key");
    extra.value = members.NullableText("value", std::nullopt);
    return extra;
}

std::string PhotoOf(const std::string &file, const fs::path &base) {
    std::ifstream in(base / file, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    if (!in) {
        throw DescriptionError("cannot read the photo " + file);
    }
    return content.str();
}

AndroidUser UserOf(const json &item, const std::string &where, const fs::path &base) {
    const Members members(item, where,
                          {"id", "serialNumber", "flags", "type", "created", "lastLoggedIn", "name", "icon",
                           "profileGroupId", "photo"});
    AndroidUser user;
    user.id = members.Integer<int32_t>("id");
    user.serialNumber = members.Integer<int32_t>("serialNumber", user.id);
    user.flags = members.Integer<int32_t>("flags");
    user.type = members.NullableText("type", std::nullopt);
    user.created = members.Integer<int64_t>("created", 0);
    user.lastLoggedIn = members.Integer<int64_t>("lastLoggedIn", 0);
    user.name = members.NullableText("name", std::nullopt);
    user.icon = members.NullableText("icon", std::nullopt);
    user.profileGroupId = members.Integer<int32_t>("profileGroupId", user.profileGroupId);
    if (members.Has("photo")) {
        const json &photo = item.at("photo");
        if (photo.is_boolean()) {
            user.photo = photo.get<bool>() ? std::optional<std::string>(SampleAvatarPng()) : std::nullopt;
        } else if (photo.is_string()) {
            user.photo = PhotoOf(photo.get<std::string>(), base);
        } else {
            WrongType(members.PathOf("photo"), "true, false or the path of a PNG file", photo);
        }
    }
    return user;
}

SamplePhone PhoneOf(const json &description, const fs::path &base, SamplePhone phone) {
    const Members members(
        description, "",
        {"locale", "accounts", "authtokens", "extras", "users", "userListVersion", "userFileForm"});
    phone.accounts.locale = members.NullableText("locale", phone.accounts.locale);
    if (members.Has("accounts")) {
        phone.accounts.accounts.clear();
        members.EachOf("accounts", [&](const json &item, const std::string &where) {
            phone.accounts.accounts.push_back(AccountOf(item, where));
        });
    }
    if (members.Has("authtokens")) {
        phone.accounts.authtokens.clear();
        members.EachOf("authtokens", [&](const json &item, const std::string &where) {
            phone.accounts.authtokens.push_back(TokenOf(item, where));
        });
    }
    if (members.Has("extras")) {
        phone.accounts.extras.clear();
        members.EachOf("extras", [&](const json &item, const std::string &where) {
            phone.accounts.extras.push_back(ExtraOf(item, where));
        });
    }
    if (members.Has("users")) {
        phone.users.users.clear();
        members.EachOf("users", [&](const json &item, const std::string &where) {
            phone.users.users.push_back(UserOf(item, where, base));
        });
    }
    phone.users.version = members.Integer<int32_t>("userListVersion", phone.users.version);
    if (members.Has("userFileForm")) {
        const std::string form = members.Text("userFileForm");
        if (form != "binary" && form != "text") {
            throw DescriptionError("userFileForm must be \"binary\" or \"text\", not \"" + form + "\"");
        }
        phone.userFileForm = form == "text" ? UserFileForm::TEXT : UserFileForm::BINARY;
    }
    return phone;
}

}  // namespace

bool LoadSamplePhoneDescription(const std::string &path, SamplePhone &phone, std::string &error) {
    std::ifstream in(path);
    if (!in) {
        error = "cannot open the phone description " + path + ".";
        return false;
    }
    try {
        const json description = json::parse(in);
        phone = PhoneOf(description, fs::path(path).parent_path(), phone);
        return true;
    } catch (const json::parse_error &e) {
        error =
            "the phone description " + path + " is not valid JSON (at byte " + std::to_string(e.byte) + ").";
    } catch (const DescriptionError &e) {
        error = "the phone description " + path + ": " + e.what() + ".";
    } catch (const std::exception &e) {
        error = "the phone description " + path + " cannot be read: " + e.what() + ".";
    }
    return false;
}

}  // namespace Zarvo::Fixtures
