// Resolutions and scales as exact fractions.
#include <gtest/gtest.h>

#include "tiff/exact_fraction.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

VelmoraResolutionScale Record(DWORD xn, DWORD xd, DWORD yn, DWORD yd, WORD unit) {
    VelmoraResolutionScale r = {};
    r.xNumerator = xn;
    r.xDenominator = xd;
    r.yNumerator = yn;
    r.yDenominator = yd;
    r.unit = unit;
    return r;
}

TEST(Resolution, SetStoresReducedPairsDenominatorFirst) {
    VelmoraResolutionScale r = {};
    ASSERT_EQ(SetVelmoraTIFFResolutionScale(&r, 600, 2, 300, 1, 2), 1);
    EXPECT_EQ(r.xDenominator, 1u);
    EXPECT_EQ(r.xNumerator, 300u);
    EXPECT_EQ(r.yDenominator, 1u);
    EXPECT_EQ(r.yNumerator, 300u);
    EXPECT_EQ(r.unit, 2);
    EXPECT_EQ(SetVelmoraTIFFResolutionScale(&r, 0, 1, 1, 1, 2), 0);
    EXPECT_EQ(GetLastVelmoraErrorCode(), 87u);
    EXPECT_EQ(SetVelmoraTIFFResolutionScale(&r, 1, 1, 1, 1, 18), 0);
    EXPECT_EQ(SetVelmoraTIFFResolutionScale(nullptr, 1, 1, 1, 1, 2), 0);
    EXPECT_EQ(GetLastVelmoraErrorCode(), 998u);
}

TEST(Resolution, ConvertBetweenUnitsExactly) {
    VelmoraResolutionScale r = Record(300, 1, 200, 1, 2);
    ASSERT_EQ(ConvertVelmoraTIFFResolutionScale(&r, 3), 1);
    EXPECT_EQ(r.xNumerator, 15000u);
    EXPECT_EQ(r.xDenominator, 127u);
    EXPECT_EQ(r.yNumerator, 10000u);
    EXPECT_EQ(r.yDenominator, 127u);
    EXPECT_EQ(r.unit, 3);
    ASSERT_EQ(ConvertVelmoraTIFFResolutionScale(&r, 2), 1);  // and back
    EXPECT_EQ(r.xNumerator, 300u);
    EXPECT_EQ(r.xDenominator, 1u);

    // Points are 127/360 mm: 72 per inch is one per point.
    r = Record(72, 1, 72, 1, 2);
    ASSERT_EQ(ConvertVelmoraTIFFResolutionScale(&r, 17), 1);
    EXPECT_EQ(r.xNumerator, 1u);
    EXPECT_EQ(r.xDenominator, 1u);

    // No absolute unit converts only to itself; to it, only the unit changes.
    r = Record(300, 1, 300, 1, 1);
    EXPECT_EQ(ConvertVelmoraTIFFResolutionScale(&r, 2), 0);
    EXPECT_EQ(GetLastVelmoraErrorCode(), 87u);
    r = Record(300, 1, 300, 1, 2);
    ASSERT_EQ(ConvertVelmoraTIFFResolutionScale(&r, 1), 1);
    EXPECT_EQ(r.unit, 1);
    EXPECT_EQ(r.xNumerator, 300u);
    r = Record(300, 0, 300, 1, 2);
    EXPECT_EQ(ConvertVelmoraTIFFResolutionScale(&r, 3), 0);
    EXPECT_EQ(GetLastVelmoraErrorCode(), 87u);
}

TEST(Resolution, MultiplyAndOverflow) {
    VelmoraResolutionScale r = Record(300, 1, 300, 1, 2);
    ASSERT_EQ(MultiplyVelmoraTIFFResolutionScale(&r, 2, 3), 1);
    EXPECT_EQ(r.xNumerator, 200u);
    EXPECT_EQ(r.xDenominator, 1u);

    // Too large for 32 bits even through the decimal route.
    r = Record(4000000000u, 1, 1, 1, 2);
    EXPECT_EQ(MultiplyVelmoraTIFFResolutionScale(&r, 4000000000u, 1), 0);
    EXPECT_EQ(GetLastVelmoraErrorCode(), 0x02000012u);
    EXPECT_EQ(r.xNumerator, 4000000000u);  // unchanged on failure

    // Products beyond 32 bits that fit as a quotient take the decimal route.
    ErrorRecord record;
    Fraction f = Multiply(Fraction{100000, 3}, Fraction{3, 100000}, &record);
    EXPECT_TRUE(record.ok());
    EXPECT_EQ(f.numerator, 1u);
    EXPECT_EQ(f.denominator, 1u);
}

TEST(Resolution, DoubleToRationalByDecimalDigits) {
    DWORD n = 0, d = 0;
    ASSERT_EQ(VelmoraDoubleToURational(0.5, &n, &d), 1);
    EXPECT_EQ(n, 1u);
    EXPECT_EQ(d, 2u);
    ASSERT_EQ(VelmoraDoubleToURational(118.11, &n, &d), 1);
    EXPECT_EQ(n, 11811u);
    EXPECT_EQ(d, 100u);
    ASSERT_EQ(VelmoraDoubleToURational(1.0 / 3, &n, &d), 1);
    EXPECT_EQ(n, 333333333u);
    EXPECT_EQ(d, 1000000000u);
    ASSERT_EQ(VelmoraDoubleToURational(123456.789, &n, &d), 1);  // nine significant digits at most
    EXPECT_EQ(n, 123456789u);
    EXPECT_EQ(d, 1000u);
    ASSERT_EQ(VelmoraDoubleToURational(4294967295.0, &n, &d), 1);
    EXPECT_EQ(n, 4294967295u);
    EXPECT_EQ(d, 1u);
    EXPECT_EQ(VelmoraDoubleToURational(4294967296.0, &n, &d), 0);
    EXPECT_EQ(GetLastVelmoraErrorCode(), 0x02000012u);
    EXPECT_EQ(VelmoraDoubleToURational(-1.0, &n, &d), 0);
    EXPECT_EQ(GetLastVelmoraErrorCode(), 87u);
}

}  // namespace
}  // namespace velmora
