// A snapshot held in an archive, read once as a stream through libarchive. Where the data root lies
// is known only once the whole archive has been read, and an archive that turns out cut short or
// corrupt must not have laid anything: so the entries a restore takes are staged in an unnamed
// temporary file while the stream passes, and handed to the visitor after its end. Everything else
// streams through without being kept, so memory does not grow with the archive.
#include "archive_snapshot.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <string_view>

#include "archive_stream.h"
#include "support/fd_io.h"
#include "support/unique_fd.h"
#include "zip_links.h"

namespace Zarvo::Host {
namespace {

constexpr size_t STAGE_CHUNK = 64 * 1024;
constexpr size_t MAX_NAME = 4096;
// A tar stream ends with zero blocks of 512 bytes; one that stops without them was cut short.
constexpr int64_t TAR_BLOCK = 512;

bool IsPlainName(std::string_view component) {
    return !component.empty() && component != "." && component != "..";
}

// One way to read an archive member's name: a data root, a run of plain folder names, and the path
// below it.
struct Reading {
    std::string_view root;
    std::string_view path;
};

// A work tree's back/ is a common folder name: it marks a data root only at the archive's top or
// in a folder named data, so that a back/ among a phone's own files is not taken for one.
bool MayBeDataRoot(const Reading &reading) {
    if (reading.path != "back" && !StartsWith(reading.path, "back/")) {
        return true;
    }
    const std::string_view root = reading.root;
    return root.empty() || root == "/" || root == "data/" || root == "/data/" ||
           (root.size() > 6 && root.substr(root.size() - 6) == "/data/");
}

// The shallowest way to read `name` as <root><path> with a path the restore takes, if there is
// one: a root nested in it holds a phone's own files, not its data. "./" in front is dropped; a
// name that starts with "/" keeps it in its root, so that /data/ and data/ are different roots. A
// path is asked about only where its first component is one the filter leads to or takes, so the
// cost stays linear in the name's length.
std::optional<Reading> ShallowestReading(std::string_view name, const EntryFilter &filter) {
    while (StartsWith(name, "./")) {
        name.remove_prefix(2);
    }
    while (name.size() > 1 && name.back() == '/') {
        name.remove_suffix(1);
    }
    for (size_t start = StartsWith(name, "/") ? 1 : 0;;) {
        const size_t slash = name.find('/', start);
        const std::string_view first =
            name.substr(start, slash == std::string_view::npos ? slash : slash - start);
        if (filter.LeadsTo(first) || filter.Wants(first)) {
            const Reading reading{name.substr(0, start), name.substr(start)};
            if (MayBeDataRoot(reading) && filter.Wants(reading.path)) {
                return reading;
            }
        }
        if (slash == std::string_view::npos || !IsPlainName(first)) {
            return std::nullopt;
        }
        start = slash + 1;
    }
}

std::string RootWords(const std::string &root) {
    return root.empty() ? "the archive itself" : root + " in the archive";
}

// Orders paths as a walk of sorted folders does: a folder's entries right after it, before a
// sibling whose name merely starts with the folder's ("10/photo.png" before "10.xml").
bool WalksBefore(const std::string &a, const std::string &b) {
    auto key = [](char c) { return c == '/' ? 0 : static_cast<unsigned char>(c) + 1; };
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [&key](char x, char y) { return key(x) < key(y); });
}

EntryType TypeOf(archive_entry *header) {
    return archive_entry_hardlink(header) != nullptr ? EntryType::HARD_LINK
                                                     : EntryTypeOfMode(archive_entry_filetype(header));
}

std::string LinkTarget(archive_entry *header) {
    const char *target = archive_entry_hardlink(header);
    if (target == nullptr) {
        target = archive_entry_symlink(header);
    }
    return target != nullptr ? std::string(target).substr(0, MAX_NAME) : "";
}

std::string MemberName(archive_entry *header) {
    const char *name = archive_entry_pathname(header);
    if (name == nullptr) {
        name = archive_entry_pathname_utf8(header);
    }
    return name != nullptr ? name : "";
}

// An unnamed file in the temporary folder: it goes when it is closed, and nobody else can open it.
class StagingFile {
public:
    std::string Open() {
        const char *tmp = std::getenv("TMPDIR");
        const std::string dir = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
        fd_.Reset(open(dir.c_str(), O_TMPFILE | O_RDWR | O_EXCL | O_CLOEXEC, 0600));
        if (!fd_.Valid()) {
            std::string name = dir + "/restore_runner_XXXXXX";
            fd_.Reset(mkostemp(name.data(), O_CLOEXEC));
            if (fd_.Valid()) {
                unlink(name.c_str());
            }
        }
        return fd_.Valid() ? ""
                           : "could not make a temporary file in " + dir + ": " + std::strerror(errno) + ".";
    }

