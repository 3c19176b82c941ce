#ifndef HOST_RUNNER_RUN_CONTEXT_H
#define HOST_RUNNER_RUN_CONTEXT_H

#include <cstdint>
#include <string>
#include <vector>

#include "migrate_service/fault_plan.h"
#include "platform_control/device_state.h"

namespace Zarvo::Host {

// Under what a run ran: which runner and plug-in, where and when, on which device state with
// which migrate service faults (the platform's faults are in RunCapture::faults). Two reports of the same
// phone are comparable only when these agree.
struct RunContext {
    std::string startedUtc;  // "2026-11-23T10:04:05.123Z"
    std::string host;
    std::string runnerVersion;
    std::string runnerRevision;
    std::string pluginSha256;  // of the file loaded; empty when it could not be read
    // The plug-in built beside this runner (the default one): its version and revision are the
    // runner's. Of any other plug-in file only its digest is known.
    bool pluginBuiltWithRunner = false;
    std::string deviceState;  // the device-state file; empty for the typical device
    std::string deviceStateSha256;
    std::vector<FaultRule> serviceFaults;  // handed to the migrate service the runner started
};

// The instant `unixNs` in UTC, ISO 8601 with milliseconds.
std::string UtcTimeText(int64_t unixNs);
// This machine's host name; empty when it has none.
std::string HostName();
// A fault in plain words: "CreateOsAccountWithFullInfo fails with 0x400001, the next 4 calls".
std::string FaultWords(const InjectedFault &fault);
std::string FaultWords(const FaultRule &rule);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_RUN_CONTEXT_H
