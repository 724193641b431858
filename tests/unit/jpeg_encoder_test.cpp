// The JPEG encoder on its own: its Huffman tables, the segments it writes
// that no peer reads back, thumbnails and their limits, lossless scans decoded
// by a small reference decoder, and its failures.
#include <chrono>
#include <cmath>
#include <cstring>
#include <numbers>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "jpeg/jpeg_copy.h"
#include "jpeg/jpeg_decoder.h"
#include "jpeg/jpeg_encoder.h"
#include "jpeg/jpeg_encoder_color.h"
#include "jpeg/jpeg_forward_dct.h"
#include "jpeg/jpeg_huffman_encoder.h"
#include "jpeg/jpeg_tables.h"
#include "../support/jpeg_segments.h"
#include "../support/memory_stream.h"
#include "dib_test_images.h"
#include "frame/error_record.h"
#include "io/stream.h"
#include "platform/platform.h"

namespace velmora::jpeg {
namespace {

using test::MakeDib;
using test::NextRandom;
using test::SetPixel;
using test::TestDib;
using testing_support::JpegMarkers;
using testing_support::JpegSegment;
using testing_support::JpegSegments;

constexpr uint32_t kInvalidImageType = 0x02000013;
constexpr uint32_t kThumbnailTooLarge = 0x0200002C;

// Encodes into a memory stream; the bytes, or empty with the record set.
std::vector<uint8_t> EncodeToBytes(const TestDib& dib, const JpegEncoderSettings& settings, ErrorRecord* record,
                                   ProgressReporter* progress = nullptr) {
    std::vector<uint8_t> bytes;
    Stream* stream = OpenMemoryStream(false, record);
    if (stream == nullptr) return bytes;
    TestDib& image = const_cast<TestDib&>(dib);
    EncodeJpegDib(image.header(), image.bits(), settings, stream, progress, record);
    bytes = testing_support::CloseAndTake(stream, nullptr);
    if (record->failed()) bytes.clear();
    return bytes;
}

// A smooth colour image with some edges: what photographs and scans look like
// to a DCT.
TestDib ColourImage(int32_t width, int32_t height) {
    TestDib dib = MakeDib(width, height, 24);
    uint32_t state = 7;
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            uint32_t red = (x * 255) / (width > 1 ? width - 1 : 1);
            uint32_t green = (y * 255) / (height > 1 ? height - 1 : 1);
            uint32_t blue = ((x / 8 + y / 8) % 2) * 160 + NextRandom(&state) % 32;
            SetPixel(dib.header(), dib.bits(), x, y, blue | green << 8 | red << 16);
        }
    }
    return dib;
}

TestDib GreyImage(int32_t width, int32_t height, uint32_t seed) {
    TestDib dib = MakeDib(width, height, 8);
    for (uint32_t i = 0; i < 256; ++i) dib.table()[i] = RGBQUAD{uint8_t(i), uint8_t(i), uint8_t(i), 0};
    uint32_t state = seed;
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < width; ++x) {
            SetPixel(dib.header(), dib.bits(), x, y, (x * 3 + y * 5 + NextRandom(&state) % 24) & 0xFF);
        }
    }
    return dib;
}

// Every code of a table is a prefix of no other, no code is all one bits,
// and lengths stay within 16 (Kraft sum below 1).
void ExpectValidCodes(const HuffmanSpec& spec) {
    uint64_t kraft = 0;
    uint32_t total = 0;
    for (int length = 1; length <= 16; ++length) {
        kraft += uint64_t{spec.counts[length - 1]} << (16 - length);
        total += spec.counts[length - 1];
    }
    EXPECT_EQ(total, spec.symbolCount);
    EXPECT_LT(kraft, uint64_t{1} << 16);
}

