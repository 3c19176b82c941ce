// Masking of the handed account's secrets wherever the record carries them.
#include "record_secrets.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "account_export.h"
#include "run_record.h"

namespace {

using namespace Zarvo::Host;

// A token as account services write them: base64 with "/", "+" and "=".
const std::string TOKEN = "CgB6e3x9/Zq+Y0lAbc=";
const std::string MASKED_TOKEN = "CgB6\u2026 (19 characters)";

// The extras the record shows, read back from the export's text as the views read them.
nlohmann::json ExtrasOf(const RunRecord &record) {
    nlohmann::json extras = nlohmann::json::array();
    nlohmann::json rest;
    int members = 0;
    ReadAccountExport(record.account->ExportText(record.capture.handedFiles), rest, members,
                      [&](nlohmann::json &extra, int member) {
                          if (member == record.account->extrasMember) {
                              extras.push_back(std::move(extra));
                          }
                      });
    return extras;
}

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
    const nlohmann::json extras = ExtrasOf(record);
    ASSERT_EQ(extras.size(), 5u);
    EXPECT_EQ(record.account->extraCount, 5u);
    EXPECT_EQ(extras[0]["value"], "https://example.com/cb?t=" + MASKED_TOKEN + "&x=1");
    EXPECT_EQ(extras[1]["value"], "t=" + MASKED_TOKEN);
    EXPECT_EQ(extras[2]["value"], "Bearer " + MASKED_TOKEN);
    // A short password is masked where it is a whole value of the account, not in other text.
    EXPECT_EQ(extras[3]["value"], "\u2026 (7 characters)");
    EXPECT_EQ(extras[4]["value"], "\u2026 (7 characters)");
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

TEST(RecordSecretsTest, MasksShowOnlyTheLengthAndTheStartOfLongSecrets) {
    struct Case {
        std::string secret;
        std::string masked;
    } cases[] = {
        {"abcdefghijklmnop", "abcd\u2026 (16 characters)"},
        {"abcdefghijklmno", "\u2026 (15 characters)"},
        {"x", "\u2026 (1 character)"},
        {"", "\u2026 (0 characters)"},
        // Characters, not bytes: a multi-byte character is never cut.
        {"\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9\u00e9",
         "\u00e9\u00e9\u00e9\u00e9\u2026 (16 characters)"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(MaskSecret(c.secret), c.masked) << c.secret;
    }
}

TEST(RecordSecretsTest, MasksTheTokenAndCredentialExtrasWhereverTheyOccur) {
    nlohmann::json account = nlohmann::json::parse(R"({"authtoken": "token-0123456789abcdef", "name": "n",
        "extras": [{"key": "nickName", "value": "Al"}, {"key": "OAuth_Refresh_TOKEN", "value": "token-0123456789abcdef-refresh"},
                   {"key": "userPassword", "value": "pw"}]})");
    std::vector<std::string> secrets;
    MaskAccountExport(account, secrets);
    const nlohmann::json masked =
        nlohmann::json::parse(R"json({"authtoken": "toke\u2026 (22 characters)", "name": "n",
        "extras": [{"key": "nickName", "value": "Al"}, {"key": "OAuth_Refresh_TOKEN", "value": "toke\u2026 (30 characters)"},
                   {"key": "userPassword", "value": "\u2026 (2 characters)"}]})json");
    EXPECT_EQ(account, masked);

    // A secret that holds another is masked whole. Secrets shorter than 8 bytes are too common a
    // text to be replaced wherever they appear.
    nlohmann::json elsewhere = {{"token-0123456789abcdef",
                                 {"a token-0123456789abcdef b", "token-0123456789abcdef-refresh", "pw", 1}}};
    MaskOccurrences(elsewhere, secrets);
    EXPECT_EQ(elsewhere,
              nlohmann::json({{"toke\u2026 (22 characters)",
                               {"a toke\u2026 (22 characters) b", "toke\u2026 (30 characters)", "pw", 1}}}));
}

}  // namespace
