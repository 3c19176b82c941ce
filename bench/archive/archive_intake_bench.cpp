// Takes a restore's entries out of a snapshot, as the runner does before it lays them, and prints
// how long that took and the process's peak memory. Usage: archive_intake_bench SNAPSHOT
#include <sys/resource.h>

#include <chrono>
#include <iostream>

#include "snapshot.h"

using namespace Zarvo::Host;

int main(int argc, char *argv[]) {
    if (argc != 2) {
        std::cerr << "usage: archive_intake_bench SNAPSHOT" << std::endl;
        return 2;
    }
    const auto start = std::chrono::steady_clock::now();
    std::string error;
    std::unique_ptr<SnapshotSource> source = OpenSnapshot(argv[1], error);
    if (source == nullptr) {
        std::cerr << "archive_intake_bench: " << error << std::endl;
        return 2;
    }
    size_t entries = 0;
    uint64_t bytes = 0;
    error = source->Walk(*RestoreEntryFilter(100), [&](const SnapshotEntry &, EntryReader &content) {
        ++entries;
        char buffer[64 * 1024];
        std::string failure;
        for (ssize_t got; (got = content.Read(buffer, sizeof(buffer), failure)) > 0;) {
            bytes += static_cast<uint64_t>(got);
        }
        return std::string();
    });
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!error.empty()) {
        std::cerr << "archive_intake_bench: " << error << std::endl;
        return 2;
    }
    struct rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    std::cout << "root: " << source->Root() << "\nentries taken: " << entries << " (" << bytes
              << " bytes)\nseconds: " << seconds << "\npeak memory: " << usage.ru_maxrss / 1024 << " MiB"
              << std::endl;
    return 0;
}
