#ifndef MIGRATE_SERVICE_MIGRATE_PROTOCOL_H
#define MIGRATE_SERVICE_MIGRATE_PROTOCOL_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Zarvo::Host {

// The service's side of the socket protocol: fixed-size requests, a 12-byte reply header and
// optional 4096-byte packages carrying a comma-separated path list.
enum class MigrateOp : int32_t {
    IS_FILE_EXIST = 0,
    IS_DIR = 1,
    GET_PATH_LIST = 2,
    PREPARE_DIR = 3,
    MOVE_SUB_FILE = 4,
    MOVE_ALL_FILE = 5,
    COPY_SUB_FILE = 6,
    COPY_ALL_FILE = 7,
    REMOVE_FILE = 8,
    RESTORE_CON = 9,
    RESTORECON_FROM_PARENT = 10,
    TRY_REMOVE = 11,
    MK_DIR = 12,
    CHOWN = 13,
    CHMOD = 14,
    GET_EXIST_DIRECTORY = 15,
    GET_PATH_SIZE = 16,
};
constexpr int32_t MIGRATE_OP_COUNT = 17;

// The operation's name as the journal and fault descriptions write it; "UNKNOWN" outside the range.
std::string MigrateOpName(int32_t type);
// The value for a name written as MigrateOpName gives it; nullopt for an unknown name.
std::optional<int32_t> MigrateOpFromName(const std::string &name);

constexpr size_t REQUEST_LENGTH = 2388;
// Where the fields of a request lie: the two integers, and each text field's offset and width.
constexpr size_t REQUEST_TYPE_OFFSET = 0;
constexpr size_t REQUEST_SRC_OFFSET = 4;
constexpr size_t REQUEST_DST_OFFSET = 1028;
constexpr size_t REQUEST_PATH_WIDTH = 1024;
constexpr size_t REQUEST_UID_OFFSET = 2052;
constexpr size_t REQUEST_GID_OFFSET = 2084;
constexpr size_t REQUEST_ID_WIDTH = 32;
constexpr size_t REQUEST_PERM_OFFSET = 2116;
constexpr size_t REQUEST_PERM_WIDTH = 16;
constexpr size_t REQUEST_RECURSE_OPT_OFFSET = 2132;
constexpr size_t REQUEST_RESERVED_OFFSET = 2136;
constexpr size_t REQUEST_RESERVED_WIDTH = 252;
constexpr size_t REPLY_HEADER_LENGTH = 12;
constexpr size_t PACKAGE_LENGTH = 4096;
constexpr size_t PACKAGE_TEXT_WIDTH = 4088;

struct MigrateRequest {
    int32_t type = 0;
    std::string src;
    std::string dst;
    std::string uid;
    std::string gid;
    std::string perm;
    int32_t recurseOpt = 0;
    std::string reserved;
};

// Decodes one request. Returns false, and names the first field that is not NUL-terminated in
// `badField`, when a text field fills its whole width; `request` then holds what was decoded.
bool DecodeRequest(const unsigned char (&buf)[REQUEST_LENGTH], MigrateRequest &request,
                   std::string &badField);

struct MigrateReply {
    int32_t result = 0;
    int32_t errCode = 0;
    std::vector<std::string> packageTexts;  // one text per package, each at most 4087 bytes
};

// The reply header followed by its packages, as bytes ready to send.
std::string EncodeReply(const MigrateReply &reply);

// Packs path-list entries into package texts: entries joined by ",", an entry never split across
// packages. Fails when one entry alone does not fit a package.
bool PackPathList(const std::vector<std::string> &entries, std::vector<std::string> &texts);

}  // namespace Zarvo::Host

#endif  // MIGRATE_SERVICE_MIGRATE_PROTOCOL_H
