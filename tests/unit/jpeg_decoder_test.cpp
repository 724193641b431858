// The JPEG decoder on small streams built here segment by segment: the
// checks of the marker layer, the repairs of known writer faults, DNL,
// undecodable processes that still describe themselves, strict entropy
// decoding, lossless and 12-bit frames, tables that must come from
// elsewhere, clipping and cancelling. Whole-image correctness against
// libjpeg, TIFF's tables and the copy-mode hook are the interop tests' job.
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "jpeg/jpeg_decoder.h"
#include "jpeg/jpeg_private_segment.h"
#include "dib/image.h"
#include "io/stream.h"
#include "../support/bit_writer.h"

namespace {

using namespace velmora;
using namespace velmora::jpeg;
using Bytes = std::vector<uint8_t>;

using testing_support::BitWriter;

// Entropy-coded data: the bits, the last byte padded with ones, 0xFF
// followed by a stuffed zero.
Bytes Finish(BitWriter& bits) { return bits.Align(8, true).bytes(true); }

// A DC difference or AC value: its category's code was written; these are
// the value bits (T.81 F.1.2.1).
void PutValue(BitWriter& bits, int32_t value, int category) {
    if (category != 0) bits.Put(static_cast<uint32_t>(value < 0 ? value + (1 << category) - 1 : value), category);
}

int Category(int32_t value) {
    int category = 0;
    for (uint32_t magnitude = static_cast<uint32_t>(value < 0 ? -value : value); magnitude != 0; magnitude >>= 1) {
        ++category;
    }
    return category;
}

// The tables of these streams: DC categories 0..16 as 5-bit codes (the
// category is the code), AC symbols as 8-bit codes (the index in kAcSymbols
// is the code).
const uint8_t kAcSymbols[] = {0x00, 0xF0, 0x01, 0x02, 0x03, 0x04, 0x11, 0x21, 0xE1, 0x0B, 0x0A};
int AcCode(uint8_t symbol) {
    for (size_t i = 0; i < sizeof(kAcSymbols); ++i) {
        if (kAcSymbols[i] == symbol) return static_cast<int>(i);
    }
    return -1;
}

Bytes Segment(uint8_t marker, const Bytes& data) {
    Bytes out = {0xFF, marker, static_cast<uint8_t>((data.size() + 2) >> 8), static_cast<uint8_t>(data.size() + 2)};
    out.insert(out.end(), data.begin(), data.end());
    return out;
}
Bytes Dqt(uint8_t id, uint8_t value = 1) {
    Bytes data = {id};
    data.insert(data.end(), 64, value);
    return Segment(0xDB, data);
}
Bytes DhtDc(uint8_t id, int categories = 17) {
    Bytes data = {id, 0, 0, 0, 0, static_cast<uint8_t>(categories)};
    data.insert(data.end(), 11, 0);
    for (int i = 0; i < categories; ++i) data.push_back(static_cast<uint8_t>(i));
    return Segment(0xC4, data);
}
Bytes DhtAc(uint8_t id) {
    Bytes data = {static_cast<uint8_t>(0x10 | id), 0, 0, 0, 0, 0, 0, 0, sizeof(kAcSymbols)};
    data.insert(data.end(), 8, 0);
    data.insert(data.end(), kAcSymbols, kAcSymbols + sizeof(kAcSymbols));
    return Segment(0xC4, data);
}
struct Comp {
    uint8_t id, hv, tq;
};
Bytes Sof(uint8_t marker, uint8_t precision, uint16_t height, uint16_t width, std::initializer_list<Comp> comps) {
    Bytes data = {precision,
                  static_cast<uint8_t>(height >> 8),
                  static_cast<uint8_t>(height),
                  static_cast<uint8_t>(width >> 8),
                  static_cast<uint8_t>(width),
                  static_cast<uint8_t>(comps.size())};
    for (const Comp& c : comps) data.insert(data.end(), {c.id, c.hv, c.tq});
    return Segment(marker, data);
}
struct ScanComp {
    uint8_t id, tables;
};
Bytes Sos(std::initializer_list<ScanComp> comps, uint8_t ss = 0, uint8_t se = 63, uint8_t ahal = 0) {
    Bytes data = {static_cast<uint8_t>(comps.size())};
    for (const ScanComp& c : comps) data.insert(data.end(), {c.id, c.tables});
    data.insert(data.end(), {ss, se, ahal});
    return Segment(0xDA, data);
}
Bytes Jfif(uint8_t unit, uint16_t x, uint16_t y) {
    return Segment(0xE0, {'J', 'F', 'I', 'F', 0, 1, 2, unit, static_cast<uint8_t>(x >> 8), static_cast<uint8_t>(x),
                          static_cast<uint8_t>(y >> 8), static_cast<uint8_t>(y), 0, 0});
}
Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}
const Bytes kSoi = {0xFF, 0xD8};
const Bytes kEoi = {0xFF, 0xD9};

