// The JPEG sample pipeline against exact arithmetic: the integer inverse
// DCT against the double-precision transform at both precisions, its range
// limiting at and beyond the clamps, and the band conversion against a
// per-pixel rendering of its rules. Bit-exactness with libjpeg is checked
// in tests/interop.
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "jpeg/jpeg_color.h"
#include "jpeg/jpeg_idct.h"
#include "jpeg_pixels_reference.h"

namespace velmora::jpeg {
namespace {

using velmora::testing::RealisticBlock;
using velmora::testing::ReferenceIdct;
using velmora::testing::ScaledTable;

// Runs the transform of the given precision into a buffer with spare
// columns and checks that only the block's 8x8 samples were written.
std::vector<int> Transform(bool twelveBit, const std::vector<int16_t>& block, const std::vector<uint16_t>& table) {
    constexpr int stride = 11;
    constexpr uint16_t sentinel = 0xBEEF;
    std::vector<int> samples(64);
    if (twelveBit) {
        std::vector<uint16_t> out(8 * stride, sentinel);
        InverseDct12(block.data(), table.data(), out.data(), stride);
        for (int i = 0; i < 8 * stride; ++i) {
            if (i % stride < 8) {
                samples[i / stride * 8 + i % stride] = out[i];
            } else {
                EXPECT_EQ(out[i], sentinel);
            }
        }
    } else {
        // Bottom-up, as into a DIB: the first row is the last in memory.
        std::vector<uint8_t> out(8 * stride, 0xEE);
        InverseDct8(block.data(), table.data(), out.data() + 7 * stride, -stride);
        for (int i = 0; i < 8 * stride; ++i) {
            if (i % stride < 8) {
                samples[(7 - i / stride) * 8 + i % stride] = out[i];
            } else {
                EXPECT_EQ(out[i], 0xEE);
            }
        }
    }
    return samples;
}

TEST(JpegIdct, WithinOneOfTheExactTransformAtBothPrecisions) {
    std::mt19937 random(1180);
    const std::vector<uint16_t> ones(64, 1);
    for (bool twelveBit : {false, true}) {
        const int maxSample = twelveBit ? 4095 : 255;
        const int limit = twelveBit ? 65535 : 255;
        const std::vector<std::vector<uint16_t>> tables = {
            ones, ScaledTable(velmora::testing::kLuminanceTable, 50, limit),
            ScaledTable(velmora::testing::kChrominanceTable, 100, limit),
            ScaledTable(velmora::testing::kLuminanceTable, twelveBit ? 800 : 400, limit)};
        int worst = 0;
        for (const auto& table : tables) {
            for (int n = 0; n < 3000; ++n) {
                const std::vector<int16_t> block = RealisticBlock(random, table, maxSample);
                double dequantised[64], exact[64];
                for (int i = 0; i < 64; ++i) dequantised[i] = double(block[i]) * table[i];
                ReferenceIdct(dequantised, exact);
                const std::vector<int> samples = Transform(twelveBit, block, table);
                for (int i = 0; i < 64; ++i) {
                    const int expected = static_cast<int>(
                        std::clamp(std::round(exact[i] + (maxSample + 1) / 2), 0.0, double(maxSample)));
                    worst = std::max(worst, std::abs(samples[i] - expected));
                }
            }
        }
        EXPECT_LE(worst, 1) << (twelveBit ? "12-bit" : "8-bit");
    }
}

// A block with only a DC term has one sample value, floor((dc + 4) / 8)
// around the level shift; the range limiting clamps it, and beyond
// +-512 (8-bit) or +-8192 (12-bit) it wraps as its window of the row sum
// does. (Blocks that take the column pass shortcut are compared with
// libjpeg's transform in the interop tests, and any coefficients and
// quantisers go through both transforms in the sample pipeline's fuzz target.)
TEST(JpegIdct, RangeLimitingAtAndBeyondTheClamps) {
    struct Case {
        int dc;
        uint16_t quantiser;
        int sample8;
        int sample12;
    };
    const Case cases[] = {
        {0, 1, 128, 2048},     {-1024, 1, 0, 1920},   {-1025, 1, 0, 1920},  {-1032, 1, 0, 1919},
        {1016, 1, 255, 2175},  {1012, 1, 255, 2175},  {1011, 1, 254, 2174}, {1024, 1, 255, 2176},
        {4088, 1, 255, 2559},  {4092, 1, 0, 2560},    {-4096, 1, 0, 1536},  {-4104, 1, 255, 1535},
        {16376, 1, 127, 4095}, {16380, 1, 128, 4095}, {-16384, 1, 128, 0},  {-16396, 1, 127, 0},
        {32767, 1, 128, 4095}, {-32768, 1, 128, 0},   {16383, 4, 128, 0},   {-13109, 5, 127, 4095},
    };
    for (const Case& c : cases) {
        std::vector<int16_t> block(64, 0);
        const std::vector<uint16_t> table(64, c.quantiser);
        block[0] = static_cast<int16_t>(c.dc);
        const std::vector<int> samples8 = Transform(false, block, table);
        const std::vector<int> samples12 = Transform(true, block, table);
        for (int i = 0; i < 64; ++i) {
            ASSERT_EQ(samples8[i], c.sample8) << "dc " << c.dc;
            ASSERT_EQ(samples12[i], c.sample12) << "dc " << c.dc;
        }
    }
}

// ---- Band conversion ------------------------------------------------------------

// The darkening by K must be exact (rounded down) for every pair, not only
// within one: it is an integer rule, and the division by 255 is the part
// a vectorised build could get wrong.
TEST(JpegColor, CmykIsExactForEveryInkAndBlackPair) {
    std::vector<uint8_t> ink(256), black(256 * 256);
    for (int i = 0; i < 256; ++i) ink[i] = static_cast<uint8_t>(i);
    for (int k = 0; k < 256; ++k) std::fill(black.begin() + k * 256, black.begin() + (k + 1) * 256, uint8_t(k));
    std::vector<uint8_t> reversed(ink.rbegin(), ink.rend()), output(256 * 256 * 3), scratch(4 * 256);
    // c, m and y run through all values (y backwards); row k has black k.
    const ComponentBand bands[4] = {
        {ink.data(), 0, 1, 1}, {ink.data(), 0, 1, 1}, {reversed.data(), 0, 1, 1}, {black.data(), 256, 1, 1}};
    ConvertBand(ColorKind::Cmyk, bands, 256, 256, 1, 1, output.data(), 256 * 3, scratch.data());
    for (int k = 0; k < 256; ++k) {
        for (int c = 0; c < 256; ++c) {
            const uint8_t* pixel = &output[(k * 256 + c) * 3];
            ASSERT_EQ(pixel[2], c * k / 255) << c << " " << k;
            ASSERT_EQ(pixel[1], c * k / 255) << c << " " << k;
            ASSERT_EQ(pixel[0], (255 - c) * k / 255) << c << " " << k;
        }
    }
}

}  // namespace
}  // namespace velmora::jpeg
