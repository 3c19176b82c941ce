#include "hisysevent.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>

#include "platform_control/event_capture.h"

namespace Zarvo::Host {
namespace {

// Result of a write that the writer refuses for its arguments.
constexpr int ERR_INVALID_EVENT = -1;

struct EventState {
    std::mutex mutex;
    std::vector<EventRecord> records;
    std::string logPath;
    int faultResult = 0;
    int faultCount = 0;

    EventState() {
        const char *path = std::getenv("ZARVO_HISYSEVENT_LOG");
        if (path != nullptr) {
            logPath = path;
        }
    }
};

EventState &State() {
    static EventState state;
    return state;
}

const char *TypeName(HiviewDFX::HiSysEventParam::Type type) {
    using Type = HiviewDFX::HiSysEventParam::Type;
    switch (type) {
        case Type::BOOL:
            return "BOOL";
        case Type::INT32:
            return "INT32";
        case Type::INT64:
            return "INT64";
        case Type::UINT32:
            return "UINT32";
        case Type::UINT64:
            return "UINT64";
        case Type::DOUBLE:
            return "DOUBLE";
        default:
            return "STRING";
    }
}

nlohmann::json ParamValue(const HiviewDFX::HiSysEventParam &param) {
    using Type = HiviewDFX::HiSysEventParam::Type;
    switch (param.type) {
        case Type::BOOL:
            return param.boolValue;
        case Type::INT32:
        case Type::INT64:
            return param.intValue;
        case Type::UINT32:
        case Type::UINT64:
            return param.uintValue;
        case Type::DOUBLE:
            return param.doubleValue;
        default:
            return param.stringValue;
    }
}

}  // namespace

std::string EventToJson(const EventRecord &record) {
    nlohmann::json params = nlohmann::json::array();
    for (const auto &param : record.params) {
        params.push_back(
            {{"name", param.name}, {"type", TypeName(param.type)}, {"value", ParamValue(param)}});
    }
    nlohmann::json line = {{"domain", record.domain}, {"name", record.name}, {"type", record.type},
                           {"func", record.func},     {"line", record.line}, {"time", record.timeMs},
                           {"params", params}};
    // Texts that are not valid UTF-8 are written with replacement characters, never refused.
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::vector<EventRecord> CapturedEvents() {
    EventState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.records;
}

void ClearCapturedEvents() {
    EventState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.records.clear();
}

void FailEventWrites(int result, int count) {
    EventState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.faultResult = result;
    state.faultCount = count;
}

void ResetEventFaults() {
    FailEventWrites(0, 0);
}

bool SetEventLogPath(const std::string &path) {
    if (!path.empty()) {
        std::ofstream probe(path, std::ios::app);
        if (!probe) {
            return false;
        }
    }
    EventState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.logPath = path;
    return true;
}

}  // namespace Zarvo::Host

namespace Zarvo::HiviewDFX {

int HiSysEvent::WriteEvent(const char *func, int64_t line, const std::string &domain,
                           const std::string &eventName, EventType type,
                           const std::vector<HiSysEventParam> &params) {
    using namespace Zarvo::Host;
    if (domain.empty() || eventName.empty()) {
        return ERR_INVALID_EVENT;
    }
    for (const auto &param : params) {
        if (param.name.empty()) {
            return ERR_INVALID_EVENT;
        }
    }
    EventState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    if (state.faultResult != 0 && state.faultCount != 0) {
        if (state.faultCount > 0) {
            --state.faultCount;
        }
        return state.faultResult;
    }
    EventRecord record;
    record.domain = domain;
    record.name = eventName;
    record.type = type;
    record.func = func != nullptr ? func : "";
    record.line = line;
    record.timeMs = std::chrono::duration_cast<std::chrono::milliseconds>(
                        std::chrono::system_clock::now().time_since_epoch())
                        .count();
    record.params = params;
    if (!state.logPath.empty()) {
        std::ofstream log(state.logPath, std::ios::app);
        log << EventToJson(record) << '\n';
    }
    state.records.push_back(std::move(record));
    return 0;
}

}  // namespace Zarvo::HiviewDFX