// Entropy data of `blocks` grey blocks with DC values `dc` (differences
// coded in turn) and no AC coefficients.
Bytes DcOnlyBlocks(const std::vector<int32_t>& dc) {
    BitWriter bits;
    int32_t previous = 0;
    for (int32_t value : dc) {
        int32_t difference = value - previous;
        previous = value;
        int category = Category(difference);
        bits.Put(static_cast<uint32_t>(category), 5);
        PutValue(bits, difference, category);
        bits.Put(static_cast<uint32_t>(AcCode(0x00)), 8);  // end of block
    }
    return Finish(bits);
}

// A 16x8 grey baseline stream of two flat blocks (samples 138 and 118).
Bytes GreyStream(const Bytes& extraBeforeFrame = {}) {
    return Concat({kSoi, extraBeforeFrame, Dqt(0), Sof(0xC0, 8, 8, 16, {{1, 0x11, 0}}), DhtDc(0), DhtAc(0),
                   Sos({{1, 0x00}}), DcOnlyBlocks({80, -80}), kEoi});
}

struct Decoded {
    bool ok = false;
    uint32_t code = 0;
    std::vector<uint8_t> pixels;  // top-down, `channels` bytes per pixel
};

Decoded DecodeTo(const Bytes& stream, uint32_t width, uint32_t height, uint32_t channels,
                 ColorOverride color = ColorOverride::Auto) {
    Decoded result;
    result.pixels.assign(size_t{width} * height * channels, 0xEE);
    JpegDecoder decoder;
    JpegDecodeOptions options;
    options.output = JpegOutput{result.pixels.data(), static_cast<ptrdiff_t>(width * channels), width, height};
    options.color = color;
    ErrorRecord record;
    result.ok = decoder.Decode(JpegSource::Memory(stream.data(), stream.size()), options, &record);
    result.code = record.code;
    return result;
}

uint32_t InfoCode(const Bytes& stream, uint32_t request, JpegInfo* info) {
    ErrorRecord record;
    ReadJpegInfo(JpegSource::Memory(stream.data(), stream.size()), request, info, &record);
    return record.code;
}

