#include "sample_phone.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace Zarvo::Fixtures {
namespace fs = std::filesystem;
using nlohmann::json;
namespace {

template <typename T>
std::optional<T> OptionalOf(const json &object, const char *key, const std::optional<T> &fallback) {
    if (!object.contains(key)) {
        return fallback;
    }
    return object[key].is_null() ? std::nullopt : std::optional<T>(object[key].get<T>());
}

AndroidAccount AccountOf(const json &item) {
    AndroidAccount account;
    account.id = item.at("id").get<int64_t>();
    account.name = item.at("name").get<std::string>();
    account.type = item.at("type").get<std::string>();
    account.password = OptionalOf<std::string>(item, "password", std::nullopt);
    return account;
}

AndroidAuthToken TokenOf(const json &item) {
    AndroidAuthToken token;
    token.id = item.at("id").get<int64_t>();
    token.accountId = item.at("accountId").get<int64_t>();
    token.type = item.at("type").get<std::string>();
    token.authtoken = OptionalOf<std::string>(item, "authtoken", std::nullopt);
    return token;
}

AndroidExtra ExtraOf(const json &item) {
    AndroidExtra extra;
    extra.id = item.at("id").get<int64_t>();
    extra.accountId = OptionalOf<int64_t>(item, "accountId", std::nullopt);
    extra.key = item.at("key").get<std::string>();
    extra.value = OptionalOf<std::string>(item, "value", std::nullopt);
    return extra;
}

AndroidUser UserOf(const json &item, const fs::path &base) {
    AndroidUser user;
    user.id = item.at("id").get<int32_t>();
    user.serialNumber = item.value("serialNumber", user.id);
    user.flags = item.at("flags").get<int32_t>();
    user.type = OptionalOf<std::string>(item, "type", std::nullopt);
    user.created = item.value("created", int64_t{0});
    user.lastLoggedIn = item.value("lastLoggedIn", int64_t{0});
    user.name = OptionalOf<std::string>(item, "name", std::nullopt);
    user.icon = OptionalOf<std::string>(item, "icon", std::nullopt);
    user.profileGroupId = item.value("profileGroupId", user.profileGroupId);
    if (item.contains("photo")) {
        const json &photo = item["photo"];
        if (photo.is_boolean() && photo.get<bool>()) {
            user.photo = SampleAvatarPng();
        } else if (photo.is_string()) {
            std::ifstream in(base / photo.get<std::string>(), std::ios::binary);
            if (!in) {
                throw std::runtime_error("cannot read the photo " + photo.get<std::string>());
            }
            std::ostringstream content;
            content << in.rdbuf();
            user.photo = content.str();
        }
    }
    return user;
}

}  // namespace

SamplePhone DefaultSamplePhone() {
    return SamplePhone{SamplePhoneAccounts(), SamplePhoneUsers(), UserFileForm::BINARY};
}

bool LoadSamplePhoneDescription(const std::string &path, SamplePhone &phone, std::string &error) {
    std::ifstream in(path);
    if (!in) {
        error = "cannot open the phone description " + path + ".";
        return false;
    }
    json description = json::parse(in, nullptr, false);
    if (!description.is_object()) {
        error = "the phone description " + path + " is not a JSON object.";
        return false;
    }
    SamplePhone result = phone;
    try {
        result.accounts.locale = OptionalOf<std::string>(description, "locale", result.accounts.locale);
        if (description.contains("accounts")) {
            result.accounts.accounts.clear();
            for (const auto &item : description["accounts"]) {
                result.accounts.accounts.push_back(AccountOf(item));
            }
        }
        if (description.contains("authtokens")) {
            result.accounts.authtokens.clear();
            for (const auto &item : description["authtokens"]) {
                result.accounts.authtokens.push_back(TokenOf(item));
            }
        }
        if (description.contains("extras")) {
            result.accounts.extras.clear();
            for (const auto &item : description["extras"]) {
                result.accounts.extras.push_back(ExtraOf(item));
            }
        }
        if (description.contains("users")) {
            result.users.users.clear();
            for (const auto &item : description["users"]) {
                result.users.users.push_back(UserOf(item, fs::path(path).parent_path()));
            }
        }
        result.users.version = description.value("userListVersion", result.users.version);
        std::string form = description.value("userFileForm", std::string("binary"));
        if (form != "binary" && form != "text") {
            error = "userFileForm must be \"binary\" or \"text\", not \"" + form + "\".";
            return false;
        }
        result.userFileForm = form == "text" ? UserFileForm::TEXT : UserFileForm::BINARY;
    } catch (const std::exception &e) {
        error = "the phone description " + path + " is not usable: " + e.what() + ".";
        return false;
    }
    phone = std::move(result);
    return true;
}

std::string BuildSamplePhone(const SamplePhone &phone, const std::string &dir) {
    std::error_code code;
    const fs::path root(dir);
    fs::create_directories(root / "system_ce/0", code);
    if (code) {
        return "cannot create " + (root / "system_ce/0").string() + ": " + code.message() + ".";
    }
    std::string error;
    if (!WriteAccountsCeDb((root / "system_ce/0/accounts_ce.db").string(), phone.accounts, error)) {
        return error;
    }
    if (!WriteAndroidUsers((root / "system/users").string(), phone.users, phone.userFileForm, error)) {
        return error;
    }
    return "";
}

}  // namespace Zarvo::Fixtures
