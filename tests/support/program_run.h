#ifndef TESTS_SUPPORT_PROGRAM_RUN_H
#define TESTS_SUPPORT_PROGRAM_RUN_H

#include <string>

namespace Zarvo::Testing {

struct ProgramRun {
    int exitCode = -1;   // -1 when the program did not exit normally
    std::string output;  // stdout and stderr together
};

// Runs a shell command line as a person would, and waits for it.
ProgramRun RunProgram(const std::string &commandLine);

}  // namespace Zarvo::Testing

#endif  // TESTS_SUPPORT_PROGRAM_RUN_H
