#ifndef MIGRATE_SERVICE_OWNER_RESOLVER_H
#define MIGRATE_SERVICE_OWNER_RESOLVER_H

#include <sys/types.h>

#include <string>

namespace Zarvo::Host {

// The device account the migrate server runs as. Where the host's user and group databases do
// not know it, it stands for the identity the service itself runs with.
extern const char *const MIGRATE_SERVER_ACCOUNT;

// A user as decimal text or as a name: 0 and the id, or EINVAL for text that is neither.
int ResolveUser(const std::string &text, uid_t &uid);
// A group as decimal text or as a name: 0 and the id, or EINVAL for text that is neither.
int ResolveGroup(const std::string &text, gid_t &gid);
// An octal mode of one to four digits: 0 and the mode, EINVAL for other text, EPERM when it
// asks for the set-user-id, set-group-id or sticky bit.
int ParseMode(const std::string &text, mode_t &mode);

}  // namespace Zarvo::Host

#endif  // MIGRATE_SERVICE_OWNER_RESOLVER_H
