#ifndef ZARVO_HOST_TOOLS_COMMAND_LINE_H
#define ZARVO_HOST_TOOLS_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

namespace Zarvo::Tools {

// The exit statuses every tool shares.
constexpr int EXIT_DONE = 0;
constexpr int EXIT_FAILED = 1;  // the input was fine, the work could not be done
constexpr int EXIT_USAGE = 2;   // bad usage or bad input

// Adds --version ("<tool> <version> (<revision>)") and ends --help with the examples.
void DescribeTool(CLI::App &app, const std::string &tool, const std::string &examples);

// Parses the command line. Nothing when the tool should go on; else the exit status, after
// --help or --version (0) or one sentence on stderr about the wrong usage (EXIT_USAGE).
std::optional<int> ParseCommandLine(CLI::App &app, int argc, char **argv);

// Prints "<tool>: <sentence>" on stderr, control characters made visible, and returns `status`.
int Refuse(const std::string &tool, const std::string &sentence, int status);

}  // namespace Zarvo::Tools

#endif  // ZARVO_HOST_TOOLS_COMMAND_LINE_H
