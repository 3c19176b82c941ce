// Feeds arbitrary bytes, as a device-state file, to everything that reads one: the platform's
// device state (LoadDeviceState), and the migrate service's fault description, both as a file of
// its own (LoadFaultFile) and as the file's "migrateService" part (LoadDeviceStateFaults).
// Besides memory errors it checks that a state that loads is written back (DeviceStateToJson) as
// text that loads to the very same state, and that a refusal comes with a reason.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "migrate_service/fault_plan.h"
#include "platform_control/device_state.h"
#include "platform_control/log_capture.h"
#include "scratch_files.h"

namespace {

[[noreturn]] void Fail(const char *what, const std::string &detail) {
    std::fprintf(stderr, "device_state_fuzzer: %s\n%s\n", what, detail.c_str());
    std::abort();
}

void CheckDeviceState(const std::string &path) {
    std::string error;
    Zarvo::Host::ResetToTypicalDevice();
    if (!Zarvo::Host::LoadDeviceState(path, error)) {
        if (error.empty()) {
            Fail("a refused device state gives no reason", "");
        }
        return;
    }
    std::string written = Zarvo::Host::DeviceStateToJson();
    Zarvo::Host::ClearDeviceState();
    if (!Zarvo::Host::LoadDeviceStateFromText(written, error)) {
        Fail("the state's own JSON does not load", error + "\n" + written);
    }
    if (Zarvo::Host::DeviceStateToJson() != written) {
        Fail("the state's own JSON loads to another state",
             written + "\n----\n" + Zarvo::Host::DeviceStateToJson());
    }
}

void CheckFaults(bool loaded, const std::string &error, const char *reader) {
    if (!loaded && error.empty()) {
        Fail("a refused fault description gives no reason:", reader);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    Zarvo::Host::SetLogOutput("off");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string path = Zarvo::Fuzzing::WriteScratchFile(
        "device-state.json", std::string_view(reinterpret_cast<const char *>(data), size));
    CheckDeviceState(path);
    std::vector<Zarvo::Host::FaultRule> rules;
    std::string error;
    CheckFaults(Zarvo::Host::LoadFaultFile(path, rules, error), error, "LoadFaultFile");
    rules.clear();
    error.clear();
    CheckFaults(Zarvo::Host::LoadDeviceStateFaults(path, rules, error), error, "LoadDeviceStateFaults");
    Zarvo::Host::ClearCapturedLogs();
    return 0;
}