// Every segment check: a stream with one fault and the error it must give.
TEST(JpegDecoderStreams, MalformedSegmentsAreBadData) {
    Bytes dc = DcOnlyBlocks({80, -80});
    auto grey = [&](const Bytes& dqt, const Bytes& sof, const Bytes& dht, const Bytes& sos) {
        return Concat({kSoi, dqt, sof, dht, sos, dc, kEoi});
    };
    Bytes dqt = Dqt(0), sof = Sof(0xC0, 8, 8, 16, {{1, 0x11, 0}}), dht = Concat({DhtDc(0), DhtAc(0)});
    Bytes sos = Sos({{1, 0x00}});
    Bytes overSubscribed = {0x00, 2};  // two codes of length 1: the all-ones code is taken
    overSubscribed.insert(overSubscribed.end(), 14, 0);
    overSubscribed.insert(overSubscribed.end(), {0, 1});
    Bytes dhtLeftover = DhtDc(0);
    dhtLeftover.push_back(0);
    dhtLeftover[3] += 1;
    Bytes dqtShort = Dqt(0);
    dqtShort.resize(dqtShort.size() - 1);
    dqtShort[3] -= 1;
    const struct {
        const char* name;
        Bytes stream;
    } cases[] = {
        {"DHT class 2", grey(dqt, sof, Concat({Segment(0xC4, {0x20, 1}), dht}), sos)},
        {"DHT identifier 4", grey(dqt, sof, Concat({DhtDc(4), dht}), sos)},
        {"DHT over-subscribed", grey(dqt, sof, Concat({Segment(0xC4, overSubscribed), dht}), sos)},
        {"DHT counts beyond the segment", grey(dqt, sof, Concat({Segment(0xC4, {0x00, 0, 0, 5}), dht}), sos)},
        {"DHT not used up", grey(dqt, sof, Concat({dhtLeftover, DhtAc(0)}), sos)},
        {"DQT precision 2", grey(Segment(0xDB, {0x20}), sof, dht, sos)},
        {"DQT identifier 4", grey(Dqt(4), sof, dht, sos)},
        {"DQT short", grey(dqtShort, sof, dht, sos)},
        {"baseline at 12 bits", grey(dqt, Sof(0xC0, 12, 8, 16, {{1, 0x11, 0}}), dht, sos)},
        {"sampling factor 5", grey(dqt, Sof(0xC0, 8, 8, 16, {{1, 0x51, 0}}), dht, sos)},
        {"zero width", grey(dqt, Sof(0xC0, 8, 8, 0, {{1, 0x11, 0}}), dht, sos)},
        {"frame length", grey(dqt, Segment(0xC0, {8, 0, 8, 0, 16, 1, 1, 0x11}), dht, sos)},
        {"duplicate component", grey(dqt, Sof(0xC0, 8, 8, 16, {{1, 0x11, 0}, {1, 0x11, 0}}), dht, sos)},
        {"differential frame outside a hierarchy", grey(dqt, Sof(0xC5, 8, 8, 16, {{1, 0x11, 0}}), dht, sos)},
        {"second frame", grey(dqt, Concat({sof, sof}), dht, sos)},
        {"SOS length", grey(dqt, sof, dht, Segment(0xDA, {1, 1, 0, 0, 63, 0, 0}))},
        {"SOS without components", grey(dqt, sof, dht, Segment(0xDA, {0, 0, 63, 0}))},
        {"SOS names no frame component", grey(dqt, sof, dht, Sos({{2, 0x00}}))},
        {"SOS names an undefined table", grey(dqt, sof, dht, Sos({{1, 0x11}}))},
        {"SOS table selector 4", grey(dqt, sof, dht, Sos({{1, 0x40}}))},
        {"scan before frame", Concat({kSoi, dqt, dht, sos, sof, dc, kEoi})},
        {"DRI length", grey(Concat({dqt, Segment(0xDD, {0, 1, 0})}), sof, dht, sos)},
        {"segment past the end", Concat({kSoi, dqt, Bytes{0xFF, 0xE5, 0x40, 0x00, 1, 2, 3}})},
        {"no scan", Concat({kSoi, dqt, sof, dht, kEoi})},
    };
    for (const auto& c : cases) {
        Decoded d = DecodeTo(c.stream, 16, 8, 1);
        EXPECT_FALSE(d.ok) << c.name;
        EXPECT_EQ(d.code, kErrBadFileData) << c.name;
    }
    // The decoder stops after the last MCU; a whole parse meets the DNL.
    JpegInfo info;
    EXPECT_EQ(InfoCode(Concat({kSoi, dqt, sof, dht, sos, dc, Segment(0xDC, {0, 8, 0}), kEoi}), kInfoWhole, &info),
              kErrBadFileData);
    Decoded notJpeg = DecodeTo(Bytes{0xFF, 0xD9, 0xFF, 0xD8}, 16, 8, 1);
    EXPECT_EQ(notJpeg.code, kErrUnrecognizedFormat);
}

