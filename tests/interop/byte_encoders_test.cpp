// The LZW, PackBits and Deflate encoders against libtiff: strips of text-like rows,
// noise, long uniform stretches (the LZW table fills and is cleared), data
// whose compressibility drops part-way (the ratio check clears the table),
// and RGB rows coded with red and blue exchanged go into TIFF files that
// libtiff decodes strip by strip to exactly the bytes coded.
#include <tiffio.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "codecs/byte_encoders.h"
#include "support/memory_stream.h"
#include "support/peers.h"

namespace {

std::vector<uint8_t> Encode(uint16_t compression, const velmora::EncoderStrip& job, uint32_t* error) {
    velmora::ErrorRecord record;
    velmora::EncoderStrip strip = job;
    strip.out = velmora::OpenMemoryStream(false, &record);
    uint64_t written = compression == COMPRESSION_LZW        ? velmora::EncodeLzwStrip(strip, &record)
                       : compression == COMPRESSION_PACKBITS ? velmora::EncodePackBitsStrip(strip, &record)
                                                             : velmora::EncodeDeflateStrip(strip, &record);
    std::vector<uint8_t> bytes = velmora::testing_support::CloseAndTake(strip.out, &record);
    EXPECT_EQ(written, bytes.size());
    *error = record.code;
    return bytes;
}

struct Image {
    const char* name;
    uint32_t width, height;
    uint16_t samples;
    std::vector<uint8_t> bytes;
};

std::vector<Image> MakeImages() {
    std::mt19937 random(5);
    std::vector<Image> images;
    Image text{"text", 1000, 64, 1, {}};  // grey strokes on white
    text.bytes.assign(1000 * 64, 255);
    for (int i = 0; i < 900; ++i) {
        uint32_t x = random() % 990, y = random() % 60;
        for (uint32_t d = 0; d < 8; ++d) text.bytes[(y + d % 4) * 1000 + x + d] = static_cast<uint8_t>(random() % 90);
    }
    images.push_back(text);
    Image noise{"noise", 517, 40, 1, {}};
    for (uint32_t i = 0; i < 517 * 40; ++i) noise.bytes.push_back(static_cast<uint8_t>(random()));
    images.push_back(noise);
    Image uniform{"uniform", 4000, 300, 1, std::vector<uint8_t>(4000 * 300, 7)};
    for (uint32_t i = 0; i < uniform.bytes.size(); i += 997) uniform.bytes[i] = static_cast<uint8_t>(i / 997);
    images.push_back(uniform);
    Image turning{"compressible then noise", 2000, 100, 1, {}};
    for (uint32_t i = 0; i < 2000 * 100; ++i) {
        turning.bytes.push_back(i < 2000 * 30 ? static_cast<uint8_t>((i / 50) % 3) : static_cast<uint8_t>(random()));
    }
    images.push_back(turning);
    Image rgb{"rgb", 301, 30, 3, {}};
    for (uint32_t y = 0; y < 30; ++y)
        for (uint32_t x = 0; x < 301 * 3; ++x) rgb.bytes.push_back(static_cast<uint8_t>(x % 3 == 0 ? y * 8 : x / 3));
    images.push_back(rgb);
    Image tiny{"one byte", 1, 1, 1, {42}};
    images.push_back(tiny);
    return images;
}

TEST(ByteEncoders, StripsDecodeInLibtiffToTheCodedBytes) {
    const velmora::peers::TempDir directory("velmora-byte-encoders");
    const std::string path = directory.Path("strips.tif");
    for (uint16_t compression : {COMPRESSION_LZW, COMPRESSION_PACKBITS, COMPRESSION_ADOBE_DEFLATE}) {
        for (const Image& image : MakeImages()) {
            for (uint32_t rowsPerStrip : {image.height, 7u}) {
                SCOPED_TRACE(testing::Message() << image.name << " compression " << compression << " rows/strip "
                                                << rowsPerStrip);
                const uint32_t rowBytes = image.width * image.samples;
                const uint32_t strips = (image.height + rowsPerStrip - 1) / rowsPerStrip;
                TIFF* tif = TIFFOpen(path.c_str(), "w");
                ASSERT_NE(tif, nullptr);
                TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, image.width);
                TIFFSetField(tif, TIFFTAG_IMAGELENGTH, image.height);
                TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
                TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, image.samples);
                TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, image.samples == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
                TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
                TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
                TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);
                for (uint32_t s = 0; s < strips; ++s) {
                    velmora::EncoderStrip strip;
                    strip.topRow = image.bytes.data() + size_t{s} * rowsPerStrip * rowBytes;
                    strip.stride = rowBytes;
                    strip.rows = std::min(rowsPerStrip, image.height - s * rowsPerStrip);
                    strip.rowBytes = rowBytes;
                    strip.swapRgb = image.samples == 3;
                    uint32_t error = 0;
                    std::vector<uint8_t> raw = Encode(compression, strip, &error);
                    ASSERT_EQ(error, 0u);
                    ASSERT_EQ(TIFFWriteRawStrip(tif, s, raw.data(), raw.size()), static_cast<tmsize_t>(raw.size()));
                }
                TIFFClose(tif);

                std::vector<uint8_t> expected = image.bytes;
                if (image.samples == 3) {
                    for (size_t i = 0; i + 2 < expected.size(); i += 3) std::swap(expected[i], expected[i + 2]);
                }
                std::vector<uint8_t> decoded(expected.size());
                tif = TIFFOpen(path.c_str(), "r");
                ASSERT_NE(tif, nullptr);
                for (uint32_t s = 0; s < strips; ++s) {
                    size_t offset = size_t{s} * rowsPerStrip * rowBytes;
                    ASSERT_GE(TIFFReadEncodedStrip(tif, s, decoded.data() + offset, decoded.size() - offset), 0);
                }
                TIFFClose(tif);
                EXPECT_TRUE(decoded == expected);
            }
        }
    }
}