TEST(JpegEncoderHuffman, OptimalTablesAreLimitedTo16BitsAndFavourFrequentSymbols) {
    // Fibonacci frequencies make the unlimited code 40 bits deep.
    uint32_t frequencies[256] = {};
    uint32_t a = 1, b = 1;
    for (int i = 0; i < 40; ++i) {
        frequencies[i * 3] = a;
        uint32_t next = a + b;
        a = b;
        b = next;
    }
    OptimalHuffman table;
    MakeOptimalHuffman(frequencies, &table);
    ExpectValidCodes(table.spec);
    EXPECT_EQ(table.spec.symbolCount, 40);
    HuffmanCodes codes;
    MakeHuffmanCodes(table.spec, &codes);
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(codes.length[i] != 0, frequencies[i] != 0) << i;
        // A symbol twice as frequent never has the longer code (folding
        // the lengths may reorder symbols of close frequencies).
        for (int j = 0; j < 256; ++j) {
            if (frequencies[j] != 0 && frequencies[i] >= 2 * uint64_t{frequencies[j]}) {
                EXPECT_LE(codes.length[i], codes.length[j]);
            }
        }
    }
    // A table of one symbol gets a code. (The standard tables are compared
    // with cjpeg's in the interop tests.)
    uint32_t single[256] = {};
    single[7] = 1000;
    MakeOptimalHuffman(single, &table);
    EXPECT_EQ(table.spec.symbolCount, 1);
    EXPECT_EQ(table.spec.counts[0], 1);
}

// A rectangle copied out of a stream keeps the library's resolution and
// scale segments, spliced (mode 1) or coded again (mode 2).
TEST(JpegEncoderSegments, CopiesKeepResolutionAndScale) {
    TestDib dib = ColourImage(48, 32);
    JpegEncoderSettings settings;
    settings.writeResolution = true;
    settings.resolution = {PrivateSegmentKind::Resolution, 3, 1200, 10, 600, 7};
    settings.writeScale = true;
    settings.scale = {PrivateSegmentKind::Scale, 5, 1, 2, 3, 4};
    ErrorRecord record;
    std::vector<uint8_t> bytes = EncodeToBytes(dib, settings, &record);
    ASSERT_TRUE(record.ok()) << record.code;
    for (bool optimise : {false, true}) {
        CopyRequest request;
        request.left = 8;
        request.top = 8;
        request.right = 40;
        request.bottom = 24;
        request.optimiseTables = optimise;
        DWORD size = 0;
        HGLOBAL copy = CopyJpegMcus(JpegSource::Memory(bytes.data(), bytes.size()), request, &size, &record);
        ASSERT_NE(copy, nullptr) << record.code;
        const std::vector<uint8_t> copied = testing_support::TakeBlock(copy);
        JpegInfo info;
        ASSERT_TRUE(ReadJpegInfo(JpegSource::Memory(copied.data(), size), 0, &info, &record));
        EXPECT_NE(info.flags & kHasResolution, 0u);
        EXPECT_EQ(std::tuple(info.width, info.densityUnit, info.xDensityNumerator, info.yDensityDenominator),
                  std::tuple(32u, 3, 1200u, 7u));
        EXPECT_TRUE(info.hasScale) << optimise;
        EXPECT_EQ(std::tuple(info.scaleUnit, info.yScaleNumerator, info.yScaleDenominator), std::tuple(5, 3u, 4u));
    }
}

