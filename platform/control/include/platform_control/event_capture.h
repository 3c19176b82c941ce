#ifndef ZARVO_PLATFORM_CONTROL_EVENT_CAPTURE_H
#define ZARVO_PLATFORM_CONTROL_EVENT_CAPTURE_H

// Host control of the system event writer. The plug-in never includes this header.

#include <cstdint>
#include <string>
#include <vector>

#include "hisysevent.h"

namespace Zarvo::Host {

struct EventRecord {
    std::string domain;
    std::string name;
    int type = 0;
    std::string func;
    std::int64_t line = 0;
    std::int64_t timeMs = 0;
    std::vector<HiviewDFX::HiSysEventParam> params;
};

// Accepted events since the last clear, in order. Safe from any thread.
std::vector<EventRecord> CapturedEvents();
void ClearCapturedEvents();

// Makes the next `count` writes fail with `result` (non-zero) and record nothing;
// count -1 makes every write fail until ResetEventFaults. The same as the device state's fault of
// the operation "HiSysEventWrite".
void FailEventWrites(int result, int count = -1);
void ResetEventFaults();

// Appends every accepted event as one JSON line to the file (empty path: no event log). False, with
// one sentence in `error`, when the file cannot be opened for appending (a missing folder, a
// directory, no permission). The initial path comes from the environment variable
// ZARVO_HISYSEVENT_LOG. A write whose line cannot be appended (a full disk) fails with -2 and
// records nothing.
bool SetEventLogPath(const std::string &path, std::string &error);
// The first failure to append to the event log since its path was set, as one sentence; empty
// when there was none.
std::string EventLogError();

// The JSON line written to the event log for a record.
std::string EventToJson(const EventRecord &record);

}  // namespace Zarvo::Host

#endif  // ZARVO_PLATFORM_CONTROL_EVENT_CAPTURE_H
