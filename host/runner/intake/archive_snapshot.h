#ifndef HOST_RUNNER_ARCHIVE_SNAPSHOT_H
#define HOST_RUNNER_ARCHIVE_SNAPSHOT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "snapshot.h"
#include "snapshot_source.h"

namespace Zarvo::Host {

// What reading one archive may cost at the most. The entries a restore takes are staged until the
// whole archive has been read; `staged` bounds them as the laying will.
// An archive that expands to more than `expansionRatio` times the bytes it was read from, once it
// has expanded past `expansionFloor` (headers included), is taken for an archive bomb.
struct ArchiveLimits {
    LayLimits staged;
    uint64_t expansionRatio = 100;
    uint64_t expansionFloor = 256ull << 20;
};

// The files of an archive snapshot: the one file `path`, or, when `path` is the piece numbered 0 of
// a split recovery backup (data.ext4.win000, data.ext4.win001, ..., win999, win1000: a name ending
// in ".win" and at least three digits), every piece beside it in order. Empty with one sentence in
// `error` when `path` is a later piece, when a piece is missing between the first and the last, or
// when a later piece is not a regular file with a single name (a link is never followed to one).
std::vector<std::string> ArchivePieces(const std::string &path, std::string &error);

// The file names of a folder without the later pieces of the split backups whose first piece is
// among them: on a shelf, a split backup is one phone.
std::vector<std::string> WithoutLaterPieces(std::vector<std::string> names);

// A snapshot held in an archive: tar (plain or compressed with gzip, xz, zstd or bzip2) or zip, in
// one file or in pieces read as one stream. The archive is read once, front to back; the data root
// is the one folder of the archive under which it holds entries a restore takes, and those entries
// are kept in an unnamed temporary file until the archive has been read to its end without fault.
std::unique_ptr<SnapshotSource> OpenArchiveSnapshot(std::vector<std::string> pieces,
                                                    const ArchiveLimits &limits = {});

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_ARCHIVE_SNAPSHOT_H