    uint64_t Size() const { return size_; }
    int Fd() const { return fd_.Get(); }

    std::string Clear() {
        size_ = 0;
        return ftruncate(fd_.Get(), 0) == 0 && lseek(fd_.Get(), 0, SEEK_SET) == 0
                   ? ""
                   : std::string("could not empty the temporary file: ") + std::strerror(errno) + ".";
    }

    std::string Append(const char *data, size_t size) {
        if (!WriteAll(fd_.Get(), data, size)) {
            return std::string("could not write the temporary file: ") + std::strerror(errno) + ".";
        }
        size_ += size;
        return "";
    }

private:
    UniqueFd fd_;
    uint64_t size_ = 0;
};

// A staged file's content, read back from the staging file.
class StagedReader : public EntryReader {
public:
    StagedReader(int fd, uint64_t offset, uint64_t size) : fd_(fd), offset_(offset), left_(size) {}
    ssize_t Read(char *buffer, size_t size, std::string &error) override {
        if (fd_ < 0) {
            error = "the entry has no content to read.";
            return -1;
        }
        size_t want = static_cast<size_t>(std::min<uint64_t>(size, left_));
        for (;;) {
            ssize_t got = want > 0 ? pread(fd_, buffer, want, static_cast<off_t>(offset_)) : 0;
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got < 0) {
                error = std::string("could not read the temporary file: ") + std::strerror(errno) + ".";
            } else {
                offset_ += static_cast<uint64_t>(got);
                left_ -= static_cast<uint64_t>(got);
            }
            return got;
        }
    }

private:
    int fd_;
    uint64_t offset_;
    uint64_t left_;
};

struct StagedEntry {
    SnapshotEntry entry;
    uint64_t offset = 0;
    uint64_t size = 0;
};

using ArchivePtr = std::unique_ptr<archive, decltype(&archive_read_free)>;

class ArchiveSnapshot : public SnapshotSource {
public:
    ArchiveSnapshot(std::vector<std::string> pieces, const ArchiveLimits &limits)
        : pieces_(std::move(pieces)), limits_(limits) {}

    std::string Root() const override { return rootWords_; }
    std::pair<std::string, uint64_t> ArchiveDigest() const override { return digest_; }

