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

// Faults on purpose: every OS account creation fails (users 10 and 11 fail), and the migrate
// service stalls one request.
const char HOSTILE_DEVICE[] = R"({
  "faults": [{"operation": "CreateOsAccountWithFullInfo", "code": 4194305}],
  "migrateService": {"faults": [{"action": "stall", "stallMs": 1, "count": 1}]}})";

// What the browser drew: every user card, the account's facts, the extras, the page's text, and
// whether any script of the phone's ran. Images are decoded before they are measured.
const char RENDERED[] = R"((async () => {
  await Promise.all([...document.images].map(i => i.decode().catch(() => null)));
  const all = (selector, map) => [...document.querySelectorAll(selector)].map(map);
  return {
    pwned: typeof window.pwned,
    overflow: document.documentElement.scrollWidth - window.innerWidth,
    banner: all('.verdict .sentence', e => e.textContent),
    injected: all('.badge.injected', e => e.closest('td, p').className),
    reasons: all('td.reason', e => e.textContent),
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

    // The page as drawn on a laptop (1280 pixels wide); on a phone (390) it draws the same, and on
    // neither is it wider than the screen.
    nlohmann::json Render(const std::string &page) {
        std::string error;
        EXPECT_TRUE(browser_.Open(page, error)) << error;
        nlohmann::json drawn[2];
        const int widths[2] = {1280, 390};
        for (int i = 0; i < 2; ++i) {
            EXPECT_TRUE(browser_.SetWidth(widths[i], error)) << error;
            drawn[i] = browser_.Evaluate(RENDERED, error);
            EXPECT_TRUE(drawn[i].is_object()) << error;
            EXPECT_LE(drawn[i].value("overflow", 1), 0)
                << page << " scrolls sideways at " << widths[i] << " pixels";
        }
        nlohmann::json laptop = drawn[0];
        for (nlohmann::json &rendered : drawn) {
            rendered.erase("text");  // innerText follows the layout, and a laptop shows a scroll bar
            rendered.erase("overflow");
        }
        EXPECT_EQ(drawn[1], drawn[0]);
        return laptop;
    }

    HeadlessBrowser browser_;
};

