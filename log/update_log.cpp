#include "update_log.h"

#include <algorithm>

namespace Zarvo {
namespace UpdateEngine {
namespace {

constexpr int32_t MAX_LOG_PIECE_LENGTH = 900;
constexpr char PUBLIC_QUALIFIER[] = "%{public}";

}  // namespace

UpdateLogLevel UpdateLog::level_ = UPDATE_LOG_INFO;

bool UpdateLog::JudgeLevel(const UpdateLogLevel &) {
    return true;
}

UpdateLogLevel &UpdateLog::GetLogLevel() {
    return level_;
}

void UpdateLog::SetLogLevel(const UpdateLogLevel &level) {
    level_ = level;
}

std::string UpdateLog::OutputDueUploadLog(const std::string &log) {
    std::string result = log;
    const std::string qualifier = PUBLIC_QUALIFIER;
    for (size_t pos = result.find(qualifier); pos != std::string::npos; pos = result.find(qualifier)) {
        result.replace(pos, qualifier.size(), LOG_CONVERSION_MARK);
    }
    return result;
}

std::string UpdateLog::GetBriefFileName(const std::string &file) {
    size_t pos = file.find_last_of('/');
    if (pos != std::string::npos) {
        return file.substr(pos + 1);
    }
    pos = file.find_last_of('\\');
    if (pos != std::string::npos) {
        return file.substr(pos + 1);
    }
    return file;
}

std::string UpdateLog::GetFmtLabel(const std::string &log) {
    if (FindSubStrCount(log, LOG_CONVERSION_MARK) != 1) {
        return "";
    }
    for (const std::string *label : {&LOG_LABEL_PLAIN, &LOG_LABEL_PRIVATE, &LOG_LABEL_PUBLIC}) {
        if (FindSubStrCount(log, *label) == 1) {
            return *label;
        }
    }
    return "";
}

std::pair<std::string, std::string> UpdateLog::SplitLogByFmtLabel(const std::string &log,
                                                                  const std::string &label) {
    if (label.empty()) {
        return {log, ""};
    }
    size_t pos = log.find(label);
    if (pos == std::string::npos) {
        // A label that does not occur splits nothing off: the whole text is the prefix.
        return {log, ""};
    }
    return {log.substr(0, pos), log.substr(pos + label.size())};
}

int32_t UpdateLog::FindSubStrCount(const std::string &str, const std::string &subStr) {
    int32_t count = 0;
    for (size_t pos = str.find(subStr); pos != std::string::npos; pos = str.find(subStr, pos + 1)) {
        ++count;
        if (pos >= str.size()) {
            break;
        }
    }
    return count;
}

void UpdateLog::PrintLongLog(const uint32_t subModuleIndex, const UpdateLogContent &logContent) {
    std::string label = GetFmtLabel(logContent.log);
    auto [prefix, suffix] = SplitLogByFmtLabel(logContent.log, label);

    UpdateLogContent head = logContent;
    head.log = LOG_LABEL_PUBLIC;
    head.args = prefix;
    PrintLog(subModuleIndex, head);

    UpdateLogContent value = logContent;
    value.log = label;
    PrintLog(subModuleIndex, value);

    UpdateLogContent tail = logContent;
    tail.log = LOG_LABEL_PUBLIC;
    tail.args = suffix;
    PrintLog(subModuleIndex, tail);
}

void UpdateLog::PrintLog(const uint32_t subModuleIndex, const UpdateLogContent &logContent) {
    const int32_t length = static_cast<int32_t>(logContent.args.size());
    // Advancing by the length taken keeps the position within [0, length]: no signed overflow
    // for values near the 32-bit limit.
    for (int32_t pos = 0; pos < length;) {
        const int32_t taken = std::min(length - pos, MAX_LOG_PIECE_LENGTH);
        UpdateLogContent piece = logContent;
        piece.args = logContent.args.substr(pos, taken);
        PrintSingleLine(subModuleIndex, piece);
        pos += taken;
    }
}

void UpdateLog::PrintSingleLine(const uint32_t subModuleIndex, const UpdateLogContent &logContent) {
    LogLevel hiLevel;
    switch (logContent.level) {
        case UPDATE_LOG_DEBUG:
            hiLevel = LOG_DEBUG;
            break;
        case UPDATE_LOG_INFO:
            hiLevel = LOG_INFO;
            break;
        case UPDATE_LOG_ERROR:
            hiLevel = LOG_ERROR;
            break;
        default:
            return;
    }
    // The table has no entry beyond its end; such a request prints nothing.
    if (subModuleIndex >= UPDATE_LABEL_COUNT) {
        return;
    }
    const HiviewDFX::HiLogLabel &label = UPDATE_LABEL[subModuleIndex];
    const char *format;
    if (logContent.log == LOG_LABEL_PUBLIC) {
        format = "[%{public}s(%{public}d)]%{public}s";
    } else if (logContent.log == LOG_LABEL_PRIVATE) {
        format = "[%{public}s(%{public}d)]%{private}s";
    } else {
        format = "[%{public}s(%{public}d)]%s";
    }
    (void)HiLogPrint(LOG_CORE, hiLevel, label.domain, label.tag, format,
                     GetBriefFileName(logContent.fileName).c_str(), logContent.line, logContent.args.c_str());
}

}  // namespace UpdateEngine
}  // namespace Zarvo
