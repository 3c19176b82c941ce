#include "command_line.h"

#include <iostream>

#include "support/build_info.h"
#include "support/printable.h"

namespace Zarvo::Tools {

void DescribeTool(CLI::App &app, const std::string &tool, const std::string &examples) {
    app.name(tool);
    app.set_version_flag("--version", BuildInfo::VersionLine(tool), "Print the version and exit");
    app.footer("Exit status: 0 done, 1 the work failed, 2 bad usage or input.\n\nExamples:\n" + examples);
}

std::optional<int> ParseCommandLine(CLI::App &app, int argc, char **argv) {
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            app.exit(error);
            return EXIT_DONE;
        }
        return Refuse(app.get_name(), std::string(error.what()) + " (see --help).", EXIT_USAGE);
    }
}

int Refuse(const std::string &tool, const std::string &sentence, int status) {
    std::cerr << tool << ": " << Support::Printable(sentence) << std::endl;
    return status;
}

}  // namespace Zarvo::Tools
