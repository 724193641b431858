// Pixel operations against per-pixel models over random DIBs: despeckling
// against flood-filled components, fills, reversal, masks and both copies
// against the colour each pixel must end with; then the exports' refusals and
// cancelling through the progress callback.
#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "dib/despeckle.h"
#include "dib/image.h"
#include "dib/pixel_fetch.h"
#include "dib/pixel_operations.h"
#include "dib_test_images.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

using test::MakeDib;
using test::NextRandom;
using test::TestDib;

const uint16_t kDepths[] = {1, 4, 8, 16, 24, 32};

// PixelColor, and blue, green, red at 32 bits.
COLORREF ColorAt(const BITMAPINFOHEADER* h, const void* bits, int32_t x, int32_t y) {
    if (h->biBitCount != 32) return PixelColor(h, bits, x, y);
    const uint8_t* p = static_cast<const uint8_t*>(bits) + RowStride(h) * (h->biHeight - 1 - y) + 4 * x;
    return p[2] | p[1] << 8 | p[0] << 16;
}

// A DIB of random size (at most `most` pixels a side), table and bytes.
TestDib RandomDib(uint16_t depth, uint32_t* seed, int32_t most = 23) {
    const int32_t width = 1 + NextRandom(seed) % most, height = 1 + NextRandom(seed) % most;
    const uint32_t full = depth <= 8 ? 1u << depth : 0;
    const uint32_t entries = full != 0 ? 1 + NextRandom(seed) % full : 0;
    TestDib dib = MakeDib(width, height, depth, entries == full ? 0 : entries);
    for (uint32_t i = 0; i < entries; ++i) {
        // Few levels, so that tables repeat colours and pixels hit keys.
        const uint32_t c = NextRandom(seed);
        dib.table()[i] = RGBQUAD{static_cast<BYTE>(c % 3 * 127), static_cast<BYTE>(c / 3 % 3 * 127),
                                 static_cast<BYTE>(c / 9 % 3 * 127), 0};
    }
    // Any index (some past the table); direct colours from the same levels.
    uint8_t* bytes = dib.bits();
    for (uint64_t i = 0; i < RowStride(dib.header()) * height; ++i)
        bytes[i] = static_cast<uint8_t>(full != 0 ? NextRandom(seed) : NextRandom(seed) % 3 * 127);
    return dib;
}

// The colour a palette DIB shows for `color`: its nearest usable entry.
COLORREF NearestIn(const BITMAPINFOHEADER* h, COLORREF color) {
    const uint32_t usable = std::min(ColorCount(h), 1u << h->biBitCount);
    COLORREF best = 0;
    uint32_t bestDistance = 0xFFFFFFFFu;
    for (uint32_t i = 0; i < usable; ++i) {
        const COLORREF entry = ColorOf(ColorTable(h)[i]);
        if (ColorDistance(entry, color) < bestDistance) best = entry, bestDistance = ColorDistance(entry, color);
    }
    return best;
}

// What a pixel of `h` shows after being given `color`.
COLORREF Stored(const BITMAPINFOHEADER* h, COLORREF color) {
    if (h->biBitCount <= 8) return NearestIn(h, color);
    if (h->biBitCount != 16) return color;
    auto channel = [&](int shift) { return ((color >> shift & 0xFF) >> 3) * 255 / 31 << shift; };
    return channel(0) | channel(8) | channel(16);
}

struct Snapshot {
    Snapshot(const BITMAPINFOHEADER* h, const void* bits) : w(h->biWidth) {
        for (int32_t y = 0; y < h->biHeight; ++y)
            for (int32_t x = 0; x < w; ++x) colors.push_back(ColorAt(h, bits, x, y));
    }
    COLORREF At(int32_t x, int32_t y) const { return colors[y * w + x]; }
    int32_t w;
    std::vector<COLORREF> colors;
};

