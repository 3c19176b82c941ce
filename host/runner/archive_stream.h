#ifndef HOST_RUNNER_ARCHIVE_STREAM_H
#define HOST_RUNNER_ARCHIVE_STREAM_H

#include <archive.h>
#include <zlib.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/unique_fd.h"

namespace Zarvo::Host {

// An archive's pieces read one after another as one stream, for libarchive. A gzip stream is
// decompressed here with zlib instead of by libarchive, whose gzip reading never checks a member's
// CRC-32 and length: zlib checks both at each member's end, so a corrupt byte anywhere fails the
// read. Several members follow one another as one stream; zeros may pad the end, nothing else.
class ArchiveStream {
public:
    explicit ArchiveStream(const std::vector<std::string> &pieces);
    ~ArchiveStream();
    ArchiveStream(const ArchiveStream &) = delete;
    ArchiveStream &operator=(const ArchiveStream &) = delete;

    // Hands the stream to `a` and lets libarchive find the format: archive_read_open's status.
    int OpenIn(archive *a);
    // The bytes read from the pieces so far, before any decompression.
    uint64_t RawBytes() const { return rawBytes_; }

private:
    static la_ssize_t ReadCallback(archive *a, void *self, const void **buffer);
    la_ssize_t Read(archive *a, const void **buffer);
    la_ssize_t Inflate(archive *a, const void **buffer);
    // The pieces' next bytes into raw_: the count, 0 after the last piece, -1 with the error set.
    la_ssize_t ReadRaw(archive *a);

    std::vector<std::string> pieces_;
    size_t nextPiece_ = 0;
    UniqueFd piece_;
    std::vector<unsigned char> raw_;
    std::vector<unsigned char> out_;
    uint64_t rawBytes_ = 0;
    bool started_ = false;
    bool gzip_ = false;
    bool inMember_ = false;
    bool padding_ = false;
    z_stream zlib_{};
};

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_ARCHIVE_STREAM_H
