// A snapshot that is a folder on the host. It is walked through directory descriptors without
// following any link below the folder named, so that nothing outside it can be reached through it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "snapshot_source.h"
#include "support/fd_io.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {
namespace {

// Deeper folders are not walked: no restore needs them, and the walk's stack stays bounded.
constexpr int MAX_DEPTH = 32;

std::string SystemError(const std::string &what) {
    return what + ": " + std::strerror(errno) + ".";
}

EntryType TypeOf(const struct stat &st) {
    // A second name may lie outside the snapshot: its content is not the snapshot's.
    return S_ISREG(st.st_mode) && st.st_nlink > 1 ? EntryType::HARD_LINK : EntryTypeOfMode(st.st_mode);
}

class FdReader : public EntryReader {
public:
    FdReader(int fd, std::string origin) : fd_(fd), origin_(std::move(origin)) {}
    ssize_t Read(char *buffer, size_t size, std::string &error) override {
        if (fd_ < 0) {
            error = origin_ + " has no content to read.";
            return -1;
        }
        for (;;) {
            ssize_t got = read(fd_, buffer, size);
            if (got >= 0 || errno != EINTR) {
                if (got < 0) {
                    error = SystemError("could not read " + origin_);
                }
                return got;
            }
        }
    }

private:
    int fd_;
    std::string origin_;
};

// Whether the directory holds a regular file or a directory the filter takes, found through the
// directories that lead to one without following a link: what marks a data root, as in an archive.
bool HoldsWantedEntry(int dirFd, const std::string &relative, const EntryFilter &filter) {
    std::vector<std::string> names;
    if (ListDirectoryNames(dirFd, names) != 0) {
        return false;
    }
    for (const std::string &name : names) {
        const std::string path = relative.empty() ? name : relative + "/" + name;
        struct stat st {};
        if (fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        if (filter.Wants(path) && (S_ISREG(st.st_mode) || S_ISDIR(st.st_mode))) {
            return true;
        }
        if (S_ISDIR(st.st_mode) && filter.LeadsTo(path)) {
            UniqueFd child(openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (child.Valid() && HoldsWantedEntry(child.Get(), path, filter)) {
                return true;
            }
        }
    }
    return false;
}

class FolderSnapshot : public SnapshotSource {
public:
    explicit FolderSnapshot(std::string folder) : folder_(std::move(folder)) {}

    std::string Root() const override { return rootWords_; }

    // The data root is the folder itself or its data/, whichever holds an entry the restore takes;
    // a link is never followed on the way to it.
    std::string Walk(const EntryFilter &filter, const Visitor &visit) override {
        UniqueFd folder(open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!folder.Valid()) {
            return SystemError("could not open the snapshot folder " + folder_);
        }
        if (HoldsWantedEntry(folder.Get(), "", filter)) {
            rootPath_ = folder_;
            rootWords_ = "the folder itself";
            return WalkDirectory(folder.Get(), "", 0, filter, visit);
        }
        UniqueFd data(openat(folder.Get(), "data", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (data.Valid() && HoldsWantedEntry(data.Get(), "", filter)) {
            rootPath_ = folder_ + "/data";
            rootWords_ = "data/ inside the folder";
            return WalkDirectory(data.Get(), "", 0, filter, visit);
        }
        return "the snapshot " + folder_ +
               " holds neither system_ce/0/accounts_ce.db nor system/users/ with a user's file, nor a work "
               "tree (back/), nor a data/ folder with them.";
    }

private:
    std::string WalkDirectory(int dirFd, const std::string &relative, int depth, const EntryFilter &filter,
                              const Visitor &visit) {
        std::vector<std::string> names;
        std::string failure = ListNames(dirFd, relative, names);
        for (size_t i = 0; failure.empty() && i < names.size(); ++i) {
            const std::string path = relative.empty() ? names[i] : relative + "/" + names[i];
            failure = VisitEntry(dirFd, names[i], path, depth, filter, visit);
        }
        return failure;
    }

    std::string VisitEntry(int dirFd, const std::string &name, const std::string &path, int depth,
                           const EntryFilter &filter, const Visitor &visit) {
        struct stat st {};
        if (fstatat(dirFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
            return SystemError("could not read " + Origin(path));
        }
        SnapshotEntry entry{path, Origin(path), TypeOf(st), ""};
        const bool wanted = filter.Wants(path);
        if (!wanted && !(entry.type == EntryType::DIRECTORY && filter.LeadsTo(path))) {
            return "";
        }
        if (entry.type == EntryType::SYMLINK) {
            entry.linkTarget = LinkTarget(dirFd, name);
        }
        if (entry.type == EntryType::DIRECTORY) {
            if (wanted) {
                FdReader none(-1, entry.origin);
                std::string failure = visit(entry, none);
                if (!failure.empty()) {
                    return failure;
                }
            }
            if (depth + 1 >= MAX_DEPTH) {
                return "";
            }
            UniqueFd child(openat(dirFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (!child.Valid()) {
                return SystemError("could not open " + entry.origin);
            }
            return WalkDirectory(child.Get(), path, depth + 1, filter, visit);
        }
        if (entry.type != EntryType::FILE) {
            FdReader none(-1, entry.origin);
            return visit(entry, none);
        }
        // Opened without following a link and checked again on the descriptor: what is read is
        // the file that was looked at, even if the name was swapped in between.
        UniqueFd file(openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        struct stat opened {};
        if (!file.Valid() || fstat(file.Get(), &opened) != 0) {
            return SystemError("could not open " + entry.origin);
        }
        if (opened.st_ino != st.st_ino || opened.st_dev != st.st_dev) {
            return entry.origin + " changed while the snapshot was read.";
        }
        FdReader content(file.Get(), entry.origin);
        return visit(entry, content);
    }

    std::string ListNames(int dirFd, const std::string &relative, std::vector<std::string> &names) {
        int err = ListDirectoryNames(dirFd, names);
        if (err != 0) {
            errno = err;
            return SystemError("could not list " + Origin(relative));
        }
        return "";
    }

    static std::string LinkTarget(int dirFd, const std::string &name) {
        char target[4096];
        ssize_t length = readlinkat(dirFd, name.c_str(), target, sizeof(target));
        return length > 0 ? std::string(target, static_cast<size_t>(length)) : "";
    }

    std::string Origin(const std::string &relative) const {
        return relative.empty() ? rootPath_ : rootPath_ + "/" + relative;
    }

    std::string folder_;
    std::string rootPath_;
    std::string rootWords_ = "not found yet";
};

}  // namespace

std::unique_ptr<SnapshotSource> OpenFolderSnapshot(const std::string &path, std::string &error) {
    std::string folder = path;
    while (folder.size() > 1 && folder.back() == '/') {
        folder.pop_back();
    }
    // The folder named may be a link (a shelf of links to phones): that one link is followed.
    struct stat st {};
    if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        error = "the snapshot " + path + " is not a directory.";
        return nullptr;
    }
    return std::make_unique<FolderSnapshot>(folder);
}

}  // namespace Zarvo::Host
