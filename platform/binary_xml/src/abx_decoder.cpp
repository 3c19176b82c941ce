#include "binary_xml/abx_decoder.h"

#include <cstdint>
#include <cstring>
#include <deque>
#include <optional>
#include <unordered_set>
#include <vector>

#include "binary_xml/abx_format.h"
#include "binary_xml/value_text.h"
#include "binary_xml/xml_text.h"

namespace Zarvo::BinaryXml {
namespace {

constexpr std::string_view XML_DECLARATION = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
constexpr std::size_t NOT_STORED = static_cast<std::size_t>(-1);
// Up to this many attributes a linear scan finds duplicates faster than a hash set.
constexpr std::size_t LINEAR_DUPLICATE_SCAN = 16;

#define RETURN_IF_FAILED(expr)       \
    do {                             \
        Status status_ = (expr);     \
        if (status_ != Status::OK) { \
            return status_;          \
        }                            \
    } while (false)

// Big-endian reads that never pass the end of the input.
class ByteReader {
public:
    explicit ByteReader(std::string_view data) : data_(data) {}

    bool AtEnd() const { return position_ == data_.size(); }

    template <typename Unsigned>
    bool Read(Unsigned &value) {
        if (data_.size() - position_ < sizeof(Unsigned)) {
            return false;
        }
        value = 0;
        for (std::size_t i = 0; i < sizeof(Unsigned); ++i) {
            value = static_cast<Unsigned>((value << 8) | static_cast<unsigned char>(data_[position_ + i]));
        }
        position_ += sizeof(Unsigned);
        return true;
    }

    bool ReadBytes(std::size_t count, std::string_view &bytes) {
        if (data_.size() - position_ < count) {
            return false;
        }
        bytes = data_.substr(position_, count);
        position_ += count;
        return true;
    }

private:
    std::string_view data_;
    std::size_t position_ = 0;
};

bool IsXmlWhitespace(std::string_view text) {
    for (char c : text) {
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r') {
            return false;
        }
    }
    return true;
}

bool ParseCharacterReference(std::string_view digits, int base, char32_t &codePoint) {
    if (digits.empty() || digits.size() > 8) {
        return false;
    }
    std::uint32_t value = 0;
    for (char c : digits) {
        std::uint32_t digit;
        if (c >= '0' && c <= '9') {
            digit = static_cast<std::uint32_t>(c - '0');
        } else if (base == 16 && c >= 'a' && c <= 'f') {
            digit = static_cast<std::uint32_t>(c - 'a' + 10);
        } else if (base == 16 && c >= 'A' && c <= 'F') {
            digit = static_cast<std::uint32_t>(c - 'A' + 10);
        } else {
            return false;
        }
        value = value * static_cast<std::uint32_t>(base) + digit;
    }
    if (value > 0x10FFFF) {
        return false;
    }
    codePoint = value;
    return true;
}

bool ResolveEntity(std::string_view name, char32_t &codePoint) {
    static constexpr std::pair<std::string_view, char32_t> PREDEFINED[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto &[entity, value] : PREDEFINED) {
        if (name == entity) {
            codePoint = value;
            return true;
        }
    }
    if (name.size() > 2 && name[0] == '#' && (name[1] == 'x' || name[1] == 'X')) {
        return ParseCharacterReference(name.substr(2), 16, codePoint);
    }
    if (name.size() > 1 && name[0] == '#') {
        return ParseCharacterReference(name.substr(1), 10, codePoint);
    }
    return false;
}

// Comments may not contain "--" nor end with "-".
void AppendComment(const std::string &body, std::string &out) {
    out += "<!--";
    for (std::size_t i = 0; i < body.size(); ++i) {
        out += body[i];
        if (body[i] == '-' && (i + 1 == body.size() || body[i + 1] == '-')) {
            out += ' ';
        }
    }
    out += "-->";
}

// A CDATA section cannot hold "]]>", nor a carriage return that a parser would keep.
void AppendCdata(const std::string &body, std::string &out) {
    out += "<![CDATA[";
    for (std::size_t i = 0; i < body.size(); ++i) {
        if (body[i] == '\r') {
            out += "]]>&#13;<![CDATA[";
        } else if (body.compare(i, 3, "]]>") == 0) {
            out += "]]]]><![CDATA[>";
            i += 2;
        } else {
            out += body[i];
        }
    }
    out += "]]>";
}

// A processing instruction "target data" whose target is a name other than "xml" and whose
// data cannot end it early; others cannot be written and are left out.
void AppendProcessingInstruction(const std::string &body, std::string &out) {
    std::size_t targetEnd = body.find_first_of(" \t\n\r");
    std::string target = body.substr(0, targetEnd);
    std::string data;
    if (targetEnd != std::string::npos) {
        std::size_t dataStart = body.find_first_not_of(" \t\n\r", targetEnd);
        data = dataStart == std::string::npos ? "" : body.substr(dataStart);
    }
    bool reserved = target.size() == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' &&
                    (target[2] | 0x20) == 'l';
    if (!IsXmlName(target) || reserved || data.find("?>") != std::string::npos) {
        return;
    }
    out += "<?";
    out += target;
    if (!data.empty()) {
        out += ' ';
        out += data;
    }
    out += "?>";
}

class Decoder {
public:
    Decoder(std::string_view body, std::string &xml, const DecodeOptions &options)
        : reader_(body), xml_(xml), out_(&xml), options_(options) {}

