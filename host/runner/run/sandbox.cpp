#include "sandbox.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "own_path.h"

namespace Zarvo::Host {
namespace {

constexpr char SANDBOX_MARK[] = "ZARVO_SANDBOX";
constexpr int EXEC_FAILED = 127;

}  // namespace

bool InSandbox() {
    const char *mark = std::getenv(SANDBOX_MARK);
    return mark != nullptr && std::strcmp(mark, "1") == 0;
}

int RunInSandbox(int argc, char *argv[], std::string &error) {
    const std::string self = OwnPath();
    if (self.empty()) {
        error = "could not find this program's own path to run it in the sandbox.";
        return -1;
    }
    // bwrap writes to the info descriptor once the namespace stands; silence means it failed.
    int info[2];
    if (pipe(info) != 0) {
        error = std::string("could not make a pipe for the sandbox: ") + std::strerror(errno) + ".";
        return -1;
    }
    std::vector<std::string> args = {"bwrap",
                                     "--dev-bind",
                                     "/",
                                     "/",
                                     "--tmpfs",
                                     "/data",
                                     "--tmpfs",
                                     "/dev/unix",
                                     "--die-with-parent",
                                     "--info-fd",
                                     std::to_string(info[1]),
                                     "--setenv",
                                     SANDBOX_MARK,
                                     "1",
                                     "--",
                                     self};
    for (int i = 1; i < argc; ++i) {
        args.emplace_back(argv[i]);
    }
    pid_t child = fork();
    if (child < 0) {
        error = std::string("could not start the sandbox: ") + std::strerror(errno) + ".";
        return -1;
    }
    if (child == 0) {
        close(info[0]);
        std::vector<char *> raw;
        for (auto &arg : args) {
            raw.push_back(arg.data());
        }
        raw.push_back(nullptr);
        execvp("bwrap", raw.data());
        _exit(EXEC_FAILED);
    }
    close(info[1]);
    // Read the whole message: bwrap dies of SIGPIPE if the reader goes away early.
    size_t received = 0;
    char buffer[256];
    for (ssize_t got; (got = read(info[0], buffer, sizeof(buffer))) != 0;) {
        if (got < 0 && errno != EINTR) {
            break;
        }
        received += got > 0 ? static_cast<size_t>(got) : 0;
    }
    close(info[0]);

    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (received == 0) {
        error =
            WIFEXITED(status) && WEXITSTATUS(status) == EXEC_FAILED
                ? "bubblewrap (bwrap) is needed to give the restore a private /data; install the bubblewrap "
                  "package, or run with --no-sandbox where /data and /dev/unix are already prepared."
                : "bwrap could not create a mount namespace here; run as root or enable unprivileged user "
                  "namespaces.";
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace Zarvo::Host
