#ifndef ZARVO_SUPPORT_UNIQUE_FD_H
#define ZARVO_SUPPORT_UNIQUE_FD_H

#include <unistd.h>

#include <utility>

namespace Zarvo::Host {

// Owns one file descriptor and closes it on destruction.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(UniqueFd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        if (this != &other) {
            Reset(std::exchange(other.fd_, -1));
        }
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    int Get() const { return fd_; }
    bool Valid() const { return fd_ >= 0; }
    int Release() { return std::exchange(fd_, -1); }
    // Closes now; false when the close failed (for a written file: data may not have reached it).
    bool Close() { return close(Release()) == 0; }
    void Reset(int fd = -1) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace Zarvo::Host

#endif  // ZARVO_SUPPORT_UNIQUE_FD_H
