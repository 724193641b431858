// Colour conversion: the grey weights and the bi-level threshold, error
// diffusion, the octree's exact palettes, and colour optimisation, against
// values worked out from the weights (0.299, 0.587, 0.114 in 24-bit fixed
// point, rounded at 8 bits).
#include <set>

#include <gtest/gtest.h>

#include "dib/color_conversion.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/pixel_fetch.h"
#include "dib_test_images.h"
#include "velmora/velmora.h"
#include "../support/last_error.h"

namespace velmora {
namespace {

using test::MakeDib;
using test::SetPixel;
using testing_support::ErrorOf;

// A converted image, locked for reading.
struct Converted {
    explicit Converted(HGLOBAL handle) : image(handle), header(handle ? LockImage(handle) : nullptr) {}
    ~Converted() {
        if (header != nullptr) UnlockImage(image);
        if (image != nullptr) FreeImage(&image);
    }
    COLORREF Pixel(int32_t x, int32_t y) const { return PixelColor(header, PackedBits(header), x, y); }
    HGLOBAL image;
    BITMAPINFOHEADER* header;
};

constexpr COLORREF Rgb(uint8_t r, uint8_t g, uint8_t b) { return r | g << 8 | b << 16; }

uint32_t Bgr(COLORREF c) { return BlueOf(c) | GreenOf(c) << 8 | RedOf(c) << 16; }

TEST(ColorConversion, GreyWeightsAndThreshold) {
    EXPECT_EQ(GreyLevel(Rgb(255, 0, 0)), 76);
    EXPECT_EQ(GreyLevel(Rgb(0, 255, 0)), 150);
    EXPECT_EQ(GreyLevel(Rgb(0, 0, 255)), 29);
    EXPECT_EQ(GreyLevel(Rgb(255, 255, 255)), 255);
    // Grey 128 is white and 127 black on a bi-level page; 4-bit grey truncates
    // the rounded 8-bit level.
    test::TestDib dib = MakeDib(4, 1, 24);
    const COLORREF colors[] = {Rgb(128, 128, 128), Rgb(127, 127, 127), Rgb(255, 0, 0), Rgb(40, 200, 90)};
    for (int x = 0; x < 4; ++x) SetPixel(dib.header(), dib.bits(), x, 0, Bgr(colors[x]));
    ErrorRecord record;
    Converted bilevel(ChangeDibColor(dib.header(), dib.bits(), 0, nullptr, &record));
    ASSERT_NE(bilevel.header, nullptr);
    EXPECT_EQ(bilevel.header->biBitCount, 1);
    const COLORREF white = Rgb(255, 255, 255), black = 0;
    EXPECT_EQ(bilevel.Pixel(0, 0), white);
    EXPECT_EQ(bilevel.Pixel(1, 0), black);
    EXPECT_EQ(bilevel.Pixel(2, 0), black);
    Converted grey4(ChangeDibColor(dib.header(), dib.bits(), 2, nullptr, &record));
    ASSERT_NE(grey4.header, nullptr);
    for (int x = 0; x < 4; ++x) {
        uint8_t level = static_cast<uint8_t>((GreyLevel(colors[x]) >> 4) * 17);
        EXPECT_EQ(grey4.Pixel(x, 0), Rgb(level, level, level)) << x;
    }
    EXPECT_EQ(ChangeDibColor(dib.header(), dib.bits(), 7, nullptr, &record), nullptr);
    EXPECT_EQ(record.code, 87u);
}

TEST(ColorConversion, DitheredHalfGreyIsHalfWhite) {
    test::TestDib dib = MakeDib(64, 64, 8, 256);
    for (int i = 0; i < 256; ++i)
        dib.table()[i] = RGBQUAD{static_cast<BYTE>(i), static_cast<BYTE>(i), static_cast<BYTE>(i), 0};
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) SetPixel(dib.header(), dib.bits(), x, y, 128);
    ErrorRecord record;
    Converted dithered(ChangeDibColor(dib.header(), dib.bits(), kTargetDitheredBilevel, nullptr, &record));
    ASSERT_NE(dithered.header, nullptr);
    int white = 0;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) white += dithered.Pixel(x, y) == Rgb(255, 255, 255);
    EXPECT_NEAR(white, 64 * 64 / 2, 64);
    // No two horizontal neighbours of a settled row alike: a checkerboard-like pattern.
    EXPECT_NE(dithered.Pixel(10, 10), dithered.Pixel(11, 10));
}

