#ifndef HOST_RUNNER_SANDBOX_H
#define HOST_RUNNER_SANDBOX_H

#include <string>

namespace Zarvo::Host {

// True when this process already runs in a namespace whose /data and /dev/unix are private.
bool InSandbox();

// Moves this process into a mount namespace of its own in which /data and /dev/unix are fresh
// tmpfs mounts; without root it first enters a user namespace that maps its own user and group to
// themselves. Nothing mounted there reaches the host, and the processes it starts stay inside.
// Call it while the process has one thread. Returns one sentence when the sandbox cannot be made.
std::string EnterSandbox();

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_SANDBOX_H
