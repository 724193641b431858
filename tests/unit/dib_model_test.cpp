// The DIB model: layout rules, colour tables, pixel fetch and validation.
#include <gtest/gtest.h>

#include "dib/color_type.h"
#include "dib/dib_layout.h"
#include "dib/dib_validation.h"
#include "dib/palette.h"
#include "dib/pixel_fetch.h"
#include "dib/resolution.h"
#include "dib_test_images.h"

namespace velmora {
namespace {

using test::MakeDib;
using test::SetPixel;

TEST(DibLayout, StrideIsWholeBytesRoundedToFourAtEveryDepth) {
    EXPECT_EQ(RowStride(1, 1), 4u);
    EXPECT_EQ(RowStride(1, 33), 8u);
    EXPECT_EQ(RowStride(24, 3), 12u);
    // (Every depth at odd widths is read by Pillow and ImageMagick from the
    // bitmaps the library saves, in the interop tests.)
    auto dib = MakeDib(37, 5, 4);
    uint64_t size = 0;
    ASSERT_TRUE(PackedSize(dib.header(), &size));
    EXPECT_EQ(size, 40u + 16 * 4 + 5 * 20);
    ASSERT_TRUE(CoreFormatSize(dib.header(), &size));
    EXPECT_EQ(size, 12u + 16 * 3 + 5 * 20);
}

TEST(DibLayout, ColourCountTakesBiClrUsedAsItStands) {
    EXPECT_EQ(ColorCount(MakeDib(8, 1, 1).header()), 2u);
    auto one = MakeDib(8, 1, 1, 1);
    EXPECT_EQ(ColorCount(one.header()), 1u);
    EXPECT_EQ(BitsOffset(one.header()), 44u);
    EXPECT_EQ(ColorCount(MakeDib(8, 1, 1, 300).header()), 300u);    // not clamped to 2
    EXPECT_EQ(ColorCount(MakeDib(8, 1, 8, 0x10005).header()), 5u);  // the low 16 bits
    EXPECT_EQ(ColorCount(MakeDib(8, 1, 4).header()), 16u);
    EXPECT_EQ(BitsOffset(MakeDib(8, 1, 8).header()), 40u + 1024);
    // High colour: no table, but masks and a palette hint before the rows.
    EXPECT_EQ(BitsOffset(MakeDib(3, 1, 24, 3).header()), 52u);
    EXPECT_EQ(BitsOffset(MakeDib(3, 1, 32, 3, BI_BITFIELDS).header()), 64u);
    EXPECT_EQ(BitsOffset(MakeDib(3, 1, 16, 0, BI_BITFIELDS).header()), 52u);
    EXPECT_EQ(BitsOffset(MakeDib(3, 1, 24, 0, BI_BITFIELDS).header()), 40u);  // masks only at 16 and 32
}

TEST(DibLayout, SizesBeyondThirtyTwoBitsAreRefusedNotWrapped) {
    BITMAPINFOHEADER h = {40, 0x7FFFFFFF, 0x7FFFFFFF, 1, 32, 0, 0, 0, 0, 0xFFFFFFFF, 0};
    uint64_t size = 0;
    EXPECT_FALSE(ImageBytes(&h, &size));
    EXPECT_FALSE(PackedSize(&h, &size));
    h.biWidth = 1;
    h.biHeight = 1;
    EXPECT_FALSE(PackedSize(&h, &size));  // a 16 GB palette hint
    h.biBitCount = 65535;
    h.biWidth = 0x7FFFFFFF;
    EXPECT_FALSE(ImageBytes(&h, &size));
}

TEST(DibPalette, GreyClassification) {
    auto dib = MakeDib(1, 1, 4);
    RGBQUAD* t = dib.table();
    for (uint32_t i = 0; i < 16; ++i) t[i] = RGBQUAD{RampLevel(i, 16), RampLevel(i, 16), RampLevel(i, 16), 0};
    EXPECT_EQ(ClassifyGrey(dib.header()), GreyKind::Ascending);
    for (uint32_t i = 0; i < 16; ++i) t[i].rgbRed = t[i].rgbGreen = t[i].rgbBlue = RampLevel(15 - i, 16);
    EXPECT_EQ(ClassifyGrey(dib.header()), GreyKind::Descending);
    std::swap(t[3], t[4]);
    EXPECT_EQ(ClassifyGrey(dib.header()), GreyKind::Irregular);
    t[3].rgbBlue ^= 1;
    EXPECT_EQ(ClassifyGrey(dib.header()), GreyKind::NotGrey);

    // An exact ramp of the wrong length is only grey, and so is one entry.
    auto short8 = MakeDib(1, 1, 8, 16);
    for (uint32_t i = 0; i < 16; ++i) short8.table()[i] = dib.table()[0];
    EXPECT_EQ(ClassifyGrey(short8.header()), GreyKind::Irregular);
    EXPECT_EQ(ClassifyGrey(MakeDib(1, 1, 1, 1).header()), GreyKind::Irregular);
    EXPECT_EQ(ClassifyGrey(MakeDib(1, 1, 24).header()), GreyKind::NotGrey);
}

TEST(DibPalette, NearestColourPrefersEqualThenFirstOfTies) {
    const RGBQUAD table[] = {{0, 0, 10, 0}, {0, 0, 30, 0}, {0, 0, 20, 0}, {0, 0, 20, 0}, {0, 0, 0, 0}};
    COLORREF found = 0;
    EXPECT_EQ(NearestColor(table, 5, 20, &found), 2);  // red 20: the first equal entry
    EXPECT_EQ(found, 20u);
    EXPECT_EQ(NearestColor(table, 5, 25, &found), 1);  // 30 and 20 tie at 25: the first wins
    EXPECT_EQ(NearestColor(table, 5, 15, nullptr), 0);
    EXPECT_EQ(NearestColor(table, 5, 0x01000014, nullptr), 2);      // the highlighter bit is not a colour
    EXPECT_EQ(NearestColorExcluding(table, 5, 20, 20, &found), 0);  // 10 and 30 tie
    EXPECT_EQ(NearestColorExcluding(table, 1, 10, 10, nullptr), -1);
    EXPECT_EQ(NearestColor(table, 0, 10, nullptr), -1);

    auto a = MakeDib(1, 1, 1);
    auto b = MakeDib(1, 1, 1);
    EXPECT_TRUE(SamePalette(a.header(), b.header()));
    b.table()[1].rgbReserved = 7;  // not a colour
    EXPECT_TRUE(SamePalette(a.header(), b.header()));
    b.table()[1].rgbGreen = 1;
    EXPECT_FALSE(SamePalette(a.header(), b.header()));
    EXPECT_FALSE(SamePalette(MakeDib(1, 1, 24).header(), MakeDib(1, 1, 24).header()));
}

TEST(DibPixels, FetchAtEveryTableAndDirectDepth) {
    for (uint16_t bits : {1, 4, 8}) {
        auto dib = MakeDib(11, 3, bits);
        uint32_t count = ColorCount(dib.header());
        for (uint32_t i = 0; i < count; ++i) dib.table()[i] = RGBQUAD{uint8_t(i), uint8_t(2 * i), uint8_t(3 * i), 0};
        // Each pixel gets index (x + 3y) mod count; y = 0 is the top row, stored last.
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 11; ++x) SetPixel(dib.header(), dib.bits(), x, y, (x + 3 * y) % count);
        for (int y = 0; y < 3; ++y) {
            for (int x = 0; x < 11; ++x) {
                uint32_t i = (x + 3 * y) % count;
                ASSERT_EQ(PixelColor(dib.header(), dib.bits(), x, y), (3 * i & 255) | (2 * i & 255) << 8 | i << 16)
                    << bits << " bits at " << x << "," << y;
            }
        }
        EXPECT_EQ(PixelColor(dib.header(), dib.bits(), 11, 0), 0u);
        EXPECT_EQ(PixelColor(dib.header(), dib.bits(), 0, -1), 0u);
    }
    auto high = MakeDib(3, 2, 16);
    SetPixel(high.header(), high.bits(), 2, 0, 31u << 10 | 16u << 5 | 1u);
    EXPECT_EQ(PixelColor(high.header(), high.bits(), 2, 0), 255u | 131u << 8 | 8u << 16);
    auto rgb = MakeDib(3, 2, 24);
    SetPixel(rgb.header(), rgb.bits(), 1, 1, 0x112233);  // stored blue 33, green 22, red 11
    EXPECT_EQ(PixelColor(rgb.header(), rgb.bits(), 1, 1), 0x332211u);
    EXPECT_EQ(PixelColor(MakeDib(3, 2, 32).header(), nullptr, 0, 0), 0u);
    // An index past a short table reads as black rather than past the table.
    auto shortTable = MakeDib(8, 1, 1, 1);
    shortTable.table()[0] = RGBQUAD{9, 9, 9, 0};
    SetPixel(shortTable.header(), shortTable.bits(), 0, 0, 1);
    EXPECT_EQ(PixelColor(shortTable.header(), shortTable.bits(), 0, 0), 0u);
    EXPECT_EQ(PixelColor(shortTable.header(), shortTable.bits(), 1, 0), 0x090909u);
}

TEST(DibColourType, ByDepthAndGreyness) {
    auto bw = MakeDib(1, 1, 1);
    bw.table()[0] = RGBQUAD{255, 255, 255, 0};  // white, black: descending
    EXPECT_EQ(DibColorType(bw.header()), 0);
    bw.table()[0] = RGBQUAD{0, 0, 0, 0};
    bw.table()[1] = RGBQUAD{0, 0, 255, 0};  // black, red
    EXPECT_EQ(DibColorType(bw.header()), 1);
    EXPECT_EQ(DibColorType(MakeDib(1, 1, 4).header()), 2);  // an all-black table is grey
    EXPECT_EQ(DibColorType(MakeDib(1, 1, 24).header()), 6);
    for (uint16_t bits : {16, 32, 2, 0}) EXPECT_EQ(DibColorType(MakeDib(1, 1, bits).header()), 8) << bits;
    auto planes = MakeDib(1, 1, 24);
    planes.header()->biPlanes = 3;
    EXPECT_EQ(DibColorType(planes.header()), 8);
}

TEST(DibValidation, RefusalsInTheirOrder) {
    auto dib = MakeDib(9, 4, 8);
    BITMAPINFOHEADER* h = dib.header();
    EXPECT_EQ(CheckDib(nullptr, dib.bits(), h), 0u);
    EXPECT_EQ(CheckDib(nullptr, dib.bits(), nullptr), 998u);
    EXPECT_EQ(CheckDib(nullptr, nullptr, h), 998u);
    for (uint32_t size : {12u, 108u, 124u}) {
        h->biSize = size;
        EXPECT_EQ(CheckDib(nullptr, dib.bits(), h), 87u) << size;
        EXPECT_EQ(CheckDibHeader(h, false), 87u);
    }
    h->biSize = 40;
    h->biHeight = -4;  // top-down
    EXPECT_EQ(CheckDib(nullptr, dib.bits(), h), 87u);
    h->biHeight = 4;
    h->biPlanes = 0;
    EXPECT_EQ(CheckDib(nullptr, dib.bits(), h), 87u);
    h->biPlanes = 1;
    h->biWidth = 0;
    EXPECT_EQ(CheckDib(nullptr, dib.bits(), h), 87u);
    EXPECT_EQ(CheckDibHeader(h, true), 87u);
    EXPECT_EQ(CheckDibHeader(h, false), 0u);
    h->biWidth = 9;
    // Height is checked before the unreadable rows.
    h->biHeight = 0;
    EXPECT_EQ(CheckDib(nullptr, nullptr, h), 87u);
    h->biHeight = 4;

    RECT inside = {0, 0, 9, 4};
    EXPECT_EQ(CheckDib(&inside, dib.bits(), h), 0u);
    for (RECT outside : {RECT{-1, 0, 9, 4}, RECT{0, -1, 9, 4}, RECT{0, 0, 10, 4}, RECT{0, 0, 9, 5}}) {
        EXPECT_EQ(CheckDib(&outside, dib.bits(), h), 87u);
    }
    // An image too large to address cannot be readable.
    h->biWidth = 0x7FFFFFFF;
    h->biHeight = 0x7FFFFFFF;
    EXPECT_EQ(CheckDib(nullptr, dib.bits(), h), 998u);
}

TEST(DibResolution, PageResolutionToPixelsPerMetreAndBack) {
    EXPECT_EQ(PelsPerMeter(300, 1, kResolutionUnitInch), 11811);
    EXPECT_EQ(PelsPerMeter(72, 1, kResolutionUnitInch), 2835);
    EXPECT_EQ(PelsPerMeter(1000, 254, kResolutionUnitInch), 155);
    EXPECT_EQ(PelsPerMeter(118, 1, kResolutionUnitCentimetre), 11800);
    EXPECT_EQ(PelsPerMeter(3, 2, kResolutionUnitNone), -2);  // an aspect ratio, rounded
    EXPECT_EQ(PelsPerMeter(0, 1, kResolutionUnitInch), 0);
    EXPECT_EQ(PelsPerMeter(300, 0, kResolutionUnitInch), 0);
    EXPECT_EQ(PelsPerMeter(300, 1, 9), 0);
    EXPECT_EQ(PelsPerMeter(0xFFFFFFFF, 1, kResolutionUnitCentimetre), 0x7FFFFFFF);
    // Whole dots per inch survive the round trip.
    for (uint32_t dpi : {1u, 72u, 96u, 100u, 200u, 204u, 300u, 400u, 600u, 1200u, 2400u}) {
        uint32_t value = 0;
        uint16_t unit = 0;
        DotsFromPelsPerMeter(PelsPerMeter(dpi, 1, kResolutionUnitInch), &value, &unit);
        EXPECT_EQ(value, dpi);
        EXPECT_EQ(unit, kResolutionUnitInch);
    }
    uint32_t value = 0;
    uint16_t unit = 0;
    DotsFromPelsPerMeter(-2, &value, &unit);
    EXPECT_EQ(value, 2u);
    EXPECT_EQ(unit, kResolutionUnitNone);
    EXPECT_EQ(ScalePelsPerMeter(11811, 1000, 2000), 5905);
    EXPECT_EQ(ScalePelsPerMeter(0x7FFFFFFF, 3, 1), 0x7FFFFFFF);
}

}  // namespace
}  // namespace velmora
