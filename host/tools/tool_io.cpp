#include "tool_io.h"

#include <cstdio>
#include <iostream>
#include <iterator>

#include "binary_xml/file_conversion.h"

namespace Zarvo::Tools {

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

BinaryXml::Status WriteOutput(const std::string &path, std::string_view content) {
    if (path != "-") {
        return BinaryXml::WriteFileAtomically(path, content);
    }
    std::cout.write(content.data(), static_cast<std::streamsize>(content.size()));
    std::cout.flush();
    return std::cout.good() ? BinaryXml::Status::OK : BinaryXml::Status::DESTINATION_UNWRITABLE;
}

int Fail(const char *tool, const std::string &input, BinaryXml::Status status) {
    std::cerr << tool << ": cannot convert " << (input == "-" ? "standard input" : input) << ": "
              << BinaryXml::Describe(status) << " (status " << static_cast<int>(status) << ")." << std::endl;
    return 1;
}

}  // namespace Zarvo::Tools