// Progressive and lossless scan headers have rules of their own.
TEST(JpegDecoderStreams, ScanParameterRules) {
    auto progressive = [](const Bytes& sos) {
        return Concat({kSoi, Dqt(0), Sof(0xC2, 8, 8, 8, {{1, 0x11, 0}, {2, 0x11, 0}, {3, 0x11, 0}}), DhtDc(0), DhtAc(0),
                       sos, DcOnlyBlocks({0}), kEoi});
    };
    const struct {
        const char* name;
        Bytes sos;
        bool valid;
    } cases[] = {
        {"DC first", Sos({{1, 0}, {2, 0}, {3, 0}}, 0, 0, 0x01), true},
        {"DC scan with Se 5", Sos({{1, 0}}, 0, 5, 0x00), false},
        {"AC scan of two components", Sos({{1, 0}, {2, 0}}, 1, 5, 0x00), false},
        {"Ss beyond Se", Sos({{1, 0}}, 6, 5, 0x00), false},
        {"Se 64", Sos({{1, 0}}, 1, 64, 0x00), false},
        {"Al 14", Sos({{1, 0}}, 1, 5, 0x0E), false},
        {"Ah not Al + 1", Sos({{1, 0}}, 1, 5, 0x31), false},
        {"Ah Al + 1", Sos({{1, 0}}, 1, 5, 0x21), true},
    };
    for (const auto& c : cases) {
        JpegInfo info;
        uint32_t code = InfoCode(progressive(c.sos), 0, &info);
        EXPECT_EQ(code, c.valid ? 0u : kErrBadFileData) << c.name;
    }
    auto lossless = [](uint8_t ss, uint8_t se, uint8_t ahal) {
        return Concat({kSoi, Sof(0xC3, 8, 2, 2, {{1, 0x11, 0}}), DhtDc(0), Sos({{1, 0}}, ss, se, ahal), kEoi});
    };
    JpegInfo info;
    EXPECT_EQ(InfoCode(lossless(1, 0, 0), 0, &info), 0u);
    EXPECT_EQ(InfoCode(lossless(0, 0, 0), 0, &info), kErrBadFileData);
    EXPECT_EQ(InfoCode(lossless(8, 0, 0), 0, &info), kErrBadFileData);
    EXPECT_EQ(InfoCode(lossless(7, 1, 0), 0, &info), kErrBadFileData);
    EXPECT_EQ(InfoCode(lossless(7, 0, 0x10), 0, &info), kErrBadFileData);
    EXPECT_EQ(InfoCode(lossless(7, 0, 0x08), 0, &info), kErrBadFileData);  // point transform of every bit
}

// Writers' faults the decoder repairs, and what it reports about them.
TEST(JpegDecoderStreams, KnownWriterFaultsAreRepaired) {
    JpegInfo info;
    // A JFIF density of 65499 takes the other density.
    Bytes damaged = GreyStream(Jfif(1, 65499, 72));
    ASSERT_EQ(InfoCode(damaged, 0, &info), 0u);
    EXPECT_EQ(info.xDensityNumerator, 72u);
    EXPECT_EQ(info.yDensityNumerator, 72u);
    EXPECT_EQ(info.densityUnit, 2);
    EXPECT_EQ(info.flags & (kHasJfif | kDamaged), kHasJfif | kDamaged);
    EXPECT_TRUE(DecodeTo(damaged, 16, 8, 1).ok);

    // JFIF counts only first (or after a comment) and with sane values.
    ASSERT_EQ(InfoCode(GreyStream(Concat({Segment(0xFE, {'x'}), Jfif(2, 50, 40)})), 0, &info), 0u);
    EXPECT_EQ(info.densityUnit, 3);
    EXPECT_EQ(info.xDensityNumerator, 50u);
    ASSERT_EQ(InfoCode(GreyStream(Concat({Segment(0xE2, {1}), Jfif(1, 300, 300)})), 0, &info), 0u);
    EXPECT_EQ(info.flags & kHasJfif, 0u);
    ASSERT_EQ(InfoCode(GreyStream(Jfif(3, 300, 300)), 0, &info), 0u);
    EXPECT_EQ(info.flags & kHasJfif, 0u);

    // An APP1 segment one byte too long, whose data starts like a marker.
    Bytes app1 = {0xFF, 0xE1, 0x00, 0x05, 0xFF, 0xE9, 0xFF};
    Bytes repaired = GreyStream(app1);
    ASSERT_EQ(InfoCode(repaired, 0, &info), 0u);
    EXPECT_NE(info.flags & kDamaged, 0u);
    EXPECT_TRUE(DecodeTo(repaired, 16, 8, 1).ok);

    // A JFIF thumbnail is found where its size says.
    Bytes thumbnail = {'J', 'F', 'I', 'F', 0, 1, 2, 0, 0, 1, 0, 1, 2, 1, 10, 20, 30, 40, 50, 60};
    Bytes withThumbnail = GreyStream(Segment(0xE0, thumbnail));
    ASSERT_EQ(InfoCode(withThumbnail, kInfoThumbnail, &info), 0u);
    EXPECT_EQ(info.flags & kHasThumbnail, kHasThumbnail);
    EXPECT_EQ(info.thumbnailWidth, 2);
    EXPECT_EQ(info.thumbnailHeight, 1);
    ASSERT_EQ(info.thumbnailBytes, 6u);
    EXPECT_EQ(withThumbnail[info.thumbnailOffset], 10);
}