// Every user of the report is drawn, failed ones first, with its photo decoded when it has one;
// phone text stays text: no script of the phone runs and every name reads as the phone wrote it.
// The verdict's first reason heads the page and injected faults are marked, on the page and the
// index, at a laptop's and a phone's width.
TEST_F(RunnerPageBrowserTest, DrawsEveryUserAndPhotoAndKeepsPhoneTextAsText) {
    struct Phone {
        std::string name;
        std::string description;
        std::vector<std::string> userNames;
        std::string accountName;
        std::vector<std::string> extras;  // key, value, ...
        std::string deviceState;
    } phones[] = {
        {"sample",
         "",
         {"(no name)", "Zo\u00eb \u0141ukasiewicz \U0001F33B", "Guest", "Work profile"},
         "13800138000",
         {"countryCode", "CN", "nickName", "\u674e\u4f1f", "userId", "2850086000123456789"},
         ""},
        {"hostile",
         HOSTILE_PHONE,
         {"(no name)", "</script><script>window.pwned=1</script>",
          "<img src=x onerror=\"window.pwned=2\">'&amp;", "Old"},
         "<script>window.pwned=3</script>\"'&amp;",
         {"<img src=x onerror=window.pwned=4>", "</script><b>x</b>", "refreshToken",
          "refr\u2026 (18 characters)"},
         Write("device.json", HOSTILE_DEVICE)},
    };
    for (const Phone &phone : phones) {
        SCOPED_TRACE(phone.name);
        const std::string snapshot = dir_ + "/phones/" + phone.name;
        MakePhone(snapshot, phone.description.empty() ? "" : Write(phone.name + ".json", phone.description));
        const std::string page = dir_ + "/" + phone.name + ".html";
        const std::string report = dir_ + "/" + phone.name + ".json";
        RunResult run = RunRunner("--snapshot " + snapshot + " --html " + page + " --report " + report +
                                  (phone.deviceState.empty() ? "" : " --device-state " + phone.deviceState));
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
        EXPECT_EQ(rendered["banner"], nlohmann::json::array({json["verdict"]["sentence"]}));
        std::vector<size_t> order;  // failed users first, then those never reached
        for (const char *decision : {"failed", "not reached", ""}) {
            for (size_t i = 0; i < users.size(); ++i) {
                const std::string drawnAs = users[i]["decision"];
                if (drawnAs == decision ||
                    (*decision == 0 && drawnAs != "failed" && drawnAs != "not reached")) {
                    order.push_back(i);
                }
            }
        }
        if (phone.deviceState.empty()) {
            EXPECT_EQ(rendered["injected"], nlohmann::json::array());
        } else {
            EXPECT_NE(json["verdict"]["sentence"].get<std::string>().find("user 10"), std::string::npos);
            EXPECT_EQ(order.front(), 1u) << "user 10 failed";
            EXPECT_EQ(rendered["injected"], nlohmann::json({"injected-note", "", ""}));
        }
        ASSERT_EQ(rendered["users"].size(), users.size());
        for (size_t drawnAt = 0; drawnAt < users.size(); ++drawnAt) {
            const size_t i = order[drawnAt];
            const nlohmann::json &drawn = rendered["users"][drawnAt];
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
    // links each page, names each phone as it is named, gives each verdict and marks the faults.
    const std::string odd = "<b onmouseover=x>\"'&amp;";
    Write("phones/" + odd, "not a snapshot");
    const std::string out = dir_ + "/out";
    RunResult run =
        RunRunner("--batch " + dir_ + "/phones --out " + out + " --device-state " + dir_ + "/device.json");
    EXPECT_EQ(run.exitCode, 2) << run.output;
    const nlohmann::json index = Render(out + "/index.html");
    EXPECT_EQ(index["pwned"], "undefined");
    EXPECT_EQ(index["phones"], nlohmann::json({odd, "hostile", "sample"}));
    EXPECT_EQ(index["links"], nlohmann::json::parse(R"(["phones/hostile.html", "phones/sample.html"])"));
    const nlohmann::json rows = ReadJson(out + "/index.json")["phones"];
    EXPECT_EQ(index["reasons"], nlohmann::json({"", rows[1]["reason"], rows[2]["reason"]}));
    EXPECT_NE(rows[1]["reason"].get<std::string>().find("Not restored: "), std::string::npos);
    EXPECT_EQ(index["injected"], nlohmann::json({"", ""}));

    // The comparison with a run whose hostile phone lost a user draws the phone's texts as text.
    const std::string worse = dir_ + "/worse";
    std::filesystem::copy(out, worse, std::filesystem::copy_options::recursive);
    nlohmann::json report = ReadJson(worse + "/phones/hostile.json");
    nlohmann::json *lost = nullptr;
    for (auto &user : report["users"]) {
        if (lost == nullptr && (user["decision"] == "created" || user["decision"] == "updated")) {
            lost = &user;
        }
    }
    ASSERT_NE(lost, nullptr) << report["users"].dump(1);
    const std::string was = "Source user " + std::to_string((*lost)["sourceId"].get<int>()) + ": " +
                            (*lost)["decision"].get<std::string>() + " as OS account " +
                            std::to_string((*lost)["localId"].get<int>()) + " in OLD, failed";
    (*lost)["decision"] = "failed";
    (*lost)["explanation"] = "</script><script>window.pwned=5</script>";
    std::filesystem::remove(worse + "/phones/hostile.json");
    Write("worse/phones/hostile.json", report.dump());
    run = RunRunner("--compare " + out + " " + worse + " --out " + dir_ + "/comparison");
    EXPECT_EQ(run.exitCode, 1) << run.output;
    const nlohmann::json comparison = Render(dir_ + "/comparison/compare.html");
    EXPECT_EQ(comparison["pwned"], "undefined");
    const std::string drawn = comparison["text"];
    EXPECT_NE(drawn.find("</script><script>window.pwned=5</script>"), std::string::npos) << drawn;
    EXPECT_NE(drawn.find(was), std::string::npos) << was << "\n" << drawn;
}

}  // namespace
