#ifndef HOST_RUNNER_OUTPUT_PATHS_H
#define HOST_RUNNER_OUTPUT_PATHS_H

#include <string>

namespace Zarvo::Host {

// Checked before anything runs, so that a run never ends at its last step for want of a place to
// write. Each returns one sentence naming `option` and `path`, or empty text when it can be written.

// A file the runner writes whole, replacing what is there (a file or a link, never written through).
std::string OutputFileProblem(const std::string &option, const std::string &path);
// A folder the runner makes, or fills when it is there.
std::string OutputFolderProblem(const std::string &option, const std::string &path);

}  // namespace Zarvo::Host

#endif  // HOST_RUNNER_OUTPUT_PATHS_H
