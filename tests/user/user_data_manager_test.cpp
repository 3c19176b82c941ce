#include "user_data_manager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "captured_log.h"
#include "platform_control/device_state.h"
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

    static ZarvoUserDataInfo Record(int32_t localId, OsAccountType type, const std::string &photo = "") {
        return ZarvoUserDataInfo{localId,       "Zoë \xF0\x9F\x8C\xBB", type,   photo,
                                 1669985155155, 1699990000123,          localId};
    }

    UserDataManager manager_;
};

TEST_F(UserDataManagerTest, MigrationRule) {
    struct Case {
        std::string type;
        uint32_t flags;
        bool migrate;
    } cases[] = {
        {SECONDARY, 0x400, true},
        {SECONDARY, 0x410, true},
        {SECONDARY, 0x430, false},
        {SECONDARY, 0x10, false},
        {SECONDARY, 0x404, false},
        {SECONDARY, 0x2000430, true},
        {SYSTEM, 0xC13, true},
        {SYSTEM, 0x3, true},
        {SYSTEM, 0x11, false},
        {SYSTEM, 0x2, false},
        {"android.os.usertype.full.GUEST", 0x410, false},
        {"", 0x2000C13, false},
        {"android.os.usertype.full.secondary", 0x410, false},
        {"android.os.usertype.profile.MANAGED", 0x2000C13, false},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(manager_.IsUserNeedMigrate(c.type, c.flags), c.migrate)
            << c.type << " " << std::hex << c.flags;
    }
}

TEST_F(UserDataManagerTest, ConversionMapsIdTypeAndSerialNumber) {
    struct Case {
        int32_t sourceId;
        std::string type;
        int32_t flags;
        int32_t localId;
        int32_t accountType;
    } cases[] = {
        {0, SYSTEM, 0x2000C13, 100, OsAccountType::ADMIN},
        {10, SECONDARY, 0x410, 101, OsAccountType::NORMAL},
        {11, SECONDARY, 0x2000430, 102, OsAccountType::PRIVATE},
        {12, "", 0x410, 103, OsAccountType::NORMAL},
    };
    for (const auto &c : cases) {
        OSUserDataInfo source{c.sourceId, "Анна", c.type, "", c.flags, 1669985155155, 1699990000123, 77};
        ZarvoUserDataInfo target{};
        manager_.ConvertToZarvoUserInfo(source, target);
        EXPECT_EQ(target.localId, c.localId) << c.sourceId;
        EXPECT_EQ(target.serialNumber, c.localId) << c.sourceId;
        EXPECT_EQ(target.type, c.accountType) << c.sourceId;
        EXPECT_EQ(target.localName, "Анна");
        EXPECT_EQ(target.createTime, 1669985155155);
        EXPECT_EQ(target.lastLoginTime, 1699990000123);
        EXPECT_TRUE(target.photo.empty());
    }
}

TEST_F(UserDataManagerTest, IconIsReadFromFolderOfSourceIdByLastPathComponent) {
    std::filesystem::create_directories(SOURCE_XML_DIR + "10");
    std::ofstream(SOURCE_XML_DIR + "10/photo.png", std::ios::binary) << "abc";
    std::ofstream(SOURCE_XML_DIR + "10/avatar", std::ios::binary) << "a";
    OSUserDataInfo source{10, "n", SECONDARY, "/data/system/users/10/photo.png", 0x410, 1, 2, 10};
    ZarvoUserDataInfo target{};
    manager_.ConvertToZarvoUserInfo(source, target);
    EXPECT_EQ(target.photo, "data:image/png;base64,YWJj");
    EXPECT_EQ(manager_.GetUserIcon("../../elsewhere/avatar", 10), "data:image/png;base64,YQ==");
    EXPECT_TRUE(PluginLogLines().empty());

    const std::string missing = SOURCE_XML_DIR + "12/photo.png";
    EXPECT_EQ(manager_.GetUserIcon("/data/system/users/12/photo.png", 12), "");
    EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{
                                    {ERROR, "GetFileContent " + missing + " is not exist or invalid"},
                                    {ERROR, "Base64Encode error: bio write fail."},
                                }));
}

