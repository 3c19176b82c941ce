#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "headless_browser.h"
#include "runner_process.h"

namespace {

// A phone that tries every way of getting markup into the page through its names and extras.
const char HOSTILE_PHONE[] = R"({
  "accounts": [{"id": 3, "name": "<script>window.pwned=3</script>\"'&amp;", "type": "com.corvan.cvid",
                "password": null}],
  "authtokens": [{"id": 5, "accountId": 3, "type": "com.corvan.cvid", "authtoken": "tok-0123456789abcdefghij"}],
  "extras": [{"id": 7, "accountId": 3, "key": "<img src=x onerror=window.pwned=4>", "value": "</script><b>x</b>"},
             {"id": 8, "accountId": 3, "key": "refreshToken", "value": "refresh-0123456789"}],
  "users": [
    {"id": 0, "serialNumber": 0, "flags": 3091, "type": "android.os.usertype.full.SYSTEM", "created": 0},
    {"id": 10, "flags": 1040, "type": "android.os.usertype.full.SECONDARY",
     "name": "</script><script>window.pwned=1</script>", "photo": true},
    {"id": 11, "flags": 1040, "type": "android.os.usertype.full.SECONDARY",
     "name": "<img src=x onerror=\"window.pwned=2\">'&amp;", "photo": true},
    {"id": 12, "flags": 16, "name": "Old"}]})";

// What the browser drew: every user card, the account's facts, the extras, the page's text, and
// whether any script of the phone's ran. Images are decoded before they are measured.
const char RENDERED[] = R"((async () => {
  await Promise.all([...document.images].map(i => i.decode().catch(() => null)));
  const all = (selector, map) => [...document.querySelectorAll(selector)].map(map);
  return {
    pwned: typeof window.pwned,
    users: all('article.user', a => ({
      name: a.querySelector('.user-name').textContent,
      photoWidth: a.querySelector('img') ? a.querySelector('img').naturalWidth : null,
      explanation: a.querySelector('.explanation').textContent})),
    account: all('dl.pairs dd', d => d.textContent),
    extras: all('table.extras td', d => d.textContent),
    text: document.body.innerText,
    links: all('a.phone', a => a.getAttribute('href')),
    phones: all('.phone', e => e.textContent)
  };
})())";

class RunnerPageBrowserTest : public TempFolderTest {
protected:
    void SetUp() override {
        if (!HeadlessBrowser::Installed()) {
            GTEST_SKIP() << HeadlessBrowser::CHROMIUM << " is not installed (scripts/setup installs it): the "
                         << "page is not checked in a browser.";
        }
        TempFolderTest::SetUp();
        std::string error;
        ASSERT_TRUE(browser_.Start(error)) << error;
    }

    nlohmann::json Render(const std::string &page) {
        std::string error;
        EXPECT_TRUE(browser_.Open(page, error)) << error;
        nlohmann::json rendered = browser_.Evaluate(RENDERED, error);
        EXPECT_TRUE(rendered.is_object()) << error;
        return rendered;
    }

    HeadlessBrowser browser_;
};

