#include "support/fd_io.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace Zarvo::Host {

bool WriteAll(int fd, const void *data, size_t size) {
    const char *pos = static_cast<const char *>(data);
    while (size > 0) {
        ssize_t put = write(fd, pos, size);
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            if (put == 0) {
                errno = EIO;
            }
            return false;
        }
        pos += put;
        size -= static_cast<size_t>(put);
    }
    return true;
}

int ReadUpTo(int fd, size_t limit, std::string &content) {
    content.clear();
    char buffer[65536];
    for (;;) {
        const ssize_t got = read(fd, buffer, sizeof(buffer));
        if (got == 0) {
            return 0;
        }
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return errno;
        }
        if (content.size() + static_cast<size_t>(got) > limit) {
            return EFBIG;
        }
        content.append(buffer, static_cast<size_t>(got));
    }
}

int ListDirectoryNames(int dirFd, std::vector<std::string> &names) {
    // A duplicate for the stream, which closes it and owns its own position.
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

}  // namespace Zarvo::Host