// Despeckling as flood fill: 8-connected components of the speck index,
// found on the page as the pass begins; those of at most `limit` pixels
// have their bounding rectangles set to the other index.
void ModelDespeckle(std::vector<int>& page, int w, int h, int lighter, uint32_t limit, uint32_t flags) {
    limit = std::min(limit, 254u);
    for (int pass = 0; pass < 2 && limit > 0; ++pass) {
        if ((flags & (pass == 0 ? 2u : 1u)) == 0) continue;
        const int speck = pass == 0 ? 1 - lighter : lighter;
        std::vector<int> label(page.size(), -1), boxes;
        for (int start = 0; start < w * h; ++start) {
            if (page[start] != speck || label[start] >= 0) continue;
            std::vector<int> stack{start};
            label[start] = start;
            int count = 0, l = w, t = h, r = -1, b = -1;
            while (!stack.empty()) {
                const int p = stack.back(), px = p % w, py = p / w;
                stack.pop_back();
                ++count, l = std::min(l, px), r = std::max(r, px), t = std::min(t, py), b = std::max(b, py);
                for (int dy = -1; dy <= 1; ++dy)
                    for (int dx = -1; dx <= 1; ++dx) {
                        const int nx = px + dx, ny = py + dy, n = ny * w + nx;
                        if (nx < 0 || ny < 0 || nx >= w || ny >= h || page[n] != speck || label[n] >= 0) continue;
                        label[n] = start;
                        stack.push_back(n);
                    }
            }
            if (count <= static_cast<int>(limit)) boxes.insert(boxes.end(), {l, t, r, b});
        }
        for (size_t i = 0; i < boxes.size(); i += 4)
            for (int y = boxes[i + 1]; y <= boxes[i + 3]; ++y)
                for (int x = boxes[i]; x <= boxes[i + 2]; ++x) page[y * w + x] = 1 - speck;
    }
}

TEST(PixelOperations, DespeckleMatchesFloodFilledComponents) {
    uint32_t seed = 7;
    for (int round = 0; round < 400; ++round) {
        TestDib dib = MakeDib(1 + 2 * (NextRandom(&seed) % 40), 1 + NextRandom(&seed) % 40, 1);
        const BITMAPINFOHEADER* h = dib.header();
        const bool dark = NextRandom(&seed) % 2 != 0;  // entry 0 black, or white
        dib.table()[0] = dark ? RGBQUAD{0, 0, 0, 0} : RGBQUAD{255, 255, 255, 0};
        dib.table()[1] = dark ? RGBQUAD{200, 255, 255, 0} : RGBQUAD{0, 0, 90, 0};
        const uint32_t density = 1 + NextRandom(&seed) % 9;
        std::vector<int> page;
        for (int32_t y = 0; y < h->biHeight; ++y)
            for (int32_t x = 0; x < h->biWidth; ++x) {
                page.push_back(NextRandom(&seed) % 10 < density);
                test::SetPixel(dib.header(), dib.bits(), x, y, page.back());
            }
        const uint32_t limit = NextRandom(&seed) % 300, flags = NextRandom(&seed) % 8;
        ModelDespeckle(page, h->biWidth, h->biHeight, dark ? 1 : 0, limit, flags);
        const std::vector<uint32_t> before = dib.words;
        HGLOBAL result = DespeckleVelmoraDIB(dib.bits(), h, limit, flags, nullptr, 0);
        ASSERT_NE(result, nullptr);
        const bool inPlace = (flags & VELMORA_DESPECKLE_IN_PLACE) != 0;
        const BITMAPINFOHEADER* out = inPlace ? h : LockImage(result);
        const uint8_t* outBits = inPlace ? dib.bits() : PackedBits(out);
        for (int32_t y = 0; y < h->biHeight; ++y)
            for (int32_t x = 0; x < h->biWidth; ++x)
                ASSERT_EQ(ColorAt(out, outBits, x, y), ColorOf(dib.table()[page[y * h->biWidth + x]]))
                    << "round " << round << " at " << x << "," << y;
        if (!inPlace) {
            EXPECT_EQ(dib.words, before);
            UnlockImage(result);
            FreeImage(&result);
        }
    }
}

