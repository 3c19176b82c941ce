#ifndef HOST_RUNNER_REPORT_H
#define HOST_RUNNER_REPORT_H

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <vector>

#include "hilog/log.h"
#include "platform_control/event_capture.h"
#include "platform_control/log_capture.h"
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

// What became of one source user, read from the plug-in's log and the source files.
struct UserOutcome {
    int sourceId = -1;
    std::string decision;  // "updated", "created", "existed", "skipped" or "failed"
    int localId = -1;
    std::string detail;  // why it was skipped or failed
};

struct RunReport {
    bool result = false;
    std::string plugin;
    std::string snapshot;
    LaidSnapshot laid;
    std::vector<LogRecord> logs;
    std::vector<EventRecord> events;
    nlohmann::json osAccountsBefore = nlohmann::json::array();
    nlohmann::json osAccountsAfter = nlohmann::json::array();
    std::vector<HandedFile> handedFiles;
    std::vector<UserOutcome> users;
    nlohmann::json journal = nlohmann::json::array();
    bool workTreeRemoved = false;
    double setupMs = 0;
    double serviceStartMs = 0;
    double restoreMs = 0;
    double totalMs = 0;
};

// Reads the users' fates from the plug-in's log lines, in the order the plug-in took them.
std::vector<UserOutcome> UserOutcomesFromLog(const std::vector<LogRecord> &logs);

// Every regular file below `root`, with owner, group, mode and content.
std::vector<HandedFile> CollectFiles(const std::string &root);

void PrintSummary(const RunReport &report, std::ostream &out);
nlohmann::json ReportToJson(const RunReport &report);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_REPORT_H
