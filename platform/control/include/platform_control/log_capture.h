#ifndef ZARVO_PLATFORM_CONTROL_LOG_CAPTURE_H
#define ZARVO_PLATFORM_CONTROL_LOG_CAPTURE_H

// Host control of the system log: what tests and the runner read back, and where lines go.
// The plug-in never includes this header.

#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

namespace Zarvo::Host {

struct LogRecord {
    int type = 0;
    int level = 0;
    unsigned int domain = 0;
    std::string tag;
    std::string format;
    std::string message;  // the rendered text, as a log viewer shows it after the tag
    std::string file;     // filled when the format starts with the "[file(line)]" prefix
    int line = -1;
    std::int64_t timeMs = 0;
    int pid = 0;
    int tid = 0;
};

// Every line printed since the last clear, in order. Safe to call from any thread.
std::vector<LogRecord> CapturedLogs();
void ClearCapturedLogs();

// Where rendered lines go besides the capture: "off", "stderr" or a file path (appended).
// The initial choice comes from the environment variable ZARVO_HILOG_OUTPUT (default stderr).
// Returns false when a file cannot be opened; the output is then unchanged.
bool SetLogOutput(const std::string &target);

// Renders a platform format with its arguments, qualifiers stripped, private values masked.
std::string RenderLogFormat(const char *fmt, va_list args);

// One line as a device log viewer prints it: time, pid, tid, level letter, domain/tag, message.
std::string FormatLogLine(const LogRecord &record);

}  // namespace Zarvo::Host

#endif  // ZARVO_PLATFORM_CONTROL_LOG_CAPTURE_H
