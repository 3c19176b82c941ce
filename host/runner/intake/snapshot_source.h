#ifndef HOST_RUNNER_SNAPSHOT_SOURCE_H
#define HOST_RUNNER_SNAPSHOT_SOURCE_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace Zarvo::Host {

enum class EntryType {
    FILE,
    DIRECTORY,
    SYMLINK,
    HARD_LINK,
    FIFO,
    CHARACTER_DEVICE,
    BLOCK_DEVICE,
    SOCKET,
    OTHER
};

// The type of a file mode's S_IFMT bits (archives use the same values).
EntryType EntryTypeOfMode(mode_t mode);

// One entry of a snapshot. `path` is relative to the data root ("system/users/0.xml") and, as the
// source gives it, may hold anything, ".." included; `origin` names the entry where it came from
// (a host path, an archive member).
struct SnapshotEntry {
    std::string path;
    std::string origin;
    EntryType type = EntryType::OTHER;
    std::string linkTarget;  // what a link points at, when the source knows
};

// The content of the regular file being visited.
class EntryReader {
public:
    virtual ~EntryReader() = default;
    // Up to `size` bytes into `buffer`: the count, 0 at the end, or -1 with one sentence in `error`.
    virtual ssize_t Read(char *buffer, size_t size, std::string &error) = 0;
};

// Which entries below the data root a walk has to reach.
class EntryFilter {
public:
    virtual ~EntryFilter() = default;
    // An entry taken as it is, a directory with everything below it.
    virtual bool Wants(std::string_view path) const = 0;
    // A directory on the way to wanted entries.
    virtual bool LeadsTo(std::string_view path) const = 0;
};

// Where a snapshot's files come from. A source finds the data root itself and walks the entries
// below it once, in the order of a walk of sorted folders, handing the filter's entries to a visitor that may
// read a regular file's content while it is visited. Nothing of a source is trusted: links, devices and
// strange names come through as what they are, for the visitor to refuse.
class SnapshotSource {
public:
    using Visitor = std::function<std::string(const SnapshotEntry &entry, EntryReader &content)>;

    virtual ~SnapshotSource() = default;
    // Where the data root was found, in words for the report ("the folder itself"); a source that
    // streams may know it only after Walk.
    virtual std::string Root() const = 0;
    // Stops at the first failure of the source or the visitor: an empty text, or one sentence.
    virtual std::string Walk(const EntryFilter &filter, const Visitor &visit) = 0;
    // An archive's SHA-256 over all its bytes and their count, once Walk has read it to its end;
    // a folder has none (empty text).
    virtual std::pair<std::string, uint64_t> ArchiveDigest() const { return {"", 0}; }
};

// A snapshot folder: Android's /data itself, a folder that holds it as data/, or a work tree
// (back/). Null with one sentence in `error` when `path` is none of them.
std::unique_ptr<SnapshotSource> OpenFolderSnapshot(const std::string &path, std::string &error);

// A folder or an archive file (see archive_snapshot.h), whichever `path` is. Null with one sentence
// in `error` when it is neither.
std::unique_ptr<SnapshotSource> OpenSnapshot(const std::string &path, std::string &error);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_SNAPSHOT_SOURCE_H
