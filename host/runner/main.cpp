// The runner plays the migrate server: it prepares the sandbox and the plug-in's work tree from
// an Android data snapshot, starts the migrate service, loads the plug-in, calls RestoreData and
// reports what happened.

#include <dlfcn.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "migrate_service_process.h"
#include "platform_control/credential_control.h"
#include "platform_control/device_state.h"
#include "platform_control/event_capture.h"
#include "platform_control/log_capture.h"
#include "report.h"
#include "sample_phone.h"
#include "sandbox.h"
#include "snapshot.h"

namespace fs = std::filesystem;
using namespace Zarvo::Host;

namespace {

constexpr int EXIT_RESTORED = 0;
constexpr int EXIT_NOT_RESTORED = 1;
constexpr int EXIT_USAGE = 2;
constexpr char START_TIME_VARIABLE[] = "ZARVO_RUNNER_START_NS";
const std::string WORK_ROOT = "/data/service/el1/public/update/migrate_server/plugins/200/";
const std::string SAMPLE_SNAPSHOT = "/data/runner/sample_phone";
const std::string APP_DATA_ROOT = "/data/app";

struct Options {
    std::string plugin;
    std::string snapshot;
    std::string deviceState;
    std::string reportPath;
    std::string serviceLog;
    std::string eventLog;
    bool useRunningService = false;
    bool noSandbox = false;
};

int64_t NowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

double MsSince(int64_t startNs) {
    return static_cast<double>(NowNs() - startNs) / 1e6;
}

std::string SelfDirectory() {
    char self[PATH_MAX] = {};
    ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    return length > 0 ? fs::path(std::string(self, static_cast<size_t>(length))).parent_path().string() : ".";
}

// The plug-in built beside the runner (bin/ of a build tree, or lib/ of an installation).
std::string DefaultPlugin() {
    const fs::path dir = SelfDirectory();
    for (const fs::path &candidate :
         {dir / "libaccount_manager_restore.so", dir / ".." / "lib" / "libaccount_manager_restore.so",
          dir / ".." / "lib" / "x86_64-linux-gnu" / "libaccount_manager_restore.so"}) {
        if (fs::exists(candidate)) {
            return fs::absolute(candidate).lexically_normal().string();
        }
    }
    return (dir / "libaccount_manager_restore.so").string();
}

int Fail(const std::string &sentence) {
    std::cerr << "restore_runner: " << sentence << std::endl;
    return EXIT_USAGE;
}

int FirstActiveUser() {
    for (const auto &account : OsAccounts()) {
        if (account.GetIsActived()) {
            return account.GetLocalId();
        }
    }
    return -1;
}

nlohmann::json OsAccountsJson() {
    nlohmann::json state = nlohmann::json::parse(DeviceStateToJson(), nullptr, false);
    return state.is_object() && state.contains("osAccounts") ? state["osAccounts"] : nlohmann::json::array();
}

int Run(const Options &options, int64_t startNs) {
    RunReport report;
    report.plugin = options.plugin;
    std::string error;
    if (!options.deviceState.empty() && !LoadDeviceState(options.deviceState, error)) {
        return Fail(error);
    }
    const char *eventLog = std::getenv("ZARVO_HISYSEVENT_LOG");
    if (!options.eventLog.empty() || eventLog != nullptr) {
        if (!SetEventLogPath(options.eventLog.empty() ? eventLog : options.eventLog, error)) {
            return Fail(error);
        }
    }
    report.osAccountsBefore = OsAccountsJson();

    std::string snapshot = options.snapshot;
    if (snapshot.empty()) {
        error = Zarvo::Fixtures::BuildSamplePhone(Zarvo::Fixtures::DefaultSamplePhone(), SAMPLE_SNAPSHOT);
        if (!error.empty()) {
            return Fail("could not build the sample phone: " + error);
        }
        snapshot = SAMPLE_SNAPSHOT;
    }
    report.snapshot = snapshot;
    std::unique_ptr<SnapshotSource> source = OpenSnapshot(snapshot, error);
    if (source == nullptr) {
        return Fail(error);
    }
    error = LaySnapshot(*source, FirstActiveUser(), report.laid);
    if (!error.empty()) {
        return Fail(error);
    }

    MigrateServiceProcess service;
    if (!options.useRunningService) {
        const int64_t serviceStart = NowNs();
        error = service.Start(SelfDirectory(), options.deviceState, options.serviceLog);
        if (!error.empty()) {
            return Fail(error);
        }
        report.serviceStartMs = MsSince(serviceStart);
    }

    void *handle = dlopen(options.plugin.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        return Fail("could not load the plug-in " + options.plugin + ": " + dlerror() + ".");
    }
    using RestoreDataFunction = bool (*)();
    auto restoreData = reinterpret_cast<RestoreDataFunction>(dlsym(handle, "RestoreData"));
    if (restoreData == nullptr) {
        dlclose(handle);
        return Fail("the plug-in " + options.plugin + " does not export RestoreData.");
    }

    ClearCapturedLogs();
    ClearCapturedEvents();
    report.setupMs = MsSince(startNs);
    const int64_t restoreStart = NowNs();
    report.result = restoreData();
    report.restoreMs = MsSince(restoreStart);
    // The credential service answers on its own thread with the plug-in's callback: let every
    // answer finish before the plug-in's code is unmapped.
    ResetCredentialService();
    dlclose(handle);

    report.journal = service.Stop();
    report.logs = CapturedLogs();
    report.events = CapturedEvents();
    report.users = UserOutcomesFromLog(report.logs);
    report.osAccountsAfter = OsAccountsJson();
    report.handedFiles = CollectFiles(APP_DATA_ROOT);
    report.workTreeRemoved = !fs::exists(WORK_ROOT);
    report.totalMs = MsSince(startNs);

    PrintSummary(report, std::cout);
    if (!options.reportPath.empty()) {
        std::ofstream out(options.reportPath);
        out << ReportToJson(report).dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
        if (!out) {
            return Fail("could not write the report to " + options.reportPath + ".");
        }
    }
    error = EventLogError();
    if (!error.empty()) {
        return Fail(error);
    }
    return report.result ? EXIT_RESTORED : EXIT_NOT_RESTORED;
}

}  // namespace

