#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "captured_log.h"
#include "os_account_manager.h"
#include "platform_control/device_state.h"
#include "platform_control/event_capture.h"
#include "user_data_manager.h"
#include "user_restore_support.h"

using namespace Zarvo::UpdateEngine;
using namespace Zarvo::Testing;
using Zarvo::AccountSA::OsAccountInfo;
using Zarvo::AccountSA::OsAccountType;

namespace {

constexpr int ERROR = 6;
constexpr int INFO = 4;
const std::string SECONDARY = "android.os.usertype.full.SECONDARY";
const std::string SYSTEM = "android.os.usertype.full.SYSTEM";

class UserAccountsTest : public testing::Test {
protected:
    void SetUp() override { ResetUserRestoreWorld(); }

    // Makes fileName_ name a user's file, the way the restore does before it touches accounts.
    void HoldFile(const std::string &fileName) {
        std::filesystem::create_directories(CONVERT_XML_DIR);
        WriteSourceFile(fileName, "<user/>");
        std::string converted;
        ASSERT_TRUE(manager_.PreprocessXmlFile(SOURCE_XML_DIR + fileName, fileName, converted));
        ResetCaptures();
    }

    static ZarvoUserDataInfo Record(int32_t localId, OsAccountType type) {
        return ZarvoUserDataInfo{localId,       "Zoë \xF0\x9F\x8C\xBB", type,   "",
                                 1669985155155, 1699990000123,          localId};
    }

