#ifndef ZARVO_BINARY_XML_ABX_WRITER_H
#define ZARVO_BINARY_XML_ABX_WRITER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Zarvo::BinaryXml {

// Writes Android binary XML the way Android's serializer does: tag and attribute names are
// interned, values carry their type. Strings are given as UTF-8; U+0000 is written as C0 80.
// The writer checks no structure, so it can also write odd documents for tests. A string longer
// than the form allows makes Ok() false for good.
class AbxWriter {
public:
    // How characters beyond the Basic Multilingual Plane are written: as four-byte UTF-8 (the
    // device runtime's encoder) or as a surrogate pair of three-byte sequences (Java's encoder).
    enum class Supplementary { FOUR_BYTE, SURROGATE_PAIR };

    explicit AbxWriter(Supplementary supplementary = Supplementary::FOUR_BYTE);

    AbxWriter &StartDocument();
    AbxWriter &EndDocument();
    AbxWriter &StartTag(std::string_view name);
    AbxWriter &EndTag(std::string_view name);

    AbxWriter &Attribute(std::string_view name, std::string_view value);
    AbxWriter &Attribute(std::string_view name, const char *value);
    AbxWriter &Attribute(std::string_view name, std::int32_t value);
    AbxWriter &Attribute(std::string_view name, std::int64_t value);
    AbxWriter &Attribute(std::string_view name, bool value);
    AbxWriter &Attribute(std::string_view name, float value);
    AbxWriter &Attribute(std::string_view name, double value);
    AbxWriter &AttributeInterned(std::string_view name, std::string_view value);
    AbxWriter &AttributeIntHex(std::string_view name, std::int32_t value);
    AbxWriter &AttributeLongHex(std::string_view name, std::int64_t value);
    AbxWriter &AttributeBytesHex(std::string_view name, std::string_view bytes);
    AbxWriter &AttributeBytesBase64(std::string_view name, std::string_view bytes);

    AbxWriter &Text(std::string_view text);
    AbxWriter &Cdsect(std::string_view text);
    AbxWriter &EntityRef(std::string_view name);
    AbxWriter &IgnorableWhitespace(std::string_view text);
    AbxWriter &ProcessingInstruction(std::string_view text);
    AbxWriter &Comment(std::string_view text);
    AbxWriter &Docdecl(std::string_view text);

    bool Ok() const { return ok_; }
    const std::string &Data() const { return data_; }

private:
    void Token(std::uint8_t command, std::uint8_t type);
    void U16(std::uint16_t value);
    void U32(std::uint32_t value);
    void U64(std::uint64_t value);
    void String(std::string_view utf8);
    void Bytes(std::string_view bytes);
    void Interned(std::string_view utf8);
    AbxWriter &CharacterToken(std::uint8_t command, std::string_view text);

    Supplementary supplementary_;
    std::string data_;
    std::unordered_map<std::string, std::uint16_t> interned_;
    bool ok_ = true;
};

}  // namespace Zarvo::BinaryXml

#endif  // ZARVO_BINARY_XML_ABX_WRITER_H
