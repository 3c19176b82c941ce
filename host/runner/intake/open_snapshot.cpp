// Which source a snapshot path names: a folder, an archive file, or the first of a split recovery
// backup's numbered pieces.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <optional>
#include <set>
#include <string_view>

#include "archive_snapshot.h"
#include "support/fd_io.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {
namespace {

// A recovery backup's pieces are named <partition>.<file system>.win<number>, the number with at
// least three digits (data.ext4.win000, ..., win999, win1000). Only names of that form are pieces:
// a shelf of phone000, phone001 is a shelf of archives.
constexpr std::string_view PIECE_MARK = ".win";
constexpr size_t MIN_PIECE_DIGITS = 3;
constexpr size_t MAX_PIECE_DIGITS = 9;
constexpr uint64_t MAX_PIECES = 100000;

struct PieceName {
    std::string stem;  // up to and with ".win"
    uint64_t number = 0;
    size_t digits = 0;
};

std::string PieceText(const std::string &stem, uint64_t number, size_t digits) {
    const std::string text = std::to_string(number);
    return stem + std::string(text.size() < digits ? digits - text.size() : 0, '0') + text;
}

std::optional<PieceName> ParsePieceName(const std::string &name) {
    size_t digits = 0;
    while (digits < name.size() && std::isdigit(static_cast<unsigned char>(name[name.size() - 1 - digits]))) {
        ++digits;
    }
    const size_t stemSize = name.size() - digits;
    if (digits < MIN_PIECE_DIGITS || digits > MAX_PIECE_DIGITS || stemSize <= PIECE_MARK.size() ||
        std::string_view(name).substr(stemSize - PIECE_MARK.size(), PIECE_MARK.size()) != PIECE_MARK) {
        return std::nullopt;
    }
    return PieceName{name.substr(0, stemSize), std::stoull(name.substr(stemSize)), digits};
}

// The numbers of the pieces beside the first one, `first` named in the folder `dirFd`: names with
// the same stem whose number is written as the first piece's width writes it.
std::vector<uint64_t> LaterPieceNumbers(int dirFd, const PieceName &first, std::string &error,
                                        const std::string &folder) {
    std::vector<std::string> names;
    const int failure = ListDirectoryNames(dirFd, names);
    if (failure != 0) {
        error = "could not list " + folder + ": " + std::strerror(failure) + ".";
        return {};
    }
    std::vector<uint64_t> numbers;
    for (const std::string &name : names) {
        std::optional<PieceName> piece = ParsePieceName(name);
        if (piece && piece->stem == first.stem && piece->number > 0 &&
            PieceText(piece->stem, piece->number, first.digits) == name) {
            numbers.push_back(piece->number);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    return numbers;
}

}  // namespace

std::vector<std::string> WithoutLaterPieces(std::vector<std::string> names) {
    std::set<std::string> firstPieces;
    for (const std::string &name : names) {
        std::optional<PieceName> piece = ParsePieceName(name);
        if (piece && piece->number == 0) {
            firstPieces.insert(piece->stem);
        }
    }
    names.erase(std::remove_if(names.begin(), names.end(),
                               [&firstPieces](const std::string &name) {
                                   std::optional<PieceName> piece = ParsePieceName(name);
                                   return piece && piece->number > 0 && firstPieces.count(piece->stem) > 0;
                               }),
                names.end());
    return names;
}

std::vector<std::string> ArchivePieces(const std::string &path, std::string &error) {
    const size_t nameStart = path.rfind('/') + 1;
    const std::string folder = nameStart == 0 ? "." : path.substr(0, nameStart);
    const std::optional<PieceName> named = ParsePieceName(path.substr(nameStart));
    if (!named) {
        return {path};
    }
    auto piece = [&path, nameStart, &named](uint64_t number) {
        return path.substr(0, nameStart) + PieceText(named->stem, number, named->digits);
    };
    if (named->number > 0) {
        // Past piece 999 the number is wider than the first piece's.
        for (size_t digits = MIN_PIECE_DIGITS; digits <= named->digits; ++digits) {
            const std::string first = path.substr(0, nameStart) + PieceText(named->stem, 0, digits);
            struct stat st {};
            if (lstat(first.c_str(), &st) == 0) {
                error = "the snapshot " + path +
                        " is a later piece of a split backup; give its first piece, " + first + ".";
                return {};
            }
        }
        error = "the snapshot " + path + " is a later piece of a split backup whose first piece, " +
                piece(0) + ", is missing.";
        return {};
    }
    UniqueFd dir(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir.Valid()) {
        error = "could not open " + folder + ": " + std::strerror(errno) + ".";
        return {};
    }
    const std::vector<uint64_t> numbers = LaterPieceNumbers(dir.Get(), *named, error, folder);
    if (!error.empty()) {
        return {};
    }
    std::vector<std::string> pieces{path};
    for (uint64_t number : numbers) {
        if (number != pieces.size()) {
            error = "the split backup " + path + " is missing its piece " + piece(pieces.size()) + ".";
            return {};
        }
        if (pieces.size() == MAX_PIECES) {
            error = "the split backup " + path + " has more than " + std::to_string(MAX_PIECES) + " pieces.";
            return {};
        }
        // The runner found these names, nobody named them: a link or a second name could lead to
        // any file of the host, a FIFO would block the read.
        const std::string name = PieceText(named->stem, number, named->digits);
        struct stat st {};
        if (fstatat(dir.Get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(st.st_mode) ||
            st.st_nlink != 1) {
            error = "the piece " + piece(number) +
                    " of the split backup is a link, a second name of a file or no regular file; pieces are "
                    "read only from regular files of their own.";
            return {};
        }
        pieces.push_back(piece(number));
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