TEST(PixelOperations, FillsReverseAndMaskMatchPerPixelModels) {
    uint32_t seed = 11;
    for (int round = 0; round < 600; ++round) {
        const uint16_t depth = kDepths[round % 6];
        TestDib dib = RandomDib(depth, &seed);
        BITMAPINFOHEADER* h = dib.header();
        const Snapshot old(h, dib.bits());
        const COLORREF color = NextRandom(&seed) % 4 == 0 ? old.At(0, 0) : NextRandom(&seed) & 0xFFFFFF;
        const uint32_t mode = NextRandom(&seed) % 3;
        RECT rect = {static_cast<LONG>(NextRandom(&seed) % 30) - 5, static_cast<LONG>(NextRandom(&seed) % 30) - 5, 0,
                     0};
        rect.right = rect.left + NextRandom(&seed) % 30, rect.bottom = rect.top + NextRandom(&seed) % 30;
        const bool whole = round % 7 == 0;
        HGLOBAL mask = CreateVelmoraMaskDIB(dib.bits(), h, color);
        ASSERT_NE(mask, nullptr);
        const BITMAPINFOHEADER* maskHeader = LockImage(mask);
        const Snapshot masked(maskHeader, PackedBits(maskHeader));
        ASSERT_TRUE(FillVelmoraDIBRect(dib.bits(), h, whole ? nullptr : &rect, color, mode));
        for (int32_t y = 0; y < h->biHeight; ++y)
            for (int32_t x = 0; x < h->biWidth; ++x) {
                const COLORREF was = old.At(x, y);
                EXPECT_EQ(masked.At(x, y), was == color ? 0u : 0xFFFFFFu) << "mask " << depth;
                const bool inside = whole || (x >= rect.left && x < rect.right && y >= rect.top && y < rect.bottom);
                COLORREF want = was & color;
                if (mode == 0) want = color;
                if (mode == 2)
                    for (int s = 0; s < 24; s += 8)
                        want = (want & ~(0xFFu << s)) | (((was >> s & 0xFF) + (color >> s & 0xFF)) / 2) << s;
                ASSERT_EQ(ColorAt(h, dib.bits(), x, y), inside ? Stored(h, want) : was)
                    << "round " << round << " depth " << depth << " mode " << mode << " at " << x << "," << y;
            }
        UnlockImage(mask), FreeImage(&mask);

        if (ColorCount(h) != 2) {
            EXPECT_FALSE(ReverseVelmoraDIBColors(dib.bits(), h));
            EXPECT_EQ(GetLastVelmoraErrorCode(), 87u);
            continue;
        }
        const Snapshot filled(h, dib.bits());
        const RGBQUAD first = dib.table()[0];
        ASSERT_TRUE(ReverseVelmoraDIBColors(dib.bits(), h));
        EXPECT_EQ(ColorOf(dib.table()[1]), ColorOf(first));
        EXPECT_EQ(Snapshot(h, dib.bits()).colors, filled.colors);
    }
}

TEST(PixelOperations, CopiesMatchPerPixelModels) {
    uint32_t seed = 5;
    for (int round = 0; round < 600; ++round) {
        const uint16_t from = kDepths[round % 6], to = kDepths[round % 6 + NextRandom(&seed) % (6 - round % 6)];
        TestDib source = RandomDib(from, &seed), target = RandomDib(to, &seed);
        // The same table: pixel values are copied, even those past the table.
        const bool same = from == to && from <= 8 && round % 2 == 0;
        if (same) target.words = source.words;
        const BITMAPINFOHEADER* s = source.header();
        const BITMAPINFOHEADER* t = target.header();
        const Snapshot in(s, source.bits()), was(t, target.bits());
        const LONG x = static_cast<LONG>(NextRandom(&seed) % 40) - 20,
                   y = static_cast<LONG>(NextRandom(&seed) % 40) - 20;
        ASSERT_TRUE(CopyVelmoraDIBPixels(source.bits(), s, target.bits(), t, x, y));
        for (int32_t ty = 0; ty < t->biHeight; ++ty)
            for (int32_t tx = 0; tx < t->biWidth; ++tx) {
                const bool inside = tx >= x && ty >= y && tx - x < s->biWidth && ty - y < s->biHeight;
                ASSERT_EQ(ColorAt(t, target.bits(), tx, ty), !inside ? was.At(tx, ty)
                                                             : same  ? in.At(tx - x, ty - y)
                                                                     : Stored(t, in.At(tx - x, ty - y)))
                    << "round " << round << " " << from << " into " << to << " at " << tx << "," << ty;
            }

        // Copied onto itself, a DIB is read as it was before the copy.
        const Snapshot before(t, target.bits());
        ASSERT_TRUE(CopyVelmoraDIBPixels(target.bits(), t, target.bits(), t, 1, 1));
        for (int32_t ty = 0; ty < t->biHeight; ++ty)
            for (int32_t tx = 0; tx < t->biWidth; ++tx)
                ASSERT_EQ(ColorAt(t, target.bits(), tx, ty),
                          tx > 0 && ty > 0 ? before.At(tx - 1, ty - 1) : before.At(tx, ty))
                    << "onto itself";

        // A rectangle of the source, turned clockwise.
        RECT rect = {static_cast<LONG>(NextRandom(&seed) % s->biWidth),
                     static_cast<LONG>(NextRandom(&seed) % s->biHeight), 0, 0};
        rect.right = rect.left + 1 + NextRandom(&seed) % (s->biWidth - rect.left);
        rect.bottom = rect.top + 1 + NextRandom(&seed) % (s->biHeight - rect.top);
        const DWORD angle = 90 * (NextRandom(&seed) % 4);
        HGLOBAL copy = CopyVelmoraDIBToDIB(round % 5 == 0 ? nullptr : &rect, source.bits(), s, angle, 0);
        if (round % 5 == 0) rect = RECT{0, 0, s->biWidth, s->biHeight};
        ASSERT_NE(copy, nullptr);
        const BITMAPINFOHEADER* c = LockImage(copy);
        const LONG w = rect.right - rect.left, hgt = rect.bottom - rect.top;
        ASSERT_EQ(c->biWidth, angle % 180 == 0 ? w : hgt);
        for (int32_t cy = 0; cy < c->biHeight; ++cy)
            for (int32_t cx = 0; cx < c->biWidth; ++cx) {
                const LONG sx = angle == 0 ? cx : angle == 90 ? cy : angle == 180 ? w - 1 - cx : w - 1 - cy;
                const LONG sy = angle == 0 ? cy : angle == 90 ? hgt - 1 - cx : angle == 180 ? hgt - 1 - cy : cx;
                ASSERT_EQ(ColorAt(c, PackedBits(c), cx, cy), in.At(rect.left + sx, rect.top + sy)) << "angle " << angle;
            }
        UnlockImage(copy), FreeImage(&copy);
    }
}

