#include "iservice_registry.h"

#include "bundle_mgr_proxy.h"
#include "device_state_store.h"
#include "system_ability_definition.h"

namespace Zarvo {
namespace {

// The host's registry: the system abilities that run on the device the platform plays.
class HostSystemAbilityManager : public ISystemAbilityManager {
public:
    sptr<IRemoteObject> GetSystemAbility(int32_t systemAbilityId) override {
        int32_t code = 0;
        if (Host::Internal::TakeFault("GetSystemAbility", code)) {
            return nullptr;
        }
        return CheckSystemAbility(systemAbilityId);
    }

    sptr<IRemoteObject> CheckSystemAbility(int32_t systemAbilityId) override {
        if (systemAbilityId == BUNDLE_MGR_SERVICE_SYS_ABILITY_ID) {
            static const sptr<IRemoteObject> bundleManager =
                std::make_shared<IRemoteObject>(AppExecFwk::BundleMgrProxy::GetDescriptor());
            return bundleManager;
        }
        return nullptr;
    }
};

}  // namespace

SystemAbilityManagerClient &SystemAbilityManagerClient::GetInstance() {
    static SystemAbilityManagerClient client;
    return client;
}

sptr<ISystemAbilityManager> SystemAbilityManagerClient::GetSystemAbilityManager() {
    int32_t code = 0;
    if (Host::Internal::TakeFault("GetSystemAbilityManager", code)) {
        return nullptr;
    }
    static const sptr<ISystemAbilityManager> manager = std::make_shared<HostSystemAbilityManager>();
    return manager;
}

}  // namespace Zarvo