    Status Run() {
        xml_.assign(XML_DECLARATION);
        bool first = true;
        while (!ended_ && !reader_.AtEnd()) {
            if (out_ == &discard_) {
                discard_.clear();
            }
            std::uint8_t token = 0;
            reader_.Read(token);
            RETURN_IF_FAILED(HandleToken(token, first));
            first = false;
            if (xml_.size() > MAX_OUTPUT_BYTES) {
                return Status::TOO_LARGE;
            }
        }
        if (!openElements_.empty() || !rootSeen_) {
            return ended_ ? Status::BAD_STRUCTURE : Status::TRUNCATED;
        }
        if (xml_.back() != '\n') {
            xml_ += '\n';
        }
        return Status::OK;
    }

private:
    Status HandleToken(std::uint8_t token, bool first) {
        auto command = static_cast<Command>(token & 0x0F);
        auto type = static_cast<Type>(token >> 4);
        switch (command) {
            case START_DOCUMENT:
                return (type == TYPE_NULL && first) ? Status::OK : Status::MALFORMED;
            case END_DOCUMENT:
                if (type != TYPE_NULL) {
                    return Status::MALFORMED;
                }
                ended_ = true;
                return Status::OK;
            case START_TAG:
                return StartTag(type);
            case END_TAG:
                return EndTag(type);
            case ATTRIBUTE:
                return Attribute(type);
            case TEXT:
            case CDSECT:
            case ENTITY_REF:
            case IGNORABLE_WHITESPACE:
            case PROCESSING_INSTRUCTION:
            case COMMENT:
            case DOCDECL:
                return CharacterToken(command, type);
        }
        return Status::MALFORMED;
    }

    Status ReadString(std::string_view &text) {
        std::uint16_t length = 0;
        if (!reader_.Read(length) || !reader_.ReadBytes(length, text)) {
            return Status::TRUNCATED;
        }
        return Status::OK;
    }

    // Reads an interned-string reference; `index` is where the string is stored, or NOT_STORED
    // for a new string that arrived after the table filled up.
    Status ReadInterned(std::string_view &text, std::size_t &index) {
        std::uint16_t reference = 0;
        if (!reader_.Read(reference)) {
            return Status::TRUNCATED;
        }
        if (reference != INTERNED_NEW) {
            if (reference >= strings_.size()) {
                return Status::BAD_STRING_INDEX;
            }
            text = strings_[reference];
            index = reference;
            return Status::OK;
        }
        RETURN_IF_FAILED(ReadString(text));
        index = NOT_STORED;
        if (strings_.size() < MAX_INTERNED_STRINGS) {
            index = strings_.size();
            strings_.push_back(text);
        }
        return Status::OK;
    }

    static Status ConvertName(std::string_view encoded, std::string &name) {
        if (encoded.size() > MAX_NAME_BYTES) {
            return Status::TOO_LARGE;
        }
        name.clear();
        RETURN_IF_FAILED(AppendXmlText(encoded, XmlContext::NAME, name));
        return IsXmlName(name) ? Status::OK : Status::INVALID_CHARACTER;
    }

    // Names are checked once per interned string and kept in text form.
    Status ReadName(const std::string *&name) {
        std::string_view encoded;
        std::size_t index = NOT_STORED;
        RETURN_IF_FAILED(ReadInterned(encoded, index));
        if (index == NOT_STORED) {
            RETURN_IF_FAILED(ConvertName(encoded, unstoredName_));
            name = &unstoredName_;
            return Status::OK;
        }
        if (index >= names_.size()) {
            names_.resize(strings_.size());
            nameStates_.resize(strings_.size());
        }
        if (!nameStates_[index]) {
            nameStates_[index] = ConvertName(encoded, names_[index]);
        }
        name = &names_[index];
        return *nameStates_[index];
    }

