#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>

#include "hilog/log.h"
#include "platform_control/log_capture.h"

namespace Zarvo::Host {
namespace {

constexpr char PRIVATE_MASK[] = "<private>";
constexpr char LINE_PREFIX[] = "[%{public}s(%{public}d)]";

enum class Privacy { PLAIN, PUBLIC, PRIVATE };

// One conversion of a format, as parsed from its text.
struct Conversion {
    Privacy privacy = Privacy::PLAIN;
    std::string flags;
    bool widthFromArg = false;
    std::string width;
    bool precisionFromArg = false;
    std::string precision;  // with its leading '.'
    std::string length;     // hh, h, l, ll, j, z, t, L
    char specifier = '\0';
};

// Parses the conversion that starts after the '%' at fmt[pos]. Returns the position after it,
// or 0 when the text is not a conversion this renderer supports.
size_t ParseConversion(const char *fmt, size_t pos, Conversion &conv) {
    if (fmt[pos] == '{') {
        const char *close = std::strchr(fmt + pos, '}');
        if (close == nullptr) {
            return 0;
        }
        std::string qualifier(fmt + pos + 1, close);
        if (qualifier == "public") {
            conv.privacy = Privacy::PUBLIC;
        } else if (qualifier == "private") {
            conv.privacy = Privacy::PRIVATE;
        } else {
            return 0;
        }
        pos = static_cast<size_t>(close - fmt) + 1;
    }
    while (fmt[pos] != '\0' && std::strchr("-+ #0", fmt[pos]) != nullptr) {
        conv.flags += fmt[pos++];
    }
    if (fmt[pos] == '*') {
        conv.widthFromArg = true;
        ++pos;
    } else {
        while (fmt[pos] >= '0' && fmt[pos] <= '9') {
            conv.width += fmt[pos++];
        }
    }
    if (fmt[pos] == '.') {
        conv.precision = ".";
        ++pos;
        if (fmt[pos] == '*') {
            conv.precisionFromArg = true;
            ++pos;
        } else {
            while (fmt[pos] >= '0' && fmt[pos] <= '9') {
                conv.precision += fmt[pos++];
            }
        }
    }
    if ((fmt[pos] == 'h' && fmt[pos + 1] == 'h') || (fmt[pos] == 'l' && fmt[pos + 1] == 'l')) {
        conv.length.assign(fmt + pos, 2);
        pos += 2;
    } else if (fmt[pos] != '\0' && std::strchr("hljztL", fmt[pos]) != nullptr) {
        conv.length = fmt[pos++];
    }
    if (fmt[pos] == '\0' || std::strchr("diouxXcsfFeEgGaAp", fmt[pos]) == nullptr) {
        return 0;
    }
    conv.specifier = fmt[pos];
    return pos + 1;
}

template <typename T>
std::string FormatValue(const std::string &spec, int width, int precision, T value) {
    char buf[512];
    int n;
    if (width >= 0 && precision >= 0) {
        n = std::snprintf(buf, sizeof(buf), spec.c_str(), width, precision, value);
    } else if (width >= 0) {
        n = std::snprintf(buf, sizeof(buf), spec.c_str(), width, value);
    } else if (precision >= 0) {
        n = std::snprintf(buf, sizeof(buf), spec.c_str(), precision, value);
    } else {
        n = std::snprintf(buf, sizeof(buf), spec.c_str(), value);
    }
    if (n < 0) {
        return {};
    }
    if (static_cast<size_t>(n) < sizeof(buf)) {
        return std::string(buf, static_cast<size_t>(n));
    }
    std::string big(static_cast<size_t>(n) + 1, '\0');
    if (width >= 0 && precision >= 0) {
        std::snprintf(big.data(), big.size(), spec.c_str(), width, precision, value);
    } else if (width >= 0) {
        std::snprintf(big.data(), big.size(), spec.c_str(), width, value);
    } else if (precision >= 0) {
        std::snprintf(big.data(), big.size(), spec.c_str(), precision, value);
    } else {
        std::snprintf(big.data(), big.size(), spec.c_str(), value);
    }
    big.resize(static_cast<size_t>(n));
    return big;
}

// Takes the conversion's argument from the list (always, so that later conversions stay in
// step) and renders it.
std::string RenderConversion(const Conversion &conv, va_list &args) {
    int width = conv.widthFromArg ? va_arg(args, int) : -1;
    int precision = conv.precisionFromArg ? va_arg(args, int) : -1;
    // The argument is read at its promoted width; the length modifier only says which width.
    const bool isInteger = std::strchr("diouxX", conv.specifier) != nullptr;
    const bool isWide = conv.length == "l" || conv.length == "ll" || conv.length == "j" ||
                        conv.length == "z" || conv.length == "t" || conv.length == "L";
    std::string length;
    if (isInteger) {
        length = isWide ? "ll" : (conv.length == "h" || conv.length == "hh" ? conv.length : "");
    } else if (std::strchr("scp", conv.specifier) == nullptr && conv.length == "L") {
        length = "L";
    }
    std::string spec = "%" + conv.flags + (conv.widthFromArg ? "*" : conv.width) +
                       (conv.precisionFromArg ? ".*" : conv.precision) + length + conv.specifier;
    std::string text;
    if (isInteger) {
        text = isWide ? FormatValue(spec, width, precision, va_arg(args, long long))
                      : FormatValue(spec, width, precision, va_arg(args, int));
    } else if (conv.specifier == 'c') {
        text = FormatValue(spec, width, precision, va_arg(args, int));
    } else if (conv.specifier == 's') {
        const char *s = va_arg(args, const char *);
        text = FormatValue(spec, width, precision, s != nullptr ? s : "(null)");
    } else if (conv.specifier == 'p') {
        text = FormatValue(spec, width, precision, va_arg(args, void *));
    } else if (length == "L") {
        text = FormatValue(spec, width, precision, va_arg(args, long double));
    } else {
        text = FormatValue(spec, width, precision, va_arg(args, double));
    }
    return conv.privacy == Privacy::PRIVATE ? PRIVATE_MASK : text;
}

struct LogState {
    std::mutex mutex;
    std::vector<LogRecord> records;
    std::FILE *output = stderr;
    bool ownsOutput = false;