int main(int argc, char *argv[]) {
    CLI::App app{
        "Plays the migrate server: restores an Android data snapshot with the account restore plug-in."};
    Options options;
    options.plugin = DefaultPlugin();
    app.add_option("-p,--plugin", options.plugin, "The plug-in to load")->check(CLI::ExistingFile);
    app.add_option("-s,--snapshot", options.snapshot,
                   "An Android data snapshot (system_ce/0/accounts_ce.db, system/users/...) or a work tree "
                   "(back/...), as a folder or an archive (tar, tar.gz/xz/zst/bz2, zip, the first piece of a "
                   "split backup); default: the built-in sample phone")
        ->check(CLI::ExistingPath);
    app.add_option("-d,--device-state", options.deviceState,
                   "Device state JSON (OS accounts, bundles, faults)")
        ->check(CLI::ExistingFile);
    app.add_option("-r,--report", options.reportPath, "Write a JSON report to this file");
    app.add_option("--event-log", options.eventLog,
                   "Append every fault event as a JSON line to this file (default: $ZARVO_HISYSEVENT_LOG)");
    app.add_option("--service-journal", options.serviceLog,
                   "Keep the migrate service's request journal in this file");
    app.add_flag("--use-running-service", options.useRunningService,
                 "Use a migrate service that is already listening instead of starting one");
    app.add_flag("--no-sandbox", options.noSandbox,
                 "Run in the current mount namespace: /data and /dev/unix are already prepared");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        int code = app.exit(e);
        return code == 0 ? 0 : EXIT_USAGE;
    }

    for (const std::string *path : {&options.snapshot, &options.deviceState, &options.reportPath,
                                    &options.eventLog, &options.serviceLog}) {
        if (!path->empty() && !options.noSandbox && !InSandbox() &&
            fs::absolute(*path).string().rfind("/data/", 0) == 0) {
            return Fail(*path + " lies under /data, which the sandbox replaces; keep it elsewhere.");
        }
    }
    if (!options.noSandbox && !InSandbox()) {
        if (std::getenv(START_TIME_VARIABLE) == nullptr) {
            setenv(START_TIME_VARIABLE, std::to_string(NowNs()).c_str(), 1);
        }
        std::string error;
        int status = RunInSandbox(argc, argv, error);
        return status >= 0 ? status : Fail(error);
    }
    const char *start = std::getenv(START_TIME_VARIABLE);
    int64_t startNs = start != nullptr ? std::strtoll(start, nullptr, 10) : NowNs();
    try {
        return Run(options, startNs);
    } catch (const std::exception &e) {
        return Fail(std::string("unexpected failure: ") + e.what() + ".");
    }
}
