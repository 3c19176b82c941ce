#include "path_guard.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

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
// Opens a path in one step, failing rather than following any symbolic link on the way (with
// O_NOFOLLOW a final link is opened as itself). -1 with errno ENOSYS where the kernel lacks the call.
int OpenWithoutLinks(const std::string &path, int flags) {
#ifdef SYS_openat2
    struct open_how how {};
    how.flags = static_cast<uint64_t>(flags);
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    return static_cast<int>(syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof(how)));
#else
    (void)flags;
    errno = ENOSYS;
    return -1;
#endif
}
}  // namespace

PathGuard::PathGuard(std::vector<std::string> roots) {
    for (const std::string &root : roots) {
        std::vector<std::string> components;
        if (!Normalise(root, components)) {
            valid_ = false;
            continue;
        }
        roots_.push_back(Join(components, components.size()));
        rootComponents_.push_back(std::move(components));
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

int PathGuard::OpenTarget(const std::string &path, bool directory, UniqueFd &fd, std::string &reason) const {
    std::vector<std::string> components;
    size_t rootIndex = 0;
    int err = CheckText(path, components, rootIndex, reason);
    if (err != 0) {
        return err;
    }
    int flags = O_PATH | O_NOFOLLOW | O_CLOEXEC | (directory ? O_DIRECTORY : 0);
    fd.Reset(OpenWithoutLinks(Join(components, components.size()), flags));
    if (fd.Valid()) {
        return 0;
    }
    err = errno;
    if (err == ENOENT || err == ENOTDIR) {
        return err;
    }
    // A link on the way, or no single-call open: the walk decides, and says why.
    GuardedPath target;
    err = Resolve(path, target, reason);
    if (err != 0) {
        return err;
    }
    fd.Reset(openat(target.dir.Get(), target.name.c_str(), flags));
    return fd.Valid() ? 0 : errno;
}

int PathGuard::ResolveImpl(const std::string &path, bool makeParents, mode_t parentMode, GuardedPath &out,
                           std::string &reason) const {
    std::vector<std::string> components;
    size_t rootIndex = 0;
    int checked = CheckText(path, components, rootIndex, reason);
    if (checked != 0) {
        return checked;
    }
    const std::vector<std::string> *root = &rootComponents_[rootIndex];
    out.path = Join(components, components.size());
    if (!makeParents && components.size() > root->size()) {
        // The whole path below the root is text-checked, so a resolution that meets no link at
        // all stays inside the root. Any failure takes the walk below, which says where it failed.
        UniqueFd parent(
            OpenWithoutLinks(Join(components, components.size() - 1), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (parent.Valid()) {
            out.dir = std::move(parent);
            out.name = components.back();
            out.isRoot = false;
            return 0;
        }
    }
    UniqueFd dir(open(roots_[rootIndex].c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!dir.Valid()) {
        int err = errno;
        reason = "allowed root cannot be opened";
        return err;
    }
    if (components.size() == root->size()) {
        out.dir = std::move(dir);
        out.name = ".";
        out.isRoot = true;
        return 0;
    }
    for (size_t i = root->size(); i + 1 < components.size(); ++i) {
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
