#include "bundle_mgr_proxy.h"

#include <algorithm>

#include "device_state_store.h"

namespace Zarvo::AppExecFwk {
namespace {

// Known to the broker registration from the moment the library is loaded.
[[maybe_unused]] const bool PROXY_REGISTERED = BrokerRegistration::Get().Register(
    BundleMgrProxy::GetDescriptor(), [](const sptr<IRemoteObject> &object) -> sptr<IRemoteBroker> {
        return std::make_shared<BundleMgrProxy>(object);
    });

}  // namespace

BundleMgrProxy::BundleMgrProxy(const sptr<IRemoteObject> &impl) : remote_(impl) {}

const std::u16string &BundleMgrProxy::GetDescriptor() {
    static const std::u16string descriptor = u"Zarvo.AppExecFwk.BundleMgr";
    return descriptor;
}

int32_t BundleMgrProxy::GetBundleInfo(const std::string &bundleName, int32_t, BundleInfo &bundleInfo,
                                      int32_t userId) {
    int32_t fault = ERR_OK;
    if (Host::Internal::TakeFault("GetBundleInfo", fault)) {
        return fault;
    }
    if (remote_ == nullptr || bundleName.empty()) {
        return ERR_BUNDLE_MANAGER_INVALID_PARAMETER;
    }
    std::lock_guard<std::mutex> lock(Host::Internal::DeviceStateMutex());
    const Host::Internal::DeviceState &state = Host::Internal::LockedDeviceState();
    if (userId < 0 || state.accounts.count(userId) == 0) {
        return ERR_BUNDLE_MANAGER_INVALID_USER_ID;
    }
    for (const auto &bundle : state.bundles) {
        if (bundle.name != bundleName ||
            std::find(bundle.userIds.begin(), bundle.userIds.end(), userId) == bundle.userIds.end()) {
            continue;
        }
        bundleInfo.name = bundle.name;
        bundleInfo.userId = userId;
        bundleInfo.appId = bundle.appId;
        bundleInfo.uid = userId * Host::BUNDLE_UID_RANGE + bundle.appId;
        bundleInfo.gid = bundleInfo.uid;
        return ERR_OK;
    }
    return ERR_BUNDLE_MANAGER_BUNDLE_NOT_EXIST;
}

}  // namespace Zarvo::AppExecFwk
