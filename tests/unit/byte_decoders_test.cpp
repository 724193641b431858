// LZW, PackBits, ThunderScan and the run-length code, with Predictor 2: the
// corners of each format that tiffcp's strips (tests/interop) do not reach,
// on streams made here by small reference encoders.
#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "byte_codec_harness.h"
#include "codecs/byte_decoders.h"
#include "codecs/predictor.h"
#include "codecs/strip_input.h"
#include "../support/bit_writer.h"

namespace velmora {
namespace {

using testing::BytePage;
using testing::DecodePage;
using Bytes = std::vector<uint8_t>;

// ---- A reference LZW encoder ------------------------------------------------
struct LzwOptions {
    bool oldForm = false;       // least significant bit first, late width switch
    bool clearWhenFull = true;  // otherwise the table fills and stays full
    bool endCode = true;
};

using testing_support::BitWriter;

Bytes LzwEncode(const Bytes& data, LzwOptions options = {}) {
    BitWriter out(options.oldForm);
    std::map<std::pair<uint32_t, uint8_t>, uint32_t> table;
    unsigned width = 9;
    uint32_t next = 258;
    // The decoder makes each entry one code later than the encoder, so the
    // encoder widens one entry after the decoder's threshold: at 2^width
    // (TIFF form), or 2^width + 1 (old form).
    const uint32_t late = options.oldForm ? 1 : 0;
    out.Put(256, width);
    auto grow = [&] {
        if (next >= (1u << width) + late && width < 12) ++width;
    };
    uint32_t prefix = 0xFFFFFFFF;
    for (uint8_t c : data) {
        if (prefix == 0xFFFFFFFF) {
            prefix = c;
            continue;
        }
        auto found = table.find({prefix, c});
        if (found != table.end()) {
            prefix = found->second;
            continue;
        }
        out.Put(prefix, width);
        if (next < 4096) {
            table[{prefix, c}] = next++;
            grow();
        }
        if (options.clearWhenFull && next >= 4094) {
            out.Put(256, width);
            table.clear();
            next = 258;
            width = 9;
        }
        prefix = c;
    }
    if (prefix != 0xFFFFFFFF) {
        out.Put(prefix, width);
        // The decoder makes one more entry on this code and may widen.
        if (next < 4096 && data.size() > 1) {
            ++next;
            grow();
        }
    }
    if (options.endCode) out.Put(257, width);
    return out.bytes();
}

// Image-like bytes: runs, repeats and some noise.
Bytes SampleBytes(size_t size, uint32_t seed) {
    std::mt19937 random(seed);
    Bytes data;
    while (data.size() < size) {
        switch (random() % 4) {
            case 0: data.insert(data.end(), random() % 300, static_cast<uint8_t>(random())); break;
            case 1:
                for (int i = random() % 64; i > 0; --i) data.push_back(static_cast<uint8_t>(random()));
                break;
            default: {
                size_t back = 1 + random() % 200, n = random() % 100;
                for (size_t i = 0; i < n && back <= data.size(); ++i) data.push_back(data[data.size() - back]);
            }
        }
    }
    data.resize(size);
    return data;
}

std::vector<Bytes> Strips(const Bytes& data, size_t stripBytes) {
    std::vector<Bytes> strips;
    for (size_t at = 0; at < data.size(); at += stripBytes)
        strips.emplace_back(data.begin() + at, data.begin() + std::min(data.size(), at + stripBytes));
    return strips;
}

testing::DecodedPage DecodeLzw(const CodecPage& page, const std::vector<Bytes>& strips) {
    auto decoder = CreateLzwDecoder();
    return DecodePage(*decoder, page, strips);
}

TEST(LzwDecoder, BothFormsThroughEveryCodeWidth) {
    // 64 KiB per strip passes the 9-to-12-bit switches several times, with
    // Clear codes between; a full table that is not cleared keeps working.
    const uint32_t width = 256, length = 512, rowsPerStrip = 256;
    Bytes data = SampleBytes(width * length, 1);
    for (bool oldForm : {false, true}) {
        for (bool clear : {true, false}) {
            SCOPED_TRACE(::testing::Message() << "old form " << oldForm << ", clear " << clear);
            std::vector<Bytes> strips;
            for (const Bytes& plain : Strips(data, width * rowsPerStrip))
                strips.push_back(LzwEncode(plain, {oldForm, clear, true}));
            ASSERT_EQ(oldForm, strips[0][0] == 0 && (strips[0][1] & 1) == 1);
            auto result = DecodeLzw(BytePage(5, width, length, rowsPerStrip), strips);
            ASSERT_TRUE(result.ok) << result.record.code;
            EXPECT_EQ(result.rows, data);
            EXPECT_TRUE(result.guardsIntact);
        }
    }
}

TEST(LzwDecoder, UndefinedCodesFailAndMissingEndCodesEndTheStrip) {
    BitWriter bad(false);
    for (uint32_t code : {256u, 120u, 121u, 300u}) bad.Put(code, 9);
    auto result = DecodeLzw(BytePage(5, 8, 1, 1), {bad.bytes()});
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.record.code, kErrBadFileData);
    EXPECT_EQ(result.rows[0], 'x');  // what came before the fault stays
    EXPECT_EQ(result.rows[1], 'y');

