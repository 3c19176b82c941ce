#include "binary_xml/xml_text.h"

#include <gtest/gtest.h>

#include <string>

namespace Zarvo::BinaryXml {
namespace {

constexpr const char *REPLACEMENT = "\xEF\xBF\xBD";

std::string Convert(std::string_view encoded, XmlContext context = XmlContext::TEXT) {
    std::string out;
    Status status = AppendXmlText(encoded, context, out);
    return status == Status::OK ? out : "<failed " + std::to_string(static_cast<int>(status)) + ">";
}

TEST(ModifiedUtf8, SupplementaryCharactersBecomeFourByteUtf8InBothForms) {
    const std::string emoji = "\xF0\x9F\x98\x80";  // U+1F600
    EXPECT_EQ(Convert(emoji), emoji);
    EXPECT_EQ(Convert("a\xED\xA0\xBD\xED\xB8\x80z"), "a" + emoji + "z");
    EXPECT_EQ(Convert("\xF4\x8F\xBF\xBF"), "\xF4\x8F\xBF\xBF");          // U+10FFFF
    EXPECT_EQ(Convert("\xED\xAF\xBF\xED\xBF\xBF"), "\xF4\x8F\xBF\xBF");  // the same as a pair
}

TEST(ModifiedUtf8, NulAndLoneSurrogatesAreReplacedInCharacterData) {
    EXPECT_EQ(Convert("a\xC0\x80z"), std::string("a") + REPLACEMENT + "z");
    EXPECT_EQ(Convert(std::string_view("a\0z", 3)), std::string("a") + REPLACEMENT + "z");
    EXPECT_EQ(Convert("x\xED\xA0\xBD"), std::string("x") + REPLACEMENT);                     // high, cut off
    EXPECT_EQ(Convert("\xED\xB8\x80y"), std::string(REPLACEMENT) + "y");                     // low alone
    EXPECT_EQ(Convert("\xED\xA0\xBD\xED\xA0\xBD"), std::string(REPLACEMENT) + REPLACEMENT);  // two highs
    EXPECT_EQ(Convert("\xEF\xBF\xBE\xEF\xBF\xBF"), std::string(REPLACEMENT) + REPLACEMENT);  // U+FFFE, U+FFFF
    EXPECT_EQ(Convert("\x01\x1F\x0B", XmlContext::ATTRIBUTE),
              std::string(REPLACEMENT) + REPLACEMENT + REPLACEMENT);
    EXPECT_EQ(Convert("\x7F\xC2\x85"), "\x7F\xC2\x85");  // allowed in XML 1.0
}

TEST(ModifiedUtf8, BytesThatAreNotUtf8AreRefused) {
    for (std::string_view bad :
         {"\x80", "\xC0\x81", "\xC1\xBF", "\xE0\x80\x80", "\xF0\x80\x80\x80", "\xF4\x90\x80\x80",
          "\xF5\x80\x80\x80", "\xFF", "\xC3", "\xE2\x82", "\xC3\x28"}) {
        std::string out;
        EXPECT_EQ(AppendXmlText(bad, XmlContext::TEXT, out), Status::INVALID_CHARACTER)
            << testing::PrintToString(bad);
    }
}

TEST(XmlEscaping, EachContextEscapesWhatItsParserWouldChange) {
    EXPECT_EQ(Convert("a&b<c>d\"e'f\tg\nh\ri", XmlContext::TEXT), "a&amp;b&lt;c&gt;d\"e'f\tg\nh&#13;i");
    EXPECT_EQ(Convert("a&b<c>d\"e'f\tg\nh\ri", XmlContext::ATTRIBUTE),
              "a&amp;b&lt;c&gt;d&quot;e'f&#9;g&#10;h&#13;i");
    EXPECT_EQ(Convert("a&b<c>\"", XmlContext::MARKUP), "a&b<c>\"");
}

TEST(XmlEscaping, DecodedLengthCountsCharactersBeforeEscaping) {
    std::string out;
    std::size_t decoded = 0;
    ASSERT_EQ(AppendXmlText("a&\xC3\xA9\xED\xA0\xBD\xED\xB8\x80", XmlContext::TEXT, out, &decoded),
              Status::OK);
    EXPECT_EQ(decoded, 1u + 1u + 2u + 4u);
}

TEST(XmlNames, NamesRefuseWhatTextWouldReplace) {
    EXPECT_EQ(Convert("user", XmlContext::NAME), "user");
    EXPECT_EQ(Convert("\xC3\xA9t\xC3\xA9", XmlContext::NAME), "\xC3\xA9t\xC3\xA9");
    for (std::string_view bad : {"a\xC0\x80", "a\tb", "\xED\xA0\xBD"}) {
        std::string out;
        EXPECT_EQ(AppendXmlText(bad, XmlContext::NAME, out), Status::INVALID_CHARACTER);
    }
    EXPECT_TRUE(IsXmlName("android:name"));
    EXPECT_TRUE(IsXmlName("_x-1.2"));
    EXPECT_FALSE(IsXmlName(""));
    EXPECT_FALSE(IsXmlName("1abc"));
    EXPECT_FALSE(IsXmlName("a b"));
    EXPECT_FALSE(IsXmlName("a<b"));
}

TEST(XmlNames, CodePointsFollowTheSameRules) {
    std::string out;
    AppendXmlCodePoint('&', XmlContext::TEXT, out);
    AppendXmlCodePoint(0x1F600, XmlContext::TEXT, out);
    AppendXmlCodePoint(0, XmlContext::TEXT, out);
    AppendXmlCodePoint(0xD800, XmlContext::TEXT, out);
    EXPECT_EQ(out, std::string("&amp;\xF0\x9F\x98\x80") + REPLACEMENT + REPLACEMENT);
}

}  // namespace
}  // namespace Zarvo::BinaryXml
