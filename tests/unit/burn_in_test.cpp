// Burning annotations into pages of every depth and rotation: filled and
// redaction rectangles land on exactly their pixels of the turned page and
// nothing else changes; text ink stays inside its box; shapes agree with
// ImageMagick drawing the same outlines; the colour plan; hidden and
// redaction-only burning.
#include <cstdio>
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "annotations/annotation.h"
#include "annotations/burn_in.h"
#include "dib/color_type.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/palette.h"
#include "dib/pixel_fetch.h"
#include "dib_test_images.h"

namespace velmora {
namespace {

using test::NextRandom;

constexpr uint32_t kRed = 0x0000FF, kWhite = 0xFFFFFF;

struct PageKind {
    uint16_t bits;
    bool grey;  // a grey ramp, else random colours
};

// A page of random pixels; 4 and 8 bits with a random or a grey table.
HGLOBAL RandomPage(int32_t width, int32_t height, PageKind kind, uint32_t seed, ErrorRecord* record) {
    RGBQUAD table[256] = {};
    const uint32_t entries = kind.bits <= 8 ? 1u << kind.bits : 0;
    for (uint32_t i = 0; i < entries; ++i) {
        const uint32_t c = kind.grey ? i * 255 / (entries - 1) * 0x010101u : NextRandom(&seed) & 0xFFFFFF;
        table[i] = RGBQUAD{BYTE(c >> 16), BYTE(c >> 8), BYTE(c), 0};
    }
    HGLOBAL page = CreatePackedDib(width, height, kind.bits, table, entries, 11811, 11811, record);
    ImageLock lock(page);
    uint8_t* bits = PackedBits(lock.header());
    for (uint64_t i = 0; i < RowStride(lock.header()) * uint64_t(height); ++i) bits[i] = uint8_t(NextRandom(&seed));
    return page;
}

std::vector<COLORREF> Pixels(HGLOBAL page) {
    ImageLock lock(page);
    const BITMAPINFOHEADER* h = lock.header();
    std::vector<COLORREF> out;
    for (int32_t y = 0; y < h->biHeight; ++y)
        for (int32_t x = 0; x < h->biWidth; ++x) out.push_back(PixelColor(h, PackedBits(h), x, y));
    return out;
}

Annotation* Rectangle(AnnotationRect rect, uint32_t back, uint32_t nodeFlags = 0) {
    ErrorRecord record;
    Annotation* a = NewAnnotation(AnnotationFamily::Rectangle, nullptr, &record);
    a->rectangle.rect = rect;
    a->rectangle.backColor = back;
    a->nodeFlags = nodeFlags;
    return a;
}

HGLOBAL Burn(AnnotationList* list, HGLOBAL page, uint16_t rotation, uint32_t flags, bool* removed = nullptr) {
    ErrorRecord record;
    ImageLock lock(page);
    HGLOBAL result = BurnInAnnotationList(list, {rotation, page, lock.header(), flags}, removed, &record);
    EXPECT_EQ(record.code, 0u);
    return result == BurnedInPlace() ? page : result;
}

// The stored page's rectangle on the page image turned clockwise.
AnnotationRect Turned(AnnotationRect r, uint16_t rotation, int32_t w, int32_t h) {
    switch (rotation) {
        case 90: return {w - r.bottom, r.left, w - r.top, r.right};
        case 180: return {w - r.right, h - r.bottom, w - r.left, h - r.top};
        case 270: return {r.top, h - r.right, r.bottom, h - r.left};
        default: return r;
    }
}

bool Inside(const AnnotationRect& r, int32_t x, int32_t y) {
    return x >= r.left && x < r.right && y >= r.top && y < r.bottom;
}

class BurnInPages : public testing::TestWithParam<std::tuple<PageKind, uint16_t>> {};

// A filled rectangle and a redaction cover exactly their turned pixels; a
// hidden rectangle shows only with the hidden flag; the caller's page stays
// as it was; with redactions only, the redaction alone is drawn and removed.
TEST_P(BurnInPages, RectanglesCoverExactlyTheirPixels) {
    const auto [kind, rotation] = GetParam();
    const int32_t w = 61, h = 43;
    ErrorRecord record;
    HGLOBAL page = RandomPage(w, h, kind, 7 + kind.bits + rotation, &record);
    const std::vector<COLORREF> before = Pixels(page);
    const AnnotationRect filled = {3, 5, 20, 17}, redaction = {12, 9, 31, 29}, hidden = {25, 1, 40, 8};
    for (uint32_t flags : {0u, kBurnInHidden, kBurnInRedactionsOnly | kBurnInKeepImage}) {
        AnnotationList list;
        list.Append(Rectangle(filled, kRed), &record);
        list.Append(Rectangle(redaction, kColorNone, kNodeRedaction), &record);
        list.Append(Rectangle(hidden, kWhite), &record);
        list.at(2)->objectFlags |= kObjectHidden;
        HGLOBAL copy = nullptr;
        if ((flags & kBurnInKeepImage) != 0) {
            ImageLock lock(page);
            copy =
                CreatePackedDib(w, h, kind.bits, ColorTable(lock.header()), ColorCount(lock.header()), 0, 0, &record);
            ImageLock target(copy);
            std::memcpy(PackedBits(target.header()), PackedBits(lock.header()), RowStride(lock.header()) * h);
        }
        bool removed = false;
        HGLOBAL burned = Burn(&list, copy != nullptr ? copy : page, rotation, flags, &removed);
        ASSERT_NE(burned, nullptr);
        EXPECT_EQ(burned == copy, copy != nullptr);
        const std::vector<COLORREF> after = Pixels(burned);
        const bool onlyRedactions = (flags & kBurnInRedactionsOnly) != 0;
        EXPECT_EQ(removed, onlyRedactions);
        EXPECT_EQ(list.size(), onlyRedactions ? 2u : 3u);
        EXPECT_EQ(Pixels(page), before);
        ImageLock lock(burned);
        const COLORREF red =
            kind.bits <= 8
                ? ColorOf(ColorTable(
                      lock.header())[NearestColor(ColorTable(lock.header()), ColorCount(lock.header()), kRed, nullptr)])
                : kRed;
        const COLORREF black =
            kind.bits <= 8
                ? ColorOf(ColorTable(
                      lock.header())[NearestColor(ColorTable(lock.header()), ColorCount(lock.header()), 0, nullptr)])
                : 0;
        const COLORREF white = kind.bits <= 8
                                   ? ColorOf(ColorTable(lock.header())[NearestColor(
                                         ColorTable(lock.header()), ColorCount(lock.header()), kWhite, nullptr)])
                                   : kWhite;
        const AnnotationRect f = Turned(filled, rotation, w, h), r = Turned(redaction, rotation, w, h),
                             hid = Turned(hidden, rotation, w, h);
        int wrong = 0;
        for (int32_t y = 0; y < h; ++y) {
            for (int32_t x = 0; x < w; ++x) {
                COLORREF expected = before[y * w + x];
                if ((flags & kBurnInHidden) != 0 && Inside(hid, x, y)) expected = white;
                if (!onlyRedactions && Inside(f, x, y)) expected = red;
                if (Inside(r, x, y)) expected = black;
                wrong += after[y * w + x] != expected;
            }
        }
        EXPECT_EQ(wrong, 0) << "flags " << flags;
        if (burned != page) FreeImage(&burned);
    }
    FreeImage(&page);
}

INSTANTIATE_TEST_SUITE_P(Depths, BurnInPages,
                         testing::Combine(testing::Values(PageKind{1, true}, PageKind{4, false}, PageKind{8, true},
                                                          PageKind{8, false}, PageKind{24, false}),
                                          testing::Values<uint16_t>(0, 90, 180, 270)));

// A picture keeps its place and its own turn on a page burned turned: a red
// and white picture turned a quarter clockwise shows red above white. An
// empty list changes nothing and draws in place.
TEST(BurnInPictures, KeepTheirOwnOrientation) {
    ErrorRecord record;
    HGLOBAL page = RandomPage(40, 50, {24, false}, 9, &record);
    AnnotationList empty;
    const std::vector<COLORREF> before = Pixels(page);
    ASSERT_EQ(Burn(&empty, page, 90, kBurnInKeepImage), page);
    EXPECT_EQ(Pixels(page), before);
    AnnotationList list;
    Annotation* a = NewAnnotation(AnnotationFamily::Image, nullptr, &record);
    a->image.rect = {10, 10, 20, 30};
    a->image.rotation = 90;
    const RGBQUAD table[2] = {{0, 0, 255, 0}, {255, 255, 255, 0}};
    a->image.dib = CreatePackedDib(2, 1, 1, table, 2, 0, 0, &record);
    {
        ImageLock picture(a->image.dib);
        PackedBits(picture.header())[0] = 0x40;  // left pixel entry 0 (red), right entry 1 (white)
    }
    list.Append(a, &record);
    ASSERT_EQ(Burn(&list, page, 90, kBurnInKeepImage), page);
    const std::vector<COLORREF> after = Pixels(page);
    int wrong = 0;
    for (int32_t y = 0; y < 50; ++y) {
        for (int32_t x = 0; x < 40; ++x) {
            const COLORREF expected = Inside({10, 10, 20, 30}, x, y) ? (y < 20 ? kRed : kWhite) : before[y * 40 + x];
            wrong += after[y * 40 + x] != expected;
        }
    }
    EXPECT_EQ(wrong, 0);
    FreeImage(&page);
}

class BurnInText : public testing::TestWithParam<std::tuple<uint16_t, const char16_t*>> {};

// Text lands inside its box, not empty, runs along the box's turned width
// and starts in the corner its turn brings the first line's start to; a
// face nobody has still draws.
TEST_P(BurnInText, InkStaysInItsBox) {
    const auto [rotation, face] = GetParam();
    ErrorRecord record;
    HGLOBAL page = CreatePackedDib(300, 300, 24, nullptr, 0, 3780, 3780, &record);
    {
        ImageLock lock(page);
        std::memset(PackedBits(lock.header()), 0xFF, RowStride(lock.header()) * 300);
    }
    const AnnotationRect boxes[2] = {{40, 60, 260, 140}, {40, 180, 260, 280}};
    const std::u16string texts[2] = {u"Burned text wraps inside its box, line after line, until the box is full",
                                     u"Top"};
    AnnotationList list;
    for (int i = 0; i < 2; ++i) {
        Annotation* a = Rectangle(boxes[i], kColorNone);
        a->rectangle.textColor = 0;
        a->rectangle.textSize = 20;
        a->rectangle.option2 = 0x07;
        std::u16string name(face);
        std::copy(name.begin(), name.end(), a->rectangle.fontFace);
        a->rectangle.text.Assign(texts[i].data(), texts[i].size(), &record);
        list.Append(a, &record);
    }
    ASSERT_EQ(Burn(&list, page, rotation, kBurnInKeepImage), page);
    const std::vector<COLORREF> after = Pixels(page);
    AnnotationRect box[2], ink[2];
    int outside = 0;
    for (int i = 0; i < 2; ++i) box[i] = Turned(boxes[i], rotation, 300, 300), ink[i] = {300, 300, 0, 0};
    for (int32_t y = 0; y < 300; ++y) {
        for (int32_t x = 0; x < 300; ++x) {
            if (after[y * 300 + x] == kWhite) continue;
            const int i = Inside(box[0], x, y) ? 0 : Inside(box[1], x, y) ? 1 : -1;
            if (i < 0) {
                ++outside;
                continue;
            }
            ink[i] = {std::min(ink[i].left, x), std::min(ink[i].top, y), std::max(ink[i].right, x + 1),
                      std::max(ink[i].bottom, y + 1)};
        }
    }
    EXPECT_EQ(outside, 0);
    ASSERT_LT(ink[0].left, ink[0].right);
    ASSERT_LT(ink[1].left, ink[1].right);
    // Wrapped lines fill most of the box's length and at least two lines of its depth.
    const bool turned = rotation == 90 || rotation == 270;
    EXPECT_GT(turned ? ink[0].bottom - ink[0].top : ink[0].right - ink[0].left, 150);
    EXPECT_GT(turned ? ink[0].right - ink[0].left : ink[0].bottom - ink[0].top, 40);
    // The short word sits in the corner where its line starts.
    const AnnotationRect& b = box[1];
    const AnnotationRect& w = ink[1];
    const int32_t gapX = rotation == 0 || rotation == 270 ? w.left - b.left : b.right - w.right;
    const int32_t gapY = rotation == 0 || rotation == 90 ? w.top - b.top : b.bottom - w.bottom;
    EXPECT_LT(gapX, 10);
    EXPECT_LT(gapY, 10);
    FreeImage(&page);
}

INSTANTIATE_TEST_SUITE_P(Rotations, BurnInText,
                         testing::Combine(testing::Values<uint16_t>(0, 90, 180, 270),
                                          testing::Values(u"Liberation Serif", u"No Such Face Anywhere")));

#if !defined(_WIN32)  // ImageMagick is a peer on the Linux side only
// ImageMagick's rendering of a -draw script on a white 24-bit page, as
// colours by pixel. ImageMagick puts pixel centres on whole coordinates, so
// the script's coordinates are ours less half a pixel.
std::vector<COLORREF> Magick(int32_t w, int32_t h, const std::string& draw) {
    const std::string command = "/usr/bin/convert -size " + std::to_string(w) + "x" + std::to_string(h) + " xc:white " +
                                draw + " -depth 8 ppm:- 2>/dev/null";
    std::vector<COLORREF> out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return out;
    int pw = 0, ph = 0, max = 0;
    if (fscanf(pipe, "P6 %d %d %d", &pw, &ph, &max) == 3 && fgetc(pipe) != EOF && pw == w && ph == h) {
        std::vector<uint8_t> rgb(size_t(w) * h * 3);
        if (fread(rgb.data(), 1, rgb.size(), pipe) == rgb.size()) {
            for (size_t i = 0; i < rgb.size(); i += 3) out.push_back(rgb[i] | rgb[i + 1] << 8 | rgb[i + 2] << 16);
        }
    }
    pclose(pipe);
    return out;
}

// Filled and outlined ellipses, a thick line and a rectangle agree with
// ImageMagick wherever both draw a pixel fully (edges may shade differently).
TEST(BurnInShapes, MatchImageMagick) {
    const int32_t w = 160, h = 120;
    ErrorRecord record;
    HGLOBAL page = CreatePackedDib(w, h, 24, nullptr, 0, 0, 0, &record);
    {
        ImageLock lock(page);
        std::memset(PackedBits(lock.header()), 0xFF, RowStride(lock.header()) * h);
    }
    AnnotationList list;
    list.Append(Rectangle({5, 7, 40, 30}, 0x00FF00), &record);
    Annotation* e = NewAnnotation(AnnotationFamily::Ellipse, nullptr, &record);
    e->ellipse.rect = {50, 10, 120, 60};
    e->ellipse.fillColor = kRed;
    list.Append(e, &record);
    Annotation* ring = NewAnnotation(AnnotationFamily::Ellipse, nullptr, &record);
    ring->ellipse.rect = {20, 60, 90, 115};
    ring->ellipse.outlineColor = 0xFF0000;
    ring->ellipse.outlineWidth = 6;
    list.Append(ring, &record);
    Annotation* line = NewAnnotation(AnnotationFamily::Line, nullptr, &record);
    line->line.first = {100, 70};
    line->line.second = {150, 110};
    line->line.width = 7;
    list.Append(line, &record);
    Burn(&list, page, 0, kBurnInKeepImage);
    const std::vector<COLORREF> ours = Pixels(page);
    const std::vector<COLORREF> theirs =
        Magick(w, h,
               "-fill '#00FF00' -draw 'rectangle 4.5,6.5 39.5,29.5' -fill red -draw 'ellipse 84.5,34.5 35,25 0,360' "
               "-fill none -stroke blue -strokewidth 6 -draw 'ellipse 54.5,87 32,24.5 0,360' "
               "-stroke black -strokewidth 7 -draw 'stroke-linecap round line 100,70 150,110'");
    ASSERT_EQ(theirs.size(), ours.size());
    auto solid = [](COLORREF c) { return c == kWhite || c == 0x00FF00 || c == kRed || c == 0xFF0000 || c == 0; };
    int disagree = 0, shared = 0;
    for (size_t i = 0; i < ours.size(); ++i) {
        if (!solid(ours[i]) || !solid(theirs[i])) continue;
        ++shared;
        disagree += ours[i] != theirs[i];
    }
    EXPECT_EQ(disagree, 0);
    EXPECT_GT(shared, w * h * 9 / 10);
    FreeImage(&page);
}
#endif

// The colour type the annotations' colours need on a bi-level page.
TEST(BurnInPlan, ColourTypes) {
    struct Case {
        std::vector<uint32_t> colors;
        int32_t type;
    };
    std::vector<uint32_t> greys, many;
    for (uint32_t i = 1; i <= 20; ++i) greys.push_back(i * 0x0A0A0Au);
    for (uint32_t i = 1; i <= 300; ++i) many.push_back(i * 0x010203u);
    const Case cases[] = {{{0, kWhite}, 0},
                          {{0x808080}, 1},
                          {{kRed}, 1},
                          {{0x404040, 0x808080}, 2},
                          {{kRed, 0xFF0000}, 3},
                          {greys, 4},
                          {{kRed, 0x00FF00, 0xFF0000, 0x00FFFF}, 3},
                          {many, 6}};
    ErrorRecord record;
    HGLOBAL page = RandomPage(8, 8, {1, true}, 1, &record);
    ImageLock lock(page);
    for (const Case& c : cases) {
        AnnotationList list;
        for (uint32_t color : c.colors) list.Append(Rectangle({0, 0, 2, 2}, color), &record);
        ColorPlan plan;
        PlanColors(list, lock.header(), 0, &plan);
        EXPECT_EQ(plan.colorType, c.type) << c.colors.size() << " colours from " << c.colors[0];
    }
}

// A red rectangle on a bi-level page with the format chosen gives a
// two-colour page of red and white, the rectangle red.
TEST(BurnInPlan, RedOnBilevelGivesRedAndWhite) {
    ErrorRecord record;
    HGLOBAL page = RandomPage(40, 30, {1, true}, 3, &record);
    AnnotationList list;
    list.Append(Rectangle({5, 5, 20, 20}, kRed), &record);
    HGLOBAL burned = Burn(&list, page, 0, kBurnInChooseFormat | kBurnInKeepImage);
    ASSERT_NE(burned, page);
    ImageLock lock(burned);
    ASSERT_EQ(lock.header()->biBitCount, 1);
    EXPECT_EQ(ColorOf(ColorTable(lock.header())[0]), kRed);
    EXPECT_EQ(ColorOf(ColorTable(lock.header())[1]), kWhite);
    EXPECT_EQ(PixelColor(lock.header(), PackedBits(lock.header()), 10, 10), kRed);
    FreeImage(&burned);
    FreeImage(&page);
}

}  // namespace
}  // namespace velmora
