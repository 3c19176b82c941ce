#ifndef ZARVO_BINARY_XML_FILE_CONVERSION_H
#define ZARVO_BINARY_XML_FILE_CONVERSION_H

#include <cstddef>
#include <string>
#include <string_view>

#include "binary_xml/abx_decoder.h"
#include "binary_xml/status.h"

namespace Zarvo::BinaryXml {

// Sources larger than this are refused before they are read.
inline constexpr std::size_t MAX_SOURCE_BYTES = 64u << 20;

// Reads a whole regular file. SOURCE_UNREADABLE when it cannot be opened or read, TOO_LARGE
// beyond MAX_SOURCE_BYTES.
Status ReadSourceFile(const std::string &path, std::string &content);

// Replaces `path` with `content` (mode 0600) through a temporary file beside it, so the path
// holds either its old content or the whole new one. DESTINATION_UNWRITABLE on any failure.
Status WriteFileAtomically(const std::string &path, std::string_view content);

// Text XML for `source`: binary XML is decoded, text XML (anything that starts with '<' after
// an optional byte-order mark and white space) is returned unchanged once libxml2 in recovery
// mode finds a root element in it.
Status ToTextXml(std::string_view source, std::string &xml, const DecodeOptions &options = {});

// Reads `source`, converts it with ToTextXml and writes the result to `destination`.
Status ConvertFile(const std::string &source, const std::string &destination,
                   const DecodeOptions &options = {});

}  // namespace Zarvo::BinaryXml

#endif  // ZARVO_BINARY_XML_FILE_CONVERSION_H
