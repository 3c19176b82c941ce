#include "migrate_service/migrate_protocol.h"

#include <array>
#include <cstring>

namespace Zarvo::Host {

namespace {
constexpr std::array<const char *, MIGRATE_OP_COUNT> OP_NAMES = {
    "IS_FILE_EXIST",          "IS_DIR",        "GET_PATH_LIST", "PREPARE_DIR", "MOVE_SUB_FILE",
    "MOVE_ALL_FILE",          "COPY_SUB_FILE", "COPY_ALL_FILE", "REMOVE_FILE", "RESTORE_CON",
    "RESTORECON_FROM_PARENT", "TRY_REMOVE",    "MK_DIR",        "CHOWN",       "CHMOD",
    "GET_EXIST_DIRECTORY",    "GET_PATH_SIZE",
};

struct TextField {
    const char *name;
    size_t offset;
    size_t width;
    std::string MigrateRequest::*member;
};

// In wire order, so the first unterminated field named is the first one on the wire.
constexpr std::array<TextField, 6> TEXT_FIELDS = {{
    {"srcFilePath", REQUEST_SRC_OFFSET, REQUEST_PATH_WIDTH, &MigrateRequest::src},
    {"dstFilePath", REQUEST_DST_OFFSET, REQUEST_PATH_WIDTH, &MigrateRequest::dst},
    {"uid", REQUEST_UID_OFFSET, REQUEST_ID_WIDTH, &MigrateRequest::uid},
    {"gid", REQUEST_GID_OFFSET, REQUEST_ID_WIDTH, &MigrateRequest::gid},
    {"perm", REQUEST_PERM_OFFSET, REQUEST_PERM_WIDTH, &MigrateRequest::perm},
    {"reserved", REQUEST_RESERVED_OFFSET, REQUEST_RESERVED_WIDTH, &MigrateRequest::reserved},
}};

void PutInt32(std::string &out, int32_t value) {
    char bytes[sizeof(value)];
    std::memcpy(bytes, &value, sizeof(value));
    out.append(bytes, sizeof(bytes));
}
}  // namespace

std::string MigrateOpName(int32_t type) {
    if (type < 0 || type >= MIGRATE_OP_COUNT) {
        return "UNKNOWN";
    }
    return OP_NAMES[static_cast<size_t>(type)];
}

std::optional<int32_t> MigrateOpFromName(const std::string &name) {
    for (size_t i = 0; i < OP_NAMES.size(); ++i) {
        if (name == OP_NAMES[i]) {
            return static_cast<int32_t>(i);
        }
    }
    return std::nullopt;
}

bool DecodeRequest(const unsigned char (&buf)[REQUEST_LENGTH], MigrateRequest &request,
                   std::string &badField) {
    std::memcpy(&request.type, buf + REQUEST_TYPE_OFFSET, sizeof(request.type));
    std::memcpy(&request.recurseOpt, buf + REQUEST_RECURSE_OPT_OFFSET, sizeof(request.recurseOpt));
    bool terminated = true;
    for (const TextField &field : TEXT_FIELDS) {
        const char *start = reinterpret_cast<const char *>(buf + field.offset);
        size_t length = strnlen(start, field.width);
        if (length == field.width && terminated) {
            terminated = false;
            badField = field.name;
        }
        (request.*field.member).assign(start, length);
    }
    return terminated;
}

std::string EncodeReply(const MigrateReply &reply) {
    std::string out;
    int32_t pkgNum = static_cast<int32_t>(reply.packageTexts.size());
    out.reserve(REPLY_HEADER_LENGTH + reply.packageTexts.size() * PACKAGE_LENGTH);
    PutInt32(out, reply.result);
    PutInt32(out, reply.errCode);
    PutInt32(out, pkgNum);
    for (int32_t index = 0; index < pkgNum; ++index) {
        const std::string &text = reply.packageTexts[static_cast<size_t>(index)];
        size_t start = out.size();
        PutInt32(out, pkgNum);
        PutInt32(out, index);
        out.append(text, 0, PACKAGE_TEXT_WIDTH - 1);
        out.resize(start + PACKAGE_LENGTH, '\0');
    }
    return out;
}

bool PackPathList(const std::vector<std::string> &entries, std::vector<std::string> &texts) {
    constexpr size_t capacity = PACKAGE_TEXT_WIDTH - 1;
    std::string current;
    bool currentUsed = false;
    for (const std::string &entry : entries) {
        if (entry.size() > capacity) {
            return false;
        }
        if (currentUsed && current.size() + 1 + entry.size() > capacity) {
            texts.push_back(std::move(current));
            current.clear();
            currentUsed = false;
        }
        if (currentUsed) {
            current += ',';
        }
        current += entry;
        currentUsed = true;
    }
    if (currentUsed) {
        texts.push_back(std::move(current));
    }
    return true;
}

}  // namespace Zarvo::Host
