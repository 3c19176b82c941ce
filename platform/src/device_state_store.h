#ifndef ZARVO_PLATFORM_DEVICE_STATE_STORE_H
#define ZARVO_PLATFORM_DEVICE_STATE_STORE_H

// The device state shared by the platform's services, behind one lock.

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "os_account_info.h"
#include "platform_control/device_state.h"

namespace Zarvo::Host::Internal {

struct Fault {
    int32_t code = 0;
    int remaining = 0;  // -1: every call
    bool outOfMemory = false;
};

struct DeviceState {
    std::map<int, AccountSA::OsAccountInfo> accounts;
    std::vector<InstalledBundle> bundles;
    std::map<std::string, Fault> faults;
    std::map<std::string, int> calls;
};

std::mutex &DeviceStateMutex();
// The state; hold DeviceStateMutex() while using it.
DeviceState &LockedDeviceState();

// Counts one call of operation; when a fault is armed for it, consumes one and returns true with
// its code, or throws std::bad_alloc for an out-of-memory fault.
bool TakeFault(const std::string &operation, int32_t &code);

}  // namespace Zarvo::Host::Internal

#endif  // ZARVO_PLATFORM_DEVICE_STATE_STORE_H
