#include "sandbox.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace Zarvo::Host {
namespace {

constexpr char SANDBOX_MARK[] = "ZARVO_SANDBOX";

bool CanRun(const char *program) {
    const char *path = std::getenv("PATH");
    std::string dirs = path != nullptr ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= dirs.size()) {
        size_t end = dirs.find(':', start);
        std::string dir = dirs.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (access((dir + "/" + program).c_str(), X_OK) == 0) {
            return true;
        }
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return false;
}

}  // namespace

bool InSandbox() {
    const char *mark = std::getenv(SANDBOX_MARK);
    return mark != nullptr && std::strcmp(mark, "1") == 0;
}

std::string ReexecInSandbox(int argc, char *argv[]) {
    if (!CanRun("bwrap")) {
        return "bubblewrap (bwrap) is needed to give the restore a private /data; install the bubblewrap "
               "package "
               "or run with --no-sandbox where /data and /dev/unix are already prepared.";
    }
    if (std::system("bwrap --dev-bind / / true >/dev/null 2>&1") != 0) {
        return "bwrap cannot create a mount namespace here; run as root or enable unprivileged user "
               "namespaces.";
    }
    char self[PATH_MAX] = {};
    if (readlink("/proc/self/exe", self, sizeof(self) - 1) <= 0) {
        return "could not find this program's own path to run it in the sandbox.";
    }
    std::vector<std::string> args = {
        "bwrap",     "--dev-bind",        "/",        "/",          "--tmpfs", "/data", "--tmpfs",
        "/dev/unix", "--die-with-parent", "--setenv", SANDBOX_MARK, "1",       "--",    self};
    for (int i = 1; i < argc; ++i) {
        args.emplace_back(argv[i]);
    }
    std::vector<char *> raw;
    for (auto &arg : args) {
        raw.push_back(arg.data());
    }
    raw.push_back(nullptr);
    execvp("bwrap", raw.data());
    return std::string("could not start bwrap: ") + std::strerror(errno) + ".";
}

}  // namespace Zarvo::Host
