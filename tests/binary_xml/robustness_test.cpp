#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "binary_xml/abx_decoder.h"
#include "binary_xml/abx_format.h"
#include "binary_xml/abx_writer.h"
#include "xml_canonical.h"

namespace Zarvo::BinaryXml {
namespace {

std::string RichDocument() {
    AbxWriter writer(AbxWriter::Supplementary::SURROGATE_PAIR);
    writer.StartDocument()
        .StartTag("users")
        .Attribute("nextSerialNumber", std::int32_t{14})
        .AttributeInterned("kind", "list")
        .StartTag("user")
        .Attribute("created", std::int64_t{1700000000000})
        .AttributeBytesHex("hex", "\x01\xFF")
        .AttributeBytesBase64("b64", "abc")
        .Attribute("f", 0.25f)
        .Attribute("d", 1e300)
        .AttributeIntHex("ih", -2)
        .AttributeLongHex("lh", 77)
        .Attribute("ok", true)
        .Text("name \xF0\x9F\x98\x80")
        .Cdsect("c")
        .EntityRef("amp")
        .Comment("note")
        .ProcessingInstruction("p q")
        .IgnorableWhitespace(" ")
        .EndTag("user")
        .EndTag("users")
        .EndDocument();
    return writer.Data();
}

// Every accepted document must be one libxml2 reads without recovery.
void ExpectSafe(const std::string &input) {
    std::string xml;
    Status status = DecodeAbx(input, xml);
    if (status == Status::OK) {
        EXPECT_TRUE(Testing::ParsesStrictly(xml)) << xml;
    } else {
        EXPECT_LT(static_cast<int>(status), 0);
    }
}

TEST(Robustness, EveryPrefixOfADocumentIsTruncated) {
    const std::string full = RichDocument();
    std::string xml;
    ASSERT_EQ(DecodeAbx(full, xml), Status::OK);
    // Without its END_DOCUMENT byte the document is still whole.
    ASSERT_EQ(DecodeAbx(full.substr(0, full.size() - 1), xml), Status::OK);
    for (std::size_t length = 0; length + 1 < full.size(); ++length) {
        // A copy of exactly this length, so a read past it is caught by the address sanitizer.
        std::string prefix = full.substr(0, length);
        EXPECT_EQ(DecodeAbx(prefix, xml), Status::TRUNCATED) << "prefix of " << length << " bytes";
    }
}

TEST(Robustness, LengthsBeyondTheInputAreTruncation) {
    using namespace std::string_literals;
    const std::string tag = std::string(ABX_MAGIC) + "\x32\xFF\xFF\x00\x01r"s;
    std::string xml;
    EXPECT_EQ(DecodeAbx(tag + "\x24\xFF\xFF" + "short", xml), Status::TRUNCATED);                   // text
    EXPECT_EQ(DecodeAbx(tag + "\x4F\x00\x00\xFF\xFF\x01\x02"s, xml), Status::TRUNCATED);            // bytes
    EXPECT_EQ(DecodeAbx(tag + "\x8F\x00\x00\x01\x02\x03"s, xml), Status::TRUNCATED);                // long
    EXPECT_EQ(DecodeAbx(std::string(ABX_MAGIC) + "\x32\xFF\xFF\xFF\xFF", xml), Status::TRUNCATED);  // name
}

TEST(Robustness, RandomBytesNeverYieldUnreadableOutput) {
    std::mt19937 random(20261123);
    for (int round = 0; round < 20000; ++round) {
        std::string input(ABX_MAGIC);
        std::size_t length = random() % 64;
        for (std::size_t i = 0; i < length; ++i) {
            // Mostly valid token bytes and small lengths, so inputs get past the first token.
            std::uint32_t r = random();
            input += static_cast<char>(r % 4 == 0 ? 0xFF : r % 4 == 1 ? 0 : (r >> 8) & 0xFF);
        }
        ExpectSafe(input);
    }
}

TEST(Robustness, MutatedDocumentsNeverYieldUnreadableOutput) {
    const std::string full = RichDocument();
    std::mt19937 random(7);
    for (int round = 0; round < 20000; ++round) {
        std::string input = full;
        int edits = 1 + static_cast<int>(random() % 4);
        for (int edit = 0; edit < edits; ++edit) {
            std::size_t at = ABX_MAGIC.size() + random() % (input.size() - ABX_MAGIC.size());
            switch (random() % 3) {
                case 0:
                    input[at] = static_cast<char>(random());
                    break;
                case 1:
                    input.erase(at, 1 + random() % 3);
                    break;
                default:
                    input.insert(at, 1, static_cast<char>(random()));
                    break;
            }
        }
        ExpectSafe(input);
    }
}

}  // namespace
}  // namespace Zarvo::BinaryXml