TEST(JpegEncoderSegments, ColourStreamOrderAndContents) {
    TestDib dib = ColourImage(33, 17);
    JpegEncoderSettings settings;
    settings.writeJfif = true;
    settings.densityUnit = 1;
    settings.xDensity = 300;
    settings.yDensity = 200;
    settings.writeResolution = true;
    settings.resolution = {PrivateSegmentKind::Resolution, 2, 300, 1, 200, 1};
    settings.writeScale = true;
    settings.scale = {PrivateSegmentKind::Scale, 5, 1, 2, 1, 4};
    settings.sampling = ChromaSampling::H2V1;
    ErrorRecord record;
    std::vector<uint8_t> bytes = EncodeToBytes(dib, settings, &record);
    ASSERT_TRUE(record.ok()) << record.code;
    std::vector<JpegSegment> segments = JpegSegments(bytes);
    EXPECT_EQ(JpegMarkers(bytes),
              (std::vector<uint8_t>{0xD8, 0xE0, 0xFE, 0xE3, 0xE3, 0xDB, 0xC0, 0xC4, 0xC4, 0xC4, 0xC4, 0xDA, 0xD9}));
    ASSERT_EQ(segments.size(), 13u);
    EXPECT_EQ(std::string(segments[2].data.begin(), segments[2].data.end()), "Velmora");
    PrivateSegment parsed;
    ASSERT_TRUE(ParsePrivateSegment(segments[3].data.data(), segments[3].data.size(), &parsed));
    EXPECT_EQ(parsed.kind, PrivateSegmentKind::Resolution);
    EXPECT_EQ(parsed.xNumerator, 300u);
    ASSERT_TRUE(ParsePrivateSegment(segments[4].data.data(), segments[4].data.size(), &parsed));
    EXPECT_EQ(parsed.kind, PrivateSegmentKind::Scale);
    EXPECT_EQ(parsed.yDenominator, 4u);
    // (The frame, scan and table segments are read by libjpeg in the interop tests.)
}

// ---- Thumbnails -------------------------------------------------------------

struct ThumbnailCase {
    int32_t width, height;
    uint16_t bits;
    bool jfxx;
    uint32_t error;
};

class JpegEncoderThumbnails : public ::testing::TestWithParam<ThumbnailCase> {};

TEST_P(JpegEncoderThumbnails, SizeAndTypeLimits) {
    ThumbnailCase c = GetParam();
    TestDib thumbnail = MakeDib(c.width, c.height, c.bits);
    if (c.bits == 8) {
        for (uint32_t i = 0; i < 256; ++i) thumbnail.table()[i] = RGBQUAD{uint8_t(i), uint8_t(i), uint8_t(255 - i), 0};
    }
    TestDib dib = GreyImage(8, 8, 3);
    JpegEncoderSettings settings;
    settings.writeJfif = true;
    settings.thumbnail = thumbnail.header();
    settings.jfxxThumbnail = c.jfxx;
    ErrorRecord record;
    std::vector<uint8_t> bytes = EncodeToBytes(dib, settings, &record);
    EXPECT_EQ(record.code, c.error);
    EXPECT_EQ(bytes.empty(), c.error != 0);
}

INSTANTIATE_TEST_SUITE_P(Limits, JpegEncoderThumbnails,
                         ::testing::Values(ThumbnailCase{255, 85, 24, false, 0},   // 3 x 21675 + 14 = 65039
                                           ThumbnailCase{147, 148, 24, false, 0},  // 65283
                                           ThumbnailCase{148, 148, 24, false, kThumbnailTooLarge},  // 65726
                                           ThumbnailCase{256, 1, 24, false, kThumbnailTooLarge},
                                           ThumbnailCase{1, 256, 8, false, kThumbnailTooLarge},
                                           ThumbnailCase{255, 253, 8, false, 0},  // 64515 + 776 = 65291
                                           ThumbnailCase{255, 255, 8, false, kThumbnailTooLarge},  // 65801
                                           ThumbnailCase{400, 300, 24, true, 0},  // a JPEG has no pixel limit
                                           ThumbnailCase{16, 16, 8, true, kInvalidImageType},  // a colour palette
                                           ThumbnailCase{16, 16, 16, false, kInvalidImageType},
                                           ThumbnailCase{16, 16, 32, true, kInvalidImageType}));

