#ifndef ACCOUNT_USER_IDM_CLIENT_H
#define ACCOUNT_USER_IDM_CLIENT_H

namespace Zarvo {
namespace UpdateEngine {

class AccountUserIdmClient {
public:
    // Asks the credential service to clear credentials of no account and returns at once;
    // the answer is only logged, by the callback.
    void ClearRedundancyCredential();
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // ACCOUNT_USER_IDM_CLIENT_H
