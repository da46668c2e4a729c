// A script's stamp text is interpreted as a format without reading any argument.
#include <gtest/gtest.h>

#include <string>

#include "device/stamp_text.h"

namespace {

std::string Format(const char *text, size_t size = 64) {
    char out[256];
    size_t length = qav::FormatWithoutArguments(text, out, size);
    EXPECT_EQ(length, std::string(out).size());
    return out;
}

TEST(StampText, ConversionsPrintAsIfGivenZeroOrEmpty) {
    EXPECT_EQ(Format("plain"), "plain");
    EXPECT_EQ(Format("%d|%5d|%-3u|%x|%#o|%lld|%hhx"), "0|    0|0  |0|0|0|0");
    EXPECT_EQ(Format("[%s][%4s][%.2s]"), "[][    ][]");
    EXPECT_EQ(Format("%p %f %.1e %g"), "(nil) 0.000000 0.0e+00 0");
    EXPECT_EQ(Format("%*d|%.*f|%-*s|"), "0|0||");
    EXPECT_EQ(Format("100%%"), "100%");
}

TEST(StampText, NothingIsStoredAndOddTextStands) {
    EXPECT_EQ(Format("a%nb%hnc"), "abc");
    EXPECT_EQ(Format("ends with %"), "ends with %");
    EXPECT_EQ(Format("%k%y"), "%k%y");
    EXPECT_EQ(Format("x%cy"), "x") << "a zero character ends the text";
}

TEST(StampText, OutputIsBounded) {
    EXPECT_EQ(Format(std::string(100, 'a').c_str()), std::string(63, 'a'));
    EXPECT_EQ(Format("%100d", 8), std::string(7, ' '));
    EXPECT_EQ(Format("abc", 1), "");
    char untouched[4] = "xyz";
    EXPECT_EQ(qav::FormatWithoutArguments("abc", untouched, 0), 0u);
    EXPECT_STREQ(untouched, "xyz");
    EXPECT_EQ(Format(nullptr), "");
}

} // namespace
