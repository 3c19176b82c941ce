#ifndef MIGRATE_WRAPPER_MSG_H
#define MIGRATE_WRAPPER_MSG_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "file_migrate_types.h"

namespace Zarvo {
namespace UpdateEngine {

// Layout of the fixed-size request: offset and width of every field.
constexpr size_t MSG_TYPE_OFFSET = 0;
constexpr size_t MSG_SRC_PATH_OFFSET = 4;
constexpr size_t MSG_DST_PATH_OFFSET = 1028;
constexpr size_t MSG_UID_OFFSET = 2052;
constexpr size_t MSG_GID_OFFSET = 2084;
constexpr size_t MSG_PERM_OFFSET = 2116;
constexpr size_t MSG_RECURSE_OPT_OFFSET = 2132;
constexpr size_t MSG_RESERVED_OFFSET = 2136;
constexpr size_t MSG_PATH_WIDTH = 1024;
constexpr size_t MSG_ID_WIDTH = 32;
constexpr size_t MSG_PERM_WIDTH = 16;
constexpr size_t MSG_RESERVED_WIDTH = 252;
constexpr int32_t MIGRATE_MSG_LENGTH = 2388;
// One byte more than is ever sent.
constexpr size_t MIGRATE_MSG_BUF_SIZE = 2389;

// One request to the migrate service, validated and laid out byte for byte in a heap buffer.
class MigrateWrapperMsg {
public:
    MigrateWrapperMsg();
    ~MigrateWrapperMsg();
    MigrateWrapperMsg(const MigrateWrapperMsg &) = delete;
    MigrateWrapperMsg &operator=(const MigrateWrapperMsg &) = delete;

    bool VerifyMsg(FileMigrateType type, const std::string &src, const FileParam &param);
    bool AssembleMsg(FileMigrateType type, const std::string &src, const FileParam &param);
    void FreeMsg();
    const char *GetMsgBuf() const;
    int32_t GetMsgLength() const;

private:
    char *msgBuf = nullptr;
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // MIGRATE_WRAPPER_MSG_H
