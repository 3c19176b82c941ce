#ifndef TESTS_SUPPORT_CAPTURED_LOG_H
#define TESTS_SUPPORT_CAPTURED_LOG_H

#include <string>
#include <vector>

#include "hilog/log.h"
#include "platform_control/log_capture.h"

namespace Zarvo::Testing {

// A plug-in log line as tests compare it: the level and the message after the "[file(line)]" prefix.
struct LogLine {
    int level;
    std::string text;
    bool operator==(const LogLine &other) const { return level == other.level && text == other.text; }
};

// The captured lines of the plug-in's tag, prefix removed, in order.
std::vector<LogLine> PluginLogLines();
// Only the texts of PluginLogLines().
std::vector<std::string> PluginLogTexts();
// How many captured plug-in lines contain `fragment`.
size_t CountPluginLines(const std::string &fragment);
// Clears captured logs and events, and resets injected event faults.
void ResetCaptures();

}  // namespace Zarvo::Testing

#endif  // TESTS_SUPPORT_CAPTURED_LOG_H
