#ifndef TESTS_SNAPSHOT_TEST_ARCHIVE_H
#define TESTS_SNAPSHOT_TEST_ARCHIVE_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "snapshot_source.h"

namespace Zarvo::Testing {

// One member of an archive a test makes.
struct Member {
    Member(std::string name, Host::EntryType type = Host::EntryType::FILE, std::string content = "",
           uint64_t zeros = 0)
        : name(std::move(name)), type(type), content(std::move(content)), zeros(zeros) {}

    std::string name;
    Host::EntryType type;
    std::string content;  // a file's bytes, or what a link points at
    uint64_t zeros;       // a file of this many zero bytes instead
};

enum class Packing { TAR, TAR_GZ, TAR_ZST, ZIP };

// Writes the members, in order, as an archive. Returns an empty text, else the reason.
std::string WriteArchive(const std::string &path, Packing packing, const std::vector<Member> &members);

// The sample phone's files as members whose names start with `prefix`.
std::vector<Member> SamplePhoneMembers(const std::string &prefix);

}  // namespace Zarvo::Testing

#endif  // TESTS_SNAPSHOT_TEST_ARCHIVE_H
