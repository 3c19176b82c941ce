#include "owner_only_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "support/fd_io.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {

std::string WriteOwnerOnlyFile(const std::string &path, const std::string &content) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string pattern = folder + "/." + name + ".XXXXXX";
    std::vector<char> temporary(pattern.begin(), pattern.end());
    temporary.push_back('\0');
    // mkstemp makes the file 0600 whatever the umask is.
    UniqueFd file(mkstemp(temporary.data()));
    if (!file.Valid()) {
        return "could not write " + path + ": " + std::strerror(errno) + ".";
    }
    int failure = 0;
    if (!WriteAll(file.Get(), content.data(), content.size()) || !file.Close()) {
        failure = errno;
    }
    if (failure == 0 && rename(temporary.data(), path.c_str()) != 0) {
        failure = errno;
    }
    if (failure != 0) {
        unlink(temporary.data());
        return "could not write " + path + ": " + std::strerror(failure) + ".";
    }
    return "";
}

}  // namespace Zarvo::Host