TEST(ColorConversion, OctreeKeepsImagesOfFewColoursExact) {
    for (auto [wanted, target] : {std::pair{2u, 1}, std::pair{16u, 3}, std::pair{256u, 5}}) {
        test::TestDib dib = MakeDib(50, 40, 24);
        uint32_t state = wanted;
        std::vector<uint32_t> palette;
        for (uint32_t i = 0; i < wanted; ++i) palette.push_back(test::NextRandom(&state) & 0xFFFFFF);
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 50; ++x) SetPixel(dib.header(), dib.bits(), x, y, palette[(x * 7 + y * 13) % wanted]);
        ErrorRecord record;
        Converted reduced(ChangeDibColor(dib.header(), dib.bits(), target, nullptr, &record));
        ASSERT_NE(reduced.header, nullptr) << wanted;
        EXPECT_EQ(ColorCount(reduced.header), wanted);
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 50; ++x)
                ASSERT_EQ(reduced.Pixel(x, y), PixelColor(dib.header(), dib.bits(), x, y))
                    << wanted << " " << x << "," << y;
    }
}

TEST(ColorConversion, OptimizeFindsTheSmallestForm) {
    ErrorRecord record;
    // Three colours of a 24-bit image: a 4-bit palette image.
    test::TestDib three = MakeDib(9, 3, 24);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 9; ++x) SetPixel(three.header(), three.bits(), x, y, 0x102030u * ((x + y) % 3 + 1));
    Converted optimized(OptimizeDibColors(three.header(), three.bits(), nullptr, &record));
    ASSERT_NE(optimized.header, nullptr);
    EXPECT_EQ(optimized.header->biBitCount, 4);
    EXPECT_EQ(ColorCount(optimized.header), 3u);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 9; ++x) EXPECT_EQ(optimized.Pixel(x, y), PixelColor(three.header(), three.bits(), x, y));
    // 257 colours: no smaller form, and no error.
    test::TestDib many = MakeDib(257, 1, 24);
    for (int x = 0; x < 257; ++x) SetPixel(many.header(), many.bits(), x, 0, static_cast<uint32_t>(x) * 3);
    EXPECT_EQ(OptimizeDibColors(many.header(), many.bits(), nullptr, &record), nullptr);
    EXPECT_FALSE(record.failed());
    // An 8-bit image using entries 3, 7 and 9, where 7 and 9 are the same colour: 1 bit, 2 colours.
    test::TestDib paletted = MakeDib(6, 2, 8, 12);
    paletted.table()[3] = RGBQUAD{1, 2, 3, 0};
    paletted.table()[7] = paletted.table()[9] = RGBQUAD{200, 100, 50, 0};
    const int entries[] = {3, 7, 9};
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 6; ++x) SetPixel(paletted.header(), paletted.bits(), x, y, entries[(x + y) % 3]);
    Converted compact(OptimizeDibColors(paletted.header(), paletted.bits(), nullptr, &record));
    ASSERT_NE(compact.header, nullptr);
    EXPECT_EQ(compact.header->biBitCount, 1);
    EXPECT_EQ(ColorCount(compact.header), 2u);
    EXPECT_EQ(ColorOf(ColorTable(compact.header)[0]), Rgb(3, 2, 1));
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 6; ++x)
            EXPECT_EQ(compact.Pixel(x, y), PixelColor(paletted.header(), paletted.bits(), x, y));
    // Forty greys of a 24-bit image: an 8-bit image with the grey ramp.
    test::TestDib greys = MakeDib(40, 1, 24);
    for (int x = 0; x < 40; ++x) SetPixel(greys.header(), greys.bits(), x, 0, 0x010101u * (x * 6));
    Converted ramp(OptimizeDibColors(greys.header(), greys.bits(), nullptr, &record));
    ASSERT_NE(ramp.header, nullptr);
    EXPECT_EQ(ramp.header->biBitCount, 8);
    EXPECT_EQ(ColorCount(ramp.header), 256u);
    for (int x = 0; x < 40; ++x) EXPECT_EQ(ramp.Pixel(x, 0), PixelColor(greys.header(), greys.bits(), x, 0));
}

// Through the exports: a refused target, and "no smaller form"
// leaving the host's last error as it was.
TEST(ColorConversion, ExportsKeepTheLastErrorRule) {
    test::TestDib many = MakeDib(300, 2, 24);
    for (int x = 0; x < 300; ++x) SetPixel(many.header(), many.bits(), x, 0, static_cast<uint32_t>(x) * 5);
    SetLastVelmoraError(5);
    EXPECT_EQ(ErrorOf(ColorOptimizeVelmoraDIB(many.bits(), many.header()) == nullptr), 5u);
    EXPECT_EQ(ErrorOf(ChangeVelmoraDIBColor(many.bits(), many.header(), 9) == nullptr), 87u);
    HGLOBAL grey = ChangeVelmoraDIBColor(many.bits(), many.header(), VELMORA_COLOR_GRAY256);
    ASSERT_NE(grey, nullptr);
    EXPECT_EQ(static_cast<BITMAPINFOHEADER*>(LockImage(grey))->biBitCount, 8);
    UnlockImage(grey);
    FreeImage(&grey);
}

}  // namespace
}  // namespace velmora
