#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "runner_process.h"

namespace {

namespace fs = std::filesystem;
using RunnerCliTest = TempFolderTest;

// The auth token of the sample phone's account, in part: enough to tell it in clear from masked.
const std::string SAMPLE_TOKEN_PART = "QW8xY2M0ZTYtYjQ1Ny00ZmE2";
const std::string SAMPLE_TOKEN_MASKED = "CgB6\u2026 (140 characters)";

// Every view of the run, and the token in none of them in clear unless asked for. A report file
// that was there before, readable by all, is replaced by an owner-only one.
TEST_F(RunnerCliTest, RestoresTheSamplePhoneIntoSummaryReportAndPage) {
    const std::string report = Write("report.json", "old");
    ASSERT_EQ(chmod(report.c_str(), 0644), 0);
    const std::string page = dir_ + "/page.html";
    for (bool reveal : {false, true}) {
        RunResult run =
            RunRunner("--report " + report + " --html " + page + (reveal ? " --reveal-secrets" : ""));
        ASSERT_EQ(run.exitCode, 0) << run.output;
        const std::string views[] = {run.output, ReadFile(report), ReadFile(page)};
        for (const std::string &view : views) {
            EXPECT_EQ(view.find(SAMPLE_TOKEN_PART) != std::string::npos, reveal) << view.substr(0, 2000);
            EXPECT_EQ(view.find(SAMPLE_TOKEN_MASKED) != std::string::npos, !reveal) << view.substr(0, 2000);
        }
        EXPECT_EQ(ModeOf(report), 0600);
        EXPECT_EQ(ModeOf(page), 0600);
    }
    RunResult run = RunRunner("--report " + report);
    for (const char *line : {"RestoreData returned true", "source user 0: updated as OS account 100",
                             "source user 10: created as OS account 101", "source user 11: skipped (A guest;",
                             "mode 0700", "Work tree removed"}) {
        EXPECT_NE(run.output.find(line), std::string::npos) << line << "\n" << run.output;
    }

    nlohmann::json json = ReadJson(report);
    ASSERT_TRUE(json.is_object());
    EXPECT_EQ(json["result"], true);
    EXPECT_EQ(json["workTreeRemoved"], true);
    EXPECT_EQ(json["secrets"], "masked");
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
    const nlohmann::json handed = nlohmann::json::parse(json["handedFiles"][0]["content"].get<std::string>());
    EXPECT_EQ(handed["type"], "com.corvan.cvid");
    EXPECT_EQ(handed["extras"].size(), 3u);
    EXPECT_EQ(json["account"]["authToken"], handed["authtoken"]);
    EXPECT_EQ(json["account"]["locale"], "zh_CN_#Hans");
    EXPECT_EQ(json["osAccountsAfter"].size(), 2u);
    EXPECT_FALSE(json["migrateJournal"].empty());
    EXPECT_TRUE(json["events"].empty());
    EXPECT_GT(json["elapsedMs"]["total"].get<double>(), 0.0);
    ASSERT_EQ(json["users"].size(), 4u);
    EXPECT_EQ(json["users"][0]["source"]["flagNames"], "PRIMARY|ADMIN|INITIALIZED|FULL|SYSTEM");
    EXPECT_EQ(json["users"][3]["source"]["type"], "android.os.usertype.profile.MANAGED");
}

// A phone of its own whose users raise a fault event of each type: user 10 exists already on the
// device, 11's binary file is cut short, 12's file names no type. There is no account database,
// so the account restore fails while the user restore still runs. Each user's fate is told in
// plain words.
TEST_F(RunnerCliTest, ReportsEveryFaultEventWithItsParameters) {
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
        std::string explanation;  // of the user the event is about, in part
        std::string codeText;     // as the summary shows it
    } expected[] = {
        {"CREATE_USER_ERROR", 0, "10.xml create user 101 is already exists.", "was already on this device",
         "0x0 ALREADY_EXISTS"},
        {"SOURCE_FILE_ERROR", 0x200004, "11.xmlconvert error", "is neither binary XML nor text XML",
         "0x200004 CONVERT_NOT_XML"},
        {"PARSE_FILE_ERROR", 0x200018, "12.xmlparse to os user info error.",
         "no type attribute, as Android 10", "0x200018 USER_TYPE_MISSING"},
    };
    nlohmann::json json = ReadJson(report);
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
        const std::string line = "  " + expected[i].type + " code " + expected[i].codeText +
                                 " (task 200): " + expected[i].message + "\n";
        EXPECT_NE(run.output.find(line), std::string::npos) << line << run.output;
        EXPECT_NE(json["users"][i + 1]["explanation"].get<std::string>().find(expected[i].explanation),
                  std::string::npos)
            << json["users"][i + 1].dump(1);
    }
}

