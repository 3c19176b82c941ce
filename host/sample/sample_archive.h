#ifndef HOST_SAMPLE_SAMPLE_ARCHIVE_H
#define HOST_SAMPLE_SAMPLE_ARCHIVE_H

#include <cstdint>
#include <string>

#include "sample_phone.h"

namespace Zarvo::Fixtures {

// The forms in which people keep a phone's data.
enum class SnapshotForm {
    FOLDER,  // the snapshot folder itself
    TAR_GZ,  // a tar of /data made on the phone, gzip-compressed: entries data/...
    ZIP,     // a file-system extraction packed by a tool: entries fs/data/...
    SPLIT,   // a recovery backup: a plain tar of /data/... cut into numbered pieces
};

// "folder", "tar.gz", "zip" or "split"; false for any other text.
bool ParseSnapshotForm(const std::string &text, SnapshotForm &form);

// Writes the phone at `out` in the given form. A split backup's pieces are `out` followed by 000,
// 001, ..., each `pieceBytes` long but the last. Returns an empty text on success, else one sentence.
std::string WriteSamplePhone(const SamplePhone &phone, const std::string &out, SnapshotForm form,
                             uint64_t pieceBytes = 16 * 1024);

}  // namespace Zarvo::Fixtures

#endif  // HOST_SAMPLE_SAMPLE_ARCHIVE_H
