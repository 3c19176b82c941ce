#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "batch_shard.h"
#include "html_page.h"
#include "page_assets.h"
#include "record_secrets.h"
#include "record_source_users.h"

namespace {

using namespace Zarvo::Host;

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

TEST(RecordSourceUsersTest, NamesEveryFlagAndEveryUnknownBit) {
    struct Case {
        int64_t flags;
        std::string names;
    } cases[] = {
        {3091, "PRIMARY|ADMIN|INITIALIZED|FULL|SYSTEM"},
        {0x4C13, "PRIMARY|ADMIN|INITIALIZED|FULL|SYSTEM|MAIN"},
        {0x02000410, "INITIALIZED|FULL|0x02000000"},
        {0, "none"},
        {-1,
         "PRIMARY|ADMIN|GUEST|RESTRICTED|INITIALIZED|MANAGED_PROFILE|DISABLED|QUIET_MODE|EPHEMERAL|DEMO|FULL|"
         "SYSTEM|PROFILE|EPHEMERAL_ON_CREATE|MAIN|FOR_TESTING|0x00010000|0x00020000|0x00040000|0x00080000|"
         "0x00100000|0x00200000|0x00400000|0x00800000|0x01000000|0x02000000|0x04000000|0x08000000|0x10000000|"
         "0x20000000|0x40000000|0x80000000"},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(UserFlagNames(c.flags), c.names) << c.flags;
    }
}

TEST(HtmlPageTest, DataCannotEndItsScriptElement) {
    const nlohmann::json data = {{"name", "</script><!--<script>&\u2028"}};
    const std::string text = JsonForScriptElement(data);
    EXPECT_EQ(text, R"({"name":"\u003c/script\u003e\u003c!--\u003cscript\u003e\u0026\u2028"})");
    EXPECT_EQ(nlohmann::json::parse(text), data);
    // Characters that only begin like U+2028 pass as they are, at the end of a string too.
    const nlohmann::json near = {"\u2020\u20ac\u2029", "\xe2\x80", "\u2028\u2028"};
    EXPECT_EQ(JsonForScriptElement(near), "[\"\u2020\u20ac\\u2029\",\"\ufffd\",\"\\u2028\\u2028\"]");
}

// The digest a page's policy names for an inline element, as a browser computes it.
std::string PolicySource(const std::string &content) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(content.data(), content.size(), digest, &length, EVP_sha256(), nullptr);
    unsigned char base64[2 * EVP_MAX_MD_SIZE];
    const int written = EVP_EncodeBlock(base64, digest, static_cast<int>(length));
    return "'sha256-" + std::string(reinterpret_cast<const char *>(base64), static_cast<size_t>(written)) +
           "'";
}

TEST(HtmlPageTest, PolicyAllowsExactlyThePageOwnStyleAndScript) {
    const std::string runScript = std::string(PAGE_COMMON_SCRIPT) + RUN_PAGE_SCRIPT;
    const std::string indexScript = std::string(PAGE_COMMON_SCRIPT) + INDEX_PAGE_SCRIPT;
    for (const auto &[style, script] : std::vector<std::pair<std::string, std::string>>{
             {PAGE_STYLE, runScript}, {PAGE_STYLE, indexScript}, {"p{}", "draw();"}}) {
        const std::string page = SelfContainedPage("t", style, script, nlohmann::json::object());
        EXPECT_NE(page.find("style-src " + PolicySource(style) + ";"), std::string::npos)
            << style.substr(0, 40);
        EXPECT_NE(page.find("script-src " + PolicySource(script) + ";"), std::string::npos)
            << script.substr(0, 40);
        EXPECT_NE(page.find("<script>" + script + "</script>"), std::string::npos);
    }
}

TEST(BatchShardTest, ReadsOnlyKOfN) {
    struct Case {
        std::string text;
        bool valid;
    } cases[] = {{"1/1", true},  {"2/8", true}, {"8/8", true}, {"0/2", false},  {"3/2", false},
                 {"1/0", false}, {"1/", false}, {"/2", false}, {"1/2x", false}, {"-1/2", false}};
    for (const Case &c : cases) {
        Shard shard;
        EXPECT_EQ(ParseShard(c.text, shard), c.valid) << c.text;
        if (c.valid) {
            EXPECT_EQ(ShardText(shard), c.text);
        }
    }
    EXPECT_EQ(ShardEntries({"d", "b", "a", "e", "c"}, {2, 2}), (std::vector<std::string>{"b", "d"}));
}

}  // namespace
