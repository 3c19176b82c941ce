#include "program_run.h"

#include <sys/wait.h>

#include <cstdio>

namespace Zarvo::Testing {

ProgramRun RunProgram(const std::string &commandLine) {
    ProgramRun run;
    FILE *pipe = popen((commandLine + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return run;
    }
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) {
        run.output.append(buffer, n);
    }
    int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

}  // namespace Zarvo::Testing
