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
        info.SetPhoto("data:image/png;base64,iVBORw0KGgo=");
        return info;
    }
};

TEST_F(OsAccountManagerTest, CreatedAccountsAreStoredInactiveAndListedById) {
    OsAccountInfo guest = NewAccount(105, OsAccountType::GUEST);
    guest.SetIsActived(true);
    ASSERT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(guest), ERR_OK);
    OsAccountInfo normal = NewAccount(101);
    ASSERT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(normal), ERR_OK);
    OsAccountInfo stored;
    ASSERT_EQ(OsAccountManager::QueryOsAccountById(105, stored), ERR_OK);
    EXPECT_EQ(stored.GetType(), OsAccountType::GUEST);
    EXPECT_EQ(stored.GetPhoto(), "data:image/png;base64,iVBORw0KGgo=");
    EXPECT_TRUE(stored.GetIsCreateCompleted());
    EXPECT_FALSE(stored.GetIsActived());
    std::vector<OsAccountInfo> accounts;
    ASSERT_EQ(OsAccountManager::QueryAllCreatedOsAccounts(accounts), ERR_OK);
    std::vector<int> ids;
    for (const auto &account : accounts) {
        ids.push_back(account.GetLocalId());
    }
    EXPECT_EQ(ids, (std::vector<int>{100, 101, 105}));
    EXPECT_TRUE(accounts[0].GetIsActived());
}

TEST_F(OsAccountManagerTest, InvalidRequestsFailWithDistinctCodesAndChangeNothing) {
    OsAccountInfo longName = NewAccount(102);
    longName.SetLocalName(std::string(LOCAL_NAME_MAX_SIZE + 1, 'x'));
    const std::vector<std::pair<OsAccountInfo, ErrCode>> creations = {
        {NewAccount(100), ERR_OSACCOUNT_ALREADY_EXISTS},
        {NewAccount(0), ERR_OSACCOUNT_INVALID_PARAMETER},
        {NewAccount(102, static_cast<OsAccountType>(3)), ERR_OSACCOUNT_INVALID_TYPE},
        {NewAccount(102, OsAccountType::END), ERR_OSACCOUNT_INVALID_TYPE},
        {longName, ERR_OSACCOUNT_INVALID_PARAMETER},
    };
    for (auto [info, code] : creations) {
        EXPECT_EQ(OsAccountManager::CreateOsAccountWithFullInfo(info), code) << info.GetLocalId();
    }
    OsAccountInfo missing = NewAccount(130);
    EXPECT_EQ(OsAccountManager::UpdateOsAccountWithFullInfo(missing), ERR_OSACCOUNT_NOT_FOUND);
    OsAccountInfo badType = NewAccount(100, static_cast<OsAccountType>(-1));
    EXPECT_EQ(OsAccountManager::UpdateOsAccountWithFullInfo(badType), ERR_OSACCOUNT_INVALID_TYPE);
    OsAccountInfo found;
    EXPECT_EQ(OsAccountManager::QueryOsAccountById(130, found), ERR_OSACCOUNT_NOT_FOUND);
    EXPECT_EQ(OsAccountManager::QueryOsAccountById(-1, found), ERR_OSACCOUNT_INVALID_PARAMETER);
    ASSERT_EQ(Zarvo::Host::OsAccounts().size(), 1u);
    EXPECT_EQ(Zarvo::Host::OsAccounts()[0].GetLocalName(), "admin");
}

TEST_F(OsAccountManagerTest, UpdateReplacesDetailsButKeepsTheStateFlags) {
    OsAccountInfo update(100, "Li Wei", OsAccountType::ADMIN, 77);
    update.SetLastLoginTime(1690000000000);
    ASSERT_EQ(OsAccountManager::UpdateOsAccountWithFullInfo(update), ERR_OK);
    OsAccountInfo stored;
    ASSERT_EQ(OsAccountManager::QueryOsAccountById(100, stored), ERR_OK);
    EXPECT_EQ(stored.GetLocalName(), "Li Wei");
    EXPECT_EQ(stored.GetSerialNumber(), 77);
    EXPECT_EQ(stored.GetLastLoginTime(), 1690000000000);
    EXPECT_TRUE(stored.GetIsActived());
    EXPECT_TRUE(stored.GetIsVerified());
}

}  // namespace
