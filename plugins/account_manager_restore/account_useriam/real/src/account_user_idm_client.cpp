#include "account_user_idm_client.h"

#include <memory>

#include "account_user_idm_client_callback.h"
#include "user_idm_client.h"

namespace Zarvo {
namespace UpdateEngine {

void AccountUserIdmClient::ClearRedundancyCredential() {
    auto callback = std::make_shared<AccountUserIdmClientCallback>();
    UserIam::UserAuth::UserIdmClient::GetInstance().ClearRedundancyCredential(callback);
}

}  // namespace UpdateEngine
}  // namespace Zarvo
