// The runner's verdict over every fault a run can meet: each platform fault the device state can
// inject (a result code for the first calls or for all, and out of memory), each migrate service
// fault, and source files that are missing, cut short or corrupt. For each: the result, every
// user's fate, the key words of each reason and the named abort, as the JSON report carries them.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "runner_process.h"

namespace {

namespace fs = std::filesystem;
using RunnerFaultMatrixTest = TempFolderTest;

// What one user must become: its decision and a piece of its explanation ("" when any will do).
struct Fate {
    int sourceId;
    std::string decision;
    std::string says;
};

struct Case {
    std::string name;
    std::string state;  // the device-state file ("" for the typical device)
    std::string phone;  // how the sample phone is spoiled ("" for none)
    bool result;
    std::vector<Fate> users;
    std::string accountState;  // "handed over", "nothing to carry" or "not restored"
    std::string accountSays;
    std::string abortOperation;  // "" when the restore must not stop early
    std::string verdictSays;
};

const std::vector<Fate> ALL_RESTORED = {{0, "updated", "administrator account 100"},
                                        {10, "created", "new OS account 101"},
                                        {11, "skipped", "A guest"},
                                        {12, "skipped", "work profile"}};

std::vector<Fate> NotReached(const std::string &says) {
    return {{0, "not reached", says},
            {10, "not reached", says},
            {11, "not reached", says},
            {12, "not reached", says}};
}

std::string Faults(const std::string &faults) {
    return R"({"faults": [)" + faults + "]}";
}

std::string MigrateFaults(const std::string &faults) {
    return R"({"migrateService": {"faults": [)" + faults + "]}}";
}

// The user 10 of the sample phone already has its OS account, so the plug-in sends an event.
const std::string USER_101_EXISTS = R"("osAccounts": [{"localId": 100, "type": "ADMIN", "isActived": true},
                                                      {"localId": 101, "localName": "there"}])";

