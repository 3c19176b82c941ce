#ifndef ZARVO_ISERVICE_REGISTRY_H
#define ZARVO_ISERVICE_REGISTRY_H

#include <cstdint>

#include "iremote_object.h"
#include "refbase.h"

namespace Zarvo {

// The registry of the device's system abilities (services), by ability id.
class ISystemAbilityManager {
public:
    virtual ~ISystemAbilityManager() = default;
    // The ability's remote object, or null when no ability of that id runs.
    virtual sptr<IRemoteObject> GetSystemAbility(int32_t systemAbilityId) = 0;
    virtual sptr<IRemoteObject> CheckSystemAbility(int32_t systemAbilityId) = 0;
};

class SystemAbilityManagerClient {
public:
    static SystemAbilityManagerClient &GetInstance();
    // The system ability manager, or null when it cannot be reached.
    sptr<ISystemAbilityManager> GetSystemAbilityManager();

private:
    SystemAbilityManagerClient() = default;
};

}  // namespace Zarvo

#endif  // ZARVO_ISERVICE_REGISTRY_H
