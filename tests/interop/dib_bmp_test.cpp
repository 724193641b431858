// BMP files written by SaveVelmoraBMPDIB, read back by Pillow and ImageMagick:
// every depth, odd widths, every pixel compared.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/pixel_fetch.h"
#include "frame/error_record.h"
#include "platform/platform.h"
#include "velmora/velmora.h"
#include "support/peers.h"

namespace velmora {
namespace {

using velmora::peers::Output;

// Pillow's reading of a file: "width height mode" and then every pixel as
// red, green, blue hex from the top left.
std::string PillowPixels(const std::string& directory, const std::string& path) {
    std::string script = directory + "/pixels.py";
    std::ofstream(script) << "import sys\nfrom PIL import Image\nim = Image.open(sys.argv[1])\nim.load()\n"
                             "print(im.size[0], im.size[1], im.mode)\nprint(im.convert('RGB').tobytes().hex())\n";
    std::string out;
    return Output(std::string(VELMORA_PYTHON) + " '" + script + "' '" + path + "' 2>&1", &out) ? out : "failed: " + out;
}

struct ImageOwner {
    HGLOBAL image;
    ~ImageOwner() { FreeImage(&image); }
};

struct Case {
    const char* name;
    uint16_t bits;
    int32_t width, height;
    bool grey;
};

class DibBmpInterop : public ::testing::TestWithParam<Case> {};

TEST_P(DibBmpInterop, PillowAndImageMagickReadEveryPixel) {
    REQUIRE_PEER(velmora::peers::Run(std::string(VELMORA_PYTHON) + " -c 'import PIL'"), std::string("Pillow for ") + VELMORA_PYTHON);
    const Case c = GetParam();
    ErrorRecord record;
    HGLOBAL image = CreateImage(c.width, c.height, c.bits, 11811, 7874, 0,
                                kStorageZeroInit | (c.grey ? kStorageGreyRamp : 0), &record);
    ASSERT_NE(image, nullptr) << record.code;
    ImageOwner owner{image};
    ImageLock lock(image);
    BITMAPINFOHEADER* h = lock.header();
    uint32_t count = ColorCount(h);
    uint32_t seed = c.bits * 7919u + c.width;
    auto next = [&] { return (seed = seed * 1664525u + 1013904223u) >> 8; };
    if (!c.grey) {
        for (uint32_t i = 0; i < count; ++i) {
            uint32_t v = next();
            ColorTable(h)[i] = RGBQUAD{uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), 0};
        }
    }
    uint8_t* bits = lock.bits();
    size_t stride = static_cast<size_t>(RowStride(h));
    size_t used = (size_t{c.bits} * c.width + 7) / 8;  // padding stays zero
    for (int32_t y = 0; y < c.height; ++y) {
        for (size_t i = 0; i < used; ++i) bits[stride * y + i] = static_cast<uint8_t>(next());
        if (c.bits < 8 && c.bits * c.width % 8 != 0) {
            bits[stride * y + used - 1] &= static_cast<uint8_t>(0xFF00 >> (c.bits * c.width % 8));
        }
    }

    const velmora::peers::TempDir directory("velmora-dib");
    std::string path = directory.Path(std::string(c.name) + ".bmp");
    ASSERT_TRUE(SaveVelmoraBMPDIB(path.c_str(), bits, h)) << LastErrorCode();

    std::string out = PillowPixels(directory.path(), path);
    size_t newline = out.find('\n');
    ASSERT_NE(newline, std::string::npos) << out;
    int width = 0, height = 0;
    char mode[16] = {};
    ASSERT_EQ(std::sscanf(out.c_str(), "%d %d %15s", &width, &height, mode), 3) << out;
    EXPECT_EQ(width, c.width);
    EXPECT_EQ(height, c.height);
    std::string hex = out.substr(newline + 1, size_t{6} * c.width * c.height);
    ASSERT_EQ(hex.size(), size_t{6} * c.width * c.height) << out;
    for (int32_t y = 0; y < c.height; ++y) {
        for (int32_t x = 0; x < c.width; ++x) {
            uint32_t red = 0, green = 0, blue = 0;
            std::sscanf(hex.c_str() + 6 * (static_cast<size_t>(y) * c.width + x), "%2x%2x%2x", &red, &green, &blue);
            COLORREF expected = PixelColor(h, bits, x, y);
            if (c.bits == 32) {
                const uint8_t* p = bits + stride * (c.height - 1 - y) + 4 * x;
                expected = p[2] | p[1] << 8 | p[0] << 16;
            }
            if (c.bits == 16) {
                // Readers widen 5-bit fields in their own way; the fields must agree.
                ASSERT_EQ(
                    red >> 3 | (green >> 3) << 5 | (blue >> 3) << 10,
                    uint32_t(RedOf(expected) >> 3 | (GreenOf(expected) >> 3) << 5 | (BlueOf(expected) >> 3) << 10))
                    << c.name << " at " << x << "," << y;
            } else {
                ASSERT_EQ(red | green << 8 | blue << 16, expected) << c.name << " at " << x << "," << y;
            }
        }
    }

    REQUIRE_PEER(velmora::peers::Have("/usr/bin/identify"), "ImageMagick's identify");
    std::string info;
    ASSERT_TRUE(Output("identify -format '%w %h' '" + path + "' 2>&1", &info)) << info;
    EXPECT_EQ(info, std::to_string(c.width) + " " + std::to_string(c.height));
    // 11811 pixels per metre is 300 dots per inch, 118.11 per centimetre.
    ASSERT_TRUE(Output("identify -units PixelsPerCentimeter -format '%x' '" + path + "' 2>&1", &info));
    EXPECT_NEAR(std::atof(info.c_str()), 118.11, 0.005) << info;
}

const Case kCases[] = {
    {"bilevel_grey", 1, 37, 11, true}, {"bilevel_palette", 1, 1, 1, false}, {"bilevel_wide", 1, 33, 2, false},
    {"nibble_grey", 4, 13, 7, true},   {"nibble_palette", 4, 5, 9, false},  {"byte_grey", 8, 31, 5, true},
    {"byte_palette", 8, 7, 3, false},  {"high", 16, 11, 6, false},          {"rgb", 24, 9, 4, false},
    {"rgb_odd", 24, 1, 3, false},      {"rgbx", 32, 5, 5, false},
};

INSTANTIATE_TEST_SUITE_P(DibDepths, DibBmpInterop, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace velmora
