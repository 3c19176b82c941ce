// Masking of the handed account's secrets wherever the record carries them.
#include "record_secrets.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "run_record.h"

namespace {

using namespace Zarvo::Host;

// A token as account services write them: base64 with "/", "+" and "=".
const std::string TOKEN = "CgB6e3x9/Zq+Y0lAbc=";
const std::string MASKED_TOKEN = "CgB6\u2026 (19 characters)";

TEST(SecretMaskingTest, MasksExtrasWhoseKeyNamesACredential) {
    struct Case {
        std::string key;
        bool masked;
    } cases[] = {
        {"pwd", true},         {"userPwd", true},
        {"session_key", true}, {"sessionKey", true},
        {"auth", true},        {"serviceTkn", true},
        {"APIKey", true},      {"api-key", true},
        {"accesstoken", true}, {"OAuth_Refresh_TOKEN", true},
        {"pin", true},         {"jwt", true},
        {"author", false},     {"authority", false},
        {"keyboard", false},   {"spinner", false},
        {"nickName", false},   {"userId", false},
        {"country", false},    {"passenger", false},
    };
    for (const Case &c : cases) {
        nlohmann::json account = {{"authtoken", TOKEN},
                                  {"extras", {{{"key", c.key}, {"value", "v4lue-of-it"}}}}};
        std::vector<std::string> secrets;
        MaskAccountExport(account, secrets);
        EXPECT_EQ(account["extras"][0]["value"] != "v4lue-of-it", c.masked) << c.key;
    }
}

TEST(SecretMaskingTest, MasksTheTokenInEveryFormAndEveryViewOfTheRecord) {
    const nlohmann::json account = {
        {"authtoken", TOKEN},
        {"name", TOKEN},
        {"type", "com.example.account"},
        {"extras",
         {{{"key", "callbackUrl"}, {"value", "https://example.com/cb?t=CgB6e3x9%2FZq%2BY0lAbc%3D&x=1"}},
          {{"key", "lower"}, {"value", "t=CgB6e3x9%2fZq%2bY0lAbc%3d"}},
          {{"key", "raw"}, {"value", "Bearer " + TOKEN}},
          {{"key", "pwd"}, {"value", "hunter2"}},
          {{"key", "hint"}, {"value", "hunter2"}}}}};
    RunCapture capture;
    capture.handedFiles.push_back(
        {"/data/app/el2/100/base/com.example/account_manager_db.json", 0, 0, 0600, account.dump()});
    capture.handedFiles.push_back({"/data/app/el2/100/base/com.example/other.json", 0, 0, 0600,
                                   nlohmann::json({{"t", "a\"" + TOKEN}}).dump()});
    capture.logs.push_back({});
    capture.logs.back().message = "request for https://example.com/?t=CgB6e3x9%2FZq%2BY0lAbc%3D";
    capture.journal.emplace_back();
    capture.journal.back().request.dst = "/data/app/" + TOKEN;
    capture.sourceUsers.users.push_back({});
    capture.sourceUsers.users.back().name = "Ann " + TOKEN;
    capture.laid.leftOut.push_back({"system/users/" + TOKEN, "a link"});

    const RunRecord record = BuildRunRecord(capture, false);
    ASSERT_TRUE(record.account.has_value());
    EXPECT_EQ(record.account->name, MASKED_TOKEN);
    EXPECT_EQ(record.account->authToken, MASKED_TOKEN);
    EXPECT_EQ(record.account->extras[0]["value"], "https://example.com/cb?t=" + MASKED_TOKEN + "&x=1");
    EXPECT_EQ(record.account->extras[1]["value"], "t=" + MASKED_TOKEN);
    EXPECT_EQ(record.account->extras[2]["value"], "Bearer " + MASKED_TOKEN);
    // A short password is masked where it is a whole value of the account, not in other text.
    EXPECT_EQ(record.account->extras[3]["value"], "\u2026 (7 characters)");
    EXPECT_EQ(record.account->extras[4]["value"], "\u2026 (7 characters)");
    for (const HandedFile &file : record.capture.handedFiles) {
        EXPECT_EQ(file.content.find("CgB6e3x9"), std::string::npos) << file.content;
    }
    EXPECT_EQ(record.capture.logs[0].message, "request for https://example.com/?t=" + MASKED_TOKEN);
    EXPECT_EQ(record.capture.journal[0].request.dst, "/data/app/" + MASKED_TOKEN);
    ASSERT_EQ(record.users.size(), 1u);
    EXPECT_EQ(record.users[0].source->name, "Ann " + MASKED_TOKEN);
    EXPECT_EQ(record.capture.laid.leftOut[0].path, "system/users/" + MASKED_TOKEN);

    // With the secrets shown, nothing is masked.
    EXPECT_EQ(BuildRunRecord(capture, true).account->name, TOKEN);
}

}  // namespace
