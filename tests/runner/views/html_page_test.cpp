// The page frame: the data cannot end its script, and the policy admits exactly the page's own
// style and script.
#include "html_page.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "page_assets.h"

namespace {

using namespace Zarvo::Host;

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

}  // namespace
