#include "plugin_lines.h"

#include <charconv>

#include "update_log.h"

namespace Zarvo::Host {
namespace {

struct DeclaredLine {
    PluginLineKind kind;
    const char *format;
};

const DeclaredLine DECLARED_LINES[] = {
#define PLUGIN_LINE_FORMAT(NAME) {PluginLineKind::NAME, LINE_##NAME},
    ACCOUNT_RESTORE_LINES(PLUGIN_LINE_FORMAT)
#undef PLUGIN_LINE_FORMAT
};

const std::string NUMBER_SPEC = "%{public}d";
const std::string TEXT_SPEC = "%{public}s";

// The literal text of `format` from `at` up to its next conversion.
std::string LiteralFrom(const std::string &format, size_t at, size_t &next) {
    next = format.find('%', at);
    if (next == std::string::npos) {
        next = format.size();
    }
    return format.substr(at, next - at);
}

}  // namespace

std::string MessageOf(const LogRecord &record) {
    if (record.file.empty()) {
        return record.message;
    }
    const std::string prefix = "[" + record.file + "(" + std::to_string(record.line) + ")]";
    return record.message.compare(0, prefix.size(), prefix) == 0 ? record.message.substr(prefix.size())
                                                                 : record.message;
}

bool MatchFormat(const std::string &format, const std::string &message, std::vector<int64_t> &numbers,
                 std::vector<std::string> &texts) {
    numbers.clear();
    texts.clear();
    size_t f = 0;
    size_t m = 0;
    while (f < format.size()) {
        size_t next = 0;
        const std::string literal = LiteralFrom(format, f, next);
        if (message.compare(m, literal.size(), literal) != 0) {
            return false;
        }
        m += literal.size();
        f = next;
        if (f == format.size()) {
            break;
        }
        if (format.compare(f, NUMBER_SPEC.size(), NUMBER_SPEC) == 0) {
            int64_t value = 0;
            auto [end, error] = std::from_chars(message.data() + m, message.data() + message.size(), value);
            if (error != std::errc()) {
                return false;
            }
            numbers.push_back(value);
            m = static_cast<size_t>(end - message.data());
            f += NUMBER_SPEC.size();
        } else if (format.compare(f, TEXT_SPEC.size(), TEXT_SPEC) == 0) {
            f += TEXT_SPEC.size();
            const std::string after = LiteralFrom(format, f, next);
            // A text runs to the literal after it; the last literal must end the message.
            size_t end =
                next == format.size()
                    ? (message.size() >= m + after.size() &&
                               message.compare(message.size() - after.size(), after.size(), after) == 0
                           ? message.size() - after.size()
                           : std::string::npos)
                    : message.find(after, m);
            if (end == std::string::npos || (after.empty() && next != format.size())) {
                return false;
            }
            texts.push_back(message.substr(m, end - m));
            m = end;
        } else {
            return false;
        }
    }
    return m == message.size();
}

bool IsPluginRecord(const LogRecord &record) {
    using UpdateEngine::MIGRATE_PLUGIN_LABEL;
    using UpdateEngine::UPDATE_LABEL;
    return record.tag == UPDATE_LABEL[MIGRATE_PLUGIN_LABEL].tag &&
           record.domain == UPDATE_LABEL[MIGRATE_PLUGIN_LABEL].domain;
}

std::vector<PluginLine> ReadPluginLines(const std::vector<LogRecord> &logs) {
    std::vector<PluginLine> lines;
    for (size_t i = 0; i < logs.size(); ++i) {
        const LogRecord &record = logs[i];
        if (!IsPluginRecord(record)) {
            continue;
        }
        const std::string message = MessageOf(record);
        for (const DeclaredLine &declared : DECLARED_LINES) {
            PluginLine line{declared.kind, {}, {}, i};
            if (MatchFormat(declared.format, message, line.numbers, line.texts)) {
                lines.push_back(std::move(line));
                break;
            }
        }
    }
    return lines;
}

}  // namespace Zarvo::Host
