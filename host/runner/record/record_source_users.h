#ifndef HOST_RUNNER_RECORD_SOURCE_USERS_H
#define HOST_RUNNER_RECORD_SOURCE_USERS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Zarvo::Host {

// One Android user as its user file in the work tree tells it, read by the runner itself before
// the restore (the plug-in removes the work tree). Every member comes from the phone: hostile text.
struct SourceUser {
    int id = -1;          // as the user list names it
    std::string problem;  // why the file could not be read, in words; empty when it was read
    std::string form;     // "binary XML" or "text XML"
    std::optional<std::string> type;
    std::optional<int64_t> flags;
    std::optional<std::string> name;
    std::string photoPng;  // the bytes of the user's photo when it is a PNG file
};

struct SourceUserList {
    std::string problem;  // why userlist.xml could not be read; empty when it was read
    std::string form;
    std::optional<int64_t> version;
    std::vector<SourceUser> users;  // in the list's order, or by id when the list is unreadable
};

// Reads userlist.xml and every listed <id>.xml (binary or text XML) and photo below `sourceXmlDir`,
// never following a link. Files that cannot be read are described, not fatal. A user listed again
// is listed with a problem and not read again; document types (and so entities) are refused in
// every encoding; names are cut at 1 KiB and photos kept while they add up to 32 MiB, so that what
// the record holds stays within a small multiple of the files.
SourceUserList ReadSourceUsers(const std::string &sourceXmlDir);

// Android's user flags by name, "PRIMARY|ADMIN|INITIALIZED|FULL|SYSTEM"; bits Android does not
// define are named by their hex value, no flag at all is "none".
std::string UserFlagNames(int64_t flags);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_RECORD_SOURCE_USERS_H
