#include <gtest/gtest.h>

#include <string>

#include "binary_xml/abx_decoder.h"
#include "binary_xml/abx_format.h"
#include "binary_xml/xml_to_abx.h"
#include "xml_canonical.h"

namespace Zarvo::BinaryXml {
namespace {

std::string RoundTrip(const std::string &xml, const EncodeOptions &options = {}) {
    std::string abx;
    std::string back;
    if (EncodeXml(xml, abx, options) != Status::OK || DecodeAbx(abx, back) != Status::OK) {
        return "<failed>";
    }
    return back;
}

TEST(RoundTrip, UserListKeepsItsStructureAndValues) {
    const std::string xml =
        "<?xml version='1.0' encoding='utf-8' standalone='yes' ?>\n"
        "<users nextSerialNumber=\"14\" version=\"9\" userTypeConfigVersion=\"1\">\n"
        "    <guestRestrictions><restrictions no_sms=\"true\" no_outgoing_calls=\"true\" "
        "/></guestRestrictions>\n"
        "    <deviceOwnerUserId id=\"-10000\" />\n"
        "    <user id=\"0\" />\n    <user id=\"10\" />\n</users>\n";
    for (bool infer : {false, true}) {
        std::string back = RoundTrip(xml, EncodeOptions{infer});
        EXPECT_EQ(Testing::Canonical(back), Testing::Canonical(xml)) << back;
    }
}

TEST(RoundTrip, InferenceWritesAndroidsTypesOnlyForCanonicalSpellings) {
    std::string abx;
    ASSERT_EQ(EncodeXml("<u id=\"10\" c=\"1700000000000\" p=\"true\"/>", abx, EncodeOptions{true}),
              Status::OK);
    EXPECT_NE(abx.find(static_cast<char>(Token(ATTRIBUTE, TYPE_INT))), std::string::npos);
    EXPECT_NE(abx.find(static_cast<char>(Token(ATTRIBUTE, TYPE_LONG))), std::string::npos);
    EXPECT_NE(abx.find(static_cast<char>(Token(ATTRIBUTE, TYPE_BOOLEAN_TRUE))), std::string::npos);
    EXPECT_EQ(abx.find(static_cast<char>(Token(ATTRIBUTE, TYPE_STRING))), std::string::npos);

    const std::string odd =
        "<u a=\"007\" b=\"-0\" c=\"+5\" d=\"2147483648\" e=\"-2147483649\" f=\"1e3\" "
        "g=\"99999999999999999999\" h=\"True\" i=\"-\"/>";
    EXPECT_EQ(Testing::Canonical(RoundTrip(odd, EncodeOptions{true})), Testing::Canonical(odd));
}

TEST(RoundTrip, TextOfEveryKindSurvivesBothSupplementaryForms) {
    const std::string xml =
        "<?pi data?><!--head--><r xmlns:p=\"urn:p\" p:a=\"&amp;&lt;&quot;\" e=\"\xF0\x9F\x98\x80\">"
        "t\xC3\xA9xt \xF0\x9F\x98\x80<![CDATA[<raw>]]>&amp;<p:c/><!--in--></r>";
    for (auto form : {AbxWriter::Supplementary::FOUR_BYTE, AbxWriter::Supplementary::SURROGATE_PAIR}) {
        EncodeOptions options;
        options.supplementary = form;
        std::string back = RoundTrip(xml, options);
        EXPECT_EQ(Testing::Canonical(back), Testing::Canonical(xml)) << back;
        EXPECT_NE(back.find("<?pi data?><!--head-->"), std::string::npos);
        EXPECT_NE(back.find("<!--in-->"), std::string::npos);
    }
    std::string fourByte;
    std::string pairs;
    EncodeOptions pairOptions;
    pairOptions.supplementary = AbxWriter::Supplementary::SURROGATE_PAIR;
    ASSERT_EQ(EncodeXml("<r>\xF0\x9F\x98\x80</r>", fourByte), Status::OK);
    ASSERT_EQ(EncodeXml("<r>\xF0\x9F\x98\x80</r>", pairs, pairOptions), Status::OK);
    EXPECT_NE(fourByte.find("\xF0\x9F\x98\x80"), std::string::npos);
    EXPECT_NE(pairs.find("\xED\xA0\xBD\xED\xB8\x80"), std::string::npos);
}

TEST(RoundTrip, NulIsWrittenInItsTwoByteForm) {
    AbxWriter writer;
    writer.StartTag("r").Text(std::string_view("a\0b", 3)).EndTag("r");
    EXPECT_NE(writer.Data().find("a\xC0\x80"
                                 "b"),
              std::string::npos);
}

TEST(RoundTrip, EncodingRefusesWhatItCannotWrite) {
    std::string abx = "untouched";
    EXPECT_EQ(EncodeXml("<a><b></a>", abx), Status::MALFORMED);
    EXPECT_EQ(EncodeXml("", abx), Status::MALFORMED);
    EXPECT_EQ(EncodeXml("<r a=\"" + std::string(70000, 'x') + "\"/>", abx), Status::TOO_LARGE);
    EXPECT_EQ(abx, "untouched");

    AbxWriter writer;
    writer.StartTag("r").Text(std::string(MAX_STRING_BYTES, 'x'));
    EXPECT_TRUE(writer.Ok());
    writer.Text(std::string(MAX_STRING_BYTES + 1, 'x'));
    EXPECT_FALSE(writer.Ok());
    writer.EndTag("r");
    EXPECT_FALSE(writer.Ok());
}

}  // namespace
}  // namespace Zarvo::BinaryXml
