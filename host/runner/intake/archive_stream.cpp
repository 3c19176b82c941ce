#include "archive_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Zarvo::Host {
namespace {

constexpr size_t BLOCK = 1 << 20;
constexpr unsigned char GZIP_MAGIC[] = {0x1f, 0x8b};
constexpr unsigned char XZ_MAGIC[] = {0xfd, '7', 'z', 'X', 'Z', 0x00};
constexpr unsigned char ZSTD_MAGIC[] = {0x28, 0xb5, 0x2f, 0xfd};
// A zstd window of 2^26 bytes takes the decoder about DECODER_MEMORY.
constexpr int ZSTD_WINDOW_LOG_MAX = 26;
// zlib reads a gzip header and checks its trailer when the window bits are raised by 16.
constexpr int GZIP_WINDOW_BITS = MAX_WBITS + 16;

la_ssize_t Fail(archive *a, const std::string &message, int error = EIO) {
    archive_set_error(a, error, "%s", message.c_str());
    return ARCHIVE_FATAL;
}

template <size_t N>
bool HasMagic(const std::vector<unsigned char> &bytes, la_ssize_t size, const unsigned char (&magic)[N]) {
    return size >= static_cast<la_ssize_t>(N) &&
           std::equal(std::begin(magic), std::end(magic), bytes.begin());
}

std::string MemoryRefusal(const char *format) {
    return std::string("its ") + format + " stream needs more than " + std::to_string(DECODER_MEMORY >> 20) +
           " MiB of memory to decompress, more than the runner gives it";
}

}  // namespace

ArchiveStream::ArchiveStream(const std::vector<std::string> &pieces)
    : pieces_(pieces), raw_(BLOCK), out_(BLOCK) {}

ArchiveStream::~ArchiveStream() {
    if (codec_ == Codec::GZIP) {
        inflateEnd(&zlib_);
    }
    lzma_end(&lzma_);
    ZSTD_freeDCtx(zstd_);
}

int ArchiveStream::OpenIn(archive *a) {
    return archive_read_open(a, this, nullptr, &ReadCallback, nullptr);
}

la_ssize_t ArchiveStream::ReadOn(archive *a) {
    const void *buffer = nullptr;
    return codec_ != Codec::NONE ? Read(a, &buffer) : 0;
}

la_ssize_t ArchiveStream::ReadCallback(archive *a, void *self, const void **buffer) {
    return static_cast<ArchiveStream *>(self)->Read(a, buffer);
}

la_ssize_t ArchiveStream::Read(archive *a, const void **buffer) {
    la_ssize_t got = codec_ == Codec::GZIP   ? Inflate(a, buffer)
                     : codec_ == Codec::XZ   ? Unxz(a, buffer)
                     : codec_ == Codec::ZSTD ? Unzstd(a, buffer)
                                             : ReadPlain(a, buffer);
    handedBytes_ += got > 0 ? static_cast<uint64_t>(got) : 0;
    return got;
}

la_ssize_t ArchiveStream::ReadPlain(archive *a, const void **buffer) {
    la_ssize_t got = ReadRaw(a);
    if (started_ || got <= 0) {
        *buffer = raw_.data();
        return got;
    }
    started_ = true;
    if (HasMagic(raw_, got, GZIP_MAGIC)) {
        if (inflateInit2(&zlib_, GZIP_WINDOW_BITS) != Z_OK) {
            return Fail(a, "could not start decompressing gzip");
        }
        codec_ = Codec::GZIP;
        zlib_.next_in = raw_.data();
        zlib_.avail_in = static_cast<uInt>(got);
        return Inflate(a, buffer);
    }
    if (HasMagic(raw_, got, XZ_MAGIC)) {
        if (lzma_stream_decoder(&lzma_, DECODER_MEMORY, LZMA_CONCATENATED) != LZMA_OK) {
            return Fail(a, "could not start decompressing xz");
        }
        codec_ = Codec::XZ;
        lzma_.next_in = raw_.data();
        lzma_.avail_in = static_cast<size_t>(got);
        return Unxz(a, buffer);
    }
    if (HasMagic(raw_, got, ZSTD_MAGIC)) {
        zstd_ = ZSTD_createDCtx();
        if (zstd_ == nullptr ||
            ZSTD_isError(ZSTD_DCtx_setParameter(zstd_, ZSTD_d_windowLogMax, ZSTD_WINDOW_LOG_MAX))) {
            return Fail(a, "could not start decompressing zstd");
        }
        codec_ = Codec::ZSTD;
        zstdIn_ = {raw_.data(), static_cast<size_t>(got), 0};
        return Unzstd(a, buffer);
    }
    *buffer = raw_.data();
    return got;
}

