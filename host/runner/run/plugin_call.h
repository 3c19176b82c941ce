#ifndef HOST_RUNNER_PLUGIN_CALL_H
#define HOST_RUNNER_PLUGIN_CALL_H

#include <string>
#include <vector>

#include "platform_control/event_capture.h"
#include "platform_control/log_capture.h"

namespace Zarvo::Host {

// What one call of a plug-in's RestoreData gave, and what the platform captured while it ran.
struct PluginCall {
    bool result = false;
    std::vector<LogRecord> logs;
    std::vector<EventRecord> events;
    double restoreMs = 0;
};

// Loads the plug-in, calls RestoreData as the migrate server does, and unloads it once every
// answer the plug-in waits for has come. Empty text on success, else one sentence.
std::string CallRestoreData(const std::string &plugin, PluginCall &call);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_PLUGIN_CALL_H
