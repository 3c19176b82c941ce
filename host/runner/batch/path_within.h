#ifndef HOST_RUNNER_PATH_WITHIN_H
#define HOST_RUNNER_PATH_WITHIN_H

#include <string>

namespace Zarvo::Host {

// Whether `path` (which need not exist yet) is the folder `folder` or lies below it, by where
// they really are: the device and inode of `folder` are looked for among the existing ancestors
// of `path` with its links resolved, so that neither a link nor a bind mount hides it.
bool LiesWithin(const std::string &path, const std::string &folder);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_PATH_WITHIN_H
