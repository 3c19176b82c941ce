#ifndef FUZZ_ARCHIVE_SNAPSHOT_FUZZER_H
#define FUZZ_ARCHIVE_SNAPSHOT_FUZZER_H

#include <string_view>

namespace Zarvo::Fuzzing {

// An input of the archive target is an archive's first piece, optionally followed by this
// separator and a later piece, again and again: a split backup's pieces, read as one stream.
inline constexpr std::string_view ARCHIVE_PIECE_SEPARATOR = "\n--next-piece--\n";

}  // namespace Zarvo::Fuzzing

#endif  // FUZZ_ARCHIVE_SNAPSHOT_FUZZER_H
