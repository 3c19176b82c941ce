#ifndef HOST_SAMPLE_ANDROID_USERS_H
#define HOST_SAMPLE_ANDROID_USERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Zarvo::Fixtures {

// Android's user flags (UserInfo.FLAG_*) and the user types of Android 11 and later.
constexpr int32_t USER_FLAG_PRIMARY = 0x00000001;
constexpr int32_t USER_FLAG_ADMIN = 0x00000002;
constexpr int32_t USER_FLAG_GUEST = 0x00000004;
constexpr int32_t USER_FLAG_INITIALIZED = 0x00000010;
constexpr int32_t USER_FLAG_MANAGED_PROFILE = 0x00000020;
constexpr int32_t USER_FLAG_FULL = 0x00000400;
constexpr int32_t USER_FLAG_SYSTEM = 0x00000800;
constexpr int32_t USER_FLAG_PROFILE = 0x00001000;
constexpr int32_t USER_FLAG_MAIN = 0x00004000;

// The build fingerprint the sample users were last logged in under.
constexpr char SAMPLE_FINGERPRINT[] = "corvan/phone/phone:13/TP1A.220624.014/eng.2022:user/release-keys";

constexpr char USER_TYPE_SYSTEM[] = "android.os.usertype.full.SYSTEM";
constexpr char USER_TYPE_SECONDARY[] = "android.os.usertype.full.SECONDARY";
constexpr char USER_TYPE_GUEST[] = "android.os.usertype.full.GUEST";
constexpr char USER_TYPE_MANAGED_PROFILE[] = "android.os.usertype.profile.MANAGED";

// Where Android keeps a user's photo; the "icon" attribute holds this path.
std::string AndroidPhotoPath(int32_t userId);

// One user as Android describes it in /data/system/users/<id>.xml.
struct AndroidUser {
    int32_t id = 0;
    int32_t serialNumber = 0;
    int32_t flags = 0;
    std::optional<std::string> type;  // absent on Android 10 and older
    int64_t created = 0;
    int64_t lastLoggedIn = 0;
    std::optional<std::string> name;  // user 0 usually has none
    // The PNG written to <id>/photo.png; when set, "icon" points at it.
    std::optional<std::string> photo;
    // Overrides the "icon" attribute (an empty text writes icon=""); by default it is written
    // only with a photo.
    std::optional<std::string> icon;
    int32_t profileGroupId = -10000;  // the parent of a profile; -10000 for none
    std::optional<std::string> lastLoggedInFingerprint = std::string(SAMPLE_FINGERPRINT);
    std::optional<int64_t> lastEnteredForeground;  // Android 14 and later
    bool withUserProperties = false;               // the userProperties child of Android 14 and later
};

// The user list (userlist.xml) and every listed user's file.
struct AndroidUsers {
    int32_t version = 9;                               // 9 on Android 11-13, 11 from Android 14
    std::optional<int32_t> userTypeConfigVersion = 1;  // Android 12 and later
    bool withDeviceOwnerUserId = true;                 // gone from Android 14
    // Android 15 keeps a byte-identical "<file>.reservecopy" beside each file.
    bool withReserveCopies = false;
    std::vector<AndroidUser> users;
};

enum class UserFileForm {
    BINARY,                  // Android's binary XML, the default from Android 12
    BINARY_SURROGATE_PAIRS,  // the same as Android's pure-Java writer leaves it off the device:
                             // characters beyond the BMP as two three-byte surrogates
    TEXT,                    // text XML as Android 11 writes it
};

// The content of userlist.xml and of one <id>.xml, with the attributes, their order and (in the
// binary form) their value types as Android writes them.
std::string EncodeUserList(const AndroidUsers &users, UserFileForm form);
std::string EncodeUserFile(const AndroidUser &user, UserFileForm form);

// Writes userlist.xml, <id>.xml for each user and <id>/photo.png for users with a photo into
// dir (created when missing), as /data/system/users/ holds them. Returns false and sets error
// when a file cannot be written.
bool WriteAndroidUsers(const std::string &dir, const AndroidUsers &users, UserFileForm form,
                       std::string &error);

// A small valid PNG image (a default avatar).
std::string SampleAvatarPng();

// The users of a typical Android 13 phone: the owner (0, no name), a secondary user with a photo
// and a name outside ASCII (10), a guest (11) and a work profile of the owner (12).
AndroidUsers SamplePhoneUsers();

}  // namespace Zarvo::Fixtures

#endif  // HOST_SAMPLE_ANDROID_USERS_H
