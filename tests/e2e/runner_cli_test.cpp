#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>

#include "program_run.h"

namespace {

namespace fs = std::filesystem;

using RunResult = Zarvo::Testing::ProgramRun;

RunResult RunRunner(const std::string &arguments) {
    return Zarvo::Testing::RunProgram(std::string(RUNNER_PATH) + " " + arguments);
}

// The runner makes its own sandbox; these tests run it from outside one, as a person would.
class RunnerCliTest : public testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/runner_cli_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string Write(const std::string &name, const std::string &content) {
        std::string path = dir_ + "/" + name;
        std::ofstream(path) << content;
        return path;
    }

    std::string dir_;
};

TEST_F(RunnerCliTest, RestoresTheSamplePhoneAndWritesTheReport) {
    const std::string report = dir_ + "/report.json";
    RunResult run = RunRunner("--report " + report);
    ASSERT_EQ(run.exitCode, 0) << run.output;
    EXPECT_NE(run.output.find("RestoreData returned true"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("source user 0: updated as OS account 100"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("source user 10: created as OS account 101"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("source user 11: skipped"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("mode 0700"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("Work tree removed"), std::string::npos) << run.output;

    std::ifstream in(report);
    nlohmann::json json = nlohmann::json::parse(in, nullptr, false);
    ASSERT_TRUE(json.is_object());
    EXPECT_EQ(json["result"], true);
    EXPECT_EQ(json["workTreeRemoved"], true);
    ASSERT_FALSE(json["logs"].empty());
    const auto &first = json["logs"][0];
    EXPECT_EQ(first["tag"], "MIGRATE_PLUGIN");
    EXPECT_EQ(first["domain"], 0xD002E12);
    EXPECT_EQ(first["message"], "RestoreData called.");
    EXPECT_EQ(first["file"], "restore_plugin.cpp");
    EXPECT_EQ(first["level"], "INFO");
    ASSERT_EQ(json["handedFiles"].size(), 1u);
    EXPECT_EQ(json["handedFiles"][0]["mode"], "0700");
    EXPECT_EQ(json["handedFiles"][0]["uid"], 20010040);
    EXPECT_EQ(nlohmann::json::parse(json["handedFiles"][0]["content"].get<std::string>())["type"],
              "com.corvan.cvid");
    EXPECT_EQ(json["osAccountsAfter"].size(), 2u);
    EXPECT_FALSE(json["migrateJournal"].empty());
    EXPECT_TRUE(json["events"].empty());
    EXPECT_GT(json["elapsedMs"]["total"].get<double>(), 0.0);
}

TEST_F(RunnerCliTest, AFailedRestoreExitsWithOne) {
    const std::string state = Write("state.json", R"({"bundles": []})");
    RunResult run = RunRunner("--device-state " + state);
    EXPECT_EQ(run.exitCode, 1) << run.output;
    EXPECT_NE(run.output.find("RestoreData returned false"), std::string::npos) << run.output;
}

// A phone of its own whose users raise a fault event of each type: user 10 exists already on the
// device, 11's binary file is cut short, 12's file names no type. There is no account database,
// so the account restore fails while the user restore still runs.
TEST_F(RunnerCliTest, ReportsEveryFaultEventWithItsParameters) {
    ASSERT_EQ(std::system(("mkdir -p " + dir_ + "/phone/system/users").c_str()), 0);
    const std::string header = "<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\n";
    Write("phone/system/users/userlist.xml",
          header + R"(<users nextSerialNumber="13" version="9"><user id="0" /><user id="10" />)" +
              R"(<user id="11" /><user id="12" /></users>)");
    const std::string owner =
        R"(<user id="0" serialNumber="0" flags="3091" type="android.os.usertype.full.SYSTEM" )"
        R"(created="0" lastLoggedIn="5"><name>Owner</name></user>)";
    Write("phone/system/users/0.xml", header + owner);
    Write("phone/system/users/10.xml",
          header +
              R"(<user id="10" serialNumber="10" flags="1040" type="android.os.usertype.full.SECONDARY" )"
              R"(created="0" lastLoggedIn="0"><name>Bob</name></user>)");
    Write("phone/system/users/11.xml", std::string("ABX\0\x00\x12", 6));
    Write(
        "phone/system/users/12.xml",
        header +
            R"(<user id="12" serialNumber="12" flags="16" created="0" lastLoggedIn="0"><name>Old</name></user>)");
    const std::string state = Write("state.json", R"({"osAccounts": [
        {"localId": 100, "localName": "admin", "type": "ADMIN", "isActived": true},
        {"localId": 101, "localName": "taken"}]})");
    const std::string report = dir_ + "/report.json";

    RunResult run =
        RunRunner("--snapshot " + dir_ + "/phone --device-state " + state + " --report " + report);
    EXPECT_EQ(run.exitCode, 1) << run.output;
    EXPECT_NE(run.output.find("source user 0: updated as OS account 100"), std::string::npos) << run.output;

    struct Expected {
        std::string type;
        int code;
        std::string message;
    } expected[] = {
        {"CREATE_USER_ERROR", 0, "10.xml create user 101 is already exists."},
        {"SOURCE_FILE_ERROR", 0x200004, "11.xmlconvert error"},
        {"PARSE_FILE_ERROR", 0x200018, "12.xmlparse to os user info error."},
    };
    std::ifstream in(report);
    nlohmann::json json = nlohmann::json::parse(in, nullptr, false);
    ASSERT_TRUE(json.is_object()) << run.output;
    ASSERT_EQ(json["events"].size(), std::size(expected)) << json["events"].dump(1);
    EXPECT_NE(run.output.find("Fault events: 3"), std::string::npos) << run.output;
    for (size_t i = 0; i < std::size(expected); ++i) {
        const nlohmann::json &event = json["events"][i];
        EXPECT_EQ(event["domain"], "MIGRATESERVER");
        EXPECT_EQ(event["name"], "RESTORE_SO_FAIL");
        EXPECT_EQ(event["params"], nlohmann::json({{"TASK_ID", "200"},
                                                   {"ERROR_TYPE", expected[i].type},
                                                   {"ERROR_CODE", expected[i].code},
                                                   {"ERROR_MESSAGE", expected[i].message}}));
        const std::string line = "  " + expected[i].type + " code " + std::to_string(expected[i].code) +
                                 " (task 200): " + expected[i].message + "\n";
        EXPECT_NE(run.output.find(line), std::string::npos) << line << run.output;
    }
}

// Only regular files and directories are laid: a link or a FIFO in a snapshot never brings the
// host's files into the restore.
TEST_F(RunnerCliTest, LinksAndSpecialFilesOfASnapshotAreLeftOutAndListed) {
    const std::string phone = dir_ + "/phone";
    const std::string users = phone + "/system/users/";
    const std::string secret = Write("secret.png", "the host's own file");
    ASSERT_EQ(std::system((std::string(SAMPLE_PHONE_PATH) + " --out " + phone).c_str()), 0);
    ASSERT_EQ(unlink((users + "10/photo.png").c_str()), 0);
    ASSERT_EQ(symlink(secret.c_str(), (users + "10/photo.png").c_str()), 0);
    ASSERT_EQ(unlink((users + "12.xml").c_str()), 0);
    ASSERT_EQ(link(secret.c_str(), (users + "12.xml").c_str()), 0);
    ASSERT_EQ(mkfifo((users + "13.xml").c_str(), 0644), 0);
    const std::string report = dir_ + "/report.json";

    RunResult run = RunRunner("--snapshot " + phone + " --report " + report);
    ASSERT_NE(run.exitCode, 2) << run.output;
    EXPECT_NE(run.output.find("Left out of the snapshot: 3\n"), std::string::npos) << run.output;
    std::ifstream in(report);
    nlohmann::json json = nlohmann::json::parse(in, nullptr, false);
    ASSERT_TRUE(json.is_object()) << run.output;
    EXPECT_EQ(json["snapshotRoot"], "the folder itself");
    EXPECT_EQ(json["leftOut"], nlohmann::json::parse(R"([
        {"path": "system/users/10/photo.png", "reason": "a symbolic link to )" +
                                                     secret + R"("},
        {"path": "system/users/12.xml", "reason": "a hard link"},
        {"path": "system/users/13.xml", "reason": "a FIFO"}])"));
    for (const auto &laid : json["laidFiles"]) {
        EXPECT_EQ(laid["from"].get<std::string>().rfind(phone, 0), 0u) << laid.dump();
    }
    EXPECT_EQ(json["osAccountsAfter"].dump().find("dGhlIGhvc3Qncy"), std::string::npos)
        << "the host file's content, base64, must not become a photo";
}

TEST_F(RunnerCliTest, BadUsageExitsWithTwoAndOneSentence) {
    const std::string bad = Write("bad.json", "{not json");
    struct Case {
        std::string arguments;
        std::string says;
    } cases[] = {
        {"--snapshot " + dir_ + "/missing", "does not exist"},
        {"--snapshot " + dir_, "holds neither"},
        {"--device-state " + bad, "restore_runner: "},
        {"--snapshot /data/whatever", "/data/whatever"},
        {"--no-such-option", "no-such-option"},
    };
    for (const auto &c : cases) {
        RunResult run = RunRunner(c.arguments);
        EXPECT_EQ(run.exitCode, 2) << c.arguments << "\n" << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << c.arguments << "\n" << run.output;
        EXPECT_EQ(run.output.find("RestoreData returned"), std::string::npos) << run.output;
    }
}

TEST_F(RunnerCliTest, HelpExitsWithZero) {
    RunResult run = RunRunner("--help");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_NE(run.output.find("--snapshot"), std::string::npos);
    EXPECT_NE(run.output.find("--use-running-service"), std::string::npos);
}

}  // namespace
