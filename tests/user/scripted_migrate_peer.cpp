#include "scripted_migrate_peer.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace Zarvo::Testing {
namespace {

const char SOCKET_PATH[] = "/dev/unix/socket/file_migrate_ability";
constexpr size_t REQUEST_SIZE = 2388;
constexpr int32_t PREPARE_DIR = 3;

std::string Field(const char *request, size_t offset, size_t width) {
    return std::string(request + offset, strnlen(request + offset, width));
}

int32_t Int(const char *request, size_t offset) {
    int32_t value = 0;
    std::memcpy(&value, request + offset, sizeof(value));
    return value;
}

bool ReadFull(int fd, char *buffer, size_t length) {
    size_t done = 0;
    while (done < length) {
        ssize_t n = read(fd, buffer + done, length - done);
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

ScriptedMigratePeer::ScriptedMigratePeer(std::vector<int32_t> results)
    : results_(results.begin(), results.end()) {
    std::filesystem::create_directories(std::filesystem::path(SOCKET_PATH).parent_path());
    unlink(SOCKET_PATH);
    listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, SOCKET_PATH, sizeof(address.sun_path) - 1);
    if (listenFd_ < 0 || bind(listenFd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listenFd_, 8) != 0 || pipe(stopPipe_) != 0) {
        throw std::runtime_error("scripted migrate peer cannot listen on " + std::string(SOCKET_PATH));
    }
    thread_ = std::thread([this] { Serve(); });
}

ScriptedMigratePeer::~ScriptedMigratePeer() {
    (void)write(stopPipe_[1], "x", 1);
    thread_.join();
    close(listenFd_);
    close(stopPipe_[0]);
    close(stopPipe_[1]);
    unlink(SOCKET_PATH);
}

std::vector<MigrateRequest> ScriptedMigratePeer::Requests() {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

void ScriptedMigratePeer::Serve() {
    while (true) {
        pollfd fds[2] = {{listenFd_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
        if (poll(fds, 2, -1) < 0 || (fds[1].revents & POLLIN) != 0) {
            return;
        }
        int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd >= 0) {
            ServeConnection(fd);
            close(fd);
        }
    }
}

// Serves one connection until the client closes it; clients here send one request per connection
// or several in a row, never concurrently.
void ScriptedMigratePeer::ServeConnection(int fd) {
    char buffer[REQUEST_SIZE];
    while (ReadFull(fd, buffer, REQUEST_SIZE)) {
        MigrateRequest request;
        request.type = Int(buffer, 0);
        request.srcFilePath = Field(buffer, 4, 1024);
        request.dstFilePath = Field(buffer, 1028, 1024);
        request.uid = Field(buffer, 2052, 32);
        request.gid = Field(buffer, 2084, 32);
        request.perm = Field(buffer, 2116, 16);
        request.recurseOpt = Int(buffer, 2132);
        int32_t result = 0;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (!results_.empty()) {
                result = results_.front();
                results_.pop_front();
            }
            requests_.push_back(request);
        }
        if (result == 0 && request.type == PREPARE_DIR) {
            std::error_code error;
            std::filesystem::create_directories(request.srcFilePath, error);
        }
        int32_t header[3] = {result, 0, 0};
        if (write(fd, header, sizeof(header)) != static_cast<ssize_t>(sizeof(header))) {
            return;
        }
    }
}

}  // namespace Zarvo::Testing
