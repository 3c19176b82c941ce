#include "user_base64_util.h"

#include <gtest/gtest.h>

#include "captured_log.h"

using Zarvo::UpdateEngine::UserBase64Util;

namespace {

TEST(UserBase64UtilTest, EncodesWithPaddingOnOneLine) {
    EXPECT_EQ(UserBase64Util::Base64Encode("abc"), "YWJj");
    EXPECT_EQ(UserBase64Util::Base64Encode("a"), "YQ==");
    EXPECT_EQ(UserBase64Util::Base64Encode("ab"), "YWI=");
    EXPECT_EQ(UserBase64Util::Base64Encode(std::string("\0\xff\xfe", 3)), "AP/+");
}

TEST(UserBase64UtilTest, LongInputHasNoLineBreaksAndMatchesLength) {
    std::string input;
    for (int i = 0; i < 100000; ++i) {
        input += static_cast<char>(i * 7);
    }
    std::string encoded = UserBase64Util::Base64Encode(input);
    EXPECT_EQ(encoded.size(), (input.size() + 2) / 3 * 4);
    EXPECT_EQ(encoded.find('\n'), std::string::npos);
    EXPECT_EQ(encoded.substr(0, 8), "AAcOFRwj");
}

TEST(UserBase64UtilTest, EmptyInputIsAWriteFailure) {
    Zarvo::Testing::ResetCaptures();
    EXPECT_EQ(UserBase64Util::Base64Encode(""), "");
    EXPECT_EQ(Zarvo::Testing::PluginLogLines(),
              (std::vector<Zarvo::Testing::LogLine>{{6, "Base64Encode error: bio write fail."}}));
}

}  // namespace
