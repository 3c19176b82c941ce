#include "raw_migrate_client.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

namespace Zarvo::Testing {

namespace {
void PutText(std::string &bytes, size_t offset, size_t width, const std::string &text) {
    bytes.replace(offset, std::min(text.size(), width), text, 0, std::min(text.size(), width));
}

void PutInt(std::string &bytes, size_t offset, int32_t value) {
    std::memcpy(&bytes[offset], &value, sizeof(value));
}

bool ReadFull(int fd, char *buf, size_t length) {
    size_t got = 0;
    while (got < length) {
        ssize_t n = read(fd, buf + got, length - got);
        if (n <= 0) {
            return false;
        }
        got += static_cast<size_t>(n);
    }
    return true;
}
}  // namespace

std::string RawRequest::Bytes() const {
    std::string bytes(Host::REQUEST_LENGTH, '\0');
    PutInt(bytes, 0, type);
    PutText(bytes, 4, 1024, src);
    PutText(bytes, 1028, 1024, dst);
    PutText(bytes, 2052, 32, uid);
    PutText(bytes, 2084, 32, gid);
    PutText(bytes, 2116, 16, perm);
    PutInt(bytes, 2132, recurseOpt);
    PutText(bytes, 2136, 252, reserved);
    return bytes;
}

RawConnection::RawConnection(const std::string &socketPath) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    timeval timeout = {20, 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    if (fd_ >= 0 && connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd_);
        fd_ = -1;
    }
}

RawConnection::~RawConnection() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

bool RawConnection::SendBytes(const std::string &bytes) {
    return fd_ >= 0 &&
           send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

RawReply RawConnection::Receive() {
    RawReply reply;
    int32_t header[3] = {};
    if (fd_ < 0 || !ReadFull(fd_, reinterpret_cast<char *>(header), sizeof(header))) {
        return reply;
    }
    reply.result = header[0];
    reply.errCode = header[1];
    reply.pkgNum = header[2];
    for (int32_t i = 0; i < reply.pkgNum; ++i) {
        std::string package(Host::PACKAGE_LENGTH, '\0');
        if (!ReadFull(fd_, &package[0], package.size())) {
            return reply;
        }
        int32_t fields[2];
        std::memcpy(fields, package.data(), sizeof(fields));
        if (fields[0] != reply.pkgNum || fields[1] != i) {
            return reply;
        }
        reply.texts.emplace_back(package.c_str() + 8);
    }
    reply.complete = true;
    return reply;
}

RawReply RawConnection::Exchange(const RawRequest &request) {
    return SendBytes(request.Bytes()) ? Receive() : RawReply{};
}

bool RawConnection::PeerClosed() {
    char byte;
    return fd_ >= 0 && read(fd_, &byte, 1) == 0;
}

RawReply Exchange(const RawRequest &request) {
    RawConnection connection;
    return connection.Exchange(request);
}

}  // namespace Zarvo::Testing
