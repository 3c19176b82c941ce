#ifndef TESTS_MIGRATE_SERVICE_RAW_MIGRATE_CLIENT_H
#define TESTS_MIGRATE_SERVICE_RAW_MIGRATE_CLIENT_H

#include <cstdint>
#include <string>
#include <vector>

#include "migrate_service/migrate_protocol.h"

namespace Zarvo::Testing {

// A request written byte by byte, independently of the plug-in's client.
struct RawRequest {
    int32_t type = 0;
    std::string src;
    std::string dst;
    std::string uid;
    std::string gid;
    std::string perm;
    int32_t recurseOpt = 0;
    std::string reserved;

    std::string Bytes() const;
};

struct RawReply {
    bool complete = false;  // header and every announced package arrived
    int32_t result = 0;
    int32_t errCode = 0;
    int32_t pkgNum = 0;
    std::vector<std::string> texts;
};

// One connection to the service's socket.
class RawConnection {
public:
    explicit RawConnection(const std::string &socketPath = "/dev/unix/socket/file_migrate_ability");
    ~RawConnection();
    RawConnection(const RawConnection &) = delete;
    RawConnection &operator=(const RawConnection &) = delete;

    bool Connected() const { return fd_ >= 0; }
    bool SendBytes(const std::string &bytes);
    RawReply Receive();
    RawReply Exchange(const RawRequest &request);
    // True when the service has closed the connection (a read sees the end of the stream).
    bool PeerClosed();

private:
    int fd_ = -1;
};

// A request on a connection of its own.
RawReply Exchange(const RawRequest &request);

}  // namespace Zarvo::Testing

#endif  // TESTS_MIGRATE_SERVICE_RAW_MIGRATE_CLIENT_H