const Case CASES[] = {
    {"nothing injected", "", "", true, ALL_RESTORED, "handed over", "", "",
     "Restored: the account was handed over"},
    // The OS account manager.
    {"update of the administrator out of memory",
     Faults(R"({"operation": "UpdateOsAccountWithFullInfo", "outOfMemory": true})"),
     "",
     false,
     {{0, "failed", "stopped while updating OS account 100: out of memory"},
      {10, "not reached", "stopped while updating OS account 100: out of memory"},
      {11, "not reached", "updating OS account 100"},
      {12, "not reached", "updating OS account 100"}},
     "handed over",
     "",
     "UpdateOsAccountWithFullInfo",
     "Not restored: the restore stopped while updating OS account 100: out of memory."},
    {"update of the administrator always refused",
     Faults(R"({"operation": "UpdateOsAccountWithFullInfo", "code": 4194308})"),
     "",
     false,
     {{0, "failed",
       "administrator account 100 could not be updated, 0x400004 no such account, after 4 tries"},
      {10, "created", ""},
      {11, "skipped", ""},
      {12, "skipped", ""}},
     "handed over",
     "",
     "",
     "Not restored: the administrator account 100 could not be updated, 0x400004 no such account, after 4 "
     "tries."},
    {"creation out of memory",
     Faults(R"({"operation": "CreateOsAccountWithFullInfo", "outOfMemory": true})"),
     "",
     false,
     {{0, "updated", ""},
      {10, "failed", "stopped while creating OS account 101: out of memory"},
      {11, "not reached", "creating OS account 101"},
      {12, "not reached", "creating OS account 101"}},
     "handed over",
     "",
     "CreateOsAccountWithFullInfo",
     "creating OS account 101: out of memory"},
    {"creation always refused",
     Faults(R"({"operation": "CreateOsAccountWithFullInfo", "code": 4194305})"),
     "",
     false,
     {{0, "updated", ""},
      {10, "failed", "0x400001 invalid parameter, after 4 tries"},
      {11, "skipped", ""},
      {12, "skipped", ""}},
     "handed over",
     "",
     "",
     "Not restored: user 10's OS account 101 could not be created, 0x400001 invalid parameter, after 4 "
     "tries."},
    {"creation refused three times, then done",
     Faults(R"({"operation": "CreateOsAccountWithFullInfo", "code": 4194305, "count": 3})"), "", true,
     ALL_RESTORED, "handed over", "", "", "Restored"},
    {"the look-up of an OS account always refused",
     Faults(R"({"operation": "QueryOsAccountById", "code": 4194308})"), "", true, ALL_RESTORED, "handed over",
     "", "", "Restored"},
    {"the look-up of an OS account out of memory",
     Faults(R"({"operation": "QueryOsAccountById", "outOfMemory": true})"),
     "",
     false,
     {{0, "updated", ""},
      {10, "failed", "looking up OS account 101: out of memory"},
      {11, "not reached", ""},
      {12, "not reached", ""}},
     "handed over",
     "",
     "QueryOsAccountById",
     "looking up OS account 101"},
    {"the OS accounts cannot be listed",
     Faults(R"({"operation": "QueryAllCreatedOsAccounts", "code": 4194308})"), "", false,
     NotReached(
         "could not list the OS accounts to find the active one (the account manager answered 0x400004"),
     "not restored", "could not be listed to find the active one", "", "the account was not restored"},
    {"the OS accounts cannot be listed, out of memory",
     Faults(R"({"operation": "QueryAllCreatedOsAccounts", "outOfMemory": true})"), "", false,
     NotReached("the restore stopped while looking for the active OS account: out of memory"), "not restored",
     "stopped while looking for the active OS account", "QueryAllCreatedOsAccounts",
     "looking for the active OS account"},
    {"an active user that is not the administrator",
     R"({"osAccounts": [{"localId": 100, "type": "ADMIN"}, {"localId": 101, "isActived": true}]})", "", false,
     NotReached(
         "it runs only when the active OS account is the administrator (100), and the active one is 101"),
     "not restored", "", "", "could not be found for user 101"},
    // The account's side of the platform.
    {"the database store always refuses", Faults(R"({"operation": "GetRdbStore", "code": 14800004})"), "",
     false, ALL_RESTORED, "not restored", "could not be opened, after 4 tries: 0xE1D484", "",
     "the account database could not be opened"},
    {"the database store refuses twice",
     Faults(R"({"operation": "GetRdbStore", "code": 14800004, "count": 2})"), "", true, ALL_RESTORED,
     "handed over", "", "", "Restored"},
    {"the database store out of memory", Faults(R"({"operation": "GetRdbStore", "outOfMemory": true})"), "",
     false, NotReached("stopped while opening the account database: out of memory"), "not restored",
     "opening the account database", "GetRdbStore", "opening the account database: out of memory"},
    {"no system ability manager", Faults(R"({"operation": "GetSystemAbilityManager", "code": -1})"), "",
     false, ALL_RESTORED, "not restored", "bundle manager could not be reached", "",
     "bundle manager could not be reached"},
    {"no bundle manager", Faults(R"({"operation": "GetSystemAbility", "code": -1})"), "", false, ALL_RESTORED,
     "not restored", "bundle manager could not be reached", "", "bundle manager"},
    {"the bundle manager always refuses", Faults(R"({"operation": "GetBundleInfo", "code": 8521223})"), "",
     false, ALL_RESTORED, "not restored", "0x820607 the bundle manager failed", "",
     "could not be found for user 100"},
    {"the bundle manager out of memory", Faults(R"({"operation": "GetBundleInfo", "outOfMemory": true})"), "",
     false, NotReached("looking for the account app: out of memory"), "not restored",
     "looking for the account app", "GetBundleInfo", "looking for the account app"},
    {"the account app not installed", R"({"bundles": []})", "", false, ALL_RESTORED, "not restored",
     "0x820605 the app is not installed for this user", "", "com.corvan.zmx.corvanid could not be found"},
    // The event writer: a refused event changes no fate; running out of memory in it stops the restore.
    {"events refused",
     "{" + USER_101_EXISTS + R"(, "faults": [{"operation": "HiSysEventWrite", "code": -3}]})",
     "",
     true,
     {{0, "updated", ""},
      {10, "existed", "already on this device"},
      {11, "skipped", ""},
      {12, "skipped", ""}},
     "handed over",
     "",
     "",
     "Restored"},
    {"events out of memory",
     "{" + USER_101_EXISTS + R"(, "faults": [{"operation": "HiSysEventWrite", "outOfMemory": true}]})",
     "",
     false,
     {{0, "updated", ""},
      {10, "failed", "sending a fault event: out of memory"},
      {11, "not reached", ""},
      {12, "not reached", ""}},
     "handed over",
     "",
     "HiSysEventWrite",
     "the restore stopped while sending a fault event: out of memory"},
    // The migrate service.
    {"folders are never made",
     MigrateFaults(R"({"operation": "PREPARE_DIR", "action": "fail", "count": -1})"), "", false,
     NotReached("folder for the text copies of the user files could not be made, after 4 tries"),
     "not restored", "hand-over to the account app failed after 4 tries", "",
     "PREPARE_DIR fault with -1 EIO"},
    {"copies always fail",
     MigrateFaults(R"({"operation": "COPY_ALL_FILE", "action": "fail", "count": -1, "errCode": 28})"), "",
     false, ALL_RESTORED, "not restored", "hand-over to the account app failed after 4 tries", "",
     "COPY_ALL_FILE fault with -1 ENOSPC (No space left on device)"},
    {"copies dropped", MigrateFaults(R"({"operation": "COPY_ALL_FILE", "action": "drop", "count": -1})"), "",
     false, ALL_RESTORED, "not restored", "COPY_ALL_FILE dropped without a reply", "",
     "hand-over to the account app failed"},
    {"a copy stalls once",
     MigrateFaults(R"({"operation": "COPY_ALL_FILE", "action": "stall", "stallMs": 20})"), "", true,
     ALL_RESTORED, "handed over", "", "", "Restored"},
    {"the hand-over's owner change always fails",
     MigrateFaults(R"({"operation": "CHOWN", "action": "fail", "count": -1})"), "", false, ALL_RESTORED,
     "not restored", "CHOWN fault with -1 EIO", "", "hand-over to the account app failed"},
    {"every request fails once", MigrateFaults(R"({"action": "fail", "count": 1})"), "", true, ALL_RESTORED,
     "handed over", "", "", "Restored"},
    // The phone's files.
    {"no account database", "", "rm system_ce/0/accounts_ce.db", false, ALL_RESTORED, "not restored",
     "no account database for the active user 100 (ENOENT)", "", "no account database"},
    {"a corrupt account database", "", "corrupt system_ce/0/accounts_ce.db", false, ALL_RESTORED,
     "not restored", "could not be opened, after 4 tries: 0xE1D484 SQLite refused the file", "",
     "could not be opened"},
    {"no user list", "", "rm system/users/userlist.xml", false,
     NotReached("could not read the user list (userlist.xml): the file cannot be read; the runner found: the "
                "file is "
                "not in the snapshot"),
     "handed over", "", "", "could not read the user list (userlist.xml)"},
    {"a user list cut short", "", "cut system/users/userlist.xml", false,
     NotReached("could not read the user list (userlist.xml): the file is cut short"), "handed over", "", "",
     "could not read the user list"},
    {"a user file cut short",
     "",
     "cut system/users/10.xml",
     false,
     {{0, "updated", ""}, {10, "failed", "cut short"}, {11, "skipped", ""}, {12, "skipped", ""}},
     "handed over",
     "",
     "",
     "user 10's file could not be read: the file is cut short"},
    {"a user file missing",
     "",
     "rm system/users/10.xml",
     false,
     {{0, "updated", ""},
      {10, "failed", "the snapshot holds no file for it"},
      {11, "skipped", ""},
      {12, "skipped", ""}},
     "handed over",
     "",
     "",
     "user 10 is named by the user list, but the snapshot holds no file for it"},
    {"a user file that is not XML",
     "",
     "corrupt system/users/11.xml",
     false,
     {{0, "updated", ""},
      {10, "created", ""},
      {11, "failed", "neither binary XML nor text XML"},
      {12, "skipped", ""}},
     "handed over",
     "",
     "",
     "user 11's file could not be read"},
};

