#include "owner_only_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <streambuf>
#include <vector>

#include "support/fd_io.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {
namespace {

// A stream buffer that writes to a descriptor through a fixed buffer and remembers the first
// failure's errno.
class FdWriteBuffer : public std::streambuf {
public:
    explicit FdWriteBuffer(int fd) : fd_(fd) { setp(buffer_.data(), buffer_.data() + buffer_.size()); }
    int Failure() const { return failure_; }

protected:
    int_type overflow(int_type c) override {
        if (sync() != 0) {
            return traits_type::eof();
        }
        if (!traits_type::eq_int_type(c, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(c);
            pbump(1);
        }
        return traits_type::not_eof(c);
    }

    int sync() override {
        const size_t size = static_cast<size_t>(pptr() - pbase());
        if (failure_ == 0 && size > 0 && !WriteAll(fd_, pbase(), size)) {
            failure_ = errno != 0 ? errno : EIO;
        }
        setp(buffer_.data(), buffer_.data() + buffer_.size());
        return failure_ == 0 ? 0 : -1;
    }

private:
    int fd_;
    int failure_ = 0;
    std::array<char, 64 * 1024> buffer_{};
};

}  // namespace

std::string WriteOwnerOnlyFile(const std::string &path, const std::string &content) {
    return WriteOwnerOnlyFile(path,
                              [&content](std::ostream &out) { out.write(content.data(), content.size()); });
}

std::string WriteOwnerOnlyFile(const std::string &path, const std::function<void(std::ostream &)> &write) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string pattern = folder + "/." + name + ".XXXXXX";
    std::vector<char> temporary(pattern.begin(), pattern.end());
    temporary.push_back('\0');
    // mkstemp makes the file 0600 whatever the umask is.
    UniqueFd file(mkstemp(temporary.data()));
    if (!file.Valid()) {
        return "could not write " + path + ": " + std::strerror(errno) + ".";
    }
    FdWriteBuffer buffer(file.Get());
    {
        std::ostream out(&buffer);
        write(out);
        out.flush();
    }
    int failure = buffer.Failure();
    if (failure == 0 && !file.Close()) {
        failure = errno;
    }
    if (failure == 0 && rename(temporary.data(), path.c_str()) != 0) {
        failure = errno;
    }
    if (failure != 0) {
        unlink(temporary.data());
        return "could not write " + path + ": " + std::strerror(failure) + ".";
    }
    return "";
}

}  // namespace Zarvo::Host
