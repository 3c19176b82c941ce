#include "file_operations.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>

#include "path_guard.h"
#include "unique_fd.h"

namespace Zarvo::Host::FileOps {

namespace {
// Deeper trees are refused rather than risking the stack of a connection thread.
constexpr int MAX_DEPTH = 128;
constexpr size_t COPY_CHUNK = 64 * 1024;
constexpr mode_t PERMISSION_BITS = 0777;

std::atomic<uint64_t> g_tempCounter{0};

std::string TempName() {
    return ".migrate-tmp-" + std::to_string(getpid()) + "-" + std::to_string(g_tempCounter.fetch_add(1));
}

int ListNamesFd(int dirFd, std::vector<std::string> &names) {
    int copy = dup(dirFd);
    if (copy < 0) {
        return errno;
    }
    DIR *dir = fdopendir(copy);
    if (dir == nullptr) {
        int err = errno;
        close(copy);
        return err;
    }
    rewinddir(dir);
    errno = 0;
    while (struct dirent *entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(std::move(name));
        }
    }
    int err = errno;
    closedir(dir);
    std::sort(names.begin(), names.end());
    return err;
}

// Opens a directory for reading its entries, and calls `visit(fd, childName)` for each of them.
template <typename Visit>
int ForEachChild(int dirFd, const std::string &name, Visit visit) {
    UniqueFd dir(OpenDirNoFollow(dirFd, name, O_RDONLY));
    if (!dir.Valid()) {
        return errno;
    }
    std::vector<std::string> names;
    int err = ListNamesFd(dir.Get(), names);
    if (err != 0) {
        return err;
    }
    for (const std::string &child : names) {
        err = visit(dir.Get(), child);
        if (err != 0) {
            return err;
        }
    }
    return 0;
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
        const char *pos = buffer.data();
        while (got > 0) {
            ssize_t put = write(out, pos, static_cast<size_t>(got));
            if (put < 0 && errno == EINTR) {
                continue;
            }
            if (put < 0) {
                return errno;
            }
            pos += put;
            got -= put;
        }
    }
}

// Writes the copy under a temporary name and renames it over the destination, so a link that
// already sits at the destination is replaced and never written through.
int CopyFile(int srcDir, const std::string &srcName, int dstDir, const std::string &dstName) {
    UniqueFd in(openat(srcDir, srcName.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
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
    std::string temp = TempName();
    UniqueFd out(openat(dstDir, temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!out.Valid()) {
        return errno;
    }
    int err = CopyData(in.Get(), out.Get());
    if (err == 0 && fchmod(out.Get(), st.st_mode & PERMISSION_BITS) != 0) {
        err = errno;
    }
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

int CopyTreeAt(int srcDir, const std::string &srcName, int dstDir, const std::string &dstName, int depth);

int CopyDir(int srcDir, const std::string &srcName, const struct stat &srcStat, int dstDir,
            const std::string &dstName, int depth) {
    if (depth >= MAX_DEPTH) {
        return ELOOP;
    }
    // Made owner-only until filled, then given the source's mode.
    int err = MakeDir(dstDir, dstName, 0700);
    if (err != 0) {
        return err;
    }
    UniqueFd dst(OpenDirNoFollow(dstDir, dstName, O_PATH));
    if (!dst.Valid()) {
        return errno;
    }
    err = ForEachChild(srcDir, srcName, [&dst, depth](int fd, const std::string &child) {
        return CopyTreeAt(fd, child, dst.Get(), child, depth + 1);
    });
    if (err != 0) {
        return err;
    }
    return fchmodat(dstDir, dstName.c_str(), srcStat.st_mode & PERMISSION_BITS, AT_SYMLINK_NOFOLLOW) == 0
               ? 0
               : errno;
}

int CopyTreeAt(int srcDir, const std::string &srcName, int dstDir, const std::string &dstName, int depth) {
    struct stat st {};
    if (fstatat(srcDir, srcName.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    if (S_ISREG(st.st_mode)) {
        return CopyFile(srcDir, srcName, dstDir, dstName);
    }
    if (S_ISDIR(st.st_mode)) {
        return CopyDir(srcDir, srcName, st, dstDir, dstName, depth);
    }
    if (S_ISLNK(st.st_mode)) {
        return CopyLink(srcDir, srcName, dstDir, dstName);
    }
    return 0;
}

int ChownTreeAt(int dirFd, const std::string &name, uid_t uid, gid_t gid, bool recurse, int depth) {
    if (fchownat(dirFd, name.c_str(), uid, gid, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    struct stat st {};
    if (!recurse || fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode)) {
        return 0;
    }
    if (depth >= MAX_DEPTH) {
        return ELOOP;
    }
    return ForEachChild(dirFd, name, [uid, gid, depth](int fd, const std::string &child) {
        return ChownTreeAt(fd, child, uid, gid, true, depth + 1);
    });
}

int ChmodTreeAt(int dirFd, const std::string &name, mode_t mode, bool recurse, int depth) {
    struct stat st {};
    if (fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    if (S_ISLNK(st.st_mode)) {
        return depth == 0 ? EOPNOTSUPP : 0;
    }
    // AT_SYMLINK_NOFOLLOW again: a link swapped in since the check is refused, not followed.
    if (fchmodat(dirFd, name.c_str(), mode, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno;
    }
    if (!recurse || !S_ISDIR(st.st_mode)) {
        return 0;
    }
    if (depth >= MAX_DEPTH) {
        return ELOOP;
    }
    return ForEachChild(dirFd, name, [mode, depth](int fd, const std::string &child) {
        return ChmodTreeAt(fd, child, mode, true, depth + 1);
    });
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
        std::string childPath = path == "/" ? "/" + child : path + "/" + child;
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
        // The creation mode was narrowed by the umask; set exactly what was asked.
        return fchmodat(dirFd, name.c_str(), mode, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
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

int CopyTree(int srcDir, const std::string &srcName, int dstDir, const std::string &dstName) {
    return CopyTreeAt(srcDir, srcName, dstDir, dstName, 0);
}

int Move(int srcDir, const std::string &srcName, int dstDir, const std::string &dstName) {
    if (renameat(srcDir, srcName.c_str(), dstDir, dstName.c_str()) == 0) {
        return 0;
    }
    if (errno != EXDEV) {
        return errno;
    }
    int err = CopyTree(srcDir, srcName, dstDir, dstName);
    return err != 0 ? err : RemoveTree(srcDir, srcName);
}

int ChownTree(int dirFd, const std::string &name, uid_t uid, gid_t gid, bool recurse) {
    return ChownTreeAt(dirFd, name, uid, gid, recurse, 0);
}

int ChmodTree(int dirFd, const std::string &name, mode_t mode, bool recurse) {
    return ChmodTreeAt(dirFd, name, mode, recurse, 0);
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
    return ListNamesFd(dir.Get(), names);
}

}  // namespace Zarvo::Host::FileOps
