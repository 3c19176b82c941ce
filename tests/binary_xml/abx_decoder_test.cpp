#include "binary_xml/abx_decoder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "binary_xml/abx_format.h"
#include "binary_xml/abx_writer.h"
#include "xml_test_util.h"

namespace Zarvo::BinaryXml {
namespace {

using namespace std::string_literals;
using Write = void (*)(AbxWriter &);
const std::string MAGIC(ABX_MAGIC);
constexpr std::string_view DECLARATION = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

// The decoded document between the declaration and the final line break, or the failure status.
std::string Body(const std::string &abx, const DecodeOptions &options = {}) {
    std::string xml;
    Status status = DecodeAbx(abx, xml, options);
    if (status != Status::OK) {
        return "<status " + std::to_string(static_cast<int>(status)) + ">";
    }
    EXPECT_TRUE(options.keepExtraRoots || Testing::ParsesStrictly(xml)) << xml;
    EXPECT_TRUE(xml.compare(0, DECLARATION.size(), DECLARATION) == 0 && xml.back() == '\n') << xml;
    return xml.substr(DECLARATION.size(), xml.size() - DECLARATION.size() - 1);
}

Status StatusOf(const std::string &abx) {
    std::string xml;
    return DecodeAbx(abx, xml);
}

// Each token and value type as the content of <r>, and its text form. Attributes come first, so
// that all rows together also make one valid element.
const std::pair<Write, const char *> TOKENS[] = {
    {[](auto &w) { w.Attribute("_s-1.2", "a&\"<b>'\t\n\r"); },
     R"(<r _s-1.2="a&amp;&quot;&lt;b&gt;'&#9;&#10;&#13;"/>)"},
    {[](auto &w) { w.AttributeInterned("si", "\"\t"); }, R"(<r si="&quot;&#9;"/>)"},
    {[](auto &w) { w.AttributeBytesHex("bh", "\xDE\xAD\xBE\xEF"); }, R"(<r bh="deadbeef"/>)"},
    {[](auto &w) { w.AttributeBytesBase64("bb", "\x01\x02\x03"); }, R"(<r bb="AQID"/>)"},
    {[](auto &w) { w.Attribute("i", std::int32_t{-42}); }, R"(<r i="-42"/>)"},
    {[](auto &w) { w.AttributeIntHex("ih", static_cast<std::int32_t>(0xCAFEBABE)); },
     R"(<r ih="-35014542"/>)"},
    {[](auto &w) { w.Attribute("l", std::int64_t{-123456789012}); }, R"(<r l="-123456789012"/>)"},
    {[](auto &w) { w.AttributeLongHex("lh", static_cast<std::int64_t>(0xDEADBEEFCAFEBABEull)); },
     R"(<r lh="-2152411035014542"/>)"},
    {[](auto &w) { w.Attribute("f", 0.3f); }, R"(<r f="0.3"/>)"},
    {[](auto &w) { w.Attribute("d", 2.71828); }, R"(<r d="2.71828"/>)"},
    {[](auto &w) { w.Attribute("bt", true); }, R"(<r bt="true"/>)"},
    {[](auto &w) { w.Attribute("bf", false); }, R"(<r bf="false"/>)"},
    {[](auto &w) { w.Text("Ann & \"Bob\" <3>\t\r\xF0\x9F\x98\x80"); },
     "<r>Ann &amp; \"Bob\" &lt;3&gt;\t&#13;\xF0\x9F\x98\x80</r>"},
    {[](auto &w) { w.Cdsect("a]]>b\rc"); }, "<r><![CDATA[a]]]]><![CDATA[>b]]>&#13;<![CDATA[c]]></r>"},
    {[](auto &w) { w.IgnorableWhitespace(" "); }, "<r> </r>"},
    {[](auto &w) { w.Comment("a--b-"); }, "<r><!--a- -b- --></r>"},
    {[](auto &w) { w.ProcessingInstruction("pi target data"); }, "<r><?pi target data?></r>"},
    {[](auto &w) { w.ProcessingInstruction("xml v=\"1\"").ProcessingInstruction("9 x"); }, "<r></r>"},
    {[](auto &w) { w.ProcessingInstruction("p ?>").Docdecl("r [<!ENTITY e 'x'>]"); }, "<r></r>"},
    {[](auto &w) { w.EntityRef("amp").EntityRef("lt").EntityRef("gt").EntityRef("quot"); },
     "<r>&amp;&lt;&gt;\"</r>"},
    {[](auto &w) { w.EntityRef("apos").EntityRef("#65").EntityRef("#x1F600"); }, "<r>'A\xF0\x9F\x98\x80</r>"},
    {[](auto &w) { w.EntityRef("#0").EntityRef("#xD800"); }, "<r>\xEF\xBF\xBD\xEF\xBF\xBD</r>"},
};

TEST(AbxDecoder, RendersEveryTokenAndValueType) {
    for (const auto &[write, text] : TOKENS) {
        AbxWriter writer;
        writer.StartDocument().StartTag("r");
        write(writer);
        writer.EndTag("r").EndDocument();
        EXPECT_EQ(Body(writer.Data()), text);
    }
}

TEST(AbxDecoder, EscapedValuesReadBackUnchanged) {
    const std::string tricky = "q\"a'<&>\tb\nc\rd ]]> e";
    AbxWriter writer;
    writer.StartTag("r").Attribute("v", std::string_view(tricky)).Text(tricky).Cdsect(tricky).EndTag("r");
    std::string xml;
    ASSERT_EQ(DecodeAbx(writer.Data(), xml), Status::OK);
    EXPECT_EQ(Testing::Canonical(xml), "<r v=[" + tricky + "]>{" + tricky + tricky + "}</>");
}

TEST(AbxDecoder, OddButIntactDocumentsBecomeWellFormedXml) {
    const std::pair<std::string, const char *> cases[] = {
        {AbxWriter().StartTag("r").EndTag("r").Data(), "<r/>"},  // no document tokens
        {AbxWriter().StartTag("r").EndTag("r").EndDocument().Text("x").Data() + "\xFF", "<r/>"},
        {AbxWriter().Text(" \n").IgnorableWhitespace("\t").StartTag("r").EndTag("r").Text("\r\n").Data(),
         " \n\t<r/>\r"},
        {AbxWriter().Comment("top").StartTag("r").EndTag("r").Data(), "<!--top--><r/>"},
    };
    for (const auto &[abx, text] : cases) {
        EXPECT_EQ(Body(abx), text);
    }
    for (int count : {2, 40}) {  // later duplicates are left out, found by a scan or through a set
        AbxWriter writer;
        writer.StartTag("r");
        for (int i = 0; i < count; ++i) {
            writer.Attribute("a" + std::to_string(i), std::int32_t{i});
        }
        const std::string last = "a" + std::to_string(count - 1);
        std::string body = Body(writer.Attribute("a0", "again").Attribute(last, "again").EndTag("r").Data());
        EXPECT_NE(body.find(last + "=\"" + std::to_string(count - 1) + "\"/>"), std::string::npos) << body;
        EXPECT_EQ(body.find("again"), std::string::npos) << body;
    }
}

TEST(AbxDecoder, OnlyTheFirstRootIsWrittenUnlessAskedOtherwise) {
    AbxWriter writer;
    writer.StartTag("settings").Attribute("version", std::int32_t{-1}).EndTag("settings").Text("\n");
    writer.StartTag("namespaceHashes").StartTag("h").EndTag("h").EndTag("namespaceHashes");
    EXPECT_EQ(Body(writer.Data()), R"(<settings version="-1"/>)");
    EXPECT_EQ(Body(writer.Data(), DecodeOptions{true}),
              "<settings version=\"-1\"/>\n<namespaceHashes><h/></namespaceHashes>");
}

TEST(AbxDecoder, DamagedDocumentsGetTheStatusOfTheirFault) {
    const std::string open = MAGIC + "\x32\xFF\xFF\x00\x01r"s;  // <r>, then the token under test
    const std::string close = "\x33\x00\x00"s;
    const std::pair<std::string, Status> cases[] = {
        {open + "\x24\xFF\xFF" + "short", Status::TRUNCATED},         // text length
        {open + "\x4F\x00\x00\xFF\xFF\x01\x02"s, Status::TRUNCATED},  // bytes length
        {open + "\x8F\x00\x00\x01\x02\x03"s, Status::TRUNCATED},      // long
        {MAGIC + "\x32\xFF\xFF\xFF\xFF", Status::TRUNCATED},          // name length
        {"ABX\x01\x10"s, Status::MALFORMED},                          // version
        {"<?xml", Status::MALFORMED},
        {AbxWriter().StartDocument().StartDocument().StartTag("r").EndTag("r").Data(), Status::MALFORMED},
        {open + "\x1F\xFF\xFF\x00\x01x"s + close, Status::MALFORMED},             // NULL attribute
        {open + "\x64\x00\x00\x00\x01"s + close, Status::MALFORMED},              // INT text
        {open + "\x1B" + close, Status::MALFORMED},                               // command 11
        {open + "\x04" + close, Status::MALFORMED},                               // type 0
        {open + "\xE4" + close, Status::MALFORMED},                               // type 14
        {MAGIC + "\x20" + open.substr(MAGIC.size()) + close, Status::MALFORMED},  // START_DOCUMENT, STRING
        {MAGIC + "\x22\x00\x01r"s, Status::MALFORMED},                            // tag name not interned
        {open + "\x24\x00\x01x\x6F\x00\x00\x00\x00\x00\x01"s + close, Status::MALFORMED},  // attribute late
        {AbxWriter().StartTag("r").Text("\xC3\x28").EndTag("r").Data(), Status::INVALID_CHARACTER},
        {AbxWriter().StartTag("a").StartTag("b").EndTag("a").EndTag("a").Data(), Status::BAD_STRUCTURE},
        {AbxWriter().StartTag("a").EndTag("a").EndTag("a").Data(), Status::BAD_STRUCTURE},
        {AbxWriter().StartTag("a").EndTag("a").StartTag("b").EndTag("c").Data(), Status::BAD_STRUCTURE},
        {AbxWriter().StartDocument().StartTag("r").EndDocument().Data(), Status::BAD_STRUCTURE},
        {AbxWriter().StartDocument().EndDocument().Data(), Status::BAD_STRUCTURE},
        {AbxWriter().Text("hello").StartTag("r").EndTag("r").Data(), Status::BAD_STRUCTURE},
        {AbxWriter().StartTag("r").EndTag("r").Cdsect("x").Data(), Status::BAD_STRUCTURE},
        {AbxWriter().EntityRef("amp").StartTag("r").EndTag("r").Data(), Status::BAD_STRUCTURE},
        {AbxWriter().StartTag(std::string(MAX_NAME_BYTES + 1, 'n')).Data(), Status::TOO_LARGE},
    };
    for (const auto &[abx, status] : cases) {
        EXPECT_EQ(StatusOf(abx), status) << testing::PrintToString(abx);
    }
    for (const char *entity : {"nbsp", "#", "#x110000", "#12a"}) {
        EXPECT_EQ(StatusOf(AbxWriter().StartTag("r").EntityRef(entity).EndTag("r").Data()),
                  Status::MALFORMED);
    }
    for (const char *name : {"1st", "a b", "a\xC0\x80", "\xFF"}) {
        EXPECT_EQ(StatusOf(AbxWriter().StartTag("r").Attribute(name, "").Data()), Status::INVALID_CHARACTER);
    }
}

TEST(AbxDecoder, LimitsKeepTheOutputReadableByLibxml2) {
    auto nested = [](std::size_t depth) {
        AbxWriter writer;
        for (std::size_t i = 0; i < 2 * depth; ++i) {
            i < depth ? writer.StartTag("d") : writer.EndTag("d");
        }
        return Body(writer.Data());
    };
    EXPECT_EQ(nested(MAX_ELEMENT_DEPTH).find("<d><d>"), 0u);
    EXPECT_EQ(nested(MAX_ELEMENT_DEPTH + 1), "<status -8>");

    const std::string chunk(60000, 't');
    AbxWriter split;  // the same amount of text in many elements is fine
    AbxWriter run;
    split.StartTag("r");
    run.StartTag("r");
    for (std::size_t written = 0; written <= MAX_TEXT_RUN_BYTES; written += chunk.size()) {
        split.StartTag("p").Text(chunk).EndTag("p");
        run.Text(chunk);
    }
    EXPECT_EQ(StatusOf(split.EndTag("r").Data()), Status::OK);
    EXPECT_EQ(StatusOf(run.EndTag("r").Data()), Status::TOO_LARGE);
}

// All tokens in one document, with the character beyond the BMP as a surrogate pair.
std::string RichDocument() {
    AbxWriter writer(AbxWriter::Supplementary::SURROGATE_PAIR);
    writer.StartDocument().StartTag("r");
    for (const auto &token : TOKENS) {
        token.first(writer);
    }
    return writer.EndTag("r").EndDocument().Data();
}

TEST(AbxDecoder, EveryPrefixOfADocumentIsTruncated) {
    const std::string full = RichDocument();
    ASSERT_EQ(StatusOf(full), Status::OK);
    // Without its END_DOCUMENT byte the document is still whole.
    ASSERT_EQ(StatusOf(full.substr(0, full.size() - 1)), Status::OK);
    for (std::size_t length = 0; length + 1 < full.size(); ++length) {
        // A copy of exactly this length, so a read past it is caught by the address sanitizer.
        EXPECT_EQ(StatusOf(full.substr(0, length)), Status::TRUNCATED) << "prefix of " << length << " bytes";
    }
}

// Whatever the decoder accepts, libxml2 must read without recovery; the rest is refused.
TEST(AbxDecoder, RandomlyEditedDocumentsAreRefusedOrReadable) {
    const std::string full = RichDocument();
    std::mt19937 random(20261123);
    for (int round = 0; round < 40000; ++round) {
        std::string input = full;
        for (int edit = 0, edits = 1 + random() % 4; edit < edits; ++edit) {
            std::size_t at = ABX_MAGIC.size() + random() % (input.size() - ABX_MAGIC.size());
            std::uint32_t r = random();
            if (r % 3 == 0) {
                input[at] = static_cast<char>(r >> 8);
            } else if (r % 3 == 1) {
                input.erase(at, 1 + (r >> 8) % 3);
            } else {
                input.insert(at, 1, static_cast<char>(r >> 8));
            }
        }
        std::string xml;
        Status status = DecodeAbx(input, xml);
        EXPECT_TRUE(status == Status::OK ? Testing::ParsesStrictly(xml) : static_cast<int>(status) < 0)
            << xml;
    }
}

// Hand-made token streams, so the indices are exactly the ones under test.
std::string Ref(unsigned index) {
    return {static_cast<char>(index >> 8), static_cast<char>(index & 0xFF)};
}
std::string New(const std::string &text) {
    return Ref(INTERNED_NEW) + Ref(text.size()) + text;
}
const std::string START(1, Token(START_TAG, TYPE_STRING_INTERNED));
const std::string END(1, Token(END_TAG, TYPE_STRING_INTERNED));
const std::string ATTRIBUTE_INTERNED(1, Token(ATTRIBUTE, TYPE_STRING_INTERNED));

// Tag names, attribute names and interned values share one table; an index must be below the
// number of strings introduced so far.
TEST(InternedStrings, OneTableIndexedInOrderOfFirstAppearance) {
    const std::string abc = MAGIC + START + New("a") + ATTRIBUTE_INTERNED + New("b") + New("c");  // 0, 1, 2
    const std::string cab = START + Ref(2) + ATTRIBUTE_INTERNED + Ref(0) + Ref(1);
    EXPECT_EQ(Body(abc + cab + END + Ref(2) + END + Ref(0)), R"(<a b="c"><c a="b"/></a>)");
    EXPECT_EQ(Body(MAGIC + START + Ref(0)), "<status -4>");
    EXPECT_EQ(Body(abc + END + Ref(3)), "<status -4>");
    EXPECT_EQ(Body(MAGIC + START + "\xFF"), "<status -2>");
}

TEST(InternedStrings, AFullTableStillReadsNewStringsWithoutAddingThem) {
    std::string tokens = MAGIC + START + New("r");
    for (unsigned i = 1; i < MAX_INTERNED_STRINGS; ++i) {
        tokens += START + New("e" + std::to_string(i)) + END + Ref(i);
    }
    // The table is full: this name is read in place but gets no index.
    tokens += START + New("extra") + END + New("extra") + START + Ref(MAX_INTERNED_STRINGS - 1) + END +
              Ref(MAX_INTERNED_STRINGS - 1) + END + Ref(0);
    EXPECT_NE(Body(tokens).find("<extra/><e65534/></r>"), std::string::npos);

    AbxWriter writer;  // the writer follows the same rule
    writer.StartTag("r");
    for (unsigned i = 0; i < MAX_INTERNED_STRINGS + 10; ++i) {
        writer.StartTag("n" + std::to_string(i)).EndTag("n" + std::to_string(i));
    }
    EXPECT_NE(Body(writer.StartTag("n7").EndTag("n7").EndTag("r").Data()).find("<n65544/><n7/></r>"),
              std::string::npos);
}

}  // namespace
}  // namespace Zarvo::BinaryXml
