#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>

#include "runner_process.h"

namespace {

namespace fs = std::filesystem;

const char OWNER_ONLY_PHONE[] = R"({"users": [
    {"id": 0, "serialNumber": 0, "flags": 3091, "type": "android.os.usertype.full.SYSTEM", "created": 0}]})";
const char CREATE_FAILS[] = R"({"faults": [{"operation": "CreateOsAccountWithFullInfo", "code": 12300001}]})";

// A shelf of two phones: "full" has a secondary user whose OS account is created, "owner" has only
// its owner. It is run twice as it is and once with OS account creation failing.
class RunnerCompareTest : public TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        MakePhone(dir_ + "/shelf/full");
        MakePhone(dir_ + "/shelf/owner", Write("owner.json", OWNER_ONLY_PHONE));
        for (const char *run : {"old", "again"}) {
            ASSERT_EQ(RunRunner("--batch " + dir_ + "/shelf --out " + dir_ + "/" + run).exitCode, 0);
        }
        RunResult failing = RunRunner("--batch " + dir_ + "/shelf --out " + dir_ + "/new --device-state " +
                                      Write("state.json", CREATE_FAILS));
        ASSERT_EQ(failing.exitCode, 1) << failing.output;
    }

    RunResult Compare(const std::string &oldSide, const std::string &newSide,
                      const std::string &options = "") {
        return RunRunner("--compare " + dir_ + "/" + oldSide + " " + dir_ + "/" + newSide + " " + options);
    }
};

TEST_F(RunnerCompareTest, ListsExactlyThePhoneThatLostAUserAndExitsOne) {
    RunResult same = Compare("old", "again", "--out " + dir_ + "/same");
    EXPECT_EQ(same.exitCode, 0) << same.output;
    const nlohmann::json equal = ReadJson(dir_ + "/same/compare.json");
    EXPECT_EQ(equal["totals"],
              nlohmann::json::parse(R"({"phones": 2, "unchanged": 2, "changed": 0, "worse": 0})"));
    EXPECT_TRUE(equal["phones"].empty()) << equal.dump(1);

    RunResult worse = Compare("old", "new", "--out " + dir_ + "/cmp");
    EXPECT_EQ(worse.exitCode, 1) << worse.output;
    EXPECT_NE(worse.output.find(
                  "Source user 10: created as OS account 101 in OLD, failed as OS account 101 in NEW."),
              std::string::npos)
        << worse.output;
    const nlohmann::json comparison = ReadJson(dir_ + "/cmp/compare.json");
    ASSERT_EQ(comparison["phones"].size(), 1u) << comparison.dump(1);
    const nlohmann::json &phone = comparison["phones"][0];
    EXPECT_EQ(phone["phone"], "full");
    EXPECT_EQ(phone["worse"], true);
    EXPECT_EQ(phone["losses"].size(), 2u);
    std::map<std::string, std::string> changed;
    for (const auto &change : phone["changes"]) {
        changed[change["what"]] = change["new"];
    }
    EXPECT_EQ(changed.size(), 6u) << phone.dump(1);
    EXPECT_EQ(changed["result"], "not restored");
    EXPECT_EQ(changed["source user 10"], "failed as OS account 101");
    EXPECT_NE(changed["verdict"].find("user 10's OS account 101 could not be created"), std::string::npos);
    EXPECT_NE(changed["reasons"].find("user 10's OS account 101"), std::string::npos);
    EXPECT_NE(changed["source user 10: why"].find("after 4 tries"), std::string::npos);
    EXPECT_NE(changed["fault events"].find("CREATE_USER_ERROR code 0xBBAEE1"), std::string::npos);
    EXPECT_EQ(phone["new"]["handedDigest"].get<std::string>().size(), 64u);
    EXPECT_EQ(comparison["totals"]["unchanged"], 1);
    EXPECT_EQ(ModeOf(dir_ + "/cmp/compare.json"), 0600);
    EXPECT_EQ(ModeOf(dir_ + "/cmp/compare.html"), 0600);

    // Gaining a user back is a change, not a loss.
    RunResult better = Compare("new", "old");
    EXPECT_EQ(better.exitCode, 0) << better.output;
    EXPECT_NE(better.output.find("1 changed, 0 worse"), std::string::npos) << better.output;
}

TEST_F(RunnerCompareTest, ReportsAreReadAsHostileInput) {
    const std::string report = dir_ + "/old/phones/full.json";
    nlohmann::json handed = ReadJson(report);
    handed["handedFiles"][0]["content"] = handed["handedFiles"][0]["content"].get<std::string>() + " ";
    Write("handed.json", handed.dump());
    RunResult digest = RunRunner("--compare " + report + " " + dir_ + "/handed.json");
    EXPECT_EQ(digest.exitCode, 0) << digest.output;
    EXPECT_NE(digest.output.find("handed file's SHA-256"), std::string::npos) << digest.output;

    // A report of the reworked record: its verdict decides, and its reasons and account outcome count.
    nlohmann::json judged = ReadJson(report);
    judged["verdict"] = {
        {"restored", false}, {"sentence", "Not restored: user 10 was lost"}, {"reasons", {"a"}}};
    Write("judged.json", judged.dump());
    RunResult verdict = RunRunner("--compare " + report + " " + dir_ + "/judged.json");
    EXPECT_EQ(verdict.exitCode, 1) << verdict.output;
    for (const char *change :
         {"result: restored -> not restored", "-> Not restored: user 10 was lost", "reasons: none -> a"}) {
        EXPECT_NE(verdict.output.find(change), std::string::npos) << change << "\n" << verdict.output;
    }
    EXPECT_EQ(verdict.output.find("account:"), std::string::npos) << "handed over either way";

    nlohmann::json malformed = ReadJson(report);
    malformed["users"][1]["localId"] = "101";
    Write("malformed.json", malformed.dump());
    fs::create_symlink(report, dir_ + "/link.json");
    fs::remove(dir_ + "/again/phones/owner.json");
    fs::create_symlink(dir_ + "/old/phones/owner.json", dir_ + "/again/phones/owner.json");
    struct Refusal {
        std::string oldSide, newSide, sentence;
    } refusals[] = {
        {"old/phones/full.json", "malformed.json",
         "malformed.json is not a runner report: users[1].localId is not a whole number."},
        {"old/phones/full.json", "link.json", "link.json is a symbolic link"},
        {"old", "again", "again/phones/owner.json is a symbolic link"},
        {"old", "handed.json", "not one of each"},
        {"old", "shelf", "shelf holds no index.json"},
    };
    for (const Refusal &refusal : refusals) {
        RunResult run = Compare(refusal.oldSide, refusal.newSide);
        EXPECT_EQ(run.exitCode, 2) << run.output;
        EXPECT_NE(run.output.find(refusal.sentence), std::string::npos) << run.output;
        EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << run.output;
    }
}

}  // namespace
