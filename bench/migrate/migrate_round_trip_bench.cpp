// One request round trip against the real migrate service, next to a bare local-socket
// ping-pong of the same sizes (2,388 bytes out, 12 back) served the same way: a thread
// per connection doing blocking reads and writes. BM_PingPongWithLookup is that ping-pong with
// the one piece of kernel work a request cannot do without: the server opens the request's path
// below the root with openat2 (no links, nothing above the root) and closes the handle. It is
// the least any confined service can take; timed alone in a loop the lookup looks cheaper than it
// is between socket hand-overs. Must run inside the sandbox (/data, /dev/unix).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "migrate_service/migrate_service.h"

namespace {

constexpr size_t REQUEST_LENGTH = 2388;
constexpr size_t REPLY_LENGTH = 12;
const std::string ROOT_PATH = "/data/service/el1/public/update/migrate_server";
const std::string FILE_PATH = ROOT_PATH + "/plugins/200/back/100/account_manager_db.json";

bool ReadFull(int fd, char *buf, size_t length) {
    size_t got = 0;
    while (got < length) {
        ssize_t n = read(fd, buf + got, length - got);
        if (n <= 0) {
            return false;
        }
        got += static_cast<size_t>(n);
    }
    return true;
}

int Connect(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

std::string ExistRequest() {
    std::string request(REQUEST_LENGTH, '\0');
    int32_t type = 0;  // IS_FILE_EXIST
    std::memcpy(&request[0], &type, sizeof(type));
    request.replace(4, FILE_PATH.size(), FILE_PATH);
    return request;
}

void RoundTrips(benchmark::State &state, int fd, const std::string &request) {
    char reply[REPLY_LENGTH];
    for (auto _ : state) {
        if (write(fd, request.data(), request.size()) != static_cast<ssize_t>(request.size()) ||
            !ReadFull(fd, reply, sizeof(reply))) {
            state.SkipWithError("exchange failed");
            break;
        }
        benchmark::DoNotOptimize(reply);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (REQUEST_LENGTH + REPLY_LENGTH));
}

void ServiceRoundTrip(benchmark::State &state, bool journalFile) {
    std::filesystem::create_directories(std::filesystem::path(FILE_PATH).parent_path());
    std::ofstream(FILE_PATH) << "{}";
    Zarvo::Host::MigrateServiceOptions options;
    if (journalFile) {
        options.journalPath = "/data/bench-journal.jsonl";
    }
    Zarvo::Host::MigrateService service(options);
    std::string error;
    if (!service.Start(error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    int fd = Connect(options.socketPath);
    RoundTrips(state, fd, ExistRequest());
    close(fd);
    service.Stop();
}

void BM_ServiceRoundTrip(benchmark::State &state) {
    ServiceRoundTrip(state, false);
}

void BM_ServiceRoundTripJournalFile(benchmark::State &state) {
    ServiceRoundTrip(state, true);
}

// The server answers every request after `step`, which gets the request.
template <typename Step>
void PingPong(benchmark::State &state, Step step) {
    const std::string path = "/dev/unix/bench_ping_pong";
    unlink(path.c_str());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    int listenFd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listenFd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listenFd, 1) != 0) {
        state.SkipWithError("cannot listen");
        return;
    }
    std::thread server([listenFd, &step] {
        int fd = accept(listenFd, nullptr, nullptr);
        char request[REQUEST_LENGTH];
        char reply[REPLY_LENGTH] = {};
        while (ReadFull(fd, request, sizeof(request))) {
            step(request);
            if (write(fd, reply, sizeof(reply)) != static_cast<ssize_t>(sizeof(reply))) {
                break;
            }
        }
        close(fd);
    });
    int fd = Connect(path);
    RoundTrips(state, fd, ExistRequest());
    close(fd);
    server.join();
    close(listenFd);
    unlink(path.c_str());
}

void BM_RawPingPong(benchmark::State &state) {
    PingPong(state, [](const char *) {});
}

void BM_PingPongWithLookup(benchmark::State &state) {
    std::filesystem::create_directories(std::filesystem::path(FILE_PATH).parent_path());
    std::ofstream(FILE_PATH) << "{}";
    const int root = open(ROOT_PATH.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    open_how how{};
    how.flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    bool found = true;
    PingPong(state, [&](const char *request) {
        // The path as the request carries it, below the root.
        const char *relative = request + 4 + ROOT_PATH.size() + 1;
        const int fd = static_cast<int>(syscall(SYS_openat2, root, relative, &how, sizeof(how)));
        found = found && fd >= 0;
        close(fd);
    });
    close(root);
    if (!found) {
        state.SkipWithError("openat2 failed");
    }
}

BENCHMARK(BM_RawPingPong)->UseRealTime();
BENCHMARK(BM_ServiceRoundTrip)->UseRealTime();
BENCHMARK(BM_ServiceRoundTripJournalFile)->UseRealTime();
BENCHMARK(BM_PingPongWithLookup)->UseRealTime();

// Prints the console report and then how the service compares with the bare ping-pong.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run> &runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run &run : runs) {
            if (run.error_occurred) {
                continue;
            }
            if (run.run_type == Run::RT_Iteration) {
                times_[run.run_name.function_name].push_back(run.GetAdjustedRealTime());
            } else if (run.aggregate_name == "median") {
                medians_[run.run_name.function_name] = run.GetAdjustedRealTime();
            }
        }
    }

    void Finalize() override {
        ConsoleReporter::Finalize();
        double raw = Median("BM_RawPingPong");
        if (raw <= 0) {
            return;
        }
        for (const char *name : {"BM_ServiceRoundTrip", "BM_ServiceRoundTripJournalFile"}) {
            double time = Median(name);
            if (time > 0) {
                std::printf("%s / BM_RawPingPong = %.2f\n", name, time / raw);
            }
        }
        // The least the service can take: the ping-pong with the lookup it has to make.
        double least = Median("BM_PingPongWithLookup");
        if (least > 0) {
            std::printf("BM_PingPongWithLookup / BM_RawPingPong = %.2f\n", least / raw);
        }
    }

private:
    double Median(const std::string &name) {
        std::vector<double> &times = times_[name];
        if (times.empty()) {
            return 0;
        }
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    }

    std::map<std::string, std::vector<double>> times_;
    std::map<std::string, double> medians_;
};

}  // namespace

int main(int argc, char **argv) {
    if (std::getenv("ZARVO_SANDBOX") == nullptr) {
        std::fprintf(stderr,
                     "migrate_round_trip_bench: run it inside the sandbox, e.g. scripts/sandbox-exec %s.\n",
                     argv[0]);
        return 1;
    }
    // Client and server threads of both benchmarks share one CPU, so that they hand over to each
    // other the same way in each and the comparison does not depend on where the scheduler puts them.
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof(allowed), &allowed) == 0) {
        for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
            if (CPU_ISSET(cpu, &allowed)) {
                cpu_set_t one;
                CPU_ZERO(&one);
                CPU_SET(cpu, &one);
                sched_setaffinity(0, sizeof(one), &one);
                break;
            }
        }
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