// Only regular files and directories are laid: a link or a FIFO in a snapshot never brings the
// host's files into the restore.
TEST_F(RunnerCliTest, LinksAndSpecialFilesOfASnapshotAreLeftOutAndListed) {
    const std::string phone = dir_ + "/phone";
    const std::string users = phone + "/system/users/";
    const std::string secret = Write("secret.png", "the host's own file");
    MakePhone(phone);
    ASSERT_EQ(unlink((users + "10/photo.png").c_str()), 0);
    ASSERT_EQ(symlink(secret.c_str(), (users + "10/photo.png").c_str()), 0);
    ASSERT_EQ(unlink((users + "12.xml").c_str()), 0);
    ASSERT_EQ(link(secret.c_str(), (users + "12.xml").c_str()), 0);
    ASSERT_EQ(mkfifo((users + "13.xml").c_str(), 0644), 0);
    const std::string report = dir_ + "/report.json";

    RunResult run = RunRunner("--snapshot " + phone + " --report " + report);
    ASSERT_NE(run.exitCode, 2) << run.output;
    EXPECT_NE(run.output.find("Left out of the snapshot: 3\n"), std::string::npos) << run.output;
    nlohmann::json json = ReadJson(report);
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

// Every file and folder below the test's folder, with its kind and size.
std::set<std::string> Listing(const std::string &dir) {
    std::set<std::string> entries;
    for (const auto &entry : fs::recursive_directory_iterator(dir)) {
        const auto status = entry.symlink_status();
        entries.insert(entry.path().string() + " " + std::to_string(static_cast<int>(status.type())) + " " +
                       (fs::is_regular_file(status) ? std::to_string(entry.file_size()) : ""));
    }
    return entries;
}

// Whatever can be known before the restore is refused before anything runs: one sentence, exit
// status 2, and nothing written (no report, page, log, out folder), no sandbox started.
TEST_F(RunnerCliTest, RefusesBeforeAnythingRunsOrIsWritten) {
    const std::string bad = Write("bad.json", "{not json");
    const std::string badFaults = Write("faults.json", R"({"migrateService": {"faults": 3}})");
    const std::string shelf = fs::path(Write("shelf/.hidden", "")).parent_path();
    const std::string phones = dir_ + "/phones";
    MakePhone(phones + "/good");
    fs::create_directory_symlink(phones, dir_ + "/into-phones");
    const std::string file = Write("file", "");
    const std::string out = " --out " + dir_ + "/out";
    // The host is read-only in the tests' sandbox.
    const std::string readOnly = "/etc/restore-runner-test";
    struct Case {
        std::string arguments;
        std::string says;
    } cases[] = {
        {"--snapshot " + dir_ + "/missing", "does not exist"},
        {"--snapshot " + dir_, "holds neither"},
        {"--snapshot /data/whatever", "/data/whatever"},
        {"--no-such-option", "no-such-option"},
        {"--batch " + dir_, "--batch requires --out"},
        {"--out " + dir_ + "/out", "--out requires --batch"},
        {"--batch " + dir_ + " --out " + dir_ + "/out", "outside the --batch folder"},
        {"--batch " + phones + out + " --report r.json", "excludes"},
        {"--batch " + phones + " --out " + dir_ + "/into-phones/out", "outside the --batch folder"},
        {"--batch " + phones + out + " --shard 3/2", "--shard takes K/N"},
        {"--batch " + phones + out + " --shard 1/4294967295", "N <= 10000"},
        {"--batch " + phones + out + " --jobs 0", "--jobs: 0 is not a number of phones from 1 to 1024"},
        {"--jobs 2", "requires --batch"},
        {"--merge-index " + dir_ + "/merged " + dir_, "holds no batch index"},
        {"--batch " + shelf + out, "the --batch folder " + shelf + " holds no phone"},
        {"--batch " + phones + " --out " + file, "--out " + file + " is a file; name a folder"},
        {"--batch " + phones + " --out " + readOnly + "/out", "cannot be made: its folder " + readOnly},
        {"--batch " + phones + " --out " + readOnly,
         readOnly + " cannot be made: its folder /etc is not writable"},
        {"--report " + dir_ + "/missing/report.json",
         "--report " + dir_ + "/missing/report.json cannot be written: its folder " + dir_ +
             "/missing does not exist"},
        {"--report " + dir_ + "/report.json --html " + shelf,
         "--html " + shelf + " is a folder; name a file"},
        {"--html " + readOnly + ".html", "its folder /etc is not writable"},
        {"--event-log " + file + "/events.jsonl",
         "--event-log " + file + "/events.jsonl cannot be written: " + file + " is no folder"},
        {"--service-journal " + dir_ + "/missing/journal.jsonl",
         "--service-journal " + dir_ + "/missing/journal.jsonl cannot be written"},
        {"--device-state " + bad + " --report " + dir_ + "/report.json",
         "The device state file " + bad + " is not usable"},
        {"--device-state " + badFaults, "is not usable: \"migrateService\": \"faults\" must be an array"},
        {"--batch " + phones + out + " --device-state " + bad,
         "The device state file " + bad + " is not usable"},
    };
    const std::set<std::string> before = Listing(dir_);
    for (const auto &c : cases) {
        RunResult run = RunRunner(c.arguments);
        EXPECT_EQ(run.exitCode, 2) << c.arguments << "\n" << run.output;
        EXPECT_NE(run.output.find(c.says), std::string::npos) << c.arguments << "\n" << run.output;
        EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << c.arguments << "\n"
                                                                             << run.output;
        EXPECT_EQ(Listing(dir_), before) << c.arguments;
    }
    // The platform's own event log variable names a file the runner writes too.
    RunResult run = RunCommand("ZARVO_HISYSEVENT_LOG=" + dir_ + "/missing/events.jsonl " + RunnerPath());
    EXPECT_EQ(run.exitCode, 2) << run.output;
    EXPECT_NE(run.output.find("ZARVO_HISYSEVENT_LOG " + dir_ + "/missing/events.jsonl cannot be written"),
              std::string::npos)
        << run.output;
    EXPECT_EQ(Listing(dir_), before);
}

// The fault event log and the migrate service's journal follow one rule: what is in their place is
// replaced by an owner-only file holding this run's lines only, and a link there is replaced, never
// written through.
TEST_F(RunnerCliTest, EventLogAndServiceJournalReplaceWhatIsThereAndNeverWriteThroughALink) {
    const std::string events = dir_ + "/events.jsonl";
    const std::string journal = dir_ + "/journal.jsonl";
    // A user file without a type raises one fault event.
    const std::string phone = dir_ + "/phone";
    MakePhone(phone, Write("phone.json", R"({"users": [{"id": 0, "serialNumber": 0, "flags": 3091,
        "type": "android.os.usertype.full.SYSTEM", "created": 0}, {"id": 10, "flags": 16, "name": "Old"}]})"));
    const std::string outside = Write("outside.jsonl", "outside\n");
    for (bool linked : {false, true}) {
        for (const std::string &path : {events, journal}) {
            fs::remove(path);
            if (linked) {
                fs::create_symlink(outside, path);
            } else {
                Write(fs::path(path).filename(), "an earlier run's line\n");
                ASSERT_EQ(chmod(path.c_str(), 0644), 0);
            }
        }
        RunResult run =
            RunRunner("--snapshot " + phone + " --event-log " + events + " --service-journal " + journal);
        EXPECT_EQ(run.exitCode, 1) << run.output;
        for (const std::string &path : {events, journal}) {
            EXPECT_FALSE(fs::is_symlink(path)) << path;
            EXPECT_EQ(ModeOf(path), 0600) << path;
            const std::string content = ReadFile(path);
            EXPECT_EQ(content.find("earlier"), std::string::npos) << path << "\n" << content;
            EXPECT_EQ(content.rfind("{", 0), 0u) << path << "\n" << content;
        }
        const std::string eventLines = ReadFile(events);
        EXPECT_EQ(std::count(eventLines.begin(), eventLines.end(), '\n'), 1) << eventLines;
        EXPECT_EQ(ReadFile(outside), "outside\n");
    }
}

