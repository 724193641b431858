// Deflate strips on hand-made zlib streams: the header and trailer checks.
// (Streams of every kind that zlib makes, whose trailers check the
// checksum's wide steps over every length of data, are compared in the
// interop tests.)
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

}  // namespace
}  // namespace velmora
