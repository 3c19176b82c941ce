#ifndef ZARVO_BUNDLE_MGR_PROXY_H
#define ZARVO_BUNDLE_MGR_PROXY_H

#include <cstdint>
#include <string>

#include "bundle_info.h"
#include "iremote_broker.h"
#include "iremote_object.h"

namespace Zarvo {
namespace AppExecFwk {

// Results of the bundle manager besides ERR_OK.
constexpr int32_t ERR_OK = 0;
constexpr int32_t ERR_BUNDLE_MANAGER_INVALID_PARAMETER = 8521220;
constexpr int32_t ERR_BUNDLE_MANAGER_BUNDLE_NOT_EXIST = 8521221;
constexpr int32_t ERR_BUNDLE_MANAGER_INVALID_USER_ID = 8521222;
constexpr int32_t ERR_BUNDLE_MANAGER_INTERNAL_ERROR = 8521223;

// The bundle manager service, as reached through system ability 401.
class BundleMgrProxy : public IRemoteBroker {
public:
    explicit BundleMgrProxy(const sptr<IRemoteObject> &impl);
    static const std::u16string &GetDescriptor();
    sptr<IRemoteObject> AsObject() override { return remote_; }

    // Fills bundleInfo for the bundle installed for userId. ERR_OK, or
    // ERR_BUNDLE_MANAGER_BUNDLE_NOT_EXIST when it is not installed for that user, or
    // ERR_BUNDLE_MANAGER_INVALID_USER_ID when the user does not exist.
    int32_t GetBundleInfo(const std::string &bundleName, int32_t flags, BundleInfo &bundleInfo,
                          int32_t userId);

private:
    sptr<IRemoteObject> remote_;
};

}  // namespace AppExecFwk
}  // namespace Zarvo

#endif  // ZARVO_BUNDLE_MGR_PROXY_H
