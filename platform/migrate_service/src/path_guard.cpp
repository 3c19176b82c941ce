#include "path_guard.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Zarvo::Host {

int OpenDirNoFollow(int dirFd, const std::string &name, int flags) {
    int fd = openat(dirFd, name.c_str(), flags | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0 && (errno == ENOTDIR || errno == ELOOP)) {
        struct stat st {};
        if (fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISLNK(st.st_mode)) {
            errno = ELOOP;
        } else {
            errno = ENOTDIR;
        }
    }
    return fd;
}

namespace {
constexpr uint64_t CONFINED_RESOLUTION = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;

// Opens `relative` below `dirFd` in one step, failing rather than following any symbolic link or
// leaving the directory (with O_NOFOLLOW a final link is opened as itself). -1 with errno ENOSYS
// where the kernel lacks the call.
int OpenBeneath(int dirFd, const char *relative, int flags) {
#ifdef SYS_openat2
    struct open_how how {};
    how.flags = static_cast<uint64_t>(flags);
    how.resolve = CONFINED_RESOLUTION;
    return static_cast<int>(syscall(SYS_openat2, dirFd, relative, &how, sizeof(how)));
#else
    (void)dirFd;
    (void)relative;
    (void)flags;
    errno = ENOSYS;
    return -1;
#endif
}

// Where the text below the root starts in a normalised path that lies below it.
size_t BelowRootOffset(const std::string &root) {
    return root == "/" ? 1 : root.size() + 1;
}

PathLookup ChooseLookup() {
    const char *forced = std::getenv("ZARVO_MIGRATE_PATH_WALK");
    if (forced != nullptr && std::string(forced) == "1") {
        return PathLookup::WALK;  // asked for, so not worth a line
    }
    UniqueFd top(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    UniqueFd probe(OpenBeneath(top.Get(), ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (probe.Valid()) {
        return PathLookup::SINGLE_CALL;
    }
    // Missing (ENOSYS), refused by a seccomp filter (EPERM), or any other refusal of the call.
    std::fprintf(stderr, "migrate_service: openat2 cannot be used (%s); path lookups walk each directory\n",
                 std::strerror(errno));
    return PathLookup::WALK;
}
}  // namespace

PathLookup PathGuard::ProcessLookup() {
    static const PathLookup chosen = ChooseLookup();
    return chosen;
}

PathGuard::PathGuard(std::vector<std::string> roots, PathLookup lookup) : lookup_(lookup) {
    for (const std::string &root : roots) {
        std::vector<std::string> components;
        if (!Normalise(root, components)) {
            valid_ = false;
            continue;
        }
        roots_.push_back(Join(components, components.size()));
        rootComponents_.push_back(std::move(components));
        rootFds_.emplace_back(open(roots_.back().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    if (roots_.empty()) {
        valid_ = false;
    }
}

std::vector<std::string> PathGuard::CanonicalRoots(const std::vector<std::string> &roots) {
    std::vector<std::string> canonical;
    for (const std::string &root : roots) {
        char *resolved = realpath(root.c_str(), nullptr);
        canonical.push_back(resolved != nullptr ? resolved : root);
        free(resolved);
    }
    return canonical;
}

bool PathGuard::Normalise(const std::string &path, std::vector<std::string> &components) {
    components.clear();
    if (path.empty() || path[0] != '/') {
        return false;
    }
    size_t pos = 0;
    while (pos < path.size()) {
        size_t next = path.find('/', pos);
        if (next == std::string::npos) {
            next = path.size();
        }
        std::string part = path.substr(pos, next - pos);
        if (part == "..") {
            return false;
        }
        if (!part.empty() && part != ".") {
            components.push_back(std::move(part));
        }
        pos = next + 1;
    }
    return true;
}

std::string PathGuard::Join(const std::vector<std::string> &components, size_t count) {
    if (count == 0) {
        return "/";
    }
    std::string joined;
    for (size_t i = 0; i < count; ++i) {
        joined += '/';
        joined += components[i];
    }
    return joined;
}

int PathGuard::Resolve(const std::string &path, GuardedPath &out, std::string &reason) const {
    return ResolveImpl(path, false, 0, out, reason);
}

int PathGuard::ResolveMakingParents(const std::string &path, mode_t parentMode, GuardedPath &out,
                                    std::string &reason) const {
    return ResolveImpl(path, true, parentMode, out, reason);
}

int PathGuard::CheckText(const std::string &path, std::string &normalised, size_t &rootIndex,
                         std::string &reason) const {
    if (path.empty() || path[0] != '/') {
        reason = "path is not absolute";
        return EINVAL;
    }
    // Normalise without splitting into separate strings: every request passes here.
    normalised.clear();
    normalised.reserve(path.size());
    size_t pos = 0;
    while (pos < path.size()) {
        size_t next = path.find('/', pos);
        if (next == std::string::npos) {
            next = path.size();
        }
        const size_t length = next - pos;
        if (length == 2 && path[pos] == '.' && path[pos + 1] == '.') {
            reason = "path has a \"..\" component";
            return EACCES;
        }
        if (length != 0 && !(length == 1 && path[pos] == '.')) {
            normalised += '/';
            normalised.append(path, pos, length);
        }
        pos = next + 1;
    }
    if (normalised.empty()) {
        normalised = "/";
    }
    // The deepest root whose components begin the path's.
    bool found = false;
    for (size_t i = 0; i < roots_.size(); ++i) {
        const std::string &candidate = roots_[i];
        bool prefix = candidate == "/" ||
                      (normalised.compare(0, candidate.size(), candidate) == 0 &&
                       (normalised.size() == candidate.size() || normalised[candidate.size()] == '/'));
        if (prefix && (!found || candidate.size() > roots_[rootIndex].size())) {
            rootIndex = i;
            found = true;
        }
    }
    if (!found) {
        reason = "path is outside the allowed roots";
        return EACCES;
    }
    return 0;
}

int PathGuard::OpenRoot(size_t rootIndex) const {
    const UniqueFd &held = rootFds_[rootIndex];
    return held.Valid() ? fcntl(held.Get(), F_DUPFD_CLOEXEC, 0)
                        : open(roots_[rootIndex].c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

int PathGuard::OpenTarget(const std::string &path, bool directory, UniqueFd &fd, std::string &reason) const {
    std::string normalised;
    size_t rootIndex = 0;
    int err = CheckText(path, normalised, rootIndex, reason);
    if (err != 0) {
        return err;
    }
    int flags = O_PATH | O_NOFOLLOW | O_CLOEXEC | (directory ? O_DIRECTORY : 0);
    const UniqueFd &root = rootFds_[rootIndex];
    if (lookup_ == PathLookup::SINGLE_CALL && root.Valid()) {
        const std::string &rootText = roots_[rootIndex];
        const char *relative =
            normalised.size() > rootText.size() ? normalised.c_str() + BelowRootOffset(rootText) : ".";
        fd.Reset(OpenBeneath(root.Get(), relative, flags));
        if (fd.Valid()) {
            return 0;
        }
        err = errno;
        if (err == ENOENT || err == ENOTDIR) {
            return err;
        }
    }
    // A link on the way, or no single-call open: the walk decides, and says why.
    GuardedPath target;
    err = ResolveImpl(path, false, 0, target, reason);
    if (err == 0) {
        fd.Reset(openat(target.dir.Get(), target.name.c_str(), flags));
        err = fd.Valid() ? 0 : errno;
    }
    if (err == ENOENT || err == ENOTDIR) {
        // A missing or non-directory step is the answer itself, whichever lookup found it.
        reason.clear();
    }
    return err;
}

int PathGuard::ResolveImpl(const std::string &path, bool makeParents, mode_t parentMode, GuardedPath &out,
                           std::string &reason) const {
    std::string normalised;
    size_t rootIndex = 0;
    int checked = CheckText(path, normalised, rootIndex, reason);
    if (checked != 0) {
        return checked;
    }
    const std::string &rootText = roots_[rootIndex];
    const UniqueFd &root = rootFds_[rootIndex];
    const bool belowRoot = normalised.size() > rootText.size();
    if (lookup_ == PathLookup::SINGLE_CALL && !makeParents && root.Valid() && belowRoot) {
        // Any failure takes the walk below, which says where it failed.
        const size_t below = BelowRootOffset(rootText);
        const size_t lastSlash = normalised.rfind('/');
        std::string parent = lastSlash >= below ? normalised.substr(below, lastSlash - below) : ".";
        UniqueFd dir(OpenBeneath(root.Get(), parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (dir.Valid()) {
            out.dir = std::move(dir);
            out.name = normalised.substr(lastSlash + 1);
            out.isRoot = false;
            out.path = std::move(normalised);
            return 0;
        }
    }
    out.path = normalised;
    if (!belowRoot) {
        UniqueFd dir(OpenRoot(rootIndex));
        if (!dir.Valid()) {
            int err = errno;
            reason = "allowed root cannot be opened";
            return err;
        }
        out.dir = std::move(dir);
        out.name = ".";
        out.isRoot = true;
        return 0;
    }
    std::vector<std::string> components;
    Normalise(normalised, components);
    const size_t rootDepth = rootComponents_[rootIndex].size();
    // The walk starts at the held root without a copy of its descriptor; one is made only when the
    // final component lies directly in the root.
    UniqueFd dir;
    const auto copyRoot = [&]() {
        dir.Reset(OpenRoot(rootIndex));
        if (dir.Valid()) {
            return 0;
        }
        const int err = errno;
        reason = "allowed root cannot be opened";
        return err;
    };
    int at = root.Get();
    if (!root.Valid()) {
        if (const int err = copyRoot(); err != 0) {
            return err;
        }
        at = dir.Get();
    }
    for (size_t i = rootDepth; i + 1 < components.size(); ++i) {
        const std::string &part = components[i];
        UniqueFd next(OpenDirNoFollow(at, part, O_PATH));
        if (!next.Valid() && errno == ENOENT && makeParents) {
            if (mkdirat(at, part.c_str(), parentMode) != 0 && errno != EEXIST) {
                int err = errno;
                reason = "cannot make directory " + Join(components, i + 1);
                return err;
            }
            next.Reset(OpenDirNoFollow(at, part, O_PATH));
        }
        if (!next.Valid()) {
            int err = errno;
            reason = err == ELOOP ? "symbolic link in path at " + Join(components, i + 1)
                                  : "cannot open directory " + Join(components, i + 1);
            return err;
        }
        dir = std::move(next);
        at = dir.Get();
    }
    if (!dir.Valid()) {
        if (const int err = copyRoot(); err != 0) {
            return err;
        }
    }
    out.dir = std::move(dir);
    out.name = components.back();
    out.isRoot = false;
    return 0;
}

}  // namespace Zarvo::Host
