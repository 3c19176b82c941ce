#include "hisysevent.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <nlohmann/json.hpp>

#include "device_state_store.h"
#include "platform_control/device_state.h"
#include "platform_control/event_capture.h"

namespace Zarvo::Host {
namespace {

// Result of a write that the writer refuses for its arguments.
constexpr int ERR_INVALID_EVENT = -1;
// Result of a write whose event could not be stored in the event log.
constexpr int ERR_EVENT_LOG = -2;
constexpr char WRITE_OPERATION[] = "HiSysEventWrite";

struct EventState {
    std::mutex mutex;
    std::vector<EventRecord> records;
    std::string logPath;
    std::string logError;

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

// The event log tells which users and files a restore failed on: it is made owner-only, and a
// link in its place is never written through. A FIFO is not waited on.
int OpenEventLog(const std::string &path) {
    return open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
}

// Appends one line in a single write, so that concurrent writers never interleave within it.
int AppendLine(const std::string &path, const std::string &line) {
    int fd = OpenEventLog(path);
    if (fd < 0) {
        return errno;
    }
    ssize_t written = write(fd, line.data(), line.size());
    int err = written < 0 ? errno : (static_cast<size_t>(written) != line.size() ? EIO : 0);
    if (close(fd) != 0 && err == 0) {
        err = errno;
    }
    return err;
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
    InjectFault(WRITE_OPERATION, result, count);
}

void ResetEventFaults() {
    InjectFault(WRITE_OPERATION, 0, 0);
}

bool SetEventLogPath(const std::string &path, std::string &error) {
    if (!path.empty()) {
        int fd = OpenEventLog(path);
        if (fd < 0) {
            error =
                "the event log " + path + " cannot be opened for appending: " + std::strerror(errno) + ".";
            return false;
        }
        close(fd);
    }
    EventState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.logPath = path;
    state.logError.clear();
    return true;
}

std::string EventLogError() {
    EventState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
    return state.logError;
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
    int32_t fault = 0;
    if (Internal::TakeFault(WRITE_OPERATION, fault)) {
        return fault;
    }
    EventState &state = State();
    std::lock_guard<std::mutex> lock(state.mutex);
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
        int err = AppendLine(state.logPath, EventToJson(record) + "\n");
        if (err != 0) {
            if (state.logError.empty()) {
                state.logError =
                    "the event log " + state.logPath + " could not be written: " + std::strerror(err) + ".";
            }
            return ERR_EVENT_LOG;
        }
    }
    state.records.push_back(std::move(record));
    return 0;
}

}  // namespace Zarvo::HiviewDFX
