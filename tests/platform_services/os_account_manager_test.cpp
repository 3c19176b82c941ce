#include "os_account_manager.h"

#include <gtest/gtest.h>

#include "platform_control/device_state.h"

namespace {

using namespace Zarvo::AccountSA;

class OsAccountManagerTest : public testing::Test {
protected:
    void SetUp() override { Zarvo::Host::ResetToTypicalDevice(); }

    static OsAccountInfo NewAccount(int id, OsAccountType type = OsAccountType::NORMAL) {
        OsAccountInfo info(id, "user " + std::to_string(id), type, 2000 + id);
        info.SetCreateTime(1600000000000);
        info.SetPhoto("data:image/png;base64,iVBORw0KGgo=");
        return info;
    }
};

TEST_F(OsAccountManagerTest, ATypicalDeviceHasItsActiveAdministrator) {
    std::vector<OsAccountInfo> accounts;
    ASSERT_EQ(OsAccountManager::QueryAllCreatedOsAccounts(accounts), ERR_OK);
    ASSERT_EQ(accounts.size(), 1u);
    EXPECT_EQ(accounts[0].GetLocalId(), 100);
    EXPECT_EQ(accounts[0].GetType(), OsAccountType::ADMIN);
    EXPECT_TRUE(accounts[0].GetIsActived());
}

TEST_F(OsAccountManagerTest, CreatedAccountsAreStoredWithEveryFieldAndListedById) {
    OsAccountInfo guest = NewAccount(105, OsAccountType::GUEST);
    guest.SetIsActived(true);
    ASSERT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(guest), ERR_OK);
    OsAccountInfo normal = NewAccount(101);
    ASSERT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(normal), ERR_OK);

    OsAccountInfo stored;
    ASSERT_EQ(OsAccountManager::QueryOsAccountById(105, stored), ERR_OK);
    EXPECT_EQ(stored.GetLocalName(), "user 105");
    EXPECT_EQ(stored.GetType(), OsAccountType::GUEST);
    EXPECT_EQ(stored.GetSerialNumber(), 2105);
    EXPECT_EQ(stored.GetCreateTime(), 1600000000000);
    EXPECT_EQ(stored.GetPhoto(), "data:image/png;base64,iVBORw0KGgo=");
    EXPECT_TRUE(stored.GetIsCreateCompleted());
    // A new account does not become the active one.
    EXPECT_FALSE(stored.GetIsActived());

    std::vector<OsAccountInfo> accounts;
    ASSERT_EQ(OsAccountManager::QueryAllCreatedOsAccounts(accounts), ERR_OK);
    ASSERT_EQ(accounts.size(), 3u);
    EXPECT_EQ(accounts[0].GetLocalId(), 100);
    EXPECT_EQ(accounts[1].GetLocalId(), 101);
    EXPECT_EQ(accounts[2].GetLocalId(), 105);
}

TEST_F(OsAccountManagerTest, InvalidRequestsFailWithDistinctCodesAndChangeNothing) {
    OsAccountInfo duplicate = NewAccount(100);
    EXPECT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(duplicate), ERR_OSACCOUNT_ALREADY_EXISTS);
    OsAccountInfo system = NewAccount(0);
    EXPECT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(system), ERR_OSACCOUNT_INVALID_PARAMETER);
    OsAccountInfo badType = NewAccount(102, static_cast<OsAccountType>(3));
    EXPECT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(badType), ERR_OSACCOUNT_INVALID_TYPE);
    OsAccountInfo endType = NewAccount(102, OsAccountType::END);
    EXPECT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(endType), ERR_OSACCOUNT_INVALID_TYPE);
    OsAccountInfo longName = NewAccount(102);
    longName.SetLocalName(std::string(LOCAL_NAME_MAX_SIZE + 1, 'x'));
    EXPECT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(longName), ERR_OSACCOUNT_INVALID_PARAMETER);
    OsAccountInfo missing = NewAccount(130);
    EXPECT_EQ(OsAccountManager::UpdateOsAccountWithFullInfo(missing), ERR_OSACCOUNT_NOT_FOUND);
    OsAccountInfo found;
    EXPECT_EQ(OsAccountManager::QueryOsAccountById(130, found), ERR_OSACCOUNT_NOT_FOUND);
    EXPECT_EQ(OsAccountManager::QueryOsAccountById(-1, found), ERR_OSACCOUNT_INVALID_PARAMETER);

    std::vector<OsAccountInfo> accounts;
    OsAccountManager::QueryAllCreatedOsAccounts(accounts);
    EXPECT_EQ(accounts.size(), 1u);
    EXPECT_EQ(accounts[0].GetLocalName(), "admin");
}

TEST_F(OsAccountManagerTest, UpdateReplacesDetailsButKeepsTheStateFlags) {
    OsAccountInfo update(100, "Li Wei", OsAccountType::ADMIN, 77);
    update.SetLastLoginTime(1690000000000);
    update.SetPhoto("data:image/png;base64,AAAA");
    ASSERT_EQ(OsAccountManager::UpdateOsAccountWithFullInfo(update), ERR_OK);
    OsAccountInfo stored;
    ASSERT_EQ(OsAccountManager::QueryOsAccountById(100, stored), ERR_OK);
    EXPECT_EQ(stored.GetLocalName(), "Li Wei");
    EXPECT_EQ(stored.GetSerialNumber(), 77);
    EXPECT_EQ(stored.GetLastLoginTime(), 1690000000000);
    EXPECT_EQ(stored.GetPhoto(), "data:image/png;base64,AAAA");
    EXPECT_TRUE(stored.GetIsActived());
    EXPECT_TRUE(stored.GetIsVerified());

    OsAccountInfo badType = stored;
    badType.SetType(static_cast<OsAccountType>(-1));
    EXPECT_EQ(OsAccountManager::UpdateOsAccountWithFullInfo(badType), ERR_OSACCOUNT_INVALID_TYPE);
}

TEST_F(OsAccountManagerTest, InjectedFaultsFailTheFirstCallsOfOneOperation) {
    ASSERT_TRUE(Zarvo::Host::InjectFault("CreateOsAccountWithFullInfo", 0x1234, 2));
    OsAccountInfo info = NewAccount(101);
    EXPECT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(info), 0x1234);
    EXPECT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(info), 0x1234);
    OsAccountInfo stored;
    EXPECT_EQ(OsAccountManager::QueryOsAccountById(101, stored), ERR_OSACCOUNT_NOT_FOUND);
    EXPECT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(info), ERR_OK);
    EXPECT_EQ(Zarvo::Host::CallCount("CreateOsAccountWithFullInfo"), 3);

    ASSERT_TRUE(Zarvo::Host::InjectFault("QueryAllCreatedOsAccounts", 9));
    std::vector<OsAccountInfo> accounts;
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(OsAccountManager::QueryAllCreatedOsAccounts(accounts), 9);
    }
    Zarvo::Host::ClearFaults();
    EXPECT_EQ(OsAccountManager::QueryAllCreatedOsAccounts(accounts), ERR_OK);

    EXPECT_FALSE(Zarvo::Host::InjectFault("DeleteOsAccount", 1, 1));
    EXPECT_FALSE(Zarvo::Host::InjectFault("QueryOsAccountById", 1, -2));
}

}  // namespace
