// Every route of the colour conversion this processor can run must give
// the portable route's bytes exactly: for every YCbCr triple, and for
// random bands of every kind and sampling at widths around the vector step,
// written bottom-up into rows with padding that must survive.
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "jpeg/jpeg_color_routes.h"

namespace velmora::jpeg {
namespace {

constexpr ColorRoute kVectorRoutes[] = {ColorRoute::Sse2, ColorRoute::Ssse3, ColorRoute::Avx2};

const char* Name(ColorRoute route) {
    switch (route) {
        case ColorRoute::Portable: return "portable";
        case ColorRoute::Sse2: return "SSE2";
        case ColorRoute::Ssse3: return "SSSE3";
        case ColorRoute::Avx2: return "AVX2";
    }
    return "?";
}

TEST(JpegColorRoutes, EveryYCbCrTripleConvertsAlike) {
    // Band `cb`: row `cr` holds Y = 0..255 across with that Cb and Cr.
    std::vector<uint8_t> luma(256), blue(256), red(256 * 256);
    for (int i = 0; i < 256; ++i) luma[i] = static_cast<uint8_t>(i);
    for (int i = 0; i < 256 * 256; ++i) red[i] = static_cast<uint8_t>(i / 256);
    const ptrdiff_t stride = 256 * 3;
    std::vector<uint8_t> expected(stride * 256), output(stride * 256), scratch(4 * 256);
    for (ColorRoute route : kVectorRoutes) {
        if (!ColorRouteAvailable(route)) continue;
        for (int cb = 0; cb < 256; ++cb) {
            std::fill(blue.begin(), blue.end(), static_cast<uint8_t>(cb));
            const ComponentBand bands[3] = {{luma.data(), 0, 1, 1}, {blue.data(), 0, 1, 1}, {red.data(), 256, 1, 1}};
            ConvertBandBy(ColorRoute::Portable, ColorKind::YCbCr, bands, 256, 256, 1, 1, expected.data(), stride,
                          scratch.data());
            ConvertBandBy(route, ColorKind::YCbCr, bands, 256, 256, 1, 1, output.data(), stride, scratch.data());
            ASSERT_EQ(output, expected) << Name(route) << ", Cb " << cb;
        }
    }
}

struct Sampling {
    ColorKind kind;
    std::vector<std::pair<uint8_t, uint8_t>> factors;
};

TEST(JpegColorRoutes, RandomBandsConvertAlikeForEveryKindAndSampling) {
    const Sampling samplings[] = {
        {ColorKind::YCbCr, {{1, 1}, {1, 1}, {1, 1}}},        {ColorKind::YCbCr, {{2, 1}, {1, 1}, {1, 1}}},
        {ColorKind::YCbCr, {{2, 2}, {1, 1}, {1, 1}}},        {ColorKind::YCbCr, {{4, 1}, {1, 1}, {1, 1}}},
        {ColorKind::YCbCr, {{1, 2}, {1, 1}, {1, 1}}},        {ColorKind::YCbCr, {{4, 4}, {2, 2}, {2, 2}}},
        {ColorKind::YCbCr, {{2, 2}, {1, 1}, {2, 1}}},  // only one chroma plane subsampled
        {ColorKind::YCbCr, {{1, 1}, {2, 2}, {1, 1}}},  // the luma subsampled
        {ColorKind::Rgb, {{1, 1}, {1, 1}, {1, 1}}},          {ColorKind::Rgb, {{2, 2}, {1, 1}, {1, 2}}},
        {ColorKind::Cmyk, {{1, 1}, {1, 1}, {1, 1}, {1, 1}}}, {ColorKind::Cmyk, {{2, 2}, {1, 1}, {1, 2}, {2, 2}}},
        {ColorKind::Ycck, {{2, 2}, {1, 1}, {1, 1}, {2, 2}}}, {ColorKind::Ycck, {{1, 1}, {1, 1}, {1, 1}, {1, 1}}},
        {ColorKind::Ycck, {{2, 2}, {1, 1}, {1, 1}, {1, 1}}},  // K subsampled: rows not paired
    };
    const uint32_t widths[] = {1, 2, 15, 16, 17, 31, 33, 47, 64, 255};
    const uint32_t rows = 7;  // an odd number: the last row has no partner
    std::mt19937 random(1772);
    for (const Sampling& s : samplings) {
        uint8_t hMax = 1, vMax = 1;
        for (auto [h, v] : s.factors) hMax = std::max(hMax, h), vMax = std::max(vMax, v);
        for (uint32_t width : widths) {
            std::vector<std::vector<uint8_t>> planes;
            std::vector<ComponentBand> bands;
            for (auto [h, v] : s.factors) {
                const uint32_t across = (width * h + hMax - 1) / hMax, down = (rows * v + vMax - 1) / vMax;
                planes.emplace_back(size_t{across} * down);
                for (auto& sample : planes.back()) sample = static_cast<uint8_t>(random());
                bands.push_back({planes.back().data(), static_cast<ptrdiff_t>(across), h, v});
            }
            const ptrdiff_t stride = static_cast<ptrdiff_t>(width) * 3 + 5;
            std::vector<uint8_t> expected(stride * rows, 0xEE), scratch(4 * size_t{width});
            ConvertBandBy(ColorRoute::Portable, s.kind, bands.data(), width, rows, hMax, vMax,
                          expected.data() + (rows - 1) * stride, -stride, scratch.data());
            for (ColorRoute route : kVectorRoutes) {
                if (!ColorRouteAvailable(route)) continue;
                std::vector<uint8_t> output(stride * rows, 0xEE);
                ConvertBandBy(route, s.kind, bands.data(), width, rows, hMax, vMax, output.data() + (rows - 1) * stride,
                              -stride, scratch.data());
                ASSERT_EQ(output, expected)
                    << Name(route) << ", kind " << int(s.kind) << ", factors " << int(s.factors[0].first) << "x"
                    << int(s.factors[0].second) << ", width " << width;
            }
        }
    }
}

}  // namespace
}  // namespace velmora::jpeg
