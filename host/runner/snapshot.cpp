#include "snapshot.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/fd_io.h"

namespace Zarvo::Host {
namespace {

const std::string WORK_ROOT = "/data/service/el1/public/update/migrate_server/plugins/200/";
const std::string SOURCE_XML_DIR = WORK_ROOT + "back/sourceXml/";
const std::string DATABASE = "system_ce/0/accounts_ce.db";
const char *const DATABASE_COMPANIONS[] = {"", "-journal", "-wal", "-shm"};
const std::string USERS = "system/users/";
constexpr size_t COPY_CHUNK = 64 * 1024;
constexpr mode_t LAID_DIR_MODE = 0700;
constexpr mode_t LAID_FILE_MODE = 0600;

bool IsDecimal(const std::string &text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool StartsWith(const std::string &text, const std::string &prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
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

std::string MiB(uint64_t bytes) {
    return std::to_string(bytes >> 20) + " MiB";
}

// The entries a restore takes from Android's /data, and where each goes in the work tree.
class RestoreSelection : public EntryFilter {
public:
    explicit RestoreSelection(int activeUserId) : activeUserId_(activeUserId) {}

    // The entry's place in the work tree; empty when the restore does not take it.
    std::string Destination(const std::string &path) const {
        if (path == "back" || StartsWith(path, "back/")) {
            return WORK_ROOT + path;
        }
        for (const char *suffix : DATABASE_COMPANIONS) {
            if (path == DATABASE + suffix && activeUserId_ >= 0) {
                return WORK_ROOT + "back/" + std::to_string(activeUserId_) + "/accounts_ce.db" + suffix;
            }
        }
        if (!StartsWith(path, USERS)) {
            return "";
        }
        const std::string rest = path.substr(USERS.size());
        const std::string first = rest.substr(0, rest.find('/'));
        const bool userFile =
            first == "userlist.xml" || (first.size() > 4 && first.compare(first.size() - 4, 4, ".xml") == 0 &&
                                        IsDecimal(first.substr(0, first.size() - 4)));
        // A user's file, or the user's folder (its photo) and everything below it.
        if ((userFile && first == rest) || IsDecimal(first)) {
            return SOURCE_XML_DIR + rest;
        }
        return "";
    }

    bool Wants(const std::string &path) const override { return !Destination(path).empty(); }
    bool LeadsTo(const std::string &path) const override {
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
        if (destination.empty()) {
            return "";
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
        }
        return failure;
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
            totalBytes_ += static_cast<uint64_t>(got);
            if (fileBytes > limits_.fileBytes) {
                failure = "the snapshot's " + entry.path + " holds more than " + MiB(limits_.fileBytes) +
                          ", more than a restore takes from one file.";
            } else if (totalBytes_ > limits_.totalBytes) {
                failure = "the files a restore takes from the snapshot hold more than " +
                          MiB(limits_.totalBytes) + " together.";
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
};

}  // namespace

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
    return failure;
}

}  // namespace Zarvo::Host
