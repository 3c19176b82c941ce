#ifndef HOST_RUNNER_SANDBOX_H
#define HOST_RUNNER_SANDBOX_H

#include <string>

namespace Zarvo::Host {

// True when this process already runs in a namespace whose /data and /dev/unix are private.
bool InSandbox();

// Runs this program again under bubblewrap, with fresh tmpfs mounts on /data and /dev/unix, and
// waits for it. Returns its exit status, or -1 with one sentence in `error` when the sandbox could
// not be made.
int RunInSandbox(int argc, char *argv[], std::string &error);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_SANDBOX_H