    UserDataManager manager_;
};

TEST_F(UserAccountsTest, MigrationRuleForSecondaryUsers) {
    struct Case {
        uint32_t flags;
        bool migrate;
    } cases[] = {
        {0x400, true},      {0x410, true},  {0x430, false},    {0x10, false},
        {0x0, false},       {0x401, false}, {0x2000000, true}, {0x2000430, true},
        {0xFFFFFFFF, true}, {0x404, false}, {0x1410, false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(manager_.IsUserNeedMigrate(SECONDARY, c.flags), c.migrate) << std::hex << c.flags;
    }
}

TEST_F(UserAccountsTest, MigrationRuleForSystemAndOtherTypes) {
    EXPECT_TRUE(manager_.IsUserNeedMigrate(SYSTEM, 0xC13));
    EXPECT_TRUE(manager_.IsUserNeedMigrate(SYSTEM, 0x4C13));
    EXPECT_TRUE(manager_.IsUserNeedMigrate(SYSTEM, 0x3));
    EXPECT_FALSE(manager_.IsUserNeedMigrate(SYSTEM, 0x11));
    EXPECT_FALSE(manager_.IsUserNeedMigrate(SYSTEM, 0x2));
    EXPECT_FALSE(manager_.IsUserNeedMigrate(SYSTEM, 0x400));
    for (const std::string &type :
         std::vector<std::string>{"android.os.usertype.full.GUEST", "android.os.usertype.profile.MANAGED",
                                  "android.os.usertype.profile.CLONE", "",
                                  "android.os.usertype.full.secondary", SECONDARY + " "}) {
        EXPECT_FALSE(manager_.IsUserNeedMigrate(type, 0x410)) << type;
        EXPECT_FALSE(manager_.IsUserNeedMigrate(type, 0x2000C13)) << type;
    }
}

TEST_F(UserAccountsTest, AccountTypeFollowsSourceTypeThenVendorFlag) {
    OSUserDataInfo info{};
    info.type = SYSTEM;
    info.flags = 0x2000C13;
    EXPECT_EQ(manager_.GetZarvoAccountType(info), OsAccountType::ADMIN);
    info.type = SECONDARY;
    EXPECT_EQ(manager_.GetZarvoAccountType(info), OsAccountType::PRIVATE);
    info.flags = 0x410;
    EXPECT_EQ(manager_.GetZarvoAccountType(info), OsAccountType::NORMAL);
    info.type = "";
    EXPECT_EQ(manager_.GetZarvoAccountType(info), OsAccountType::NORMAL);
}

TEST_F(UserAccountsTest, ConversionMapsIdsAndUsesLocalIdAsSerialNumber) {
    struct Case {
        int32_t sourceId;
        int32_t localId;
    } cases[] = {{0, 100}, {10, 101}, {11, 102}, {1, 92}, {-91, 0}};
    for (const auto &c : cases) {
        OSUserDataInfo source{c.sourceId, "Анна", SECONDARY, "", 0x410, 1669985155155, 1699990000123, 77};
        ZarvoUserDataInfo target{};
        manager_.ConvertToZarvoUserInfo(source, target);
        EXPECT_EQ(target.localId, c.localId) << c.sourceId;
        EXPECT_EQ(target.serialNumber, c.localId) << c.sourceId;
        EXPECT_EQ(target.localName, "Анна");
        EXPECT_EQ(target.createTime, 1669985155155);
        EXPECT_EQ(target.lastLoginTime, 1699990000123);
        EXPECT_EQ(target.type, OsAccountType::NORMAL);
        EXPECT_TRUE(target.photo.empty());
    }
}

TEST_F(UserAccountsTest, ConversionReadsIconFromFolderOfSourceId) {
    std::filesystem::create_directories(SOURCE_XML_DIR + "10");
    std::ofstream(SOURCE_XML_DIR + "10/photo.png", std::ios::binary) << "abc";
    OSUserDataInfo source{10, "n", SECONDARY, "/data/system/users/10/photo.png", 0x410, 1, 2, 10};
    ZarvoUserDataInfo target{};
    manager_.ConvertToZarvoUserInfo(source, target);
    EXPECT_EQ(target.photo, "data:image/png;base64,YWJj");
}

TEST_F(UserAccountsTest, UserIconIsDataUriOfFileInSourceUserFolder) {
    std::filesystem::create_directories(SOURCE_XML_DIR + "11");
    std::ofstream(SOURCE_XML_DIR + "11/avatar.png", std::ios::binary) << "a";
    EXPECT_EQ(manager_.GetUserIcon("/some/other/place/avatar.png", 11), "data:image/png;base64,YQ==");
    std::string png = Zarvo::Fixtures::SampleAvatarPng();
    std::ofstream(SOURCE_XML_DIR + "11/photo.png", std::ios::binary) << png;
    EXPECT_EQ(
        manager_.GetUserIcon("/data/system/users/11/photo.png", 11),
        "data:image/"
        "png;base64,iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAACklEQVR4nGMAAQAABQABDQottAAAAABJRU5E"
        "rkJggg==");
    EXPECT_TRUE(PluginLogLines().empty());
}

TEST_F(UserAccountsTest, MissingOrEmptyIconGivesNoPhoto) {
    const std::string missing = SOURCE_XML_DIR + "12/photo.png";
    EXPECT_EQ(manager_.GetUserIcon("/data/system/users/12/photo.png", 12), "");
    EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{
                                    {ERROR, "GetFileContent " + missing + " is not exist or invalid"},
                                    {ERROR, "Base64Encode error: bio write fail."},
                                }));
    ResetCaptures();
    std::filesystem::create_directories(SOURCE_XML_DIR + "12");
    std::ofstream(missing).close();
    EXPECT_EQ(manager_.GetUserIcon("/data/system/users/12/photo.png", 12), "");
    EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{{ERROR, "Base64Encode error: bio write fail."}}));
}

