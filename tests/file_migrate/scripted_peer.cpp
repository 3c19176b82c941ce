#include "scripted_peer.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

namespace Zarvo::Testing {

namespace {
const char *const SOCKET_PATH = "/dev/unix/socket/file_migrate_ability";
constexpr size_t REQUEST_LENGTH = 2388;
}  // namespace

ScriptedPeer::ScriptedPeer(std::vector<Script> scripts) : scripts_(std::move(scripts)) {
    std::filesystem::create_directories("/dev/unix/socket");
    unlink(SOCKET_PATH);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, SOCKET_PATH);
    listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    stopFd_ = eventfd(0, EFD_CLOEXEC);
    if (bind(listenFd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listenFd_, 8) != 0) {
        std::abort();
    }
    acceptThread_ = std::thread(&ScriptedPeer::AcceptLoop, this);
}

ScriptedPeer::~ScriptedPeer() {
    uint64_t one = 1;
    (void)!write(stopFd_, &one, sizeof(one));
    acceptThread_.join();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (int fd : clientFds_) {
            shutdown(fd, SHUT_RDWR);
        }
    }
    for (std::thread &worker : workers_) {
        worker.join();
    }
    for (int fd : clientFds_) {
        close(fd);
    }
    close(listenFd_);
    close(stopFd_);
    unlink(SOCKET_PATH);
}

void ScriptedPeer::AcceptLoop() {
    for (;;) {
        pollfd fds[2] = {{listenFd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 || (fds[1].revents & POLLIN) != 0) {
            return;
        }
        int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        size_t index = static_cast<size_t>(connections_.fetch_add(1));
        Script script = scripts_[std::min(index, scripts_.size() - 1)];
        std::lock_guard<std::mutex> lock(mutex_);
        clientFds_.push_back(fd);
        workers_.emplace_back([this, script, fd] {
            script(*this, fd);
            shutdown(fd, SHUT_RDWR);
        });
    }
}

bool ScriptedPeer::ReadRequest(int fd) {
    std::string request(REQUEST_LENGTH, '\0');
    size_t got = 0;
    while (got < request.size()) {
        ssize_t n = read(fd, &request[got], request.size() - got);
        if (n <= 0) {
            return false;
        }
        got += static_cast<size_t>(n);
    }
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(std::move(request));
    return true;
}

void ScriptedPeer::Send(int fd, const std::string &bytes) {
    (void)!send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
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

std::string ReplyHeader(int32_t result, int32_t errCode, int32_t pkgNum) {
    int32_t fields[3] = {result, errCode, pkgNum};
    return std::string(reinterpret_cast<const char *>(fields), sizeof(fields));
}

std::string Package(int32_t pkgNum, int32_t pkgIndex, const std::string &text) {
    std::string package(4096, '\0');
    std::memcpy(&package[0], &pkgNum, sizeof(pkgNum));
    std::memcpy(&package[4], &pkgIndex, sizeof(pkgIndex));
    package.replace(8, std::min<size_t>(text.size(), 4088), text, 0, 4088);
    return package;
}

ScriptedPeer::Script AnswerEach(const std::string &reply) {
    return [reply](ScriptedPeer &peer, int fd) {
        while (peer.ReadRequest(fd)) {
            ScriptedPeer::Send(fd, reply);
        }
    };
}

ScriptedPeer::Script CloseAfterRequest() {
    return [](ScriptedPeer &peer, int fd) { peer.ReadRequest(fd); };
}

int32_t RequestType(const std::string &request) {
    int32_t value = 0;
    std::memcpy(&value, request.data(), sizeof(value));
    return value;
}

int32_t RequestRecurseOpt(const std::string &request) {
    int32_t value = 0;
    std::memcpy(&value, request.data() + 2132, sizeof(value));
    return value;
}

std::string RequestText(const std::string &request, size_t offset) {
    return std::string(request.c_str() + offset);
}

}  // namespace Zarvo::Testing
