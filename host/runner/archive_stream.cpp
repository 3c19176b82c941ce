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
// zlib reads a gzip header and checks its trailer when the window bits are raised by 16.
constexpr int GZIP_WINDOW_BITS = MAX_WBITS + 16;

la_ssize_t Fail(archive *a, const std::string &message) {
    archive_set_error(a, EIO, "%s", message.c_str());
    return ARCHIVE_FATAL;
}

}  // namespace

ArchiveStream::ArchiveStream(const std::vector<std::string> &pieces)
    : pieces_(pieces), raw_(BLOCK), out_(BLOCK) {}

ArchiveStream::~ArchiveStream() {
    if (gzip_) {
        inflateEnd(&zlib_);
    }
}

int ArchiveStream::OpenIn(archive *a) {
    return archive_read_open(a, this, nullptr, &ReadCallback, nullptr);
}

la_ssize_t ArchiveStream::ReadOn(archive *a) {
    const void *buffer = nullptr;
    return gzip_ ? Read(a, &buffer) : 0;
}

la_ssize_t ArchiveStream::ReadCallback(archive *a, void *self, const void **buffer) {
    return static_cast<ArchiveStream *>(self)->Read(a, buffer);
}

la_ssize_t ArchiveStream::Read(archive *a, const void **buffer) {
    la_ssize_t got = gzip_ ? Inflate(a, buffer) : ReadPlain(a, buffer);
    handedBytes_ += got > 0 ? static_cast<uint64_t>(got) : 0;
    return got;
}

la_ssize_t ArchiveStream::ReadPlain(archive *a, const void **buffer) {
    la_ssize_t got = ReadRaw(a);
    if (!started_ && got >= 2 && std::equal(std::begin(GZIP_MAGIC), std::end(GZIP_MAGIC), raw_.begin())) {
        if (inflateInit2(&zlib_, GZIP_WINDOW_BITS) != Z_OK) {
            return Fail(a, "could not start decompressing gzip");
        }
        gzip_ = true;
        zlib_.next_in = raw_.data();
        zlib_.avail_in = static_cast<uInt>(got);
        started_ = true;
        return Inflate(a, buffer);
    }
    started_ = true;
    *buffer = raw_.data();
    return got;
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
        return got;
    }
}

}  // namespace Zarvo::Host
