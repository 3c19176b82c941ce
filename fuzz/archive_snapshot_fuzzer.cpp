// Feeds arbitrary bytes to the archive snapshot source as an archive file and walks it with the
// restore's selection. Besides memory errors it checks the source's promises: a walk ends with an
// empty text or one sentence, hands nothing over when it fails, and hands over only entries the
// selection takes, whose content reads to its end.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "archive_snapshot.h"
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    int fd = memfd_create("archive", MFD_CLOEXEC);
    if (fd < 0 || write(fd, data, size) != static_cast<ssize_t>(size)) {
        std::abort();
    }
    static const std::unique_ptr<EntryFilter> filter = RestoreEntryFilter(100);
    std::unique_ptr<SnapshotSource> source =
        OpenArchiveSnapshot({"/proc/self/fd/" + std::to_string(fd)}, FuzzLimits());
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
    close(fd);
    Check(failure.empty() || (failure.back() == '.' && visited == 0));
    return 0;
}
