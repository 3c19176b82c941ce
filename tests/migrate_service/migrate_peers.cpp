#include "migrate_peers.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

namespace Zarvo::Testing {

namespace {
using TextField = std::string Host::MigrateRequest::*;
struct Field {
    TextField member;
    size_t offset, width;
};
const Field TEXT_FIELDS[] = {
    {&Host::MigrateRequest::src, 4, 1024},   {&Host::MigrateRequest::dst, 1028, 1024},
    {&Host::MigrateRequest::uid, 2052, 32},  {&Host::MigrateRequest::gid, 2084, 32},
    {&Host::MigrateRequest::perm, 2116, 16}, {&Host::MigrateRequest::reserved, 2136, 252}};
constexpr size_t RECURSE_OFFSET = 2132;

int32_t IntAt(const char *bytes) {
    int32_t value = 0;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
}

std::string Ints(std::initializer_list<int32_t> values) {
    return std::string(reinterpret_cast<const char *>(values.begin()), values.size() * sizeof(int32_t));
}

sockaddr_un SocketAddress() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, MIGRATE_SOCKET.c_str());
    return address;
}
}  // namespace

Host::MigrateRequest Request(Host::MigrateOp op, const std::string &src, const std::string &dst) {
    Host::MigrateRequest request;
    request.type = static_cast<int32_t>(op);
    request.src = src;
    request.dst = dst;
    return request;
}

std::string RequestBytes(const Host::MigrateRequest &request) {
    std::string bytes(Host::REQUEST_LENGTH, '\0');
    bytes.replace(0, 4, Ints({request.type}));
    bytes.replace(RECURSE_OFFSET, 4, Ints({request.recurseOpt}));
    for (const Field &field : TEXT_FIELDS) {
        const std::string &text = request.*field.member;
        bytes.replace(field.offset, std::min(text.size(), field.width), text, 0, field.width);
    }
    return bytes;
}

std::string RequestSummary(const std::string &bytes) {
    std::string summary =
        std::to_string(IntAt(bytes.data())) + "|" + std::to_string(IntAt(&bytes[RECURSE_OFFSET]));
    for (const Field &field : TEXT_FIELDS) {
        summary += "|" + std::string(&bytes[field.offset], strnlen(&bytes[field.offset], field.width));
    }
    return summary;
}

std::string ReplyHeader(int32_t result, int32_t errCode, int32_t pkgNum) {
    return Ints({result, errCode, pkgNum});
}

std::string Package(int32_t pkgNum, int32_t pkgIndex, const std::string &text) {
    std::string package = Ints({pkgNum, pkgIndex}) + text.substr(0, Host::PACKAGE_TEXT_WIDTH);
    package.resize(Host::PACKAGE_LENGTH, '\0');
    return package;
}

bool ReadFull(int fd, char *buf, size_t length) {
    for (size_t got = 0; got < length;) {
        ssize_t n = read(fd, buf + got, length - got);
        if (n <= 0) {
            return false;
        }
        got += static_cast<size_t>(n);
    }
    return true;
}

void Send(int fd, const std::string &bytes) {
    (void)!send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

RawConnection::RawConnection() {
    sockaddr_un address = SocketAddress();
    fd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    timeval timeout = {20, 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    if (connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
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
    char header[Host::REPLY_HEADER_LENGTH];
    if (fd_ < 0 || !ReadFull(fd_, header, sizeof(header))) {
        return reply;
    }
    reply.result = IntAt(header);
    reply.errCode = IntAt(header + 4);
    reply.pkgNum = IntAt(header + 8);
    for (int32_t i = 0; i < reply.pkgNum; ++i) {
        std::string package(Host::PACKAGE_LENGTH, '\0');
        if (!ReadFull(fd_, &package[0], package.size()) || IntAt(&package[0]) != reply.pkgNum ||
            IntAt(&package[4]) != i) {
            return reply;
        }
        reply.texts.emplace_back(package.c_str() + 8);
    }
    reply.complete = true;
    return reply;
}

bool RawConnection::PeerClosed() {
    char byte;
    return fd_ >= 0 && read(fd_, &byte, 1) == 0;
}

bool RawConnection::WaitUntilRead() {
    int pending = 1;
    for (int i = 0; i < 5000 && fd_ >= 0 && ioctl(fd_, SIOCOUTQ, &pending) == 0 && pending > 0; ++i) {
        usleep(1000);
    }
    return pending == 0;
}

RawReply Exchange(const Host::MigrateRequest &request) {
    return RawConnection().Exchange(request);
}

ScriptedPeer::ScriptedPeer(std::vector<Script> scripts) : scripts_(std::move(scripts)) {
    std::filesystem::create_directories(std::filesystem::path(MIGRATE_SOCKET).parent_path());
    unlink(MIGRATE_SOCKET.c_str());
    sockaddr_un address = SocketAddress();
    listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listenFd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listenFd_, 8) != 0) {
        std::abort();
    }
    acceptThread_ = std::thread([this] {
        // Ends when the destructor shuts the listening socket down.
        for (int fd; (fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            std::lock_guard<std::mutex> lock(mutex_);
            Script script = scripts_[std::min(clientFds_.size(), scripts_.size() - 1)];
            clientFds_.push_back(fd);
            workers_.emplace_back([this, script, fd] {
                script(*this, fd);
                shutdown(fd, SHUT_RDWR);
            });
        }
    });
}

ScriptedPeer::~ScriptedPeer() {
    shutdown(listenFd_, SHUT_RDWR);
    acceptThread_.join();
    for (int fd : clientFds_) {
        shutdown(fd, SHUT_RDWR);
    }
    for (std::thread &worker : workers_) {
        worker.join();
    }
    for (int fd : clientFds_) {
        close(fd);
    }
    close(listenFd_);
    unlink(MIGRATE_SOCKET.c_str());
}

bool ScriptedPeer::ReadRequest(int fd) {
    std::string request(Host::REQUEST_LENGTH, '\0');
    if (!ReadFull(fd, &request[0], request.size())) {
        return false;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(std::move(request));
    return true;
}

void ScriptedPeer::SendAndWaitRead(int fd, const std::string &bytes) {
    Send(fd, bytes);
    int pending = 1;
    for (int i = 0; i < 5000 && ioctl(fd, SIOCOUTQ, &pending) == 0 && pending > 0; ++i) {
        usleep(1000);
    }
}

std::vector<std::string> ScriptedPeer::Requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

int ScriptedPeer::Connections() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return static_cast<int>(clientFds_.size());
}

ScriptedPeer::Script Answers(std::vector<std::string> replies) {
    return [replies](ScriptedPeer &peer, int fd) {
        for (size_t i = 0; peer.ReadRequest(fd); ++i) {
            Send(fd, replies[std::min(i, replies.size() - 1)]);
        }
    };
}

ScriptedPeer::Script CloseAfterRequest() {
    return [](ScriptedPeer &peer, int fd) { peer.ReadRequest(fd); };
}

}  // namespace Zarvo::Testing
