#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "account_data_manager.h"
#include "account_fixture.h"
#include "captured_log.h"
#include "platform_control/device_state.h"

namespace {

using namespace Zarvo;
using namespace Zarvo::UpdateEngine;
using Testing::LogLine;

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

TEST_F(AccountJsonTest, TheRecordIsWrittenCompactWithSortedKeys) {
    AccountDataInfo info{3, "alice", "com.corvan.cvid", "en_US", "a1b2", {{7, "nick", "Al"}}};
    EXPECT_EQ(manager_.AccountDataToJson(info),
              R"({"authtoken":"a1b2","extras":[{"id":7,"key":"nick","value":"Al"}],"id":3,"locale":"en_US",)"
              R"("name":"alice","type":"com.corvan.cvid"})");
}

TEST_F(AccountJsonTest, EmptyFieldsExtremeIdsAndExtrasInTheirOrder) {
    AccountDataInfo empty{};
    EXPECT_EQ(manager_.AccountDataToJson(empty),
              R"({"authtoken":"","extras":[],"id":0,"locale":"","name":"","type":""})");
    AccountDataInfo info{-5, "", "",
                         "", "", {{9, "z", ""}, {-2147483647 - 1, "a", "v"}, {2147483647, "", "w"}}};
    EXPECT_EQ(
        manager_.AccountDataToJson(info),
        R"({"authtoken":"","extras":[{"id":9,"key":"z","value":""},{"id":-2147483648,"key":"a","value":"v"},)"
        R"({"id":2147483647,"key":"","value":"w"}],"id":-5,"locale":"","name":"","type":""})");
    info.id = 2147483647;
    EXPECT_NE(manager_.AccountDataToJson(info).find(R"("id":2147483647,"locale")"), std::string::npos);
}

TEST_F(AccountJsonTest, TextIsEscapedOnlyWhereJsonRequires) {
    AccountDataInfo info{};
    info.name = std::string("q\"b\\s/t\td\x01\x1f\x7f\b\f\n\r") + std::string(1, '\0') + "end";
    info.locale = "zh_CN_#Hans";
    info.authtoken = "李伟 🐼";
    info.extras = {{1, "ключ", "ž\u00e9"}};
    EXPECT_EQ(
        manager_.AccountDataToJson(info),
        "{\"authtoken\":\"李伟 🐼\",\"extras\":[{\"id\":1,\"key\":\"ключ\",\"value\":\"ž\u00e9\"}],\"id\":0,"
        "\"locale\":\"zh_CN_#Hans\",\"name\":\"q\\\"b\\\\s/t\\td\\u0001\\u001f\x7f\\b\\f\\n\\r\\u0000end\","
        "\"type\":\"\"}");
}

TEST_F(AccountJsonTest, TextThatIsNotUtf8GivesNoJsonAndAClearLine) {
    AccountDataInfo info{};
    info.authtoken = "ok";
    info.extras = {{1, "k", std::string("bad \xff byte")}};
    EXPECT_EQ(manager_.AccountDataToJson(info), "");
    auto lines = Testing::PluginLogLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, 6);
    EXPECT_EQ(lines[0].text.rfind("AccountDataToJson failed, the account holds text that is not UTF-8: ", 0),
              0u)
        << lines[0].text;
    // A cut multi-byte sequence is refused as well.
    info.extras[0].value = "\xe6\x9d";
    EXPECT_EQ(manager_.AccountDataToJson(info), "");
}

TEST_F(AccountJsonTest, SavingWritesExactlyTheTextAndReplacesAnOlderFile) {
    ASSERT_TRUE(manager_.SaveJsonToFile(R"({"a":"a much longer first content than the second one"})"));
    ASSERT_TRUE(manager_.SaveJsonToFile(R"({"b":1})"));
    EXPECT_EQ(Testing::ReadFileBytes(tempFile_), R"({"b":1})");
    EXPECT_EQ(std::filesystem::file_size(tempFile_), 7u);
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{{4, "SaveJsonToFile success, file = " + tempFile_},
                                    {4, "SaveJsonToFile success, file = " + tempFile_}}));
}

TEST_F(AccountJsonTest, SavingIntoAMissingDirectoryFailsWithoutCreatingIt) {
    std::filesystem::remove_all(Testing::UserBackDir(100));
    EXPECT_FALSE(manager_.SaveJsonToFile("{}"));
    EXPECT_FALSE(std::filesystem::exists(Testing::UserBackDir(100)));
    EXPECT_EQ(Testing::PluginLogLines(),
              (std::vector<LogLine>{{6, "SaveJsonToFile fail, file = " + tempFile_}}));
    // The path is kept all the same, so the hand-over names the file it would have used.
    Testing::ResetCaptures();
    AccountDataInfo info{};
    info.authtoken = "t";
    EXPECT_FALSE(manager_.ProcessJsonFile(info));
    EXPECT_EQ(Testing::PluginLogTexts(),
              (std::vector<std::string>{"SaveJsonToFile fail, file = " + tempFile_,
                                        "ProcessJsonFile fail, sava json to file failed."}));
}

TEST_F(AccountJsonTest, AnUnserialisableRecordEndsTheProcessingBeforeAnyFile) {
    AccountDataInfo info{};
    info.name = "\xc3";
    EXPECT_FALSE(manager_.ProcessJsonFile(info));
    auto texts = Testing::PluginLogTexts();
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[1], "ProcessJsonFile fail, Json string is empty.");
    EXPECT_FALSE(std::filesystem::exists(tempFile_));
}

}  // namespace
