#ifndef TESTS_USER_SCRIPTED_MIGRATE_PEER_H
#define TESTS_USER_SCRIPTED_MIGRATE_PEER_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Zarvo::Testing {

// A request as it arrived on the migrate socket.
struct MigrateRequest {
    int32_t type = -1;
    std::string srcFilePath;
    std::string dstFilePath;
    std::string uid;
    std::string gid;
    std::string perm;
    int32_t recurseOpt = -1;
};

// Listens on the migrate service's socket and answers every request with the next scripted
// result (0 once the script is used up). A PREPARE_DIR answered with 0 creates the directory,
// so the caller can go on using it.
class ScriptedMigratePeer {
public:
    explicit ScriptedMigratePeer(std::vector<int32_t> results = {});
    ~ScriptedMigratePeer();
    ScriptedMigratePeer(const ScriptedMigratePeer &) = delete;
    ScriptedMigratePeer &operator=(const ScriptedMigratePeer &) = delete;

    std::vector<MigrateRequest> Requests();

private:
    void Serve();
    void ServeConnection(int fd);

    int listenFd_ = -1;
    int stopPipe_[2] = {-1, -1};
    std::mutex mutex_;
    std::deque<int32_t> results_;
    std::vector<MigrateRequest> requests_;
    std::thread thread_;
};

}  // namespace Zarvo::Testing

#endif  // TESTS_USER_SCRIPTED_MIGRATE_PEER_H
