#include "sha256.h"

#include <openssl/evp.h>

#include <fstream>

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

std::string FileSha256(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    Sha256 digest;
    char buffer[1 << 16];
    while (in) {
        in.read(buffer, sizeof(buffer));
        digest.Update(buffer, static_cast<size_t>(in.gcount()));
    }
    return in.eof() && !in.bad() ? digest.HexDigest() : "";
}

}  // namespace Zarvo::Host
