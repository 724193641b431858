// Deflate strips on hand-made zlib streams: stored and fixed-code blocks, the
// header and trailer checks, the window between strips, and damaged streams.
// (Streams of every kind that zlib makes are compared in the interop tests.)
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "byte_codec_harness.h"
#include "codecs/adler32.h"
#include "codecs/byte_decoders.h"

namespace velmora {
namespace {

using testing::BytePage;
using testing::DecodePage;
using Bytes = std::vector<uint8_t>;

// Writes a zlib stream bit by bit, least significant bit first.
class ZlibWriter {
public:
    explicit ZlibWriter(uint8_t cmf = 0x78) {
        bytes_.push_back(cmf);
        uint8_t flg = 0;
        while ((cmf * 256u + flg) % 31 != 0) ++flg;
        bytes_.push_back(flg);
    }
    void Bits(uint32_t value, unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            if (bit_ == 0) bytes_.push_back(0);
            if ((value >> i) & 1) bytes_.back() |= 1 << bit_;
            bit_ = (bit_ + 1) & 7;
        }
    }
    // A Huffman code goes most significant bit first.
    void Code(uint32_t code, unsigned length) {
        for (unsigned i = length; i-- > 0;) Bits((code >> i) & 1, 1);
    }
    void FixedLiteral(unsigned symbol) {
        if (symbol < 144)
            Code(0x30 + symbol, 8);
        else if (symbol < 256)
            Code(0x190 + symbol - 144, 9);
        else if (symbol < 280)
            Code(symbol - 256, 7);
        else
            Code(0xC0 + symbol - 280, 8);
    }
    // A length/distance pair in the fixed code (RFC 1951 sections 3.2.5, 3.2.6).
    void FixedMatch(unsigned length, unsigned distance) {
        static const unsigned kLengthBase[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                                 31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
        unsigned code = 28;
        while (kLengthBase[code] > length) --code;
        FixedLiteral(257 + code);
        Bits(length - kLengthBase[code], code == 28 ? 0 : code < 8 ? 0 : (code - 4) / 4);
        unsigned dcode = 0, base = 1;
        for (unsigned next = 1; dcode < 29; ++dcode, base = next) {
            unsigned extra = dcode < 4 ? 0 : (dcode - 2) / 2;
            next = base + (1u << extra);
            if (distance < next) break;
        }
        Code(dcode, 5);
        Bits(distance - base, dcode < 4 ? 0 : (dcode - 2) / 2);
    }
    void Stored(const Bytes& data, bool final, uint16_t complementXor = 0) {
        Bits(final, 1);
        Bits(0, 2);
        bit_ = 0;
        uint16_t length = static_cast<uint16_t>(data.size());
        uint16_t complement = static_cast<uint16_t>(~length ^ complementXor);
        for (uint8_t b : {length & 0xFF, length >> 8, complement & 0xFF, complement >> 8}) bytes_.push_back(b);
        bytes_.insert(bytes_.end(), data.begin(), data.end());
    }
    Bytes Finish(uint32_t adler) {
        bit_ = 0;
        for (int shift = 24; shift >= 0; shift -= 8) bytes_.push_back(static_cast<uint8_t>(adler >> shift));
        return bytes_;
    }

private:
    Bytes bytes_;
    unsigned bit_ = 0;
};

uint32_t Adler(const Bytes& data) { return Adler32Update(1, data.data(), data.size()); }

testing::DecodedPage Inflate(const CodecPage& page, const std::vector<Bytes>& strips) {
    auto decoder = CreateDeflateDecoder();
    return DecodePage(*decoder, page, strips);
}

TEST(Adler32, KnownValues) {
    std::string text = "Wikipedia";
    EXPECT_EQ(Adler32Update(1, reinterpret_cast<const uint8_t*>(text.data()), text.size()), 0x11E60398u);
    // Long runs of 0xFF stress the deferred reduction.
    Bytes ff(1 << 20, 0xFF);
    uint32_t whole = Adler32Update(1, ff.data(), ff.size());
    uint32_t a = 1, b = 0;
    for (uint8_t x : ff) {
        a = (a + x) % 65521;
        b = (b + a) % 65521;
    }
    EXPECT_EQ(whole, (b << 16) | a);

    // Every length up to a few wide steps, from every alignment, and runs
    // longer than one reduction, against the plain definition: the vector
    // steps and the bytes left over after them must join up.
    std::mt19937 random(3);
    Bytes data(20000);
    for (uint8_t& x : data) x = random() % 4 == 0 ? 0xFF : static_cast<uint8_t>(random());
    for (size_t length : {size_t{0}, size_t{300}, size_t{5551}, size_t{5553}, size_t{19990}}) {
        for (size_t offset = 0; offset < 8; ++offset) {
            for (size_t n = length; n < length + (length < 300 ? 300 : 3); ++n) {
                uint32_t a = 0xFFF0, b = 0xFFF0;  // large starting sums, as deep into a stream
                for (size_t i = 0; i < n; ++i) {
                    a = (a + data[offset + i]) % 65521;
                    b = (b + a) % 65521;
                }
                ASSERT_EQ(Adler32Update(0xFFF0FFF0u, data.data() + offset, n), (b << 16) | a) << n << " " << offset;
            }
        }
    }
}

TEST(DeflateDecoder, StoredBlocksOfManyLengths) {
    // Blocks of 0 to 65535 bytes across rows of 1000 bytes.
    Bytes data;
    ZlibWriter writer;
    for (size_t length : {0, 1, 999, 1000, 1001, 4096, 65535, 7}) {
        Bytes block(length);
        for (size_t i = 0; i < length; ++i) block[i] = static_cast<uint8_t>(i * 7 + length);
        writer.Stored(block, false);
        data.insert(data.end(), block.begin(), block.end());
    }
    writer.Stored({}, true);  // an empty final block ends the stream
    uint32_t rows = static_cast<uint32_t>(data.size() / 1000);
    data.resize(rows * 1000);
    auto result = Inflate(BytePage(8, 1000, rows, rows), {writer.Finish(Adler(Bytes(data.begin(), data.end())))});
    // The trailer covers all output, including the bytes past the last row.
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.rows, data);
}

TEST(DeflateDecoder, TrailerAndStoredLengthChecks) {
    Bytes data(300);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i);
    CodecPage page = BytePage(8, 100, 3, 3);
    {
        ZlibWriter writer;
        writer.Stored(data, true);
        auto good = Inflate(page, {writer.Finish(Adler(data))});
        EXPECT_TRUE(good.ok);
        EXPECT_EQ(good.rows, data);
    }
    {
        // A wrong checksum fails after every row has been written.
        ZlibWriter writer;
        writer.Stored(data, true);
        auto bad = Inflate(page, {writer.Finish(Adler(data) ^ 1)});
        EXPECT_FALSE(bad.ok);
        EXPECT_EQ(bad.record.code, kErrBadFileData);
        EXPECT_EQ(bad.rows, data);
    }
    {
        ZlibWriter writer;
        writer.Stored(data, true, 0x0100);
        EXPECT_EQ(Inflate(page, {writer.Finish(Adler(data))}).record.code, kErrBadFileData);
    }
}

