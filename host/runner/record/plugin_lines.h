#ifndef HOST_RUNNER_PLUGIN_LINES_H
#define HOST_RUNNER_PLUGIN_LINES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "account_restore_vocabulary.h"
#include "platform_control/log_capture.h"

namespace Zarvo::Host {

// The plug-in's log lines the runner reads, one per declared format.
enum class PluginLineKind {
#define PLUGIN_LINE_KIND(NAME) NAME,
    ACCOUNT_RESTORE_LINES(PLUGIN_LINE_KIND)
#undef PLUGIN_LINE_KIND
};

// One line of the plug-in read through its declared format: the values in the order the format
// has them, numbers and texts apart.
struct PluginLine {
    PluginLineKind kind;
    std::vector<int64_t> numbers;
    std::vector<std::string> texts;
    size_t logIndex = 0;  // where it stands in the captured log
};

// The message without the "[file(line)]" prefix the log macros put in front.
std::string MessageOf(const LogRecord &record);

// True for a line the plug-in wrote, by its log label.
bool IsPluginRecord(const LogRecord &record);

// True when `message` has the shape of `format` (a plug-in format: "%{public}d" is a decimal
// number, "%{public}s" any text), with the values in `numbers` and `texts`.
bool MatchFormat(const std::string &format, const std::string &message, std::vector<int64_t> &numbers,
                 std::vector<std::string> &texts);

// The plug-in's lines that match a declared format, in order; other lines are left out.
std::vector<PluginLine> ReadPluginLines(const std::vector<LogRecord> &logs);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_PLUGIN_LINES_H
