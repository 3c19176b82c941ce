#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "captured_log.h"
#include "platform_control/credential_control.h"
#include "platform_control/device_state.h"
#include "user_data_manager.h"
#include "user_restore_support.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;
using namespace Zarvo::Fixtures;
using namespace std::chrono_literals;
using Zarvo::AccountSA::OsAccountType;

namespace {

constexpr int ERROR = 6;
constexpr int INFO = 4;

AndroidUser Secondary(int32_t id, int32_t flags, const std::string &name) {
    AndroidUser user;
    user.id = id;
    user.serialNumber = id;
    user.flags = flags;
    user.type = USER_TYPE_SECONDARY;
    user.created = 1669985155155 + id;
    user.lastLoggedIn = 1699990000123 + id;
    user.name = name;
    return user;
}

// The restore with the conversion directory already in place, so that no migrate service is needed.
class UserRestoreFlowTest : public testing::Test {
protected:
    void SetUp() override {
        ResetUserRestoreWorld();
        std::filesystem::create_directories(CONVERT_XML_DIR);
    }

    bool Restore() {
        UserDataManager manager;
        bool result = manager.DoRestoreData();
        EXPECT_TRUE(Zarvo::Host::WaitForCredentialAnswers(1, 5s));
        EXPECT_EQ(Zarvo::Host::CredentialClearRequestCount(), 1u) << "one clean-up per run";
        return result;
    }

