#ifndef HOST_RUNNER_OWN_PATH_H
#define HOST_RUNNER_OWN_PATH_H

#include <string>

namespace Zarvo::Host {

// The path of this program's executable, to run it again or to find what was built beside it;
// empty when it cannot be read.
std::string OwnPath();

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_OWN_PATH_H