    LogState() {
        const char *target = std::getenv("ZARVO_HILOG_OUTPUT");
        if (target != nullptr) {
            Open(target);
        }
    }
    ~LogState() { CloseOutput(); }

    void CloseOutput() {
        if (ownsOutput && output != nullptr) {
            std::fclose(output);
        }
        output = nullptr;
        ownsOutput = false;
    }

    bool Open(const std::string &target) {
        if (target == "off") {
            CloseOutput();
            return true;
        }
        if (target == "stderr") {
            CloseOutput();
            output = stderr;
            return true;
        }
        std::FILE *file = std::fopen(target.c_str(), "a");
        if (file == nullptr) {
            return false;
        }
        CloseOutput();
        output = file;
        ownsOutput = true;
        return true;
    }
};

LogState &State() {
    static LogState state;
    return state;
}

char LevelLetter(int level) {
    switch (level) {
        case LOG_DEBUG:
            return 'D';
        case LOG_INFO:
            return 'I';
        case LOG_WARN:
            return 'W';
        case LOG_ERROR:
            return 'E';
        case LOG_FATAL:
            return 'F';
        default:
            return '?';
    }
}

}  // namespace

std::string RenderLogFormat(const char *fmt, va_list args) {
    std::string out;
    if (fmt == nullptr) {
        return out;
    }
    va_list work;
    va_copy(work, args);
    size_t pos = 0;
    while (fmt[pos] != '\0') {
        if (fmt[pos] != '%') {
            out += fmt[pos++];
            continue;
        }
        if (fmt[pos + 1] == '%') {
            out += '%';
            pos += 2;
            continue;
        }
        Conversion conv;
        size_t next = ParseConversion(fmt, pos + 1, conv);
        if (next == 0) {
            // Not a conversion we can render: show it as text and take no argument for it.
            out += fmt[pos++];
            continue;
        }
        out += RenderConversion(conv, work);
        pos = next;
    }
    va_end(work);
    return out;
}

std::string FormatLogLine(const LogRecord &record) {
    std::time_t seconds = static_cast<std::time_t>(record.timeMs / 1000);
    std::tm local{};
    localtime_r(&seconds, &local);
    char stamp[32];
    std::strftime(stamp, sizeof(stamp), "%m-%d %H:%M:%S", &local);
    char head[128];
    std::snprintf(head, sizeof(head), "%s.%03d %5d %5d %c %c%05X/", stamp,
                  static_cast<int>(record.timeMs % 1000), record.pid, record.tid, LevelLetter(record.level),
                  record.type == LOG_APP ? 'A' : 'C', record.domain & 0xFFFFFu);
    return head + record.tag + ": " + record.message;
}

std::vector<LogRecord> CapturedLogs() {
    LogState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.records;
}

void ClearCapturedLogs() {
    LogState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.records.clear();
}

bool SetLogOutput(const std::string &target) {
    LogState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.Open(target);
}

}  // namespace Zarvo::Host

extern "C" int HiLogPrint(LogType type, LogLevel level, unsigned int domain, const char *tag, const char *fmt,
                          ...) {
    using namespace Zarvo::Host;
    if (tag == nullptr || fmt == nullptr) {
        return -1;
    }
    LogRecord record;
    record.type = type;
    record.level = level;
    record.domain = domain;
    record.tag = tag;
    record.format = fmt;

    va_list args;
    va_start(args, fmt);
    if (std::strncmp(fmt, LINE_PREFIX, sizeof(LINE_PREFIX) - 1) == 0) {
        va_list peek;
        va_copy(peek, args);
        const char *file = va_arg(peek, const char *);
        record.file = file != nullptr ? file : "";
        record.line = va_arg(peek, int);
        va_end(peek);
    }
    record.message = RenderLogFormat(fmt, args);
    va_end(args);

    record.timeMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::system_clock::now().time_since_epoch())
                        .count();
    record.pid = static_cast<int>(getpid());
    record.tid = static_cast<int>(syscall(SYS_gettid));

    LogState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.output != nullptr) {
        std::string line = FormatLogLine(record);
        std::fprintf(state.output, "%s\n", line.c_str());
        std::fflush(state.output);
    }
    int length = static_cast<int>(record.message.size());
    state.records.push_back(std::move(record));
    return length;
}
