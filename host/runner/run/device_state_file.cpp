#include "device_state_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "migrate_service/fault_plan.h"
#include "platform_control/device_state.h"
#include "support/fd_io.h"

namespace Zarvo::Host {
namespace {

// A device state describes a few accounts, bundles and faults; far less than this.
constexpr off_t MAX_DEVICE_STATE_BYTES = 16 << 20;
constexpr char MIGRATE_SERVICE_KEY[] = "migrateService";

}  // namespace

std::string ReadDeviceStateFile(const std::string &path, std::string &text) {
    const std::string unreadable = "The device state file " + path + " cannot be read: ";
    // Not blocking: a FIFO in its place is refused rather than waited on.
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!fd.Valid() || fstat(fd.Get(), &status) != 0) {
        return unreadable + std::strerror(errno) + ".";
    }
    if (!S_ISREG(status.st_mode)) {
        return unreadable + "it is no regular file.";
    }
    if (status.st_size > MAX_DEVICE_STATE_BYTES) {
        return unreadable + "it is larger than 16 MiB.";
    }
    const int failed = ReadUpTo(fd.Get(), static_cast<size_t>(MAX_DEVICE_STATE_BYTES), text);
    if (failed != 0) {
        return unreadable +
               (failed == EFBIG ? "it is larger than 16 MiB." : std::strerror(failed) + std::string("."));
    }

    std::string error;
    if (!LoadDeviceStateFromText(text, error)) {
        const std::string prefix = "The device state is not usable: ";
        return "The device state file " + path +
               " is not usable: " + (error.rfind(prefix, 0) == 0 ? error.substr(prefix.size()) : error);
    }
    const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
    const auto faults = json.find(MIGRATE_SERVICE_KEY);
    std::vector<FaultRule> rules;
    if (faults != json.end() && !ParseFaultDescription(faults->dump(), rules, error)) {
        return "The device state file " + path + " is not usable: \"" + MIGRATE_SERVICE_KEY + "\": " + error +
               ".";
    }
    return "";
}

UniqueFd SealedCopy(const std::string &text, std::string &path, std::string &error) {
    // Inherited on purpose: no close-on-exec.
    UniqueFd fd(memfd_create("device-state", MFD_ALLOW_SEALING));
    if (!fd.Valid() || !WriteAll(fd.Get(), text.data(), text.size()) ||
        fcntl(fd.Get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL) != 0) {
        error = std::string("could not keep a copy of the device state: ") + std::strerror(errno) + ".";
        return UniqueFd();
    }
    path = "/proc/self/fd/" + std::to_string(fd.Get());
    return fd;
}

}  // namespace Zarvo::Host