TEST(JpegDecoderStreams, HeightFromDnl) {
    Bytes stream = Concat({kSoi, Dqt(0), Sof(0xC0, 8, 0, 8, {{1, 0x11, 0}}), DhtDc(0), DhtAc(0), Sos({{1, 0x00}}),
                           DcOnlyBlocks({80, -80}), Segment(0xDC, {0, 13}), kEoi});
    JpegInfo info;
    ASSERT_EQ(InfoCode(stream, 0, &info), 0u);
    EXPECT_EQ(info.height, 0u);
    ASSERT_EQ(InfoCode(stream, kInfoWhole, &info), 0u);
    EXPECT_EQ(info.height, 13u);
    ErrorRecord record;
    HGLOBAL dib = DecodeJpegToDib(JpegSource::Memory(stream.data(), stream.size()), nullptr, &record);
    ASSERT_NE(dib, nullptr) << std::hex << record.code;
    {
        ImageLock lock(dib);
        EXPECT_EQ(lock.header()->biHeight, 13);
        const uint8_t* bits = lock.bits();
        EXPECT_EQ(bits[0], 118);       // the bottom row, from the second block
        EXPECT_EQ(bits[8 * 12], 138);  // the top row
    }
    FreeImage(&dib);
}

// Arithmetic, hierarchical and two-component streams describe themselves
// but do not decode.
TEST(JpegDecoderStreams, UndecodableStreamsStillDescribeThemselves) {
    Bytes arithmetic =
        Concat({kSoi, Dqt(0), Sof(0xC9, 8, 8, 16, {{1, 0x11, 0}}), Sos({{1, 0x00}}), Bytes{0x12, 0x34, 0x56}, kEoi});
    Bytes hierarchical = Concat({kSoi, Segment(0xDE, {8, 0, 8, 0, 16, 1, 1, 0x11, 0}), Dqt(0),
                                 Sof(0xC1, 8, 8, 16, {{1, 0x11, 0}}), DhtDc(0), DhtAc(0), Sos({{1, 0x00}}),
                                 DcOnlyBlocks({80, -80}), Sof(0xC5, 8, 8, 16, {{1, 0x11, 0}}), kEoi});
    Bytes twoComponents = Concat({kSoi, Dqt(0), Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}, {2, 0x11, 0}}), DhtDc(0), DhtAc(0),
                                  Sos({{1, 0x00}, {2, 0x00}}), DcOnlyBlocks({8, 8}), kEoi});
    const struct {
        const Bytes* stream;
        uint8_t process;
    } cases[] = {{&arithmetic, kProcessArithmeticExtended},
                 {&hierarchical, kProcessHierarchical},
                 {&twoComponents, kProcessBaseline}};
    for (const auto& c : cases) {
        JpegInfo info;
        ASSERT_EQ(InfoCode(*c.stream, kInfoWhole, &info), 0u);
        EXPECT_EQ(info.process, c.process);
        EXPECT_EQ(DecodeTo(*c.stream, 16, 8, 3).code, kErrUnsupportedImageType);
        ErrorRecord record;
        EXPECT_EQ(DecodeJpegToDib(JpegSource::Memory(c.stream->data(), c.stream->size()), nullptr, &record), nullptr);
        EXPECT_EQ(record.code, kErrUnsupportedImageType);
    }
}

