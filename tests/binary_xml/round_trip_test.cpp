#include <gtest/gtest.h>

#include <string>

#include "binary_xml/abx_decoder.h"
#include "binary_xml/abx_format.h"
#include "binary_xml/xml_to_abx.h"
#include "xml_test_util.h"

namespace Zarvo::BinaryXml {
namespace {

using Supplementary = AbxWriter::Supplementary;

// Encodes `xml`, decodes the result and compares the two documents as libxml2 reads them.
std::string ExpectRoundTrip(const std::string &xml, bool inferTypes, Supplementary supplementary = {}) {
    std::string abx;
    std::string back;
    EXPECT_EQ(EncodeXml(xml, abx, EncodeOptions{inferTypes, supplementary}), Status::OK);
    EXPECT_EQ(DecodeAbx(abx, back), Status::OK);
    EXPECT_EQ(Testing::Canonical(back), Testing::Canonical(xml)) << back;
    return abx;
}

TEST(RoundTrip, UserListKeepsItsStructureAndValues) {
    const std::string xml =
        "<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\n"
        "<users nextSerialNumber=\"14\" version=\"9\">\n"
        "  <guestRestrictions><restrictions no_sms=\"true\" /></guestRestrictions>\n"
        "  <deviceOwnerUserId id=\"-10000\" />\n  <user id=\"0\" created=\"1700000000000\" />\n</users>\n";
    ExpectRoundTrip(xml, false);
    std::string abx = ExpectRoundTrip(xml, true);
    for (Type type : {TYPE_INT, TYPE_LONG, TYPE_BOOLEAN_TRUE}) {
        EXPECT_NE(abx.find(static_cast<char>(Token(ATTRIBUTE, type))), std::string::npos) << type;
    }
    EXPECT_EQ(abx.find(static_cast<char>(Token(ATTRIBUTE, TYPE_STRING))), std::string::npos);
    // Only canonical spellings become numbers or booleans; the rest stay strings and read back as they were.
    ExpectRoundTrip(
        "<u a=\"007\" b=\"-0\" c=\"+5\" d=\"2147483648\" e=\"-2147483649\" f=\"1e3\" "
        "g=\"99999999999999999999\" h=\"True\" i=\"-\"/>",
        true);
}

TEST(RoundTrip, TextOfEveryKindSurvivesBothStringForms) {
    const std::string xml =
        "<?pi data?><!--head--><r xmlns:p=\"urn:p\" p:a=\"&amp;&lt;&quot;\" e=\"\xF0\x9F\x98\x80\">"
        "t\xC3\xA9xt \xF0\x9F\x98\x80<![CDATA[<raw>]]>&amp;<p:c/><!--in--></r>";
    EXPECT_NE(ExpectRoundTrip(xml, false, Supplementary::FOUR_BYTE).find("\xF0\x9F\x98\x80"),
              std::string::npos);
    EXPECT_NE(ExpectRoundTrip(xml, false, Supplementary::SURROGATE_PAIR).find("\xED\xA0\xBD\xED\xB8\x80"),
              std::string::npos);
    AbxWriter writer;
    writer.StartTag("r").Text(std::string_view("a\0b", 3)).EndTag("r");
    EXPECT_NE(writer.Data().find("a\xC0\x80"), std::string::npos);  // U+0000
}

// libxml2 hands over an ampersand in a namespace declaration as "&#38;"; the namespace name is
// what is written.
TEST(RoundTrip, NamespaceNamesAreWrittenAsTheyRead) {
    std::string abx;
    std::string back;
    ASSERT_EQ(EncodeXml("<r xmlns:q=\"urn:q&amp;&#38;r\"/>", abx), Status::OK);
    ASSERT_EQ(DecodeAbx(abx, back), Status::OK);
    EXPECT_NE(back.find("xmlns:q=\"urn:q&amp;&amp;r\""), std::string::npos) << back;
}

// The binary form carries only the predefined entities: a declared one is written as its content.
TEST(RoundTrip, DeclaredEntitiesAreWrittenAsTheirContent) {
    const std::string xml =
        "<!DOCTYPE r [<!ENTITY e \"x&#38;#38;y\"><!ENTITY f \"<b a='1'>t</b>\">]><r a=\"&e;\">&e;&f;</r>";
    std::string abx;
    std::string back;
    ASSERT_EQ(EncodeXml(xml, abx), Status::OK);
    ASSERT_EQ(DecodeAbx(abx, back), Status::OK);
    EXPECT_EQ(Testing::Canonical(back), "<r a=[x&y]>{x&y}<b a=[1]>{t}</></>");
}

TEST(RoundTrip, EncodingRefusesWhatItCannotWrite) {
    std::string abx = "untouched";
    EXPECT_EQ(EncodeXml("<a><b></a>", abx), Status::MALFORMED);
    EXPECT_EQ(EncodeXml("", abx), Status::MALFORMED);
    EXPECT_EQ(EncodeXml("<!DOCTYPE r [<!ENTITY e \"x\">]><r xmlns:q=\"urn:&e;\"/>", abx), Status::MALFORMED);
    EXPECT_EQ(EncodeXml("<!DOCTYPE r [<!ENTITY e SYSTEM \"/etc/hostname\">]><r>&e;</r>", abx),
              Status::MALFORMED);
    EXPECT_EQ(EncodeXml("<r a=\"" + std::string(70000, 'x') + "\"/>", abx), Status::TOO_LARGE);
    EXPECT_EQ(abx, "untouched");

    AbxWriter writer;
    EXPECT_TRUE(writer.StartTag("r").Text(std::string(MAX_STRING_BYTES, 'x')).Ok());
    EXPECT_FALSE(writer.Text(std::string(MAX_STRING_BYTES + 1, 'x')).EndTag("r").Ok());
}

}  // namespace
}  // namespace Zarvo::BinaryXml