TEST(DeflateDecoder, HeaderChecks) {
    Bytes data(10, 'q');
    auto stream = [&](uint8_t cmf) {
        ZlibWriter writer(cmf);
        writer.Stored(data, true);
        return writer.Finish(Adler(data));
    };
    CodecPage page = BytePage(8, 10, 1, 1);
    EXPECT_TRUE(Inflate(page, {stream(0x08)}).ok);   // a 256-byte window
    EXPECT_TRUE(Inflate(page, {stream(0x78)}).ok);   // 32 KiB
    EXPECT_FALSE(Inflate(page, {stream(0x88)}).ok);  // 64 KiB does not exist
    EXPECT_FALSE(Inflate(page, {stream(0x79)}).ok);  // not Deflate
    Bytes wrongCheck = stream(0x78);
    wrongCheck[1] ^= 1;
    EXPECT_FALSE(Inflate(page, {wrongCheck}).ok);
    Bytes dictionary = stream(0x78);
    dictionary[1] = 0x20;
    while ((0x78 * 256u + dictionary[1]) % 31 != 0) ++dictionary[1];
    auto result = Inflate(page, {dictionary});
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.record.code, kErrBadFileData);
    EXPECT_FALSE(Inflate(page, {Bytes{0x78}}).ok);
    EXPECT_FALSE(Inflate(page, {Bytes{}}).ok);
}