TEST(JpegEncoderThumbnailLayout, RgbInsideJfifAndPaletteInJfxx) {
    TestDib dib = GreyImage(8, 8, 3);
    TestDib rgb = MakeDib(2, 2, 24);
    SetPixel(rgb.header(), rgb.bits(), 0, 0, 0x112233);  // red 0x11, green 0x22, blue 0x33
    SetPixel(rgb.header(), rgb.bits(), 1, 1, 0xAABBCC);
    JpegEncoderSettings settings;
    settings.writeJfif = true;
    settings.thumbnail = rgb.header();
    ErrorRecord record;
    std::vector<JpegSegment> segments = JpegSegments(EncodeToBytes(dib, settings, &record));
    ASSERT_TRUE(record.ok());
    ASSERT_EQ(segments[1].marker, 0xE0);
    EXPECT_EQ(segments[1].data, (std::vector<uint8_t>{'J', 'F',  'I',  'F',  0, 1, 2, 0, 0, 1, 0,    1,    2,
                                                      2,   0x11, 0x22, 0x33, 0, 0, 0, 0, 0, 0, 0xAA, 0xBB, 0xCC}));
    EXPECT_EQ(segments[2].marker, 0xFE);

    TestDib indexed = MakeDib(3, 2, 4, 2);
    indexed.table()[0] = RGBQUAD{1, 2, 3, 0};
    indexed.table()[1] = RGBQUAD{4, 5, 6, 0};
    SetPixel(indexed.header(), indexed.bits(), 1, 0, 1);
    SetPixel(indexed.header(), indexed.bits(), 2, 1, 1);
    settings.thumbnail = indexed.header();
    segments = JpegSegments(EncodeToBytes(dib, settings, &record));
    ASSERT_TRUE(record.ok());
    EXPECT_EQ(segments[2].marker, 0xE0);
    EXPECT_EQ(segments[1].data.size(), 14u);
    EXPECT_EQ(segments[1].data[12], 0);
    const std::vector<uint8_t>& jfxx = segments[2].data;
    ASSERT_EQ(jfxx.size(), 5u + 3 + 768 + 6);
    EXPECT_EQ(std::vector<uint8_t>(jfxx.begin(), jfxx.begin() + 14),
              (std::vector<uint8_t>{'J', 'F', 'X', 'X', 0, 0x11, 3, 2, 3, 2, 1, 6, 5, 4}));
    EXPECT_EQ(jfxx[14], 0);  // entries beyond the table are zero
    EXPECT_EQ(std::vector<uint8_t>(jfxx.end() - 6, jfxx.end()), (std::vector<uint8_t>{0, 1, 0, 0, 0, 1}));
}

// ---- Lossless ---------------------------------------------------------------

// The library's decoder (checked against T.81 by hand in its own tests) gives
// back every sample: grey exactly, colour as the encoder's YCbCr (read without
// the colour transform).
std::vector<uint8_t> DecodeLossless(const std::vector<uint8_t>& bytes, uint32_t width, uint32_t height,
                                    uint32_t channels) {
    std::vector<uint8_t> pixels(size_t{width} * height * channels);
    JpegDecoder decoder;
    JpegDecodeOptions options;
    options.output = JpegOutput{pixels.data(), static_cast<ptrdiff_t>(width * channels), width, height};
    options.color = ColorOverride::Rgb;
    ErrorRecord record;
    EXPECT_TRUE(decoder.Decode(JpegSource::Memory(bytes.data(), bytes.size()), options, &record)) << record.code;
    return pixels;
}

