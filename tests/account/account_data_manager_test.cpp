#include "account_data_manager.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "account_fixture.h"
#include "captured_log.h"
#include "os_account_manager.h"
#include "platform_control/device_state.h"

namespace {

using namespace Zarvo;
using namespace Zarvo::UpdateEngine;
using Testing::LogLine;

constexpr int ERROR = 6;
constexpr int INFO = 4;
const std::string CHECK_FAILED = "DoRestoreData failed, check source data return false.";
const std::string PARSE_FAILED = "DoRestoreData failed, parsing database return false.";

AccountSA::OsAccountInfo Account(int id, bool active) {
    AccountSA::OsAccountInfo info(id, "user" + std::to_string(id), AccountSA::OsAccountType::NORMAL, id);
    info.SetIsActived(active);
    return info;
}

class AccountDataManagerTest : public testing::Test {
protected:
    void SetUp() override {
        Host::ResetToTypicalDevice();
        Testing::ResetCaptures();
    }

    std::vector<std::string> Texts() { return Testing::PluginLogTexts(); }
};

TEST_F(AccountDataManagerTest, NoOsAccountsEndsTheRestoreWithCodeZero) {
    Host::ClearDeviceState();
    AccountDataManager manager;
    EXPECT_FALSE(manager.DoRestoreData());
    EXPECT_FALSE(manager.IsAdminUser());
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{{ERROR, "GetCurrentUserId get system account error, err is 0"},
                                    {ERROR, CHECK_FAILED}}));
}

TEST_F(AccountDataManagerTest, AFailingAccountQueryIsLoggedWithItsCode) {
    Host::InjectFault("QueryAllCreatedOsAccounts", 4194305, 1);
    AccountDataManager manager;
    EXPECT_FALSE(manager.DoRestoreData());
    EXPECT_EQ(Texts(), (std::vector<std::string>{"GetCurrentUserId get system account error, err is 4194305",
                                                 CHECK_FAILED}));
}

TEST_F(AccountDataManagerTest, NoActiveAccountFailsWithOnlyTheCheckLine) {
    Host::SetOsAccounts({Account(100, false), Account(101, false)});
    AccountDataManager manager;
    EXPECT_FALSE(manager.DoRestoreData());
    EXPECT_FALSE(manager.IsAdminUser());
    EXPECT_EQ(Texts(), (std::vector<std::string>{CHECK_FAILED}));
}

TEST_F(AccountDataManagerTest, TheFirstActiveAccountIsTheUserAndItsDatabaseMustExist) {
    Host::SetOsAccounts({Account(100, false), Account(101, true), Account(102, true)});
    std::filesystem::create_directories(Testing::UserBackDir(101));
    Testing::WriteUserAccountsDb(102, Testing::CvidAccountDb());
    AccountDataManager manager;
    EXPECT_FALSE(manager.DoRestoreData());
    EXPECT_FALSE(manager.IsAdminUser());
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{{ERROR,
                                     "CheckDbFileExist file is not exist errno is 2, sourceDbPath_ is "
                                     "/data/service/el1/public/update/migrate_server/plugins/200/back/101/"
                                     "accounts_ce.db"},
                                    {ERROR, CHECK_FAILED}}));
}

TEST_F(AccountDataManagerTest, IsAdminUserOnlyForUserOneHundred) {
    for (int id : {0, 100, 101}) {
        Host::SetOsAccounts({Account(id, true)});
        AccountDataManager manager;
        EXPECT_FALSE(manager.IsAdminUser());
        EXPECT_TRUE(manager.GetCurrentUserId());
        EXPECT_EQ(manager.IsAdminUser(), id == 100) << id;
    }
}

TEST_F(AccountDataManagerTest, ADatabaseThatNeverOpensIsTriedFourTimes) {
    Testing::WriteUserAccountsDb(100, Testing::CvidAccountDb());
    Host::InjectFault("GetRdbStore", 14800004);
    AccountDataManager manager;
    EXPECT_FALSE(manager.DoRestoreData());
    EXPECT_EQ(Host::CallCount("GetRdbStore"), 4);
    const std::string initFailed = "InitRdb failed, rdb_ is nullptr, err = 14800004";
    const std::string retry = "OpenDbFile fail, will retry after 10 milliseconds";
    EXPECT_EQ(Testing::PluginLogLines(), (std::vector<LogLine>{
                                             {ERROR, initFailed},
                                             {INFO, retry},
                                             {ERROR, initFailed},
                                             {INFO, retry},
                                             {ERROR, initFailed},
                                             {INFO, retry},
                                             {ERROR, initFailed},
                                             {ERROR, "OpenDbFile fail after retry 3 times"},
                                             {ERROR, CHECK_FAILED},
                                         }));
}

