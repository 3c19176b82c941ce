#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "captured_log.h"
#include "platform_control/credential_control.h"
#include "platform_control/device_state.h"
#include "user_restore_support.h"

using namespace Zarvo::Testing;
using namespace Zarvo::Fixtures;
using namespace std::chrono_literals;

namespace {

constexpr int ERROR = 6;
constexpr int INFO = 4;

AndroidUser Secondary(int32_t id, const std::string &name) {
    AndroidUser user;
    user.id = id;
    user.serialNumber = id;
    user.flags = USER_FLAG_INITIALIZED | USER_FLAG_FULL;
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
};

TEST_F(UserRestoreFlowTest, SamplePhoneUpdatesOwnerCreatesSecondarySkipsGuestAndProfileInEveryForm) {
    AndroidUsers phone = SamplePhoneUsers();
    for (UserFileForm form :
         {UserFileForm::BINARY, UserFileForm::BINARY_SURROGATE_PAIRS, UserFileForm::TEXT}) {
        SetUp();
        Zarvo::Host::SetCredentialAnswer({12345, true, 1, 2});
        LaySourceUsers(phone, form);
        EXPECT_TRUE(RestoreUsers());
        EXPECT_EQ(OsAccountIds(), (std::vector<int>{100, 101}));
        EXPECT_EQ(DescribeAccount(100), "name '' type 0 serial 100 created 0 login 1700000000000 photo ''");
        EXPECT_EQ(DescribeAccount(101),
                  "name '" + *phone.users[1].name +
                      "' type 1 serial 101 created 1669985155155 login 1699990000123 photo 'data:image/"
                      "png;base64,"
                      "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAACklEQVR4nGMAAQAABQABDQottAAAAABJRU5E"
                      "rkJggg=='");
        EXPECT_TRUE(CapturedFaultEvents().empty());
        EXPECT_EQ(CountPluginLines("RestoreSubUserInfo called."), 4u);
        EXPECT_EQ(CountPluginLines("RestoreSubUserInfo current user (11) not need restore."), 1u);
        EXPECT_EQ(CountPluginLines("RestoreSubUserInfo current user (12) not need restore."), 1u);
        EXPECT_EQ(PluginLogLines().front(), (LogLine{INFO, "DoRestoreData called."}));
        auto lines = PluginLogLines();
        EXPECT_EQ(
            std::vector<LogLine>(lines.end() - 2, lines.end()),
            (std::vector<LogLine>{{INFO, "OnAcquireInfo called."}, {INFO, "OnResult result is 12345."}}));
    }
}

TEST_F(UserRestoreFlowTest, EmptyUserListIsSuccessWithCleanUp) {
    LaySourceUsers(AndroidUsers{});
    EXPECT_TRUE(RestoreUsers());
    EXPECT_EQ(OsAccountIds(), (std::vector<int>{100}));
    EXPECT_EQ(CountPluginLines("RestoreSubUserInfo called."), 0u);
}

TEST_F(UserRestoreFlowTest, MissingUserListFailsWithoutReadingUsersButCleansUp) {
    LaySourceUsers(SamplePhoneUsers());
    std::filesystem::remove(SOURCE_XML_DIR + "userlist.xml");
    EXPECT_FALSE(RestoreUsers());
    EXPECT_EQ(CountPluginLines("RestoreSubUserInfo called."), 0u);
    EXPECT_EQ(OsAccountIds(), (std::vector<int>{100}));
    EXPECT_EQ(
        CapturedFaultEvents(),
        (std::vector<std::string>{RestoreFail(0x200002, "SOURCE_FILE_ERROR", "userlist.xmlconvert error")}));
}

TEST_F(UserRestoreFlowTest, UnparsableUserListSendsParseEvent) {
    WriteSourceFile("userlist.xml", EncodeUserFile(SamplePhoneUsers().users[1], UserFileForm::BINARY));
    EXPECT_FALSE(RestoreUsers());
    EXPECT_EQ(CountPluginLines("ProcessUserList failed, TransformToUserList xmlfile:userlist.xml."), 1u);
    EXPECT_EQ(CapturedFaultEvents(),
              (std::vector<std::string>{
                  RestoreFail(0x200013, "PARSE_FILE_ERROR", "userlist.xmlparse to user Id list error.")}));
}

TEST_F(UserRestoreFlowTest, SecondOfThreeFailingToParseDoesNotStopTheOthers) {
    AndroidUsers users;
    users.users = {Secondary(10, "Первый"), Secondary(11, ""), Secondary(12, "三番目")};
    users.users[1].name.reset();
    users.users[2].icon = "";                                        // an empty icon attribute gives no photo
    users.users[2].flags |= 0x02000000 | USER_FLAG_MANAGED_PROFILE;  // the vendor's private space
    LaySourceUsers(users);
    EXPECT_FALSE(RestoreUsers());
    EXPECT_EQ(OsAccountIds(), (std::vector<int>{100, 101, 103}));
    EXPECT_EQ(DescribeAccount(103),
              "name '三番目' type 1024 serial 103 created 1669985155167 login 1699990000135 photo ''");
    EXPECT_EQ(CountPluginLines("Base64Encode"), 0u);
    EXPECT_EQ(CapturedFaultEvents(),
              (std::vector<std::string>{
                  RestoreFail(0x200015, "PARSE_FILE_ERROR", "11.xmlparse to os user info error.")}));
    auto lines = PluginLogLines();
    auto at = std::find(lines.begin(), lines.end(),
                        LogLine{ERROR, "RestoreSubUserInfo failed, TransformToUserInfo fileName:11.xml."});
    ASSERT_NE(at, lines.end());
    ASSERT_NE(++at, lines.end());
    EXPECT_EQ(*at, (LogLine{ERROR, "DoRestoreData failed, current userId : 11"}));
}

}  // namespace
