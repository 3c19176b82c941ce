#include "binary_xml/abx_writer.h"

#include <cstring>

#include "binary_xml/abx_format.h"

namespace Zarvo::BinaryXml {

AbxWriter::AbxWriter(Supplementary supplementary) : supplementary_(supplementary), data_(ABX_MAGIC) {}

void AbxWriter::Token(std::uint8_t command, std::uint8_t type) {
    data_ += static_cast<char>((type << 4) | command);
}

void AbxWriter::U16(std::uint16_t value) {
    data_ += static_cast<char>(value >> 8);
    data_ += static_cast<char>(value & 0xFF);
}

void AbxWriter::U32(std::uint32_t value) {
    U16(static_cast<std::uint16_t>(value >> 16));
    U16(static_cast<std::uint16_t>(value & 0xFFFF));
}

void AbxWriter::U64(std::uint64_t value) {
    U32(static_cast<std::uint32_t>(value >> 32));
    U32(static_cast<std::uint32_t>(value & 0xFFFFFFFF));
}

void AbxWriter::Bytes(std::string_view bytes) {
    if (bytes.size() > MAX_STRING_BYTES) {
        ok_ = false;
        U16(0);
        return;
    }
    U16(static_cast<std::uint16_t>(bytes.size()));
    data_.append(bytes);
}

void AbxWriter::String(std::string_view utf8) {
    std::string encoded;
    encoded.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        auto byte = static_cast<unsigned char>(utf8[i]);
        if (byte == 0) {
            encoded += "\xC0\x80";
        } else if (supplementary_ == Supplementary::SURROGATE_PAIR && byte >= 0xF0 && i + 3 < utf8.size()) {
            char32_t cp = (static_cast<char32_t>(byte & 0x07) << 18) |
                          (static_cast<char32_t>(utf8[i + 1] & 0x3F) << 12) |
                          (static_cast<char32_t>(utf8[i + 2] & 0x3F) << 6) | (utf8[i + 3] & 0x3F);
            cp -= 0x10000;
            for (char32_t unit : {0xD800 + (cp >> 10), 0xDC00 + (cp & 0x3FF)}) {
                encoded += static_cast<char>(0xE0 | (unit >> 12));
                encoded += static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
                encoded += static_cast<char>(0x80 | (unit & 0x3F));
            }
            i += 3;
        } else {
            encoded += static_cast<char>(byte);
        }
    }
    Bytes(encoded);
}

void AbxWriter::Interned(std::string_view utf8) {
    auto found = interned_.find(std::string(utf8));
    if (found != interned_.end()) {
        U16(found->second);
        return;
    }
    U16(INTERNED_NEW);
    String(utf8);
    if (interned_.size() < MAX_INTERNED_STRINGS) {
        auto index = static_cast<std::uint16_t>(interned_.size());
        interned_.emplace(std::string(utf8), index);
    }
}

AbxWriter &AbxWriter::StartDocument() {
    Token(START_DOCUMENT, TYPE_NULL);
    return *this;
}

AbxWriter &AbxWriter::EndDocument() {
    Token(END_DOCUMENT, TYPE_NULL);
    return *this;
}

AbxWriter &AbxWriter::StartTag(std::string_view name) {
    Token(START_TAG, TYPE_STRING_INTERNED);
    Interned(name);
    return *this;
}

AbxWriter &AbxWriter::EndTag(std::string_view name) {
    Token(END_TAG, TYPE_STRING_INTERNED);
    Interned(name);
    return *this;
}

AbxWriter &AbxWriter::Attribute(std::string_view name, std::string_view value) {
    Token(ATTRIBUTE, TYPE_STRING);
    Interned(name);
    String(value);
    return *this;
}

AbxWriter &AbxWriter::Attribute(std::string_view name, const char *value) {
    return Attribute(name, std::string_view(value));
}

AbxWriter &AbxWriter::Attribute(std::string_view name, std::int32_t value) {
    Token(ATTRIBUTE, TYPE_INT);
    Interned(name);
    U32(static_cast<std::uint32_t>(value));
    return *this;
}

AbxWriter &AbxWriter::Attribute(std::string_view name, std::int64_t value) {
    Token(ATTRIBUTE, TYPE_LONG);
    Interned(name);
    U64(static_cast<std::uint64_t>(value));
    return *this;
}

AbxWriter &AbxWriter::Attribute(std::string_view name, bool value) {
    Token(ATTRIBUTE, value ? TYPE_BOOLEAN_TRUE : TYPE_BOOLEAN_FALSE);
    Interned(name);
    return *this;
}

AbxWriter &AbxWriter::Attribute(std::string_view name, float value) {
    std::uint32_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    Token(ATTRIBUTE, TYPE_FLOAT);
    Interned(name);
    U32(bits);
    return *this;
}

AbxWriter &AbxWriter::Attribute(std::string_view name, double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    Token(ATTRIBUTE, TYPE_DOUBLE);
    Interned(name);
    U64(bits);
    return *this;
}

AbxWriter &AbxWriter::AttributeInterned(std::string_view name, std::string_view value) {
    Token(ATTRIBUTE, TYPE_STRING_INTERNED);
    Interned(name);
    Interned(value);
    return *this;
}

AbxWriter &AbxWriter::AttributeIntHex(std::string_view name, std::int32_t value) {
    Token(ATTRIBUTE, TYPE_INT_HEX);
    Interned(name);
    U32(static_cast<std::uint32_t>(value));
    return *this;
}

AbxWriter &AbxWriter::AttributeLongHex(std::string_view name, std::int64_t value) {
    Token(ATTRIBUTE, TYPE_LONG_HEX);
    Interned(name);
    U64(static_cast<std::uint64_t>(value));
    return *this;
}

AbxWriter &AbxWriter::AttributeBytesHex(std::string_view name, std::string_view bytes) {
    Token(ATTRIBUTE, TYPE_BYTES_HEX);
    Interned(name);
    Bytes(bytes);
    return *this;
}

AbxWriter &AbxWriter::AttributeBytesBase64(std::string_view name, std::string_view bytes) {
    Token(ATTRIBUTE, TYPE_BYTES_BASE64);
    Interned(name);
    Bytes(bytes);
    return *this;
}

AbxWriter &AbxWriter::CharacterToken(std::uint8_t command, std::string_view text) {
    Token(command, TYPE_STRING);
    String(text);
    return *this;
}

AbxWriter &AbxWriter::Text(std::string_view text) {
    return CharacterToken(TEXT, text);
}
AbxWriter &AbxWriter::Cdsect(std::string_view text) {
    return CharacterToken(CDSECT, text);
}
AbxWriter &AbxWriter::EntityRef(std::string_view name) {
    return CharacterToken(ENTITY_REF, name);
}
AbxWriter &AbxWriter::IgnorableWhitespace(std::string_view text) {
    return CharacterToken(IGNORABLE_WHITESPACE, text);
}
AbxWriter &AbxWriter::ProcessingInstruction(std::string_view text) {
    return CharacterToken(PROCESSING_INSTRUCTION, text);
}
AbxWriter &AbxWriter::Comment(std::string_view text) {
    return CharacterToken(COMMENT, text);
}
AbxWriter &AbxWriter::Docdecl(std::string_view text) {
    return CharacterToken(DOCDECL, text);
}

}  // namespace Zarvo::BinaryXml