// The daemon's readiness pipe ends as it exits, a moment before its exit status can be collected:
// a service that dies at start-up is reported as such every time, never as slow to listen.
TEST_F(RunnerCliTest, AMigrateServiceThatDiesAtStartUpIsToldApartFromASlowOne) {
    const fs::path built = fs::path(RunnerPath()).parent_path();
    fs::create_directories(dir_ + "/bin");
    fs::copy_file(RunnerPath(), dir_ + "/bin/restore_runner");
    fs::create_directory_symlink(built.parent_path() / "lib", dir_ + "/lib");  // the platform library
    const std::string service = Write("bin/migrate_service", "#!/bin/sh\nexit 3\n");
    fs::permissions(service, fs::perms::owner_all);
    for (int run = 0; run < 20; ++run) {
        RunResult result = RunCommand(dir_ + "/bin/restore_runner --plugin " +
                                      (built / "libaccount_manager_restore.so").string());
        EXPECT_EQ(result.exitCode, 2) << result.output;
        EXPECT_NE(result.output.find("the migrate service stopped before it listened (exit status 3)."),
                  std::string::npos)
            << result.output;
    }
}

TEST_F(RunnerCliTest, HelpVersionAndDeviceLogLinesOnlyWhenAskedFor) {
    RunResult run = RunRunner("--help");
    EXPECT_EQ(run.exitCode, 0);
    for (const char *part : {"--snapshot", "--use-running-service", "Exit status: 0 restored",
                             "restore_runner --batch shelf/ --out results/"}) {
        EXPECT_NE(run.output.find(part), std::string::npos) << part << "\n" << run.output;
    }
    run = RunRunner("--version");
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(run.output.rfind("restore_runner 1.", 0), 0u) << run.output;
    EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << run.output;

    // The plug-in's log lines reach the terminal when asked for, by the flag or the variable.
    const std::string logLine = "MIGRATE_PLUGIN: [restore_plugin.cpp(";
    struct Case {
        std::string command;
        bool shown;
    } cases[] = {
        {"env -u ZARVO_HILOG_OUTPUT " + RunnerPath(), false},
        {"env -u ZARVO_HILOG_OUTPUT " + RunnerPath() + " --show-log", true},
        {"ZARVO_HILOG_OUTPUT=stderr " + RunnerPath(), true},
    };
    for (const Case &c : cases) {
        run = RunCommand(c.command);
        EXPECT_EQ(run.exitCode, 0) << c.command << "\n" << run.output;
        EXPECT_EQ(run.output.find(logLine) != std::string::npos, c.shown) << c.command << "\n" << run.output;
        EXPECT_NE(run.output.find("RestoreData returned true"), std::string::npos) << run.output;
    }
}

}  // namespace
