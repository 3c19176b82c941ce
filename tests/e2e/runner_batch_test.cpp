#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "runner_process.h"

namespace {

namespace fs = std::filesystem;

// A user file without a type makes the restore return false.
const char FALSE_PHONE[] = R"({"users": [
    {"id": 0, "serialNumber": 0, "flags": 3091, "type": "android.os.usertype.full.SYSTEM", "created": 0},
    {"id": 10, "flags": 16, "name": "Old"}]})";

// One phone of each kind: restored, returning false, and two that cannot be set up (a folder that
// holds no snapshot, a file that is none).
class RunnerBatchTest : public TempFolderTest {
protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        folder_ = dir_ + "/phones";
        MakePhone(folder_ + "/good");
        MakePhone(folder_ + "/false", Write("false.json", FALSE_PHONE));
        fs::create_directories(folder_ + "/empty");
        Write("phones/junk.tar", "not a snapshot");
    }

    // The index with every timing taken out.
    static nlohmann::json WithoutTimings(nlohmann::json index) {
        index.erase("elapsedMs");
        for (auto &phone : index["phones"]) {
            phone.erase("timeMs");
        }
        return index;
    }

    std::string folder_;
};

TEST_F(RunnerBatchTest, IndexTellsEachPhoneAndTheExitStatusTheWorst) {
    const std::string out = dir_ + "/out";
    // A link where a phone's summary goes is replaced, not written through; log lines asked for on
    // stderr stay out of the index.
    const std::string outside = Write("outside.txt", "outside");
    fs::create_directories(out + "/phones");
    fs::create_symlink(outside, out + "/phones/good.txt");
    RunResult run = RunCommand("ZARVO_HILOG_OUTPUT=stderr " + RunnerPath() + " --batch " + folder_ +
                               " --out " + out + " --jobs 2 2>&1");
    EXPECT_EQ(run.exitCode, 2) << run.output;
    EXPECT_EQ(ReadFile(outside), "outside");
    EXPECT_FALSE(fs::is_symlink(out + "/phones/good.txt"));
    EXPECT_NE(run.output.find("4/4 done, 3 failed"), std::string::npos) << run.output;

    const nlohmann::json index = ReadJson(out + "/index.json");
    ASSERT_TRUE(index.is_object()) << run.output;
    EXPECT_EQ(index["totals"],
              nlohmann::json::parse(R"({"phones": 4, "restored": 1, "notRestored": 1, "notSetUp": 2})"));
    struct Row {
        std::string phone;
        std::string result;
        nlohmann::json users;
        nlohmann::json events;
    } rows[] = {
        {"empty", "not set up", {0, 0, 0, 0, 0}, nlohmann::json::object()},
        {"junk.tar", "not set up", {0, 0, 0, 0, 0}, nlohmann::json::object()},
        {"false", "not restored", {1, 0, 0, 0, 1}, {{"PARSE_FILE_ERROR", 1}}},
        {"good", "restored", {1, 1, 0, 2, 0}, nlohmann::json::object()},
    };
    ASSERT_EQ(index["phones"].size(), std::size(rows));
    for (size_t i = 0; i < std::size(rows); ++i) {
        const nlohmann::json &phone = index["phones"][i];
        const std::string name = rows[i].phone;
        EXPECT_EQ(phone["phone"], name);
        EXPECT_EQ(phone["result"], rows[i].result) << phone.dump();
        const nlohmann::json &users = phone["users"];
        EXPECT_EQ(nlohmann::json({users["updated"], users["created"], users["existed"], users["skipped"],
                                  users["failed"]}),
                  rows[i].users)
            << name;
        EXPECT_EQ(phone["events"], rows[i].events) << name;
        const bool setUp = rows[i].result != "not set up";
        EXPECT_EQ(phone["problem"].get<std::string>().empty(), setUp) << phone.dump();
        EXPECT_EQ(phone["page"], setUp ? "phones/" + name + ".html" : "") << name;
        for (const char *extension : {".json", ".html", ".txt"}) {
            EXPECT_EQ(ModeOf(out + "/phones/" + name + extension), setUp ? 0600 : -1) << name << extension;
        }
    }
    EXPECT_NE(ReadFile(out + "/phones/false.txt").find("RestoreData returned false"), std::string::npos);
    EXPECT_EQ(ModeOf(out + "/index.html"), 0600);

    // Without the phones that cannot be set up the worst is a false; without that, none.
    struct Subset {
        std::vector<std::string> removed;
        int exitCode;
    } subsets[] = {{{"empty", "junk.tar"}, 1}, {{"false"}, 0}};
    for (const Subset &subset : subsets) {
        for (const std::string &phone : subset.removed) {
            fs::remove_all(folder_ + "/" + phone);
        }
        run = RunRunner("--batch " + folder_ + " --out " + dir_ + "/out" + std::to_string(subset.exitCode));
        EXPECT_EQ(run.exitCode, subset.exitCode) << run.output;
    }
}

// Two shards cover the folder once, and their merged index is the index of one whole run.
TEST_F(RunnerBatchTest, ShardsCoverTheFolderOnceAndMergeIntoTheWholeIndex) {
    RunResult whole = RunRunner("--batch " + folder_ + " --out " + dir_ + "/whole");
    ASSERT_EQ(whole.exitCode, 2) << whole.output;
    std::multiset<std::string> covered;
    for (const char *shard : {"1/2", "2/2"}) {
        const std::string out = dir_ + "/shard" + std::string(1, shard[0]);
        RunResult run = RunRunner("--batch " + folder_ + " --out " + out + " --shard " + shard);
        EXPECT_NE(run.exitCode, -1) << run.output;
        const nlohmann::json index = ReadJson(out + "/index.json");
        ASSERT_TRUE(index.is_object()) << run.output;
        EXPECT_EQ(index["shard"], shard);
        EXPECT_EQ(index["phones"].size(), 2u);
        for (const auto &phone : index["phones"]) {
            covered.insert(phone["phone"].get<std::string>());
        }
    }
    EXPECT_EQ(covered, (std::multiset<std::string>{"empty", "false", "good", "junk.tar"}));

    const std::string merged = dir_ + "/merged";
    RunResult merge = RunRunner("--merge-index " + merged + " " + dir_ + "/shard1 " + dir_ + "/shard2");
    EXPECT_EQ(merge.exitCode, 2) << merge.output;
    EXPECT_EQ(WithoutTimings(ReadJson(merged + "/index.json")),
              WithoutTimings(ReadJson(dir_ + "/whole/index.json")));
    EXPECT_EQ(ModeOf(merged + "/phones/good.html"), 0600);

    RunResult twice = RunRunner("--merge-index " + dir_ + "/again " + dir_ + "/shard1 " + dir_ + "/shard1");
    EXPECT_EQ(twice.exitCode, 2);
    EXPECT_NE(twice.output.find("more than one of the indexes"), std::string::npos) << twice.output;
    RunResult partial = RunRunner("--merge-index " + dir_ + "/partial " + dir_ + "/shard2");
    EXPECT_NE(partial.output.find("lacks shard 1/2"), std::string::npos) << partial.output;
}

}  // namespace
