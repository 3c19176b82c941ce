#include "binary_xml/value_text.h"

#include <openssl/evp.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <system_error>

namespace Zarvo::BinaryXml {
namespace {

// Significant digits (without trailing zeros) and decimal exponent of `text`, which is in the
// scientific form std::to_chars writes ("1.25e+03").
int SplitScientific(std::string_view text, std::string &digits) {
    std::size_t ePos = text.find('e');
    digits.clear();
    for (char c : text.substr(0, ePos)) {
        if (c != '.') {
            digits += c;
        }
    }
    while (digits.size() > 1 && digits.back() == '0') {
        digits.pop_back();
    }
    return std::atoi(std::string(text.substr(ePos + 1)).c_str());
}

// The shortest digits that read back to `value`. Java always shows two significant digits, and
// where one would do it takes the two-digit decimal nearest to the value (so the smallest float
// is 1.4E-45, not 1.0E-45), provided that one reads back too.
template <typename Floating>
int ShortestDigits(Floating value, std::string &digits) {
    char buffer[64];
    auto shortest = std::to_chars(buffer, buffer + sizeof(buffer), value, std::chars_format::scientific);
    int exponent =
        SplitScientific(std::string_view(buffer, static_cast<std::size_t>(shortest.ptr - buffer)), digits);
    if (digits.size() > 1) {
        return exponent;
    }
    auto nearest = std::to_chars(buffer, buffer + sizeof(buffer), value, std::chars_format::scientific, 1);
    Floating readBack = 0;
    std::from_chars(buffer, nearest.ptr, readBack);
    if (readBack == value) {
        exponent =
            SplitScientific(std::string_view(buffer, static_cast<std::size_t>(nearest.ptr - buffer)), digits);
    }
    return exponent;
}

// Formats the shortest round-trip digits of a finite, non-zero value the way Java's
// Float.toString and Double.toString lay them out.
template <typename Floating>
void AppendJavaFloating(Floating value, std::string &out) {
    if (std::isnan(value)) {
        out += "NaN";
        return;
    }
    if (std::signbit(value)) {
        out += '-';
        value = -value;
    }
    if (std::isinf(value)) {
        out += "Infinity";
        return;
    }
    if (value == 0) {
        out += "0.0";
        return;
    }
    std::string digits;
    int exponent = ShortestDigits(value, digits);
    if (exponent >= -3 && exponent < 7) {
        if (exponent < 0) {
            out += "0.";
            out.append(static_cast<std::size_t>(-exponent - 1), '0');
            out += digits;
            return;
        }
        std::size_t integerDigits = static_cast<std::size_t>(exponent) + 1;
        if (digits.size() <= integerDigits) {
            out += digits;
            out.append(integerDigits - digits.size(), '0');
            out += ".0";
        } else {
            out.append(digits, 0, integerDigits);
            out += '.';
            out.append(digits, integerDigits);
        }
        return;
    }
    out += digits[0];
    out += '.';
    out += digits.size() > 1 ? digits.substr(1) : "0";
    out += 'E';
    out += std::to_string(exponent);
}

}  // namespace

void AppendDecimal(std::int64_t value, std::string &out) {
    char buffer[24];
    auto result = std::to_chars(buffer, buffer + sizeof(buffer), value);
    out.append(buffer, result.ptr);
}

void AppendSignedHex(std::int64_t value, std::string &out) {
    std::uint64_t magnitude = static_cast<std::uint64_t>(value);
    if (value < 0) {
        out += '-';
        magnitude = ~magnitude + 1;
    }
    char buffer[24];
    auto result = std::to_chars(buffer, buffer + sizeof(buffer), magnitude, 16);
    out.append(buffer, result.ptr);
}

void AppendJavaFloat(float value, std::string &out) {
    AppendJavaFloating(value, out);
}

void AppendJavaDouble(double value, std::string &out) {
    AppendJavaFloating(value, out);
}

void AppendHexBytes(std::string_view bytes, std::string &out) {
    static constexpr char DIGITS[] = "0123456789abcdef";
    for (unsigned char byte : bytes) {
        out += DIGITS[byte >> 4];
        out += DIGITS[byte & 0x0F];
    }
}

void AppendBase64(std::string_view bytes, std::string &out) {
    std::size_t offset = out.size();
    out.resize(offset + 4 * ((bytes.size() + 2) / 3) + 1);
    int written = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(&out[offset]),
                                  reinterpret_cast<const unsigned char *>(bytes.data()),
                                  static_cast<int>(bytes.size()));
    out.resize(offset + static_cast<std::size_t>(written));
}

}  // namespace Zarvo::BinaryXml
