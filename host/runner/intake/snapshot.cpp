#include "snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <tuple>

#include "sha256.h"
#include "support/fd_io.h"

namespace Zarvo::Host {
namespace {

const std::string WORK_ROOT = "/data/service/el1/public/update/migrate_server/plugins/200/";
const std::string SOURCE_XML_DIR = WORK_ROOT + "back/sourceXml/";
constexpr std::string_view DATABASE = "system_ce/0/accounts_ce.db";
constexpr std::string_view DATABASE_COMPANIONS[] = {"", "-journal", "-wal", "-shm"};
constexpr std::string_view USERS = "system/users/";
constexpr size_t COPY_CHUNK = 64 * 1024;
constexpr mode_t LAID_DIR_MODE = 0700;
constexpr mode_t LAID_FILE_MODE = 0600;

bool IsDecimal(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// A relative path whose every component is a plain name: nothing empty, "." or "..".
bool IsPlainPath(const std::string &path) {
    size_t start = 0;
    for (;;) {
        size_t end = path.find('/', start);
        std::string component =
            path.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (component.empty() || component == "." || component == "..") {
            return false;
        }
        if (end == std::string::npos) {
            return true;
        }
        start = end + 1;
    }
}

// The entries a restore takes from Android's /data, and where each goes in the work tree.
class RestoreSelection : public EntryFilter {
public:
    explicit RestoreSelection(int activeUserId) : activeUserId_(activeUserId) {}

    // The entry's place in the work tree; empty when the restore does not take it. Cheap for a path
    // it does not take, however long.
    std::string Destination(std::string_view path) const {
        if (path == "back" || StartsWith(path, "back/")) {
            return WORK_ROOT + std::string(path);
        }
        if (StartsWith(path, DATABASE) && activeUserId_ >= 0) {
            for (std::string_view suffix : DATABASE_COMPANIONS) {
                if (path.substr(DATABASE.size()) == suffix) {
                    return WORK_ROOT + "back/" + std::to_string(activeUserId_) + "/accounts_ce.db" +
                           std::string(suffix);
                }
            }
        }
        if (!StartsWith(path, USERS)) {
            return "";
        }
        const std::string_view rest = path.substr(USERS.size());
        const std::string_view first = rest.substr(0, rest.find('/'));
        const bool userFile =
            first == "userlist.xml" || (first.size() > 4 && first.substr(first.size() - 4) == ".xml" &&
                                        IsDecimal(first.substr(0, first.size() - 4)));
        // A user's file, or the user's folder (its photo) and everything below it.
        if ((userFile && first == rest) || IsDecimal(first)) {
            return SOURCE_XML_DIR + std::string(rest);
        }
        return "";
    }

    bool Wants(std::string_view path) const override { return !Destination(path).empty(); }
    bool LeadsTo(std::string_view path) const override {
        return path == "system" || path == "system/users" || path == "system_ce" || path == "system_ce/0";
    }

private:
    int activeUserId_;
};

std::string Reason(const SnapshotEntry &entry) {
    const std::string target = entry.linkTarget.empty() ? "" : " to " + entry.linkTarget;
    switch (entry.type) {
        case EntryType::SYMLINK:
            return "a symbolic link" + target;
        case EntryType::HARD_LINK:
            return "a hard link" + target;
        case EntryType::FIFO:
            return "a FIFO";
        case EntryType::CHARACTER_DEVICE:
            return "a character device";
        case EntryType::BLOCK_DEVICE:
            return "a block device";
        case EntryType::SOCKET:
            return "a socket";
        default:
            return "neither a regular file nor a directory";
    }
}

// Makes the directory and its missing parents, owner-only.
std::string MakeDirectories(const std::string &path) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string prefix = path.substr(0, slash);
        if (mkdir(prefix.c_str(), LAID_DIR_MODE) != 0 && errno != EEXIST) {
            return "could not make " + prefix + ": " + std::strerror(errno) + ".";
        }
        if (slash == std::string::npos) {
            return "";
        }
    }
}

class Layer {
public:
    Layer(int activeUserId, const LayLimits &limits, LaidSnapshot &result)
        : selection_(activeUserId), limits_(limits), result_(result) {}

    const EntryFilter &Filter() const { return selection_; }

