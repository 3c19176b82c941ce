#include "owner_resolver.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <vector>

namespace Zarvo::Host {

const char *const MIGRATE_SERVER_ACCOUNT = "migrate_server";

namespace {
constexpr size_t MAX_ID_DIGITS = 10;
constexpr size_t NSS_BUFFER_SIZE = 16384;
constexpr mode_t PERMISSION_BITS = 0777;
constexpr mode_t SPECIAL_BITS = 07000;

// Decimal text of an id below the "no change" value (uint32 max); false for anything else.
bool ParseDecimalId(const std::string &text, uint32_t &id) {
    if (text.empty() || text.size() > MAX_ID_DIGITS) {
        return false;
    }
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + static_cast<uint64_t>(c - '0');
    }
    if (value >= UINT32_MAX) {
        return false;
    }
    id = static_cast<uint32_t>(value);
    return true;
}
}  // namespace

int ResolveUser(const std::string &text, uid_t &uid) {
    uint32_t id = 0;
    if (ParseDecimalId(text, id)) {
        uid = id;
        return 0;
    }
    if (text.empty()) {
        return EINVAL;
    }
    struct passwd entry {};
    struct passwd *found = nullptr;
    std::vector<char> buffer(NSS_BUFFER_SIZE);
    if (getpwnam_r(text.c_str(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
        uid = found->pw_uid;
        return 0;
    }
    if (text == MIGRATE_SERVER_ACCOUNT) {
        uid = geteuid();
        return 0;
    }
    return EINVAL;
}

int ResolveGroup(const std::string &text, gid_t &gid) {
    uint32_t id = 0;
    if (ParseDecimalId(text, id)) {
        gid = id;
        return 0;
    }
    if (text.empty()) {
        return EINVAL;
    }
    struct group entry {};
    struct group *found = nullptr;
    std::vector<char> buffer(NSS_BUFFER_SIZE);
    if (getgrnam_r(text.c_str(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
        gid = found->gr_gid;
        return 0;
    }
    if (text == MIGRATE_SERVER_ACCOUNT) {
        gid = getegid();
        return 0;
    }
    return EINVAL;
}

int ParseMode(const std::string &text, mode_t &mode) {
    constexpr size_t maxDigits = 4;
    if (text.empty() || text.size() > maxDigits) {
        return EINVAL;
    }
    mode_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '7') {
            return EINVAL;
        }
        value = value * 8 + static_cast<mode_t>(c - '0');
    }
    if ((value & SPECIAL_BITS) != 0) {
        return EPERM;
    }
    mode = value & PERMISSION_BITS;
    return 0;
}

}  // namespace Zarvo::Host
