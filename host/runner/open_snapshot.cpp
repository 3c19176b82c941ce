// Which source a snapshot path names: a folder, an archive file, or the first of an archive's
// numbered pieces.
#include <sys/stat.h>

#include <cctype>
#include <cerrno>
#include <cstring>

#include "archive_snapshot.h"

namespace Zarvo::Host {
namespace {

// A split archive numbers its pieces with at least this many digits (data.ext4.win000).
constexpr size_t MIN_PIECE_DIGITS = 3;
constexpr uint64_t MAX_PIECES = 100000;

bool IsRegularFile(const std::string &path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

std::vector<std::string> ArchivePieces(const std::string &path, std::string &error) {
    const size_t nameStart = path.rfind('/') + 1;
    size_t digits = 0;
    while (digits < path.size() - nameStart &&
           std::isdigit(static_cast<unsigned char>(path[path.size() - 1 - digits]))) {
        ++digits;
    }
    if (digits < MIN_PIECE_DIGITS || digits > 9) {
        return {path};
    }
    const std::string stem = path.substr(0, path.size() - digits);
    const uint64_t number = std::stoull(path.substr(stem.size()));
    auto piece = [&stem, digits](uint64_t number) {
        std::string text = std::to_string(number);
        return stem + std::string(text.size() < digits ? digits - text.size() : 0, '0') + text;
    };
    // Pieces are numbered from 0: a file with another number is one archive of its own unless the
    // piece numbered 0 lies beside it.
    if (number > 0) {
        if (IsRegularFile(piece(0))) {
            error = "the snapshot " + path + " is a later piece of a split archive; give its first piece, " +
                    piece(0) + ".";
            return {};
        }
        return {path};
    }
    std::vector<std::string> pieces{path};
    for (uint64_t next = 1; next < MAX_PIECES && IsRegularFile(piece(next)); ++next) {
        pieces.push_back(piece(next));
    }
    return pieces;
}

std::unique_ptr<SnapshotSource> OpenSnapshot(const std::string &path, std::string &error) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
        error = "could not find the snapshot " + path + ": " + std::strerror(errno) + ".";
        return nullptr;
    }
    if (S_ISDIR(st.st_mode)) {
        return OpenFolderSnapshot(path, error);
    }
    if (!S_ISREG(st.st_mode)) {
        error = "the snapshot " + path + " is neither a directory nor an archive file.";
        return nullptr;
    }
    std::vector<std::string> pieces = ArchivePieces(path, error);
    return pieces.empty() ? nullptr : OpenArchiveSnapshot(std::move(pieces));
}

}  // namespace Zarvo::Host