    std::string Lay(const SnapshotEntry &entry, EntryReader &content) {
        const std::string destination = selection_.Destination(entry.path);
        const bool workTree = entry.path == "back" || StartsWith(entry.path, "back/");
        // A root that holds back/ is a work tree: only that is laid. back/ comes first in a walk.
        workTree_ = workTree_ || (workTree && (entry.type == EntryType::DIRECTORY || entry.path != "back"));
        if (destination.empty() || (workTree_ && !workTree)) {
            return "";
        }
        if (++entries_ > limits_.entries) {
            return "the snapshot holds more than " + std::to_string(limits_.entries) +
                   " entries a restore takes.";
        }
        if (!IsPlainPath(entry.path)) {
            result_.leftOut.push_back({entry.path, "its name is not a plain path below the data root"});
            return "";
        }
        if (entry.type == EntryType::DIRECTORY) {
            return MakeDirectories(destination);
        }
        if (entry.type != EntryType::FILE) {
            result_.leftOut.push_back({entry.path, Reason(entry)});
            return "";
        }
        std::string failure = MakeDirectories(destination.substr(0, destination.rfind('/')));
        if (failure.empty()) {
            failure = CopyContent(entry, content, destination);
        }
        if (failure.empty()) {
            result_.laid.push_back({entry.origin, destination});
            manifest_.Update(fileDigest_.HexDigest() + "  " + entry.path + "\n");
        }
        return failure;
    }

    void Finish() {
        result_.laidSha256 = manifest_.HexDigest();
        result_.laidBytes = totalBytes_;
    }

private:
    // Never trusts a size the source announced: the bytes are counted as they come.
    std::string CopyContent(const SnapshotEntry &entry, EntryReader &content,
                            const std::string &destination) {
        int out =
            open(destination.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, LAID_FILE_MODE);
        if (out < 0) {
            return "could not write " + destination + ": " + std::strerror(errno) + ".";
        }
        std::string failure;
        uint64_t fileBytes = 0;
        char buffer[COPY_CHUNK];
        for (;;) {
            ssize_t got = content.Read(buffer, sizeof(buffer), failure);
            if (got <= 0) {
                break;
            }
            fileBytes += static_cast<uint64_t>(got);
            fileDigest_.Update(buffer, static_cast<size_t>(got));
            totalBytes_ += static_cast<uint64_t>(got);
            if (fileBytes > limits_.fileBytes) {
                failure = "the snapshot's " + entry.path + " holds more than " + SizeText(limits_.fileBytes) +
                          ", more than a restore takes from one file.";
            } else if (totalBytes_ > limits_.totalBytes) {
                failure = "the files a restore takes from the snapshot hold more than " +
                          SizeText(limits_.totalBytes) + " together.";
            } else if (!WriteAll(out, buffer, static_cast<size_t>(got))) {
                failure = "could not write " + destination + ": " + std::strerror(errno) + ".";
            }
            if (!failure.empty()) {
                break;
            }
        }
        if (close(out) != 0 && failure.empty()) {
            failure = "could not write " + destination + ": " + std::strerror(errno) + ".";
        }
        return failure;
    }

    RestoreSelection selection_;
    LayLimits limits_;
    LaidSnapshot &result_;
    uint64_t totalBytes_ = 0;
    uint64_t entries_ = 0;
    Sha256 fileDigest_;  // of the file being copied
    Sha256 manifest_;
    bool workTree_ = false;
};

}  // namespace

bool StartsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::string SizeText(uint64_t bytes) {
    return bytes % (1 << 20) == 0 ? std::to_string(bytes >> 20) + " MiB" : std::to_string(bytes) + " bytes";
}

std::unique_ptr<EntryFilter> RestoreEntryFilter(int activeUserId) {
    return std::make_unique<RestoreSelection>(activeUserId);
}

std::string LaySnapshot(SnapshotSource &source, int activeUserId, LaidSnapshot &result,
                        const LayLimits &limits) {
    Layer layer(activeUserId, limits, result);
    std::string failure = source.Walk(
        layer.Filter(),
        [&layer](const SnapshotEntry &entry, EntryReader &content) { return layer.Lay(entry, content); });
    // A source that streams may know its data root only once it has been read.
    result.root = source.Root();
    layer.Finish();
    std::tie(result.archiveSha256, result.archiveBytes) = source.ArchiveDigest();
    return failure;
}

}  // namespace Zarvo::Host
