#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>

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
        auto lines = PluginLogLines();
        EXPECT_EQ(lines.front(), (LogLine{INFO, "DoRestoreData called."}));
        EXPECT_EQ(
            std::vector<LogLine>(lines.end() - 2, lines.end()),
            (std::vector<LogLine>{{INFO, "OnAcquireInfo called."}, {INFO, "OnResult result is 12345."}}));
    }
}

// An empty, missing or unparsable user list: no user is read, and the clean-up still runs.
TEST_F(UserRestoreFlowTest, UserListWithoutUsersRestoresNobody) {
    struct Case {
        std::optional<std::string> list;  // none: no userlist.xml
        bool result;
        std::vector<std::string> events;
    } cases[] = {
        {EncodeUserList(AndroidUsers{}, UserFileForm::BINARY), true, {}},
        {std::nullopt, false, {RestoreFail(0x200002, "SOURCE_FILE_ERROR", "userlist.xmlconvert error")}},
        {EncodeUserFile(SamplePhoneUsers().users[1], UserFileForm::BINARY),
         false,
         {RestoreFail(0x200013, "PARSE_FILE_ERROR", "userlist.xmlparse to user Id list error.")}},
    };
    for (const auto &c : cases) {
        SetUp();
        LaySourceUsers(SamplePhoneUsers());
        std::filesystem::remove(SOURCE_XML_DIR + "userlist.xml");
        if (c.list) {
            WriteSourceFile("userlist.xml", *c.list);
        }
        EXPECT_EQ(RestoreUsers(), c.result);
        EXPECT_EQ(OsAccountIds(), (std::vector<int>{100}));
        EXPECT_EQ(CountPluginLines("RestoreSubUserInfo called."), 0u);
        EXPECT_EQ(CapturedFaultEvents(), c.events);
    }
}

TEST_F(UserRestoreFlowTest, SecondOfThreeFailingToParseDoesNotStopTheOthers) {
    AndroidUser first = SamplePhoneUsers().users[1];
    AndroidUser second = first;
    AndroidUser third = first;
    second.id = 11;
    second.name.reset();
    third.id = 12;
    third.name = "三番目";
    third.icon = "";  // an empty icon attribute gives no photo
    third.photo.reset();
    third.flags |= 0x02000000 | USER_FLAG_MANAGED_PROFILE;  // the vendor's private space
    AndroidUsers users;
    users.users = {first, second, third};
    LaySourceUsers(users);
    EXPECT_FALSE(RestoreUsers());
    EXPECT_EQ(OsAccountIds(), (std::vector<int>{100, 101, 103}));
    EXPECT_EQ(DescribeAccount(103),
              "name '三番目' type 1024 serial 103 created 1669985155155 login 1699990000123 photo ''");
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
