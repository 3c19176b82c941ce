#include "zip_links.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

namespace Zarvo::Host {
namespace {

constexpr uint32_t END_SIGNATURE = 0x06054b50;
constexpr uint32_t ZIP64_LOCATOR_SIGNATURE = 0x07064b50;
constexpr uint32_t ZIP64_END_SIGNATURE = 0x06064b50;
constexpr uint32_t ENTRY_SIGNATURE = 0x02014b50;
constexpr size_t END_SIZE = 22;
constexpr size_t ZIP64_LOCATOR_SIZE = 20;
constexpr size_t ZIP64_END_SIZE = 56;
constexpr size_t ENTRY_SIZE = 46;
constexpr size_t MAX_COMMENT = 0xffff;
constexpr unsigned UNIX_HOST = 3;

uint64_t Little(const unsigned char *bytes, size_t size) {
    uint64_t value = 0;
    for (size_t i = size; i > 0; --i) {
        value = (value << 8) | bytes[i - 1];
    }
    return value;
}

bool ReadAt(int fd, uint64_t offset, unsigned char *buffer, size_t size) {
    while (size > 0) {
        const ssize_t got = pread(fd, buffer, size, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return false;
        }
        buffer += got;
        size -= static_cast<size_t>(got);
        offset += static_cast<uint64_t>(got);
    }
    return true;
}

struct Directory {
    uint64_t offset = 0;
    uint64_t size = 0;
    uint64_t end = 0;  // where the end record lies: the directory lies just before it
};

// The end-of-central-directory record, searched from the file's end back over the longest
// comment, and its Zip64 form when a field of it is saturated.
bool FindDirectory(int fd, uint64_t fileSize, Directory &directory) {
    const size_t tail = static_cast<size_t>(std::min<uint64_t>(fileSize, END_SIZE + MAX_COMMENT));
    std::vector<unsigned char> bytes(tail);
    if (tail < END_SIZE || !ReadAt(fd, fileSize - tail, bytes.data(), tail)) {
        return false;
    }
    for (size_t at = tail - END_SIZE + 1; at-- > 0;) {
        const unsigned char *end = bytes.data() + at;
        if (Little(end, 4) != END_SIGNATURE || at + END_SIZE + Little(end + 20, 2) != tail) {
            continue;
        }
        directory = {Little(end + 16, 4), Little(end + 12, 4), fileSize - tail + at};
        if (directory.offset != 0xffffffff && directory.size != 0xffffffff) {
            return true;
        }
        unsigned char locator[ZIP64_LOCATOR_SIZE];
        unsigned char zip64[ZIP64_END_SIZE];
        if (directory.end < ZIP64_LOCATOR_SIZE ||
            !ReadAt(fd, directory.end - ZIP64_LOCATOR_SIZE, locator, sizeof(locator)) ||
            Little(locator, 4) != ZIP64_LOCATOR_SIGNATURE ||
            !ReadAt(fd, Little(locator + 8, 8), zip64, sizeof(zip64)) ||
            Little(zip64, 4) != ZIP64_END_SIGNATURE) {
            return false;
        }
        directory = {Little(zip64 + 48, 8), Little(zip64 + 40, 8), Little(locator + 8, 8)};
        return true;
    }
    return false;
}

}  // namespace

std::string FindZipLinks(int fd, const std::function<void(const std::string &name)> &link) {
    struct stat st {};
    Directory directory;
    if (fstat(fd, &st) != 0 || !FindDirectory(fd, static_cast<uint64_t>(st.st_size), directory) ||
        directory.size > directory.end) {
        return "its central directory, which gives its members' types, cannot be found.";
    }
    // Bytes before the zip (a self-extracting stub) shift every offset: the directory is taken as
    // lying right before its end record.
    uint64_t at = directory.end - directory.size;
    std::vector<unsigned char> entry(ENTRY_SIZE + 0xffff);
    while (at + ENTRY_SIZE <= directory.end) {
        if (!ReadAt(fd, at, entry.data(), ENTRY_SIZE) || Little(entry.data(), 4) != ENTRY_SIGNATURE) {
            return "its central directory is corrupt.";
        }
        const size_t nameSize = static_cast<size_t>(Little(entry.data() + 28, 2));
        const uint64_t recordSize =
            ENTRY_SIZE + nameSize + Little(entry.data() + 30, 2) + Little(entry.data() + 32, 2);
        const unsigned host = entry[5];
        const auto mode = static_cast<mode_t>(Little(entry.data() + 38, 4) >> 16);
        if (host == UNIX_HOST && S_ISLNK(mode)) {
            if (!ReadAt(fd, at + ENTRY_SIZE, entry.data() + ENTRY_SIZE, nameSize)) {
                return "its central directory is corrupt.";
            }
            link(std::string(reinterpret_cast<const char *>(entry.data() + ENTRY_SIZE), nameSize));
        }
        at += recordSize;
    }
    return at == directory.end ? "" : "its central directory is corrupt.";
}

}  // namespace Zarvo::Host