TEST_F(UserDataManagerTest, PreprocessWritesTextCopyIntoExistingDirectory) {
    WriteSourceFile("10.xml", EncodeUserFile(Zarvo::Fixtures::SamplePhoneUsers().users[1],
                                             Zarvo::Fixtures::UserFileForm::BINARY));
    std::string converted;
    // No migrate service is listening: a directory request would fail the call.
    EXPECT_TRUE(manager_.PreprocessXmlFile(SOURCE_XML_DIR + "10.xml", "10.xml", converted));
    EXPECT_EQ(converted, CONVERT_XML_DIR + "10.xml");
    std::ifstream copy(converted);
    std::string text((std::istreambuf_iterator<char>(copy)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("<user id=\"10\" serialNumber=\"10\" flags=\"1040\""), std::string::npos);
    EXPECT_TRUE(PluginLogLines().empty());
}

TEST_F(UserDataManagerTest, PreprocessRefusesEmptyNames) {
    std::filesystem::remove(CONVERT_XML_DIR);
    std::string converted = "untouched";
    EXPECT_FALSE(manager_.PreprocessXmlFile(SOURCE_XML_DIR + "10.xml", "", converted));
    EXPECT_FALSE(manager_.PreprocessXmlFile("", "10.xml", converted));
    EXPECT_FALSE(manager_.CreateConvertXmlPath(""));
    EXPECT_EQ(converted, "untouched");
    EXPECT_EQ(PluginLogLines(), (std::vector<LogLine>{
                                    {ERROR, "PreprocessXmlFile fullFileName or fileName is empty."},
                                    {ERROR, "PreprocessXmlFile fullFileName or fileName is empty."},
                                    {ERROR, "CreateConvertXmlPath pathName is empty."},
                                }));
    EXPECT_FALSE(std::filesystem::exists(CONVERT_XML_DIR));
}

TEST_F(UserDataManagerTest, CreateStoresEveryField) {
    HoldFile("10.xml");
    EXPECT_TRUE(
        manager_.CreateZarvoAccount(Record(101, OsAccountType::PRIVATE, "data:image/png;base64,YWJj")));
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{{INFO, "CreateZarvoAccount success, zarvo user id : 101"}}));
    EXPECT_TRUE(CapturedFaultEvents().empty());
    auto accounts = Zarvo::Host::OsAccounts();
    const OsAccountInfo *stored = FindAccount(accounts, 101);
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(stored->GetLocalName(), "Zoë \xF0\x9F\x8C\xBB");
    EXPECT_EQ(stored->GetType(), OsAccountType::PRIVATE);
    EXPECT_EQ(stored->GetSerialNumber(), 101);
    EXPECT_EQ(stored->GetCreateTime(), 1669985155155);
    EXPECT_EQ(stored->GetLastLoginTime(), 1699990000123);
    EXPECT_EQ(stored->GetPhoto(), "data:image/png;base64,YWJj");
}

TEST_F(UserDataManagerTest, CreateRetriesUntilThirdAttemptSucceeds) {
    HoldFile("10.xml");
    ASSERT_TRUE(Zarvo::Host::InjectFault("CreateOsAccountWithFullInfo", 0x12345, 2));
    EXPECT_TRUE(manager_.CreateZarvoAccount(Record(101, OsAccountType::NORMAL)));
    const LogLine retry{INFO, "CreateZarvoAccount failed, result 74565, will retry after 10 milliseconds"};
    EXPECT_EQ(
        PluginLogLines(),
        (std::vector<LogLine>{retry, retry, {INFO, "CreateZarvoAccount success, zarvo user id : 101"}}));
    EXPECT_TRUE(CapturedFaultEvents().empty());
    EXPECT_EQ(Zarvo::Host::CallCount("CreateOsAccountWithFullInfo"), 3);
}

TEST_F(UserDataManagerTest, CreateGivesUpAfterFourAttemptsWithLastResultInEvent) {
    HoldFile("10.xml");
    ASSERT_TRUE(Zarvo::Host::InjectFault("CreateOsAccountWithFullInfo", -8));
    EXPECT_FALSE(manager_.CreateZarvoAccount(Record(102, OsAccountType::NORMAL)));
    const LogLine retry{INFO, "CreateZarvoAccount failed, result -8, will retry after 10 milliseconds"};
    EXPECT_EQ(PluginLogLines(),
              (std::vector<LogLine>{
                  retry,
                  retry,
                  retry,
                  {ERROR, "CreateZarvoAccount failed, after retry 3 times, zarvo user id : 102"}}));
    EXPECT_EQ(
        CapturedFaultEvents(),
        (std::vector<FaultEvent>{RestoreFail(-8, "CREATE_USER_ERROR", "10.xml create os account failed.")}));
    EXPECT_EQ(Zarvo::Host::CallCount("CreateOsAccountWithFullInfo"), 4);
}

TEST_F(UserDataManagerTest, ExistingAccountIsLeftAloneWithEventCodeZero) {
    HoldFile("11.xml");
    auto accounts = Zarvo::Host::OsAccounts();
    accounts.emplace_back(102, "Already here", OsAccountType::NORMAL, 5);
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

TEST_F(UserDataManagerTest, AdminUpdateWritesAllFieldsWithoutQuerying) {
    HoldFile("0.xml");
    ZarvoUserDataInfo record = Record(100, OsAccountType::ADMIN, "data:image/png;base64,YQ==");
    record.localName = "";
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
}

TEST_F(UserDataManagerTest, AdminUpdateGivesUpAfterFourAttempts) {
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

}  // namespace
