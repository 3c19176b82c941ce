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
    // Once libarchive has found the archive's end, the next bytes of a gzip stream after it, so
    // that the last member's check and what follows it are read too: the count, 0 at the end (at
    // once for a stream that is not gzip), or ARCHIVE_FATAL with the failure set in `a`.
    la_ssize_t ReadOn(archive *a);
    // The bytes read from the pieces so far, before any decompression.
    uint64_t RawBytes() const { return rawBytes_; }
    // The bytes handed out so far, after gzip's decompression.
    uint64_t HandedBytes() const { return handedBytes_; }

private:
    static la_ssize_t ReadCallback(archive *a, void *self, const void **buffer);
    la_ssize_t Read(archive *a, const void **buffer);
    // The pieces' bytes as they are; the first ones may turn out to start a gzip stream.
    la_ssize_t ReadPlain(archive *a, const void **buffer);
    la_ssize_t Inflate(archive *a, const void **buffer);
    // The pieces' next bytes into raw_: the count, 0 after the last piece, -1 with the error set.
    la_ssize_t ReadRaw(archive *a);
    // Opens the piece into piece_: an empty text, else the reason.
    std::string OpenPiece(size_t index);

    std::vector<std::string> pieces_;
    size_t nextPiece_ = 0;
    UniqueFd piece_;
    std::vector<unsigned char> raw_;
    std::vector<unsigned char> out_;
    uint64_t rawBytes_ = 0;
    uint64_t handedBytes_ = 0;
    bool started_ = false;
    bool gzip_ = false;
    bool inMember_ = false;
    bool padding_ = false;
    z_stream zlib_{};
};

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_ARCHIVE_STREAM_H
