#include "run_context.h"

#include <unistd.h>

#include <climits>
#include <ctime>

#include "code_names.h"
#include "migrate_service/migrate_protocol.h"

namespace Zarvo::Host {
namespace {

std::string CallsWords(int count) {
    return count < 0    ? "every call"
           : count == 1 ? "the next call"
                        : "the next " + std::to_string(count) + " calls";
}

}  // namespace

std::string UtcTimeText(int64_t unixNs) {
    const time_t seconds = static_cast<time_t>(unixNs / 1000000000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                  static_cast<int>(unixNs / 1000000 % 1000));
    return text;
}

std::string HostName() {
    char name[HOST_NAME_MAX + 1] = {};
    return gethostname(name, sizeof(name) - 1) == 0 ? name : "";
}

std::string FaultWords(const InjectedFault &fault) {
    return fault.operation +
           (fault.outOfMemory ? " runs out of memory" : " fails with " + HexText(fault.code)) + ", " +
           CallsWords(fault.count);
}

std::string FaultWords(const FaultRule &rule) {
    const std::string operation = rule.type ? MigrateOpName(*rule.type) : "every request";
    std::string what;
    switch (rule.action) {
        case FaultAction::FAIL:
            what = " answered with result " + std::to_string(rule.result) + ", errno " +
                   std::to_string(rule.errCode);
            break;
        case FaultAction::STALL:
            what = " stalled " + std::to_string(rule.stallMs) + " ms";
            break;
        case FaultAction::DROP:
            what = " dropped without an answer";
            break;
    }
    const std::string requests = rule.count < 0    ? "every request"
                                 : rule.count == 1 ? "the next request"
                                                   : "the next " + std::to_string(rule.count) + " requests";
    return "migrate service: " + operation + what + ", " + requests;
}

}  // namespace Zarvo::Host
