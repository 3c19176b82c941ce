#ifndef TESTS_FILE_MIGRATE_SCRIPTED_PEER_H
#define TESTS_FILE_MIGRATE_SCRIPTED_PEER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Zarvo::Testing {

// A stand-in for the migrate service on the device socket path. Each accepted connection runs
// the script of its index (the last script serves any further connections) on its own thread.
class ScriptedPeer {
public:
    using Script = std::function<void(ScriptedPeer &peer, int fd)>;

    explicit ScriptedPeer(std::vector<Script> scripts);
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer &) = delete;
    ScriptedPeer &operator=(const ScriptedPeer &) = delete;

    // Reads one whole request and keeps it; false when the connection ended first.
    bool ReadRequest(int fd);
    // Sends bytes and waits until the client has read every one of them, so that the next
    // bytes arrive in a read of their own.
    void SendAndWaitRead(int fd, const std::string &bytes);
    static void Send(int fd, const std::string &bytes);

    std::vector<std::string> Requests() const;
    int Connections() const { return connections_.load(); }

private:
    void AcceptLoop();

    std::vector<Script> scripts_;
    int listenFd_ = -1;
    int stopFd_ = -1;
    std::thread acceptThread_;
    std::vector<std::thread> workers_;
    std::vector<int> clientFds_;
    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::atomic<int> connections_{0};
};

std::string ReplyHeader(int32_t result, int32_t errCode, int32_t pkgNum);
std::string Package(int32_t pkgNum, int32_t pkgIndex, const std::string &text);

// Scripts: answer every request with `header`; read one request and close without a reply.
ScriptedPeer::Script AnswerEach(const std::string &reply);
ScriptedPeer::Script CloseAfterRequest();

// Fields of a recorded request.
int32_t RequestType(const std::string &request);
int32_t RequestRecurseOpt(const std::string &request);
std::string RequestText(const std::string &request, size_t offset);

}  // namespace Zarvo::Testing

#endif  // TESTS_FILE_MIGRATE_SCRIPTED_PEER_H
