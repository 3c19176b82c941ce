#ifndef HOST_RUNNER_MIGRATE_SERVICE_PROCESS_H
#define HOST_RUNNER_MIGRATE_SERVICE_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "migrate_service/request_journal.h"

namespace Zarvo::Host {

// The migrate service daemon as a child process, as it runs on a device beside the migrate server.
class MigrateServiceProcess {
public:
    MigrateServiceProcess() = default;
    ~MigrateServiceProcess();
    MigrateServiceProcess(const MigrateServiceProcess &) = delete;
    MigrateServiceProcess &operator=(const MigrateServiceProcess &) = delete;

    // Starts `migrate_service` from `binDir` and waits until it listens. `deviceState` (may be
    // empty) carries its injected faults; the journal goes to `journalPath` or a private file.
    // Returns an empty text on success, else one sentence.
    std::string Start(const std::string &binDir, const std::string &deviceState,
                      const std::string &journalPath);
    // Stops the daemon (if it was started) and returns its request journal, read from the file the
    // daemon wrote: the one place the runner reads the daemon's output.
    std::vector<JournalEntry> Stop();

private:
    pid_t pid_ = -1;
    std::string journalPath_;
};

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_MIGRATE_SERVICE_PROCESS_H
