#ifndef MIGRATE_SERVICE_FILE_OPERATIONS_H
#define MIGRATE_SERVICE_FILE_OPERATIONS_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Zarvo::Host {

// File-tree operations relative to an open directory. None of them follows a symbolic link:
// links are copied, moved, removed or re-owned as links, and skipped by mode changes below the
// top. Every function returns 0 or an errno value and stops at the first failure.
namespace FileOps {

int Lstat(int dirFd, const std::string &name, struct stat &st);

// Makes the directory `name` with `mode` if it is missing; an existing directory is success.
int MakeDir(int dirFd, const std::string &name, mode_t mode);

int RemoveTree(int dirFd, const std::string &name);
// Copies a file, link or directory tree; an existing file or link at the destination is
// replaced, an existing directory is merged into. Sockets, pipes and devices are skipped.
int CopyTree(int srcDir, const std::string &srcName, int dstDir, const std::string &dstName);
// Renames, and copies then removes when the two lie on different file systems.
int Move(int srcDir, const std::string &srcName, int dstDir, const std::string &dstName);

// Owner and group (-1 leaves one unchanged) of `name`, and of everything below it when `recurse`.
int ChownTree(int dirFd, const std::string &name, uid_t uid, gid_t gid, bool recurse);
// Mode of `name`, and of everything below it when `recurse`; a link at the top is refused.
int ChmodTree(int dirFd, const std::string &name, mode_t mode, bool recurse);

// Bytes held by the regular files of the tree.
int TreeSize(int dirFd, const std::string &name, int64_t &size);
// Every entry below the directory, depth first in name order, as "<path>:1" for directories and
// "<path>:0" for anything else; `path` is the directory's own path text.
int ListTree(int dirFd, const std::string &name, const std::string &path, std::vector<std::string> &entries);
// The names in a directory, sorted, without "." and "..".
int ListNames(int dirFd, const std::string &name, std::vector<std::string> &names);

}  // namespace FileOps
}  // namespace Zarvo::Host

#endif  // MIGRATE_SERVICE_FILE_OPERATIONS_H
