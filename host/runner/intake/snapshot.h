#ifndef HOST_RUNNER_SNAPSHOT_H
#define HOST_RUNNER_SNAPSHOT_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "snapshot_source.h"

namespace Zarvo::Host {

struct LaidFile {
    std::string from;  // the entry's origin: a host path, an archive member
    std::string to;    // its place in the work tree
};

// An entry the restore would have taken but that was not laid, and why.
struct LeftOutEntry {
    std::string path;  // below the data root
    std::string reason;
};

struct LaidSnapshot {
    std::string root;  // where the source found the data root
    std::vector<LaidFile> laid;
    std::vector<LeftOutEntry> leftOut;
    // What the restore took, the same whether it came from a folder or an archive: the SHA-256 of
    // the lines `sha256sum` prints for the laid files ("<digest>  <path below the data root>\n"),
    // in the order they were laid, and their bytes together.
    std::string laidSha256;
    uint64_t laidBytes = 0;
    // An archive's own bytes, every piece in order, as read: their SHA-256 and count (for one
    // file, what sha256sum prints for it); empty and 0 for a folder.
    std::string archiveSha256;
    uint64_t archiveBytes = 0;
};

// What one snapshot may put into the work tree at the most: a bound on every file, on all of them
// together and on the number of entries, far above what any phone's account and user files need.
struct LayLimits {
    uint64_t fileBytes = 128ull << 20;
    uint64_t totalBytes = 512ull << 20;
    uint64_t entries = 10000;
};

// A limit's size as a sentence gives it: "128 MiB", or "500 bytes".
std::string SizeText(uint64_t bytes);

// The entries a restore takes from Android's /data (or a work tree), for a source to walk.
std::unique_ptr<EntryFilter> RestoreEntryFilter(int activeUserId);

// Lays a snapshot into the plug-in's work tree the way the migrate server does: the account
// database of Android user 0 (with its -journal, -wal and -shm companions) under
// back/<activeUserId>/, userlist.xml, the per-user files and their photo folders under
// back/sourceXml/; a work tree's own back/ is laid as it is. Only regular files and directories are
// laid: links, devices, FIFOs, sockets and names that climb out of the root are left out and
// listed. Returns an empty text on success, else one sentence (a source that cannot be read, a
// file over the limits).
std::string LaySnapshot(SnapshotSource &source, int activeUserId, LaidSnapshot &result,
                        const LayLimits &limits = {});

// True when `text` begins with `prefix`.
bool StartsWith(std::string_view text, std::string_view prefix);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_SNAPSHOT_H
