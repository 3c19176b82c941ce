#ifndef TESTS_MIGRATE_SERVICE_MIGRATE_PEERS_H
#define TESTS_MIGRATE_SERVICE_MIGRATE_PEERS_H

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "migrate_service/migrate_protocol.h"

// Both ends of the migrate socket for tests, written byte by byte and independent of the
// plug-in's client and of the service's own encoder.
namespace Zarvo::Testing {

inline const std::string MIGRATE_SOCKET = "/dev/unix/socket/file_migrate_ability";

Host::MigrateRequest Request(Host::MigrateOp op, const std::string &src, const std::string &dst = "");
std::string RequestBytes(const Host::MigrateRequest &request);
// "type|recurseOpt|src|dst|uid|gid|perm|reserved", read from request bytes.
std::string RequestSummary(const std::string &bytes);
std::string ReplyHeader(int32_t result, int32_t errCode, int32_t pkgNum);
std::string Package(int32_t pkgNum, int32_t pkgIndex, const std::string &text);
bool ReadFull(int fd, char *buf, size_t length);

struct RawReply {
    bool complete = false;  // header and every announced package arrived
    int32_t result = 0;
    int32_t errCode = 0;
    int32_t pkgNum = 0;
    std::vector<std::string> texts;
};

// The client end: one connection to the socket.
class RawConnection {
public:
    RawConnection();
    ~RawConnection();
    RawConnection(const RawConnection &) = delete;
    RawConnection &operator=(const RawConnection &) = delete;

    bool Connected() const { return fd_ >= 0; }
    bool SendBytes(const std::string &bytes);
    RawReply Receive();
    RawReply Exchange(const Host::MigrateRequest &request) {
        return SendBytes(RequestBytes(request)) ? Receive() : RawReply{};
    }
    // True when the other end has closed the connection.
    bool PeerClosed();
    // Waits (up to 5 s) until the other end has read every byte sent; false if it has not.
    bool WaitUntilRead();

private:
    int fd_ = -1;
};

// A request on a connection of its own.
RawReply Exchange(const Host::MigrateRequest &request);

// The service end: each accepted connection runs the script of its index (the last script serves
// any further connections) on a thread of its own; the requests read are kept.
class ScriptedPeer {
public:
    using Script = std::function<void(ScriptedPeer &peer, int fd)>;

    explicit ScriptedPeer(std::vector<Script> scripts);
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer &) = delete;
    ScriptedPeer &operator=(const ScriptedPeer &) = delete;

    // False when the connection ended before a whole request arrived.
    bool ReadRequest(int fd);
    // Sends and waits until the client has read every byte, so the next bytes need a read of their own.
    void SendAndWaitRead(int fd, const std::string &bytes);
    std::vector<std::string> Requests() const;
    int Connections() const;

private:
    std::vector<Script> scripts_;
    int listenFd_ = -1;
    std::thread acceptThread_;
    mutable std::mutex mutex_;
    std::vector<std::thread> workers_;
    std::vector<int> clientFds_;
    std::vector<std::string> requests_;
};

void Send(int fd, const std::string &bytes);
// Answers each request with the next reply; the last one answers all further requests.
ScriptedPeer::Script Answers(std::vector<std::string> replies);
ScriptedPeer::Script CloseAfterRequest();

}  // namespace Zarvo::Testing

#endif  // TESTS_MIGRATE_SERVICE_MIGRATE_PEERS_H
