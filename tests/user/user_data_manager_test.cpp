#include "user_data_manager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "captured_log.h"
#include "platform_control/device_state.h"
#include "user_restore_support.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;
using Zarvo::AccountSA::OsAccountType;
using Lines = std::vector<LogLine>;

namespace {

constexpr int ERROR = 6;
constexpr int INFO = 4;
const std::string SECONDARY = "android.os.usertype.full.SECONDARY";
const std::string SYSTEM = "android.os.usertype.full.SYSTEM";

// The manager's steps one by one, with the conversion directory in place (so no migrate
// service is involved) and the host account store.
class UserDataManagerTest : public testing::Test {
protected:
    void SetUp() override {
        ResetUserRestoreWorld();
        std::filesystem::create_directories(CONVERT_XML_DIR);
    }

    // Puts a file in hand, as the restore does before it touches the user's account.
    void HoldFile(const std::string &fileName) {
        WriteSourceFile(fileName, "<user/>");
        std::string converted;
        ASSERT_TRUE(manager_.PreprocessXmlFile(SOURCE_XML_DIR + fileName, fileName, converted));
        ResetCaptures();
    }

    UserDataManager manager_;
};

TEST_F(UserDataManagerTest, MigrationRule) {
    struct Case {
        std::string type;
        uint32_t flags;
        bool migrate;
    } cases[] = {
        {SECONDARY, 0x400, true},     {SECONDARY, 0x410, true},
        {SECONDARY, 0x430, false},    {SECONDARY, 0x10, false},
        {SECONDARY, 0x2000430, true}, {SYSTEM, 0xC13, true},
        {SYSTEM, 0x11, false},        {SYSTEM, 0x2, false},
        {"", 0x2000C13, false},       {"android.os.usertype.full.secondary", 0x410, false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(manager_.IsUserNeedMigrate(c.type, c.flags), c.migrate)
            << c.type << " " << std::hex << c.flags;
    }
}

TEST_F(UserDataManagerTest, IconIsReadFromFolderOfSourceIdByLastPathComponent) {
    std::filesystem::create_directories(SOURCE_XML_DIR + "10");
    std::ofstream(SOURCE_XML_DIR + "10/photo.png", std::ios::binary) << "abc";
    std::ofstream(SOURCE_XML_DIR + "10/avatar", std::ios::binary) << "a";
    EXPECT_EQ(manager_.GetUserIcon("/data/system/users/10/photo.png", 10), "data:image/png;base64,YWJj");
    EXPECT_EQ(manager_.GetUserIcon("../../elsewhere/avatar", 10), "data:image/png;base64,YQ==");
    EXPECT_TRUE(PluginLogLines().empty());

    // A missing file reads as empty, which the encoder refuses.
    EXPECT_EQ(manager_.GetUserIcon("/data/system/users/12/photo.png", 12), "");
    EXPECT_EQ(PluginLogLines(),
              (Lines{
                  {ERROR, "GetFileContent " + SOURCE_XML_DIR + "12/photo.png is not exist or invalid"},
                  {ERROR, "Base64Encode error: bio write fail."},
              }));
}

// Creation queries first, the admin update does not; both write every field and try four times.
TEST_F(UserDataManagerTest, AccountCallsTryFourTimesAndReportTheLastResult) {
    const std::string stored = "created 1669985155155 login 1699990000123 photo 'data:image/png;base64,YQ=='";
    struct Case {
        bool admin;
        int failures;  // -1: every attempt fails
        int32_t result;
        std::string outcome;  // the stored account, or the event
    } cases[] = {
        {false, 2, 0x12345, "name 'Zoë \xF0\x9F\x8C\xBB' type 1024 serial 101 " + stored},
        {true, 1, 7, "name '' type 0 serial 100 " + stored},
        {false, -1, -8, RestoreFail(-8, "CREATE_USER_ERROR", "10.xml create os account failed.")},
        {true, -1, 0x400004,
         RestoreFail(0x400004, "CREATE_USER_ERROR", "0.xml update os admin account failed.")},
    };
    for (const auto &c : cases) {
        SetUp();
        HoldFile(c.admin ? "0.xml" : "10.xml");
        const std::string call = c.admin ? "UpdateOsAccountWithFullInfo" : "CreateOsAccountWithFullInfo";
        const std::string op = c.admin ? "UpdateZarvoAdminAcount" : "CreateZarvoAccount";
        const int id = c.admin ? 100 : 101;
        ZarvoUserDataInfo record{id,
                                 c.admin ? "" : "Zoë \xF0\x9F\x8C\xBB",
                                 c.admin ? OsAccountType::ADMIN : OsAccountType::PRIVATE,
                                 "data:image/png;base64,YQ==",
                                 1669985155155,
                                 1699990000123,
                                 id};
        ASSERT_TRUE(Zarvo::Host::InjectFault(call, c.result, c.failures));
        EXPECT_EQ(c.admin ? manager_.UpdateZarvoAdminAcount(record) : manager_.CreateZarvoAccount(record),
                  c.failures >= 0)
            << op;
        const LogLine retry{
            INFO, op + " failed, result " + std::to_string(c.result) + ", will retry after 10 milliseconds"};
        Lines lines(c.failures < 0 ? 3 : c.failures, retry);
        lines.push_back(
            c.failures < 0
                ? LogLine{ERROR, op + " failed, after retry 3 times, zarvo user id : " + std::to_string(id)}
                : LogLine{INFO, op + " success, zarvo user id : " + std::to_string(id)});
        EXPECT_EQ(PluginLogLines(), lines);
        EXPECT_EQ(CapturedFaultEvents(),
                  c.failures < 0 ? std::vector{c.outcome} : std::vector<std::string>{});
        if (c.failures >= 0) {
            EXPECT_EQ(DescribeAccount(id), c.outcome);
        }
        EXPECT_EQ(Zarvo::Host::CallCount(call), c.failures < 0 ? 4 : c.failures + 1);
        EXPECT_EQ(Zarvo::Host::CallCount("QueryOsAccountById"), c.admin ? 0 : 1);
    }
}

TEST_F(UserDataManagerTest, ExistingAccountIsLeftAloneWithEventCodeZero) {
    HoldFile("11.xml");
    auto accounts = Zarvo::Host::OsAccounts();
    accounts.emplace_back(102, "Already here", OsAccountType::NORMAL, 5);
    Zarvo::Host::SetOsAccounts(accounts);
    EXPECT_TRUE(
        manager_.CreateZarvoAccount(ZarvoUserDataInfo{102, "New", OsAccountType::NORMAL, "", 1, 2, 102}));
    EXPECT_EQ(PluginLogLines(),
              (Lines{{INFO, "CreateZarvoAccount failed, current user id : 102 already exists."}}));
    EXPECT_EQ(CapturedFaultEvents(),
              (std::vector<std::string>{
                  RestoreFail(0, "CREATE_USER_ERROR", "11.xml create user 102 is already exists.")}));
    EXPECT_EQ(Zarvo::Host::CallCount("CreateOsAccountWithFullInfo"), 0);
    EXPECT_EQ(DescribeAccount(102), "name 'Already here' type 1 serial 5 created 0 login 0 photo ''");
}

}  // namespace
