#ifndef ZARVO_BINARY_XML_CONVERTER_H
#define ZARVO_BINARY_XML_CONVERTER_H

#include <cstdint>
#include <string>

namespace Zarvo {
namespace UpdateEngine {

// 0 on success; a negative value names the class of failure:
//  -1 the source cannot be opened or read      -5 a character that XML cannot carry
//  -2 the input ends early (cut short)         -6 unbalanced elements, text beside the root
//  -3 a malformed token, type or format        -7 the destination cannot be written
//  -4 an interned-string index out of range    -8 the input or its text form is too large
using XmlConvertStatus = int32_t;

class BinaryXmlConverter {
public:
    // Writes a text XML rendering of the source (Android binary XML, or text XML, which is copied
    // unchanged) to the destination. On failure the destination is left untouched.
    XmlConvertStatus Convert(const std::string &source, const std::string &destination);
};

}  // namespace UpdateEngine
}  // namespace Zarvo

#endif  // ZARVO_BINARY_XML_CONVERTER_H
