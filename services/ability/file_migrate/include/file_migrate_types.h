#ifndef FILE_MIGRATE_TYPES_H
#define FILE_MIGRATE_TYPES_H

#include <cstdint>
#include <string>

namespace Zarvo {
namespace UpdateEngine {

// The operation a request asks of the migrate service; the value is the request's first field.
enum FileMigrateType : int32_t {
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

// How far an operation reaches; passed to the service untouched.
enum RecurseOpt : int32_t {
    RECURSE_NONE = 0,      // the path itself only
    RECURSE_CONTENTS = 1,  // everything below the path, not the path itself
    RECURSE_ALL = 2,       // the path and everything below it
};

// Parameters of one request. Every field is optional; which ones matter depends on the operation.
struct FileParam {
    RecurseOpt recurseOpt = RECURSE_NONE;
    std::string uid;       // decimal user id or user name, at most 31 bytes
    std::string gid;       // decimal group id or group name, at most 31 bytes
    std::string perm;      // octal mode such as "0700", at most 15 bytes
    std::string dstFile;   // destination of a copy or move, or the directory to prepare; at most 1023 bytes
    std::string reserved;  // at most 251 bytes
};

// One entry of a path list carried by a reply.
struct FilePath {
    std::string path;
    int32_t kind = 0;  // 0: no ":" suffix; 1: a suffix other than "1"; 2: the suffix "1"
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // FILE_MIGRATE_TYPES_H
