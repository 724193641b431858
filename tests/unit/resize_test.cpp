// Resizing against a plain model: nearest picks and double-precision box
// averages computed pixel by pixel, over random DIBs of every depth and many
// size pairs; then the export checks and cancel.
#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/palette.h"
#include "dib/pixel_fetch.h"
#include "dib/resize.h"
#include "dib/resolution.h"
#include "frame/error_record.h"
#include "platform/platform.h"
#include "velmora/velmora.h"
#include "dib_test_images.h"

namespace velmora {
namespace {

using test::NextRandom;

// Colours of a DIB by stored row (row 0 the bottom one), row by row.
struct Grid {
    uint32_t width = 0, height = 0;
    std::vector<COLORREF> colors;
    COLORREF at(uint32_t x, uint32_t r) const { return colors[size_t{r} * width + x]; }
};

Grid ColorsOf(const BITMAPINFOHEADER* header, const void* bits) {
    Grid grid{static_cast<uint32_t>(header->biWidth), static_cast<uint32_t>(header->biHeight), {}};
    for (uint32_t r = 0; r < grid.height; ++r)
        for (uint32_t x = 0; x < grid.width; ++x)
            grid.colors.push_back(
                PixelColor(header, bits, static_cast<int32_t>(x), static_cast<int32_t>(grid.height - 1 - r)));
    return grid;
}

Grid Pick(const Grid& in, uint32_t width, uint32_t height) {
    Grid out{width, height, {}};
    for (uint32_t r = 0; r < height; ++r)
        for (uint32_t x = 0; x < width; ++x)
            out.colors.push_back(
                in.at(uint32_t(uint64_t{x} * in.width / width), uint32_t(uint64_t{r} * in.height / height)));
    return out;
}

int Channel(COLORREF c, int k) { return static_cast<int>((c >> (8 * k)) & 0xFF); }

// Box averages. A 1-bit source counts its index-1 pixels into a ramp from
// table entry 0 to entry 1: the count itself for uniform boxes of at most 254
// pixels, count * 255 / area in 256 levels otherwise.
Grid Average(const BITMAPINFOHEADER* header, const void* bits, const Grid& in, uint32_t width, uint32_t height) {
    const bool oneBit = header->biBitCount == 1;
    const RGBQUAD* table = ColorTable(header);
    const COLORREF c0 = ColorOf(table[0]), c1 = ColorOf(table[1]);
    const bool uniform = in.width % width == 0 && in.height % height == 0;
    Grid out{width, height, {}};
    for (uint32_t r = 0; r < height; ++r) {
        const uint32_t r0 = uint32_t(uint64_t{r} * in.height / height),
                       r1 = uint32_t(uint64_t{r + 1} * in.height / height);
        for (uint32_t x = 0; x < width; ++x) {
            const uint32_t x0 = uint32_t(uint64_t{x} * in.width / width),
                           x1 = uint32_t(uint64_t{x + 1} * in.width / width);
            const double area = double(x1 - x0) * (r1 - r0);
            double sums[3] = {0, 0, 0}, count = 0;
            for (uint32_t sr = r0; sr < r1; ++sr)
                for (uint32_t sx = x0; sx < x1; ++sx) {
                    const uint8_t* row = static_cast<const uint8_t*>(bits) + RowStride(header) * sr;
                    if (oneBit) count += (row[sx / 8] >> (7 - sx % 8)) & 1;
                    for (int k = 0; k < 3; ++k) sums[k] += Channel(in.at(sx, sr), k);
                }
            COLORREF color = 0;
            if (oneBit) {
                const bool direct = uniform && area + 1 <= 255;
                const double levels = direct ? area + 1 : 256, level = direct ? count : std::floor(count * 255 / area);
                for (int k = 0; k < 3; ++k) {
                    const double step = std::trunc(level * (Channel(c1, k) - Channel(c0, k)) / (levels - 1));
                    color |= static_cast<COLORREF>(Channel(c0, k) + step) << (8 * k);
                }
            } else {
                for (int k = 0; k < 3; ++k) color |= static_cast<COLORREF>(std::floor(sums[k] / area)) << (8 * k);
            }
            out.colors.push_back(color);
        }
    }
    return out;
}

Grid Model(const BITMAPINFOHEADER* header, const void* bits, uint32_t width, uint32_t height, bool smooth) {
    const Grid in = ColorsOf(header, bits);
    const uint32_t w = in.width, h = in.height;
    if ((width < w && height > h) || (width > w && height < h)) {
        // The shrinking dimension first, then the enlargement.
        const uint32_t midWidth = width < w ? width : w, midHeight = height < h ? height : h;
        const Grid mid = smooth ? Average(header, bits, in, midWidth, midHeight) : Pick(in, midWidth, midHeight);
        return Pick(mid, width, height);
    }
    if (smooth && width <= w && height <= h) return Average(header, bits, in, width, height);
    return Pick(in, width, height);
}

// A random DIB: depth 1, 4, 8 (grey or colour table), 16 or 24; or, when
// `large`, a bi-level page of 256 to 400 pixels a side, mostly set, whose
// boxes outgrow 16-bit counters.
test::TestDib RandomDib(uint32_t* seed, bool large) {
    static const uint16_t kDepths[] = {1, 1, 4, 8, 16, 24};
    const uint16_t depth = large ? 1 : kDepths[NextRandom(seed) % 6];
    const uint32_t side = large ? 145 : 40, least = large ? 256 : 1;
    const int32_t width = least + NextRandom(seed) % side, height = least + NextRandom(seed) % side;
    test::TestDib dib = test::MakeDib(width, height, depth);
    const uint32_t entries = depth <= 8 ? 1u << depth : 0;
    const bool grey = NextRandom(seed) % 2 == 0;
    for (uint32_t i = 0; i < entries; ++i) {
        const BYTE g = static_cast<BYTE>(NextRandom(seed));
        dib.table()[i] = grey ? RGBQUAD{g, g, g, 0}
                              : RGBQUAD{g, static_cast<BYTE>(NextRandom(seed)), static_cast<BYTE>(NextRandom(seed)), 0};
    }
    // Row padding holds garbage that must not count.
    for (uint64_t i = 0; i < RowStride(dib.header()) * height; ++i)
        dib.bits()[i] = static_cast<uint8_t>(NextRandom(seed));
    // Mostly one value with patches of another, so that optimisation and
    // counting both see structure; some images fully random.
    const bool noisy = NextRandom(seed) % 3 == 0;
    const uint32_t limit = depth >= 16 ? 0xFFFFFF : entries - 1;
    const uint32_t background = NextRandom(seed) & limit;
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x) {
            uint32_t v = noisy || (x / 3 + y / 2) % 3 == 0 ? NextRandom(seed) & limit : background;
            if (large) v = NextRandom(seed) % 8 != 0;
            test::SetPixel(dib.header(), dib.bits(), x, y, v);
        }
    dib.header()->biXPelsPerMeter = 11811;
    dib.header()->biYPelsPerMeter = 3937;
    return dib;
}

TEST(Resize, MatchesThePlainModelOverRandomImages) {
    uint32_t seed = 7;
    for (int n = 0; n < 1500; ++n) {
        const bool large = n % 50 == 1;
        test::TestDib dib = RandomDib(&seed, large);
        BITMAPINFOHEADER* header = dib.header();
        const uint32_t w = static_cast<uint32_t>(header->biWidth), h = static_cast<uint32_t>(header->biHeight);
        // Widths and heights around the source's, with exact divisors often.
        auto pick = [&](uint32_t source) {
            const uint32_t way = large ? 2 : NextRandom(&seed) % 5;
            return way == 0   ? source
                   : way == 1 ? std::max(1u, source / (1 + NextRandom(&seed) % 4))
                   : way == 2 ? 1 + NextRandom(&seed) % (large ? 2 : 3)
                              : 1 + NextRandom(&seed) % 60;
        };
        const uint32_t width = pick(w), height = pick(h);
        const bool smooth = NextRandom(&seed) % 3 != 0;
        // A third through the export (colours optimised), a third kept as
        // averaged, a third as grey levels.
        const bool keep = n % 3 == 0;
        ErrorRecord record;
        HGLOBAL result = nullptr;
        if (n % 3 != 2) {
            result =
                ResizeDib(header, dib.bits(), width, height, smooth ? ResizeQuality::Smooth : ResizeQuality::Nearest,
                          keep ? ResizeColors::Keep : ResizeColors::GreyLevels, nullptr, &record);
        } else {
            const WORD flags = smooth ? VELMORA_RESIZE_SMOOTH : 0;
            VelmoraResizeDIB resize = {
                VELMORA_RESIZE_DIB_SIZE_V1, flags, width, height, dib.bits(), header, nullptr, 0};
            result = ResizeVelmoraDIBEx(&resize);
        }
        SCOPED_TRACE(testing::Message() << "case " << n << ": " << header->biBitCount << " bits " << w << "x" << h
                                        << " to " << width << "x" << height << (smooth ? " smooth" : " nearest"));
        ASSERT_NE(result, nullptr) << std::hex << record.code << " " << LastErrorCode();
        {
            ImageLock lock(result);
            const BITMAPINFOHEADER* out = lock.header();
            EXPECT_EQ(out->biXPelsPerMeter, ScalePelsPerMeter(11811, width, w));
            EXPECT_EQ(out->biYPelsPerMeter, ScalePelsPerMeter(3937, height, h));
            const Grid expected = Model(header, dib.bits(), width, height, smooth);
            const Grid actual = ColorsOf(out, lock.bits());
            ASSERT_EQ(actual.width, width);
            ASSERT_EQ(actual.height, height);
            for (size_t i = 0; i < expected.colors.size(); ++i)
                ASSERT_EQ(actual.colors[i], expected.colors[i])
                    << "pixel " << i % width << ", stored row " << i / width;
            const bool averaged = smooth && (width < w || height < h);
            if (keep && averaged) {
                // Bi-level pages become 8-bit counts: a uniform box of n pixels
                // has an n + 1 entry ramp, any other reduction 256 levels.
                const uint32_t boxW = (w + width - 1) / width, boxH = (h + height - 1) / height;
                const bool uniform = w % std::min(w, width) == 0 && h % std::min(h, height) == 0;
                if (header->biBitCount == 1)
                    EXPECT_EQ(ColorCount(out), uniform && boxW * boxH < 255 ? boxW * boxH + 1 : 256u);
                else
                    EXPECT_EQ(out->biBitCount, header->biBitCount <= 8 && IsGreyTable(header) ? 8 : 24);
            } else if (!averaged) {
                EXPECT_EQ(out->biBitCount, header->biBitCount);
            }
        }
        platform::MemFree(result);
    }
}

BOOL VELMORA_CALLBACK Cancel(DWORD percent, UINT_PTR user) {
    *reinterpret_cast<DWORD*>(user) = percent;
    return 0;
}

TEST(Resize, ExportsCheckTheirArgumentsAndHonourCancel) {
    test::TestDib dib = test::MakeDib(64, 64, 1);
    VelmoraResizeDIB resize = {VELMORA_RESIZE_DIB_SIZE_V1, 2, 8, 8, dib.bits(), dib.header(), nullptr, 0};
    const struct {
        WORD size, flags;
        DWORD width;
        const void* header;
        uint32_t error;
    } kRefused[] = {
        {VELMORA_RESIZE_DIB_SIZE_V1, 2, 8, dib.header(), 87},
        {VELMORA_RESIZE_DIB_SIZE_V1 - 1, 1, 8, dib.header(), 87},
        {VELMORA_RESIZE_DIB_SIZE_V1, 1, 0, dib.header(), 87},
        {VELMORA_RESIZE_DIB_SIZE_V1, 1, 8, nullptr, 998},
        {VELMORA_RESIZE_DIB_SIZE_V1, 0, (1u << 24) + 1, dib.header(), 87},
    };
    for (const auto& c : kRefused) {
        resize.size = c.size;
        resize.flags = c.flags;
        resize.width = c.width;
        resize.header = static_cast<const BITMAPINFOHEADER*>(c.header);
        EXPECT_EQ(ResizeVelmoraDIBEx(&resize), nullptr);
        EXPECT_EQ(LastErrorCode(), c.error) << c.size << " " << c.flags << " " << c.width;
    }
    EXPECT_EQ(ResizeVelmoraDIBEx(nullptr), nullptr);
    EXPECT_EQ(LastErrorCode(), 998u);
    test::TestDib deep = test::MakeDib(4, 4, 32);
    EXPECT_EQ(ResizeVelmoraDIB(2, 2, deep.bits(), deep.header()), nullptr);
    EXPECT_EQ(LastErrorCode(), uint32_t{kErrUnsupportedImageType});
    resize = {VELMORA_RESIZE_DIB_SIZE_V1, 0, 2, 2, deep.bits(), deep.header(), nullptr, 0};
    EXPECT_EQ(ResizeVelmoraDIBEx(&resize), nullptr);
    EXPECT_EQ(LastErrorCode(), 87u);

    RECT area = {0, 0, 10, 10}, outside = {0, 0, 65, 10};
    EXPECT_FALSE(StretchVelmoraDIB(nullptr, nullptr, nullptr, dib.bits(), dib.header(), 1, 0, 90, 0));
    EXPECT_EQ(LastErrorCode(), 998u);
    EXPECT_FALSE(StretchVelmoraDIB(nullptr, &area, &outside, dib.bits(), dib.header(), 1, 0, 90, 0));
    EXPECT_EQ(LastErrorCode(), 87u);
    EXPECT_FALSE(StretchVelmoraDIB(nullptr, &area, nullptr, dib.bits(), dib.header(), 2, 0, 90, 0));
    EXPECT_EQ(LastErrorCode(), 87u);
    EXPECT_FALSE(StretchVelmoraDIB(nullptr, &area, nullptr, dib.bits(), dib.header(), 1, 0, 45, 0));
    EXPECT_EQ(LastErrorCode(), 87u);

    // A host that cancels at its first report (made once 50 ms have passed)
    // gets no image and 1223; the report says no row was finished.
    DWORD reported = 1000;
    ProgressReporter progress(Cancel, reinterpret_cast<UINT_PTR>(&reported));
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    ErrorRecord record;
    EXPECT_EQ(
        ResizeDib(dib.header(), dib.bits(), 200, 8, ResizeQuality::Smooth, ResizeColors::Optimize, &progress, &record),
        nullptr);
    EXPECT_EQ(record.code, uint32_t{kErrCancelled});
    EXPECT_EQ(reported, 0u);
}

}  // namespace
}  // namespace velmora
