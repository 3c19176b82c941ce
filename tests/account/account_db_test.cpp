#include "account_db.h"

#include <gtest/gtest.h>

#include "account_fixture.h"
#include "captured_log.h"
#include "platform_control/device_state.h"

namespace {

using namespace Zarvo;
using namespace Zarvo::UpdateEngine;
using Testing::LogLine;

constexpr int ERROR = 6;
constexpr int INFO = 4;

class AccountDbTest : public testing::Test {
protected:
    void SetUp() override {
        Host::ResetToTypicalDevice();
        Testing::ResetCaptures();
        content_ = Testing::CvidAccountDb();
    }

    // Writes content_ and opens it; the log starts empty afterwards.
    void Open() {
        std::string path = Testing::WriteUserAccountsDb(100, content_);
        ASSERT_TRUE(db_.InitRdb(path));
        Testing::ResetCaptures();
    }

    Fixtures::AccountsCeDb content_;
    AccountDB db_;
};

TEST_F(AccountDbTest, ReadsTheAccountOfTheServiceWithItsLocaleTokenAndExtras) {
    Open();
    AccountDataInfo info{};
    bool hasData = false;
    ASSERT_TRUE(db_.QueryAccountsFromDB(info, hasData));
    EXPECT_TRUE(hasData);
    EXPECT_EQ(info.id, 3);
    EXPECT_EQ(info.name, "alice");
    EXPECT_EQ(info.type, "com.corvan.cvid");
    ASSERT_TRUE(db_.QueryMetadataFromDB(info));
    EXPECT_EQ(info.locale, "en_US");
    ASSERT_TRUE(db_.QueryAuthtokensFromDB(info));
    EXPECT_EQ(info.authtoken, "a1b2");
    ASSERT_TRUE(db_.QueryExtrasFromDB(info));
    ASSERT_EQ(info.extras.size(), 2u);
    EXPECT_EQ(info.extras[0].id, 7);
    EXPECT_EQ(info.extras[0].key, "nick");
    EXPECT_EQ(info.extras[0].value, "Al");
    EXPECT_EQ(info.extras[1].id, 9);
    EXPECT_TRUE(Testing::PluginLogLines().empty());
}

TEST_F(AccountDbTest, ASecondInitKeepsTheOpenStore) {
    std::string path = Testing::WriteUserAccountsDb(100, content_);
    ASSERT_TRUE(db_.InitRdb(path));
    EXPECT_TRUE(db_.InitRdb("/data/elsewhere.db"));
    EXPECT_EQ(Host::CallCount("GetRdbStore"), 1);
}

TEST_F(AccountDbTest, AFailedOpenLogsTheStoreCode) {
    EXPECT_FALSE(db_.InitRdb(Testing::UserBackDir(100) + "missing.db"));
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{{ERROR, "InitRdb failed, rdb_ is nullptr, err = 14800002"}}));
    Testing::ResetCaptures();
    Host::InjectFault("GetRdbStore", -7, 1);
    EXPECT_FALSE(db_.InitRdb(Testing::WriteUserAccountsDb(100, content_)));
    EXPECT_EQ(Testing::PluginLogTexts(),
              (std::vector<std::string>{"InitRdb failed, rdb_ is nullptr, err = -7"}));
}

TEST_F(AccountDbTest, QueriesBeforeTheStoreOpensLogTwoLinesAndFail) {
    const std::string noStore =
        "QuerySql failed, Pointer rdb_ is nullptr. Maybe it didn't init successfully.";
    AccountDataInfo info{};
    info.id = 3;
    bool hasData = true;
    EXPECT_FALSE(db_.QueryAccountsFromDB(info, hasData));
    EXPECT_TRUE(hasData);
    EXPECT_FALSE(db_.QueryMetadataFromDB(info));
    EXPECT_FALSE(db_.QueryAuthtokensFromDB(info));
    EXPECT_FALSE(db_.QueryExtrasFromDB(info));
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{
                  {ERROR, noStore},
                  {ERROR, "QueryAccountsFromDB failed, QuerySql resultSet is nullptr."},
                  {ERROR, noStore},
                  {ERROR, "QueryMetadataFromDB failed, QuerySql resultSet is nullptr."},
                  {ERROR, noStore},
                  {ERROR, "QueryAuthtokensFromDB failed, QuerySql resultSet is nullptr."},
                  {ERROR, noStore},
                  {ERROR, "QueryExtrasFromDB failed, QuerySql resultSet is nullptr."},
              }));
}

TEST_F(AccountDbTest, NoAccountOfTheServiceLeavesTheRecordUntouched) {
    content_.accounts = {{1, "alice@mail.example", "com.example.mail", std::nullopt},
                         {2, "alice", "com.corvan.cvid.other", std::nullopt}};
    content_.authtokens.clear();
    content_.extras.clear();
    Open();
    AccountDataInfo info{};
    info.id = 42;
    info.name = "kept";
    bool hasData = true;
    ASSERT_TRUE(db_.QueryAccountsFromDB(info, hasData));
    EXPECT_FALSE(hasData);
    EXPECT_EQ(info.id, 42);
    EXPECT_EQ(info.name, "kept");
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{{INFO, "QueryAccountsFromDB success, accounts db has no cvid data."}}));
}

