#include "sample_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

namespace Zarvo::Fixtures {
namespace {

namespace fs = std::filesystem;

// Every entry gets the same time, so that the same phone always packs to the same bytes.
constexpr time_t ENTRY_TIME = 1700000000;

using ArchivePtr = std::unique_ptr<archive, decltype(&archive_write_free)>;

// Writes the archive's bytes into pieces of a fixed size, numbered with three digits.
struct PieceWriter {
    std::string stem;
    uint64_t pieceBytes = 0;
    int fd = -1;
    int pieces = 0;
    uint64_t inPiece = 0;

    bool NextPiece() {
        if (fd >= 0) {
            close(fd);
        }
        char number[16];
        std::snprintf(number, sizeof(number), "%03d", pieces++);
        fd = open((stem + number).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        inPiece = 0;
        return fd >= 0;
    }

    static la_ssize_t Write(archive *a, void *self, const void *buffer, size_t size) {
        auto *writer = static_cast<PieceWriter *>(self);
        const char *data = static_cast<const char *>(buffer);
        size_t left = size;
        while (left > 0) {
            if ((writer->fd < 0 || writer->inPiece == writer->pieceBytes) && !writer->NextPiece()) {
                archive_set_error(a, errno, "cannot write a piece of %s", writer->stem.c_str());
                return -1;
            }
            size_t chunk =
                static_cast<size_t>(std::min<uint64_t>(left, writer->pieceBytes - writer->inPiece));
            ssize_t put = write(writer->fd, data, chunk);
            if (put <= 0) {
                archive_set_error(a, errno, "cannot write a piece of %s", writer->stem.c_str());
                return -1;
            }
            data += put;
            left -= static_cast<size_t>(put);
            writer->inPiece += static_cast<uint64_t>(put);
        }
        return static_cast<la_ssize_t>(size);
    }

    static int Close(archive *, void *self) {
        auto *writer = static_cast<PieceWriter *>(self);
        if (writer->fd >= 0 && close(writer->fd) != 0) {
            writer->fd = -1;
            return ARCHIVE_FATAL;
        }
        writer->fd = -1;
        return ARCHIVE_OK;
    }
};

std::string Failure(archive *a, const std::string &out) {
    const char *message = archive_error_string(a);
    return "cannot write " + out + ": " + (message != nullptr ? message : "unknown failure") + ".";
}

std::string ReadFile(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

std::string WriteEntry(archive *a, const fs::path &file, const std::string &name, const std::string &out) {
    std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                        archive_entry_free);
    const bool directory = fs::is_directory(file);
    const std::string content = directory ? "" : ReadFile(file);
    archive_entry_set_pathname(entry.get(), name.c_str());
    archive_entry_set_filetype(entry.get(), directory ? AE_IFDIR : AE_IFREG);
    archive_entry_set_perm(entry.get(), directory ? 0771 : 0600);
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(content.size()));
    archive_entry_set_mtime(entry.get(), ENTRY_TIME, 0);
    if (archive_write_header(a, entry.get()) != ARCHIVE_OK ||
        (!content.empty() &&
         archive_write_data(a, content.data(), content.size()) != static_cast<la_ssize_t>(content.size()))) {
        return Failure(a, out);
    }
    return "";
}

// Packs the snapshot folder `dir` in sorted order, every entry named below the form's data folder.
std::string Pack(const fs::path &dir, const std::string &out, SnapshotForm form, uint64_t pieceBytes) {
    ArchivePtr owner(archive_write_new(), archive_write_free);
    archive *a = owner.get();
    std::string prefix;
    if (form == SnapshotForm::ZIP) {
        archive_write_set_format_zip(a);
        prefix = "fs/data/";
    } else {
        archive_write_set_format_pax_restricted(a);
        prefix = form == SnapshotForm::TAR_GZ ? "data/" : "/data/";
    }
    if (form == SnapshotForm::TAR_GZ) {
        archive_write_add_filter_gzip(a);
        archive_write_set_options(a, "gzip:!timestamp");
    }
    PieceWriter pieces{out, std::max<uint64_t>(pieceBytes, 1)};
    int opened = form == SnapshotForm::SPLIT
                     ? archive_write_open(a, &pieces, nullptr, PieceWriter::Write, PieceWriter::Close)
                     : archive_write_open_filename(a, out.c_str());
    if (opened != ARCHIVE_OK) {
        return Failure(a, out);
    }
    std::vector<fs::path> files;
    for (const auto &item : fs::recursive_directory_iterator(dir)) {
        files.push_back(item.path());
    }
    std::sort(files.begin(), files.end());
    for (const fs::path &file : files) {
        std::string failure = WriteEntry(a, file, prefix + file.lexically_relative(dir).string(), out);
        if (!failure.empty()) {
            return failure;
        }
    }
    return archive_write_close(a) == ARCHIVE_OK ? "" : Failure(a, out);
}

}  // namespace

bool ParseSnapshotForm(const std::string &text, SnapshotForm &form) {
    const std::pair<const char *, SnapshotForm> forms[] = {
        {"folder", SnapshotForm::FOLDER},
        {"tar.gz", SnapshotForm::TAR_GZ},
        {"zip", SnapshotForm::ZIP},
        {"split", SnapshotForm::SPLIT},
    };
    for (const auto &[name, value] : forms) {
        if (text == name) {
            form = value;
            return true;
        }
    }
    return false;
}

std::string WriteSamplePhone(const SamplePhone &phone, const std::string &out, SnapshotForm form,
                             uint64_t pieceBytes) {
    if (form == SnapshotForm::FOLDER) {
        return BuildSamplePhone(phone, out);
    }
    const char *tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/sample_phone_XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        return "cannot make a temporary folder " + pattern + ": " + std::strerror(errno) + ".";
    }
    std::string failure = BuildSamplePhone(phone, pattern);
    if (failure.empty()) {
        failure = Pack(pattern, out, form, pieceBytes);
    }
    std::error_code ignored;
    fs::remove_all(pattern, ignored);
    return failure;
}

}  // namespace Zarvo::Fixtures
