#ifndef ZARVO_BINARY_XML_ABX_DECODER_H
#define ZARVO_BINARY_XML_ABX_DECODER_H

#include <cstddef>
#include <string>
#include <string_view>

#include "binary_xml/status.h"

namespace Zarvo::BinaryXml {

struct DecodeOptions {
    // Some device files hold more than one top-level element. By default only the first is
    // written, so that the output is well-formed; with this set the others follow it, as
    // Android's own converter writes them.
    bool keepExtraRoots = false;
};

// Limits of the text form, chosen so that libxml2 (without its "huge" option) reads every
// document the decoder accepts.
inline constexpr std::size_t MAX_ELEMENT_DEPTH = 256;
inline constexpr std::size_t MAX_NAME_BYTES = 50000;
inline constexpr std::size_t MAX_TEXT_RUN_BYTES = 10000000;
inline constexpr std::size_t MAX_OUTPUT_BYTES = 256u << 20;

// Whether the input starts with the binary form's magic bytes.
bool HasAbxMagic(std::string_view input);

// Converts a whole binary XML document (magic bytes included) to text XML in `xml`, replacing
// its content. On failure `xml` holds an unspecified partial rendering.
Status DecodeAbx(std::string_view input, std::string &xml, const DecodeOptions &options = {});

}  // namespace Zarvo::BinaryXml

#endif  // ZARVO_BINARY_XML_ABX_DECODER_H
