#ifndef FILE_MIGRATE_CLIENT_H
#define FILE_MIGRATE_CLIENT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "file_migrate_types.h"
#include "migrate_socket.h"

namespace Zarvo {
namespace UpdateEngine {

// Transport failures, returned instead of a service result.
constexpr int32_t MIGRATE_ERR_CONNECT = 0x05210002;
constexpr int32_t MIGRATE_ERR_CREATE_SOCKET = 0x05210003;
constexpr int32_t MIGRATE_ERR_NO_SOCKET = 0x05210004;
constexpr int32_t MIGRATE_ERR_WRITE = 0x05210005;
constexpr int32_t MIGRATE_ERR_READ = 0x05210006;
constexpr int32_t MIGRATE_ERR_PACKAGES = 0x05210007;

// The reply header that follows every request.
struct MigrateReplyHeader {
    int32_t result;
    int32_t errCode;
    int32_t pkgNum;
};
constexpr int32_t MIGRATE_REPLY_HEADER_LENGTH = 12;
static_assert(sizeof(MigrateReplyHeader) == MIGRATE_REPLY_HEADER_LENGTH, "reply header is 12 bytes");

// One package of a path list; pkgNum of them follow the header.
constexpr size_t MIGRATE_PKG_TEXT_WIDTH = 4088;
struct MigratePackage {
    int32_t pkgNum;
    int32_t pkgIndex;
    char pkgText[MIGRATE_PKG_TEXT_WIDTH];
};
constexpr int32_t MIGRATE_PACKAGE_LENGTH = 4096;
static_assert(sizeof(MigratePackage) == MIGRATE_PACKAGE_LENGTH, "package is 4096 bytes");

enum MigrateConnectState : int32_t {
    DISCONNECTED = 0,
    CONNECTED = 1,
    CONNECT_FAILED = 2,
};

// Request/reply exchanges with the migrate service over one lazily opened connection.
class FileMigrateClient {
public:
    FileMigrateClient();
    ~FileMigrateClient();
    FileMigrateClient(const FileMigrateClient &) = delete;
    FileMigrateClient &operator=(const FileMigrateClient &) = delete;

    void SetSocket(std::shared_ptr<MigrateSocket> socket);
    void CloseConnection();
    int32_t OpenConnection();
    int32_t OpenMigrateConnection();
    int32_t StartSendProcess(const char *buf, int32_t len);
    int32_t StartSendProcess(const char *buf, int32_t len, std::vector<FilePath> &list);
    int32_t StartSendProcessImpl(const char *buf, int32_t len, std::vector<FilePath> &list);
    int32_t GetAllPackagesMsg(int32_t pkgNum, std::vector<FilePath> &list);
    void SplitMessage(std::vector<std::string> texts, std::vector<FilePath> &list);

private:
    std::shared_ptr<MigrateSocket> socket_;
    int32_t connectState_;
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // FILE_MIGRATE_CLIENT_H