    void CloseStartTag() {
        if (startTagOpen_) {
            *out_ += '>';
            startTagOpen_ = false;
        }
    }

    Status StartTag(Type type) {
        if (type != TYPE_STRING_INTERNED) {
            return Status::MALFORMED;
        }
        const std::string *name = nullptr;
        RETURN_IF_FAILED(ReadName(name));
        CloseStartTag();
        if (openElements_.empty()) {
            if (rootSeen_ && !options_.keepExtraRoots) {
                out_ = &discard_;
            }
            rootSeen_ = true;
        }
        if (openElements_.size() == MAX_ELEMENT_DEPTH) {
            return Status::TOO_LARGE;
        }
        *out_ += '<';
        *out_ += *name;
        openElements_.push_back(*name);
        startTagOpen_ = true;
        attributeNames_.clear();
        attributeNameSet_.clear();
        textRun_ = 0;
        return Status::OK;
    }

    Status EndTag(Type type) {
        if (type != TYPE_STRING_INTERNED) {
            return Status::MALFORMED;
        }
        const std::string *name = nullptr;
        RETURN_IF_FAILED(ReadName(name));
        if (openElements_.empty() || openElements_.back() != *name) {
            return Status::BAD_STRUCTURE;
        }
        if (startTagOpen_) {
            *out_ += "/>";
            startTagOpen_ = false;
        } else {
            *out_ += "</";
            *out_ += *name;
            *out_ += '>';
        }
        openElements_.pop_back();
        if (openElements_.empty()) {
            out_ = &xml_;
        }
        textRun_ = 0;
        return Status::OK;
    }

    // Later occurrences of an attribute name are left out: Android's reader answers a lookup
    // with the first one.
    bool IsDuplicateAttribute(const std::string &name) {
        if (attributeNames_.size() < LINEAR_DUPLICATE_SCAN) {
            for (const auto &seen : attributeNames_) {
                if (seen == name) {
                    return true;
                }
            }
            attributeNames_.push_back(name);
            if (attributeNames_.size() == LINEAR_DUPLICATE_SCAN) {
                attributeNameSet_.insert(attributeNames_.begin(), attributeNames_.end());
            }
            return false;
        }
        return !attributeNameSet_.insert(name).second;
    }

    Status Attribute(Type type) {
        if (!startTagOpen_) {
            return Status::MALFORMED;
        }
        const std::string *name = nullptr;
        RETURN_IF_FAILED(ReadName(name));
        bool duplicate = IsDuplicateAttribute(*name);
        std::size_t mark = out_->size();
        *out_ += ' ';
        *out_ += *name;
        *out_ += "=\"";
        RETURN_IF_FAILED(AttributeValue(type));
        *out_ += '"';
        if (duplicate) {
            out_->resize(mark);
        }
        return Status::OK;
    }

    Status AttributeValue(Type type) {
        std::string_view bytes;
        std::size_t index = 0;
        std::uint32_t u32 = 0;
        std::uint64_t u64 = 0;
        switch (type) {
            case TYPE_STRING:
                RETURN_IF_FAILED(ReadString(bytes));
                return AppendXmlText(bytes, XmlContext::ATTRIBUTE, *out_);
            case TYPE_STRING_INTERNED:
                RETURN_IF_FAILED(ReadInterned(bytes, index));
                return AppendXmlText(bytes, XmlContext::ATTRIBUTE, *out_);
            case TYPE_BYTES_HEX:
                RETURN_IF_FAILED(ReadString(bytes));
                AppendHexBytes(bytes, *out_);
                return Status::OK;
            case TYPE_BYTES_BASE64:
                RETURN_IF_FAILED(ReadString(bytes));
                AppendBase64(bytes, *out_);
                return Status::OK;
            case TYPE_INT:
            case TYPE_INT_HEX:
            case TYPE_FLOAT:
                if (!reader_.Read(u32)) {
                    return Status::TRUNCATED;
                }
                if (type == TYPE_FLOAT) {
                    float value;
                    std::memcpy(&value, &u32, sizeof(value));
                    AppendJavaFloat(value, *out_);
                } else if (type == TYPE_INT) {
                    AppendDecimal(static_cast<std::int32_t>(u32), *out_);
                } else {
                    AppendSignedHex(static_cast<std::int32_t>(u32), *out_);
                }
                return Status::OK;
            case TYPE_LONG:
            case TYPE_LONG_HEX:
            case TYPE_DOUBLE:
                if (!reader_.Read(u64)) {
                    return Status::TRUNCATED;
                }
                if (type == TYPE_DOUBLE) {
                    double value;
                    std::memcpy(&value, &u64, sizeof(value));
                    AppendJavaDouble(value, *out_);
                } else if (type == TYPE_LONG) {
                    AppendDecimal(static_cast<std::int64_t>(u64), *out_);
                } else {
                    AppendSignedHex(static_cast<std::int64_t>(u64), *out_);
                }
                return Status::OK;
            case TYPE_BOOLEAN_TRUE:
                *out_ += "true";
                return Status::OK;
            case TYPE_BOOLEAN_FALSE:
                *out_ += "false";
                return Status::OK;
            default:
                return Status::MALFORMED;
        }
    }

