#include "binary_xml/value_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace Zarvo::BinaryXml {
namespace {

template <typename Value>
std::string Render(void (*append)(Value, std::string &), Value value) {
    std::string out = "x";  // rendering appends; it must keep what is there
    append(value, out);
    return out.substr(1);
}

TEST(ValueText, DecimalCoversTheWholeRange) {
    EXPECT_EQ(Render(AppendDecimal, std::int64_t{0}), "0");
    EXPECT_EQ(Render(AppendDecimal, std::int64_t{-42}), "-42");
    EXPECT_EQ(Render(AppendDecimal, std::int64_t{std::numeric_limits<std::int32_t>::min()}), "-2147483648");
    EXPECT_EQ(Render(AppendDecimal, std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(Render(AppendDecimal, std::numeric_limits<std::int64_t>::max()), "9223372036854775807");
}

TEST(ValueText, HexIsSignedLowerCaseWithoutPrefix) {
    EXPECT_EQ(Render(AppendSignedHex, std::int64_t{255}), "ff");
    EXPECT_EQ(Render(AppendSignedHex, std::int64_t{0}), "0");
    EXPECT_EQ(Render(AppendSignedHex, std::int64_t{-1}), "-1");
    EXPECT_EQ(Render(AppendSignedHex, std::int64_t{static_cast<std::int32_t>(0xCAFEBABE)}), "-35014542");
    EXPECT_EQ(Render(AppendSignedHex, std::int64_t{std::numeric_limits<std::int32_t>::min()}), "-80000000");
    EXPECT_EQ(Render(AppendSignedHex, static_cast<std::int64_t>(0xDEADBEEFCAFEBABEull)), "-2152411035014542");
    EXPECT_EQ(Render(AppendSignedHex, std::numeric_limits<std::int64_t>::min()), "-8000000000000000");
    EXPECT_EQ(Render(AppendSignedHex, std::numeric_limits<std::int64_t>::max()), "7fffffffffffffff");
}

TEST(ValueText, FloatIsShortestAtFloatWidthLikeJava) {
    EXPECT_EQ(Render(AppendJavaFloat, 0.3f), "0.3");
    EXPECT_EQ(Render(AppendJavaFloat, 3.5f), "3.5");
    EXPECT_EQ(Render(AppendJavaFloat, 1.0f), "1.0");
    EXPECT_EQ(Render(AppendJavaFloat, 100.0f), "100.0");
    EXPECT_EQ(Render(AppendJavaFloat, 123456.78f), "123456.78");
    EXPECT_EQ(Render(AppendJavaFloat, 9999999.0f), "9999999.0");
    EXPECT_EQ(Render(AppendJavaFloat, 1.0e7f), "1.0E7");
    EXPECT_EQ(Render(AppendJavaFloat, 1.0e10f), "1.0E10");
    EXPECT_EQ(Render(AppendJavaFloat, 0.001f), "0.001");
    EXPECT_EQ(Render(AppendJavaFloat, 0.0001f), "1.0E-4");
    EXPECT_EQ(Render(AppendJavaFloat, -2.5e-5f), "-2.5E-5");
    EXPECT_EQ(Render(AppendJavaFloat, std::numeric_limits<float>::max()), "3.4028235E38");
    EXPECT_EQ(Render(AppendJavaFloat, std::numeric_limits<float>::denorm_min()), "1.4E-45");
}

TEST(ValueText, DoubleFollowsJavaIncludingSpecialValues) {
    EXPECT_EQ(Render(AppendJavaDouble, 2.71828), "2.71828");
    EXPECT_EQ(Render(AppendJavaDouble, 0.5), "0.5");
    EXPECT_EQ(Render(AppendJavaDouble, 1.0), "1.0");
    EXPECT_EQ(Render(AppendJavaDouble, 1.0e10), "1.0E10");
    EXPECT_EQ(Render(AppendJavaDouble, 12345678.9), "1.23456789E7");
    EXPECT_EQ(Render(AppendJavaDouble, 1234567.0), "1234567.0");
    EXPECT_EQ(Render(AppendJavaDouble, 0.1 + 0.2), "0.30000000000000004");
    EXPECT_EQ(Render(AppendJavaDouble, 0.00123), "0.00123");
    EXPECT_EQ(Render(AppendJavaDouble, 1.0e-5), "1.0E-5");
    EXPECT_EQ(Render(AppendJavaDouble, std::numeric_limits<double>::max()), "1.7976931348623157E308");
    EXPECT_EQ(Render(AppendJavaDouble, std::numeric_limits<double>::denorm_min()), "4.9E-324");
    EXPECT_EQ(Render(AppendJavaDouble, 0.0), "0.0");
    EXPECT_EQ(Render(AppendJavaDouble, -0.0), "-0.0");
    EXPECT_EQ(Render(AppendJavaDouble, std::numeric_limits<double>::quiet_NaN()), "NaN");
    EXPECT_EQ(Render(AppendJavaDouble, std::numeric_limits<double>::infinity()), "Infinity");
    EXPECT_EQ(Render(AppendJavaDouble, -std::numeric_limits<double>::infinity()), "-Infinity");
}

TEST(ValueText, BytesAsLowerCaseHexAndPaddedBase64) {
    EXPECT_EQ(Render(AppendHexBytes, std::string_view("\x12\x34\x56\xAA\xFF\x00", 6)), "123456aaff00");
    EXPECT_EQ(Render(AppendHexBytes, std::string_view()), "");
    EXPECT_EQ(Render(AppendBase64, std::string_view("\xBA\xCE\x64")), "us5k");
    EXPECT_EQ(Render(AppendBase64, std::string_view("a")), "YQ==");
    EXPECT_EQ(Render(AppendBase64, std::string_view("ab")), "YWI=");
    EXPECT_EQ(Render(AppendBase64, std::string_view()), "");
    std::string long_(100, '\xFF');
    std::string encoded = Render(AppendBase64, std::string_view(long_));
    EXPECT_EQ(encoded.size(), 136u);
    EXPECT_EQ(encoded.find('\n'), std::string::npos);
}

}  // namespace
}  // namespace Zarvo::BinaryXml
