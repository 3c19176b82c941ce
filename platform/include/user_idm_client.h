#ifndef ZARVO_USER_IDM_CLIENT_H
#define ZARVO_USER_IDM_CLIENT_H

#include <cstdint>
#include <memory>

#include "user_auth_attributes.h"

namespace Zarvo {
namespace UserIam {
namespace UserAuth {

// Receives the answers of the identity-management service. The service may call it from a
// thread of its own, after the request that carried it has returned.
class UserIdmClientCallback {
public:
    virtual ~UserIdmClientCallback() = default;
    // Progress of a request: the reporting module and what it acquired.
    virtual void OnAcquireInfo(int32_t module, uint32_t acquireInfo, const Attributes &extraInfo) = 0;
    // The final result of a request (0 on success); called once per request.
    virtual void OnResult(int32_t result, const Attributes &extraInfo) = 0;
};

// Client of the user identity-management service.
class UserIdmClient {
public:
    // The process-wide client.
    static UserIdmClient &GetInstance();

    virtual ~UserIdmClient() = default;

    // Asks the service to clear credentials that belong to no OS account. Returns at once;
    // the outcome arrives through the callback, which the service keeps until it has answered.
    virtual void ClearRedundancyCredential(const std::shared_ptr<UserIdmClientCallback> &callback) = 0;
};

}  // namespace UserAuth
}  // namespace UserIam
}  // namespace Zarvo

#endif  // ZARVO_USER_IDM_CLIENT_H
