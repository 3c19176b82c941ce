#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
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

    // The index with every timing and start time taken out.
    static nlohmann::json WithoutTimings(nlohmann::json index) {
        index.erase("elapsedMs");
        index["campaign"].erase("startedUtc");
        for (auto &phone : index["phones"]) {
            phone.erase("timeMs");
            phone.erase("startedUtc");
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
    EXPECT_NE(run.output.find("\n4 phones: 1 restored, 1 not restored, 2 not set up; index: " + out +
                              "/index.html\n"),
              std::string::npos)
        << run.output;

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
        // A row's reason and account outcome are its report's; a phone not set up has no report.
        const nlohmann::json report = ReadJson(out + "/phones/" + name + ".json");
        EXPECT_EQ(phone["reason"], setUp ? report["verdict"]["sentence"] : "") << name;
        EXPECT_EQ(phone["account"], setUp ? report["accountOutcome"]["state"] : "") << name;
        EXPECT_EQ(phone["plugin"]["sha256"], setUp ? report["context"]["plugin"]["sha256"] : "") << name;
        for (const char *extension : {".json", ".html", ".txt"}) {
            EXPECT_EQ(ModeOf(out + "/phones/" + name + extension), setUp ? 0600 : -1) << name << extension;
        }
        // Phones run side by side, each summary holds its own phone's run only.
        const std::string summary = setUp ? ReadFile(out + "/phones/" + name + ".txt") : "";
        EXPECT_EQ(summary.find("Snapshot: " + folder_ + "/" + name + " "),
                  setUp ? summary.find("Snapshot: ") : std::string::npos)
            << summary;
        EXPECT_EQ(summary.find("Snapshot: "), summary.rfind("Snapshot: ")) << summary;
    }
    EXPECT_NE(ReadFile(out + "/phones/false.txt").find("RestoreData returned false"), std::string::npos);
    EXPECT_EQ(index["campaign"]["plugins"].size(), 1u) << index["campaign"].dump();
    EXPECT_EQ(index["campaign"]["startedUtc"].get<std::string>().size(), 24u) << index["campaign"].dump();
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

using RunnerBatchLimitsTest = TempFolderTest;

// A phone whose migrate service never answers is ended at its time limit with its sandbox and
// service, and its row says so; the batch goes on to its index.
TEST_F(RunnerBatchLimitsTest, APhoneThatHangsIsEndedWithAllItStartedAtItsTimeLimit) {
    MakePhone(dir_ + "/shelf/hangs");
    const std::string state =
        Write("stall.json",
              R"({"migrateService": {"faults": [{"action": "stall", "stallMs": 3600000, "count": -1}]}})");
    RunResult run = RunRunner("--batch " + dir_ + "/shelf --out " + dir_ + "/out --device-state " + state +
                              " --phone-timeout 1");
    EXPECT_EQ(run.exitCode, 2) << run.output;
    const nlohmann::json index = ReadJson(dir_ + "/out/index.json");
    ASSERT_TRUE(index.is_object()) << run.output;
    ASSERT_EQ(index["phones"].size(), 1u);
    EXPECT_EQ(index["phones"][0]["result"], "not set up");
    EXPECT_NE(index["phones"][0]["problem"].get<std::string>().find("ran out of time"), std::string::npos)
        << index.dump(1);
    // Nothing the phone started is left: no process names the test's folder.
    for (const auto &process : fs::directory_iterator("/proc")) {
        const std::string command = ReadFile(process.path() / "cmdline");
        EXPECT_EQ(command.find(dir_), std::string::npos) << process.path() << ": " << command;
    }
}

// A split recovery backup is one phone, named by its first piece, and its device state reaches it.
TEST_F(RunnerBatchLimitsTest, ASplitBackupOnAShelfIsOnePhone) {
    const std::string shelf = dir_ + "/shelf";
    fs::create_directories(shelf);
    MakePhone(shelf + "/data.ext4.win", "", "--form split --piece-size 8192");
    ASSERT_TRUE(fs::exists(shelf + "/data.ext4.win002"));
    const std::string state = Write("state.json", R"({"osAccounts": [
        {"localId": 100, "localName": "admin", "type": "ADMIN", "isActived": true},
        {"localId": 101, "localName": "taken"}]})");
    RunResult run = RunRunner("--batch " + shelf + " --out " + dir_ + "/out --device-state " + state);
    EXPECT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("\n1 phone: 1 restored; index: " + dir_ + "/out/index.html\n"),
              std::string::npos)
        << run.output;
    const nlohmann::json index = ReadJson(dir_ + "/out/index.json");
    ASSERT_TRUE(index.is_object()) << run.output;
    ASSERT_EQ(index["phones"].size(), 1u) << index.dump(1);
    EXPECT_EQ(index["phones"][0]["phone"], "data.ext4.win000");
    EXPECT_EQ(index["phones"][0]["events"], nlohmann::json({{"CREATE_USER_ERROR", 1}})) << index.dump(1);
}

