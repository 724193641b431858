// Resolutions and scales as exact fractions.
#include <tuple>

#include <gtest/gtest.h>

#include "tiff/exact_fraction.h"
#include "velmora/velmora.h"
#include "../support/last_error.h"

namespace velmora {
namespace {

using testing_support::ErrorOf;

VelmoraResolutionScale Record(DWORD xn, DWORD xd, DWORD yn, DWORD yd, WORD unit) {
    VelmoraResolutionScale r = {};
    r.xNumerator = xn;
    r.xDenominator = xd;
    r.yNumerator = yn;
    r.yDenominator = yd;
    r.unit = unit;
    return r;
}

// The fields of a record, numerators before denominators, for comparing.
std::tuple<DWORD, DWORD, DWORD, DWORD, WORD> Fields(const VelmoraResolutionScale& r) {
    return {r.xNumerator, r.xDenominator, r.yNumerator, r.yDenominator, r.unit};
}

TEST(Resolution, SetStoresReducedPairsDenominatorFirst) {
    VelmoraResolutionScale r = {};
    ASSERT_EQ(SetVelmoraTIFFResolutionScale(&r, 600, 2, 300, 1, 2), 1);
    EXPECT_EQ(Fields(r), Fields(Record(300, 1, 300, 1, 2)));
    EXPECT_EQ(ErrorOf(SetVelmoraTIFFResolutionScale(&r, 0, 1, 1, 1, 2) == 0), 87u);
    EXPECT_EQ(SetVelmoraTIFFResolutionScale(&r, 1, 1, 1, 1, 18), 0);
    EXPECT_EQ(ErrorOf(SetVelmoraTIFFResolutionScale(nullptr, 1, 1, 1, 1, 2) == 0), 998u);
}

TEST(Resolution, ConvertBetweenUnitsExactly) {
    VelmoraResolutionScale r = Record(300, 1, 200, 1, 2);
    ASSERT_EQ(ConvertVelmoraTIFFResolutionScale(&r, 3), 1);
    EXPECT_EQ(Fields(r), Fields(Record(15000, 127, 10000, 127, 3)));
    ASSERT_EQ(ConvertVelmoraTIFFResolutionScale(&r, 2), 1);  // and back
    EXPECT_EQ(Fields(r), Fields(Record(300, 1, 200, 1, 2)));

    // Points are 127/360 mm: 72 per inch is one per point.
    r = Record(72, 1, 72, 1, 2);
    ASSERT_EQ(ConvertVelmoraTIFFResolutionScale(&r, 17), 1);
    EXPECT_EQ(Fields(r), Fields(Record(1, 1, 1, 1, 17)));

    // No absolute unit converts only to itself; to it, only the unit changes.
    r = Record(300, 1, 300, 1, 1);
    EXPECT_EQ(ErrorOf(ConvertVelmoraTIFFResolutionScale(&r, 2) == 0), 87u);
    r = Record(300, 1, 300, 1, 2);
    ASSERT_EQ(ConvertVelmoraTIFFResolutionScale(&r, 1), 1);
    EXPECT_EQ(Fields(r), Fields(Record(300, 1, 300, 1, 1)));
    r = Record(300, 0, 300, 1, 2);
    EXPECT_EQ(ErrorOf(ConvertVelmoraTIFFResolutionScale(&r, 3) == 0), 87u);
}

TEST(Resolution, MultiplyAndOverflow) {
    VelmoraResolutionScale r = Record(300, 1, 300, 1, 2);
    ASSERT_EQ(MultiplyVelmoraTIFFResolutionScale(&r, 2, 3), 1);
    EXPECT_EQ(Fields(r), Fields(Record(200, 1, 200, 1, 2)));

    // Too large for 32 bits even through the decimal route; unchanged on failure.
    r = Record(4000000000u, 1, 1, 1, 2);
    EXPECT_EQ(ErrorOf(MultiplyVelmoraTIFFResolutionScale(&r, 4000000000u, 1) == 0), 0x02000012u);
    EXPECT_EQ(r.xNumerator, 4000000000u);

    // Products beyond 32 bits that fit as a quotient take the decimal route.
    ErrorRecord record;
    Fraction f = Multiply(Fraction{100000, 3}, Fraction{3, 100000}, &record);
    EXPECT_TRUE(record.ok());
    EXPECT_EQ(std::tuple(f.numerator, f.denominator), std::tuple(1u, 1u));
}

TEST(Resolution, DoubleToRationalByDecimalDigits) {
    const struct {
        double value;
        DWORD numerator, denominator;
    } cases[] = {{0.5, 1, 2},
                 {118.11, 11811, 100},
                 {1.0 / 3, 333333333, 1000000000},
                 {123456.789, 123456789, 1000},  // nine significant digits at most
                 {4294967295.0, 4294967295u, 1}};
    for (const auto& c : cases) {
        DWORD n = 0, d = 0;
        ASSERT_EQ(VelmoraDoubleToURational(c.value, &n, &d), 1) << c.value;
        EXPECT_EQ(std::tuple(n, d), std::tuple(c.numerator, c.denominator)) << c.value;
    }
    DWORD n = 0, d = 0;
    EXPECT_EQ(ErrorOf(VelmoraDoubleToURational(4294967296.0, &n, &d) == 0), 0x02000012u);
    EXPECT_EQ(ErrorOf(VelmoraDoubleToURational(-1.0, &n, &d) == 0), 87u);
}

}  // namespace
}  // namespace velmora
