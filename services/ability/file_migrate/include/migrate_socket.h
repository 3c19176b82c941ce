#ifndef MIGRATE_SOCKET_H
#define MIGRATE_SOCKET_H

#include <sys/socket.h>
#include <sys/un.h>

#include <cstdint>
#include <string>

namespace Zarvo {
namespace UpdateEngine {

extern const std::string MIGRATE_SOCKET_PATH;

// One blocking local stream socket to the migrate service. A write or read that moves fewer
// bytes than asked is an error; nothing is continued or retried except on EINTR.
class MigrateSocket {
public:
    MigrateSocket();
    ~MigrateSocket();
    MigrateSocket(const MigrateSocket &) = delete;
    MigrateSocket &operator=(const MigrateSocket &) = delete;

    int32_t CreateSocket();
    void SetSocketOpt();
    int32_t PackSocketAddr();
    int32_t ConnectSocket(int32_t fd);
    int32_t ConnectSocket();
    int32_t WriteSocketMessage(const char *buf, int32_t len);
    int32_t ReadSocketMessage(char *buf, int32_t len);
    void CloseSocket();
    int32_t GetSocketFd() const;

private:
    int32_t socketFd;
    struct sockaddr_un serverAddr;
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // MIGRATE_SOCKET_H
