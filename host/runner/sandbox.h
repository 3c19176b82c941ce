#ifndef HOST_RUNNER_SANDBOX_H
#define HOST_RUNNER_SANDBOX_H

#include <string>

namespace Zarvo::Host {

// True when this process already runs in a namespace whose /data and /dev/unix are private.
bool InSandbox();

// Replaces this process with itself run under bubblewrap, with fresh tmpfs mounts on /data and
// /dev/unix. Returns only on failure, with a sentence saying what is missing.
std::string ReexecInSandbox(int argc, char *argv[]);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_SANDBOX_H
