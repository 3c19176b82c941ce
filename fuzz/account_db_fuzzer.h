#ifndef FUZZ_ACCOUNT_DB_FUZZER_H
#define FUZZ_ACCOUNT_DB_FUZZER_H

#include <string_view>

namespace Zarvo::Fuzzing {

// An input of the account database target is the database file, optionally followed by this
// separator and the write-ahead log beside it, and by the separator again and a rollback journal.
inline constexpr std::string_view ACCOUNT_DB_PART_SEPARATOR = "\n--next-file--\n";

}  // namespace Zarvo::Fuzzing

#endif  // FUZZ_ACCOUNT_DB_FUZZER_H
