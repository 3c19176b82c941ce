#ifndef MIGRATE_SERVICE_MIGRATE_SERVICE_H
#define MIGRATE_SERVICE_MIGRATE_SERVICE_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "migrate_service/fault_plan.h"
#include "migrate_service/request_journal.h"

namespace Zarvo::Host {

extern const char *const MIGRATE_SERVICE_SOCKET_PATH;
// The plug-in's work tree and the apps' data directories.
std::vector<std::string> DefaultAllowedRoots();

struct MigrateServiceOptions {
    std::string socketPath = MIGRATE_SERVICE_SOCKET_PATH;
    std::vector<std::string> allowedRoots = DefaultAllowedRoots();
    std::string journalPath;  // empty: the journal is kept in memory only
    // A connection waiting this long for its next request is closed.
    int idleTimeoutSeconds = 30;
    // A request whose first bytes arrived but not the rest within this time is dropped, and a
    // connection whose client has not taken all of its reply within this time is closed.
    int requestTimeoutSeconds = 5;
    // Connections served at once. A newcomer to a full table takes the place of the connection that
    // has waited longest for a request; it is turned away only when every connection is being served.
    size_t maxConnections = 64;
};

// The privileged file service behind the migrate socket. Start() makes the allowed roots that are
// missing, binds and listens; from then on each connection is served on a thread of its own, one
// request after the other, until the peer closes, stays idle too long, sends only part of a
// request, is closed to make room for a newcomer, or Stop() is called.
class MigrateService {
public:
    explicit MigrateService(MigrateServiceOptions options = {});
    ~MigrateService();
    MigrateService(const MigrateService &) = delete;
    MigrateService &operator=(const MigrateService &) = delete;

    // What is wrong with `options` themselves, as one sentence (without its final period); empty
    // when they can be served. Start() refuses the same options the same way.
    static std::string OptionsProblem(const MigrateServiceOptions &options);

    // False with one sentence in `error` when the service cannot listen. The socket path appears
    // only once the service is listening.
    bool Start(std::string &error);
    // Stops listening, ends every connection and waits for their threads, writes out the whole
    // journal; removes the socket.
    void Stop();

    FaultPlan &Faults();
    RequestJournal &Journal();
    const MigrateServiceOptions &Options() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace Zarvo::Host

#endif  // MIGRATE_SERVICE_MIGRATE_SERVICE_H
