#include "migrate_wrapper_msg.h"

#include <cstdlib>
#include <cstring>

#include "securec.h"
#include "update_log.h"

namespace Zarvo {
namespace UpdateEngine {

MigrateWrapperMsg::MigrateWrapperMsg() {
    msgBuf = static_cast<char *>(malloc(MIGRATE_MSG_BUF_SIZE));
    if (msgBuf == nullptr) {
        PLUGIN_LOGE("failed to malloc!");
    }
}

MigrateWrapperMsg::~MigrateWrapperMsg() {
    FreeMsg();
}

void MigrateWrapperMsg::FreeMsg() {
    if (msgBuf != nullptr) {
        free(msgBuf);
        msgBuf = nullptr;
    }
}

bool MigrateWrapperMsg::VerifyMsg(FileMigrateType type, const std::string &src, const FileParam &param) {
    if (src.empty()) {
        PLUGIN_LOGE("invalid srcFile!");
        return false;
    }
    bool needsDst =
        type == MOVE_SUB_FILE || type == MOVE_ALL_FILE || type == COPY_SUB_FILE || type == COPY_ALL_FILE;
    if (needsDst && param.dstFile.empty()) {
        PLUGIN_LOGE("invalid dstFile!");
        return false;
    }
    if (type == CHOWN && param.uid.empty() && param.gid.empty()) {
        PLUGIN_LOGE("invalid gid uid!");
        return false;
    }
    if (type == CHMOD && param.perm.empty()) {
        PLUGIN_LOGE("invalid perm!");
        return false;
    }
    return true;
}

bool MigrateWrapperMsg::AssembleMsg(FileMigrateType type, const std::string &src, const FileParam &param) {
    if (!VerifyMsg(type, src, param)) {
        return false;
    }
    if (msgBuf == nullptr) {
        PLUGIN_LOGE("failed to malloc!");
        return false;
    }
    if (memset_s(msgBuf, MIGRATE_MSG_BUF_SIZE, 0, MIGRATE_MSG_BUF_SIZE) != EOK) {
        PLUGIN_LOGE("failed to memset!");
        return false;
    }
    int32_t typeValue = type;
    int32_t recurseValue = param.recurseOpt;
    std::memcpy(msgBuf + MSG_TYPE_OFFSET, &typeValue, sizeof(typeValue));
    std::memcpy(msgBuf + MSG_RECURSE_OPT_OFFSET, &recurseValue, sizeof(recurseValue));

    if (strcpy_s(msgBuf + MSG_SRC_PATH_OFFSET, MSG_PATH_WIDTH, src.c_str()) != EOK) {
        PLUGIN_LOGE("failed to transform srcFilePath!");
        return false;
    }
    if (strcpy_s(msgBuf + MSG_UID_OFFSET, MSG_ID_WIDTH, param.uid.c_str()) != EOK) {
        PLUGIN_LOGE("failed to transform uid!");
        return false;
    }
    if (strcpy_s(msgBuf + MSG_GID_OFFSET, MSG_ID_WIDTH, param.gid.c_str()) != EOK) {
        PLUGIN_LOGE("failed to transform gid!");
        return false;
    }
    if (strcpy_s(msgBuf + MSG_PERM_OFFSET, MSG_PERM_WIDTH, param.perm.c_str()) != EOK) {
        PLUGIN_LOGE("failed to transform perm!");
        return false;
    }
    if (strcpy_s(msgBuf + MSG_DST_PATH_OFFSET, MSG_PATH_WIDTH, param.dstFile.c_str()) != EOK) {
        PLUGIN_LOGE("failed to transform dstFilePath!");
        return false;
    }
    if (strcpy_s(msgBuf + MSG_RESERVED_OFFSET, MSG_RESERVED_WIDTH, param.reserved.c_str()) != EOK) {
        PLUGIN_LOGE("failed to transform reserved!");
        return false;
    }
    return true;
}

const char *MigrateWrapperMsg::GetMsgBuf() const {
    return msgBuf;
}

int32_t MigrateWrapperMsg::GetMsgLength() const {
    return MIGRATE_MSG_LENGTH;
}

}  // namespace UpdateEngine
}  // namespace Zarvo
