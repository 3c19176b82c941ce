#ifndef ZARVO_HOST_TOOLS_TOOL_IO_H
#define ZARVO_HOST_TOOLS_TOOL_IO_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <string_view>

#include "binary_xml/status.h"

namespace Zarvo::Tools {

// A converter's files, in Android's shape: [-i] INPUT [OUTPUT]. "-" stands for standard input
// or output; OUTPUT defaults to standard output; -i replaces INPUT with the result.
struct ConversionFiles {
    std::string input;
    std::string output = "-";
    bool inPlace = false;
};

void AddConversionOptions(CLI::App &app, ConversionFiles &files, const std::string &inputKind,
                          const std::string &outputKind);

using Converter = std::function<BinaryXml::Status(const std::string &source, std::string &result)>;

// Reads, converts and writes, and returns the exit status: 2 for bad usage or input, 1 when the
// result cannot be written, with one sentence on stderr.
int RunConversion(const std::string &tool, const ConversionFiles &files, const Converter &convert);

}  // namespace Zarvo::Tools

#endif  // ZARVO_HOST_TOOLS_TOOL_IO_H
