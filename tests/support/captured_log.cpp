#include "captured_log.h"

#include "platform_control/event_capture.h"

namespace Zarvo::Testing {

std::vector<LogLine> PluginLogLines() {
    std::vector<LogLine> lines;
    for (const auto &record : Host::CapturedLogs()) {
        if (record.tag != "MIGRATE_PLUGIN") {
            continue;
        }
        std::string text = record.message;
        size_t close = text.find(")]");
        if (text.rfind('[', 0) == 0 && close != std::string::npos) {
            text = text.substr(close + 2);
        }
        lines.push_back({record.level, text});
    }
    return lines;
}

std::vector<std::string> PluginLogTexts() {
    std::vector<std::string> texts;
    for (auto &line : PluginLogLines()) {
        texts.push_back(std::move(line.text));
    }
    return texts;
}

size_t CountPluginLines(const std::string &fragment) {
    size_t count = 0;
    for (const auto &line : PluginLogLines()) {
        count += line.text.find(fragment) != std::string::npos ? 1 : 0;
    }
    return count;
}

void ResetCaptures() {
    Host::ClearCapturedLogs();
    Host::ClearCapturedEvents();
    Host::ResetEventFaults();
}

}  // namespace Zarvo::Testing
