#include "binary_xml/xml_text.h"

#include <libxml/parser.h>
#include <libxml/valid.h>

#include <array>
#include <cstdint>

namespace Zarvo::BinaryXml {
namespace {

constexpr std::string_view REPLACEMENT{"\xEF\xBF\xBD"};

// What a single byte below 0x80 needs in each context.
enum ByteAction : std::uint8_t { COPY, ESCAPE, FORBIDDEN };

struct ByteActions {
    std::array<std::array<ByteAction, 128>, 4> table{};
};

constexpr ByteActions MakeByteActions() {
    ByteActions actions{};
    for (std::size_t context = 0; context < 4; ++context) {
        for (std::size_t byte = 0; byte < 128; ++byte) {
            bool control = byte < 0x20 && byte != '\t' && byte != '\n' && byte != '\r';
            actions.table[context][byte] = control ? FORBIDDEN : COPY;
        }
    }
    for (auto context : {XmlContext::TEXT, XmlContext::ATTRIBUTE}) {
        auto &row = actions.table[static_cast<std::size_t>(context)];
        row['&'] = ESCAPE;
        row['<'] = ESCAPE;
        row['>'] = ESCAPE;
        row['\r'] = ESCAPE;
    }
    auto &attribute = actions.table[static_cast<std::size_t>(XmlContext::ATTRIBUTE)];
    attribute['"'] = ESCAPE;
    attribute['\t'] = ESCAPE;
    attribute['\n'] = ESCAPE;
    auto &name = actions.table[static_cast<std::size_t>(XmlContext::NAME)];
    name['\t'] = FORBIDDEN;
    name['\n'] = FORBIDDEN;
    name['\r'] = FORBIDDEN;
    return actions;
}

constexpr ByteActions BYTE_ACTIONS = MakeByteActions();

std::string_view EscapeOf(unsigned char byte) {
    switch (byte) {
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        case '\t':
            return "&#9;";
        case '\n':
            return "&#10;";
        default:
            return "&#13;";
    }
}

bool IsContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

void AppendUtf8(char32_t cp, std::string &out) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// One multi-byte sequence of the binary form's UTF-8.
struct Sequence {
    char32_t codePoint = 0;
    std::size_t length = 0;  // bytes consumed; 0 when the bytes are not valid
    bool fromSurrogatePair = false;
};

char32_t ThreeByteValue(const unsigned char *p) {
    return (static_cast<char32_t>(p[0] & 0x0F) << 12) | (static_cast<char32_t>(p[1] & 0x3F) << 6) |
           (p[2] & 0x3F);
}

Sequence DecodeSequence(const unsigned char *p, std::size_t available) {
    Sequence seq;
    unsigned char lead = p[0];
    if (lead == 0xC0 && available >= 2 && p[1] == 0x80) {
        seq.codePoint = 0;
        seq.length = 2;
    } else if (lead >= 0xC2 && lead <= 0xDF) {
        if (available >= 2 && IsContinuation(p[1])) {
            seq.codePoint = (static_cast<char32_t>(lead & 0x1F) << 6) | (p[1] & 0x3F);
            seq.length = 2;
        }
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        if (available >= 3 && IsContinuation(p[1]) && IsContinuation(p[2])) {
            char32_t cp = ThreeByteValue(p);
            if (cp >= 0x800) {
                seq.codePoint = cp;
                seq.length = 3;
                bool high = cp >= 0xD800 && cp <= 0xDBFF;
                if (high && available >= 6 && p[3] == 0xED && p[4] >= 0xB0 && p[4] <= 0xBF &&
                    IsContinuation(p[5])) {
                    char32_t low = ThreeByteValue(p + 3);
                    seq.codePoint = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                    seq.length = 6;
                    seq.fromSurrogatePair = true;
                }
            }
        }
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        if (available >= 4 && IsContinuation(p[1]) && IsContinuation(p[2]) && IsContinuation(p[3])) {
            char32_t cp = (static_cast<char32_t>(lead & 0x07) << 18) |
                          (static_cast<char32_t>(p[1] & 0x3F) << 12) |
                          (static_cast<char32_t>(p[2] & 0x3F) << 6) | (p[3] & 0x3F);
            if (cp >= 0x10000 && cp <= 0x10FFFF) {
                seq.codePoint = cp;
                seq.length = 4;
            }
        }
    }
    return seq;
}

bool IsXmlChar(char32_t cp) {
    if (cp < 0x20) {
        return cp == '\t' || cp == '\n' || cp == '\r';
    }
    return (cp <= 0xD7FF) || (cp >= 0xE000 && cp <= 0xFFFD) || (cp >= 0x10000 && cp <= 0x10FFFF);
}

}  // namespace

Status AppendXmlText(std::string_view encoded, XmlContext context, std::string &out,
                     std::size_t *decodedBytes) {
    const auto &actions = BYTE_ACTIONS.table[static_cast<std::size_t>(context)];
    const auto *bytes = reinterpret_cast<const unsigned char *>(encoded.data());
    const std::size_t size = encoded.size();
    const std::size_t startSize = out.size();
    std::size_t escapeOverhead = 0;
    std::size_t i = 0;
    while (i < size) {
        std::size_t runStart = i;
        while (i < size && bytes[i] < 0x80 && actions[bytes[i]] == COPY) {
            ++i;
        }
        out.append(encoded.data() + runStart, i - runStart);
        if (i == size) {
            break;
        }
        unsigned char byte = bytes[i];
        if (byte < 0x80) {
            if (actions[byte] == ESCAPE) {
                std::string_view escape = EscapeOf(byte);
                out.append(escape);
                escapeOverhead += escape.size() - 1;
            } else if (context == XmlContext::NAME) {
                return Status::INVALID_CHARACTER;
            } else {
                out.append(REPLACEMENT);
            }
            ++i;
            continue;
        }
        Sequence seq = DecodeSequence(bytes + i, size - i);
        if (seq.length == 0) {
            return Status::INVALID_CHARACTER;
        }
        if (!IsXmlChar(seq.codePoint)) {
            if (context == XmlContext::NAME) {
                return Status::INVALID_CHARACTER;
            }
            out.append(REPLACEMENT);
        } else if (seq.fromSurrogatePair) {
            AppendUtf8(seq.codePoint, out);
        } else {
            out.append(encoded.data() + i, seq.length);
        }
        i += seq.length;
    }
    if (decodedBytes != nullptr) {
        *decodedBytes = out.size() - startSize - escapeOverhead;
    }
    return Status::OK;
}

void AppendXmlCodePoint(char32_t codePoint, XmlContext context, std::string &out) {
    if (!IsXmlChar(codePoint)) {
        out.append(REPLACEMENT);
    } else if (codePoint < 0x80 &&
               BYTE_ACTIONS.table[static_cast<std::size_t>(context)][codePoint] == ESCAPE) {
        out.append(EscapeOf(static_cast<unsigned char>(codePoint)));
    } else {
        AppendUtf8(codePoint, out);
    }
}

bool IsXmlName(const std::string &name) {
    return !name.empty() && xmlValidateNameValue(reinterpret_cast<const xmlChar *>(name.c_str())) == 1;
}

}  // namespace Zarvo::BinaryXml
