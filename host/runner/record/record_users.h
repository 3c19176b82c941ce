#ifndef HOST_RUNNER_RECORD_USERS_H
#define HOST_RUNNER_RECORD_USERS_H

#include <cstdint>
#include <string>
#include <vector>

#include "code_names.h"
#include "record_source_users.h"

namespace Zarvo::Host {

// What became of one source user.
struct UserOutcome {
    int sourceId = -1;
    // "updated", "created", "existed", "skipped", "failed" or "not reached"
    std::string decision;
    int localId = -1;
    std::string detail;       // the plug-in's error lines when it failed
    std::string explanation;  // why, in plain words, as one or two sentences
    std::string cause;        // why it failed or was not reached, naming the user, without a final period
    int tries = 0;            // calls of the account manager for this user, when they failed
    std::vector<NamedCode> codes;
    std::vector<std::string> pluginLines;  // every line the plug-in wrote while it took this user
};

// Why a user's type and flags were not carried over, from the runner's own reading of its file.
std::string ExplainSkipped(const SourceUser *source);
// Why a user file could not be parsed, from the parse's event code.
std::string ExplainParseFailure(int64_t code, const SourceUser *source);
// Why a user file could not be converted, from the conversion's event code.
std::string ExplainConversionFailure(int64_t code);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_RECORD_USERS_H
