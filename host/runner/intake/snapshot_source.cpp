#include "snapshot_source.h"

#include <sys/stat.h>

namespace Zarvo::Host {

EntryType EntryTypeOfMode(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return EntryType::FILE;
        case S_IFDIR:
            return EntryType::DIRECTORY;
        case S_IFLNK:
            return EntryType::SYMLINK;
        case S_IFIFO:
            return EntryType::FIFO;
        case S_IFCHR:
            return EntryType::CHARACTER_DEVICE;
        case S_IFBLK:
            return EntryType::BLOCK_DEVICE;
        case S_IFSOCK:
            return EntryType::SOCKET;
        default:
            return EntryType::OTHER;
    }
}

}  // namespace Zarvo::Host
