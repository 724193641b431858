// The byte codecs against their peers: zlib streams of every level and
// strategy made here, and TIFF strips written by libtiff's tiffcp, whose
// decoding by libtiff itself is the expected result.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tiffio.h>
#include <zlib.h>

#include "../unit/byte_codec_harness.h"
#include "codecs/byte_decoders.h"
#include "support/peers.h"

namespace velmora {
namespace {

using Bytes = std::vector<uint8_t>;
namespace fs = std::filesystem;

// ---- Data --------------------------------------------------------------------
// Rows that look like a scanned page: a paper gradient, dark strokes and
// blocks, sensor noise.
Bytes PageLike(uint32_t width, uint32_t rows, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes data(size_t{width} * rows);
    for (uint32_t y = 0; y < rows; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            int v = 235 - static_cast<int>((x + y) % 512) / 32;
            if ((x / 7 + y / 11) % 13 == 0 && (y % 40) < 28) v = 20 + static_cast<int>(random() % 30);
            if (random() % 50 == 0) v += static_cast<int>(random() % 21) - 10;
            data[size_t{y} * width + x] = static_cast<uint8_t>(std::clamp(v, 0, 255));
        }
    }
    return data;
}

Bytes Noise(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes data(size);
    for (auto& b : data) b = static_cast<uint8_t>(random());
    return data;
}

// ---- zlib streams --------------------------------------------------------------
Bytes Compress(const Bytes& data, int level, int strategy, int windowBits, int memLevel, size_t flushEvery = 0) {
    z_stream z{};
    EXPECT_EQ(deflateInit2(&z, level, Z_DEFLATED, windowBits, memLevel, strategy), Z_OK);
    Bytes out(deflateBound(&z, data.size()) + 1024 + (flushEvery ? data.size() / flushEvery * 16 : 0));
    z.next_out = out.data();
    z.avail_out = static_cast<uInt>(out.size());
    size_t at = 0;
    int result;
    do {
        size_t piece = flushEvery ? std::min(flushEvery, data.size() - at) : data.size() - at;
        z.next_in = const_cast<Bytes::value_type*>(data.data() + at);
        z.avail_in = static_cast<uInt>(piece);
        at += piece;
        result = deflate(&z, at == data.size() ? Z_FINISH : Z_SYNC_FLUSH);
    } while (at < data.size());
    EXPECT_EQ(result, Z_STREAM_END);
    out.resize(z.total_out);
    deflateEnd(&z);
    return out;
}

// Rows apart (bottom-up) are decoded through the window, rows that touch in
// place.
testing::DecodedPage InflateRows(const Bytes& stream, uint32_t width, uint32_t rows,
                                 testing::RowLayout layout = testing::RowLayout::kBottomUp) {
    auto decoder = CreateDeflateDecoder();
    return testing::DecodePage(*decoder, testing::BytePage(8, width, rows, rows), {stream}, nullptr, layout);
}

TEST(DeflateInterop, EveryLevelStrategyAndWindowOfZlib) {
    const uint32_t width = 640, rows = 160;
    const std::vector<Bytes> inputs = {PageLike(width, rows, 1), Noise(width * rows, 2), Bytes(width * rows, 0)};
    const int strategies[] = {Z_DEFAULT_STRATEGY, Z_FILTERED, Z_HUFFMAN_ONLY, Z_RLE, Z_FIXED};
    for (size_t input = 0; input < inputs.size(); ++input) {
        for (int level = 0; level <= 9; ++level) {
            for (int strategy : strategies) {
                for (int windowBits : {9, 12, 15}) {
                    SCOPED_TRACE(::testing::Message() << "input " << input << " level " << level << " strategy "
                                                      << strategy << " window " << windowBits);
                    Bytes stream = Compress(inputs[input], level, strategy, windowBits, windowBits == 12 ? 1 : 8);
                    for (auto layout : {testing::RowLayout::kBottomUp, testing::RowLayout::kTouching}) {
                        auto result = InflateRows(stream, width, rows, layout);
                        ASSERT_TRUE(result.ok) << result.record.code;
                        ASSERT_EQ(result.rows, inputs[input]);
                    }
                }
            }
        }
    }
}

TEST(DeflateInterop, FlushedStreamsAndLongStoredData) {
    const uint32_t width = 1000, rows = 300;
    Bytes data = PageLike(width, rows, 3);
    for (size_t flush : {1, 777, 65536}) {
        auto result = InflateRows(Compress(data, 6, Z_DEFAULT_STRATEGY, 15, 8, flush), width, rows);
        ASSERT_TRUE(result.ok) << flush;
        EXPECT_EQ(result.rows, data);
    }
    Bytes noise = Noise(size_t{width} * rows, 4);
    auto stored = InflateRows(Compress(noise, 0, Z_DEFAULT_STRATEGY, 15, 8), width, rows);
    ASSERT_TRUE(stored.ok);
    EXPECT_EQ(stored.rows, noise);
}

TEST(DeflateInterop, DamagedStreamsAgreeWithZlibWhereZlibSucceeds) {
    // Any stream zlib accepts is valid here too and decodes to the same
    // bytes; every other one gives Bad file data, never a crash, and one cut
    // short always does. Decoding in
    // place reaches the same verdict as decoding through the window.
    const uint32_t width = 200, rows = 50;
    Bytes data = PageLike(width, rows, 5);
    std::mt19937 random(6);
    for (int level : {1, 6, 9}) {
        for (int strategy : {Z_DEFAULT_STRATEGY, Z_FIXED, Z_HUFFMAN_ONLY}) {
            Bytes stream = Compress(data, level, strategy, 15, 8);
            for (int trial = 0; trial < 300; ++trial) {
                Bytes damaged = stream;
                if (trial % 3 == 0) {
                    damaged.resize(random() % damaged.size());
                } else {
                    for (int n = 1 + trial % 3; n > 0; --n) damaged[random() % damaged.size()] ^= 1 << (random() % 8);
                }
                Bytes expected(data.size() + 1);
                uLongf length = expected.size();
                bool zlibOk = uncompress(expected.data(), &length, damaged.data(), damaged.size()) == Z_OK &&
                              length == data.size();
                auto result = InflateRows(damaged, width, rows);
                auto inPlace = InflateRows(damaged, width, rows, testing::RowLayout::kTouching);
                ASSERT_TRUE(result.guardsIntact);
                ASSERT_TRUE(inPlace.guardsIntact);
                ASSERT_EQ(inPlace.ok, result.ok);
                if (trial % 3 == 0) {  // a stream cut short is never complete
                    ASSERT_FALSE(result.ok);
                    ASSERT_EQ(result.record.code, kErrBadFileData);
                }
                ASSERT_EQ(inPlace.record.code, result.record.code);
                if (result.ok) {
                    ASSERT_EQ(inPlace.rows, result.rows);
                }
                if (zlibOk) {
                    ASSERT_TRUE(result.ok);
                    expected.resize(length);
                    ASSERT_EQ(result.rows, expected);
                } else if (!result.ok) {
                    ASSERT_EQ(result.record.code, kErrBadFileData);
                }
            }
        }
    }
}

// ---- TIFF strips written by tiffcp --------------------------------------------
bool HavePeers() {
    return fs::exists("/usr/bin/tiffcp") && fs::exists(VELMORA_PYTHON) &&
           velmora::peers::Run(std::string(VELMORA_PYTHON) + " -c 'import PIL, numpy'");
}

// Grey 8 and 16 bits, RGB and RGBA pages with text, gradients and noise,
// uncompressed, made by Pillow.
const char kMakeImages[] = R"(
import sys
import numpy as np
from PIL import Image, ImageDraw
w, h = 517, 300
rng = np.random.default_rng(7)
base = Image.new('L', (w, h), 240)
d = ImageDraw.Draw(base)
for i in range(12):
    d.text((10 + (i % 3) * 170, 10 + i * 24), 'Velmora byte codecs %d: the quick brown fox' % i, fill=20)
d.rectangle((300, 200, 480, 280), fill=90)
grey = np.asarray(base, dtype=np.int32)
grey = grey - (np.arange(w)[None, :] // 16) + rng.integers(-3, 4, size=(h, w))
grey = np.clip(grey, 0, 255).astype(np.uint8)
out = sys.argv[1]
Image.fromarray(grey).save(out + '/grey8.tif')
Image.fromarray((grey.astype(np.uint16) * 257 + rng.integers(0, 3, size=(h, w)).astype(np.uint16))).save(out + '/grey16.tif')
rgb = np.stack([grey, np.roll(grey, 5, axis=1), 255 - grey], axis=2)
Image.fromarray(rgb, 'RGB').save(out + '/rgb.tif')
rgba = np.concatenate([rgb, np.full((h, w, 1), 200, np.uint8)], axis=2)
Image.fromarray(rgba, 'RGBA').save(out + '/rgba.tif')
)";

struct StripCheck {
    int strips = 0;
    int failures = 0;
    uint32_t beginError = 0;
};

// Decodes every strip's raw bytes with our decoder and compares them with
// libtiff's decoding of the same strip.
StripCheck CompareStrips(const fs::path& file) {
    StripCheck check;
    TIFF* tif = TIFFOpen(file.c_str(), "r");
    if (tif == nullptr) {
        ADD_FAILURE() << "libtiff cannot open " << file;
        return check;
    }
    uint32_t width = 0, length = 0, rowsPerStrip = 0;
    uint16_t bits = 1, samples = 1, compression = 1, predictor = 1, fillOrder = 1;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &length);
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
    TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetField(tif, TIFFTAG_COMPRESSION, &compression);
    if (compression != COMPRESSION_PACKBITS) TIFFGetFieldDefaulted(tif, TIFFTAG_PREDICTOR, &predictor);
    TIFFGetFieldDefaulted(tif, TIFFTAG_FILLORDER, &fillOrder);
    uint64_t* byteCounts = nullptr;
    TIFFGetField(tif, TIFFTAG_STRIPBYTECOUNTS, &byteCounts);

