// Feeds arbitrary bytes to the archive snapshot source as an archive file, or as a split backup's
// pieces (archive_snapshot_fuzzer.h), and walks it with the restore's selection. Besides memory errors it
// checks the source's promises: a walk ends with an empty text or one sentence, hands nothing over when it
// fails, and hands over only entries the selection takes, whose content reads to its end.

#include "archive_snapshot_fuzzer.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "archive_snapshot.h"
#include "scratch_files.h"
#include "snapshot.h"

namespace {

using namespace Zarvo::Host;

// Small bounds keep every input quick; the limits' code paths stay the same.
ArchiveLimits FuzzLimits() {
    ArchiveLimits limits;
    limits.staged.fileBytes = 1 << 20;
    limits.staged.totalBytes = 4 << 20;
    limits.staged.entries = 1000;
    limits.expansionFloor = 8 << 20;
    return limits;
}

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Writes each piece to its own scratch file, data.ext4.win000 and on, and removes the pieces of a
// longer input before.
std::vector<std::string> WritePieces(std::string_view input) {
    static size_t written = 0;
    std::vector<std::string> pieces;
    for (;;) {
        const size_t separator = input.find(Zarvo::Fuzzing::ARCHIVE_PIECE_SEPARATOR);
        char name[32];
        std::snprintf(name, sizeof(name), "data.ext4.win%03zu", pieces.size());
        pieces.push_back(Zarvo::Fuzzing::WriteScratchFile(name, input.substr(0, separator)));
        if (separator == std::string_view::npos) {
            break;
        }
        input.remove_prefix(separator + Zarvo::Fuzzing::ARCHIVE_PIECE_SEPARATOR.size());
    }
    for (size_t stale = pieces.size(); stale < written; ++stale) {
        char name[32];
        std::snprintf(name, sizeof(name), "data.ext4.win%03zu", stale);
        Zarvo::Fuzzing::RemoveScratchFile(name);
    }
    written = pieces.size();
    return pieces;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const std::unique_ptr<EntryFilter> filter = RestoreEntryFilter(100);
    std::unique_ptr<SnapshotSource> source =
        OpenArchiveSnapshot(WritePieces({reinterpret_cast<const char *>(data), size}), FuzzLimits());
    size_t visited = 0;
    std::string failure = source->Walk(*filter, [&visited](const SnapshotEntry &entry, EntryReader &content) {
        ++visited;
        Check(filter->Wants(entry.path));
        if (entry.type == EntryType::FILE) {
            char buffer[4096];
            std::string error;
            ssize_t got;
            while ((got = content.Read(buffer, sizeof(buffer), error)) > 0) {
            }
            Check(got == 0);
        }
        return std::string();
    });
    Check(failure.empty() || (failure.back() == '.' && visited == 0));
    return 0;
}