TEST_F(AccountDbTest, OnlyTheFirstAccountOfTheServiceIsTaken) {
    content_.accounts = {{5, "first", "com.corvan.cvid", std::nullopt},
                         {6, "second", "com.corvan.cvid", std::nullopt}};
    Open();
    AccountDataInfo info{};
    bool hasData = false;
    ASSERT_TRUE(db_.QueryAccountsFromDB(info, hasData));
    EXPECT_EQ(info.id, 5);
    EXPECT_EQ(info.name, "first");
}

TEST_F(AccountDbTest, MetadataWithoutARowFailsAndANullLocaleReadsEmpty) {
    content_.locale.reset();
    Open();
    AccountDataInfo info{};
    info.locale = "kept";
    EXPECT_FALSE(db_.QueryMetadataFromDB(info));
    EXPECT_EQ(info.locale, "kept");
    EXPECT_TRUE(Testing::PluginLogLines().empty());
}

TEST_F(AccountDbTest, OnlyTheFirstTokenRowCountsAndOnlyWhenItsTypeMatches) {
    content_.authtokens = {{1, 3, "account.profile", std::string("other")},
                           {2, 3, "com.corvan.cvid", std::string("never read")}};
    Open();
    AccountDataInfo info{};
    info.id = 3;
    info.type = "com.corvan.cvid";
    EXPECT_TRUE(db_.QueryAuthtokensFromDB(info));
    EXPECT_EQ(info.authtoken, "");

    info.id = 1;
    EXPECT_FALSE(db_.QueryAuthtokensFromDB(info));
    EXPECT_TRUE(Testing::PluginLogLines().empty());
}

TEST_F(AccountDbTest, ExtrasComeInTheStoreRowOrderAndNullValuesReadEmpty) {
    content_.extras = {{4, 3, "b", std::nullopt},
                       {20, 3, "a", std::string("2")},
                       {30, 1, "x", std::string("y")},
                       {31, 3, "c", std::string("3")}};
    Open();
    AccountDataInfo info{};
    info.id = 3;
    ASSERT_TRUE(db_.QueryExtrasFromDB(info));
    // Filtered on accounts_id, SQLite walks the table's unique (accounts_id, key) index: rows come by key.
    ASSERT_EQ(info.extras.size(), 3u);
    EXPECT_EQ(info.extras[0].id, 20);
    EXPECT_EQ(info.extras[0].key, "a");
    EXPECT_EQ(info.extras[1].id, 4);
    EXPECT_EQ(info.extras[1].value, "");
    EXPECT_EQ(info.extras[2].key, "c");

    AccountDataInfo none{};
    none.id = 77;
    EXPECT_FALSE(db_.QueryExtrasFromDB(none));
    EXPECT_TRUE(none.extras.empty());
    EXPECT_TRUE(Testing::PluginLogLines().empty());
}

TEST_F(AccountDbTest, ANegativeIdIsWrittenWithItsSign) {
    content_.accounts = {{-5, "minus", "com.corvan.cvid", std::nullopt},
                         {5, "plus", "com.example", std::nullopt}};
    content_.authtokens = {{1, 5, "com.corvan.cvid", std::string("wrong")},
                           {2, -5, "com.corvan.cvid", std::string("right")}};
    content_.extras = {{1, 5, "k", std::string("wrong")}, {2, -5, "k", std::string("right")}};
    Open();
    AccountDataInfo info{};
    bool hasData = false;
    ASSERT_TRUE(db_.QueryAccountsFromDB(info, hasData));
    EXPECT_EQ(info.id, -5);
    ASSERT_TRUE(db_.QueryAuthtokensFromDB(info));
    EXPECT_EQ(info.authtoken, "right");
    ASSERT_TRUE(db_.QueryExtrasFromDB(info));
    ASSERT_EQ(info.extras.size(), 1u);
    EXPECT_EQ(info.extras[0].value, "right");
}

}  // namespace

namespace {

TEST(AccountDbParseTest, ARowThatCannotBeReadIsLoggedWithTheStoreCode) {
    Zarvo::Testing::ResetCaptures();
    auto rows = std::make_shared<Zarvo::NativeRdb::ResultSet>(
        std::vector<std::string>{"_id", "key", "value"},
        std::vector<std::vector<Zarvo::NativeRdb::ValueObject>>{{int64_t{1}, "k", "v"}});
    Zarvo::UpdateEngine::AccountDB db;
    Zarvo::UpdateEngine::AccountDataInfo info{};
    Zarvo::UpdateEngine::ExtraInfo extra{};
    // Before the first move there is no current row.
    EXPECT_FALSE(db.ParseAccountsInfo(rows, info));
    EXPECT_FALSE(db.ParseExtrasInfo(rows, extra));
    EXPECT_EQ(Zarvo::Testing::PluginLogTexts(),
              (std::vector<std::string>{"ParseAccountsInfo failed, GetRow return 14800007.",
                                        "ParseExtrasInfo failed, GetRow return 14800007."}));
    ASSERT_EQ(rows->GoToFirstRow(), 0);
    ASSERT_TRUE(db.ParseExtrasInfo(rows, extra));
    EXPECT_EQ(extra.id, 1);
    EXPECT_EQ(extra.key, "k");
    EXPECT_EQ(extra.value, "v");
}

}  // namespace
