#ifndef MIGRATE_SERVICE_REQUEST_HANDLER_H
#define MIGRATE_SERVICE_REQUEST_HANDLER_H

#include <string>

#include "migrate_service/migrate_protocol.h"
#include "path_guard.h"

namespace Zarvo::Host {

// Why a request failed, and whether it was refused (never performed) rather than failed by the
// file system.
struct Verdict {
    std::string note;
    bool refused = false;
};

// Performs one decoded request inside the guard's roots and builds its reply. A failure is
// result -1 with an errno value in errCode; `verdict` then says why, for the journal.
class RequestHandler {
public:
    explicit RequestHandler(const PathGuard &guard) : guard_(guard) {}

    MigrateReply Handle(const MigrateRequest &request, Verdict &verdict) const;

private:
    MigrateReply IsFileExist(const MigrateRequest &request, Verdict &verdict) const;
    MigrateReply IsDir(const MigrateRequest &request, Verdict &verdict) const;
    MigrateReply GetPathList(const MigrateRequest &request, Verdict &verdict) const;
    MigrateReply PrepareDir(const MigrateRequest &request, Verdict &verdict) const;
    MigrateReply Transfer(const MigrateRequest &request, Verdict &verdict) const;
    MigrateReply Remove(const MigrateRequest &request, bool missingIsSuccess, Verdict &verdict) const;
    MigrateReply RestoreContext(const MigrateRequest &request, Verdict &verdict) const;
    MigrateReply MkDir(const MigrateRequest &request, Verdict &verdict) const;
    MigrateReply Chown(const MigrateRequest &request, Verdict &verdict) const;
    MigrateReply Chmod(const MigrateRequest &request, Verdict &verdict) const;
    MigrateReply GetExistDirectory(const MigrateRequest &request, Verdict &verdict) const;
    MigrateReply GetPathSize(const MigrateRequest &request, Verdict &verdict) const;

    const PathGuard &guard_;
};

}  // namespace Zarvo::Host

#endif  // MIGRATE_SERVICE_REQUEST_HANDLER_H
