#ifndef MIGRATE_SERVICE_PATH_GUARD_H
#define MIGRATE_SERVICE_PATH_GUARD_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/unique_fd.h"

namespace Zarvo::Host {

// A path that has passed the guard: `dir` is an open handle on the directory that holds the
// final component `name`, reached from an allowed root without following any symbolic link.
// For an allowed root itself, `dir` is the root and `name` is ".".
struct GuardedPath {
    std::string path;  // normalised text: absolute, no empty, "." or ".." components
    UniqueFd dir;
    std::string name;
    bool isRoot = false;
};

// How a path below a root is opened. SINGLE_CALL: one openat2 from the root's descriptor that
// refuses any link and any step out of the root; a failure is looked at again by the walk, which
// says where and why. WALK: one directory at a time, each opened without following a link.
enum class PathLookup { SINGLE_CALL, WALK };

// Confines every path to a fixed set of directory trees. Paths are checked by text first (absolute,
// no ".." component, below a root) and then opened without following any symbolic link, so a
// link anywhere before the final component, or a directory swapped for one, cannot lead
// elsewhere. The final component is never followed by the guard; operations decide what to do
// with a final link. Roots must be given without links in them (see CanonicalRoots); each is
// opened once, when the guard is made, and lookups start from that descriptor.
class PathGuard {
public:
    explicit PathGuard(std::vector<std::string> roots, PathLookup lookup = ProcessLookup());

    // The lookup this process uses, chosen at its first call: WALK when the environment sets
    // ZARVO_MIGRATE_PATH_WALK=1 or when openat2 is missing or refused (one line on stderr then),
    // SINGLE_CALL otherwise.
    static PathLookup ProcessLookup();
    PathLookup Lookup() const { return lookup_; }

    // Normalised roots; false from Valid() when one of them is not an absolute path without "..".
    const std::vector<std::string> &Roots() const { return roots_; }
    bool Valid() const { return valid_; }

    // 0 and `out` filled, or an errno value with `reason` saying why the path was refused.
    int Resolve(const std::string &path, GuardedPath &out, std::string &reason) const;
    // As Resolve, but makes missing directories on the way with mode `parentMode`.
    int ResolveMakingParents(const std::string &path, mode_t parentMode, GuardedPath &out,
                             std::string &reason) const;

    // The roots with every link in them resolved; roots that do not exist are kept as given.
    static std::vector<std::string> CanonicalRoots(const std::vector<std::string> &roots);
    // Opens the path's final component itself (a link as a link) as an O_PATH handle, refused
    // like Resolve; with `directory`, anything but a directory fails with ENOTDIR.
    int OpenTarget(const std::string &path, bool directory, UniqueFd &fd, std::string &reason) const;

    // Splits an absolute path into components; false for a relative path or a ".." component.
    static bool Normalise(const std::string &path, std::vector<std::string> &components);
    static std::string Join(const std::vector<std::string> &components, size_t count);

private:
    // 0 with the normalised text of `path` and the index of the deepest root that holds it, or an
    // errno value with `reason` set.
    int CheckText(const std::string &path, std::string &normalised, size_t &rootIndex,
                  std::string &reason) const;
    int ResolveImpl(const std::string &path, bool makeParents, mode_t parentMode, GuardedPath &out,
                    std::string &reason) const;
    // A new descriptor on the root, or -1 with errno set.
    int OpenRoot(size_t rootIndex) const;

    std::vector<std::string> roots_;
    std::vector<std::vector<std::string>> rootComponents_;
    // Opened when the guard is made; a root missing then is opened by its path at each lookup.
    std::vector<UniqueFd> rootFds_;
    PathLookup lookup_;
    bool valid_ = true;
};

// Opens `name` below `dirFd` as a directory without following a link; sets errno to ELOOP when
// the name is a symbolic link.
int OpenDirNoFollow(int dirFd, const std::string &name, int flags);

}  // namespace Zarvo::Host

#endif  // MIGRATE_SERVICE_PATH_GUARD_H
