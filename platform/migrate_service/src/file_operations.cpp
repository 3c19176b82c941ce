#include "file_operations.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>

#include "path_guard.h"
#include "support/fd_io.h"
#include "support/unique_fd.h"

namespace Zarvo::Host::FileOps {

std::string ChildPath(const std::string &path, const std::string &child) {
    return path == "/" ? "/" + child : path + "/" + child;
}

namespace {
// Deeper trees are refused rather than risking the stack of a connection thread.
constexpr int MAX_DEPTH = 128;
constexpr size_t COPY_CHUNK = 64 * 1024;

std::atomic<uint64_t> g_tempCounter{0};

std::string TempName() {
    return ".migrate-tmp-" + std::to_string(getpid()) + "-" + std::to_string(g_tempCounter.fetch_add(1));
}

// A file other than a directory with another name may be that name's file outside the roots.
int RefuseShared(const struct stat &st, const std::string &path, std::string &refusal) {
    if (S_ISDIR(st.st_mode) || st.st_nlink <= 1) {
        return 0;
    }
    refusal = path + " has " + std::to_string(st.st_nlink) +
              " hard links; a file with another name is not changed or copied";
    return EMLINK;
}

// Opens the entry itself, never through a link, so that what is checked is what is changed.
// Files and directories are opened for reading (without waiting on a pipe or taking a terminal);
// links and sockets, which cannot be, as O_PATH handles.
int OpenEntry(int dirFd, const std::string &name, UniqueFd &fd, struct stat &st) {
    fd.Reset(openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd.Valid() && errno != ENOENT && errno != ENOTDIR) {
        fd.Reset(openat(dirFd, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    }
    if (!fd.Valid()) {
        return errno;
    }
    return fstat(fd.Get(), &st) == 0 ? 0 : errno;
}

// fchmod refuses an O_PATH handle; the handle's own entry in /proc reaches the same inode.
int ChangeMode(int fd, mode_t mode) {
    if (fchmod(fd, mode) == 0) {
        return 0;
    }
    if (errno != EBADF) {
        return errno;
    }
    std::string self = "/proc/self/fd/" + std::to_string(fd);
    return chmod(self.c_str(), mode) == 0 ? 0 : errno;
}

// Calls `visit(dirFd, childName)` for each entry of the open directory.
template <typename Visit>
int ForEachChildOf(int dirFd, Visit visit) {
    std::vector<std::string> names;
    int err = ListDirectoryNames(dirFd, names);
    for (size_t i = 0; err == 0 && i < names.size(); ++i) {
        err = visit(dirFd, names[i]);
    }
    return err;
}

// Opens a directory for reading its entries, and calls `visit(fd, childName)` for each of them.
template <typename Visit>
int ForEachChild(int dirFd, const std::string &name, Visit visit) {
    UniqueFd dir(OpenDirNoFollow(dirFd, name, O_RDONLY));
    return dir.Valid() ? ForEachChildOf(dir.Get(), visit) : errno;
}

int RemoveTreeAt(int dirFd, const std::string &name, int depth) {
    struct stat st {};
    if (fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    if (!S_ISDIR(st.st_mode)) {
        return unlinkat(dirFd, name.c_str(), 0) == 0 ? 0 : errno;
    }
    if (depth >= MAX_DEPTH) {
        return ELOOP;
    }
    int err = ForEachChild(dirFd, name, [depth](int fd, const std::string &child) {
        return RemoveTreeAt(fd, child, depth + 1);
    });
    if (err != 0) {
        return err;
    }
    return unlinkat(dirFd, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
}

int CopyData(int in, int out) {
    std::vector<char> buffer(COPY_CHUNK);
    for (;;) {
        ssize_t got = read(in, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return errno;
        }
        if (got == 0) {
            return 0;
        }
        if (!WriteAll(out, buffer.data(), static_cast<size_t>(got))) {
            return errno;
        }
    }
}

// Writes the copy under a temporary name and renames it over the destination, so a link that
// already sits at the destination is replaced and never written through. The copy is owner-only
// from the moment it exists: the source's mode is not carried over.
int CopyFile(int srcDir, const std::string &srcName, const std::string &srcPath, int dstDir,
             const std::string &dstName, std::string &refusal) {
    UniqueFd in(openat(srcDir, srcName.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!in.Valid()) {
        return errno;
    }
    struct stat st {};
    if (fstat(in.Get(), &st) != 0) {
        return errno;
    }
    if (!S_ISREG(st.st_mode)) {
        return EINVAL;
    }
    int err = RefuseShared(st, srcPath, refusal);
    if (err != 0) {
        return err;
    }
    std::string temp = TempName();
    UniqueFd out(
        openat(dstDir, temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, NEW_FILE_MODE));
    if (!out.Valid()) {
        return errno;
    }
    // The umask may have narrowed the creation mode; the copy is exactly owner read and write.
    err = fchmod(out.Get(), NEW_FILE_MODE) == 0 ? CopyData(in.Get(), out.Get()) : errno;
    if (err == 0 && close(out.Release()) != 0) {
        err = errno;
    }
    if (err == 0 && renameat(dstDir, temp.c_str(), dstDir, dstName.c_str()) != 0) {
        err = errno;
    }
    if (err != 0) {
        unlinkat(dstDir, temp.c_str(), 0);
    }
    return err;
}

int CopyLink(int srcDir, const std::string &srcName, int dstDir, const std::string &dstName) {
    char target[PATH_MAX + 1];
    ssize_t length = readlinkat(srcDir, srcName.c_str(), target, PATH_MAX);
    if (length < 0) {
        return errno;
    }
    target[length] = '\0';
    std::string temp = TempName();
    if (symlinkat(target, dstDir, temp.c_str()) != 0) {
        return errno;
    }
    if (renameat(dstDir, temp.c_str(), dstDir, dstName.c_str()) != 0) {
        int err = errno;
        unlinkat(dstDir, temp.c_str(), 0);
        return err;
    }
    return 0;
}

int CopyTreeAt(int srcDir, const std::string &srcName, const std::string &srcPath, int dstDir,
               const std::string &dstName, int depth, std::string &refusal);

// The new directory stays owner-only: it is made so, and the source's mode is not carried over.
int CopyDir(int srcDir, const std::string &srcName, const std::string &srcPath, int dstDir,
            const std::string &dstName, int depth, std::string &refusal) {
    if (depth >= MAX_DEPTH) {
        return ELOOP;
    }
    int err = MakeDir(dstDir, dstName, NEW_DIR_MODE);
    if (err != 0) {
        return err;
    }
    UniqueFd dst(OpenDirNoFollow(dstDir, dstName, O_PATH));
    if (!dst.Valid()) {
        return errno;
    }
    return ForEachChild(srcDir, srcName, [&](int fd, const std::string &child) {
        return CopyTreeAt(fd, child, ChildPath(srcPath, child), dst.Get(), child, depth + 1, refusal);
    });
}

int CopyTreeAt(int srcDir, const std::string &srcName, const std::string &srcPath, int dstDir,
               const std::string &dstName, int depth, std::string &refusal) {
    struct stat st {};
    if (fstatat(srcDir, srcName.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    if (S_ISREG(st.st_mode)) {
        return CopyFile(srcDir, srcName, srcPath, dstDir, dstName, refusal);
    }
    if (S_ISDIR(st.st_mode)) {
        return CopyDir(srcDir, srcName, srcPath, dstDir, dstName, depth, refusal);
    }
    if (S_ISLNK(st.st_mode)) {
        return CopyLink(srcDir, srcName, dstDir, dstName);
    }
    return 0;
}

int ChownTreeAt(int dirFd, const std::string &name, const std::string &path, uid_t uid, gid_t gid,
                bool recurse, int depth, std::string &refusal) {
    UniqueFd fd;
    struct stat st {};
    int err = OpenEntry(dirFd, name, fd, st);
    if (err == 0) {
        err = RefuseShared(st, path, refusal);
    }
    if (err == 0 && fchownat(fd.Get(), "", uid, gid, AT_EMPTY_PATH) != 0) {
        err = errno;
    }
    if (err != 0 || !recurse || !S_ISDIR(st.st_mode)) {
        return err;
    }
    if (depth >= MAX_DEPTH) {
        return ELOOP;
    }
    return ForEachChildOf(fd.Get(), [&](int dir, const std::string &child) {
        return ChownTreeAt(dir, child, ChildPath(path, child), uid, gid, true, depth + 1, refusal);
    });
}

int ChmodTreeAt(int dirFd, const std::string &name, const std::string &path, mode_t mode, bool recurse,
                int depth, std::string &refusal) {
    UniqueFd fd;
    struct stat st {};
    int err = OpenEntry(dirFd, name, fd, st);
    if (err != 0) {
        return err;
    }
    if (S_ISLNK(st.st_mode)) {
        return depth == 0 ? EOPNOTSUPP : 0;
    }
    err = RefuseShared(st, path, refusal);
    if (err == 0) {
        err = ChangeMode(fd.Get(), mode);
    }
    if (err != 0 || !recurse || !S_ISDIR(st.st_mode)) {
        return err;
    }
    if (depth >= MAX_DEPTH) {
        return ELOOP;
    }
    return ForEachChildOf(fd.Get(), [&](int dir, const std::string &child) {
        return ChmodTreeAt(dir, child, ChildPath(path, child), mode, true, depth + 1, refusal);
    });
}

// Makes a regular file with one name owner-only before a rename shows it at its destination;
// `restore` then holds its descriptor and mode. Anything else is left as it is.
int NarrowBeforeMove(int dirFd, const std::string &name, UniqueFd &restore, mode_t &mode) {
    struct stat st {};
    if (fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode)) {
        return 0;
    }
    UniqueFd fd(openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!fd.Valid() || fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_nlink != 1 ||
        (st.st_mode & 07777) == NEW_FILE_MODE) {
        return 0;
    }
    if (fchmod(fd.Get(), NEW_FILE_MODE) != 0) {
        return errno;
    }
    mode = st.st_mode & 07777;
    restore = std::move(fd);
    return 0;
}

int TreeSizeAt(int dirFd, const std::string &name, int64_t &size, int depth) {
    struct stat st {};
    if (fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    if (S_ISREG(st.st_mode)) {
        size += st.st_size;
        return 0;
    }
    if (!S_ISDIR(st.st_mode)) {
        return 0;
    }
    if (depth >= MAX_DEPTH) {
        return ELOOP;
    }
    return ForEachChild(dirFd, name, [&size, depth](int fd, const std::string &child) {
        return TreeSizeAt(fd, child, size, depth + 1);
    });
}

int ListTreeAt(int dirFd, const std::string &name, const std::string &path, std::vector<std::string> &entries,
               int depth) {
    if (depth >= MAX_DEPTH) {
        return ELOOP;
    }
    return ForEachChild(dirFd, name, [&path, &entries, depth](int fd, const std::string &child) {
        struct stat st {};
        if (fstatat(fd, child.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            return errno;
        }
        std::string childPath = ChildPath(path, child);
        bool isDir = S_ISDIR(st.st_mode);
        entries.push_back(childPath + (isDir ? ":1" : ":0"));
        return isDir ? ListTreeAt(fd, child, childPath, entries, depth + 1) : 0;
    });
}
}  // namespace

int Lstat(int dirFd, const std::string &name, struct stat &st) {
    return fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

int MakeDir(int dirFd, const std::string &name, mode_t mode) {
    if (mkdirat(dirFd, name.c_str(), mode) == 0) {
        // The creation mode was narrowed by the umask; set exactly what was asked, on the directory
        // itself: the name may have been swapped for a link since.
        UniqueFd dir(OpenDirNoFollow(dirFd, name, O_RDONLY));
        return dir.Valid() && fchmod(dir.Get(), mode) == 0 ? 0 : errno;
    }
    int err = errno;
    struct stat st {};
    if (err == EEXIST && Lstat(dirFd, name, st) == 0) {
        return S_ISDIR(st.st_mode) ? 0 : EEXIST;
    }
    return err;
}

int RemoveTree(int dirFd, const std::string &name) {
    return RemoveTreeAt(dirFd, name, 0);
}

int CopyTree(int srcDir, const std::string &srcName, const std::string &srcPath, int dstDir,
             const std::string &dstName, std::string &refusal) {
    return CopyTreeAt(srcDir, srcName, srcPath, dstDir, dstName, 0, refusal);
}

int Move(int srcDir, const std::string &srcName, const std::string &srcPath, int dstDir,
         const std::string &dstName, std::string &refusal) {
    UniqueFd narrowed;
    mode_t mode = 0;
    int err = NarrowBeforeMove(srcDir, srcName, narrowed, mode);
    if (err != 0) {
        return err;
    }
    if (renameat(srcDir, srcName.c_str(), dstDir, dstName.c_str()) == 0) {
        return 0;
    }
    err = errno;
    if (narrowed.Valid()) {
        (void)fchmod(narrowed.Get(), mode);
    }
    if (err != EXDEV) {
        return err;
    }
    err = CopyTree(srcDir, srcName, srcPath, dstDir, dstName, refusal);
    return err != 0 ? err : RemoveTree(srcDir, srcName);
}

int ChownTree(int dirFd, const std::string &name, const std::string &path, uid_t uid, gid_t gid, bool recurse,
              std::string &refusal) {
    return ChownTreeAt(dirFd, name, path, uid, gid, recurse, 0, refusal);
}

int ChmodTree(int dirFd, const std::string &name, const std::string &path, mode_t mode, bool recurse,
              std::string &refusal) {
    return ChmodTreeAt(dirFd, name, path, mode, recurse, 0, refusal);
}

int TreeSize(int dirFd, const std::string &name, int64_t &size) {
    size = 0;
    return TreeSizeAt(dirFd, name, size, 0);
}

int ListTree(int dirFd, const std::string &name, const std::string &path, std::vector<std::string> &entries) {
    return ListTreeAt(dirFd, name, path, entries, 0);
}

int ListNames(int dirFd, const std::string &name, std::vector<std::string> &names) {
    UniqueFd dir(OpenDirNoFollow(dirFd, name, O_RDONLY));
    if (!dir.Valid()) {
        return errno;
    }
    return ListDirectoryNames(dir.Get(), names);
}

}  // namespace Zarvo::Host::FileOps
