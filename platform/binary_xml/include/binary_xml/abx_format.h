#ifndef ZARVO_BINARY_XML_ABX_FORMAT_H
#define ZARVO_BINARY_XML_ABX_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <string_view>

// Constants of Android's binary XML form: four magic bytes, then tokens whose low nibble is a
// command and whose high nibble is the type of the payload. Integers are big-endian.
namespace Zarvo::BinaryXml {

inline constexpr std::string_view ABX_MAGIC{"ABX\0", 4};

enum Command : std::uint8_t {
    START_DOCUMENT = 0,
    END_DOCUMENT = 1,
    START_TAG = 2,
    END_TAG = 3,
    TEXT = 4,
    CDSECT = 5,
    ENTITY_REF = 6,
    IGNORABLE_WHITESPACE = 7,
    PROCESSING_INSTRUCTION = 8,
    COMMENT = 9,
    DOCDECL = 10,
    ATTRIBUTE = 15,
};

enum Type : std::uint8_t {
    TYPE_NULL = 1,
    TYPE_STRING = 2,
    TYPE_STRING_INTERNED = 3,
    TYPE_BYTES_HEX = 4,
    TYPE_BYTES_BASE64 = 5,
    TYPE_INT = 6,
    TYPE_INT_HEX = 7,
    TYPE_LONG = 8,
    TYPE_LONG_HEX = 9,
    TYPE_FLOAT = 10,
    TYPE_DOUBLE = 11,
    TYPE_BOOLEAN_TRUE = 12,
    TYPE_BOOLEAN_FALSE = 13,
};

constexpr std::uint8_t Token(Command command, Type type) {
    return static_cast<std::uint8_t>((type << 4) | command);
}

// An interned-string reference with this index introduces a new string.
inline constexpr std::uint16_t INTERNED_NEW = 0xFFFF;
inline constexpr std::size_t MAX_INTERNED_STRINGS = 65535;
inline constexpr std::size_t MAX_STRING_BYTES = 65535;

}  // namespace Zarvo::BinaryXml

#endif  // ZARVO_BINARY_XML_ABX_FORMAT_H