la_ssize_t ArchiveStream::Unxz(archive *a, const void **buffer) {
    while (!xzEnded_) {
        if (lzma_.avail_in == 0 && !rawEnded_) {
            la_ssize_t got = ReadRaw(a);
            if (got < 0) {
                return got;
            }
            rawEnded_ = got == 0;
            lzma_.next_in = raw_.data();
            lzma_.avail_in = static_cast<size_t>(got);
        }
        lzma_.next_out = out_.data();
        lzma_.avail_out = out_.size();
        const lzma_ret status = lzma_code(&lzma_, rawEnded_ ? LZMA_FINISH : LZMA_RUN);
        const size_t produced = out_.size() - lzma_.avail_out;
        if (status == LZMA_MEMLIMIT_ERROR) {
            return Fail(a, MemoryRefusal("xz"), ENOMEM);
        }
        if (status != LZMA_OK && status != LZMA_STREAM_END) {
            return Fail(a, status == LZMA_BUF_ERROR      ? "truncated xz input"
                           : status == LZMA_DATA_ERROR   ? "corrupt xz data"
                           : status == LZMA_FORMAT_ERROR ? "bytes that are not xz data follow the xz stream"
                                                         : "xz data that cannot be decompressed");
        }
        if (produced > 0) {
            *buffer = out_.data();
            return static_cast<la_ssize_t>(produced);
        }
        xzEnded_ = status == LZMA_STREAM_END;
    }
    return 0;
}

la_ssize_t ArchiveStream::Unzstd(archive *a, const void **buffer) {
    for (;;) {
        if (zstdIn_.pos == zstdIn_.size) {
            la_ssize_t got = ReadRaw(a);
            if (got <= 0) {
                return got == 0 && zstdHint_ != 0 ? Fail(a, "truncated zstd input") : got;
            }
            zstdIn_ = {raw_.data(), static_cast<size_t>(got), 0};
        }
        ZSTD_outBuffer out{out_.data(), out_.size(), 0};
        zstdHint_ = ZSTD_decompressStream(zstd_, &out, &zstdIn_);
        if (ZSTD_isError(zstdHint_)) {
            if (ZSTD_getErrorCode(zstdHint_) == ZSTD_error_frameParameter_windowTooLarge) {
                return Fail(a, MemoryRefusal("zstd"), ENOMEM);
            }
            return Fail(a, ZSTD_getErrorName(zstdHint_));
        }
        if (out.pos > 0) {
            *buffer = out_.data();
            return static_cast<la_ssize_t>(out.pos);
        }
    }
}

la_ssize_t ArchiveStream::Inflate(archive *a, const void **buffer) {
    for (;;) {
        if (zlib_.avail_in == 0) {
            la_ssize_t got = ReadRaw(a);
            if (got <= 0) {
                return got == 0 && inMember_ ? Fail(a, "truncated gzip input") : got;
            }
            zlib_.next_in = raw_.data();
            zlib_.avail_in = static_cast<uInt>(got);
        }
        if (!inMember_) {
            // Between members: another one, or zeros up to the end.
            if (*zlib_.next_in == 0) {
                padding_ = true;
                unsigned char *end = zlib_.next_in + zlib_.avail_in;
                unsigned char *nonZero =
                    std::find_if(zlib_.next_in, end, [](unsigned char byte) { return byte != 0; });
                zlib_.avail_in -= static_cast<uInt>(nonZero - zlib_.next_in);
                zlib_.next_in = nonZero;
                continue;
            }
            if (padding_ || *zlib_.next_in != GZIP_MAGIC[0]) {
                return Fail(a, "bytes that are not gzip data follow the gzip stream");
            }
            inflateReset(&zlib_);
            inMember_ = true;
        }
        zlib_.next_out = out_.data();
        zlib_.avail_out = static_cast<uInt>(out_.size());
        const int status = inflate(&zlib_, Z_NO_FLUSH);
        if (status == Z_STREAM_END) {
            inMember_ = false;
        } else if (status != Z_OK && !(status == Z_BUF_ERROR && zlib_.avail_in == 0)) {
            return Fail(a, zlib_.msg != nullptr ? zlib_.msg : "corrupt gzip data");
        }
        const size_t produced = out_.size() - zlib_.avail_out;
        if (produced > 0) {
            *buffer = out_.data();
            return static_cast<la_ssize_t>(produced);
        }
    }
}

// The piece named on the command line may be a link the person chose; the later ones were found by
// the runner and are opened only as regular files of their own. Without blocking: a name that
// turned into a FIFO since it was listed must not hold the read forever.
std::string ArchiveStream::OpenPiece(size_t index) {
    const std::string &path = pieces_[index];
    const int noFollow = index > 0 ? O_NOFOLLOW : 0;
    piece_.Reset(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | noFollow));
    struct stat st {};
    if (!piece_.Valid() || fstat(piece_.Get(), &st) != 0) {
        return "could not open " + path + ": " + std::strerror(errno);
    }
    if (!S_ISREG(st.st_mode) || (index > 0 && st.st_nlink != 1)) {
        return path + " is no longer a regular file of its own";
    }
    return "";
}

la_ssize_t ArchiveStream::ReadRest(archive *a) {
    la_ssize_t got = 0;
    do {
        got = ReadRaw(a);
    } while (got > 0);
    return got;
}

la_ssize_t ArchiveStream::ReadRaw(archive *a) {
    for (;;) {
        if (!piece_.Valid()) {
            if (nextPiece_ == pieces_.size()) {
                return 0;
            }
            std::string failure = OpenPiece(nextPiece_++);
            if (!failure.empty()) {
                return Fail(a, failure);
            }
        }
        ssize_t got = read(piece_.Get(), raw_.data(), raw_.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            return Fail(a, std::string("could not read it: ") + std::strerror(errno));
        }
        if (got == 0) {
            piece_.Reset(-1);
            continue;
        }
        rawBytes_ += static_cast<uint64_t>(got);
        rawDigest_.Update(raw_.data(), static_cast<size_t>(got));
        return got;
    }
}

}  // namespace Zarvo::Host