// Spoils one file of the phone: "rm PATH", "cut PATH" (keeps its first half) or "corrupt PATH".
void Spoil(const std::string &phone, const std::string &how) {
    const std::string verb = how.substr(0, how.find(' '));
    const std::string path = phone + "/" + how.substr(how.find(' ') + 1);
    if (verb == "rm") {
        ASSERT_TRUE(fs::remove(path)) << path;
        return;
    }
    ASSERT_TRUE(fs::exists(path)) << path;
    const std::string content = ReadFile(path);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << (verb == "cut" ? content.substr(0, content.size() / 2) : std::string(4096, '\x5a'));
}

std::string Text(const nlohmann::json &value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

TEST_F(RunnerFaultMatrixTest, EveryFaultGetsItsVerdictAndEveryUserItsReason) {
    for (const Case &c : CASES) {
        SCOPED_TRACE(c.name);
        std::string arguments = "--report " + dir_ + "/report.json";
        if (!c.state.empty()) {
            arguments += " --device-state " + Write("state.json", c.state);
        }
        if (!c.phone.empty()) {
            const std::string phone = dir_ + "/phone";
            fs::remove_all(phone);
            MakePhone(phone);
            Spoil(phone, c.phone);
            arguments += " --snapshot " + phone;
        }
        fs::remove(dir_ + "/report.json");
        RunResult run = RunRunner(arguments);
        ASSERT_EQ(run.exitCode, c.result ? 0 : 1) << run.output;
        const nlohmann::json report = ReadJson(dir_ + "/report.json");
        ASSERT_TRUE(report.is_object()) << run.output;

        EXPECT_EQ(report["result"], c.result);
        EXPECT_EQ(report["verdict"]["restored"], c.result);
        EXPECT_NE(Text(report["verdict"]["sentence"]).find(c.verdictSays), std::string::npos)
            << report["verdict"].dump(1);
        EXPECT_EQ(report["accountOutcome"]["state"], c.accountState) << report["accountOutcome"].dump(1);
        EXPECT_NE(Text(report["accountOutcome"]["reason"]).find(c.accountSays), std::string::npos)
            << report["accountOutcome"].dump(1);
        if (c.abortOperation.empty()) {
            EXPECT_TRUE(report["abort"].is_null()) << report["abort"].dump(1);
        } else {
            EXPECT_EQ(report["abort"]["operation"], c.abortOperation) << report["abort"].dump(1);
            EXPECT_EQ(report["abort"]["exception"], "std::bad_alloc");
        }
        ASSERT_EQ(report["users"].size(), c.users.size()) << report["users"].dump(1);
        for (size_t i = 0; i < c.users.size(); ++i) {
            const nlohmann::json &user = report["users"][i];
            EXPECT_EQ(user["sourceId"], c.users[i].sourceId) << user.dump(1);
            EXPECT_EQ(user["decision"], c.users[i].decision) << user.dump(1);
            EXPECT_NE(Text(user["explanation"]).find(c.users[i].says), std::string::npos) << user.dump(1);
        }
        // Every code the report names is in hex with a name and a meaning.
        for (const auto &code : report["codes"]) {
            EXPECT_EQ(Text(code["hex"]).find("0x") != std::string::npos, true) << code.dump();
            EXPECT_FALSE(Text(code["meaning"]).empty()) << code.dump();
        }
    }
}

}  // namespace
