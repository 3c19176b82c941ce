#include "test_archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "sample_phone.h"

namespace Zarvo::Testing {
namespace {

namespace fs = std::filesystem;

unsigned FileType(Host::EntryType type) {
    switch (type) {
        case Host::EntryType::DIRECTORY:
            return AE_IFDIR;
        case Host::EntryType::SYMLINK:
            return AE_IFLNK;
        case Host::EntryType::FIFO:
            return AE_IFIFO;
        case Host::EntryType::CHARACTER_DEVICE:
            return AE_IFCHR;
        default:
            return AE_IFREG;
    }
}

std::string WriteMember(archive *a, const Member &member) {
    std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(),
                                                                        archive_entry_free);
    const bool file = member.type == Host::EntryType::FILE;
    archive_entry_set_pathname(entry.get(), member.name.c_str());
    archive_entry_set_filetype(entry.get(), FileType(member.type));
    archive_entry_set_perm(entry.get(), 0644);
    archive_entry_set_size(entry.get(),
                           file ? static_cast<la_int64_t>(member.content.size() + member.zeros) : 0);
    if (member.type == Host::EntryType::SYMLINK) {
        archive_entry_set_symlink(entry.get(), member.content.c_str());
    } else if (member.type == Host::EntryType::HARD_LINK) {
        archive_entry_set_hardlink(entry.get(), member.content.c_str());
    }
    if (archive_write_header(a, entry.get()) < ARCHIVE_WARN) {
        return archive_error_string(a);
    }
    if (file && !member.content.empty()) {
        archive_write_data(a, member.content.data(), member.content.size());
    }
    const std::string zeros(1 << 20, '\0');
    for (uint64_t left = member.zeros; left > 0;) {
        const size_t chunk = static_cast<size_t>(std::min<uint64_t>(left, zeros.size()));
        if (archive_write_data(a, zeros.data(), chunk) < 0) {
            return archive_error_string(a);
        }
        left -= chunk;
    }
    return "";
}

}  // namespace

std::string WriteArchive(const std::string &path, Packing packing, const std::vector<Member> &members) {
    std::unique_ptr<archive, decltype(&archive_write_free)> owner(archive_write_new(), archive_write_free);
    archive *a = owner.get();
    if (packing == Packing::ZIP) {
        archive_write_set_format_zip(a);
    } else {
        archive_write_set_format_pax_restricted(a);
    }
    if (packing == Packing::TAR_GZ) {
        archive_write_add_filter_gzip(a);
    } else if (packing == Packing::TAR_ZST) {
        archive_write_add_filter_zstd(a);
    }
    if (archive_write_open_filename(a, path.c_str()) != ARCHIVE_OK) {
        return archive_error_string(a);
    }
    for (const Member &member : members) {
        std::string failure = WriteMember(a, member);
        if (!failure.empty()) {
            return failure;
        }
    }
    return archive_write_close(a) == ARCHIVE_OK ? "" : archive_error_string(a);
}

std::vector<Member> SamplePhoneMembers(const std::string &prefix) {
    char pattern[] = "/tmp/sample_members_XXXXXX";
    std::vector<Member> members;
    if (mkdtemp(pattern) == nullptr ||
        !Fixtures::BuildSamplePhone(Fixtures::DefaultSamplePhone(), pattern).empty()) {
        return members;
    }
    for (const auto &item : fs::recursive_directory_iterator(pattern)) {
        const std::string name = prefix + item.path().lexically_relative(pattern).string();
        if (item.is_directory()) {
            members.push_back({name, Host::EntryType::DIRECTORY});
        } else {
            std::ifstream in(item.path(), std::ios::binary);
            std::ostringstream content;
            content << in.rdbuf();
            members.push_back({name, Host::EntryType::FILE, content.str()});
        }
    }
    fs::remove_all(pattern);
    return members;
}

}  // namespace Zarvo::Testing
