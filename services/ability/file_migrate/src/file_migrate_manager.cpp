#include "file_migrate_manager.h"

#include "migrate_pause.h"
#include "migrate_wrapper_msg.h"
#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {

namespace {
constexpr int32_t SEND_ATTEMPTS = 4;
constexpr uint32_t RESEND_PAUSE_MS = 500;

bool IsCopyOrMove(FileMigrateType type) {
    return type == MOVE_SUB_FILE || type == MOVE_ALL_FILE || type == COPY_SUB_FILE || type == COPY_ALL_FILE;
}
}  // namespace

FileMigrateManager::FileMigrateManager() : client_(std::make_shared<FileMigrateClient>()) {}

FileMigrateManager::~FileMigrateManager() {
    client_.reset();
}

int32_t FileMigrateManager::SendFileMigrateMsg(FileMigrateType type, const std::string &src,
                                               const FileParam &param) {
    MigrateWrapperMsg msg;
    if (!msg.AssembleMsg(type, src, param)) {
        PLUGIN_LOGE("AssembleMsg failed!");
        return MIGRATE_ERR_INVALID_REQUEST;
    }
    int32_t ret = 0;
    for (int32_t attempt = 0; attempt < SEND_ATTEMPTS; ++attempt) {
        ret = client_->StartSendProcess(msg.GetMsgBuf(), msg.GetMsgLength());
        if (ret != MIGRATE_ERR_WRITE && ret != MIGRATE_ERR_READ) {
            return ret;
        }
        PLUGIN_LOGE("Communication broken recreate fd, initiate request, filepath : %{public}s",
                    param.dstFile.c_str());
        client_ = std::make_shared<FileMigrateClient>();
        g_migratePause(RESEND_PAUSE_MS);
    }
    return ret;
}

int32_t FileMigrateManager::IsFileExist(const std::string &path) {
    PLUGIN_LOGD("IsFileExist: %{public}s", path.c_str());
    return SendFileMigrateMsg(IS_FILE_EXIST, path, FileParam{});
}

int32_t FileMigrateManager::IsDir(const std::string &path) {
    PLUGIN_LOGD("IsDir: %{public}s", path.c_str());
    return SendFileMigrateMsg(IS_DIR, path, FileParam{});
}

int32_t FileMigrateManager::GetPathList(const std::string &path, std::vector<FilePath> &list) {
    PLUGIN_LOGD("GetPathList: %{public}s", path.c_str());
    MigrateWrapperMsg msg;
    if (!msg.AssembleMsg(GET_PATH_LIST, path, FileParam{})) {
        PLUGIN_LOGE("AssembleMsg failed!");
        return MIGRATE_ERR_INVALID_REQUEST;
    }
    auto client = std::make_shared<FileMigrateClient>();
    return client->StartSendProcess(msg.GetMsgBuf(), msg.GetMsgLength(), list);
}

int32_t FileMigrateManager::MkDir(const FileParam &param) {
    PLUGIN_LOGD("PrepareDir : %{public}s", param.dstFile.c_str());
    return SendFileMigrateMsg(PREPARE_DIR, param.dstFile, param);
}

int32_t FileMigrateManager::MoveSubFile(const std::string &src, const std::string &dst) {
    PLUGIN_LOGD("MoveSubFile src: %{public}s, dst: %{public}s", src.c_str(), dst.c_str());
    FileParam param{};
    param.dstFile = dst;
    return SendFileMigrateMsg(MOVE_SUB_FILE, src, param);
}

int32_t FileMigrateManager::MoveAllFile(const std::string &src, const std::string &dst) {
    PLUGIN_LOGD("MoveAllFile src: %{public}s, dst: %{public}s", src.c_str(), dst.c_str());
    FileParam param{};
    param.dstFile = dst;
    return SendFileMigrateMsg(MOVE_ALL_FILE, src, param);
}

int32_t FileMigrateManager::CopySubFile(const std::string &src, const std::string &dst) {
    PLUGIN_LOGD("CopySubFile src: %{public}s, dst: %{public}s", src.c_str(), dst.c_str());
    FileParam param{};
    param.dstFile = dst;
    return SendFileMigrateMsg(COPY_SUB_FILE, src, param);
}

int32_t FileMigrateManager::CopyAllFile(const std::string &src, const std::string &dst) {
    PLUGIN_LOGD("CopyAllFile src: %{public}s, dst: %{public}s", src.c_str(), dst.c_str());
    FileParam param{};
    param.dstFile = dst;
    return SendFileMigrateMsg(COPY_ALL_FILE, src, param);
}

int32_t FileMigrateManager::RemoveFile(const std::string &path) {
    PLUGIN_LOGD("RemoveFile : %{public}s", path.c_str());
    return SendFileMigrateMsg(REMOVE_FILE, path, FileParam{});
}

int32_t FileMigrateManager::RestoreCon(const std::string &path, RecurseOpt opt) {
    PLUGIN_LOGD("RestoreCon src: %{public}s, recurseOpt: %{public}d", path.c_str(),
                static_cast<int32_t>(opt));
    FileParam param{};
    param.recurseOpt = opt;
    return SendFileMigrateMsg(RESTORE_CON, path, param);
}

