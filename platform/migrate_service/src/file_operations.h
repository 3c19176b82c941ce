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
//
// A file other than a directory that has more than one name may share its inode with a file
// outside the allowed roots, so its owner and mode are never changed and a regular file of that
// kind is never copied: those operations fail with EMLINK and set `refusal` to a sentence naming
// the entry by its `path` text. The check and the change are made on one open descriptor, so a
// name swapped between them cannot redirect the change. Files and directories the operations
// create are owner-only (0600, 0700) until a mode change says otherwise.
namespace FileOps {

constexpr mode_t NEW_FILE_MODE = 0600;
constexpr mode_t NEW_DIR_MODE = 0700;

// The path text of `child` in the directory `path` ("/x" in "/").
std::string ChildPath(const std::string &path, const std::string &child);

int Lstat(int dirFd, const std::string &name, struct stat &st);

// Makes the directory `name` with exactly `mode` if it is missing; an existing directory is success.
int MakeDir(int dirFd, const std::string &name, mode_t mode);

int RemoveTree(int dirFd, const std::string &name);
// Copies a file, link or directory tree; an existing file or link at the destination is
// replaced, an existing directory is merged into. Sockets, pipes and devices are skipped.
int CopyTree(int srcDir, const std::string &srcName, const std::string &srcPath, int dstDir,
             const std::string &dstName, std::string &refusal);
// Renames, and copies then removes when the two lie on different file systems. A regular file
// with one name is made 0600 before it is renamed, and given its mode back if the rename fails.
int Move(int srcDir, const std::string &srcName, const std::string &srcPath, int dstDir,
         const std::string &dstName, std::string &refusal);

// Owner and group (-1 leaves one unchanged) of `name`, and of everything below it when `recurse`.
int ChownTree(int dirFd, const std::string &name, const std::string &path, uid_t uid, gid_t gid, bool recurse,
              std::string &refusal);
// Mode of `name`, and of everything below it when `recurse`; a link at the top is refused.
int ChmodTree(int dirFd, const std::string &name, const std::string &path, mode_t mode, bool recurse,
              std::string &refusal);

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