TEST_F(UserAccountsTest, CreateStoresEveryFieldAndPhoto) {
    HoldFile("10.xml");
    ZarvoUserDataInfo record = Record(101, OsAccountType::NORMAL);
    record.photo = "data:image/png;base64,YWJj";
    EXPECT_TRUE(manager_.CreateZarvoAccount(record));
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{{INFO, "CreateZarvoAccount success, zarvo user id : 101"}}));
    EXPECT_TRUE(CapturedFaultEvents().empty());
    OsAccountInfo stored;
    ASSERT_EQ(Zarvo::AccountSA::OsAccountManager::QueryOsAccountById(101, stored), 0);
    EXPECT_EQ(stored.GetLocalName(), record.localName);
    EXPECT_EQ(stored.GetType(), OsAccountType::NORMAL);
    EXPECT_EQ(stored.GetSerialNumber(), 101);
    EXPECT_EQ(stored.GetCreateTime(), 1669985155155);
    EXPECT_EQ(stored.GetLastLoginTime(), 1699990000123);
    EXPECT_EQ(stored.GetPhoto(), "data:image/png;base64,YWJj");
}

TEST_F(UserAccountsTest, CreateRetriesUntilThirdAttemptSucceeds) {
    HoldFile("10.xml");
    ASSERT_TRUE(Zarvo::Host::InjectFault("CreateOsAccountWithFullInfo", 0x12345, 2));
    EXPECT_TRUE(manager_.CreateZarvoAccount(Record(101, OsAccountType::PRIVATE)));
    const std::string retry = "CreateZarvoAccount failed, result 74565, will retry after 10 milliseconds";
    EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{
                                    {INFO, retry},
                                    {INFO, retry},
                                    {INFO, "CreateZarvoAccount success, zarvo user id : 101"},
                                }));
    EXPECT_TRUE(CapturedFaultEvents().empty());
    EXPECT_EQ(Zarvo::Host::CallCount("CreateOsAccountWithFullInfo"), 3);
    OsAccountInfo stored;
    ASSERT_EQ(Zarvo::AccountSA::OsAccountManager::QueryOsAccountById(101, stored), 0);
    EXPECT_EQ(stored.GetType(), OsAccountType::PRIVATE);
}

TEST_F(UserAccountsTest, CreateGivesUpAfterFourAttemptsWithLastResultInEvent) {
    HoldFile("10.xml");
    ASSERT_TRUE(Zarvo::Host::InjectFault("CreateOsAccountWithFullInfo", -8));
    EXPECT_FALSE(manager_.CreateZarvoAccount(Record(102, OsAccountType::NORMAL)));
    const std::string retry = "CreateZarvoAccount failed, result -8, will retry after 10 milliseconds";
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{
                  {INFO, retry},
                  {INFO, retry},
                  {INFO, retry},
                  {ERROR, "CreateZarvoAccount failed, after retry 3 times, zarvo user id : 102"},
              }));
    EXPECT_EQ(
        CapturedFaultEvents(),
        (std::vector<FaultEvent>{RestoreFail(-8, "CREATE_USER_ERROR", "10.xml create os account failed.")}));
    EXPECT_EQ(Zarvo::Host::CallCount("CreateOsAccountWithFullInfo"), 4);
}

TEST_F(UserAccountsTest, ExistingAccountIsLeftAloneWithEventCodeZero) {
    HoldFile("11.xml");
    OsAccountInfo existing(102, "Already here", OsAccountType::NORMAL, 5);
    auto accounts = Zarvo::Host::OsAccounts();
    accounts.push_back(existing);
    Zarvo::Host::SetOsAccounts(accounts);
    EXPECT_TRUE(manager_.CreateZarvoAccount(Record(102, OsAccountType::NORMAL)));
    EXPECT_EQ(
        PluginLogLines(),
        (std::vector<LogLine>{{INFO, "CreateZarvoAccount failed, current user id : 102 already exists."}}));
    EXPECT_EQ(CapturedFaultEvents(),
              (std::vector<FaultEvent>{
                  RestoreFail(0, "CREATE_USER_ERROR", "11.xml create user 102 is already exists.")}));
    EXPECT_EQ(Zarvo::Host::CallCount("CreateOsAccountWithFullInfo"), 0);
    EXPECT_EQ(FindAccount(Zarvo::Host::OsAccounts(), 102)->GetLocalName(), "Already here");
}

