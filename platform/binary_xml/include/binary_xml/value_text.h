#ifndef ZARVO_BINARY_XML_VALUE_TEXT_H
#define ZARVO_BINARY_XML_VALUE_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

// Text forms of typed attribute values, as Android's tools write them.
namespace Zarvo::BinaryXml {

void AppendDecimal(std::int64_t value, std::string &out);
// Lower-case radix-16 with a minus sign for negative values (-1 is "-1").
void AppendSignedHex(std::int64_t value, std::string &out);
// Shortest text that reads back to the same value, in the plain form between 10^-3 and 10^7
// ("0.3", "1.0", "2.71828") and the exponent form outside it ("1.0E10", "1.0E-4").
void AppendJavaFloat(float value, std::string &out);
void AppendJavaDouble(double value, std::string &out);
// Two lower-case hexadecimal digits per byte.
void AppendHexBytes(std::string_view bytes, std::string &out);
// Standard base64 with padding and without line breaks.
void AppendBase64(std::string_view bytes, std::string &out);

}  // namespace Zarvo::BinaryXml

#endif  // ZARVO_BINARY_XML_VALUE_TEXT_H
