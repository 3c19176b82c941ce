#ifndef FUZZ_MIGRATE_REQUEST_VOCABULARY_H
#define FUZZ_MIGRATE_REQUEST_VOCABULARY_H

// What the migrate request target builds its requests from, shared with the seed writer so that
// seeds name the same choices. An input is read with FuzzedDataProvider, request after request:
// one choice 0..15, where 0 makes the whole 2,388-byte request of raw bytes; otherwise the
// operation, the recursion option, then source and destination path, user, group and mode, each
// a word of its list below (the choices are described beside their constants). Choices are
// single bytes taken from the end of the input; texts come from the front.

#include <cstddef>
#include <cstdint>

namespace Zarvo::Fuzzing {

// The work tree the target plants afresh for every input; "@" in a path stands for it.
inline constexpr char MIGRATE_FUZZ_BASE[] = "/data/migrate-fuzz";

inline constexpr const char *MIGRATE_FUZZ_PATHS[] = {
    "@/root",
    "@/root/file.txt",
    "@/root/dir",
    "@/root/dir/a.txt",
    "@/root/dir/sub",
    "@/root/dir/sub/b.txt",
    "@/root/empty",
    "@/root/link-out",
    "@/root/link-out/secret.txt",
    "@/root/link-out/sub",
    "@/root/link-rel",
    "@/root/link-in",
    "@/root/link-dir-out",
    "@/root/hard-out",
    "@/root/pipe",
    "@/root/new",
    "@/root/new/deeper/leaf",
    "@/root/",
    "@/root//dir/./sub",
    "@/root/../outside",
    "@/root/dir/../../outside/secret.txt",
    "@/root2",
    "@/root2/f.txt",
    "@/root2/new",
    "@/outside",
    "@/outside/secret.txt",
    "@/outside/hard.txt",
    "@/outside/sub",
    "@/root-x",
    "@/root-x/f.txt",
    "@",
    "/",
    "/data",
    "",
    "root/file.txt",
};
inline constexpr std::size_t MIGRATE_FUZZ_PATH_COUNT =
    sizeof(MIGRATE_FUZZ_PATHS) / sizeof(MIGRATE_FUZZ_PATHS[0]);

inline constexpr const char *MIGRATE_FUZZ_OWNERS[] = {
    "", "0", "1000", "root", "nobody", "daemon", "65534", "4294967295", "-1", "99999999999", " 1", "1000 ",
};
inline constexpr std::size_t MIGRATE_FUZZ_OWNER_COUNT =
    sizeof(MIGRATE_FUZZ_OWNERS) / sizeof(MIGRATE_FUZZ_OWNERS[0]);

inline constexpr const char *MIGRATE_FUZZ_MODES[] = {
    "", "0", "755", "0700", "644", "0777", "4755", "1777", "8", "07777", "00000", "-1",
};
inline constexpr std::size_t MIGRATE_FUZZ_MODE_COUNT =
    sizeof(MIGRATE_FUZZ_MODES) / sizeof(MIGRATE_FUZZ_MODES[0]);

inline constexpr std::size_t MIGRATE_FUZZ_MAX_REQUESTS = 4;
inline constexpr std::uint8_t MIGRATE_FUZZ_RAW_REQUEST_RANGE = 15;  // choice 0 of 0..15 is a raw request

// Operation byte 0..OP_COUNT+1: an operation number, then "any 32-bit value" (four more bytes),
// then the first number past the last operation.
inline constexpr std::uint8_t MIGRATE_FUZZ_OP_ANY = 17;
inline constexpr std::uint8_t MIGRATE_FUZZ_OP_UNKNOWN = 18;

// Recursion byte 0..3: 0, 2 (the two valid options), 1, any 32-bit value.
inline constexpr std::int32_t MIGRATE_FUZZ_RECURSE_VALUES[] = {0, 2, 1};
inline constexpr std::uint8_t MIGRATE_FUZZ_RECURSE_ANY = 3;

// A word byte 0..count+1 picks a list entry, "raw text" (at most 1,100 bytes: longer than a
// field) or "list entry followed by raw text" (one more byte picks the entry).
inline constexpr std::size_t MIGRATE_FUZZ_MAX_RAW_TEXT = 1100;

}  // namespace Zarvo::Fuzzing

#endif  // FUZZ_MIGRATE_REQUEST_VOCABULARY_H
