#include "platform_control/device_state.h"

#include <algorithm>
#include <fstream>
#include <new>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "device_state_store.h"
#include "os_account_manager.h"
#include "support/json_integer.h"

namespace Zarvo::Host {
namespace Internal {

std::mutex &DeviceStateMutex() {
    static std::mutex mutex;
    return mutex;
}

namespace {

constexpr int TYPICAL_USER_ID = 100;
constexpr int64_t TYPICAL_SERIAL_NUMBER = 1100;
constexpr int64_t TYPICAL_CREATE_TIME_MS = 1700000000000;

DeviceState TypicalDeviceState() {
    DeviceState state;
    AccountSA::OsAccountInfo admin(TYPICAL_USER_ID, "admin", AccountSA::OsAccountType::ADMIN,
                                   TYPICAL_SERIAL_NUMBER);
    admin.SetCreateTime(TYPICAL_CREATE_TIME_MS);
    admin.SetLastLoginTime(TYPICAL_CREATE_TIME_MS);
    admin.SetIsActived(true);
    admin.SetIsVerified(true);
    admin.SetIsCreateCompleted(true);
    state.accounts.emplace(TYPICAL_USER_ID, admin);
    state.bundles.push_back({ACCOUNT_APP_BUNDLE_NAME, ACCOUNT_APP_ID, {TYPICAL_USER_ID}});
    return state;
}

}  // namespace

DeviceState &LockedDeviceState() {
    static DeviceState state = TypicalDeviceState();
    return state;
}

bool TakeFault(const std::string &operation, int32_t &code) {
    std::lock_guard<std::mutex> lock(DeviceStateMutex());
    DeviceState &state = LockedDeviceState();
    ++state.calls[operation];
    auto fault = state.faults.find(operation);
    if (fault == state.faults.end() || fault->second.remaining == 0) {
        return false;
    }
    if (fault->second.remaining > 0) {
        --fault->second.remaining;
    }
    if (fault->second.outOfMemory) {
        throw std::bad_alloc();
    }
    code = fault->second.code;
    return true;
}

}  // namespace Internal

namespace {

using Internal::DeviceState;
using nlohmann::json;

// A sentence-style failure of the file's contents.
struct StateError {
    std::string message;
};

const std::map<std::string, AccountSA::OsAccountType> &TypeNames() {
    static const std::map<std::string, AccountSA::OsAccountType> names = {
        {"ADMIN", AccountSA::OsAccountType::ADMIN},
        {"NORMAL", AccountSA::OsAccountType::NORMAL},
        {"GUEST", AccountSA::OsAccountType::GUEST},
        {"PRIVATE", AccountSA::OsAccountType::PRIVATE},
    };
    return names;
}

bool IsKnownType(int64_t type) {
    for (const auto &entry : TypeNames()) {
        if (entry.second == type) {
            return true;
        }
    }
    return false;
}

void CheckKeys(const json &object, const std::string &where, const std::set<std::string> &allowed) {
    if (!object.is_object()) {
        throw StateError{where + " must be a JSON object"};
    }
    for (const auto &item : object.items()) {
        if (allowed.count(item.key()) == 0) {
            throw StateError{where + " has an unknown key \"" + item.key() + "\""};
        }
    }
}

template <typename T>
T Field(const json &object, const std::string &key, const std::string &where, T fallback) {
    auto found = object.find(key);
    if (found == object.end()) {
        return fallback;
    }
    if constexpr (std::is_same_v<T, bool>) {
        if (found->is_boolean()) {
            return found->template get<T>();
        }
    } else if constexpr (std::is_integral_v<T>) {
        T value{};
        if (JsonInteger(*found, value)) {
            return value;
        }
    } else if (found->is_string()) {
        return found->template get<T>();
    }
    throw StateError{where + " has a \"" + key + "\" of the wrong type or out of range"};
}

AccountSA::OsAccountType ParseType(const json &account, const std::string &where) {
    auto found = account.find("type");
    if (found == account.end()) {
        return AccountSA::OsAccountType::NORMAL;
    }
    if (found->is_string()) {
        auto name = TypeNames().find(found->get<std::string>());
        if (name == TypeNames().end()) {
            throw StateError{where + " has an unknown type \"" + found->get<std::string>() + "\""};
        }
        return name->second;
    }
    if (found->is_number_integer() && IsKnownType(found->get<int64_t>())) {
        return static_cast<AccountSA::OsAccountType>(found->get<int64_t>());
    }
    throw StateError{where + " has a type that is neither a known name nor a known number"};
}

void ParseAccounts(const json &accounts, DeviceState &state) {
    if (!accounts.is_array()) {
        throw StateError{"\"osAccounts\" must be an array"};
    }
    state.accounts.clear();
    for (size_t i = 0; i < accounts.size(); ++i) {
        const json &entry = accounts[i];
        std::string where = "osAccounts[" + std::to_string(i) + "]";
        CheckKeys(entry, where,
                  {"localId", "localName", "shortName", "type", "serialNumber", "createTime", "lastLoginTime",
                   "photo", "isActived", "isVerified", "isCreateCompleted", "toBeRemoved"});
        if (!entry.contains("localId")) {
            throw StateError{where + " has no \"localId\""};
        }
        AccountSA::OsAccountInfo info;
        info.SetLocalId(Field<int>(entry, "localId", where, -1));
        if (info.GetLocalId() < 0) {
            throw StateError{where + " has a negative \"localId\""};
        }
        info.SetLocalName(Field<std::string>(entry, "localName", where, ""));
        info.SetShortName(Field<std::string>(entry, "shortName", where, ""));
        info.SetType(ParseType(entry, where));
        info.SetSerialNumber(Field<int64_t>(entry, "serialNumber", where, 0));
        info.SetCreateTime(Field<int64_t>(entry, "createTime", where, 0));
        info.SetLastLoginTime(Field<int64_t>(entry, "lastLoginTime", where, 0));
        info.SetPhoto(Field<std::string>(entry, "photo", where, ""));
        info.SetIsActived(Field<bool>(entry, "isActived", where, false));
        info.SetIsVerified(Field<bool>(entry, "isVerified", where, false));
        info.SetIsCreateCompleted(Field<bool>(entry, "isCreateCompleted", where, true));
        info.SetToBeRemoved(Field<bool>(entry, "toBeRemoved", where, false));
        if (!state.accounts.emplace(info.GetLocalId(), info).second) {
            throw StateError{where + " repeats the localId " + std::to_string(info.GetLocalId())};
        }
    }
}

void ParseBundles(const json &bundles, DeviceState &state) {
    if (!bundles.is_array()) {
        throw StateError{"\"bundles\" must be an array"};
    }
    state.bundles.clear();
    for (size_t i = 0; i < bundles.size(); ++i) {
        const json &entry = bundles[i];
        std::string where = "bundles[" + std::to_string(i) + "]";
        CheckKeys(entry, where, {"name", "appId", "userIds"});
        InstalledBundle bundle;
        bundle.name = Field<std::string>(entry, "name", where, "");
        if (bundle.name.empty()) {
            throw StateError{where + " has no \"name\""};
        }
        bundle.appId = Field<int32_t>(entry, "appId", where, -1);
        if (bundle.appId < 0 || bundle.appId >= BUNDLE_UID_RANGE) {
            throw StateError{where + " needs an \"appId\" from 0 to 199999"};
        }
        auto users = entry.find("userIds");
        if (users == entry.end() || !users->is_array()) {
            throw StateError{where + " needs a \"userIds\" array"};
        }
        for (const json &user : *users) {
            if (!user.is_number_integer() || user.get<int64_t>() < 0 ||
                user.get<int64_t>() > INT32_MAX / BUNDLE_UID_RANGE) {
                throw StateError{where + " has a user id that is not a small non-negative integer"};
            }
            bundle.userIds.push_back(user.get<int32_t>());
        }
        state.bundles.push_back(bundle);
    }
}

void ParseFaults(const json &faults, DeviceState &state) {
    if (!faults.is_array()) {
        throw StateError{"\"faults\" must be an array"};
    }
    state.faults.clear();
    const auto &known = FaultableOperations();
    for (size_t i = 0; i < faults.size(); ++i) {
        const json &entry = faults[i];
        std::string where = "faults[" + std::to_string(i) + "]";
        CheckKeys(entry, where, {"operation", "code", "count", "outOfMemory"});
        std::string operation = Field<std::string>(entry, "operation", where, "");
        if (std::find(known.begin(), known.end(), operation) == known.end()) {
            throw StateError{where + " names an operation that cannot fail: \"" + operation + "\""};
        }
        Internal::Fault fault;
        fault.code = Field<int32_t>(entry, "code", where, -1);
        fault.remaining = Field<int>(entry, "count", where, -1);
        if (fault.remaining < -1) {
            throw StateError{where + " has a \"count\" below -1"};
        }
        fault.outOfMemory = Field<bool>(entry, "outOfMemory", where, false);
        state.faults[operation] = fault;
    }
}

DeviceState ParseDeviceState(const std::string &text) {
    json root;
    try {
        root = json::parse(text);
    } catch (const json::exception &e) {
        // A syntax error, or a number beyond what a double holds.
        throw StateError{std::string("it is not valid JSON (") + e.what() + ")"};
    }
    CheckKeys(root, "the top level", {"osAccounts", "bundles", "faults", "migrateService"});
    // Sections the file leaves out keep the typical device's content.
    DeviceState state = Internal::TypicalDeviceState();
    if (root.contains("osAccounts")) {
        ParseAccounts(root["osAccounts"], state);
    }
    if (root.contains("bundles")) {
        ParseBundles(root["bundles"], state);
    }
    if (root.contains("faults")) {
        ParseFaults(root["faults"], state);
    }
    return state;
}

json AccountToJson(const AccountSA::OsAccountInfo &info) {
    // A type without a name is written as its number, so the text says what the store holds.
    json typeName = static_cast<int32_t>(info.GetType());
    for (const auto &entry : TypeNames()) {
        if (entry.second == info.GetType()) {
            typeName = entry.first;
        }
    }
    return {{"localId", info.GetLocalId()},
            {"localName", info.GetLocalName()},
            {"shortName", info.GetShortName()},
            {"type", typeName},
            {"serialNumber", info.GetSerialNumber()},
            {"createTime", info.GetCreateTime()},
            {"lastLoginTime", info.GetLastLoginTime()},
            {"photo", info.GetPhoto()},
            {"isActived", info.GetIsActived()},
            {"isVerified", info.GetIsVerified()},
            {"isCreateCompleted", info.GetIsCreateCompleted()},
            {"toBeRemoved", info.GetToBeRemoved()}};
}

}  // namespace

bool LoadDeviceStateFromText(const std::string &jsonText, std::string &error) {
    DeviceState parsed;
    try {
        parsed = ParseDeviceState(jsonText);
    } catch (const StateError &e) {
        error = "The device state is not usable: " + e.message + ".";
        return false;
    }
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    Internal::LockedDeviceState() = parsed;
    return true;
}

bool LoadDeviceState(const std::string &path, std::string &error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "The device state file " + path + " cannot be read.";
        return false;
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (!LoadDeviceStateFromText(text.str(), error)) {
        error = "The device state file " + path +
                " is not usable: " + error.substr(std::string("The device state is not usable: ").size());
        return false;
    }
    return true;
}

void ResetToTypicalDevice() {
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    Internal::LockedDeviceState() = Internal::TypicalDeviceState();
}

void ClearDeviceState() {
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    Internal::LockedDeviceState() = DeviceState{};
}

std::vector<AccountSA::OsAccountInfo> OsAccounts() {
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    std::vector<AccountSA::OsAccountInfo> accounts;
    for (const auto &entry : Internal::LockedDeviceState().accounts) {
        accounts.push_back(entry.second);
    }
    return accounts;
}

void SetOsAccounts(const std::vector<AccountSA::OsAccountInfo> &accounts) {
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    auto &stored = Internal::LockedDeviceState().accounts;
    stored.clear();
    for (const auto &account : accounts) {
        stored[account.GetLocalId()] = account;
    }
}

std::vector<InstalledBundle> InstalledBundles() {
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    return Internal::LockedDeviceState().bundles;
}

void SetInstalledBundles(const std::vector<InstalledBundle> &bundles) {
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    Internal::LockedDeviceState().bundles = bundles;
}

namespace {
bool ArmFault(const std::string &operation, const Internal::Fault &fault) {
    const auto &known = FaultableOperations();
    if (std::find(known.begin(), known.end(), operation) == known.end() || fault.remaining < -1) {
        return false;
    }
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    Internal::LockedDeviceState().faults[operation] = fault;
    return true;
}
}  // namespace

bool InjectFault(const std::string &operation, int32_t code, int count) {
    return ArmFault(operation, {code, count, false});
}

bool InjectOutOfMemory(const std::string &operation, int count) {
    return ArmFault(operation, {0, count, true});
}

std::vector<InjectedFault> InjectedFaults() {
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    std::vector<InjectedFault> faults;
    for (const auto &[operation, fault] : Internal::LockedDeviceState().faults) {
        faults.push_back({operation, fault.code, fault.remaining, fault.outOfMemory});
    }
    return faults;
}

void ClearFaults() {
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    Internal::LockedDeviceState().faults.clear();
}

int CallCount(const std::string &operation) {
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    const auto &calls = Internal::LockedDeviceState().calls;
    auto found = calls.find(operation);
    return found == calls.end() ? 0 : found->second;
}

std::string DeviceStateToJson() {
    std::lock_guard<std::mutex> lock(Internal::DeviceStateMutex());
    const DeviceState &state = Internal::LockedDeviceState();
    json accounts = json::array();
    for (const auto &entry : state.accounts) {
        accounts.push_back(AccountToJson(entry.second));
    }
    json bundles = json::array();
    for (const auto &bundle : state.bundles) {
        bundles.push_back({{"name", bundle.name}, {"appId", bundle.appId}, {"userIds", bundle.userIds}});
    }
    return json{{"osAccounts", accounts}, {"bundles", bundles}}.dump(2, ' ', false,
                                                                     json::error_handler_t::replace);
}

}  // namespace Zarvo::Host
