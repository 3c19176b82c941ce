#include "securec.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(Securec, MemsetFillsWithinBounds) {
    char buf[8];
    std::memset(buf, 'x', sizeof(buf));
    EXPECT_EQ(memset_s(buf, sizeof(buf), 0, 4), EOK);
    EXPECT_EQ(std::string(buf, 8), std::string("\0\0\0\0xxxx", 8));
    EXPECT_EQ(memset_s(buf, sizeof(buf), 'a', 9), ERANGE_AND_RESET);
    EXPECT_EQ(std::string(buf, 8), "aaaaaaaa");
    EXPECT_EQ(memset_s(nullptr, 8, 0, 8), SECUREC_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(memset_s(buf, 0, 0, 0), SECUREC_ERROR_INVALID_RANGE);
}

TEST(Securec, StrcpyNeedsRoomForTheTerminator) {
    char buf[4];
    EXPECT_EQ(strcpy_s(buf, sizeof(buf), "abc"), EOK);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(strcpy_s(buf, sizeof(buf), "abcd"), ERANGE_AND_RESET);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(strcpy_s(buf, sizeof(buf), ""), EOK);
    EXPECT_EQ(strcpy_s(buf, sizeof(buf), nullptr), EINVAL_AND_RESET);
    EXPECT_EQ(strcpy_s(nullptr, 4, "a"), SECUREC_ERROR_INVALID_PARAMETER);
    EXPECT_EQ(strcpy_s(buf, 0, "a"), SECUREC_ERROR_INVALID_RANGE);
}

TEST(Securec, StrcpyRefusesOverlap) {
    char buf[16] = "abcdef";
    EXPECT_EQ(strcpy_s(buf + 2, 8, buf), EOVERLAP_AND_RESET);
    char other[16] = "xyz";
    EXPECT_EQ(strcpy_s(other, 3, other + 8), EOK);  // an empty text far behind does not overlap
}

}  // namespace