int32_t FileMigrateManager::RestoreconFromParent(const std::string &path) {
    PLUGIN_LOGD("RestoreconFromParent src: %{public}s, ", path.c_str());
    return SendFileMigrateMsg(RESTORECON_FROM_PARENT, path, FileParam{});
}

int32_t FileMigrateManager::TryRemove(const std::string &path) {
    PLUGIN_LOGD("TryRemove : %{public}s", path.c_str());
    return SendFileMigrateMsg(TRY_REMOVE, path, FileParam{});
}

int32_t FileMigrateManager::MkDir(const std::string &path, RecurseOpt opt) {
    PLUGIN_LOGD("MkDir : %{public}s", path.c_str());
    FileParam param{};
    param.recurseOpt = opt;
    return SendFileMigrateMsg(MK_DIR, path, param);
}

int32_t FileMigrateManager::Chown(const std::string &path, const std::string &uid, const std::string &gid,
                                  RecurseOpt opt) {
    PLUGIN_LOGD("chown : %{public}s", path.c_str());
    FileParam param{};
    param.uid = uid;
    param.gid = gid;
    param.recurseOpt = opt;
    return SendFileMigrateMsg(CHOWN, path, param);
}

int32_t FileMigrateManager::Chmod(const std::string &path, const std::string &perm, RecurseOpt opt) {
    PLUGIN_LOGD("chmod : %{public}s", path.c_str());
    FileParam param{};
    param.perm = perm;
    param.recurseOpt = opt;
    return SendFileMigrateMsg(CHMOD, path, param);
}

int32_t FileMigrateManager::GetExistDirectory(const std::string &path, std::string &dir) {
    PLUGIN_LOGD("GetExistDirectory: %{public}s", path.c_str());
    MigrateWrapperMsg msg;
    if (!msg.AssembleMsg(GET_EXIST_DIRECTORY, path, FileParam{})) {
        PLUGIN_LOGE("AssembleMsg failed!");
        return MIGRATE_ERR_INVALID_REQUEST;
    }
    std::vector<FilePath> list;
    auto client = std::make_shared<FileMigrateClient>();
    int32_t ret = client->StartSendProcess(msg.GetMsgBuf(), msg.GetMsgLength(), list);
    if (!list.empty()) {
        dir = list.front().path;
    }
    return ret;
}

int32_t FileMigrateManager::GetPathSize(const std::string &path) {
    PLUGIN_LOGD("GetPathSize : %{public}s", path.c_str());
    return SendFileMigrateMsg(GET_PATH_SIZE, path, FileParam{});
}

int32_t FileMigrateManager::MoveSubFile(const std::string &src, const FileParam &param) {
    PLUGIN_LOGD("Compose MoveSubFile src: %{public}s, dst: %{public}s", src.c_str(), param.dstFile.c_str());
    return MigrateFileByFileParam(MOVE_SUB_FILE, src, param);
}

int32_t FileMigrateManager::MoveAllFile(const std::string &src, const FileParam &param) {
    PLUGIN_LOGD("Compose MoveAllFile src: %{public}s, dst: %{public}s", src.c_str(), param.dstFile.c_str());
    return MigrateFileByFileParam(MOVE_ALL_FILE, src, param);
}

int32_t FileMigrateManager::CopySubFile(const std::string &src, const FileParam &param) {
    PLUGIN_LOGD("Compose CopySubFile src: %{public}s, dst: %{public}s", src.c_str(), param.dstFile.c_str());
    return MigrateFileByFileParam(COPY_SUB_FILE, src, param);
}

int32_t FileMigrateManager::CopyAllFile(const std::string &src, const FileParam &param) {
    PLUGIN_LOGD("Compose CopyAllFile src: %{public}s, dst: %{public}s", src.c_str(), param.dstFile.c_str());
    return MigrateFileByFileParam(COPY_ALL_FILE, src, param);
}

int32_t FileMigrateManager::MigrateFileByFileParam(FileMigrateType type, const std::string &src,
                                                   const FileParam &param) {
    if (!IsCopyOrMove(type)) {
        PLUGIN_LOGE("Not Support cdmType");
        return MIGRATE_ERR_INVALID_REQUEST;
    }
    int32_t ret = 0;
    switch (type) {
        case MOVE_SUB_FILE:
            ret = MoveSubFile(src, param.dstFile);
            break;
        case MOVE_ALL_FILE:
            ret = MoveAllFile(src, param.dstFile);
            break;
        case COPY_SUB_FILE:
            ret = CopySubFile(src, param.dstFile);
            break;
        default:
            ret = CopyAllFile(src, param.dstFile);
            break;
    }
    if (ret != 0) {
        PLUGIN_LOGE("MigrateFile src: %{public}s, dest: %{public}s result %{public}d", src.c_str(),
                    param.dstFile.c_str(), ret);
        return ret;
    }
    if (!param.uid.empty() && !param.gid.empty()) {
        ret = Chown(param.dstFile, param.uid, param.gid, RECURSE_ALL);
        if (ret != 0) {
            PLUGIN_LOGE("Chown path: %{public}s result %{public}d", param.dstFile.c_str(), ret);
            return ret;
        }
    }
    if (!param.perm.empty()) {
        return Chmod(param.dstFile, param.perm, RECURSE_ALL);
    }
    return 0;
}

}  // namespace UpdateEngine
}  // namespace Zarvo
