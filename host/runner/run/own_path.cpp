#include "own_path.h"

#include <unistd.h>

#include <climits>

namespace Zarvo::Host {

std::string OwnPath() {
    char self[PATH_MAX] = {};
    const ssize_t length = readlink("/proc/self/exe", self, sizeof(self) - 1);
    return length > 0 ? std::string(self, static_cast<size_t>(length)) : std::string();
}

}  // namespace Zarvo::Host
