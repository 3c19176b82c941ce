#include "shard_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/unique_fd.h"

namespace Zarvo::Host {

ShardFileRead ReadShardFile(int dirFd, const std::string &name, const std::string &shownPath, size_t limit,
                            std::string *content, std::string &error) {
    UniqueFd file(openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file.Valid()) {
        if (errno == ENOENT) {
            return ShardFileRead::MISSING;
        }
        error = errno == ELOOP ? shownPath + " is a symbolic link; a merge reads no file through a link."
                               : "could not read " + shownPath + ": " + std::strerror(errno) + ".";
        return ShardFileRead::REFUSED;
    }
    struct stat info {};
    if (fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_nlink != 1) {
        error = shownPath + " is no regular file with one name; a merge reads no links, devices or FIFOs.";
        return ShardFileRead::REFUSED;
    }
    if (static_cast<unsigned long long>(info.st_size) > limit) {
        error = shownPath + " is larger than a batch writes (" + std::to_string(limit >> 20) + " MiB).";
        return ShardFileRead::REFUSED;
    }
    if (content == nullptr) {
        return ShardFileRead::READ;
    }
    content->clear();
    content->reserve(static_cast<size_t>(info.st_size));
    char buffer[65536];
    for (;;) {
        const ssize_t got = read(file.Get(), buffer, sizeof(buffer));
        if (got == 0) {
            return ShardFileRead::READ;
        }
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0 || content->size() + static_cast<size_t>(got) > limit) {
            error = "could not read " + shownPath + ": " +
                    (got < 0 ? std::strerror(errno) : "it grew while it was read") + ".";
            return ShardFileRead::REFUSED;
        }
        content->append(buffer, static_cast<size_t>(got));
    }
}

}  // namespace Zarvo::Host
