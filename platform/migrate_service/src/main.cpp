// The migrate service daemon: serves the migrate socket until SIGTERM or SIGINT.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <iostream>
#include <string>

#include "migrate_service/migrate_service.h"
#include "support/build_info.h"

using Zarvo::Host::FaultRule;
using Zarvo::Host::MigrateService;
using Zarvo::Host::MigrateServiceOptions;

namespace {
constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

int Fail(const std::string &sentence, int status) {
    std::cerr << "migrate_service: " << sentence << std::endl;
    return status;
}

bool SignalReady(int fd) {
    static const char message[] = "ready\n";
    bool ok = write(fd, message, sizeof(message) - 1) == static_cast<ssize_t>(sizeof(message) - 1);
    close(fd);
    return ok;
}
}  // namespace

int main(int argc, char **argv) {
    MigrateServiceOptions options;
    std::vector<std::string> roots;
    std::string faultFile;
    std::string deviceState;
    int readyFd = -1;

    CLI::App app{
        "Serves privileged file operations on the migrate socket, confined to allowed roots.\n\n"
        "Example: migrate_service --socket /tmp/migrate.sock --allow /tmp/app --journal journal.jsonl"};
    app.set_version_flag("--version", Zarvo::BuildInfo::VersionLine("migrate_service"),
                         "Print the version and exit");
    app.add_option("--socket", options.socketPath, "Socket path to listen on")->capture_default_str();
    app.add_option(
        "--allow", roots,
        "Allowed root directory; repeat for several (default: the plug-in work tree and /data/app/el2/)");
    app.add_option("--journal", options.journalPath, "Append one JSON line per request to this file");
    app.add_option("--faults", faultFile, "Inject the faults described in this JSON file")
        ->check(CLI::ExistingFile);
    app.add_option("--device-state", deviceState,
                   "Inject the faults under the \"migrateService\" key of this file")
        ->check(CLI::ExistingFile);
    app.add_option("--ready-fd", readyFd, "Write \"ready\" to this descriptor and close it once listening")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--idle-timeout", options.idleTimeoutSeconds,
                   "Close a connection that waits this many seconds for a request")
        ->capture_default_str()
        ->check(CLI::Range(1, 86400));
    app.add_option("--request-timeout", options.requestTimeoutSeconds,
                   "Drop a request whose bytes have not all arrived this many seconds after the first, and a "
                   "connection whose reply has not been taken this many seconds after it was ready")
        ->capture_default_str()
        ->check(CLI::Range(1, 3600));
    app.add_option("--max-connections", options.maxConnections, "Connections served at once")
        ->capture_default_str()
        ->check(CLI::Range(1, 4096));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        if (e.get_exit_code() == 0) {
            return app.exit(e);
        }
        return Fail(std::string(e.what()) + " (see --help).", EXIT_USAGE);
    }
    if (!roots.empty()) {
        options.allowedRoots = roots;
    }
    if (const std::string problem = MigrateService::OptionsProblem(options); !problem.empty()) {
        return Fail(problem + ".", EXIT_USAGE);
    }
    if (readyFd >= 0 && fcntl(readyFd, F_GETFD) < 0) {
        return Fail("--ready-fd " + std::to_string(readyFd) + " is not an open descriptor.", EXIT_USAGE);
    }

    std::vector<FaultRule> rules;
    std::string error;
    if (!faultFile.empty() && !Zarvo::Host::LoadFaultFile(faultFile, rules, error)) {
        return Fail(error + ".", EXIT_USAGE);
    }
    if (!deviceState.empty() && !Zarvo::Host::LoadDeviceStateFaults(deviceState, rules, error)) {
        return Fail(error + ".", EXIT_USAGE);
    }

    // Block the stop signals before any thread starts, so that only sigwait below receives them.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGTERM);
    sigaddset(&stopSignals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

    MigrateService service(options);
    service.Faults().Replace(rules);
    if (!service.Start(error)) {
        return Fail(error + ".", EXIT_FAILED);
    }
    if (readyFd >= 0 && !SignalReady(readyFd)) {
        service.Stop();
        return Fail("cannot write to --ready-fd " + std::to_string(readyFd) + ".", EXIT_FAILED);
    }
    int signal = 0;
    sigwait(&stopSignals, &signal);
    service.Stop();
    return 0;
}
