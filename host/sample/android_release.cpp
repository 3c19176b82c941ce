#include "android_release.h"

namespace Zarvo::Fixtures {
namespace {

// userlist.xml's version attribute by release.
int32_t UserListVersion(int release) {
    if (release <= 7) {
        return 6;
    }
    if (release <= 10) {
        return 7;
    }
    return release <= 13 ? 9 : 11;
}

struct ReleaseFlags {
    int32_t owner;
    int32_t secondary;
    int32_t guest;
    int32_t workProfile;
};

// Android 11 added FULL, SYSTEM and PROFILE; Android 14 added MAIN to the owner.
ReleaseFlags FlagsOf(int release) {
    const int32_t owner = USER_FLAG_PRIMARY | USER_FLAG_ADMIN | USER_FLAG_INITIALIZED;
    if (release <= 10) {
        return {owner, USER_FLAG_INITIALIZED, USER_FLAG_GUEST | USER_FLAG_INITIALIZED,
                USER_FLAG_INITIALIZED | USER_FLAG_MANAGED_PROFILE};
    }
    const ReleaseFlags later{owner | USER_FLAG_FULL | USER_FLAG_SYSTEM,
                             USER_FLAG_INITIALIZED | USER_FLAG_FULL,
                             USER_FLAG_GUEST | USER_FLAG_INITIALIZED | USER_FLAG_FULL,
                             USER_FLAG_INITIALIZED | USER_FLAG_MANAGED_PROFILE | USER_FLAG_PROFILE};
    if (release <= 13) {
        return later;
    }
    return {later.owner | USER_FLAG_MAIN, later.secondary, later.guest, later.workProfile};
}

// Longer than Android 13 keeps, so that the cut shows; the cut falls after the emoji.
const char LONG_NAME[] =
    "Aleksandra Zo\xC3\xAB \xC5\x81ukasiewicz-Wi\xC5\x9Bniewska z domu Brz\xC4\x99"
    "czyszczykiewicz "
    "\xF0\x9F\x8C\xBB (Krak\xC3\xB3w, ul. Floria\xC5\x84ska 15, mieszkanie 7)";

AndroidUsers UsersOf(int release) {
    AndroidUsers users = SamplePhoneUsers();
    users.version = UserListVersion(release);
    users.userTypeConfigVersion = release >= 12 ? std::optional<int32_t>(1) : std::nullopt;
    users.withDeviceOwnerUserId = release <= 13;
    users.withReserveCopies = release >= 15;
    const ReleaseFlags flags = FlagsOf(release);
    const int32_t flagsById[] = {flags.owner, flags.secondary, flags.guest, flags.workProfile};
    const std::string fingerprint =
        "corvan/phone/phone:" + std::to_string(release) + "/REL/eng:user/release-keys";
    for (size_t i = 0; i < users.users.size(); ++i) {
        AndroidUser &user = users.users[i];
        user.flags = flagsById[i];
        if (release <= 10) {
            user.type.reset();
        }
        user.lastLoggedInFingerprint = fingerprint;
        if (release >= 14) {
            user.lastEnteredForeground = user.lastLoggedIn;
            user.withUserProperties = true;
        }
        if (user.id == 10) {
            user.name = release >= 13 ? CutToUtf16Units(LONG_NAME, ANDROID_USER_NAME_UNITS) : LONG_NAME;
        }
    }
    return users;
}

// The UTF-8 length of the sequence that starts with `lead`.
size_t SequenceBytes(unsigned char lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xF0) {
        return 4;
    }
    return lead >= 0xE0 ? 3 : 2;
}

}  // namespace

std::string CutToUtf16Units(const std::string &text, size_t units) {
    std::string cut;
    size_t at = 0;
    while (at < text.size() && units > 0) {
        const size_t bytes = SequenceBytes(static_cast<unsigned char>(text[at]));
        if (bytes == 4 && units == 1) {
            const uint32_t code = ((static_cast<uint32_t>(text[at]) & 0x07) << 18) |
                                  ((static_cast<uint32_t>(text[at + 1]) & 0x3F) << 12) |
                                  ((static_cast<uint32_t>(text[at + 2]) & 0x3F) << 6);
            const uint32_t high = 0xD800 + ((code - 0x10000) >> 10);
            cut += static_cast<char>(0xE0 | (high >> 12));
            cut += static_cast<char>(0x80 | ((high >> 6) & 0x3F));
            cut += static_cast<char>(0x80 | (high & 0x3F));
            break;
        }
        cut.append(text, at, bytes);
        at += bytes;
        units -= bytes == 4 ? 2 : 1;
    }
    return cut;
}

std::optional<SamplePhone> AndroidReleasePhone(int release) {
    if (release < FIRST_ANDROID_RELEASE || release > LAST_ANDROID_RELEASE) {
        return std::nullopt;
    }
    SamplePhone phone;
    phone.accounts = SamplePhoneAccounts();
    // A phone that came to Android 7 from Android 6 kept its old account database.
    phone.accounts.legacyAccountsColumns = release == 7;
    phone.accounts.walMode = release >= 9;
    phone.users = UsersOf(release);
    phone.userFileForm = release >= 12 ? UserFileForm::BINARY : UserFileForm::TEXT;
    return phone;
}

}  // namespace Zarvo::Fixtures
