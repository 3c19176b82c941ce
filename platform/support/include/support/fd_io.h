#ifndef ZARVO_SUPPORT_FD_IO_H
#define ZARVO_SUPPORT_FD_IO_H

#include <cstddef>
#include <string>
#include <vector>

namespace Zarvo::Host {

// Writes all of `size` bytes, retrying short writes and interruptions; false with errno set.
bool WriteAll(int fd, const void *data, size_t size);

// Reads from `fd` to its end into `content`: 0, an errno value, or EFBIG once more than `limit`
// bytes have come (a file may grow after its size was checked).
int ReadUpTo(int fd, size_t limit, std::string &content);

// The names in an open directory, sorted, without "." and ".."; 0 or an errno value. The
// descriptor itself is not moved or closed.
int ListDirectoryNames(int dirFd, std::vector<std::string> &names);

}  // namespace Zarvo::Host

#endif  // ZARVO_SUPPORT_FD_IO_H
