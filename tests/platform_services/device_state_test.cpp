#include "platform_control/device_state.h"

#include <gtest/gtest.h>

#include <fstream>

#include "os_account_manager.h"

namespace {

using namespace Zarvo;

class DeviceStateTest : public testing::Test {
protected:
    void SetUp() override { Host::ResetToTypicalDevice(); }
};

TEST_F(DeviceStateTest, LoadsAccountsBundlesAndFaultsAndIgnoresTheMigrateService) {
    const std::string path = "/data/device_state.json";
    std::ofstream(path) << R"({
      "osAccounts": [{"localId": 101, "type": "GUEST"}, {"localId": 100, "type": 0, "isActived": true}],
      "bundles": [{"name": "com.corvan.zmx.corvanid", "appId": 10050, "userIds": [101]}],
      "faults": [{"operation": "QueryOsAccountById", "code": 77, "count": 1},
                 {"operation": "QueryAllCreatedOsAccounts", "outOfMemory": true, "count": 1}],
      "migrateService": {"anything": ["the service reads this part"]}
    })";
    std::string error;
    ASSERT_TRUE(Host::LoadDeviceState(path, error)) << error;
    auto accounts = Host::OsAccounts();
    ASSERT_EQ(accounts.size(), 2u);
    EXPECT_TRUE(accounts[0].GetIsActived());
    EXPECT_EQ(accounts[1].GetType(), AccountSA::OsAccountType::GUEST);
    ASSERT_EQ(Host::InstalledBundles().size(), 1u);
    EXPECT_EQ(Host::InstalledBundles()[0].appId, 10050);
    AccountSA::OsAccountInfo info;
    EXPECT_EQ(AccountSA::OsAccountManager::QueryOsAccountById(100, info), 77);
    EXPECT_EQ(AccountSA::OsAccountManager::QueryOsAccountById(100, info), AccountSA::ERR_OK);
    std::vector<AccountSA::OsAccountInfo> all;
    EXPECT_THROW(AccountSA::OsAccountManager::QueryAllCreatedOsAccounts(all), std::bad_alloc);
    EXPECT_EQ(AccountSA::OsAccountManager::QueryAllCreatedOsAccounts(all), AccountSA::ERR_OK);
}

TEST_F(DeviceStateTest, LeftOutSectionsKeepTheTypicalDeviceAndTheWrittenStateLoadsBack) {
    std::string error;
    ASSERT_TRUE(Host::LoadDeviceStateFromText(R"({"faults": []})", error)) << error;
    ASSERT_EQ(Host::OsAccounts().size(), 1u);
    EXPECT_EQ(Host::OsAccounts()[0].GetLocalId(), 100);
    EXPECT_EQ(Host::InstalledBundles().size(), 1u);

    AccountSA::OsAccountInfo guest(104, "guest", AccountSA::OsAccountType::GUEST, 9);
    guest.SetPhoto("data:image/png;base64,AA==");
    ASSERT_EQ(AccountSA::OsAccountManager::CreateOsAccountWithFullInfo(guest), AccountSA::ERR_OK);
    std::string written = Host::DeviceStateToJson();
    ASSERT_TRUE(Host::LoadDeviceStateFromText(R"({"osAccounts": [], "bundles": []})", error)) << error;
    EXPECT_TRUE(Host::OsAccounts().empty());
    EXPECT_TRUE(Host::InstalledBundles().empty());
    ASSERT_TRUE(Host::LoadDeviceStateFromText(written, error)) << error;
    EXPECT_EQ(Host::DeviceStateToJson(), written);
    ASSERT_EQ(Host::OsAccounts().size(), 2u);
    EXPECT_EQ(Host::OsAccounts()[1].GetPhoto(), "data:image/png;base64,AA==");
    EXPECT_EQ(Host::OsAccounts()[1].GetType(), AccountSA::OsAccountType::GUEST);
}

TEST_F(DeviceStateTest, BadFilesAreRefusedWithOneSentenceAndChangeNothing) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"{", "not valid JSON"},
        {R"({"osAccounts": [{"localId": 1e400}]})", "not valid JSON"},
        {"[]", "must be a JSON object"},
        {R"({"accounts": []})", "unknown key \"accounts\""},
        {R"({"osAccounts": {}})", "\"osAccounts\" must be an array"},
        {R"({"osAccounts": [{"localName": "x"}]})", "osAccounts[0] has no \"localId\""},
        {R"({"osAccounts": [{"localId": "100"}]})", "\"localId\" of the wrong type"},
        {R"({"osAccounts": [{"localId": 4294967396}]})", "out of range"},
        {R"({"osAccounts": [{"localId": 100}, {"localId": 100}]})", "repeats the localId 100"},
        {R"({"osAccounts": [{"localId": 100, "type": "OWNER"}]})", "unknown type \"OWNER\""},
        {R"({"osAccounts": [{"localId": 100, "type": 7}]})", "neither a known name"},
        {R"({"osAccounts": [{"localId": 100, "isActive": true}]})", "unknown key \"isActive\""},
        {R"({"bundles": [{"name": "a", "appId": 200000, "userIds": [100]}]})", "\"appId\" from 0 to 199999"},
        {R"({"bundles": [{"name": "a", "appId": 1}]})", "\"userIds\" array"},
        {R"({"faults": [{"operation": "Reboot", "code": 1}]})", "cannot fail: \"Reboot\""},
        {R"({"faults": [{"operation": "GetRdbStore", "count": -3}]})", "\"count\" below -1"},
        {R"({"faults": [{"operation": "GetRdbStore", "outOfMemory": 1}]})",
         "\"outOfMemory\" of the wrong type"},
    };
    for (const auto &[text, fragment] : cases) {
        std::string error;
        EXPECT_FALSE(Host::LoadDeviceStateFromText(text, error)) << text;
        EXPECT_NE(error.find(fragment), std::string::npos) << text << " -> " << error;
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
        EXPECT_EQ(error.back(), '.') << error;
        ASSERT_EQ(Host::OsAccounts().size(), 1u);
        EXPECT_EQ(Host::OsAccounts()[0].GetLocalName(), "admin");
    }
    EXPECT_FALSE(Host::InjectFault("DeleteOsAccount", 1, 1));
    EXPECT_FALSE(Host::InjectFault("GetRdbStore", 1, -2));
    std::string error;
    EXPECT_FALSE(Host::LoadDeviceState("/data/no_such_state.json", error));
    EXPECT_EQ(error, "The device state file /data/no_such_state.json cannot be read.");
}

}  // namespace
