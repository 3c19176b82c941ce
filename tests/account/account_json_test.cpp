#include <gtest/gtest.h>

#include <filesystem>

#include "account_data_manager.h"
#include "account_fixture.h"
#include "captured_log.h"
#include "platform_control/device_state.h"

namespace {

using namespace Zarvo;
using namespace Zarvo::UpdateEngine;

class AccountJsonTest : public testing::Test {
protected:
    void SetUp() override {
        Host::ResetToTypicalDevice();
        ASSERT_TRUE(manager_.GetCurrentUserId());
        std::filesystem::create_directories(Testing::UserBackDir(100));
        Testing::ResetCaptures();
    }

    const std::string tempFile_ = Testing::UserBackDir(100) + "account_manager_db.json";
    AccountDataManager manager_;
};

TEST_F(AccountJsonTest, TheSavedFileIsTheCompactRecordWithSortedKeysAndMinimalEscapes) {
    const int32_t minId = -2147483647 - 1;
    const std::vector<std::pair<AccountDataInfo, std::string>> cases = {
        {{3, "alice", "com.corvan.cvid", "en_US", "a1b2", {{7, "nick", "Al"}}},
         R"({"authtoken":"a1b2","extras":[{"id":7,"key":"nick","value":"Al"}],"id":3,"locale":"en_US",)"
         R"("name":"alice","type":"com.corvan.cvid"})"},
        {{0,
          std::string("q\"b\\s/t\td\x01\x1f\x7f\b\f\n\r") + std::string(1, '\0') + "end",
          "",
          "zh_CN_#Hans",
          "李伟 🐼",
          {{1, "ключ", "ž\u00e9"}}},
         "{\"authtoken\":\"李伟 🐼\",\"extras\":[{\"id\":1,\"key\":\"ключ\",\"value\":\"ž\u00e9\"}],\"id\":0,"
         "\"locale\":\"zh_CN_#Hans\",\"name\":\"q\\\"b\\\\s/t\\td\\u0001\\u001f\x7f\\b\\f\\n\\r\\u0000end\","
         "\"type\":\"\"}"},
        // Extras keep their order whatever their ids and keys.
        {{-5, "", "", "", "", {{9, "z", ""}, {minId, "a", "v"}, {2147483647, "", "w"}}},
         R"({"authtoken":"","extras":[{"id":9,"key":"z","value":""},{"id":-2147483648,"key":"a","value":"v"},)"
         R"({"id":2147483647,"key":"","value":"w"}],"id":-5,"locale":"","name":"","type":""})"},
        {{2147483647, "", "", "", "", {}},
         R"({"authtoken":"","extras":[],"id":2147483647,"locale":"","name":"","type":""})"},
    };
    // Each case overwrites the file before it; the last, shorter one must leave no trace of them.
    for (const auto &[info, expected] : cases) {
        Testing::ResetCaptures();
        ASSERT_TRUE(manager_.SaveJsonToFile(manager_.AccountDataToJson(info)));
        EXPECT_EQ(Testing::ReadFileBytes(tempFile_), expected);
        EXPECT_EQ(Testing::PluginLogTexts(),
                  (std::vector<std::string>{"SaveJsonToFile success, file = " + tempFile_}));
    }
}

TEST_F(AccountJsonTest, SavingIntoAMissingDirectoryFailsWithoutCreatingIt) {
    std::filesystem::remove_all(Testing::UserBackDir(100));
    AccountDataInfo info{};
    EXPECT_FALSE(manager_.ProcessJsonFile(info));
    EXPECT_FALSE(std::filesystem::exists(Testing::UserBackDir(100)));
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<Testing::LogLine>{{6, "SaveJsonToFile fail, file = " + tempFile_},
                                             {6, "ProcessJsonFile fail, sava json to file failed."}}));
}

TEST_F(AccountJsonTest, TextThatIsNotUtf8EndsTheRestoreWithoutAFile) {
    for (const std::string &bad : {std::string("bad \xff byte"), std::string("cut \xe6\x9d")}) {
        Fixtures::AccountsCeDb content = Testing::CvidAccountDb();
        content.extras.back().value = bad;
        Testing::WriteUserAccountsDb(100, content);
        Testing::ResetCaptures();
        AccountDataManager manager;
        EXPECT_FALSE(manager.DoRestoreData());
        auto lines = Testing::PluginLogLines();
        ASSERT_EQ(lines.size(), 3u);
        EXPECT_EQ(lines[0].level, 6);
        EXPECT_EQ(
            lines[0].text.rfind("AccountDataToJson failed, the account holds text that is not UTF-8: ", 0),
            0u)
            << lines[0].text;
        EXPECT_EQ(lines[1].text, "ProcessJsonFile fail, Json string is empty.");
        EXPECT_EQ(lines[2].text, "DoRestoreData failed, Process the JSON file return false.");
        EXPECT_FALSE(std::filesystem::exists(tempFile_));
    }
}

}  // namespace
