#include "request_handler.h"

#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "file_operations.h"
#include "owner_resolver.h"

namespace Zarvo::Host {

namespace {
constexpr int32_t RECURSE_NONE = 0;
constexpr int32_t RECURSE_ALL = 2;
// Directories made on the way to a requested one: others may pass through but not list them.
constexpr mode_t PARENT_DIR_MODE = 0711;

MigrateReply Success(int32_t result = 0) {
    return MigrateReply{result, 0, {}};
}

MigrateReply Failure(int err, Verdict &verdict, const std::string &why) {
    if (verdict.note.empty()) {
        verdict.note = why.empty() ? std::strerror(err) : why;
    }
    return MigrateReply{-1, err, {}};
}

// A request the service will not perform as asked.
MigrateReply Refuse(int err, Verdict &verdict, const std::string &why) {
    verdict.refused = true;
    return Failure(err, verdict, why);
}

// The guard and the argument checks refuse with EACCES, EINVAL or ELOOP; anything else is the
// file system's answer.
MigrateReply GuardFailure(int err, Verdict &verdict) {
    verdict.refused = verdict.refused || err == EACCES || err == EINVAL || err == ELOOP;
    return Failure(err, verdict, "");
}

// What failed and the system's text for it, unless the guard already said why.
MigrateReply FailOp(int err, Verdict &verdict, const std::string &what) {
    return Failure(err, verdict, what + ": " + std::strerror(err));
}

// A tree operation's failure, refused when it met an entry it must not touch.
MigrateReply TreeFailure(int err, const std::string &refusal, Verdict &verdict, const std::string &what) {
    return refusal.empty() ? FailOp(err, verdict, what) : Refuse(err, verdict, refusal);
}

bool ValidRecurseOpt(int32_t opt) {
    return opt == RECURSE_NONE || opt == RECURSE_ALL;
}

MigrateReply RefuseRecurseOpt(int32_t opt, Verdict &verdict) {
    return Refuse(EINVAL, verdict, "recurseOpt " + std::to_string(opt) + " is not 0 or 2");
}

MigrateReply RefuseRootChange(Verdict &verdict) {
    return Refuse(EACCES, verdict, "an allowed root itself cannot be changed");
}

bool IsSameOrBelow(const std::string &path, const std::string &ancestor) {
    if (ancestor == "/") {
        return true;
    }
    return path == ancestor ||
           (path.size() > ancestor.size() && path.compare(0, ancestor.size(), ancestor) == 0 &&
            path[ancestor.size()] == '/');
}

struct Ownership {
    uid_t uid = static_cast<uid_t>(-1);
    gid_t gid = static_cast<gid_t>(-1);
    bool any = false;
};

int ResolveOwnership(const MigrateRequest &request, Ownership &owner, Verdict &verdict) {
    if (!request.uid.empty()) {
        if (ResolveUser(request.uid, owner.uid) != 0) {
            verdict.refused = true;
            verdict.note = "unknown user \"" + request.uid + "\"";
            return EINVAL;
        }
        owner.any = true;
    }
    if (!request.gid.empty()) {
        if (ResolveGroup(request.gid, owner.gid) != 0) {
            verdict.refused = true;
            verdict.note = "unknown group \"" + request.gid + "\"";
            return EINVAL;
        }
        owner.any = true;
    }
    return 0;
}

int ResolveMode(const std::string &perm, mode_t &mode, Verdict &verdict) {
    int err = ParseMode(perm, mode);
    verdict.refused = err != 0;
    if (err == EINVAL) {
        verdict.note = "mode \"" + perm + "\" is not one to four octal digits";
    } else if (err == EPERM) {
        verdict.note = "mode \"" + perm + "\" asks for set-id or sticky bits";
    }
    return err;
}
}  // namespace

MigrateReply RequestHandler::Handle(const MigrateRequest &request, Verdict &verdict) const {
    switch (static_cast<MigrateOp>(request.type)) {
        case MigrateOp::IS_FILE_EXIST:
            return IsFileExist(request, verdict);
        case MigrateOp::IS_DIR:
            return IsDir(request, verdict);
        case MigrateOp::GET_PATH_LIST:
            return GetPathList(request, verdict);
        case MigrateOp::PREPARE_DIR:
            return PrepareDir(request, verdict);
        case MigrateOp::MOVE_SUB_FILE:
        case MigrateOp::MOVE_ALL_FILE:
        case MigrateOp::COPY_SUB_FILE:
        case MigrateOp::COPY_ALL_FILE:
            return Transfer(request, verdict);
        case MigrateOp::REMOVE_FILE:
            return Remove(request, false, verdict);
        case MigrateOp::RESTORE_CON:
        case MigrateOp::RESTORECON_FROM_PARENT:
            return RestoreContext(request, verdict);
        case MigrateOp::TRY_REMOVE:
            return Remove(request, true, verdict);
        case MigrateOp::MK_DIR:
            return MkDir(request, verdict);
        case MigrateOp::CHOWN:
            return Chown(request, verdict);
        case MigrateOp::CHMOD:
            return Chmod(request, verdict);
        case MigrateOp::GET_EXIST_DIRECTORY:
            return GetExistDirectory(request, verdict);
        case MigrateOp::GET_PATH_SIZE:
            return GetPathSize(request, verdict);
    }
    return Refuse(EOPNOTSUPP, verdict, "unknown operation " + std::to_string(request.type));
}

MigrateReply RequestHandler::IsFileExist(const MigrateRequest &request, Verdict &verdict) const {
    UniqueFd target;
    int err = guard_.OpenTarget(request.src, false, target, verdict.note);
    return err == 0 ? Success() : GuardFailure(err, verdict);
}

MigrateReply RequestHandler::IsDir(const MigrateRequest &request, Verdict &verdict) const {
    UniqueFd target;
    int err = guard_.OpenTarget(request.src, true, target, verdict.note);
    return err == 0 ? Success() : GuardFailure(err, verdict);
}

MigrateReply RequestHandler::GetPathList(const MigrateRequest &request, Verdict &verdict) const {
    GuardedPath target;
    int err = guard_.Resolve(request.src, target, verdict.note);
    if (err != 0) {
        return GuardFailure(err, verdict);
    }
    std::vector<std::string> entries;
    err = FileOps::ListTree(target.dir.Get(), target.name, target.path, entries);
    if (err != 0) {
        return FailOp(err, verdict, "cannot list " + target.path);
    }
    for (const std::string &entry : entries) {
        // The list format has no escape: a name with a comma cannot be told apart from two entries.
        if (entry.find(',') != std::string::npos) {
            return Failure(EILSEQ, verdict, "a name below " + target.path + " holds a comma");
        }
    }
    MigrateReply reply = Success();
    if (!PackPathList(entries, reply.packageTexts)) {
        return Failure(ENAMETOOLONG, verdict, "a path below " + target.path + " does not fit a package");
    }
    return reply;
}

MigrateReply RequestHandler::PrepareDir(const MigrateRequest &request, Verdict &verdict) const {
    if (!ValidRecurseOpt(request.recurseOpt)) {
        return RefuseRecurseOpt(request.recurseOpt, verdict);
    }
    Ownership owner;
    mode_t mode = FileOps::NEW_DIR_MODE;
    bool setMode = !request.perm.empty();
    int err = ResolveOwnership(request, owner, verdict);
    if (err == 0 && setMode) {
        err = ResolveMode(request.perm, mode, verdict);
    }
    if (err != 0) {
        return GuardFailure(err, verdict);
    }
    bool recurse = request.recurseOpt == RECURSE_ALL;
    GuardedPath target;
    err = recurse ? guard_.ResolveMakingParents(request.src, PARENT_DIR_MODE, target, verdict.note)
                  : guard_.Resolve(request.src, target, verdict.note);
    if (err != 0) {
        return GuardFailure(err, verdict);
    }
    if (target.isRoot) {
        return RefuseRootChange(verdict);
    }
    err = FileOps::MakeDir(target.dir.Get(), target.name, mode);
    if (err != 0) {
        return FailOp(err, verdict, "cannot make " + target.path);
    }
    std::string refusal;
    if (owner.any) {
        err = FileOps::ChownTree(target.dir.Get(), target.name, target.path, owner.uid, owner.gid, recurse,
                                 refusal);
        if (err != 0) {
            return TreeFailure(err, refusal, verdict, "cannot change owner of " + target.path);
        }
    }
    if (setMode) {
        err = FileOps::ChmodTree(target.dir.Get(), target.name, target.path, mode, recurse, refusal);
        if (err != 0) {
            return TreeFailure(err, refusal, verdict, "cannot change mode of " + target.path);
        }
    }
    return Success();
}

MigrateReply RequestHandler::Transfer(const MigrateRequest &request, Verdict &verdict) const {
    auto op = static_cast<MigrateOp>(request.type);
    bool isMove = op == MigrateOp::MOVE_SUB_FILE || op == MigrateOp::MOVE_ALL_FILE;
    bool subEntries = op == MigrateOp::MOVE_SUB_FILE || op == MigrateOp::COPY_SUB_FILE;
    if (request.dst.empty()) {
        return Refuse(EINVAL, verdict, "destination is empty");
    }
    GuardedPath src;
    GuardedPath dst;
    int err = guard_.Resolve(request.src, src, verdict.note);
    if (err == 0) {
        err = guard_.Resolve(request.dst, dst, verdict.note);
    }
    if (err != 0) {
        return GuardFailure(err, verdict);
    }
    if (IsSameOrBelow(dst.path, src.path)) {
        return Refuse(EINVAL, verdict, "destination lies inside the source");
    }
    if ((isMove && src.isRoot) || (!subEntries && dst.isRoot)) {
        return Refuse(EACCES, verdict, "an allowed root itself cannot be moved or replaced");
    }
    struct stat srcStat {};
    err = FileOps::Lstat(src.dir.Get(), src.name, srcStat);
    if (err != 0) {
        return FailOp(err, verdict, "cannot reach " + src.path);
    }
    std::string refusal;
    if (!subEntries) {
        err = isMove ? FileOps::Move(src.dir.Get(), src.name, src.path, dst.dir.Get(), dst.name, refusal)
                     : FileOps::CopyTree(src.dir.Get(), src.name, src.path, dst.dir.Get(), dst.name, refusal);
        return err == 0
                   ? Success()
                   : TreeFailure(err, refusal, verdict, "cannot transfer " + src.path + " to " + dst.path);
    }
    if (!S_ISDIR(srcStat.st_mode)) {
        return Failure(ENOTDIR, verdict, src.path + " is not a directory");
    }
    err = FileOps::MakeDir(dst.dir.Get(), dst.name, FileOps::NEW_DIR_MODE);
    if (err != 0) {
        return FailOp(err, verdict, "cannot make " + dst.path);
    }
    std::vector<std::string> names;
    err = FileOps::ListNames(src.dir.Get(), src.name, names);
    UniqueFd srcDir(OpenDirNoFollow(src.dir.Get(), src.name, O_PATH));
    UniqueFd dstDir(OpenDirNoFollow(dst.dir.Get(), dst.name, O_PATH));
    if (err == 0 && (!srcDir.Valid() || !dstDir.Valid())) {
        err = errno;
    }
    for (size_t i = 0; err == 0 && i < names.size(); ++i) {
        std::string path = FileOps::ChildPath(src.path, names[i]);
        err = isMove ? FileOps::Move(srcDir.Get(), names[i], path, dstDir.Get(), names[i], refusal)
                     : FileOps::CopyTree(srcDir.Get(), names[i], path, dstDir.Get(), names[i], refusal);
    }
    return err == 0 ? Success()
                    : TreeFailure(err, refusal, verdict, "cannot transfer the entries of " + src.path);
}

MigrateReply RequestHandler::Remove(const MigrateRequest &request, bool missingIsSuccess,
                                    Verdict &verdict) const {
    GuardedPath target;
    int err = guard_.Resolve(request.src, target, verdict.note);
    if (err == ENOENT && missingIsSuccess) {
        return Success();
    }
    if (err != 0) {
        return GuardFailure(err, verdict);
    }
    if (target.isRoot) {
        return Refuse(EACCES, verdict, "an allowed root itself cannot be removed");
    }
    err = FileOps::RemoveTree(target.dir.Get(), target.name);
    if (err == ENOENT && missingIsSuccess) {
        return Success();
    }
    return err == 0 ? Success() : FailOp(err, verdict, "cannot remove " + target.path);
}

MigrateReply RequestHandler::RestoreContext(const MigrateRequest &request, Verdict &verdict) const {
    if (static_cast<MigrateOp>(request.type) == MigrateOp::RESTORE_CON &&
        !ValidRecurseOpt(request.recurseOpt)) {
        return RefuseRecurseOpt(request.recurseOpt, verdict);
    }
    // The host keeps no security contexts: a path that exists inside the roots needs nothing done.
    GuardedPath target;
    int err = guard_.Resolve(request.src, target, verdict.note);
    struct stat st {};
    if (err == 0) {
        err = FileOps::Lstat(target.dir.Get(), target.name, st);
    }
    return err == 0 ? Success() : GuardFailure(err, verdict);
}

MigrateReply RequestHandler::MkDir(const MigrateRequest &request, Verdict &verdict) const {
    if (!ValidRecurseOpt(request.recurseOpt)) {
        return RefuseRecurseOpt(request.recurseOpt, verdict);
    }
    GuardedPath target;
    int err = request.recurseOpt == RECURSE_ALL
                  ? guard_.ResolveMakingParents(request.src, PARENT_DIR_MODE, target, verdict.note)
                  : guard_.Resolve(request.src, target, verdict.note);
    if (err != 0) {
        return GuardFailure(err, verdict);
    }
    err = FileOps::MakeDir(target.dir.Get(), target.name, FileOps::NEW_DIR_MODE);
    return err == 0 ? Success() : FailOp(err, verdict, "cannot make " + target.path);
}

MigrateReply RequestHandler::Chown(const MigrateRequest &request, Verdict &verdict) const {
    if (request.uid.empty() && request.gid.empty()) {
        return Refuse(EINVAL, verdict, "neither user nor group given");
    }
    if (!ValidRecurseOpt(request.recurseOpt)) {
        return RefuseRecurseOpt(request.recurseOpt, verdict);
    }
    Ownership owner;
    int err = ResolveOwnership(request, owner, verdict);
    GuardedPath target;
    if (err == 0) {
        err = guard_.Resolve(request.src, target, verdict.note);
    }
    if (err != 0) {
        return GuardFailure(err, verdict);
    }
    if (target.isRoot) {
        return RefuseRootChange(verdict);
    }
    std::string refusal;
    err = FileOps::ChownTree(target.dir.Get(), target.name, target.path, owner.uid, owner.gid,
                             request.recurseOpt == RECURSE_ALL, refusal);
    return err == 0 ? Success() : TreeFailure(err, refusal, verdict, "cannot change owner of " + target.path);
}

MigrateReply RequestHandler::Chmod(const MigrateRequest &request, Verdict &verdict) const {
    if (!ValidRecurseOpt(request.recurseOpt)) {
        return RefuseRecurseOpt(request.recurseOpt, verdict);
    }
    mode_t mode = 0;
    int err = ResolveMode(request.perm, mode, verdict);
    GuardedPath target;
    if (err == 0) {
        err = guard_.Resolve(request.src, target, verdict.note);
    }
    if (err != 0) {
        return GuardFailure(err, verdict);
    }
    if (target.isRoot) {
        return RefuseRootChange(verdict);
    }
    std::string refusal;
    err = FileOps::ChmodTree(target.dir.Get(), target.name, target.path, mode,
                             request.recurseOpt == RECURSE_ALL, refusal);
    return err == 0 ? Success() : TreeFailure(err, refusal, verdict, "cannot change mode of " + target.path);
}

MigrateReply RequestHandler::GetExistDirectory(const MigrateRequest &request, Verdict &verdict) const {
    // The deepest directory of the path that exists: the path itself, or its nearest existing
    // ancestor, never above the allowed root that holds it.
    GuardedPath target;
    int err = guard_.Resolve(request.src, target, verdict.note);
    if (err != 0 && err != ENOENT && err != ENOTDIR) {
        return GuardFailure(err, verdict);
    }
    std::vector<std::string> components;
    PathGuard::Normalise(request.src, components);
    for (size_t count = components.size();; --count) {
        if (count < components.size()) {
            // The whole path was resolved above.
            verdict.note.clear();
            err = guard_.Resolve(PathGuard::Join(components, count), target, verdict.note);
        }
        struct stat st {};
        if (err == 0) {
            err = FileOps::Lstat(target.dir.Get(), target.name, st);
        }
        if (err == 0 && S_ISDIR(st.st_mode)) {
            MigrateReply reply = Success();
            reply.packageTexts.push_back(target.path);
            return reply;
        }
        if (err == 0) {
            err = ENOTDIR;
        }
        if ((err != ENOENT && err != ENOTDIR) || count == 0) {
            return GuardFailure(err, verdict);
        }
    }
}

MigrateReply RequestHandler::GetPathSize(const MigrateRequest &request, Verdict &verdict) const {
    GuardedPath target;
    int err = guard_.Resolve(request.src, target, verdict.note);
    int64_t size = 0;
    if (err == 0) {
        err = FileOps::TreeSize(target.dir.Get(), target.name, size);
    }
    if (err != 0) {
        return GuardFailure(err, verdict);
    }
    if (size > INT32_MAX) {
        return Failure(EOVERFLOW, verdict, target.path + " holds more bytes than the result can carry");
    }
    return Success(static_cast<int32_t>(size));
}

}  // namespace Zarvo::Host