    CodecPage page = testing::BytePage(compression, width, length, rowsPerStrip, samples, predictor);
    page.bitsPerSample = bits;
    page.fillOrder = fillOrder;
    page.stripCount = TIFFNumberOfStrips(tif);
    std::unique_ptr<StripDecoder> decoder = compression == COMPRESSION_LZW        ? CreateLzwDecoder()
                                            : compression == COMPRESSION_PACKBITS ? CreatePackBitsDecoder()
                                                                                  : CreateDeflateDecoder();
    ErrorRecord record;
    if (!decoder->Begin(page, &record)) {
        check.beginError = record.code;
        TIFFClose(tif);
        return check;
    }
    const size_t rowBytes = static_cast<size_t>(StoredRowBytes(width, bits, samples));
    for (uint32_t s = 0; s < page.stripCount; ++s) {
        Bytes raw(static_cast<size_t>(byteCounts[s]));
        if (TIFFReadRawStrip(tif, s, raw.data(), static_cast<tmsize_t>(raw.size())) < 0) ADD_FAILURE();
        Bytes expected(static_cast<size_t>(TIFFStripSize(tif)));
        tmsize_t got = TIFFReadEncodedStrip(tif, s, expected.data(), -1);
        expected.resize(got < 0 ? 0 : static_cast<size_t>(got));
        uint32_t rows = std::min(rowsPerStrip, length - s * rowsPerStrip);
        Bytes ours(rows * rowBytes, testing::kGuard);
        CodecStrip strip;
        strip.data = raw.data();
        strip.size = raw.size();
        strip.index = s;
        strip.firstRow = s * rowsPerStrip;
        strip.rows = rows;
        strip.topRow = ours.data();
        strip.stride = static_cast<ptrdiff_t>(rowBytes);
        ++check.strips;
        if (!decoder->Decode(strip, &record) || ours != expected) {
            ++check.failures;
            ADD_FAILURE() << file << " strip " << s << " status " << record.code;
            record = ErrorRecord();
        }
    }
    decoder->End();
    TIFFClose(tif);
    return check;
}

