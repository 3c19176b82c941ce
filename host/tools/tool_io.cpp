#include "tool_io.h"

#include <sys/stat.h>

#include <iostream>
#include <iterator>

#include "binary_xml/file_conversion.h"
#include "command_line.h"

namespace Zarvo::Tools {
namespace {

BinaryXml::Status ReadInput(const std::string &path, std::string &content) {
    if (path != "-") {
        return BinaryXml::ReadSourceFile(path, content);
    }
    content.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    if (std::cin.bad()) {
        return BinaryXml::Status::SOURCE_UNREADABLE;
    }
    return content.size() > BinaryXml::MAX_SOURCE_BYTES ? BinaryXml::Status::TOO_LARGE
                                                        : BinaryXml::Status::OK;
}

// A file is written beside itself and renamed over, so a reader never sees half of it; a file
// converted in place keeps its permissions.
BinaryXml::Status WriteOutput(const std::string &path, std::string_view content, bool inPlace) {
    if (path == "-") {
        std::cout.write(content.data(), static_cast<std::streamsize>(content.size()));
        std::cout.flush();
        return std::cout.good() ? BinaryXml::Status::OK : BinaryXml::Status::DESTINATION_UNWRITABLE;
    }
    struct stat before {};
    const bool keepMode = inPlace && stat(path.c_str(), &before) == 0;
    BinaryXml::Status status = BinaryXml::WriteFileAtomically(path, content);
    if (status == BinaryXml::Status::OK && keepMode && chmod(path.c_str(), before.st_mode & 07777) != 0) {
        status = BinaryXml::Status::DESTINATION_UNWRITABLE;
    }
    return status;
}

std::string Named(const std::string &path, const char *standardName) {
    return path == "-" ? standardName : path;
}

}  // namespace

void AddConversionOptions(CLI::App &app, ConversionFiles &files, const std::string &inputKind,
                          const std::string &outputKind) {
    app.add_flag("-i,--in-place", files.inPlace,
                 "Replace INPUT with the result (written beside it, then renamed)");
    app.add_option("INPUT", files.input, inputKind + " file, or - for standard input")->required();
    app.add_option("OUTPUT", files.output,
                   outputKind + " file to write (replaced whole), or - for standard output (the default)");
}

int RunConversion(const std::string &tool, const ConversionFiles &files, const Converter &convert) {
    if (files.inPlace && files.input == "-") {
        return Refuse(tool, "-i converts a file in place, so INPUT cannot be standard input (see --help).",
                      EXIT_USAGE);
    }
    if (files.inPlace && files.output != "-") {
        return Refuse(tool, "-i writes the result over INPUT, so it takes no OUTPUT (see --help).",
                      EXIT_USAGE);
    }
    const std::string &output = files.inPlace ? files.input : files.output;
    std::string source;
    std::string result;
    BinaryXml::Status status = BinaryXml::Status::OK;
    try {
        status = ReadInput(files.input, source);
        if (status == BinaryXml::Status::OK) {
            status = convert(source, result);
        }
        if (status == BinaryXml::Status::OK) {
            status = WriteOutput(output, result, files.inPlace);
        }
    } catch (const std::bad_alloc &) {
        return Refuse(tool, "cannot convert " + Named(files.input, "standard input") + ": out of memory.",
                      EXIT_FAILED);
    }
    if (status == BinaryXml::Status::OK) {
        return EXIT_DONE;
    }
    const std::string reason = std::string(BinaryXml::Describe(status)) + " (status " +
                               std::to_string(static_cast<int>(status)) + ").";
    if (status == BinaryXml::Status::DESTINATION_UNWRITABLE) {
        return Refuse(tool, "cannot write " + Named(output, "standard output") + ": " + reason, EXIT_FAILED);
    }
    return Refuse(tool, "cannot convert " + Named(files.input, "standard input") + ": " + reason, EXIT_USAGE);
}

}  // namespace Zarvo::Tools
