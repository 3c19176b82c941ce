#include "folder_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "support/fd_io.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {

FolderFileRead ReadFolderFile(int dirFd, const std::string &name, const std::string &shownPath, size_t limit,
                              std::string *content, const std::string &reader, std::string &error) {
    UniqueFd file(openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.Valid()) {
        if (errno == ENOENT) {
            return FolderFileRead::MISSING;
        }
        error = errno == ELOOP
                    ? shownPath + " is a symbolic link; " + reader + " reads no file through a link."
                    : "could not read " + shownPath + ": " + std::strerror(errno) + ".";
        return FolderFileRead::REFUSED;
    }
    struct stat info {};
    if (fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink != 1) {
        error =
            shownPath + " is no regular file with one name; " + reader + " reads no links, devices or FIFOs.";
        return FolderFileRead::REFUSED;
    }
    if (static_cast<unsigned long long>(info.st_size) > limit) {
        error = shownPath + " is larger than a batch writes (" + std::to_string(limit >> 20) + " MiB).";
        return FolderFileRead::REFUSED;
    }
    if (content == nullptr) {
        return FolderFileRead::READ;
    }
    const int failed = ReadUpTo(file.Get(), limit, *content);
    if (failed != 0) {
        error = "could not read " + shownPath + ": " +
                (failed == EFBIG ? "it grew while it was read" : std::strerror(failed)) + ".";
        return FolderFileRead::REFUSED;
    }
    return FolderFileRead::READ;
}

}  // namespace Zarvo::Host
