#ifndef FUZZ_SCRATCH_FILES_H
#define FUZZ_SCRATCH_FILES_H

// A private directory for targets whose code under test reads a path rather than bytes. Each
// process makes its own (parallel jobs never share one) and removes it at exit.

#include <string>
#include <string_view>

namespace Zarvo::Fuzzing {

// The process's scratch directory, made on first use below $TMPDIR, or else in /dev/shm (or /tmp).
const std::string &ScratchDir();

// Replaces the file `name` in the scratch directory with `content` and returns its path.
std::string WriteScratchFile(const std::string &name, std::string_view content);

// Removes `name` from the scratch directory if it is there.
void RemoveScratchFile(const std::string &name);

}  // namespace Zarvo::Fuzzing

#endif  // FUZZ_SCRATCH_FILES_H
