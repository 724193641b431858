// The Deflate decoder against zlib: streams of every level, strategy and
// window made here, flushed ones, and damaged ones. (TIFF strips of every
// byte coding that libtiff writes are decoded in the TIFF corpus.)
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include "../unit/byte_codec_harness.h"
#include "codecs/byte_decoders.h"

namespace velmora {
namespace {

using Bytes = std::vector<uint8_t>;

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

}  // namespace
}  // namespace velmora
