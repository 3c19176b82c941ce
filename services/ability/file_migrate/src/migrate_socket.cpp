#include "migrate_socket.h"

#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

#include "securec.h"
#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {

const std::string MIGRATE_SOCKET_PATH = "/dev/unix/socket/file_migrate_ability";

namespace {
constexpr int32_t SOCKET_RECV_BUF_SIZE = 10240;
constexpr time_t SOCKET_TIMEOUT_SECONDS = 3600;
}  // namespace

MigrateSocket::MigrateSocket() : socketFd(-1), serverAddr{} {
    serverAddr.sun_family = AF_UNIX;
}

MigrateSocket::~MigrateSocket() {
    CloseSocket();
}

void MigrateSocket::CloseSocket() {
    if (socketFd >= 0) {
        close(socketFd);
        socketFd = -1;
    }
}

int32_t MigrateSocket::CreateSocket() {
    int fd = -1;
    do {
        fd = socket(AF_UNIX, SOCK_STREAM, 0);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        socketFd = -1;
        PLUGIN_LOGE("create socket failed!");
        return -1;
    }
    socketFd = fd;
    SetSocketOpt();
    return 0;
}

void MigrateSocket::SetSocketOpt() {
    int32_t recvBufSize = SOCKET_RECV_BUF_SIZE;
    int ret = setsockopt(socketFd, SOL_SOCKET, SO_RCVBUF, &recvBufSize, sizeof(recvBufSize));
    if (ret < 0) {
        PLUGIN_LOGI("set SO_RCVBUF failed, err: %{public}d", ret);
    }
    struct timeval timeout = {SOCKET_TIMEOUT_SECONDS, 0};
    ret = setsockopt(socketFd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
    if (ret < 0) {
        PLUGIN_LOGI("set SO_RCVTIMEO failed, err: %{public}d", ret);
    }
    ret = setsockopt(socketFd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
    if (ret < 0) {
        PLUGIN_LOGI("set SO_SNDTIMEO failed, err: %{public}d", ret);
    }
}

int32_t MigrateSocket::PackSocketAddr() {
    serverAddr.sun_family = AF_UNIX;
    if (strcpy_s(serverAddr.sun_path, sizeof(serverAddr.sun_path), MIGRATE_SOCKET_PATH.c_str()) != EOK) {
        PLUGIN_LOGE("PackSocketAddr error");
        return -1;
    }
    return 0;
}

int32_t MigrateSocket::ConnectSocket(int32_t fd) {
    if (fd < 0) {
        PLUGIN_LOGE("Client: Invalid socket fd: %{public}d", fd);
        return -1;
    }
    (void)PackSocketAddr();
    if (connect(fd, reinterpret_cast<struct sockaddr *>(&serverAddr), sizeof(serverAddr)) != 0) {
        PLUGIN_LOGE("Client: Connect on socket fd %{public}d, failed: %{public}d", fd, errno);
        return -1;
    }
    return 0;
}

int32_t MigrateSocket::ConnectSocket() {
    int32_t ret = ConnectSocket(socketFd);
    if (ret != 0 && socketFd >= 0) {
        close(socketFd);
        socketFd = -1;
    }
    return ret;
}

int32_t MigrateSocket::WriteSocketMessage(const char *buf, int32_t len) {
    if (buf == nullptr || len < 1 || socketFd < 0) {
        PLUGIN_LOGE("Invalid args: socket %{public}d, len %{public}d, buf might be nullptr", socketFd, len);
        return -1;
    }
    // send without SIGPIPE: a service that has gone away must fail the write, not end the caller.
    ssize_t count = -1;
    do {
        count = send(socketFd, buf, static_cast<size_t>(len), MSG_NOSIGNAL);
    } while (count == -1 && errno == EINTR);
    if (count == len) {
        return len;
    }
    PLUGIN_LOGE("Write message from fd %{public}d error, wLen %{public}d,err %{public}d", socketFd,
                static_cast<int32_t>(count), errno);
    return static_cast<int32_t>(count);
}

int32_t MigrateSocket::ReadSocketMessage(char *buf, int32_t len) {
    if (buf == nullptr || len < 1 || socketFd < 0) {
        PLUGIN_LOGE("Invalid args: socket %{public}d, len %{public}d, buf might be nullptr", socketFd, len);
        return -1;
    }
    ssize_t count = -1;
    do {
        count = read(socketFd, buf, static_cast<size_t>(len));
    } while (count == -1 && errno == EINTR);
    if (count == len) {
        return len;
    }
    PLUGIN_LOGE("Read message from fd %{public}d error, len %{public}d, err %{public}d", socketFd,
                static_cast<int32_t>(count), errno);
    return static_cast<int32_t>(count);
}

int32_t MigrateSocket::GetSocketFd() const {
    return socketFd;
}

}  // namespace UpdateEngine
}  // namespace Zarvo
