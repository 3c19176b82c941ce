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

sptr<BundleMgrProxy> BundleManager() {
    auto samgr = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    if (samgr == nullptr) {
        return nullptr;
    }
    return iface_cast<BundleMgrProxy>(samgr->GetSystemAbility(BUNDLE_MGR_SERVICE_SYS_ABILITY_ID));
}

class BundleManagerTest : public testing::Test {
protected:
    void SetUp() override { Host::ResetToTypicalDevice(); }
};

TEST_F(BundleManagerTest, TheAccountAppIsInstalledForTheAdministrator) {
    auto bundleMgr = BundleManager();
    ASSERT_NE(bundleMgr, nullptr);
    BundleInfo info;
    ASSERT_EQ(bundleMgr->GetBundleInfo("com.corvan.zmx.corvanid", 1, info, 100), AppExecFwk::ERR_OK);
    EXPECT_EQ(info.name, "com.corvan.zmx.corvanid");
    EXPECT_EQ(info.uid, 100 * 200000 + Host::ACCOUNT_APP_ID);
    EXPECT_EQ(info.gid, info.uid);
}

TEST_F(BundleManagerTest, UidsFollowTheUserAndMissingInstallsFail) {
    AccountSA::OsAccountInfo second(101, "second", AccountSA::OsAccountType::NORMAL, 2);
    ASSERT_EQ(AccountSA::OsAccountManager::CreateOsAccountWithFullInfo(second), AccountSA::ERR_OK);
    auto bundleMgr = BundleManager();
    ASSERT_NE(bundleMgr, nullptr);
    BundleInfo info;
    EXPECT_EQ(bundleMgr->GetBundleInfo("com.corvan.zmx.corvanid", 1, info, 101),
              AppExecFwk::ERR_BUNDLE_MANAGER_BUNDLE_NOT_EXIST);
    EXPECT_EQ(info.uid, -1);
    EXPECT_EQ(info.gid, -1);

    Host::SetInstalledBundles(
        {{"com.corvan.zmx.corvanid", 10040, {100, 101}}, {"com.example.notes", 10077, {101}}});
    ASSERT_EQ(bundleMgr->GetBundleInfo("com.corvan.zmx.corvanid", 1, info, 101), AppExecFwk::ERR_OK);
    EXPECT_EQ(info.uid, 20210040);
    ASSERT_EQ(bundleMgr->GetBundleInfo("com.example.notes", 0, info, 101), AppExecFwk::ERR_OK);
    EXPECT_EQ(info.uid, 20210077);
    EXPECT_EQ(bundleMgr->GetBundleInfo("com.example.notes", 0, info, 100),
              AppExecFwk::ERR_BUNDLE_MANAGER_BUNDLE_NOT_EXIST);
    EXPECT_EQ(bundleMgr->GetBundleInfo("com.corvan.zmx.corvanid", 1, info, 102),
              AppExecFwk::ERR_BUNDLE_MANAGER_INVALID_USER_ID);
    EXPECT_EQ(bundleMgr->GetBundleInfo("", 1, info, 100), AppExecFwk::ERR_BUNDLE_MANAGER_INVALID_PARAMETER);
}

TEST_F(BundleManagerTest, OnlyTheBundleManagerRunsAndOnlyItsProxyFitsIt) {
    auto samgr = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    ASSERT_NE(samgr, nullptr);
    EXPECT_EQ(samgr->GetSystemAbility(402), nullptr);
    EXPECT_EQ(iface_cast<BundleMgrProxy>(nullptr), nullptr);
    auto stranger = std::make_shared<IRemoteObject>(u"Zarvo.Other.Service");
    EXPECT_EQ(iface_cast<BundleMgrProxy>(stranger), nullptr);
    auto remote = samgr->GetSystemAbility(BUNDLE_MGR_SERVICE_SYS_ABILITY_ID);
    auto proxy = iface_cast<BundleMgrProxy>(remote);
    ASSERT_NE(proxy, nullptr);
    EXPECT_EQ(proxy->AsObject(), remote);
}

TEST_F(BundleManagerTest, InjectedFaultsMakeTheServicesUnreachable) {
    ASSERT_TRUE(Host::InjectFault("GetSystemAbilityManager", 0, 1));
    EXPECT_EQ(SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager(), nullptr);
    auto samgr = SystemAbilityManagerClient::GetInstance().GetSystemAbilityManager();
    ASSERT_NE(samgr, nullptr);
    ASSERT_TRUE(Host::InjectFault("GetSystemAbility", 0, 1));
    EXPECT_EQ(samgr->GetSystemAbility(BUNDLE_MGR_SERVICE_SYS_ABILITY_ID), nullptr);
    ASSERT_TRUE(Host::InjectFault("GetBundleInfo", 8521299, 1));
    auto bundleMgr = BundleManager();
    ASSERT_NE(bundleMgr, nullptr);
    BundleInfo info;
    EXPECT_EQ(bundleMgr->GetBundleInfo("com.corvan.zmx.corvanid", 1, info, 100), 8521299);
    EXPECT_EQ(bundleMgr->GetBundleInfo("com.corvan.zmx.corvanid", 1, info, 100), AppExecFwk::ERR_OK);
}

}  // namespace