// Every user of the report is drawn, with its photo decoded when it has one, and phone text
// stays text: no script of the phone runs and every name reads as the phone wrote it.
TEST_F(RunnerPageBrowserTest, DrawsEveryUserAndPhotoAndKeepsPhoneTextAsText) {
    struct Phone {
        std::string name;
        std::string description;
        std::vector<std::string> userNames;
        std::string accountName;
        std::vector<std::string> extras;  // key, value, ...
    } phones[] = {
        {"sample",
         "",
         {"(no name)", "Zo\u00eb \u0141ukasiewicz \U0001F33B", "Guest", "Work profile"},
         "13800138000",
         {"countryCode", "CN", "nickName", "\u674e\u4f1f", "userId", "2850086000123456789"}},
        {"hostile",
         HOSTILE_PHONE,
         {"(no name)", "</script><script>window.pwned=1</script>",
          "<img src=x onerror=\"window.pwned=2\">'&amp;", "Old"},
         "<script>window.pwned=3</script>\"'&amp;",
         {"<img src=x onerror=window.pwned=4>", "</script><b>x</b>", "refreshToken",
          "refr\u2026 (18 characters)"}},
    };
    for (const Phone &phone : phones) {
        SCOPED_TRACE(phone.name);
        const std::string snapshot = dir_ + "/phones/" + phone.name;
        MakePhone(snapshot, phone.description.empty() ? "" : Write(phone.name + ".json", phone.description));
        const std::string page = dir_ + "/" + phone.name + ".html";
        const std::string report = dir_ + "/" + phone.name + ".json";
        RunResult run = RunRunner("--snapshot " + snapshot + " --html " + page + " --report " + report);
        ASSERT_NE(run.exitCode, 2) << run.output;
        const nlohmann::json json = ReadJson(report);
        const nlohmann::json &users = json["users"];
        // A user has a photo when its OS account carries one, or when the phone had one it kept.
        auto hasPhoto = [&json](const nlohmann::json &user) {
            for (const auto &account : json["osAccountsAfter"]) {
                if (account["localId"] == user["localId"] && !account["photo"].get<std::string>().empty()) {
                    return true;
                }
            }
            return !user["phonePhoto"].get<std::string>().empty();
        };

        const nlohmann::json rendered = Render(page);
        EXPECT_EQ(rendered["pwned"], "undefined");
        ASSERT_EQ(rendered["users"].size(), users.size());
        for (size_t i = 0; i < users.size(); ++i) {
            const nlohmann::json &drawn = rendered["users"][i];
            EXPECT_EQ(drawn["name"], phone.userNames[i]);
            EXPECT_EQ(drawn["explanation"], users[i]["explanation"]);
            if (hasPhoto(users[i])) {
                EXPECT_GT(drawn["photoWidth"].get<int>(), 0) << drawn.dump();
            } else {
                EXPECT_TRUE(drawn["photoWidth"].is_null()) << drawn.dump();
            }
        }
        EXPECT_EQ(rendered["account"][0], phone.accountName);
        EXPECT_EQ(rendered["extras"], nlohmann::json(phone.extras));
        const std::string text = rendered["text"];
        EXPECT_EQ(text.find(phone.name == "sample" ? "QW8xY2M0ZTYt" : "0123456789abcdef"), std::string::npos);
        EXPECT_NE(text.find("\u2026 ("), std::string::npos) << "the masked token is shown";
    }

    // The index of a batch of these phones and one that cannot be set up, whose file name is markup,
    // links each page and names each phone as it is named.
    const std::string odd = "<b onmouseover=x>\"'&amp;";
    Write("phones/" + odd, "not a snapshot");
    const std::string out = dir_ + "/out";
    RunResult run = RunRunner("--batch " + dir_ + "/phones --out " + out);
    EXPECT_EQ(run.exitCode, 2) << run.output;
    const nlohmann::json index = Render(out + "/index.html");
    EXPECT_EQ(index["pwned"], "undefined");
    EXPECT_EQ(index["phones"], nlohmann::json({odd, "hostile", "sample"}));
    EXPECT_EQ(index["links"], nlohmann::json::parse(R"(["phones/hostile.html", "phones/sample.html"])"));

    // The comparison with a run whose hostile phone lost a user draws the phone's texts as text.
    const std::string worse = dir_ + "/worse";
    std::filesystem::copy(out, worse, std::filesystem::copy_options::recursive);
    nlohmann::json report = ReadJson(worse + "/phones/hostile.json");
    report["users"][1]["decision"] = "failed";
    report["users"][1]["explanation"] = "</script><script>window.pwned=5</script>";
    std::filesystem::remove(worse + "/phones/hostile.json");
    Write("worse/phones/hostile.json", report.dump());
    run = RunRunner("--compare " + out + " " + worse + " --out " + dir_ + "/comparison");
    EXPECT_EQ(run.exitCode, 1) << run.output;
    const nlohmann::json comparison = Render(dir_ + "/comparison/compare.html");
    EXPECT_EQ(comparison["pwned"], "undefined");
    const std::string drawn = comparison["text"];
    EXPECT_NE(drawn.find("</script><script>window.pwned=5</script>"), std::string::npos) << drawn;
    EXPECT_NE(
        drawn.find("Source user 10: created as OS account 101 in OLD, failed as OS account 101 in NEW."),
        std::string::npos)
        << drawn;
}

}  // namespace
