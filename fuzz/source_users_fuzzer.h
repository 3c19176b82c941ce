#ifndef FUZZ_SOURCE_USERS_FUZZER_H
#define FUZZ_SOURCE_USERS_FUZZER_H

#include <string_view>

namespace Zarvo::Fuzzing {

// An input of the source users target is the user list, then this separator and a user file,
// then optionally the separator again and the user's photo.
inline constexpr std::string_view SOURCE_USERS_PART_SEPARATOR = "\n--next-file--\n";

}  // namespace Zarvo::Fuzzing

#endif  // FUZZ_SOURCE_USERS_FUZZER_H