// Two codings that readers of this library's files have always seen.
TEST(ByteEncoders, KnownCodings) {
    std::vector<uint8_t> same(300, 0x5A);
    velmora::EncoderStrip strip;
    strip.topRow = same.data();
    strip.rows = 1;
    strip.rowBytes = 300;
    uint32_t error = 0;
    EXPECT_EQ(Encode(COMPRESSION_PACKBITS, strip, &error),
              (std::vector<uint8_t>{0x81, 0x5A, 0x81, 0x5A, 0xD5, 0x5A}));
    // Clear, the byte and EndOfInformation, nine bits each: 100000000 001000010 100000001.
    uint8_t one = 0x42;
    strip.topRow = &one;
    strip.rowBytes = 1;
    EXPECT_EQ(Encode(COMPRESSION_LZW, strip, &error), (std::vector<uint8_t>{0x80, 0x10, 0xA0, 0x20}));
    // 254 bytes with no pair repeated make 253 strings, so the table holds
    // 2^9 - 1 codes after the last byte's code: EndOfInformation is ten bits
    // wide (255 x 9 + 10 bits in 289 bytes), as a reader that reads it expects.
    std::vector<uint8_t> ramp(254);
    for (int i = 0; i < 254; ++i) ramp[i] = static_cast<uint8_t>(i);
    strip.topRow = ramp.data();
    strip.rowBytes = 254;
    EXPECT_EQ(Encode(COMPRESSION_LZW, strip, &error).size(), 289u);
    // A two-byte run after a literal joins it: 1 2 2 3 is one literal group.
    std::vector<uint8_t> merged{1, 2, 2, 3};
    strip.topRow = merged.data();
    strip.rowBytes = 4;
    EXPECT_EQ(Encode(COMPRESSION_PACKBITS, strip, &error), (std::vector<uint8_t>{3, 1, 2, 2, 3}));
    // After 126 literals a two-byte run stays a run, and a run of 129 leaves
    // its last byte to the literal group that follows.
    std::vector<uint8_t> edges(126);
    for (int i = 0; i < 126; ++i) edges[i] = static_cast<uint8_t>(i);
    std::vector<uint8_t> expected{125};
    expected.insert(expected.end(), edges.begin(), edges.end());
    edges.insert(edges.end(), {200, 200});
    edges.insert(edges.end(), 129, 7);
    edges.push_back(9);
    expected.insert(expected.end(), {0xFF, 200, 0x81, 7, 1, 7, 9});
    strip.topRow = edges.data();
    strip.rowBytes = static_cast<uint32_t>(edges.size());
    EXPECT_EQ(Encode(COMPRESSION_PACKBITS, strip, &error), expected);
}

}  // namespace