    static std::vector<int> AccountIds() {
        std::vector<int> ids;
        for (const auto &account : Zarvo::Host::OsAccounts()) {
            ids.push_back(account.GetLocalId());
        }
        return ids;
    }
};

TEST_F(UserRestoreFlowTest, SamplePhoneUpdatesOwnerCreatesSecondarySkipsGuestAndProfile) {
    AndroidUsers phone = SamplePhoneUsers();
    LaySourceUsers(phone);
    EXPECT_TRUE(Restore());

    EXPECT_EQ(AccountIds(), (std::vector<int>{100, 101}));
    auto accounts = Zarvo::Host::OsAccounts();
    const auto *owner = FindAccount(accounts, 100);
    EXPECT_EQ(owner->GetType(), OsAccountType::ADMIN);
    EXPECT_EQ(owner->GetLocalName(), "");
    EXPECT_EQ(owner->GetSerialNumber(), 100);
    EXPECT_EQ(owner->GetLastLoginTime(), 1700000000000);
    const auto *secondary = FindAccount(accounts, 101);
    EXPECT_EQ(secondary->GetLocalName(), *phone.users[1].name);
    EXPECT_EQ(secondary->GetType(), OsAccountType::NORMAL);
    EXPECT_EQ(secondary->GetSerialNumber(), 101);
    EXPECT_EQ(secondary->GetCreateTime(), 1669985155155);
    EXPECT_EQ(secondary->GetLastLoginTime(), 1699990000123);
    EXPECT_EQ(
        secondary->GetPhoto(),
        "data:image/"
        "png;base64,iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAACklEQVR4nGMAAQAABQABDQottAAAAABJRU5E"
        "rkJggg==");

    EXPECT_TRUE(CapturedFaultEvents().empty());
    EXPECT_EQ(CountPluginLines("RestoreSubUserInfo called."), 4u);
    EXPECT_EQ(CountPluginLines("RestoreSubUserInfo current user (11) not need restore."), 1u);
    EXPECT_EQ(CountPluginLines("RestoreSubUserInfo current user (12) not need restore."), 1u);
    EXPECT_EQ(CountPluginLines("UpdateZarvoAdminAcount success, zarvo user id : 100"), 1u);
    EXPECT_EQ(CountPluginLines("CreateZarvoAccount success, zarvo user id : 101"), 1u);
    EXPECT_EQ(PluginLogLines().front(), (LogLine{INFO, "DoRestoreData called."}));
    EXPECT_EQ(PluginLogLines().back(), (LogLine{INFO, "OnResult result is 0."}));
}

TEST_F(UserRestoreFlowTest, OtherFormsOfTheUserFilesGiveTheSameAccounts) {
    AndroidUsers phone = SamplePhoneUsers();
    for (UserFileForm form : {UserFileForm::TEXT, UserFileForm::BINARY_SURROGATE_PAIRS}) {
        ResetUserRestoreWorld();
        std::filesystem::create_directories(CONVERT_XML_DIR);
        LaySourceUsers(phone, form);
        EXPECT_TRUE(Restore());
        EXPECT_EQ(AccountIds(), (std::vector<int>{100, 101}));
        EXPECT_EQ(FindAccount(Zarvo::Host::OsAccounts(), 101)->GetLocalName(), *phone.users[1].name);
    }
}

TEST_F(UserRestoreFlowTest, OwnerWithoutAdminFlagsIsSkippedAsSuccess) {
    AndroidUsers phone = SamplePhoneUsers();
    phone.users[0].flags = 0x11;
    phone.users.resize(1);
    LaySourceUsers(phone);
    EXPECT_TRUE(Restore());
    EXPECT_EQ(CountPluginLines("RestoreSubUserInfo current user (0) not need restore."), 1u);
    EXPECT_EQ(Zarvo::Host::CallCount("UpdateOsAccountWithFullInfo"), 0);
}

TEST_F(UserRestoreFlowTest, EmptyUserListIsSuccessWithCleanUp) {
    LaySourceUsers(AndroidUsers{});
    EXPECT_TRUE(Restore());
    EXPECT_EQ(AccountIds(), (std::vector<int>{100}));
    EXPECT_EQ(CountPluginLines("RestoreSubUserInfo called."), 0u);
}

TEST_F(UserRestoreFlowTest, MissingUserListFailsWithoutReadingUsersButCleansUp) {
    AndroidUsers phone = SamplePhoneUsers();
    LaySourceUsers(phone);
    std::filesystem::remove(SOURCE_XML_DIR + "userlist.xml");
    EXPECT_FALSE(Restore());
    EXPECT_EQ(CountPluginLines("RestoreSubUserInfo called."), 0u);
    EXPECT_EQ(AccountIds(), (std::vector<int>{100}));
    EXPECT_EQ(
        CapturedFaultEvents(),
        (std::vector<FaultEvent>{RestoreFail(0x200002, "SOURCE_FILE_ERROR", "userlist.xmlconvert error")}));
}

TEST_F(UserRestoreFlowTest, UnparsableUserListSendsParseEvent) {
    WriteSourceFile("userlist.xml", EncodeUserFile(SamplePhoneUsers().users[1], UserFileForm::BINARY));
    EXPECT_FALSE(Restore());
    EXPECT_EQ(CountPluginLines("ProcessUserList failed, TransformToUserList xmlfile:userlist.xml."), 1u);
    EXPECT_EQ(CapturedFaultEvents(),
              (std::vector<FaultEvent>{
                  RestoreFail(0x200013, "PARSE_FILE_ERROR", "userlist.xmlparse to user Id list error.")}));
}

TEST_F(UserRestoreFlowTest, SecondOfThreeFailingToParseDoesNotStopTheOthers) {
    AndroidUsers users;
    users.users = {Secondary(10, 0x410, "Первый"), Secondary(11, 0x410, ""), Secondary(12, 0x410, "三番目")};
    users.users[1].name.reset();
    LaySourceUsers(users);
    EXPECT_FALSE(Restore());
    EXPECT_EQ(AccountIds(), (std::vector<int>{100, 101, 103}));
    EXPECT_EQ(FindAccount(Zarvo::Host::OsAccounts(), 103)->GetLocalName(), "三番目");
    EXPECT_EQ(CapturedFaultEvents(),
              (std::vector<FaultEvent>{
                  RestoreFail(0x200015, "PARSE_FILE_ERROR", "11.xmlparse to os user info error.")}));
    auto lines = PluginLogLines();
    auto at = std::find(lines.begin(), lines.end(),
                        LogLine{ERROR, "RestoreSubUserInfo failed, TransformToUserInfo fileName:11.xml."});
    ASSERT_NE(at, lines.end());
    ASSERT_NE(++at, lines.end());
    EXPECT_EQ(*at, (LogLine{ERROR, "DoRestoreData failed, current userId : 11"}));
}

TEST_F(UserRestoreFlowTest, EmptyIconAttributeGivesNoPhoto) {
    AndroidUsers users;
    users.users = {Secondary(10, 0x410, "a")};
    users.users[0].icon = "";
    LaySourceUsers(users);
    EXPECT_TRUE(Restore());
    EXPECT_EQ(FindAccount(Zarvo::Host::OsAccounts(), 101)->GetPhoto(), "");
    EXPECT_EQ(CountPluginLines("Base64Encode"), 0u);
}

TEST_F(UserRestoreFlowTest, UserListIdNamesTheFileWhoseOwnIdIsUsed) {
    // The list says 10; the file 10.xml describes user 13. The file's id decides the account.
    AndroidUsers listed;
    listed.users = {Secondary(10, 0x410, "listed")};
    LaySourceUsers(listed);
    WriteSourceFile("10.xml", EncodeUserFile(Secondary(13, 0x410, "inside"), UserFileForm::BINARY));
    EXPECT_TRUE(Restore());
    EXPECT_EQ(AccountIds(), (std::vector<int>{100, 104}));
}

TEST_F(UserRestoreFlowTest, AdminUpdateFailureIsReportedAndOthersGoOn) {
    LaySourceUsers(SamplePhoneUsers());
    ASSERT_TRUE(Zarvo::Host::InjectFault("UpdateOsAccountWithFullInfo", 0x400004));
    EXPECT_FALSE(Restore());
    EXPECT_EQ(AccountIds(), (std::vector<int>{100, 101}));
    EXPECT_EQ(CapturedFaultEvents(),
              (std::vector<FaultEvent>{
                  RestoreFail(0x400004, "CREATE_USER_ERROR", "0.xml update os admin account failed.")}));
}

}  // namespace
