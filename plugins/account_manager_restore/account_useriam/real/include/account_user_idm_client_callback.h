#ifndef ACCOUNT_USER_IDM_CLIENT_CALLBACK_H
#define ACCOUNT_USER_IDM_CLIENT_CALLBACK_H

#include <cstdint>

#include "user_idm_client.h"

namespace Zarvo {
namespace UpdateEngine {

// Logs what the credential service reports; may run on any thread and touches no state.
class AccountUserIdmClientCallback : public UserIam::UserAuth::UserIdmClientCallback {
public:
    void OnAcquireInfo(int32_t module, uint32_t acquireInfo,
                       const UserIam::UserAuth::Attributes &extraInfo) override;
    void OnResult(int32_t result, const UserIam::UserAuth::Attributes &extraInfo) override;
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // ACCOUNT_USER_IDM_CLIENT_CALLBACK_H