TEST(TiffStripInterop, TiffcpCompressionsDecodeAsLibtiffDoes) {
    REQUIRE_PEER(HavePeers(), "tiffcp or Pillow");
    const velmora::peers::TempDir dir("velmora-bytecodecs");
    const std::string script = dir.Path("make.py");
    ASSERT_TRUE(velmora::peers::WriteFile(script, Bytes(std::begin(kMakeImages), std::end(kMakeImages) - 1)));
    ASSERT_TRUE(velmora::peers::Run(std::string(VELMORA_PYTHON) + " " + script + " " + dir.path()));
    TIFFSetWarningHandler(nullptr);

    struct Variant {
        const char* options;
        const char* name;
    };
    const Variant variants[] = {
        {"-c lzw -r 16", "lzw"},
        {"-c lzw:2 -r 7", "lzw2"},
        {"-c zip -r 16", "zip"},
        {"-c zip:2 -r 300", "zip2"},
        {"-c packbits -r 5", "packbits"},
        {"-c lzw -r 300", "lzw1strip"},
        {"-c lzw:2 -f lsb2msb -r 32", "lzwlsb"},
        {"-c zip:2:p9 -r 64", "zip9"},
    };
    for (const char* image : {"grey8", "grey16", "rgb", "rgba"}) {
        for (const Variant& v : variants) {
            SCOPED_TRACE(std::string(image) + " " + v.name);
            fs::path in = dir.Path(std::string(image) + ".tif");
            fs::path out = dir.Path(std::string(image) + "-" + v.name + ".tif");
            ASSERT_TRUE(
                velmora::peers::Run(std::string("/usr/bin/tiffcp ") + v.options + " " + in.string() + " " + out.string()));
            StripCheck check = CompareStrips(out);
            bool predicted16 = std::string(image) == "grey16" && std::string(v.options).find(":2") != std::string::npos;
            if (predicted16) {
                // Predictor 2 is undone for 8-bit samples only.
                EXPECT_EQ(check.beginError, kErrUnsupportedImageType);
            } else {
                EXPECT_EQ(check.beginError, 0u);
                EXPECT_GT(check.strips, 0);
                EXPECT_EQ(check.failures, 0);
            }
        }
    }
}

}  // namespace
}  // namespace velmora