    std::string Walk(const EntryFilter &filter, const Visitor &visit) override {
        root_.reset();
        zip_ = false;
        staged_.clear();
        dataBytes_ = 0;
        StagingFile staging;
        std::string failure = staging.Open();
        if (failure.empty()) {
            failure = ReadArchive(filter, staging);
        }
        stream_.reset();
        if (failure.empty() && zip_) {
            failure = MarkZipLinks(staging);
        }
        if (failure.empty() && !root_) {
            failure = "the archive " + pieces_[0] +
                      " holds no data root: neither system_ce/0/accounts_ce.db nor system/users/ at its top, "
                      "under data/ or under another leading folder, nor a work tree (back/).";
        }
        if (!failure.empty()) {
            staged_.clear();
            return failure;
        }
        rootWords_ = RootWords(*root_);
        std::stable_sort(staged_.begin(), staged_.end(), [](const StagedEntry &a, const StagedEntry &b) {
            return WalksBefore(a.entry.path, b.entry.path);
        });
        for (const StagedEntry &staged : staged_) {
            StagedReader content(staged.entry.type == EntryType::FILE ? staging.Fd() : -1, staged.offset,
                                 staged.size);
            failure = visit(staged.entry, content);
            if (!failure.empty()) {
                break;
            }
        }
        staged_.clear();
        return failure;
    }

private:
    std::string ReadArchive(const EntryFilter &filter, StagingFile &staging) {
        ArchiveStream &stream = stream_.emplace(pieces_);
        ArchivePtr owner(archive_read_new(), archive_read_free);
        archive *a = owner.get();
        if (a == nullptr) {
            return "could not start reading the archive " + pieces_[0] + ".";
        }
        // gzip, xz and zstd are decompressed by the stream, with capped memory. bzip2's decoder
        // needs under 4 MiB whatever the header says, so libarchive's serves.
        archive_read_support_filter_bzip2(a);
        archive_read_support_format_tar(a);
        archive_read_support_format_zip(a);
        if (stream.OpenIn(a) != ARCHIVE_OK) {
            return OpenFailure(a);
        }
        for (;;) {
            const int64_t before = archive_filter_bytes(a, 0);
            archive_entry *header = nullptr;
            int status = archive_read_next_header(a, &header);
            if (status == ARCHIVE_EOF) {
                std::string failure = ReadToStreamEnd(a, stream);
                if (failure.empty()) {
                    failure = CheckEnd(a, before);
                }
                if (failure.empty() && stream.ReadRest(a) < 0) {
                    failure = ReadFailure(a);
                }
                if (failure.empty()) {
                    digest_ = {stream.RawDigest(), stream.RawBytes()};
                }
                return failure;
            }
            if (status != ARCHIVE_OK && status != ARCHIVE_WARN) {
                return ReadFailure(a);
            }
            zip_ = (archive_format(a) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_ZIP;
            // Headers alone expand too: millions of empty entries are a bomb without any data.
            std::string failure = CheckExpansion(a);
            if (failure.empty()) {
                failure = CheckZipMethod(a, header);
            }
            if (failure.empty()) {
                failure = TakeEntry(a, header, filter, staging);
            }
            if (!failure.empty()) {
                return failure;
            }
        }
    }

    // A link stored in a zip was staged as a file holding its target: the central directory tells
    // it apart, and it is handed over as the link it is.
    std::string MarkZipLinks(StagingFile &staging) {
        if (pieces_.size() > 1) {
            return "the archive " + pieces_[0] +
                   " is a zip in pieces; the runner reads a zip only as one file.";
        }
        std::set<std::string> staged;
        for (const StagedEntry &entry : staged_) {
            staged.insert(Member(entry.entry));
        }
        std::set<std::string> links;
        UniqueFd zip(open(pieces_[0].c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        struct stat st {};
        if (!zip.Valid() || fstat(zip.Get(), &st) != 0 || !S_ISREG(st.st_mode)) {
            return "could not open " + pieces_[0] + " again to read its central directory.";
        }
        std::string failure = FindZipLinks(zip.Get(), [&staged, &links](const std::string &name) {
            if (staged.count(name) > 0) {
                links.insert(name);
            }
        });
        if (!failure.empty()) {
            return "the zip " + pieces_[0] + " cannot be read as a whole: " + failure;
        }
        for (StagedEntry &entry : staged_) {
            if (entry.entry.type == EntryType::FILE && links.count(Member(entry.entry)) > 0) {
                std::string target(static_cast<size_t>(std::min<uint64_t>(entry.size, MAX_NAME)), '\0');
                const ssize_t got =
                    pread(staging.Fd(), target.data(), target.size(), static_cast<off_t>(entry.offset));
                target.resize(got > 0 ? static_cast<size_t>(got) : 0);
                entry.entry.type = EntryType::SYMLINK;
                entry.entry.linkTarget = target;
            }
        }
        return "";
    }

    std::string Member(const SnapshotEntry &entry) const {
        return entry.origin.substr(pieces_[0].size() + 1);
    }

    // Stages the entry when a restore takes it from the data root; else only reads through it, so
    // that a fault anywhere in the archive is found.
    std::string TakeEntry(archive *a, archive_entry *header, const EntryFilter &filter,
                          StagingFile &staging) {
        const std::string name = MemberName(header);
        const std::optional<Reading> reading =
            name.size() <= MAX_NAME ? ShallowestReading(name, filter) : std::nullopt;
        if (!reading) {
            return ReadThrough(a);
        }
        std::string failure;
        if (!TakeRoot(std::string(reading->root), staging, failure)) {
            return failure.empty() ? ReadThrough(a) : failure;
        }
        if (staged_.size() >= limits_.staged.entries) {
            return "the archive " + pieces_[0] + " holds more than " +
                   std::to_string(limits_.staged.entries) + " entries a restore takes.";
        }
        const SnapshotEntry entry{std::string(reading->path), pieces_[0] + ":" + name, TypeOf(header),
                                  LinkTarget(header)};
        const uint64_t offset = staging.Size();
        failure = entry.type == EntryType::FILE ? Stage(a, name, staging) : ReadThrough(a);
        staged_.push_back({entry, offset, staging.Size() - offset});
        return failure;
    }

    // Whether an entry under `root` belongs to the data root. A root nested in the one taken is a
    // folder of the phone's own files; one that holds the root taken so far replaces it, and what
    // was staged for that goes. Two roots neither of which holds the other are refused.
    bool TakeRoot(const std::string &root, StagingFile &staging, std::string &failure) {
        if (root_ && *root_ != root && StartsWith(root, *root_)) {
            return false;
        }
        if (root_ && *root_ != root && !StartsWith(*root_, root)) {
            failure = "the archive " + pieces_[0] + " holds two data roots, " + RootName(*root_) + " and " +
                      RootName(root) + "; give it with one of them only.";
            return false;
        }
        if (root_ && *root_ != root) {
            staged_.clear();
            failure = staging.Clear();
        }
        root_ = root;
        return failure.empty();
    }

    std::string Stage(archive *a, const std::string &name, StagingFile &staging) {
        char buffer[STAGE_CHUNK];
        uint64_t fileBytes = 0;
        for (;;) {
            la_ssize_t got = archive_read_data(a, buffer, sizeof(buffer));
            if (got == 0) {
                return "";
            }
            if (got < 0) {
                return ReadFailure(a);
            }
            fileBytes += static_cast<uint64_t>(got);
            dataBytes_ += static_cast<uint64_t>(got);
            if (fileBytes > limits_.staged.fileBytes) {
                return "the archive's " + name + " holds more than " + SizeText(limits_.staged.fileBytes) +
                       ", more than a restore takes from one file.";
            }
            if (staging.Size() + static_cast<uint64_t>(got) > limits_.staged.totalBytes) {
                return "the entries a restore takes from the archive " + pieces_[0] + " hold more than " +
                       SizeText(limits_.staged.totalBytes) + " together.";
            }
            std::string failure = CheckExpansion(a);
            if (failure.empty()) {
                failure = staging.Append(buffer, static_cast<size_t>(got));
            }
            if (!failure.empty()) {
                return failure;
            }
        }
    }

    // Reads an entry's data without keeping it: a bad checksum or a cut shows here too.
    std::string ReadThrough(archive *a) {
        for (;;) {
            const void *block = nullptr;
            size_t size = 0;
            la_int64_t offset = 0;
            int status = archive_read_data_block(a, &block, &size, &offset);
            if (status == ARCHIVE_EOF) {
                return "";
            }
            if (status != ARCHIVE_OK) {
                return ReadFailure(a);
            }
            dataBytes_ += size;
            std::string failure = CheckExpansion(a);
            if (!failure.empty()) {
                return failure;
            }
        }
    }

    // A gzip stream's last check lies after the archive's end, and more may follow it.
    std::string ReadToStreamEnd(archive *a, ArchiveStream &stream) {
        for (;;) {
            const la_ssize_t got = stream.ReadOn(a);
            if (got == 0) {
                return "";
            }
            std::string failure = got < 0 ? ReadFailure(a) : CheckExpansion(a);
            if (!failure.empty()) {
                return failure;
            }
        }
    }

    std::string CheckExpansion(archive *a) const {
        const uint64_t expanded =
            std::max({static_cast<uint64_t>(std::max<la_int64_t>(archive_filter_bytes(a, 0), 0)), dataBytes_,
                      stream_->HandedBytes()});
        const uint64_t read = std::max<uint64_t>(stream_->RawBytes(), 1);
        if (expanded > limits_.expansionFloor && expanded / limits_.expansionRatio > read) {
            return "the archive " + pieces_[0] + " expands to more than " +
                   std::to_string(limits_.expansionRatio) + " times its size, as an archive bomb does.";
        }
        return "";
    }

    // A zip entry's own compression may be lzma, xz, zstd or bzip2, whose decoders in libarchive
    // take whatever memory the entry asks for; a file-system extraction stores or deflates.
    std::string CheckZipMethod(archive *a, archive_entry *header) const {
        if ((archive_format(a) & ARCHIVE_FORMAT_BASE_MASK) != ARCHIVE_FORMAT_ZIP) {
            return "";
        }
        const std::string_view format = archive_format_name(a) != nullptr ? archive_format_name(a) : "";
        if (format.find("(uncompressed)") != std::string_view::npos ||
            format.find("(deflation)") != std::string_view::npos) {
            return "";
        }
        return "the archive " + pieces_[0] + " compresses its entry " + MemberName(header) + " as " +
               std::string(format) + "; the runner reads zip entries only stored or deflated.";
    }

    std::string CheckEnd(archive *a, int64_t before) const {
        const bool tar = (archive_format(a) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_TAR;
        if (tar && archive_filter_bytes(a, 0) - before < TAR_BLOCK) {
            return "the archive " + pieces_[0] +
                   " is cut short: its tar stream stops without the end-of-archive block.";
        }
        return "";
    }

    std::string OpenFailure(archive *a) const {
        // libarchive's errno for a format it does not know.
        if (archive_errno(a) == EILSEQ) {
            return "the snapshot " + pieces_[0] +
                   " is neither a directory nor an archive the runner reads (tar, plain or compressed with "
                   "gzip, xz, zstd or bzip2, or zip).";
        }
        return ReadFailure(a);
    }

    std::string ReadFailure(archive *a) const {
        std::string message = archive_error_string(a) != nullptr ? archive_error_string(a) : "";
        while (!message.empty() && (message.back() == '.' || message.back() == '\n')) {
            message.pop_back();
        }
        if (archive_errno(a) == ENOMEM) {
            return "could not read the archive " + pieces_[0] + " within the runner's memory" +
                   (message.empty() ? "" : ": " + message) + ".";
        }
        return "could not read the archive " + pieces_[0] + ", which is cut short or corrupt" +
               (message.empty() ? "" : ": " + message) + ".";
    }

    static std::string RootName(const std::string &root) { return root.empty() ? "its top" : root; }

    std::vector<std::string> pieces_;
    ArchiveLimits limits_;
    std::string rootWords_ = "not found yet";
    std::optional<std::string> root_;
    std::vector<StagedEntry> staged_;
    uint64_t dataBytes_ = 0;
    bool zip_ = false;
    std::optional<ArchiveStream> stream_;  // while the archive is read
    std::pair<std::string, uint64_t> digest_;
};

}  // namespace

std::unique_ptr<SnapshotSource> OpenArchiveSnapshot(std::vector<std::string> pieces,
                                                    const ArchiveLimits &limits) {
    return std::make_unique<ArchiveSnapshot>(std::move(pieces), limits);
}

}  // namespace Zarvo::Host