TEST(PixelOperations, ExportsRefuseBadArguments) {
    TestDib grey = MakeDib(9, 4, 8), bilevel = MakeDib(9, 4, 1), odd = MakeDib(9, 4, 2);
    const RECT outside = {0, 0, 10, 4};
    auto error = [](bool failed) { return failed ? GetLastVelmoraErrorCode() : 0u; };
    EXPECT_EQ(error(!DespeckleVelmoraDIB(grey.bits(), grey.header(), 5, 2, nullptr, 0)), 87u);
    EXPECT_EQ(error(!DespeckleVelmoraDIB(bilevel.bits(), bilevel.header(), 5, 8, nullptr, 0)), 87u);
    EXPECT_EQ(error(!DespeckleVelmoraDIB(bilevel.bits(), nullptr, 5, 2, nullptr, 0)), 998u);
    EXPECT_EQ(error(!FillVelmoraDIBRect(grey.bits(), grey.header(), nullptr, 0, 3)), 87u);
    EXPECT_EQ(error(!FillVelmoraDIBRect(odd.bits(), odd.header(), nullptr, 0, 0)), 0x02000005u);
    EXPECT_EQ(error(!FillVelmoraDIBRect(nullptr, grey.header(), nullptr, 0, 0)), 998u);
    EXPECT_EQ(error(!CopyVelmoraDIBPixels(grey.bits(), grey.header(), bilevel.bits(), bilevel.header(), 0, 0)), 87u);
    EXPECT_EQ(error(!CopyVelmoraDIBToDIB(nullptr, grey.bits(), grey.header(), 45, 0)), 87u);
    EXPECT_EQ(error(!CopyVelmoraDIBToDIB(&outside, grey.bits(), grey.header(), 0, 0)), 87u);
    EXPECT_EQ(error(!DrawVelmoraDIBMask(grey.bits(), grey.header(), 9, 4, 0, nullptr)), 0u);  // nothing to draw
#if !defined(_WIN32)
    EXPECT_EQ(error(!DrawVelmoraDIBMask(grey.bits(), grey.header(), 0, 0, 0, nullptr)), 120u);  // no GDI bitmaps
#endif
}

BOOL VELMORA_CALLBACK Cancel(DWORD percent, UINT_PTR user) {
    *reinterpret_cast<DWORD*>(user) = percent;
    return 0;
}

TEST(PixelOperations, CancelStopsDespeckleAndCopy) {
    TestDib dib = MakeDib(8, 4, 1);
    DWORD reported = 1000;
    ErrorRecord record;
    // The reporter calls the host once 50 ms have passed since it was made.
    ProgressReporter despeckle(Cancel, reinterpret_cast<UINT_PTR>(&reported));
    std::this_thread::sleep_for(std::chrono::milliseconds(55));
    EXPECT_FALSE(DespeckleDib(dib.header(), dib.bits(), 3, kDespeckleWhite, &despeckle, &record));
    EXPECT_EQ(record.code, 1223u);
    EXPECT_EQ(reported, 0u);
    record = ErrorRecord();
    ProgressReporter copy(Cancel, reinterpret_cast<UINT_PTR>(&reported));
    std::this_thread::sleep_for(std::chrono::milliseconds(55));
    EXPECT_EQ(CopyDibRect(dib.header(), dib.bits(), RECT{0, 0, 8, 4}, 90, &copy, &record), nullptr);
    EXPECT_EQ(record.code, 1223u);
}

}  // namespace
}  // namespace velmora