TEST_F(UserAccountsTest, FailedQueryCountsAsNoSuchAccount) {
    HoldFile("10.xml");
    ASSERT_TRUE(Zarvo::Host::InjectFault("QueryOsAccountById", 0x400004, 1));
    EXPECT_TRUE(manager_.CreateZarvoAccount(Record(101, OsAccountType::NORMAL)));
    EXPECT_NE(FindAccount(Zarvo::Host::OsAccounts(), 101), nullptr);
}

TEST_F(UserAccountsTest, AdminUpdateWritesAllFieldsWithoutQuerying) {
    HoldFile("0.xml");
    ZarvoUserDataInfo record = Record(100, OsAccountType::ADMIN);
    record.localName = "";
    record.photo = "data:image/png;base64,YQ==";
    EXPECT_TRUE(manager_.UpdateZarvoAdminAcount(record));
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{{INFO, "UpdateZarvoAdminAcount success, zarvo user id : 100"}}));
    EXPECT_EQ(Zarvo::Host::CallCount("QueryOsAccountById"), 0);
    auto accounts = Zarvo::Host::OsAccounts();
    const OsAccountInfo *admin = FindAccount(accounts, 100);
    ASSERT_NE(admin, nullptr);
    EXPECT_EQ(admin->GetLocalName(), "");
    EXPECT_EQ(admin->GetType(), OsAccountType::ADMIN);
    EXPECT_EQ(admin->GetSerialNumber(), 100);
    EXPECT_EQ(admin->GetCreateTime(), 1669985155155);
    EXPECT_EQ(admin->GetLastLoginTime(), 1699990000123);
    EXPECT_EQ(admin->GetPhoto(), "data:image/png;base64,YQ==");
    EXPECT_TRUE(admin->GetIsActived());
}

TEST_F(UserAccountsTest, AdminUpdateWithoutPhotoKeepsNoPhoto) {
    HoldFile("0.xml");
    EXPECT_TRUE(manager_.UpdateZarvoAdminAcount(Record(100, OsAccountType::ADMIN)));
    EXPECT_EQ(FindAccount(Zarvo::Host::OsAccounts(), 100)->GetPhoto(), "");
}

TEST_F(UserAccountsTest, AdminUpdateGivesUpAfterFourAttempts) {
    HoldFile("0.xml");
    ASSERT_TRUE(Zarvo::Host::InjectFault("UpdateOsAccountWithFullInfo", 0x400004));
    EXPECT_FALSE(manager_.UpdateZarvoAdminAcount(Record(100, OsAccountType::ADMIN)));
    EXPECT_EQ(
        CountPluginLines("UpdateZarvoAdminAcount failed, result 4194308, will retry after 10 milliseconds"),
        3u);
    EXPECT_EQ(CountPluginLines("UpdateZarvoAdminAcount failed, after retry 3 times, zarvo user id : 100"),
              1u);
    EXPECT_EQ(CapturedFaultEvents(),
              (std::vector<FaultEvent>{
                  RestoreFail(0x400004, "CREATE_USER_ERROR", "0.xml update os admin account failed.")}));
    EXPECT_EQ(Zarvo::Host::CallCount("UpdateOsAccountWithFullInfo"), 4);
}

TEST_F(UserAccountsTest, FailedEventWriteIsLoggedOnceAndChangesNothing) {
    HoldFile("10.xml");
    auto accounts = Zarvo::Host::OsAccounts();
    accounts.push_back(OsAccountInfo(101, "x", OsAccountType::NORMAL, 101));
    Zarvo::Host::SetOsAccounts(accounts);
    Zarvo::Host::FailEventWrites(-11, 1);
    EXPECT_TRUE(manager_.CreateZarvoAccount(Record(101, OsAccountType::NORMAL)));
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{
                  {ERROR, "SendEvent hisysevent write failed! ret -11."},
                  {INFO, "CreateZarvoAccount failed, current user id : 101 already exists."},
              }));
}

}  // namespace