    // A Clear resets the code width and the next free entry, not the
    // entries: one left from before it still expands to its string.
    BitWriter afterClear(false);
    for (uint32_t code : {256u, 120u, 121u, 258u, 256u, 259u, 257u}) afterClear.Put(code, 9);
    result = DecodeLzw(BytePage(5, 6, 1, 1), {afterClear.bytes()});
    ASSERT_TRUE(result.ok);
    EXPECT_EQ(std::string(result.rows.begin(), result.rows.end()), "xyxyyx");

    // A strip without its end code, and one that ends early: fine unless the
    // page asks for end codes.
    Bytes data = SampleBytes(600, 2);
    Bytes noEnd = LzwEncode(data, {false, true, false});
    CodecPage page = BytePage(5, 100, 6, 6);
    auto lenient = DecodeLzw(page, {noEnd});
    EXPECT_TRUE(lenient.ok);
    EXPECT_EQ(lenient.rows, data);
    Bytes truncated(noEnd.begin(), noEnd.begin() + noEnd.size() / 2);
    EXPECT_TRUE(DecodeLzw(page, {truncated}).ok);
    page.endCodeRequired = true;
    EXPECT_TRUE(DecodeLzw(page, {noEnd}).ok);  // the rows were complete first
    auto strict = DecodeLzw(page, {truncated});
    EXPECT_FALSE(strict.ok);
    EXPECT_EQ(strict.record.code, kErrBadFileData);
}

// ---- Predictor 2 -------------------------------------------------------------
TEST(Predictor, ShortRows) {
    uint8_t one[1] = {200};
    UndoHorizontalDifferencing(one, 1, 1);
    EXPECT_EQ(one[0], 200);
    uint8_t two[2] = {200, 100};
    UndoHorizontalDifferencing(two, 2, 1);
    EXPECT_EQ(two[1], 44);
    uint8_t five[5] = {1, 2, 3, 4, 5};  // shorter than two pixels of 3 samples
    UndoHorizontalDifferencing(five, 5, 3);
    EXPECT_EQ(five[3], 4);
}

TEST(Predictor, SelectionErrors) {
    struct Case {
        uint16_t predictor, bits, samples;
        uint32_t code;
        std::u16string detail;
    };
    const Case cases[] = {
        {2, 16, 1, kErrUnsupportedImageType, u"Unsupported predictor (BitsPerSample = 16)"},
        {2, 4, 1, kErrUnsupportedImageType, u"Unsupported predictor (BitsPerSample = 4)"},
        {2, 16, 3, kErrUnsupportedImageType, u"Unsupported predictor"},
        {2, 8, 5, kErrUnsupportedImageType, u"Unsupported predictor (SamplesPerPixel = 5)"},
        {3, 8, 1, kErrUnknownImageType, u"Unknown predictor (3)"},
    };
    for (const Case& c : cases) {
        for (auto create : {CreateLzwDecoder, CreateDeflateDecoder}) {
            auto decoder = create();
            CodecPage page = BytePage(5, 10, 1, 1, c.samples, c.predictor);
            page.bitsPerSample = c.bits;
            ErrorRecord record;
            EXPECT_FALSE(decoder->Begin(page, &record));
            EXPECT_EQ(record.code, c.code);
            std::u16string message = record.message;
            EXPECT_EQ(message.substr(message.size() - c.detail.size()), c.detail);
        }
    }
    // PackBits ignores the predictor.
    ErrorRecord record;
    EXPECT_TRUE(CreatePackBitsDecoder()->Begin(BytePage(32773, 10, 1, 1, 1, 7), &record));
}

// ---- PackBits ------------------------------------------------------------------
TEST(PackBitsDecoder, RunsLiteralsAndNoOpsAcrossRows) {
    // Two rows of 5: a literal of 3, a no-op, a run of 4 crossing the row end,
    // and a literal of 3.
    Bytes coded = {0x02, 'a', 'b', 'c', 0x80, 0xFD, 'z', 0x02, '1', '2', '3'};
    auto decoder = CreatePackBitsDecoder();
    auto result = DecodePage(*decoder, BytePage(32773, 5, 2, 2), {coded});
    ASSERT_TRUE(result.ok);
    EXPECT_EQ(std::string(result.rows.begin(), result.rows.end()), "abczzzz123");

    // 300 equal bytes as an encoder writes them: 128 + 128 + 44.
    Bytes runs = {0x81, 7, 0x81, 7, 0xD5, 7};
    result = DecodePage(*decoder, BytePage(32773, 300, 1, 1), {runs});
    ASSERT_TRUE(result.ok);
    EXPECT_EQ(result.rows, Bytes(300, 7));

    // Input that ends inside a literal keeps what it has.
    Bytes cut = {0x04, 'a', 'b'};
    result = DecodePage(*decoder, BytePage(32773, 5, 1, 1), {cut});
    EXPECT_TRUE(result.ok);
    EXPECT_EQ(result.rows[1], 'b');
    EXPECT_EQ(result.rows[2], testing::kGuard);
}

// ---- The run-length code 50000 -------------------------------------------------
TEST(RunLengthDecoder, EvenRowsRunsCutAtRowEndsAndRgb) {
    // Rows of 3 grey bytes are coded as 4: the 4th byte is consumed, not written.
    Bytes coded = {0xC4, 9, 0xC2, 5, 0x01, 0x02, 0xC1, 0xC0};
    auto decoder = CreateRunLengthDecoder();
    auto result = DecodePage(*decoder, BytePage(50000, 3, 3, 3), {coded});
    ASSERT_TRUE(result.ok);
    EXPECT_TRUE(result.guardsIntact);
    // Row 1: run of 4 cut to the row; row 2: run of 2, then 1 and 2 (2 dropped);
    // row 3: the literal 0xC0 coded as a run of one.
    EXPECT_EQ(result.rows, (Bytes{9, 9, 9, 5, 5, 1, 0xC0, testing::kGuard, testing::kGuard}));

    // RGB rows come out blue first.
    Bytes rgb = {10, 20, 30, 40, 50, 0xC3, 60};
    result = DecodePage(*decoder, BytePage(50000, 2, 1, 1, 3), {rgb});
    ASSERT_TRUE(result.ok);
    EXPECT_EQ(result.rows, (Bytes{30, 20, 10, 60, 50, 40}));
}

// ---- ThunderScan ---------------------------------------------------------------
TEST(ThunderScanDecoder, RunsDeltasAndRawValues) {
    CodecPage page = BytePage(32809, 9, 2, 2);
    page.bitsPerSample = 4;
    // Row 1: raw 5; 2-bit deltas +1, none, +1; a run of 2; 3-bit deltas +3
    // and -3; raw F; raw 1 fills the row's 9 pixels.
    Bytes coded = {0xC5, 0x40 | (1 << 4) | (2 << 2) | 1, 0x02, 0x80 | (3 << 3) | 5, 0xCF, 0xC1,
                   // Row 2 starts over from 0: a delta of -1 gives F; a run of 3.
                   0x40 | (3 << 4) | (2 << 2) | 2, 0x03};
    auto decoder = CreateThunderScanDecoder();
    auto result = DecodePage(*decoder, page, {coded});
    ASSERT_TRUE(result.ok);
    // Row 1 pixels: 5 6 7 7 7 A 7 F 1 -> bytes 56 77 7A 7F 10.
    EXPECT_EQ(result.rows[0], 0x56);
    EXPECT_EQ(result.rows[1], 0x77);
    EXPECT_EQ(result.rows[2], 0x7A);
    EXPECT_EQ(result.rows[3], 0x7F);
    EXPECT_EQ(result.rows[4] & 0xF0, 0x10);
    // Row 2: F F F F, then the data ends: what there is is written.
    EXPECT_EQ(result.rows[5], 0xFF);
    EXPECT_EQ(result.rows[6], 0xFF);
}

// ---- Progress and cancel -----------------------------------------------------
BOOL VELMORA_CALLBACK Cancel(DWORD, UINT_PTR) { return 0; }

TEST(ByteDecoders, HostCancelStopsTheStrip) {
    Bytes data = SampleBytes(100 * 100, 4);
    Bytes coded = LzwEncode(data);
    ProgressReporter progress(Cancel, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    auto decoder = CreateLzwDecoder();
    auto result = DecodePage(*decoder, BytePage(5, 100, 100, 100), {coded}, &progress);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.record.code, kErrCancelled);
}

}  // namespace
}  // namespace velmora