// A name with a control character or that is not UTF-8 cannot name a phone's files, row and page
// link: the phone is not set up, and the name cannot put words into its row.
TEST_F(RunnerBatchLimitsTest, PhonesWhoseNamesCannotNameTheirFilesAreNotSetUp) {
    const std::string shelf = dir_ + "/shelf/";
    Write("shelf/bad\nrestore_runner: all is well", "not a snapshot");
    Write("shelf/caf\xe9.tar", "not a snapshot");
    RunResult run = RunRunner("--batch " + shelf + " --out " + dir_ + "/out");
    EXPECT_EQ(run.exitCode, 2) << run.output;
    const nlohmann::json index = ReadJson(dir_ + "/out/index.json");
    ASSERT_TRUE(index.is_object()) << run.output;
    ASSERT_EQ(index["phones"].size(), 2u);
    const char *problems[] = {"its name holds a control character", "its name is not UTF-8"};
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(index["phones"][i]["result"], "not set up");
        EXPECT_EQ(index["phones"][i]["problem"].get<std::string>().rfind(problems[i], 0), 0u)
            << index.dump(1);
    }
}

// A shard's folder is hostile: its files are read only when they are regular files reached
// without a link, and its index only in the form a batch writes, else one sentence names it.
TEST_F(RunnerBatchLimitsTest, AMergeReadsOnlyRegularShardFilesInTheFormABatchWrites) {
    const nlohmann::json row =
        nlohmann::json::parse(R"({"phone": "victim", "result": "restored", "problem": "",
        "page": "phones/victim.html", "timeMs": 1, "events": {"PARSE_FILE_ERROR": 1},
        "users": {"updated": 1, "created": 0, "existed": 0, "skipped": 0, "failed": 0}})");
    const std::string secret = Write("secret.json", "the host's own file");
    ASSERT_EQ(chmod(secret.c_str(), 0600), 0);
    struct Case {
        std::string name;
        std::function<void(const std::string &shard, nlohmann::json &index)> tamper;
        std::string says;
    } cases[] = {
        {"good", [](const std::string &, nlohmann::json &) {}, ""},
        {"linked report",
         [&](const std::string &shard, nlohmann::json &) {
             fs::create_symlink(secret, shard + "/phones/victim.json");
         },
         "/phones/victim.json is a symbolic link"},
        {"hard-linked report",
         [&](const std::string &shard, nlohmann::json &) {
             fs::create_hard_link(secret, shard + "/phones/victim.json");
         },
         "/phones/victim.json is no regular file with one name"},
        {"phone no text", [](const std::string &, nlohmann::json &index) { index["phones"][0]["phone"] = 5; },
         "/index.json is malformed"},
        {"count no number",
         [](const std::string &, nlohmann::json &index) { index["phones"][0]["users"]["created"] = "x"; },
         "/index.json is malformed"},
        {"unknown result",
         [](const std::string &, nlohmann::json &index) { index["phones"][0]["result"] = "hacked"; },
         "/index.json is malformed"},
        {"too many shards", [](const std::string &, nlohmann::json &index) { index["shard"] = "1/20000"; },
         "/index.json is malformed"},
        {"plug-in digest no hex",
         [](const std::string &, nlohmann::json &index) {
             index["phones"][0]["plugin"] = {{"sha256", "<b>"}, {"version", ""}};
         },
         "/index.json is malformed"},
        {"injected no boolean",
         [](const std::string &, nlohmann::json &index) { index["phones"][0]["injected"] = "yes"; },
         "/index.json is malformed"},
    };
    for (const Case &c : cases) {
        const std::string shard = dir_ + "/" + c.name;
        fs::create_directories(shard + "/phones");
        Write(c.name + "/phones/victim.html", "<p>page</p>");
        nlohmann::json index = {{"phones", {row}}, {"elapsedMs", 1}};
        c.tamper(shard, index);
        Write(c.name + "/index.json", index.dump());
        const std::string merged = dir_ + "/merged-" + c.name;
        RunResult run = RunRunner("--merge-index '" + merged + "' '" + shard + "'");
        EXPECT_EQ(run.exitCode, c.says.empty() ? 0 : 2) << c.name << "\n" << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << c.name << "\n" << run.output;
        EXPECT_EQ(run.output.find("unexpected failure"), std::string::npos) << run.output;
        EXPECT_EQ(fs::exists(merged), c.says.empty()) << c.name;
    }
    EXPECT_EQ(ReadFile(dir_ + "/merged-good/phones/victim.html"), "<p>page</p>");

    // An index that is a FIFO is refused at once, not waited on.
    fs::create_directories(dir_ + "/fifo");
    ASSERT_EQ(mkfifo((dir_ + "/fifo/index.json").c_str(), 0600), 0);
    RunResult run = RunRunner("--merge-index " + dir_ + "/merged-fifo " + dir_ + "/fifo");
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_NE(run.output.find("/fifo/index.json is no regular file"), std::string::npos) << run.output;
}

}  // namespace