TEST(JpegEncoderLossless, GreyComesBackExactlyAndColourAsItsYCbCr) {
    for (int32_t width : {1, 13, 64}) {
        TestDib grey = GreyImage(width, 7, width);
        // Large steps reach the longest categories.
        SetPixel(grey.header(), grey.bits(), 0, 1, 255);
        SetPixel(grey.header(), grey.bits(), 0, 2, 0);
        JpegEncoderSettings settings;
        settings.process = JpegProcess::Lossless;
        ErrorRecord record;
        std::vector<uint8_t> bytes = EncodeToBytes(grey, settings, &record);
        ASSERT_TRUE(record.ok());
        EXPECT_EQ(JpegMarkers((bytes)), (std::vector<uint8_t>{0xD8, 0xFE, 0xC3, 0xC4, 0xDA, 0xD9}));
        const uint32_t w = static_cast<uint32_t>(width);
        std::vector<uint8_t> pixels = DecodeLossless(bytes, w, 7, 1);
        DibRows rows = RowsFromTop(grey.header(), grey.bits());
        for (uint32_t y = 0; y < 7; ++y) {
            ASSERT_EQ(0, std::memcmp(pixels.data() + y * w, rows.top + rows.stride * y, w)) << width << " " << y;
        }
    }
    TestDib colour = ColourImage(19, 6);
    JpegEncoderSettings settings;
    settings.process = JpegProcess::Lossless;
    settings.sampling = ChromaSampling::H2V2;  // lossless frames stay 1x1
    ErrorRecord record;
    std::vector<uint8_t> bytes = EncodeToBytes(colour, settings, &record);
    ASSERT_TRUE(record.ok());
    std::vector<uint8_t> pixels = DecodeLossless(bytes, 19, 6, 3);
    DibRows rows = RowsFromTop(colour.header(), colour.bits());
    for (uint32_t y = 0; y < 6; ++y) {
        uint8_t yy[19], cb[19], cr[19];
        ConvertToYCbCr(rows.top + rows.stride * y, false, 19, yy, cb, cr);
        for (uint32_t x = 0; x < 19; ++x) {
            const uint8_t* p = pixels.data() + (y * 19 + x) * 3;
            ASSERT_EQ(p[2], yy[x]) << x << "," << y;
            ASSERT_EQ(p[1], cb[x]) << x << "," << y;
            ASSERT_EQ(p[0], cr[x]) << x << "," << y;
        }
    }
}

// ---- Failures ---------------------------------------------------------------

TEST(JpegEncoderFailures, RefusedInputsAndStreamErrors) {
    ErrorRecord record;
    JpegEncoderSettings settings;
    uint8_t pixels[64] = {};
    JpegRows rows;
    rows.top = pixels;
    rows.stride = 8;
    rows.width = 8;
    rows.height = 8;
    rows.planarConfiguration = 2;
    Stream* stream = OpenMemoryStream(true, &record);
    EXPECT_FALSE(EncodeJpegRows(rows, settings, stream, nullptr, &record));
    EXPECT_EQ(record.code, 0x02000005u);
    ErrorRecord sizeRecord;
    EXPECT_EQ(StreamSize(stream, &sizeRecord), 0u);  // nothing written

    // Too wide for a frame header.
    record = ErrorRecord();
    rows.planarConfiguration = 1;
    rows.width = 65536;
    rows.stride = 0;
    EXPECT_FALSE(EncodeJpegRows(rows, settings, stream, nullptr, &record));
    EXPECT_EQ(record.code, 0x02000005u);

    TestDib wide = MakeDib(4, 4, 16);
    record = ErrorRecord();
    EXPECT_FALSE(EncodeJpegDib(wide.header(), nullptr, settings, stream, nullptr, &record));
    EXPECT_EQ(record.code, kInvalidImageType);
    CloseStream(stream, nullptr);

    // A read-only stream refuses the first write; that error ends the encode.
    TestDib dib = ColourImage(40, 40);
    record = ErrorRecord();
    Stream* readOnly = OpenFixedMemoryStream(pixels, sizeof pixels, &record);
    EXPECT_FALSE(EncodeJpegDib(dib.header(), dib.bits(), settings, readOnly, nullptr, &record));
    EXPECT_EQ(record.code, 5u);
    CloseStream(readOnly, nullptr);
}

BOOL VELMORA_CALLBACK CancelAtOnce(DWORD percent, UINT_PTR user) {
    *reinterpret_cast<uint32_t*>(user) = percent;
    return 0;
}

TEST(JpegEncoderFailures, CancelledProgressEndsTheEncode) {
    TestDib dib = ColourImage(40, 64);
    JpegEncoderSettings settings;
    settings.optimiseHuffman = true;
    uint32_t reported = 12345;
    ErrorRecord record;
    ProgressReporter progress(CancelAtOnce, reinterpret_cast<UINT_PTR>(&reported));
    // The reporter calls the host once 50 ms have passed since it was made.
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_TRUE(EncodeToBytes(dib, settings, &record, &progress).empty());
    EXPECT_EQ(record.code, 1223u);
    EXPECT_EQ(reported, 0u);  // after the first of 16 MCU rows (two passes of 8)
}

}  // namespace
}  // namespace velmora::jpeg
