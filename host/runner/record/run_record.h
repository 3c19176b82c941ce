#ifndef HOST_RUNNER_RUN_RECORD_H
#define HOST_RUNNER_RUN_RECORD_H

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "migrate_service/request_journal.h"
#include "os_account_info.h"
#include "platform_control/device_state.h"
#include "platform_control/event_capture.h"
#include "platform_control/log_capture.h"
#include "record_restore.h"
#include "record_source_users.h"
#include "record_users.h"
#include "run_context.h"
#include "snapshot.h"

namespace Zarvo::Host {

// A file the restore left in an app's data directory, as it stands after the run.
struct HandedFile {
    std::string path;
    uid_t uid = 0;
    gid_t gid = 0;
    mode_t mode = 0;
    std::string content;
};

// What the runner collected during one run, as it collected it.
struct RunCapture {
    bool result = false;
    std::string plugin;
    std::string snapshot;
    LaidSnapshot laid;
    SourceUserList sourceUsers;  // read from the work tree before the call
    std::vector<LogRecord> logs;
    std::vector<EventRecord> events;
    std::vector<AccountSA::OsAccountInfo> osAccountsBefore;
    std::vector<AccountSA::OsAccountInfo> osAccountsAfter;
    std::vector<InjectedFault> faults;                    // armed before the call
    std::vector<std::pair<std::string, int>> callCounts;  // of every faultable operation, after the call
    std::vector<HandedFile> handedFiles;
    std::vector<JournalEntry> journal;
    bool workTreeRemoved = false;
    double setupMs = 0;
    double serviceStartMs = 0;
    double restoreMs = 0;
    double totalMs = 0;
    RunContext context;
};

// The account handed over, read from the export file the plug-in wrote to the account app.
struct HandedAccount {
    bool isJson = false;  // false: the file holds no JSON object, and the members below are empty
    std::string name;
    std::string type;
    std::string locale;
    int64_t id = 0;
    std::string authToken;  // masked unless secrets are shown
    // The extras are not held: they are read again, one at a time, from the export's text as the
    // record keeps it (the capture's handed file `fileIndex`), whose "extras" member `extrasMember`
    // (see ExtrasMember) holds them.
    size_t extraCount = 0;
    int extrasMember = 0;
    size_t fileIndex = 0;
    // Only when masking secrets in the file's text as a whole changed more than its values (a secret
    // that spans two of them): the text the extras are read from, as masked value by value.
    std::string extrasText;
    HandedFile file;  // where it lies and its owner; its content is the capture's handed file

    // The text the extras are read from.
    const std::string &ExportText(const std::vector<HandedFile> &handedFiles) const {
        return extrasText.empty() ? handedFiles[fileIndex].content : extrasText;
    }
};

// One source user: what became of it, why, and what the phone's file says about it.
struct UserRecord {
    UserOutcome outcome;
    std::optional<SourceUser> source;
    std::string phonePhoto;  // the phone's photo as a data URI, when no OS account carries one
};

// Whether the phone was restored, and the first reason it was not, in one sentence.
struct Verdict {
    bool restored = false;
    std::string sentence;              // "Not restored: user 10's OS account 101 could not be created, ..."
    std::vector<std::string> reasons;  // every reason, the first one first
};

// Everything one run did, built once; the summary, the JSON report and the page only show it.
struct RunRecord {
    RunCapture capture;  // with every secret masked unless `secretsShown`
    bool secretsShown = false;
    std::optional<HandedAccount> account;
    AccountOutcome accountOutcome;
    std::string accountNote;  // why none was handed over
    std::optional<RestoreAbort> abort;
    bool userRestoreRan = false;
    std::string usersNote;  // why no user was taken, when none was
    std::vector<FaultEvent> events;
    std::vector<UserRecord> users;
    Verdict verdict;
    std::vector<NamedCode> codes;  // every code the record mentions, once each
};

// Derives the record from a capture: the handed account, every user's fate in plain words, the
// fault events' parameters; and masks the auth token and credential-named extras everywhere
// unless `showSecrets`.
RunRecord BuildRunRecord(RunCapture capture, bool showSecrets);

// Every regular file below `root`, with owner, group, mode and content.
std::vector<HandedFile> CollectFiles(const std::string &root);

// Permission bits as four octal digits ("0700"), as the views show them.
std::string ModeText(mode_t mode);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_RUN_RECORD_H
