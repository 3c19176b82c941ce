#include "sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "support/fd_io.h"
#include "support/unique_fd.h"

namespace Zarvo::Host {
namespace {

constexpr char SANDBOX_MARK[] = "ZARVO_SANDBOX";
constexpr const char *PRIVATE_MOUNTS[] = {"/data", "/dev/unix"};

std::string Reason(int error) {
    return std::strerror(error);
}

bool WriteProcFile(const char *path, const std::string &text) {
    UniqueFd fd(open(path, O_WRONLY | O_CLOEXEC));
    return fd.Valid() && WriteAll(fd.Get(), text.data(), text.size());
}

// A user namespace in which this process keeps its own user and group ids, and gains the
// capabilities to mount inside it.
std::string EnterUserNamespace() {
    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return "could not make a private mount namespace for the restore (" + Reason(errno) +
               "); run as root or enable unprivileged user namespaces.";
    }
    if (!WriteProcFile("/proc/self/setgroups", "deny") ||
        !WriteProcFile("/proc/self/uid_map", uid + " " + uid + " 1") ||
        !WriteProcFile("/proc/self/gid_map", gid + " " + gid + " 1")) {
        return "could not map this user into the restore's user namespace: " + Reason(errno) + ".";
    }
    return "";
}

}  // namespace

bool InSandbox() {
    const char *mark = std::getenv(SANDBOX_MARK);
    return mark != nullptr && std::strcmp(mark, "1") == 0;
}

std::string EnterSandbox() {
    if (unshare(CLONE_NEWNS) != 0) {
        if (errno != EPERM) {
            return "could not make a private mount namespace for the restore: " + Reason(errno) + ".";
        }
        const std::string problem = EnterUserNamespace();
        if (!problem.empty()) {
            return problem;
        }
    }
    // Mounts of the host still arrive here; none made here goes back.
    if (mount(nullptr, "/", nullptr, MS_REC | MS_SLAVE, nullptr) != 0) {
        return "could not keep the restore's mounts from the host: " + Reason(errno) + ".";
    }
    for (const char *point : PRIVATE_MOUNTS) {
        if (mkdir(point, 0755) != 0 && errno != EEXIST) {
            return std::string("could not make the mount point ") + point + ": " + Reason(errno) + ".";
        }
        if (mount("tmpfs", point, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) {
            return std::string("could not mount a private ") + point + ": " + Reason(errno) + ".";
        }
    }
    // Nothing the restore starts gains privileges by running a set-user-id program.
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        return "could not keep the restore's processes from gaining privileges: " + Reason(errno) + ".";
    }
    setenv(SANDBOX_MARK, "1", 1);
    return "";
}

}  // namespace Zarvo::Host
