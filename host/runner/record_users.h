#ifndef HOST_RUNNER_RECORD_USERS_H
#define HOST_RUNNER_RECORD_USERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform_control/log_capture.h"
#include "record_source_users.h"

namespace Zarvo::Host {

// What became of one source user, read from the plug-in's log.
struct UserOutcome {
    int sourceId = -1;
    std::string decision;  // "updated", "created", "existed", "skipped" or "failed"
    int localId = -1;
    std::string detail;                    // the plug-in's error lines when it failed
    std::vector<std::string> pluginLines;  // every line the plug-in wrote while it took this user
};

// The fault event the plug-in sent about a user.
struct UserFault {
    std::string type;  // ERROR_TYPE
    int64_t code = 0;  // ERROR_CODE
};

// The plug-in's message without its "[file(line)]" prefix.
std::string MessageOf(const LogRecord &record);

// Reads the users' fates from the plug-in's log lines, in the order the plug-in took them.
std::vector<UserOutcome> UserOutcomesFromLog(const std::vector<LogRecord> &logs);

// What became of the user and why, in plain words for a person checking the migration. `source`
// is the runner's own reading of the user's file (null when the user list did not name it),
// `leftOut` why the snapshot's file was not laid (empty when it was).
std::string ExplainUser(const UserOutcome &outcome, const SourceUser *source,
                        const std::optional<UserFault> &fault, const std::string &leftOut);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_RECORD_USERS_H