// No concealment: values beyond the precision, runs past the block, a wrong
// restart marker and missing data are all bad data.
TEST(JpegDecoderStreams, StrictEntropyDecoding) {
    auto stream = [](const Bytes& entropy, const Bytes& dri = {}) {
        return Concat({kSoi, dri, Dqt(0), Sof(0xC0, 8, 8, 16, {{1, 0x11, 0}}), DhtDc(0), DhtAc(0), Sos({{1, 0x00}}),
                       entropy, kEoi});
    };
    BitWriter category12;
    category12.Put(12, 5);
    category12.Put(0xFFF, 12);
    category12.Put(0, 8);
    BitWriter size11;  // AC size 11 at 8 bits
    size11.Put(0, 5);
    size11.Put(static_cast<uint32_t>(AcCode(0x0B)), 8);
    size11.Put(0x7FF, 11);
    BitWriter pastEnd;  // 62 zeros and a coefficient: beyond 63
    pastEnd.Put(0, 5);
    for (int i = 0; i < 3; ++i) pastEnd.Put(static_cast<uint32_t>(AcCode(0xF0)), 8);
    pastEnd.Put(static_cast<uint32_t>(AcCode(0xE1)), 8);
    pastEnd.Put(1, 1);
    BitWriter wrongRestart;
    Bytes first = DcOnlyBlocks({8});
    Bytes restartWrong = Concat({first, Bytes{0xFF, 0xD3}, DcOnlyBlocks({8})});
    Bytes restartRight = Concat({first, Bytes{0xFF, 0xD0}, DcOnlyBlocks({8})});
    Bytes dri = Segment(0xDD, {0, 1});
    EXPECT_TRUE(DecodeTo(stream(DcOnlyBlocks({8, 16})), 16, 8, 1).ok);
    EXPECT_TRUE(DecodeTo(stream(restartRight, dri), 16, 8, 1).ok);
    const struct {
        const char* name;
        Bytes stream;
    } cases[] = {
        {"DC category 12", stream(Finish(category12))},
        {"AC size 11", stream(Finish(size11))},
        {"run past 63", stream(Finish(pastEnd))},
        {"wrong restart marker", stream(restartWrong, dri)},
        {"missing restart marker", stream(DcOnlyBlocks({8, 16}), dri)},
        {"one block of two", stream(DcOnlyBlocks({8}))},
        {"undefined code", stream(Bytes{0xFF, 0x00, 0xFF, 0x00})},
    };
    for (const auto& c : cases) {
        Decoded d = DecodeTo(c.stream, 16, 8, 1);
        EXPECT_FALSE(d.ok) << c.name;
        EXPECT_EQ(d.code, kErrBadFileData) << c.name;
    }
}

// The prediction rules on one 2x2 image, with the differences worked out by
// hand for predictor 7: first sample from 2^(P-1), the rest of the first
// line from the left, the first column from above, then (Ra + Rb) / 2.
TEST(JpegDecoderStreams, LosslessPredictionByHand) {
    BitWriter bits;
    for (int32_t difference : {10 - 128, 20 - 10, 30 - 10, 40 - 25}) {
        int category = Category(difference);
        bits.Put(static_cast<uint32_t>(category), 5);
        PutValue(bits, difference, category);
    }
    Bytes stream =
        Concat({kSoi, Sof(0xC3, 8, 2, 2, {{1, 0x11, 0}}), DhtDc(0), Sos({{1, 0}}, 7, 0, 0), Finish(bits), kEoi});
    Decoded d = DecodeTo(stream, 2, 2, 1);
    ASSERT_TRUE(d.ok) << std::hex << d.code;
    EXPECT_EQ(d.pixels, (std::vector<uint8_t>{10, 20, 30, 40}));
}

