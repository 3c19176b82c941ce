#ifndef ZARVO_BINARY_XML_XML_TO_ABX_H
#define ZARVO_BINARY_XML_XML_TO_ABX_H

#include <string>
#include <string_view>

#include "binary_xml/abx_writer.h"
#include "binary_xml/status.h"

namespace Zarvo::BinaryXml {

struct EncodeOptions {
    // Write "true"/"false" as booleans and canonical decimal integers as INT (or LONG when they
    // do not fit 32 bits), as Android writes such attributes; otherwise every value is a string.
    bool inferTypes = false;
    AbxWriter::Supplementary supplementary = AbxWriter::Supplementary::FOUR_BYTE;
};

// Encodes a text XML document (read with libxml2) as binary XML. MALFORMED when the text is not
// well-formed XML, TOO_LARGE when a string does not fit the binary form.
Status EncodeXml(std::string_view xml, std::string &abx, const EncodeOptions &options = {});

}  // namespace Zarvo::BinaryXml

#endif  // ZARVO_BINARY_XML_XML_TO_ABX_H
