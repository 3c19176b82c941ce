#include <gtest/gtest.h>

#include "bundle_mgr_proxy.h"
#include "iremote_broker.h"
#include "iservice_registry.h"
#include "os_account_manager.h"
#include "platform_control/device_state.h"
#include "system_ability_definition.h"

namespace {

using namespace Zarvo;
using AppExecFwk::BundleInfo;
using AppExecFwk::BundleMgrProxy;

class BundleManagerTest : public testing::Test {
protected:
    void SetUp() override {
        Host::ResetToTypicalDevice();
        samgr_ = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
        ASSERT_NE(samgr_, nullptr);
    }

    sptr<ISystemAbilityManager> samgr_;
};

TEST_F(BundleManagerTest, UidsFollowTheUserAndMissingInstallsFail) {
    AccountSA::OsAccountInfo second(101, "second", AccountSA::OsAccountType::NORMAL, 2);
    ASSERT_EQ(AccountSA::OsAccountManager::CreateOsAccountWithFullInfo(second), AccountSA::ERR_OK);
    auto bundleMgr = iface_cast<BundleMgrProxy>(samgr_->GetSystemAbility(BUNDLE_MGR_SERVICE_SYS_ABILITY_ID));
    ASSERT_NE(bundleMgr, nullptr);
    BundleInfo info;
    // The typical device has the account app for the administrator only.
    ASSERT_EQ(bundleMgr->GetBundleInfo("com.corvan.zmx.corvanid", 1, info, 100), AppExecFwk::ERR_OK);
    EXPECT_EQ(info.name, "com.corvan.zmx.corvanid");
    EXPECT_EQ(info.uid, 100 * 200000 + Host::ACCOUNT_APP_ID);
    EXPECT_EQ(info.gid, info.uid);
    BundleInfo notFilled;
    EXPECT_EQ(bundleMgr->GetBundleInfo("com.corvan.zmx.corvanid", 1, notFilled, 101),
              AppExecFwk::ERR_BUNDLE_MANAGER_BUNDLE_NOT_EXIST);
    EXPECT_EQ(notFilled.uid, -1);
    EXPECT_EQ(notFilled.gid, -1);

    Host::SetInstalledBundles(
        {{"com.corvan.zmx.corvanid", 10040, {100, 101}}, {"com.example.notes", 10077, {101}}});
    const std::vector<std::tuple<std::string, int, int32_t, int32_t>> cases = {
        {"com.corvan.zmx.corvanid", 101, AppExecFwk::ERR_OK, 20210040},
        {"com.example.notes", 101, AppExecFwk::ERR_OK, 20210077},
        {"com.example.notes", 100, AppExecFwk::ERR_BUNDLE_MANAGER_BUNDLE_NOT_EXIST, -1},
        {"com.corvan.zmx.corvanid", 102, AppExecFwk::ERR_BUNDLE_MANAGER_INVALID_USER_ID, -1},
        {"", 100, AppExecFwk::ERR_BUNDLE_MANAGER_INVALID_PARAMETER, -1},
    };
    for (const auto &[name, user, code, uid] : cases) {
        BundleInfo found;
        EXPECT_EQ(bundleMgr->GetBundleInfo(name, 1, found, user), code) << name << " " << user;
        EXPECT_EQ(found.uid, uid) << name << " " << user;
    }
}

}  // namespace
