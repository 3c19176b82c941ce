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

// The components from `first` on, relative to the directory they lie in ("." for none).
std::string RelativePath(const std::vector<std::string> &components, size_t first, size_t end) {
    if (first >= end) {
        return ".";
    }
    std::string relative = components[first];
    for (size_t i = first + 1; i < end; ++i) {
        relative += '/';
        relative += components[i];
    }
    return relative;
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

int PathGuard::CheckText(const std::string &path, std::vector<std::string> &components, size_t &rootIndex,
                         std::string &reason) const {
    if (path.empty() || path[0] != '/') {
        reason = "path is not absolute";
        return EINVAL;
    }
    if (!Normalise(path, components)) {
        reason = "path has a \"..\" component";
        return EACCES;
    }
    const std::vector<std::string> *root = nullptr;
    for (size_t i = 0; i < rootComponents_.size(); ++i) {
        const std::vector<std::string> &candidate = rootComponents_[i];
        if (candidate.size() > components.size() || (root != nullptr && candidate.size() <= root->size())) {
            continue;
        }
        bool prefix = true;
        for (size_t c = 0; c < candidate.size() && prefix; ++c) {
            prefix = candidate[c] == components[c];
        }
        if (prefix) {
            root = &candidate;
            rootIndex = i;
        }
    }
    if (root == nullptr) {
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
    std::vector<std::string> components;
    size_t rootIndex = 0;
    int err = CheckText(path, components, rootIndex, reason);
    if (err != 0) {
        return err;
    }
    int flags = O_PATH | O_NOFOLLOW | O_CLOEXEC | (directory ? O_DIRECTORY : 0);
    const UniqueFd &root = rootFds_[rootIndex];
    if (lookup_ == PathLookup::SINGLE_CALL && root.Valid()) {
        std::string relative = RelativePath(components, rootComponents_[rootIndex].size(), components.size());
        fd.Reset(OpenBeneath(root.Get(), relative.c_str(), flags));
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
    std::vector<std::string> components;
    size_t rootIndex = 0;
    int checked = CheckText(path, components, rootIndex, reason);
    if (checked != 0) {
        return checked;
    }
    const size_t rootDepth = rootComponents_[rootIndex].size();
    out.path = Join(components, components.size());
    const UniqueFd &root = rootFds_[rootIndex];
    if (lookup_ == PathLookup::SINGLE_CALL && !makeParents && root.Valid() && components.size() > rootDepth) {
        // Any failure takes the walk below, which says where it failed.
        std::string parent = RelativePath(components, rootDepth, components.size() - 1);
        UniqueFd dir(OpenBeneath(root.Get(), parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (dir.Valid()) {
            out.dir = std::move(dir);
            out.name = components.back();
            out.isRoot = false;
            return 0;
        }
    }
    UniqueFd dir(OpenRoot(rootIndex));
    if (!dir.Valid()) {
        int err = errno;
        reason = "allowed root cannot be opened";
        return err;
    }
    if (components.size() == rootDepth) {
        out.dir = std::move(dir);
        out.name = ".";
        out.isRoot = true;
        return 0;
    }
    for (size_t i = rootDepth; i + 1 < components.size(); ++i) {
        const std::string &part = components[i];
        UniqueFd next(OpenDirNoFollow(dir.Get(), part, O_PATH));
        if (!next.Valid() && errno == ENOENT && makeParents) {
            if (mkdirat(dir.Get(), part.c_str(), parentMode) != 0 && errno != EEXIST) {
                int err = errno;
                reason = "cannot make directory " + Join(components, i + 1);
                return err;
            }
            next.Reset(OpenDirNoFollow(dir.Get(), part, O_PATH));
        }
        if (!next.Valid()) {
            int err = errno;
            reason = err == ELOOP ? "symbolic link in path at " + Join(components, i + 1)
                                  : "cannot open directory " + Join(components, i + 1);
            return err;
        }
        dir = std::move(next);
    }
    out.dir = std::move(dir);
    out.name = components.back();
    out.isRoot = false;
    return 0;
}

}  // namespace Zarvo::Host
