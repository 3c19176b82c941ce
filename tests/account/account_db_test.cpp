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

class AccountDbTest : public testing::Test {
protected:
    void SetUp() override {
        Host::ResetToTypicalDevice();
        Testing::ResetCaptures();
        content_ = Testing::CvidAccountDb();
    }

    // Writes content_ and opens it; the log starts empty afterwards.
    void Open() {
        ASSERT_TRUE(db_.InitRdb(Testing::WriteUserAccountsDb(100, content_)));
        Testing::ResetCaptures();
    }

    Fixtures::AccountsCeDb content_;
    AccountDB db_;
    AccountDataInfo info_{};
    bool hasData_ = false;
};

TEST_F(AccountDbTest, TheFirstAccountOfTheServiceIsReadWithItsOwnTokenAndExtras) {
    // A negative id must reach the token and extras statements with its sign. Columns are read by
    // name, so the two extra columns of a database from Android 6 or older change nothing.
    content_.legacyAccountsColumns = true;
    content_.accounts = {{-5, "minus", "com.corvan.cvid", std::nullopt},
                         {5, "plus", "com.corvan.cvid", std::nullopt}};
    content_.authtokens = {{1, 5, "com.corvan.cvid", std::string("wrong")},
                           {2, -5, "com.corvan.cvid", std::string("right")}};
    content_.extras = {{4, -5, "b", std::nullopt},
                       {20, -5, "a", std::string("2")},
                       {30, 5, "x", std::string("wrong")},
                       {31, -5, "c", std::string("3")}};
    Open();
    ASSERT_TRUE(db_.QueryAccountsFromDB(info_, hasData_));
    EXPECT_TRUE(hasData_);
    ASSERT_TRUE(db_.QueryMetadataFromDB(info_));
    ASSERT_TRUE(db_.QueryAuthtokensFromDB(info_));
    ASSERT_TRUE(db_.QueryExtrasFromDB(info_));
    // Filtered on accounts_id, SQLite walks the table's unique (accounts_id, key) index: rows come by key.
    EXPECT_EQ(
        nlohmann::json(info_).dump(),
        R"({"authtoken":"right","extras":[{"id":20,"key":"a","value":"2"},{"id":4,"key":"b","value":""},)"
        R"({"id":31,"key":"c","value":"3"}],"id":-5,"locale":"en_US","name":"minus","type":"com.corvan.cvid"})");
    EXPECT_TRUE(Testing::PluginLogLines().empty());
}

TEST_F(AccountDbTest, OpeningLogsTheStoreCodeOnFailureAndHappensOnce) {
    EXPECT_FALSE(db_.InitRdb(Testing::UserBackDir(100) + "missing.db"));
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{{ERROR, "InitRdb failed, rdb_ is nullptr, err = 14800002"}}));
    Open();
    EXPECT_TRUE(db_.InitRdb("/data/elsewhere.db"));
    EXPECT_EQ(Host::CallCount("GetRdbStore"), 2);
}

TEST_F(AccountDbTest, QueriesBeforeTheStoreOpensLogTwoLinesAndFail) {
    hasData_ = true;
    EXPECT_FALSE(db_.QueryAccountsFromDB(info_, hasData_));
    EXPECT_TRUE(hasData_);
    EXPECT_FALSE(db_.QueryMetadataFromDB(info_));
    EXPECT_FALSE(db_.QueryAuthtokensFromDB(info_));
    EXPECT_FALSE(db_.QueryExtrasFromDB(info_));
    std::vector<LogLine> expected;
    for (const char *query : {"Accounts", "Metadata", "Authtokens", "Extras"}) {
        expected.push_back(
            {ERROR, "QuerySql failed, Pointer rdb_ is nullptr. Maybe it didn't init successfully."});
        expected.push_back(
            {ERROR, std::string("Query") + query + "FromDB failed, QuerySql resultSet is nullptr."});
    }
    EXPECT_EQ(Testing::PluginLogLines(), expected);
}

TEST(AccountDbParseTest, ARowThatCannotBeReadIsLoggedWithTheStoreCode) {
    Testing::ResetCaptures();
    auto rows = std::make_shared<NativeRdb::ResultSet>(
        std::vector<std::string>{"_id", "key", "value"},
        std::vector<std::vector<NativeRdb::ValueObject>>{{int64_t{1}, "k", "v"}});
    AccountDB db;
    AccountDataInfo info{};
    ExtraInfo extra{};
    // Before the first move there is no current row.
    EXPECT_FALSE(db.ParseAccountsInfo(rows, info));
    EXPECT_FALSE(db.ParseExtrasInfo(rows, extra));
    EXPECT_EQ(Testing::PluginLogTexts(),
              (std::vector<std::string>{"ParseAccountsInfo failed, GetRow return 14800007.",
                                        "ParseExtrasInfo failed, GetRow return 14800007."}));
}

}  // namespace
