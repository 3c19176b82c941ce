#ifndef HOST_RUNNER_ARCHIVE_STREAM_H
#define HOST_RUNNER_ARCHIVE_STREAM_H

#include <archive.h>
#include <lzma.h>
#include <zlib.h>
#include <zstd.h>
#include <zstd_errors.h>

#include <cstdint>
#include <string>
#include <vector>

#include "sha256.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {

// An archive's pieces read one after another as one stream, for libarchive. A stream compressed
// with gzip, xz or zstd is decompressed here rather than by libarchive, for two reasons. Its
// memory: the xz and zstd decoders here are capped at DECODER_MEMORY, where libarchive lets the
// archive's header ask for a dictionary or window of hundreds of megabytes. Its checks: libarchive
// stops at the tar's end and, for gzip, never checks a member's CRC-32 and length; here the stream
// is read on to its end, so every check it carries is verified and a corrupt byte anywhere fails
// the read. gzip members follow one another as one stream, zeros may pad the end, nothing else;
// xz and zstd take concatenated streams and frames (and xz its padding) as their formats do.
// xz -9 (a 64 MiB dictionary) and zstd up to --long=26 (a 64 MiB window) fit under it.
inline constexpr uint64_t DECODER_MEMORY = 72ull << 20;

class ArchiveStream {
public:
    explicit ArchiveStream(const std::vector<std::string> &pieces);
    ~ArchiveStream();
    ArchiveStream(const ArchiveStream &) = delete;
    ArchiveStream &operator=(const ArchiveStream &) = delete;

    // Hands the stream to `a` and lets libarchive find the format: archive_read_open's status.
    int OpenIn(archive *a);
    // Once libarchive has found the archive's end, the next bytes of a compressed stream after it,
    // so that the last check and what follows it are read too: the count, 0 at the end (at once
    // for a stream that is not compressed here), or ARCHIVE_FATAL with the failure set in `a`.
    la_ssize_t ReadOn(archive *a);
    // The bytes read from the pieces so far, before any decompression.
    uint64_t RawBytes() const { return rawBytes_; }
    // Reads the pieces' bytes that follow what the archive needed, so that the digest covers
    // every byte: 0 once all are read, ARCHIVE_FATAL with the failure set in `a`.
    la_ssize_t ReadRest(archive *a);
    // The SHA-256 of the pieces' bytes read so far (all of them after ReadRest).
    std::string RawDigest() { return rawDigest_.HexDigest(); }
    // The bytes handed out so far, after decompression.
    uint64_t HandedBytes() const { return handedBytes_; }

private:
    static la_ssize_t ReadCallback(archive *a, void *self, const void **buffer);
    la_ssize_t Read(archive *a, const void **buffer);
    // The pieces' bytes as they are; the first ones may turn out to start a compressed stream.
    la_ssize_t ReadPlain(archive *a, const void **buffer);
    la_ssize_t Inflate(archive *a, const void **buffer);
    la_ssize_t Unxz(archive *a, const void **buffer);
    la_ssize_t Unzstd(archive *a, const void **buffer);
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
    Sha256 rawDigest_;
    uint64_t handedBytes_ = 0;
    enum class Codec { NONE, GZIP, XZ, ZSTD };
    bool started_ = false;
    Codec codec_ = Codec::NONE;
    bool inMember_ = false;
    bool padding_ = false;
    z_stream zlib_{};
    lzma_stream lzma_ = LZMA_STREAM_INIT;
    ZSTD_DCtx *zstd_ = nullptr;
    ZSTD_inBuffer zstdIn_{};
    size_t zstdHint_ = 0;  // zstd's last return: 0 where a frame ends
    bool rawEnded_ = false;
    bool xzEnded_ = false;
};

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_ARCHIVE_STREAM_H