TEST_F(AccountDataManagerTest, ADatabaseThatOpensAtTheThirdAttemptIsRead) {
    Testing::WriteUserAccountsDb(100, Testing::CvidAccountDb());
    Host::InjectFault("GetRdbStore", 14800004, 2);
    AccountDataManager manager;
    ASSERT_TRUE(manager.CheckSourceData());
    EXPECT_EQ(Host::CallCount("GetRdbStore"), 3);
    EXPECT_EQ(Testing::CountPluginLines("OpenDbFile fail, will retry after 10 milliseconds"), 2u);
    AccountDataInfo info{};
    bool hasData = false;
    EXPECT_TRUE(manager.ParseDataBase(info, hasData));
    EXPECT_TRUE(hasData);
    EXPECT_EQ(info.authtoken, "a1b2");
}

TEST_F(AccountDataManagerTest, NoAccountOfTheServiceIsASuccessWithoutAFile) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.accounts.pop_back();
    content.locale.reset();
    std::string db = Testing::WriteUserAccountsDb(100, content);
    AccountDataManager manager;
    EXPECT_TRUE(manager.DoRestoreData());
    EXPECT_TRUE(manager.IsAdminUser());
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{{INFO, "QueryAccountsFromDB success, accounts db has no cvid data."},
                                    {INFO, "DoRestoreData success, database has no cvid data."}}));
    EXPECT_FALSE(std::filesystem::exists(Testing::UserBackDir(100) + ACCOUNT_JSON_NAME));
}

class ParseDataBaseTest : public AccountDataManagerTest {
protected:
    void Parse(const Fixtures::AccountsCeDb &content) {
        Testing::WriteUserAccountsDb(100, content);
        ASSERT_TRUE(manager_.CheckSourceData());
        Testing::ResetCaptures();
        result_ = manager_.ParseDataBase(info_, hasData_);
    }

    AccountDataManager manager_;
    AccountDataInfo info_{};
    bool hasData_ = true;
    bool result_ = false;
};

TEST_F(ParseDataBaseTest, AMissingLocaleIsLoggedAndTolerated) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.locale.reset();
    Parse(content);
    EXPECT_TRUE(result_);
    EXPECT_EQ(info_.locale, "");
    EXPECT_EQ(info_.extras.size(), 2u);
    EXPECT_EQ(
        Testing::PluginLogLines(),
        (std::vector<LogLine>{{ERROR, "GetMetadataFromDB failed, query metadata table return false."}}));
}

TEST_F(ParseDataBaseTest, AnEmptyLocaleCountsAsMissing) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.locale = "";
    Parse(content);
    EXPECT_TRUE(result_);
    EXPECT_EQ(Texts(),
              (std::vector<std::string>{"GetMetadataFromDB failed, query metadata table return false."}));
}

TEST_F(ParseDataBaseTest, AMissingTokenStopsBeforeTheExtras) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.authtokens.pop_back();
    Parse(content);
    EXPECT_FALSE(result_);
    EXPECT_TRUE(info_.extras.empty());
    EXPECT_EQ(
        Testing::PluginLogLines(),
        (std::vector<LogLine>{{ERROR, "GetAuthtokensFromDB failed, query authtokens table return false."},
                              {ERROR, "ParseDataBase fail, get authtokens from db failed."}}));
}

TEST_F(ParseDataBaseTest, ATokenOfAnotherTypeOrEmptyCountsAsMissing) {
    for (const std::optional<std::string> &token :
         {std::optional<std::string>(), std::optional<std::string>("")}) {
        Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
        content.authtokens.back().authtoken = token;
        AccountDataManager manager;
        Testing::WriteUserAccountsDb(100, content);
        ASSERT_TRUE(manager.CheckSourceData());
        Testing::ResetCaptures();
        AccountDataInfo info{};
        bool hasData = true;
        EXPECT_FALSE(manager.ParseDataBase(info, hasData));
        EXPECT_EQ(Testing::CountPluginLines("ParseDataBase fail, get authtokens from db failed."), 1u);
    }
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.authtokens.back().type = "oauth2:https://corvan.example/profile";
    Parse(content);
    EXPECT_FALSE(result_);
    EXPECT_EQ(Texts(),
              (std::vector<std::string>{"GetAuthtokensFromDB failed, query authtokens table return false.",
                                        "ParseDataBase fail, get authtokens from db failed."}));
}

TEST_F(ParseDataBaseTest, NoExtrasFailsWithOneLine) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.extras = {{1, 1, "other account", std::string("x")}};
    Parse(content);
    EXPECT_FALSE(result_);
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{{ERROR, "GetExtrasFromDB failed, query extras table return false."}}));
    AccountDataManager manager;
    Testing::ResetCaptures();
    EXPECT_FALSE(manager.DoRestoreData());
    EXPECT_EQ(Texts().back(), PARSE_FAILED);
}

TEST_F(ParseDataBaseTest, NoAccountReadsNothingElse) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.accounts.pop_back();
    Parse(content);
    EXPECT_TRUE(result_);
    EXPECT_FALSE(hasData_);
    EXPECT_EQ(Texts(),
              (std::vector<std::string>{"QueryAccountsFromDB success, accounts db has no cvid data."}));
}

}  // namespace
