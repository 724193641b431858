// The library's printf work-alike: its own conversions and the bounds.
#include <string>

#include <gtest/gtest.h>

#include "frame/formatter.h"

namespace velmora {
namespace {

std::string Real(double value, const char* format = "%r") {
    char out[64];
    FormatNarrow(out, sizeof out, format, value);
    return out;
}

TEST(Formatter, LocaleIndependentReals) {
    EXPECT_EQ(Real(612), "612");
    EXPECT_EQ(Real(0.5), "0.5");
    EXPECT_EQ(Real(72.0 / 300), "0.24");
    EXPECT_EQ(Real(-1.25), "-1.25");
    EXPECT_EQ(Real(0.0000004), "0");
    EXPECT_EQ(Real(0.00000075), "0.000001");
    EXPECT_EQ(Real(1e-9), "0");
    EXPECT_EQ(Real(0), "0");
    EXPECT_EQ(Real(9.9999999), "10");  // the carry runs out of the first digit
    EXPECT_EQ(Real(1.5, "%.0r"), "2");
    EXPECT_EQ(Real(2, "%#.2r"), "2.00");
    EXPECT_EQ(Real(1234.5678, "%.2r"), "1234.57");
    EXPECT_EQ(Real(3.25, "%.3f"), "3.250");
}

TEST(Formatter, IntegersStringsAndLengths) {
    char16_t wide[128];
    FormatWide(wide, 128, u"%s|%S|%hs|%lu|%lD|%04x|%lX|%zu|%.*s|%c|%%", u"wide", "narrow", "short", 4294967295u,
               static_cast<int32_t>(-42), 0xABu, 0xBEEFu, static_cast<size_t>(7), 3, u"abcdef", u'Z');
    EXPECT_EQ(std::u16string(wide), u"wide|narrow|short|4294967295|-42|00ab|BEEF|7|abc|Z|%");

    char narrow[64];
    FormatNarrow(narrow, sizeof narrow, "%s %S %5u|%-4d|%+d|%08.3r", "n", u"w", 12u, 3, 5, 2.5);
    EXPECT_STREQ(narrow, "n w    12|3   |+5|000002.5");
}

TEST(Formatter, OutputIsBoundedAndTerminated) {
    char16_t out[6];
    EXPECT_EQ(FormatWide(out, 6, u"%s", u"abcdefgh"), 5u);
    EXPECT_EQ(std::u16string(out), u"abcde");
    char tiny[1];
    FormatNarrow(tiny, 1, "xyz");
    EXPECT_EQ(tiny[0], '\0');
    char unknown[16];
    FormatNarrow(unknown, sizeof unknown, "a%qb");
    EXPECT_STREQ(unknown, "a%qb");
}

}  // namespace
}  // namespace velmora
