#include "account_user_idm_client_callback.h"

#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {

void AccountUserIdmClientCallback::OnAcquireInfo(int32_t module, uint32_t acquireInfo,
                                                 const UserIam::UserAuth::Attributes &extraInfo) {
    (void)module;
    (void)acquireInfo;
    (void)extraInfo;
    PLUGIN_LOGI("OnAcquireInfo called.");
}

void AccountUserIdmClientCallback::OnResult(int32_t result, const UserIam::UserAuth::Attributes &extraInfo) {
    (void)extraInfo;
    PLUGIN_LOGI("OnResult result is %{public}d.", result);
}

}  // namespace UpdateEngine
}  // namespace Zarvo
