#ifndef HOST_SAMPLE_ANDROID_RELEASE_H
#define HOST_SAMPLE_ANDROID_RELEASE_H

#include <cstddef>
#include <optional>
#include <string>

#include "sample_phone.h"

namespace Zarvo::Fixtures {

constexpr int FIRST_ANDROID_RELEASE = 7;
constexpr int LAST_ANDROID_RELEASE = 15;

// Android cuts a user's name to this many UTF-16 units from Android 13 on.
constexpr size_t ANDROID_USER_NAME_UNITS = 100;

// The sample phone's users and accounts in the shape Android `release` leaves them: the user
// list's version and attributes, text or binary XML, the user flags and attributes of that
// release, the account database's form. Nothing for a release outside 7..15.
std::optional<SamplePhone> AndroidReleasePhone(int release);

// The first `units` UTF-16 units of UTF-8 `text`, as Java's substring cuts it: a character beyond
// the BMP cut in half leaves its high surrogate, written as a three-byte sequence.
std::string CutToUtf16Units(const std::string &text, size_t units);

}  // namespace Zarvo::Fixtures

#endif  // HOST_SAMPLE_ANDROID_RELEASE_H
