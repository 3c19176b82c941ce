#ifndef FILE_MIGRATE_MANAGER_H
#define FILE_MIGRATE_MANAGER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "file_migrate_client.h"
#include "file_migrate_types.h"

namespace Zarvo {
namespace UpdateEngine {

// The request could not be assembled, or a composed operation got a type it does not support.
constexpr int32_t MIGRATE_ERR_INVALID_REQUEST = 0x05200002;

// File operations done by the migrate service, one request each. Every operation returns 0 on
// success, else the service's result or a MIGRATE_ERR_* code. A broken exchange is sent again on
// a fresh connection.
class FileMigrateManager {
public:
    FileMigrateManager();
    ~FileMigrateManager();
    FileMigrateManager(const FileMigrateManager &) = delete;
    FileMigrateManager &operator=(const FileMigrateManager &) = delete;

    int32_t IsFileExist(const std::string &path);
    int32_t IsDir(const std::string &path);
    int32_t GetPathList(const std::string &path, std::vector<FilePath> &list);
    // Prepares param.dstFile as a directory with param's owner, group, mode and recursion option.
    int32_t MkDir(const FileParam &param);
    int32_t MoveSubFile(const std::string &src, const std::string &dst);
    int32_t MoveAllFile(const std::string &src, const std::string &dst);
    int32_t CopySubFile(const std::string &src, const std::string &dst);
    int32_t CopyAllFile(const std::string &src, const std::string &dst);
    int32_t RemoveFile(const std::string &path);
    int32_t RestoreCon(const std::string &path, RecurseOpt opt);
    int32_t RestoreconFromParent(const std::string &path);
    int32_t TryRemove(const std::string &path);
    int32_t MkDir(const std::string &path, RecurseOpt opt);
    int32_t Chown(const std::string &path, const std::string &uid, const std::string &gid, RecurseOpt opt);
    int32_t Chmod(const std::string &path, const std::string &perm, RecurseOpt opt);
    int32_t GetExistDirectory(const std::string &path, std::string &dir);
    int32_t GetPathSize(const std::string &path);

    // Copy or move to param.dstFile, then set its owner (when uid and gid are both given) and
    // its mode (when perm is given), recursively.
    int32_t MoveSubFile(const std::string &src, const FileParam &param);
    int32_t MoveAllFile(const std::string &src, const FileParam &param);
    int32_t CopySubFile(const std::string &src, const FileParam &param);
    int32_t CopyAllFile(const std::string &src, const FileParam &param);

    int32_t SendFileMigrateMsg(FileMigrateType type, const std::string &src, const FileParam &param);
    int32_t MigrateFileByFileParam(FileMigrateType type, const std::string &src, const FileParam &param);

private:
    std::shared_ptr<FileMigrateClient> client_;
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // FILE_MIGRATE_MANAGER_H
