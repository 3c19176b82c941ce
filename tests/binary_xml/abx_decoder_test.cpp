#include "binary_xml/abx_decoder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "binary_xml/abx_format.h"
#include "binary_xml/abx_writer.h"
#include "xml_canonical.h"

namespace Zarvo::BinaryXml {
namespace {

constexpr std::string_view DECLARATION = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

struct Decoded {
    Status status;
    std::string xml;
    // The document without the declaration and the final line break.
    std::string Body() const { return xml.substr(DECLARATION.size(), xml.size() - DECLARATION.size() - 1); }
};

Decoded Decode(const std::string &abx, const DecodeOptions &options = {}) {
    Decoded decoded{};
    decoded.status = DecodeAbx(abx, decoded.xml, options);
    return decoded;
}

Decoded Decode(const AbxWriter &writer, const DecodeOptions &options = {}) {
    return Decode(writer.Data(), options);
}

TEST(AbxDecoder, RendersEveryAttributeType) {
    AbxWriter writer;
    writer.StartDocument()
        .StartTag("root")
        .Attribute("str", "hello")
        .AttributeInterned("si", "shared")
        .AttributeBytesHex("bh", std::string_view("\xDE\xAD\xBE\xEF"))
        .AttributeBytesBase64("bb", std::string_view("\x01\x02\x03"))
        .Attribute("i", std::int32_t{-42})
        .AttributeIntHex("ih", static_cast<std::int32_t>(0xCAFEBABE))
        .Attribute("l", std::int64_t{-123456789012})
        .AttributeLongHex("lh", static_cast<std::int64_t>(0xDEADBEEFCAFEBABEull))
        .Attribute("f", 3.5f)
        .Attribute("d", 2.71828)
        .Attribute("bt", true)
        .Attribute("bf", false)
        .EndTag("root")
        .EndDocument();
    Decoded decoded = Decode(writer);
    ASSERT_EQ(decoded.status, Status::OK);
    EXPECT_EQ(decoded.xml.substr(0, DECLARATION.size()), DECLARATION);
    EXPECT_EQ(
        decoded.Body(),
        "<root str=\"hello\" si=\"shared\" bh=\"deadbeef\" bb=\"AQID\" i=\"-42\" ih=\"-35014542\" "
        "l=\"-123456789012\" lh=\"-2152411035014542\" f=\"3.5\" d=\"2.71828\" bt=\"true\" bf=\"false\"/>");
}

TEST(AbxDecoder, WritesAUserFileAsTheParserExpectsIt) {
    AbxWriter writer;
    writer.StartDocument()
        .StartTag("user")
        .Attribute("id", std::int32_t{10})
        .Attribute("serialNumber", std::int32_t{12})
        .Attribute("flags", std::int32_t{1040})
        .Attribute("type", "android.os.usertype.full.SECONDARY")
        .Attribute("created", std::int64_t{1700000000123})
        .Attribute("icon", "/data/system/users/10/photo.png")
        .StartTag("name")
        .Text("Ann & \"Bob\" <3 \xF0\x9F\x98\x80")
        .EndTag("name")
        .StartTag("restrictions")
        .EndTag("restrictions")
        .EndTag("user")
        .EndDocument();
    Decoded decoded = Decode(writer);
    ASSERT_EQ(decoded.status, Status::OK);
    EXPECT_EQ(
        decoded.Body(),
        "<user id=\"10\" serialNumber=\"12\" flags=\"1040\" type=\"android.os.usertype.full.SECONDARY\" "
        "created=\"1700000000123\" icon=\"/data/system/users/10/photo.png\"><name>Ann &amp; \"Bob\" &lt;3 "
        "\xF0\x9F\x98\x80</name><restrictions/></user>");
    EXPECT_TRUE(Testing::ParsesStrictly(decoded.xml));
}

TEST(AbxDecoder, EscapedValuesReadBackUnchanged) {
    const std::string tricky = "q\"a'<&>\tb\nc\rd ]]> e";
    AbxWriter writer;
    writer.StartTag("r").Attribute("v", std::string_view(tricky)).Text(tricky).Cdsect(tricky).EndTag("r");
    Decoded decoded = Decode(writer);
    ASSERT_EQ(decoded.status, Status::OK);
    EXPECT_EQ(Testing::Canonical(decoded.xml), "<r v=[" + tricky + "]>{" + tricky + tricky + "}</>");
}

TEST(AbxDecoder, MarkupWithoutDataIsMadeSafeOrLeftOut) {
    AbxWriter writer;
    writer.Comment("top")
        .StartTag("r")
        .Comment("a--b-")
        .ProcessingInstruction("pi target data")
        .ProcessingInstruction("xml version=\"1.0\"")
        .ProcessingInstruction("bad ?> end")
        .ProcessingInstruction("9bad")
        .Docdecl("r [<!ENTITY e \"x\">]")
        .EndTag("r");
    Decoded decoded = Decode(writer);
    ASSERT_EQ(decoded.status, Status::OK);
    EXPECT_EQ(decoded.Body(), "<!--top--><r><!--a- -b- --><?pi target data?></r>");
    EXPECT_TRUE(Testing::ParsesStrictly(decoded.xml));
}

TEST(AbxDecoder, EntityReferencesBecomeTheirCharacters) {
    AbxWriter writer;
    writer.StartTag("r");
    for (const char *name : {"amp", "lt", "gt", "quot", "apos", "#65", "#x1F600", "#0"}) {
        writer.EntityRef(name);
    }
    writer.EndTag("r");
    Decoded decoded = Decode(writer);
    ASSERT_EQ(decoded.status, Status::OK);
    EXPECT_EQ(decoded.Body(), "<r>&amp;&lt;&gt;\"'A\xF0\x9F\x98\x80\xEF\xBF\xBD</r>");

    for (const char *name : {"nbsp", "#", "#x110000", "#12a", ""}) {
        AbxWriter unknown;
        unknown.StartTag("r").EntityRef(name).EndTag("r");
        EXPECT_EQ(Decode(unknown).status, Status::MALFORMED) << name;
    }
    AbxWriter outside;
    outside.EntityRef("amp").StartTag("r").EndTag("r");
    EXPECT_EQ(Decode(outside).status, Status::BAD_STRUCTURE);
}

TEST(AbxDecoder, DocumentBoundariesAreOptionalButElementsMustClose) {
    AbxWriter bare;
    bare.StartTag("r").EndTag("r");
    EXPECT_EQ(Decode(bare).status, Status::OK);

    AbxWriter trailing;
    trailing.StartTag("r").EndTag("r").EndDocument().Text("ignored");
    Decoded decoded = Decode(trailing.Data() + "\xFF\xFF");
    EXPECT_EQ(decoded.status, Status::OK);
    EXPECT_EQ(decoded.Body(), "<r/>");

    AbxWriter open;
    open.StartDocument().StartTag("r").StartTag("c").EndTag("c");
    EXPECT_EQ(Decode(open).status, Status::TRUNCATED);

    AbxWriter closedEarly;
    closedEarly.StartDocument().StartTag("r").EndDocument();
    EXPECT_EQ(Decode(closedEarly).status, Status::BAD_STRUCTURE);

    AbxWriter empty;
    empty.StartDocument().EndDocument();
    EXPECT_EQ(Decode(empty).status, Status::BAD_STRUCTURE);
    EXPECT_EQ(Decode(AbxWriter().StartDocument()).status, Status::TRUNCATED);
    EXPECT_EQ(Decode(std::string(ABX_MAGIC)).status, Status::TRUNCATED);
    EXPECT_EQ(Decode(std::string("AB")).status, Status::TRUNCATED);
    EXPECT_EQ(Decode(std::string("ABX\x01\x10", 5)).status, Status::MALFORMED);
    EXPECT_EQ(Decode(std::string("<?xml")).status, Status::MALFORMED);

    AbxWriter twice;
    twice.StartDocument().StartDocument().StartTag("r").EndTag("r");
    EXPECT_EQ(Decode(twice).status, Status::MALFORMED);
}

TEST(AbxDecoder, EndTagsMustCloseTheOpenElement) {
    AbxWriter mismatched;
    mismatched.StartTag("a").StartTag("b").EndTag("a").EndTag("a");
    EXPECT_EQ(Decode(mismatched).status, Status::BAD_STRUCTURE);

    AbxWriter stray;
    stray.StartTag("a").EndTag("a").EndTag("a");
    EXPECT_EQ(Decode(stray).status, Status::BAD_STRUCTURE);
}

TEST(AbxDecoder, OnlyTheFirstRootIsWrittenUnlessAskedOtherwise) {
    AbxWriter writer;
    writer.StartDocument()
        .StartTag("settings")
        .Attribute("version", std::int32_t{-1})
        .EndTag("settings")
        .Text("\n")
        .StartTag("namespaceHashes")
        .StartTag("h")
        .EndTag("h")
        .EndTag("namespaceHashes")
        .EndDocument();
    Decoded first = Decode(writer);
    ASSERT_EQ(first.status, Status::OK);
    EXPECT_EQ(first.Body(), "<settings version=\"-1\"/>");
    EXPECT_TRUE(Testing::ParsesStrictly(first.xml));

    Decoded all = Decode(writer, DecodeOptions{true});
    ASSERT_EQ(all.status, Status::OK);
    EXPECT_EQ(all.Body(), "<settings version=\"-1\"/>\n<namespaceHashes><h/></namespaceHashes>");

    AbxWriter brokenSecond;
    brokenSecond.StartTag("a").EndTag("a").StartTag("b").EndTag("c");
    EXPECT_EQ(Decode(brokenSecond).status, Status::BAD_STRUCTURE);
}

TEST(AbxDecoder, ContentOutsideTheRootMustBeWhiteSpace) {
    AbxWriter spaces;
    spaces.Text(" \n").IgnorableWhitespace("\t").StartTag("r").EndTag("r").Text("\r\n");
    Decoded decoded = Decode(spaces);
    ASSERT_EQ(decoded.status, Status::OK);
    EXPECT_EQ(decoded.Body(), " \n\t<r/>\r");

    AbxWriter words;
    words.Text("hello").StartTag("r").EndTag("r");
    EXPECT_EQ(Decode(words).status, Status::BAD_STRUCTURE);
    AbxWriter cdata;
    cdata.StartTag("r").EndTag("r").Cdsect("x");
    EXPECT_EQ(Decode(cdata).status, Status::BAD_STRUCTURE);
}

TEST(AbxDecoder, LaterDuplicateAttributesAreLeftOut) {
    AbxWriter few;
    few.StartTag("r").Attribute("a", "1").Attribute("b", "2").Attribute("a", std::int32_t{3}).EndTag("r");
    Decoded decoded = Decode(few);
    ASSERT_EQ(decoded.status, Status::OK);
    EXPECT_EQ(decoded.Body(), "<r a=\"1\" b=\"2\"/>");

    AbxWriter many;
    many.StartTag("r");
    for (int i = 0; i < 40; ++i) {
        many.Attribute("a" + std::to_string(i), std::int32_t{i});
    }
    many.Attribute("a3", "again").Attribute("a39", "again").EndTag("r");
    decoded = Decode(many);
    ASSERT_EQ(decoded.status, Status::OK);
    EXPECT_EQ(decoded.xml.find("again"), std::string::npos);
    EXPECT_TRUE(Testing::ParsesStrictly(decoded.xml));
}

TEST(AbxDecoder, TokensMustCarryTheirCommandsType) {
    using namespace std::string_literals;
    auto withToken = [](std::string tail) {
        return std::string(ABX_MAGIC) + "\x32\xFF\xFF\x00\x01r"s + tail + "\x33\x00\x00"s;
    };
    EXPECT_EQ(Decode(withToken("")).status, Status::OK);
    EXPECT_EQ(Decode(withToken(std::string("\x1F\xFF\xFF\x00\x01x", 6))).status,
              Status::MALFORMED);  // NULL attribute
    EXPECT_EQ(Decode(withToken(std::string("\x64\x00\x00\x00\x01", 5))).status,
              Status::MALFORMED);                                    // INT text
    EXPECT_EQ(Decode(withToken("\x0B")).status, Status::MALFORMED);  // command 11
    EXPECT_EQ(Decode(withToken("\x04")).status, Status::MALFORMED);  // type 0
    EXPECT_EQ(Decode(withToken("\xE4")).status, Status::MALFORMED);  // type 14
    EXPECT_EQ(Decode(withToken("\x20")).status, Status::MALFORMED);  // typed START_DOCUMENT
    EXPECT_EQ(Decode(std::string(ABX_MAGIC) + "\x22\x00\x01r"s).status,
              Status::MALFORMED);  // STRING tag name
    EXPECT_EQ(Decode(withToken(std::string("\x44\x00\x01x\x6F\x00\x00\x00\x00\x00\x01", 11))).status,
              Status::MALFORMED);  // attribute after content
}

TEST(AbxDecoder, NamesMustBeXmlNames) {
    for (std::string_view name : {"1st", "a b", "a<", "a\xC0\x80", "\xFF"}) {
        AbxWriter writer;
        writer.StartTag("r").Attribute(name, "v").EndTag("r");
        EXPECT_EQ(Decode(writer).status, Status::INVALID_CHARACTER) << testing::PrintToString(name);
    }
    AbxWriter badText;
    badText.StartTag("r").Text("\xC3\x28").EndTag("r");
    EXPECT_EQ(Decode(badText).status, Status::INVALID_CHARACTER);
}

TEST(AbxDecoder, LimitsKeepTheOutputReadableByLibxml2) {
    auto nested = [](std::size_t depth) {
        AbxWriter writer;
        for (std::size_t i = 0; i < depth; ++i) {
            writer.StartTag("d");
        }
        for (std::size_t i = 0; i < depth; ++i) {
            writer.EndTag("d");
        }
        return Decode(writer);
    };
    Decoded deepest = nested(MAX_ELEMENT_DEPTH);
    ASSERT_EQ(deepest.status, Status::OK);
    EXPECT_TRUE(Testing::ParsesStrictly(deepest.xml));
    EXPECT_EQ(nested(MAX_ELEMENT_DEPTH + 1).status, Status::TOO_LARGE);

    AbxWriter longName;
    longName.StartTag(std::string(MAX_NAME_BYTES + 1, 'n'));
    EXPECT_EQ(Decode(longName).status, Status::TOO_LARGE);

    const std::string chunk(60000, 't');
    AbxWriter split;
    AbxWriter run;
    split.StartTag("r");
    run.StartTag("r");
    for (std::size_t written = 0; written <= MAX_TEXT_RUN_BYTES; written += chunk.size()) {
        split.StartTag("p").Text(chunk).EndTag("p");
        run.Text(chunk);
    }
    split.EndTag("r");
    run.EndTag("r");
    EXPECT_EQ(Decode(split).status, Status::OK);
    EXPECT_EQ(Decode(run).status, Status::TOO_LARGE);
}

}  // namespace
}  // namespace Zarvo::BinaryXml
