#ifndef HOST_RUNNER_SHA256_H
#define HOST_RUNNER_SHA256_H

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Zarvo::Host {

// A SHA-256 digest fed piece by piece, given as 64 lower-case hex digits as sha256sum prints it.
class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(Sha256 &&) noexcept;
    Sha256 &operator=(Sha256 &&) noexcept;

    void Update(const void *data, size_t size);
    void Update(std::string_view text) { Update(text.data(), text.size()); }
    // The digest of everything fed so far; the object starts anew afterwards.
    std::string HexDigest();

private:
    struct Context;
    std::unique_ptr<Context> context_;
};

// The SHA-256 of a file's content, read through; empty when it cannot be read. A file digested
// before in this process, or in the one it was forked from, is not read again while its device,
// inode, size and modification and change times stay the same.
std::string FileSha256(const std::string &path);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_SHA256_H
