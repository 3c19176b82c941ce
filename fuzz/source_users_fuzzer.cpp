// Feeds arbitrary bytes to the runner's own reading of a phone's users (the names and photos its
// record shows): the input's parts become userlist.xml, the files of users 0 and 10 and their
// photos, and ReadSourceUsers reads the folder. Besides memory errors and leaks it checks that
// what the reading keeps stays within a small multiple of the bytes it was given, so that no
// repetition, entity or encoding makes a record out of proportion with its snapshot.
#include "source_users_fuzzer.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "record_source_users.h"
#include "scratch_files.h"

namespace {

using Zarvo::Fuzzing::SOURCE_USERS_PART_SEPARATOR;

// What the reading may keep per byte it read, and besides for an empty folder.
constexpr size_t KEPT_PER_INPUT_BYTE = 24;
constexpr size_t KEPT_AT_LEAST = 4096;

void Check(bool holds, const char *what) {
    if (!holds) {
        std::fprintf(stderr, "source_users_fuzzer: %s\n", what);
        std::abort();
    }
}

// The next part of `input` up to the separator (the rest when there is none).
std::string_view NextPart(std::string_view &input) {
    const size_t end = input.find(SOURCE_USERS_PART_SEPARATOR);
    std::string_view part = input.substr(0, end);
    input = end == std::string_view::npos ? std::string_view()
                                          : input.substr(end + SOURCE_USERS_PART_SEPARATOR.size());
    return part;
}

size_t KeptBytes(const Zarvo::Host::SourceUserList &list) {
    size_t kept = sizeof(list) + list.problem.size() + list.form.size();
    for (const auto &user : list.users) {
        kept += sizeof(user) + user.problem.size() + user.form.size() + user.type.value_or("").size() +
                user.name.value_or("").size() + user.photoPng.size();
    }
    return kept;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view input(reinterpret_cast<const char *>(data), size);
    const std::string_view list = NextPart(input);
    const std::string_view user = NextPart(input);
    const std::string_view photo = NextPart(input);
    static const bool photoFolders = [] {
        std::filesystem::create_directories(Zarvo::Fuzzing::ScratchDir() + "/0");
        std::filesystem::create_directories(Zarvo::Fuzzing::ScratchDir() + "/10");
        return true;
    }();
    (void)photoFolders;
    Zarvo::Fuzzing::WriteScratchFile("userlist.xml", list);
    Zarvo::Fuzzing::WriteScratchFile("0.xml", user);
    Zarvo::Fuzzing::WriteScratchFile("10.xml", user);
    Zarvo::Fuzzing::WriteScratchFile("0/photo.png", photo);
    Zarvo::Fuzzing::WriteScratchFile("10/photo.png", photo);
    const size_t given = list.size() + 2 * user.size() + 2 * photo.size();

    const Zarvo::Host::SourceUserList read = Zarvo::Host::ReadSourceUsers(Zarvo::Fuzzing::ScratchDir());
    Check(KeptBytes(read) <= KEPT_AT_LEAST + KEPT_PER_INPUT_BYTE * given,
          "the reading kept more than a small multiple of its input");
    for (const auto &source : read.users) {
        Check(source.name.value_or("").size() <= 1024 + 3, "a name was kept past its bound");
        Check(source.photoPng.empty() || source.photoPng.size() <= photo.size(),
              "a photo was kept that is not the photo file");
        Check(source.problem.empty() || (!source.name && source.photoPng.empty()),
              "a user whose file could not be read still has a name or photo");
    }
    return 0;
}