    Status AddToTextRun(std::size_t bytes) {
        textRun_ += bytes;
        return textRun_ > MAX_TEXT_RUN_BYTES ? Status::TOO_LARGE : Status::OK;
    }

    Status CharacterToken(Command command, Type type) {
        std::string_view body;
        if (type == TYPE_STRING) {
            RETURN_IF_FAILED(ReadString(body));
        } else if (type != TYPE_NULL) {
            return Status::MALFORMED;
        }
        CloseStartTag();
        bool inRoot = !openElements_.empty();
        std::size_t decoded = 0;
        switch (command) {
            case TEXT:
            case IGNORABLE_WHITESPACE:
                if (!inRoot) {
                    if (!IsXmlWhitespace(body)) {
                        return Status::BAD_STRUCTURE;
                    }
                    out_->append(body);
                    return Status::OK;
                }
                RETURN_IF_FAILED(AppendXmlText(body, XmlContext::TEXT, *out_, &decoded));
                return AddToTextRun(decoded);
            case CDSECT:
                if (body.empty()) {
                    return Status::OK;
                }
                if (!inRoot) {
                    return Status::BAD_STRUCTURE;
                }
                scratch_.clear();
                RETURN_IF_FAILED(AppendXmlText(body, XmlContext::MARKUP, scratch_));
                AppendCdata(scratch_, *out_);
                return AddToTextRun(scratch_.size());
            case ENTITY_REF:
                return EntityReference(body, inRoot);
            case PROCESSING_INSTRUCTION:
                scratch_.clear();
                RETURN_IF_FAILED(AppendXmlText(body, XmlContext::MARKUP, scratch_));
                AppendProcessingInstruction(scratch_, *out_);
                textRun_ = 0;
                return Status::OK;
            case COMMENT:
                scratch_.clear();
                RETURN_IF_FAILED(AppendXmlText(body, XmlContext::MARKUP, scratch_));
                AppendComment(scratch_, *out_);
                textRun_ = 0;
                return Status::OK;
            default:
                // A document type declaration may define entities that change how the rest
                // reads; it carries no data of its own and is left out.
                return Status::OK;
        }
    }

    Status EntityReference(std::string_view name, bool inRoot) {
        if (!inRoot) {
            return Status::BAD_STRUCTURE;
        }
        char32_t codePoint = 0;
        if (!ResolveEntity(name, codePoint)) {
            return Status::MALFORMED;
        }
        std::size_t before = out_->size();
        AppendXmlCodePoint(codePoint, XmlContext::TEXT, *out_);
        return AddToTextRun(out_->size() - before);
    }

    ByteReader reader_;
    std::string &xml_;
    std::string discard_;  // receives the elements after the first root when they are left out
    std::string *out_;
    DecodeOptions options_;
    std::vector<std::string_view> strings_;
    // Text form of interned strings used as names, and the outcome of checking each (empty
    // until first used as a name). A deque keeps references stable as it grows.
    std::deque<std::string> names_;
    std::vector<std::optional<Status>> nameStates_;
    std::string unstoredName_;
    std::vector<std::string> openElements_;
    std::vector<std::string> attributeNames_;
    std::unordered_set<std::string> attributeNameSet_;
    std::string scratch_;
    std::size_t textRun_ = 0;
    bool startTagOpen_ = false;
    bool rootSeen_ = false;
    bool ended_ = false;
};

}  // namespace

bool HasAbxMagic(std::string_view input) {
    return input.substr(0, ABX_MAGIC.size()) == ABX_MAGIC;
}

Status DecodeAbx(std::string_view input, std::string &xml, const DecodeOptions &options) {
    if (!HasAbxMagic(input)) {
        return ABX_MAGIC.substr(0, input.size()) == input ? Status::TRUNCATED : Status::MALFORMED;
    }
    return Decoder(input.substr(ABX_MAGIC.size()), xml, options).Run();
}

}  // namespace Zarvo::BinaryXml
