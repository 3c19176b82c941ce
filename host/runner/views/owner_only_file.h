#ifndef HOST_RUNNER_OWNER_ONLY_FILE_H
#define HOST_RUNNER_OWNER_ONLY_FILE_H

#include <functional>
#include <ostream>
#include <string>

namespace Zarvo::Host {

// Writes `content` to `path` readable and writable by its owner only (0600) from the moment the
// file exists: it is written under a temporary name made 0600 in the same folder, then renamed over
// `path` (a link there is replaced, never written through). Empty text on success, else one sentence.
std::string WriteOwnerOnlyFile(const std::string &path, const std::string &content);

// The same, with the content written by `write` straight into the file's stream, so that a large
// document is never held whole in memory.
std::string WriteOwnerOnlyFile(const std::string &path, const std::function<void(std::ostream &)> &write);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_OWNER_ONLY_FILE_H
