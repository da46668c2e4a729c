// The bounds-checked string functions at their boundaries.
#include <gtest/gtest.h>

#include <cstring>

#include "securec.h"

namespace {

TEST(BoundsCheckCopy, FitsExactlyOrResets) {
    char buf[4] = "xyz";
    EXPECT_EQ(strcpy_s(buf, sizeof buf, "abc"), EOK);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(strcpy_s(buf, sizeof buf, "abcd"), ERANGE_AND_RESET);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(strcpy_s(buf, sizeof buf, nullptr), EINVAL_AND_RESET);
    std::strcpy(buf, "kee");
    EXPECT_EQ(strcpy_s(buf, 0, "a"), SECUREC_ERANGE);
    EXPECT_STREQ(buf, "kee"); // a bad size touches nothing
    EXPECT_EQ(strcpy_s(nullptr, 4, "a"), SECUREC_EINVAL);
}

TEST(BoundsCheckCopy, CountLimitsTheSourceNotTheDestination) {
    char buf[8];
    EXPECT_EQ(strncpy_s(buf, sizeof buf, "abcdefghij", 3), EOK);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(strncpy_s(buf, sizeof buf, "abcdefgh", 8), ERANGE_AND_RESET);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(strncpy_s(buf, sizeof buf, "abcdefgh", 7), EOK);
    EXPECT_STREQ(buf, "abcdefg");
    EXPECT_EQ(strncpy_s(buf, sizeof buf, "abc", 0), EOK);
    EXPECT_STREQ(buf, "");
    // a count past the destination is fine while the text fits, up to the largest count
    EXPECT_EQ(strncpy_s(buf, sizeof buf, "abc", SECUREC_STRING_MAX_LEN), EOK);
}

TEST(BoundsCheckCopy, OverlapIsRefused) {
    char buf[16] = "abcdef";
    EXPECT_EQ(strcpy_s(buf + 2, 10, buf), EOVERLAP_AND_RESET);
    std::strcpy(buf, "ab");
    EXPECT_EQ(strcpy_s(buf + 3, 10, buf), EOK); // adjacent, not overlapping, either way round
    EXPECT_EQ(strcpy_s(buf, 3, buf + 3), EOK);
    char mem[8] = "1234567";
    EXPECT_EQ(memcpy_s(mem + 1, 7, mem, 4), EOVERLAP_AND_RESET);
    EXPECT_EQ(mem[1], '\0');
}

TEST(BoundsCheckConcat, AppendsWithinBounds) {
    char buf[8] = "abc";
    EXPECT_EQ(strcat_s(buf, sizeof buf, "defg"), EOK);
    EXPECT_STREQ(buf, "abcdefg");
    std::strcpy(buf, "abc");
    EXPECT_EQ(strcat_s(buf, sizeof buf, "defgh"), ERANGE_AND_RESET);
    EXPECT_EQ(buf[0], '\0');
    std::strcpy(buf, "abc");
    EXPECT_EQ(strncat_s(buf, sizeof buf, "defghijk", 2), EOK);
    EXPECT_STREQ(buf, "abcde");
    char unterminated[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(strcat_s(unterminated, sizeof unterminated, "x"), EINVAL_AND_RESET);
    EXPECT_EQ(unterminated[0], '\0');
}

TEST(BoundsCheckMemory, CopyAndSet) {
    unsigned char dst[4] = {9, 9, 9, 9};
    const unsigned char src[5] = {1, 2, 3, 4, 5};
    EXPECT_EQ(memcpy_s(dst, sizeof dst, src, 4), EOK);
    EXPECT_EQ(dst[3], 4);
    EXPECT_EQ(memcpy_s(dst, sizeof dst, src, 5), ERANGE_AND_RESET);
    EXPECT_EQ(dst[0] | dst[1] | dst[2] | dst[3], 0);
    EXPECT_EQ(memcpy_s(dst, sizeof dst, nullptr, 1), EINVAL_AND_RESET);
    EXPECT_EQ(memset_s(dst, sizeof dst, 7, 4), EOK);
    EXPECT_EQ(dst[3], 7);
    EXPECT_EQ(memset_s(dst, sizeof dst, 1, 5), ERANGE_AND_RESET);
    EXPECT_EQ(dst[3], 1); // fills the whole destination, then reports
}

TEST(BoundsCheckFormat, CountBelowSizeCutsAndReportsMinusOne) {
    char buf[128];
    // The file engine's join: a 128-byte buffer with count 127.
    std::string long_text(127, 'x');
    EXPECT_EQ(snprintf_s(buf, sizeof buf, 127, "%s", long_text.c_str()), 127);
    EXPECT_EQ(snprintf_s(buf, sizeof buf, 127, "%s/", long_text.c_str()), -1);
    EXPECT_EQ(std::strlen(buf), 127u); // cut text stays
    char small[8];
    EXPECT_EQ(snprintf_s(small, sizeof small, 3, "%d", 12345), -1);
    EXPECT_STREQ(small, "123");
}

TEST(BoundsCheckFormat, CountAtOrAboveSizeResetsOnOverflow) {
    char buf[8];
    EXPECT_EQ(snprintf_s(buf, sizeof buf, sizeof buf, "%s", "1234567"), 7);
    EXPECT_EQ(snprintf_s(buf, sizeof buf, sizeof buf, "%s", "12345678"), -1);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(sprintf_s(buf, sizeof buf, "%d-%d", 12, 34), 5);
    EXPECT_STREQ(buf, "12-34");
    EXPECT_EQ(sprintf_s(buf, sizeof buf, "%s", "too long!"), -1);
    EXPECT_STREQ(buf, "");
    EXPECT_EQ(snprintf_s(buf, 0, 1, "x"), -1);
    EXPECT_EQ(snprintf_s(buf, sizeof buf, 4, nullptr), -1);
}

TEST(BoundsCheckFormat, TruncatedVariantReportsWhatFits) {
    char buf[6];
    EXPECT_EQ(snprintf_truncated_s(buf, sizeof buf, "%s", "abcdefgh"), 5);
    EXPECT_STREQ(buf, "abcde");
    EXPECT_EQ(snprintf_truncated_s(buf, sizeof buf, "%s", "ab"), 2);
    EXPECT_STREQ(buf, "ab");
}

} // namespace
