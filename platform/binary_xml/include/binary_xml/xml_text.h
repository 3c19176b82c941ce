#ifndef ZARVO_BINARY_XML_XML_TEXT_H
#define ZARVO_BINARY_XML_XML_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

#include "binary_xml/status.h"

namespace Zarvo::BinaryXml {

// Where converted text goes in the XML output; decides escaping and what happens to characters
// that XML 1.0 cannot carry (U+0000, other C0 controls, lone surrogates, U+FFFE, U+FFFF).
enum class XmlContext {
    NAME,       // element or attribute name: such characters are refused, nothing is escaped
    TEXT,       // character data: & < > and CR escaped, such characters become U+FFFD
    ATTRIBUTE,  // attribute value in double quotes: also " tab LF escaped
    MARKUP,     // comment or processing-instruction body: nothing escaped, U+FFFD as in TEXT
};

// Appends a string of the binary form (UTF-8 that may carry U+0000 as C0 80 and characters
// beyond the BMP as six-byte surrogate pairs) to `out` as standard UTF-8, escaped for `context`.
// Returns INVALID_CHARACTER for bytes that are not such UTF-8 (and, for NAME, for characters XML
// cannot carry); `out` may then hold part of the text. When `decodedBytes` is given it receives
// the length of the converted text before escaping.
Status AppendXmlText(std::string_view encoded, XmlContext context, std::string &out,
                     std::size_t *decodedBytes = nullptr);

// Whether `name` (standard UTF-8) is an XML Name that a parser accepts as an element or
// attribute name.
bool IsXmlName(const std::string &name);

// Appends one code point as UTF-8 with the same escaping and replacement rules as AppendXmlText.
void AppendXmlCodePoint(char32_t codePoint, XmlContext context, std::string &out);

}  // namespace Zarvo::BinaryXml

#endif  // ZARVO_BINARY_XML_XML_TEXT_H
