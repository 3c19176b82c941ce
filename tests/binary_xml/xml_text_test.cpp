#include "binary_xml/xml_text.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace Zarvo::BinaryXml {
namespace {

const std::string R = "\xEF\xBF\xBD";          // U+FFFD
const std::string EMOJI = "\xF0\x9F\x98\x80";  // U+1F600
const std::string REFUSED = "<refused>";

std::string Convert(std::string_view encoded, XmlContext context) {
    std::string out;
    Status status = AppendXmlText(encoded, context, out);
    EXPECT_TRUE(status == Status::OK || status == Status::INVALID_CHARACTER);
    return status == Status::OK ? out : REFUSED;
}

// Strings as the binary form writes them (C0 80 for U+0000, surrogate pairs as two three-byte
// sequences) become standard UTF-8, escaped for where they go.
TEST(XmlText, ConvertsModifiedUtf8AndEscapesForEachContext) {
    constexpr XmlContext TEXT = XmlContext::TEXT, ATTR = XmlContext::ATTRIBUTE, NAME = XmlContext::NAME;
    const std::tuple<std::string, XmlContext, std::string> cases[] = {
        {EMOJI, TEXT, EMOJI},
        {"a\xED\xA0\xBD\xED\xB8\x80z", TEXT, "a" + EMOJI + "z"},            // the same as a pair
        {"\xED\xAF\xBF\xED\xBF\xBF", ATTR, "\xF4\x8F\xBF\xBF"},             // U+10FFFF as a pair
        {"a\xC0\x80z", TEXT, "a" + R + "z"},                                // U+0000
        {std::string("a\0z", 3), ATTR, "a" + R + "z"},                      // a raw zero byte
        {"x\xED\xA0\xBD", TEXT, "x" + R},                                   // high surrogate, cut off
        {"\xED\xB8\x80y", ATTR, R + "y"},                                   // low surrogate alone
        {"\xED\xA0\xBD\xED\xA0\xBD", TEXT, R + R},                          // two high surrogates
        {"\xEF\xBF\xBE\xEF\xBF\xBF\x01\x1F\x0B", ATTR, R + R + R + R + R},  // U+FFFE, U+FFFF, C0
        {"\x7F\xC2\x85", TEXT, "\x7F\xC2\x85"},                             // allowed in XML 1.0
        {"a\xC0\x80-\x01", XmlContext::MARKUP, "a" + R + "-" + R},
        {"a&b<c>d\"e'f\tg\nh\ri", TEXT, "a&amp;b&lt;c&gt;d\"e'f\tg\nh&#13;i"},
        {"a&b<c>d\"e'f\tg\nh\ri", ATTR, "a&amp;b&lt;c&gt;d&quot;e'f&#9;g&#10;h&#13;i"},
        {"a&b<c>\"", XmlContext::MARKUP, "a&b<c>\""},
        {"\xC3\xA9t\xC3\xA9", NAME, "\xC3\xA9t\xC3\xA9"},
        {"a\xC0\x80", NAME, REFUSED},  // names refuse what text replaces
        {"a\tb", NAME, REFUSED},
        {"\xED\xA0\xBD", NAME, REFUSED},
    };
    for (const auto &[in, context, out] : cases) {
        EXPECT_EQ(Convert(in, context), out) << testing::PrintToString(in);
    }
    for (std::string_view bad :
         {"\x80", "\xC0\x81", "\xC1\xBF", "\xE0\x80\x80", "\xF0\x80\x80\x80", "\xF4\x90\x80\x80",
          "\xF5\x80\x80\x80", "\xFF", "\xC3", "\xE2\x82", "\xC3\x28"}) {
        EXPECT_EQ(Convert(bad, TEXT), REFUSED) << testing::PrintToString(bad);
    }
}

TEST(XmlText, DecodedLengthCountsCharactersBeforeEscaping) {
    std::string out;
    std::size_t decoded = 0;
    ASSERT_EQ(AppendXmlText("a&\xC3\xA9\xED\xA0\xBD\xED\xB8\x80", XmlContext::TEXT, out, &decoded),
              Status::OK);
    EXPECT_EQ(decoded, 1u + 1u + 2u + 4u);
}

}  // namespace
}  // namespace Zarvo::BinaryXml
