#ifndef ZARVO_BINARY_XML_STATUS_H
#define ZARVO_BINARY_XML_STATUS_H

#include <cstdint>

namespace Zarvo::BinaryXml {

// Outcome of a conversion. The values are the converter's public statuses (docs/binary-xml.md).
enum class Status : std::int32_t {
    OK = 0,
    SOURCE_UNREADABLE = -1,
    TRUNCATED = -2,
    MALFORMED = -3,
    BAD_STRING_INDEX = -4,
    INVALID_CHARACTER = -5,
    BAD_STRUCTURE = -6,
    DESTINATION_UNWRITABLE = -7,
    TOO_LARGE = -8,
};

// A short lower-case description, e.g. "the input ends early".
const char *Describe(Status status);

}  // namespace Zarvo::BinaryXml

#endif  // ZARVO_BINARY_XML_STATUS_H
