// Image handles of every storage kind, rotation, and display palettes.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>
#include <tuple>

#include "dib/dib_layout.h"
#include "dib/display_palette.h"
#include "dib/image.h"
#include "dib/pixel_fetch.h"
#include "dib/rotate.h"
#include "dib/spill_store.h"
#include "dib/standing_palettes.h"
#include "dib_test_images.h"
#include "platform/platform.h"

namespace velmora {
namespace {

using test::NextRandom;

class DibStorage : public ::testing::TestWithParam<uint32_t> {};

TEST_P(DibStorage, EveryKindLocksToItsHeaderKeepsRowsAndFrees) {
    uint32_t kind = GetParam();
    size_t storesBefore = OpenSpillStoreCount();
    ErrorRecord record;
    HGLOBAL image = CreateImage(37, 9, 4, 3937, 7874, 0, kind | kStorageInverseRamp, &record);
    ASSERT_NE(image, nullptr) << record.code;
    EXPECT_EQ(ImageKind(image), static_cast<StorageKind>(kind));
    {
        ImageLock lock(image);
        BITMAPINFOHEADER* h = lock.header();
        ASSERT_NE(h, nullptr);
        // 16 colours at 4 bits are written as 0.
        EXPECT_EQ(std::tuple(h->biSize, h->biWidth, h->biHeight, h->biBitCount, h->biClrUsed, h->biXPelsPerMeter,
                             h->biYPelsPerMeter),
                  std::tuple(40u, 37, 9, 4, 0u, 3937, 7874));
        EXPECT_EQ(ColorTable(h)[0].rgbRed, 255);  // descending: white first
        EXPECT_EQ(ColorTable(h)[15].rgbGreen, 0);
        EXPECT_EQ(ColorTable(h)[5].rgbBlue, 255 - 5 * 17);
        EXPECT_EQ(lock.bits() == nullptr, kind == 4);
    }
    std::vector<uint8_t> row(20), back(20);
    uint32_t seed = kind;
    for (uint32_t y = 0; y < 9; ++y) {
        for (auto& b : row) b = static_cast<uint8_t>(NextRandom(&seed));
        ASSERT_TRUE(WriteImageRow(image, y, row.data(), &record));
    }
    EXPECT_FALSE(WriteImageRow(image, 9, row.data(), &record));
    EXPECT_EQ(record.code, 87u);
    record = ErrorRecord();
    seed = kind;
    HGLOBAL packed = PackImage(image, &record);
    ASSERT_NE(packed, nullptr);
    auto* p = static_cast<BITMAPINFOHEADER*>(platform::MemLock(packed));
    for (uint32_t y = 0; y < 9; ++y) {
        for (auto& b : row) b = static_cast<uint8_t>(NextRandom(&seed));
        ASSERT_TRUE(ReadImageRow(image, y, back.data(), &record));
        EXPECT_EQ(back, row) << "row " << y;
        EXPECT_EQ(std::memcmp(PackedBits(p) + 20 * y, row.data(), 20), 0);
    }
    EXPECT_EQ(ColorTable(p)[1].rgbRed, 238);
    platform::MemUnlock(packed);
    FreeImage(&packed);
    if (kind == 4) {
        EXPECT_EQ(OpenSpillStoreCount(), storesBefore + 1);
    }
    FreeImage(&image);
    EXPECT_EQ(image, nullptr);
    EXPECT_EQ(OpenSpillStoreCount(), storesBefore);
}

INSTANTIATE_TEST_SUITE_P(DibKinds, DibStorage, ::testing::Values(0u, 1u, 2u, 4u));

TEST(DibImage, ConstructionRefusesWhatItCannotHold) {
    const struct {
        int32_t width, height;
        uint16_t bits;
        uint32_t colours, storage;
    } bad[] = {
        {0, 1, 8, 0, 0},    {1, -1, 8, 0, 0},      {1 << 25, 1, 1, 0, 0},
        {1, 1, 2, 0, 0},    {1, 1, 8, 0, 3},       {1, 1, 8, 0, 5},
        {1, 1, 24, 257, 0}, {1, 1, 8, 0x10000, 0}, {1 << 24, 1 << 24, 32, 0, 0},
    };
    for (const auto& c : bad) {
        ErrorRecord record;
        EXPECT_EQ(CreateImage(c.width, c.height, c.bits, 0, 0, c.colours, c.storage, &record), nullptr);
        EXPECT_EQ(record.code, 87u) << c.width << "x" << c.height << "x" << c.bits;
    }
    // A short table is kept as asked; an ascending ramp over it spans 0 to 255.
    ErrorRecord record;
    HGLOBAL image = CreateImage(3, 3, 8, 0, 0, 5, kStorageGreyRamp | kStorageZeroInit, &record);
    ASSERT_NE(image, nullptr);
    {
        ImageLock lock(image);
        EXPECT_EQ(lock.header()->biClrUsed, 5u);
        EXPECT_EQ(ColorTable(lock.header())[4].rgbRed, 255);
        EXPECT_EQ(ColorTable(lock.header())[1].rgbRed, 63);
        EXPECT_EQ(lock.bits(), reinterpret_cast<uint8_t*>(lock.header()) + 60);
    }
    FreeImage(&image);
}

TEST(DibImage, BorrowedMemoryIsNotFreedWithTheImage) {
    std::vector<uint64_t> memory(64);
    auto* header = reinterpret_cast<BITMAPINFOHEADER*>(reinterpret_cast<uint8_t*>(memory.data()) + 8);
    *header = BITMAPINFOHEADER{40, 2, 2, 1, 24, 0, 0, 0, 0, 0, 0};
    ErrorRecord record;
    HGLOBAL image = WrapImageMemory(memory.data(), &record);
    ASSERT_NE(image, nullptr);
    EXPECT_EQ(LockImage(image), header);
    UnlockImage(image);
    FreeImage(&image);
    EXPECT_EQ(header->biWidth, 2);  // still ours, still readable
}

// Where each pixel lands is compared at every depth by the pixel operation
// tests (copies turned by 90, 180 and 270 degrees) and against libtiff by the
// TIFF corpus (every orientation); here what a turn does besides the pixels.
TEST(DibRotation, QuarterTurnsExchangeResolutionAndClearPadding) {
    ErrorRecord record;
    HGLOBAL source = CreateImage(13, 6, 1, 100, 200, 0, kStorageZeroInit, &record);
    ASSERT_NE(source, nullptr);
    {
        ImageLock lock(source);
        std::memset(lock.bits(), 0xFF, RowStride(lock.header()) * 6);  // padding bits set too
    }
    HGLOBAL turned = RotateDib(source, 90, &record);
    ASSERT_NE(turned, nullptr) << record.code;
    {
        ImageLock to(turned);
        EXPECT_EQ(to.header()->biWidth, 6);
        EXPECT_EQ(to.header()->biHeight, 13);
        EXPECT_EQ(to.header()->biXPelsPerMeter, 200);
        EXPECT_EQ(to.header()->biYPelsPerMeter, 100);
        EXPECT_EQ(to.bits()[0], 0xFC);  // six pixels; the bits past them stay zero
    }
    FreeImage(&turned);
    EXPECT_EQ(RotateDib(source, 45, &record), nullptr);
    EXPECT_EQ(record.code, 87u);
    FreeImage(&source);
}

std::vector<PaletteColor> Standing(uint16_t id) {
    ResourceBytes bytes{};
    std::vector<PaletteColor> colours;
    if (!FindStandingPalette(id, &bytes)) return colours;
    for (uint32_t i = 0; i < StandingPaletteSize(bytes); ++i)
        colours.push_back({bytes.data[2 + 3 * i], bytes.data[3 + 3 * i], bytes.data[4 + 3 * i]});
    return colours;
}

TEST(DibDisplayPalette, StandingPalettesHoldWhatTheReservedColoursLack) {
    auto grey = Standing(kGreyDisplayPaletteId);
    ASSERT_EQ(grey.size(), 236u);
    for (const auto& c : grey) {
        EXPECT_TRUE(c[0] == c[1] && c[1] == c[2]);
        EXPECT_TRUE(c[0] >= 1 && c[0] <= 254 && c[0] % 15 != 0 && c[0] != 128 && c[0] != 192) << int(c[0]);
    }
    auto colour = Standing(kColorDisplayPaletteId);
    ASSERT_EQ(colour.size(), 236u);
    int greys = 0;
    for (const auto& c : colour) greys += c[0] == c[1] && c[1] == c[2];
    EXPECT_EQ(greys, 28 + 4);  // its own greys and the cube's inner diagonal
    ResourceBytes none{};
    EXPECT_FALSE(FindStandingPalette(31, &none));
}

TEST(DibDisplayPalette, TableBetweenTheReservedHalvesOrAStandingPalette) {
    platform::DisplayPaletteInfo device = {};
    device.size = 256;
    device.reserved = 20;
    device.systemCount = 256;
    for (uint32_t i = 0; i < 256; ++i) device.system[i][0] = static_cast<uint8_t>(i);
    auto small = test::MakeDib(4, 1, 4);
    auto palette = BuildDisplayPalette(device, small.header(), small.bits(), false);
    ASSERT_EQ(palette.size(), 10u + 16 + 10);
    EXPECT_EQ(palette[9][0], 9);
    EXPECT_EQ(palette[26][0], 246);

    // 256 greys do not fit in 236 slots: the grey standing palette.
    auto grey = test::MakeDib(4, 1, 8);
    for (uint32_t i = 0; i < 256; ++i) grey.table()[i] = RGBQUAD{uint8_t(i), uint8_t(i), uint8_t(i), 0};
    palette = BuildDisplayPalette(device, grey.header(), grey.bits(), false);
    ASSERT_EQ(palette.size(), 256u);
    EXPECT_EQ(std::vector<PaletteColor>(palette.begin() + 10, palette.end() - 10), Standing(30));

    // A colour table that does not fit: with optimise a palette fitted to the
    // pixels' colours (exactly those, as there are few), else the colour palette.
    grey.table()[3].rgbRed = 200;
    grey.bits()[1] = 3;
    palette = BuildDisplayPalette(device, grey.header(), grey.bits(), true);
    ASSERT_EQ(palette.size(), 20u + 2);
    EXPECT_EQ(palette[10], (PaletteColor{0, 0, 0}));
    EXPECT_EQ(palette[11], (PaletteColor{200, 3, 3}));
    palette = BuildDisplayPalette(device, grey.header(), grey.bits(), false);
    EXPECT_EQ(std::vector<PaletteColor>(palette.begin() + 10, palette.end() - 10), Standing(29));
    // No table; no system entries read: no reserved halves.
    device.systemCount = 0;
    auto rgb = test::MakeDib(4, 1, 24);
    EXPECT_EQ(BuildDisplayPalette(device, rgb.header(), rgb.bits(), false), Standing(29));
    test::SetPixel(rgb.header(), rgb.bits(), 1, 0, 0x102030);
    EXPECT_EQ(BuildDisplayPalette(device, rgb.header(), rgb.bits(), true),
              (std::vector<PaletteColor>{{0, 0, 0}, {0x10, 0x20, 0x30}}));
}

}  // namespace
}  // namespace velmora
