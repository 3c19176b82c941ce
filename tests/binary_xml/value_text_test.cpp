#include "binary_xml/value_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <tuple>

namespace Zarvo::BinaryXml {
namespace {

template <typename Value>
std::string Render(void (*append)(Value, std::string &), Value value) {
    std::string out = "x";  // rendering appends; it must keep what is there
    append(value, out);
    return out.substr(1);
}

TEST(ValueText, IntegersInDecimalAndSignedLowerCaseHex) {
    const std::tuple<std::int64_t, const char *, const char *> cases[] = {
        {0, "0", "0"},
        {255, "255", "ff"},
        {-1, "-1", "-1"},
        {static_cast<std::int32_t>(0xCAFEBABE), "-889275714", "-35014542"},
        {std::numeric_limits<std::int32_t>::min(), "-2147483648", "-80000000"},
        {static_cast<std::int64_t>(0xDEADBEEFCAFEBABEull), "-2401053089206453570", "-2152411035014542"},
        {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808", "-8000000000000000"},
        {std::numeric_limits<std::int64_t>::max(), "9223372036854775807", "7fffffffffffffff"}};
    for (const auto &[value, decimal, hex] : cases) {
        EXPECT_EQ(Render(AppendDecimal, value), decimal);
        EXPECT_EQ(Render(AppendSignedHex, value), hex);
    }
}

// Java's texts are canonical: shortest digits that read back, plain between 10^-3 and 10^7,
// exponent form outside. So each one, read as a value, must render as itself.
TEST(ValueText, FloatAndDoubleAsJavaWritesThem) {
    for (const char *text : {"0.3", "1.0", "123456.78", "9999999.0", "1.0E7", "0.001", "1.0E-4", "-2.5E-5",
                             "3.4028235E38", "1.4E-45"}) {
        EXPECT_EQ(Render(AppendJavaFloat, std::strtof(text, nullptr)), text);
    }
    for (const char *text :
         {"2.71828", "1.0", "1.0E10", "1.23456789E7", "1234567.0", "0.30000000000000004", "0.00123", "1.0E-5",
          "1.7976931348623157E308", "4.9E-324", "0.0", "-0.0", "NaN", "Infinity", "-Infinity"}) {
        EXPECT_EQ(Render(AppendJavaDouble, std::strtod(text, nullptr)), text);
    }
}

TEST(ValueText, BytesAsLowerCaseHexAndPaddedBase64WithoutLineBreaks) {
    EXPECT_EQ(Render(AppendHexBytes, std::string_view("\x12\x34\x56\xAA\xFF\x00", 6)), "123456aaff00");
    EXPECT_EQ(Render(AppendHexBytes, std::string_view()), "");
    EXPECT_EQ(Render(AppendBase64, std::string_view()), "");
    EXPECT_EQ(Render(AppendBase64, std::string_view("a")), "YQ==");
    EXPECT_EQ(Render(AppendBase64, std::string_view("ab")), "YWI=");
    EXPECT_EQ(Render(AppendBase64, std::string_view("\xBA\xCE\x64")), "us5k");
    EXPECT_EQ(Render(AppendBase64, std::string_view(std::string(60, '\xFF'))), std::string(80, '/'));
}

}  // namespace
}  // namespace Zarvo::BinaryXml