TEST(JpegDecoderStreams, TwelveBitSamplesKeepTheirTopBits) {
    Bytes dqt = {0x10};
    for (int i = 0; i < 64; ++i) dqt.insert(dqt.end(), {0, 1});
    // DC 800 at quantiser 1: samples 2048 + 100, or 134 in 8 bits.
    Bytes stream = Concat({kSoi, Segment(0xDB, dqt), Sof(0xC1, 12, 8, 16, {{1, 0x11, 0}}), DhtDc(0), DhtAc(0),
                           Sos({{1, 0x00}}), DcOnlyBlocks({800, -800}), kEoi});
    Decoded d = DecodeTo(stream, 16, 8, 1);
    ASSERT_TRUE(d.ok) << std::hex << d.code;
    EXPECT_EQ(d.pixels[0], 134);
    EXPECT_EQ(d.pixels[8], (2048 - 100) >> 4);
}

// Tables from elsewhere (a TIFF's JPEGTables or its table tags, decoded in
// the interop tests) must be given: a stream without them is bad data, and
// so is an over-subscribed table.
TEST(JpegDecoderStreams, MissingAndBadTablesFromElsewhere) {
    Bytes image = Concat({kSoi, Sof(0xC0, 8, 8, 16, {{1, 0x11, 0}}), Sos({{1, 0x00}}), DcOnlyBlocks({80, -80}), kEoi});
    EXPECT_EQ(DecodeTo(image, 16, 8, 1).code, kErrBadFileData);
    JpegDecoder raw;
    ErrorRecord record;
    uint8_t overSubscribed[16] = {3};
    uint8_t values[3] = {0, 1, 2};
    EXPECT_FALSE(raw.SetHuffmanTable(0, 1, overSubscribed, values, 3, &record));
    EXPECT_EQ(record.code, kErrBadFileData);
}

BOOL VELMORA_CALLBACK Cancel(DWORD, UINT_PTR) { return 0; }

// Output rows fewer and narrower than the image, upside down; the library's
// resolution segment before JFIF's density; a host that cancels.
TEST(JpegDecoderStreams, ClippingResolutionAndCancel) {
    Bytes stream = GreyStream();
    std::vector<uint8_t> pixels(12 * 6, 0xEE);
    JpegDecodeOptions options;
    options.output = JpegOutput{pixels.data() + 12 * 5, -12, 10, 6};
    JpegDecoder decoder;
    ErrorRecord record;
    ASSERT_TRUE(decoder.Decode(JpegSource::Memory(stream.data(), stream.size()), options, &record));
    EXPECT_EQ(pixels[12 * 5], 138);      // image row 0 at the bottom
    EXPECT_EQ(pixels[12 * 5 + 9], 118);  // column 9
    EXPECT_EQ(pixels[12 * 5 + 10], 0xEE);
    EXPECT_EQ(pixels[0], 138);

    PrivateSegment resolution;
    resolution.unit = 3;
    resolution.xNumerator = 120;
    resolution.yNumerator = 240;
    uint8_t segment[kPrivateSegmentTotalSize];
    BuildPrivateSegment(resolution, segment);
    Bytes withResolution = GreyStream(Concat({Jfif(1, 300, 300), Bytes(segment, segment + sizeof(segment))}));
    HGLOBAL dib = DecodeJpegToDib(JpegSource::Memory(withResolution.data(), withResolution.size()), nullptr, &record);
    ASSERT_NE(dib, nullptr);
    {
        ImageLock lock(dib);
        EXPECT_EQ(lock.header()->biXPelsPerMeter, 12000);
        EXPECT_EQ(lock.header()->biYPelsPerMeter, 24000);
    }
    FreeImage(&dib);

    ProgressReporter cancel(Cancel, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));  // the first report comes after 50 ms
    dib = DecodeJpegToDib(JpegSource::Memory(stream.data(), stream.size()), &cancel, &record);
    EXPECT_EQ(dib, nullptr);
    EXPECT_EQ(record.code, kErrCancelled);
}

}  // namespace
