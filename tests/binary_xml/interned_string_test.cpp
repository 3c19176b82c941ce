#include <gtest/gtest.h>

#include <string>

#include "binary_xml/abx_decoder.h"
#include "binary_xml/abx_format.h"
#include "binary_xml/abx_writer.h"

namespace Zarvo::BinaryXml {
namespace {

// Hand-made token streams, so the indices are exactly the ones under test.
class Stream {
public:
    Stream() : bytes_(ABX_MAGIC) {}
    Stream &Byte(unsigned value) {
        bytes_ += static_cast<char>(value);
        return *this;
    }
    Stream &U16(unsigned value) { return Byte(value >> 8).Byte(value & 0xFF); }
    Stream &New(const std::string &text) {
        U16(INTERNED_NEW).U16(static_cast<unsigned>(text.size()));
        bytes_ += text;
        return *this;
    }
    Stream &Ref(unsigned index) { return U16(index); }
    const std::string &Bytes() const { return bytes_; }

private:
    std::string bytes_;
};

constexpr unsigned START = Token(START_TAG, TYPE_STRING_INTERNED);
constexpr unsigned END = Token(END_TAG, TYPE_STRING_INTERNED);
constexpr unsigned INTERNED_ATTRIBUTE = Token(ATTRIBUTE, TYPE_STRING_INTERNED);

Status Decode(const Stream &stream, std::string &xml) {
    return DecodeAbx(stream.Bytes(), xml);
}

TEST(InternedStrings, OneTableServesTagNamesAttributeNamesAndValues) {
    Stream stream;
    stream.Byte(START).New("a");                                       // 0
    stream.Byte(INTERNED_ATTRIBUTE).New("b").New("c");                 // 1, 2
    stream.Byte(START).Ref(2).Byte(INTERNED_ATTRIBUTE).Ref(0).Ref(1);  // <c a="b"
    stream.Byte(END).Ref(2).Byte(END).Ref(0);
    std::string xml;
    ASSERT_EQ(Decode(stream, xml), Status::OK);
    EXPECT_NE(xml.find("<a b=\"c\"><c a=\"b\"/></a>"), std::string::npos) << xml;
}

TEST(InternedStrings, AnIndexMustBeBelowTheNumberOfStringsSoFar) {
    std::string xml;
    Stream before;
    before.Byte(START).Ref(0);
    EXPECT_EQ(Decode(before, xml), Status::BAD_STRING_INDEX);

    Stream atCount;
    atCount.Byte(START).New("a").Byte(INTERNED_ATTRIBUTE).New("b").Ref(2);
    EXPECT_EQ(Decode(atCount, xml), Status::BAD_STRING_INDEX);

    Stream last;
    last.Byte(START).New("a").Byte(INTERNED_ATTRIBUTE).New("b").Ref(1).Byte(END).Ref(0);
    EXPECT_EQ(Decode(last, xml), Status::OK);

    Stream cut;
    cut.Byte(START).Byte(0xFF);
    EXPECT_EQ(Decode(cut, xml), Status::TRUNCATED);
}

TEST(InternedStrings, AFullTableStillReadsNewStringsWithoutAddingThem) {
    Stream stream;
    stream.Byte(START).New("r");
    for (unsigned i = 1; i < MAX_INTERNED_STRINGS; ++i) {
        stream.Byte(START).New("e" + std::to_string(i)).Byte(END).Ref(i);
    }
    // The table is full: this name is read in place but gets no index.
    stream.Byte(START).New("extra").Byte(END).New("extra");
    stream.Byte(START).Ref(MAX_INTERNED_STRINGS - 1).Byte(END).Ref(MAX_INTERNED_STRINGS - 1);
    stream.Byte(END).Ref(0);
    std::string xml;
    ASSERT_EQ(Decode(stream, xml), Status::OK);
    EXPECT_NE(xml.find("<extra/><e65534/></r>"), std::string::npos);
}

TEST(InternedStrings, TheWriterAndTheDecoderAgreeBeyondAFullTable) {
    AbxWriter writer;
    writer.StartTag("r");
    for (unsigned i = 0; i < MAX_INTERNED_STRINGS + 10; ++i) {
        writer.StartTag("n" + std::to_string(i)).EndTag("n" + std::to_string(i));
    }
    writer.StartTag("n7").EndTag("n7").EndTag("r");
    std::string xml;
    ASSERT_EQ(DecodeAbx(writer.Data(), xml), Status::OK);
    EXPECT_NE(xml.find("<n65544/><n7/></r>"), std::string::npos);
}

}  // namespace
}  // namespace Zarvo::BinaryXml
