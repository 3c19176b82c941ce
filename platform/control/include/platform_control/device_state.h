#ifndef ZARVO_PLATFORM_CONTROL_DEVICE_STATE_H
#define ZARVO_PLATFORM_CONTROL_DEVICE_STATE_H

// Host control of the device the platform plays: OS accounts, installed bundles and injected
// faults. Tests and the runner use it; the plug-in never includes this header.

#include <cstdint>
#include <string>
#include <vector>

#include "os_account_info.h"

namespace Zarvo::Host {

// A bundle installed for some users. Its uid for user U is U * 200000 + appId; gid equals uid.
struct InstalledBundle {
    std::string name;
    int32_t appId = 0;
    std::vector<int32_t> userIds;
};

// Platform operations that can be made to fail. A failing call of an operation that returns a
// code returns the injected code; one that returns a reference returns null. HiSysEventWrite is
// the system event writer: a failing write returns the code and records nothing.
inline const std::vector<std::string> &FaultableOperations() {
    static const std::vector<std::string> operations = {
        "HiSysEventWrite",
        "QueryAllCreatedOsAccounts",
        "QueryOsAccountById",
        "CreateOsAccountWithFullInfo",
        "UpdateOsAccountWithFullInfo",
        "GetRdbStore",
        "GetSystemAbilityManager",
        "GetSystemAbility",
        "GetBundleInfo",
    };
    return operations;
}

constexpr int32_t BUNDLE_UID_RANGE = 200000;
constexpr char ACCOUNT_APP_BUNDLE_NAME[] = "com.corvan.zmx.corvanid";
constexpr int32_t ACCOUNT_APP_ID = 10040;

// Replaces the whole device state with the one described by a JSON file (see docs/device-state.md).
// On failure the state is unchanged and `error` holds one sentence saying what is wrong.
bool LoadDeviceState(const std::string &path, std::string &error);
bool LoadDeviceStateFromText(const std::string &jsonText, std::string &error);

// A typical fresh device: user 100, administrator, active; the account app installed for user 100;
// no faults. This is also the state before anything is loaded.
void ResetToTypicalDevice();
// No accounts, no bundles, no faults.
void ClearDeviceState();

// The accounts as stored, by ascending local id; and replacing them wholesale.
std::vector<AccountSA::OsAccountInfo> OsAccounts();
void SetOsAccounts(const std::vector<AccountSA::OsAccountInfo> &accounts);

std::vector<InstalledBundle> InstalledBundles();
void SetInstalledBundles(const std::vector<InstalledBundle> &bundles);

// Makes the next `count` calls of `operation` fail with `code` (count -1: every call until cleared).
// Returns false for an operation not listed by FaultableOperations() or a count below -1.
bool InjectFault(const std::string &operation, int32_t code, int count = -1);
// Makes the next `count` calls of `operation` run out of memory: they throw std::bad_alloc, as
// any platform call may on a device. Same rules as InjectFault.
bool InjectOutOfMemory(const std::string &operation, int count = -1);
void ClearFaults();
// A fault still armed: `count` calls left (-1: every call), by operation name.
struct InjectedFault {
    std::string operation;
    int32_t code = 0;
    int count = -1;
    bool outOfMemory = false;
};
std::vector<InjectedFault> InjectedFaults();
// How many times `operation` was called since the state was last reset or loaded.
int CallCount(const std::string &operation);

// The current state in the file format of LoadDeviceState (faults and call counts left out).
std::string DeviceStateToJson();

}  // namespace Zarvo::Host

#endif  // ZARVO_PLATFORM_CONTROL_DEVICE_STATE_H
