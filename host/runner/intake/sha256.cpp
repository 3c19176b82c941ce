#include "sha256.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <mutex>

#include "support/unique_fd.h"

namespace Zarvo::Host {

struct Sha256::Context {
    EVP_MD_CTX *md = EVP_MD_CTX_new();
    ~Context() { EVP_MD_CTX_free(md); }
};

Sha256::Sha256() : context_(std::make_unique<Context>()) {
    EVP_DigestInit_ex(context_->md, EVP_sha256(), nullptr);
}

Sha256::~Sha256() = default;
Sha256::Sha256(Sha256 &&) noexcept = default;
Sha256 &Sha256::operator=(Sha256 &&) noexcept = default;

void Sha256::Update(const void *data, size_t size) {
    EVP_DigestUpdate(context_->md, data, size);
}

std::string Sha256::HexDigest() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context_->md, digest, &length);
    EVP_DigestInit_ex(context_->md, EVP_sha256(), nullptr);
    static const char HEX[] = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text += HEX[digest[i] >> 4];
        text += HEX[digest[i] & 15];
    }
    return text;
}

namespace {

// A file's identity as far as its content goes: any write to it moves its change time.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    explicit FileIdentity(const struct stat &status)
        : device(status.st_dev),
          inode(status.st_ino),
          size(status.st_size),
          modified(status.st_mtim),
          changed(status.st_ctim) {}

    bool operator==(const FileIdentity &other) const {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec &&
               changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
    }
};

struct KnownDigest {
    FileIdentity identity;
    std::string digest;
};

// Digests already taken in this process, or in the batch it was forked from: a batch digests its
// plug-in once and every phone finds it here, unless the file changed in between.
std::mutex knownMutex;
std::map<std::string, KnownDigest> known;

}  // namespace

std::string FileSha256(const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        std::lock_guard<std::mutex> lock(knownMutex);
        const auto found = known.find(path);
        if (found != known.end() && found->second.identity == FileIdentity(status)) {
            return found->second.digest;
        }
    }
    UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat before {};
    if (!fd.Valid() || fstat(fd.Get(), &before) != 0) {
        return "";
    }
    Sha256 digest;
    char buffer[1 << 16];
    ssize_t got = 0;
    while ((got = read(fd.Get(), buffer, sizeof(buffer))) > 0 || (got < 0 && errno == EINTR)) {
        digest.Update(buffer, static_cast<size_t>(std::max<ssize_t>(got, 0)));
    }
    struct stat after {};
    if (got < 0 || fstat(fd.Get(), &after) != 0) {
        return "";
    }
    std::string hex = digest.HexDigest();
    if (FileIdentity(before) == FileIdentity(after)) {
        std::lock_guard<std::mutex> lock(knownMutex);
        known.insert_or_assign(path, KnownDigest{FileIdentity(after), hex});
    }
    return hex;
}

}  // namespace Zarvo::Host
