#include "account_data_manager.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

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
const std::string NO_CVID_ACCOUNT = "QueryAccountsFromDB success, accounts db has no cvid data.";

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
};

TEST_F(AccountDataManagerTest, EachSourceCheckFailureEndsTheRestoreWithItsLine) {
    struct Case {
        std::function<void()> arrange;
        std::vector<LogLine> lines;
    };
    const std::vector<Case> cases = {
        {[] { Host::ClearDeviceState(); },
         {{ERROR, "GetCurrentUserId get system account error, err is 0"}, {ERROR, CHECK_FAILED}}},
        {[] { Host::InjectFault("QueryAllCreatedOsAccounts", 4194305, 1); },
         {{ERROR, "GetCurrentUserId get system account error, err is 4194305"}, {ERROR, CHECK_FAILED}}},
        {[] {
             Host::SetOsAccounts({Account(100, false), Account(101, false)});
         },
         {{ERROR, CHECK_FAILED}}},
        // The first active account is the user, and its own database must exist.
        {[] {
             Host::SetOsAccounts({Account(100, false), Account(101, true), Account(102, true)});
             std::filesystem::create_directories(Testing::UserBackDir(101));
             Testing::WriteUserAccountsDb(102, Testing::CvidAccountDb());
         },
         {{ERROR,
           "CheckDbFileExist file is not exist errno is 2, sourceDbPath_ is "
           "/data/service/el1/public/update/migrate_server/plugins/200/back/101/accounts_ce.db"},
          {ERROR, CHECK_FAILED}}},
    };
    for (const Case &c : cases) {
        Host::ResetToTypicalDevice();
        c.arrange();
        Testing::ResetCaptures();
        AccountDataManager manager;
        EXPECT_FALSE(manager.DoRestoreData());
        EXPECT_FALSE(manager.IsAdminUser());
        EXPECT_EQ(Testing::PluginLogLines(), c.lines);
    }
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

TEST_F(AccountDataManagerTest, ADatabaseIsOpenedInAtMostFourAttempts) {
    Testing::WriteUserAccountsDb(100, Testing::CvidAccountDb());
    Host::InjectFault("GetRdbStore", 14800004);
    AccountDataManager failing;
    EXPECT_FALSE(failing.DoRestoreData());
    EXPECT_EQ(Host::CallCount("GetRdbStore"), 4);
    const LogLine initFailed{ERROR, "InitRdb failed, rdb_ is nullptr, err = 14800004"};
    const LogLine retry{INFO, "OpenDbFile fail, will retry after 10 milliseconds"};
    EXPECT_EQ(Testing::PluginLogLines(), (std::vector<LogLine>{initFailed,
                                                               retry,
                                                               initFailed,
                                                               retry,
                                                               initFailed,
                                                               retry,
                                                               initFailed,
                                                               {ERROR, "OpenDbFile fail after retry 3 times"},
                                                               {ERROR, CHECK_FAILED}}));

    Host::ResetToTypicalDevice();
    Host::InjectFault("GetRdbStore", 14800004, 2);
    Testing::ResetCaptures();
    AccountDataManager third;
    ASSERT_TRUE(third.CheckSourceData());
    EXPECT_EQ(Host::CallCount("GetRdbStore"), 3);
    EXPECT_EQ(Testing::CountPluginLines(retry.text), 2u);
}

TEST_F(AccountDataManagerTest, NoAccountOfTheServiceIsASuccessWithoutAFile) {
    Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
    content.accounts.pop_back();
    Testing::WriteUserAccountsDb(100, content);
    AccountDataManager manager;
    EXPECT_TRUE(manager.DoRestoreData());
    EXPECT_TRUE(manager.IsAdminUser());
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{{INFO, NO_CVID_ACCOUNT},
                                    {INFO, "DoRestoreData success, database has no cvid data."}}));
    EXPECT_FALSE(std::filesystem::exists(Testing::UserBackDir(100) + ACCOUNT_JSON_NAME));
}

TEST_F(AccountDataManagerTest, ParseDataBaseRequiresTheTokenAndExtrasButNotTheLocale) {
    const std::string noLocale = "GetMetadataFromDB failed, query metadata table return false.";
    const std::string noToken = "GetAuthtokensFromDB failed, query authtokens table return false.";
    const std::string parseFailed = "ParseDataBase fail, get authtokens from db failed.";
    const std::string noExtras = "GetExtrasFromDB failed, query extras table return false.";
    struct Case {
        std::function<void(Fixtures::AccountsCeDb &)> change;
        bool result;
        std::vector<std::string> lines;
    };
    const std::vector<Case> cases = {
        {[](auto &db) { db.accounts.pop_back(); }, true, {NO_CVID_ACCOUNT}},
        {[](auto &db) { db.locale.reset(); }, true, {noLocale}},
        {[](auto &db) { db.locale = ""; }, true, {noLocale}},
        {[](auto &db) { db.authtokens.pop_back(); }, false, {noToken, parseFailed}},
        {[](auto &db) { db.authtokens.back().authtoken.reset(); }, false, {noToken, parseFailed}},
        {[](auto &db) { db.authtokens.back().authtoken = ""; }, false, {noToken, parseFailed}},
        // Only the first token row of the account counts, and only when its type is the account's.
        {[](auto &db) {
             db.authtokens.push_back({2, 3, "account.profile", std::string("x")});
         },
         false,
         {noToken, parseFailed}},
        {[](auto &db) {
             db.extras = {{1, 1, "other account", std::string("x")}};
         },
         false,
         {noExtras}},
    };
    for (size_t i = 0; i < cases.size(); ++i) {
        Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
        cases[i].change(content);
        Testing::WriteUserAccountsDb(100, content);
        AccountDataManager manager;
        ASSERT_TRUE(manager.CheckSourceData());
        Testing::ResetCaptures();
        AccountDataInfo info{};
        info.name = "kept";
        bool hasData = true;
        EXPECT_EQ(manager.ParseDataBase(info, hasData), cases[i].result) << i;
        EXPECT_EQ(Testing::PluginLogTexts(), cases[i].lines) << i;
        for (const auto &line : Testing::PluginLogLines()) {
            EXPECT_EQ(line.level, line.text == NO_CVID_ACCOUNT ? INFO : ERROR) << line.text;
        }
        // Without an account of the service the record is left as it was.
        EXPECT_EQ(hasData, i != 0) << i;
        EXPECT_EQ(info.name, hasData ? "alice" : "kept") << i;
        // The extras are read last, and only for an account with a token.
        EXPECT_EQ(info.extras.size(), cases[i].result && hasData ? 2u : 0u) << i;
    }
    // The database of the last case, without extras, fails the whole restore.
    Testing::ResetCaptures();
    AccountDataManager manager;
    EXPECT_FALSE(manager.DoRestoreData());
    EXPECT_EQ(Testing::PluginLogTexts().back(), "DoRestoreData failed, parsing database return false.");
}

}  // namespace
