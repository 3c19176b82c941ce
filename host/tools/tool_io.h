#ifndef ZARVO_HOST_TOOLS_TOOL_IO_H
#define ZARVO_HOST_TOOLS_TOOL_IO_H

#include <string>
#include <string_view>

#include "binary_xml/status.h"

namespace Zarvo::Tools {

// "-" stands for standard input and standard output.
BinaryXml::Status ReadInput(const std::string &path, std::string &content);
BinaryXml::Status WriteOutput(const std::string &path, std::string_view content);

// Prints "<tool>: cannot convert <input>: <reason>." on stderr and returns the exit status.
int Fail(const char *tool, const std::string &input, BinaryXml::Status status);

}  // namespace Zarvo::Tools

#endif  // ZARVO_HOST_TOOLS_TOOL_IO_H