TEST(DeflateDecoder, FixedCodesOverlappingCopiesAndTheWindowBetweenStrips) {
    // Strip 1: 'A' then a copy of 258 at distance 1 and of 41 at distance 1.
    // Strip 2: 'B' then a copy of 10 at distance 20, before the strip's
    // start, where the window holds zeros whatever strip 1 left in it.
    const uint32_t width = 300;
    ZlibWriter first;
    first.Bits(1, 1);
    first.Bits(1, 2);
    first.FixedLiteral('A');
    first.FixedLiteral(285);  // length 258
    first.Code(0, 5);         // distance 1
    first.FixedLiteral(267);  // length 15 + 1 extra bit
    first.Bits(0, 1);
    first.Code(0, 5);
    first.FixedLiteral(273);  // 35 + 3 extra bits: 41
    first.Bits(6, 3);
    first.Code(0, 5);
    first.FixedLiteral(256);
    Bytes one(1 + 258 + 15 + 41, 'A');  // 15 bytes more than the strip's one row
    ZlibWriter second;
    second.Bits(1, 1);
    second.Bits(1, 2);
    second.FixedLiteral('B');
    second.FixedLiteral(264);  // length 10
    second.Code(8, 5);         // distances 17 to 24: 17 + 3 extra bits
    second.Bits(3, 3);         // 20
    second.FixedLiteral(256);
    Bytes two = {'B'};
    two.resize(11, 0);
    Bytes strip1 = first.Finish(Adler(one)), strip2 = second.Finish(Adler(two));

    CodecPage page = BytePage(8, width, 2, 1);
    auto result = Inflate(page, {strip1, strip2});
    ASSERT_TRUE(result.ok) << result.record.code;
    EXPECT_TRUE(std::equal(one.begin(), one.begin() + width, result.rows.begin()));
    EXPECT_TRUE(std::equal(two.begin(), two.end(), result.rows.begin() + width));
}

TEST(DeflateDecoder, DamagedStreamsFailWithoutHarm) {
    // A stream with stored and fixed blocks, cut at every length and with
    // every byte changed: never more than the rows, always a clean result.
    Bytes data(2000);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>((i * i) >> 3);
    ZlibWriter writer;
    writer.Stored(Bytes(data.begin(), data.begin() + 1000), false);
    writer.Bits(1, 1);
    writer.Bits(1, 2);
    for (size_t i = 1000; i < 2000; ++i) writer.FixedLiteral(data[i]);
    writer.FixedLiteral(256);
    Bytes stream = writer.Finish(Adler(data));
    CodecPage page = BytePage(8, 100, 20, 20);
    ASSERT_TRUE(Inflate(page, {stream}).ok);
    for (size_t cut = 0; cut < stream.size(); ++cut) {
        auto result = Inflate(page, {Bytes(stream.begin(), stream.begin() + cut)});
        ASSERT_FALSE(result.ok) << cut;
        EXPECT_EQ(result.record.code, kErrBadFileData);
        EXPECT_TRUE(result.guardsIntact);
    }
    for (size_t at = 0; at < stream.size(); at += 7) {
        Bytes damaged = stream;
        damaged[at] ^= 0x5A;
        auto result = Inflate(page, {damaged});
        EXPECT_TRUE(result.guardsIntact);
        if (!result.ok) EXPECT_EQ(result.record.code, kErrBadFileData);
    }
}


TEST(DeflateDecoder, PredictorOnThreeSamples) {
    Bytes data = {10, 20, 30, 1, 2, 3, 255, 255, 255};
    ZlibWriter writer;
    writer.Stored(data, true);
    auto result = Inflate(BytePage(8, 3, 1, 1, 3, 2), {writer.Finish(Adler(data))});
    ASSERT_TRUE(result.ok);
    EXPECT_EQ(result.rows, (Bytes{10, 20, 30, 11, 22, 33, 10, 21, 32}));
}

}  // namespace
}  // namespace velmora
