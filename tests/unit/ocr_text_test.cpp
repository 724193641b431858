// OCR text records: random records of every coding read back as written,
// the exports' errors, box merging, and the invisible text layer's bytes.
#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "frame/error_record.h"
#include "pdf/ocr_text.h"
#include "pdf/text_layer.h"
#include "platform/platform.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Write(uint16_t format, uint16_t rotation, uint32_t options, std::vector<std::vector<OcrChar>> lines) {
    OcrTextWriter writer;
    ErrorRecord record;
    writer.Begin(format, rotation, options, static_cast<uint32_t>(lines.size()));
    for (const auto& line : lines) {
        OcrEntry entry;
        for (const OcrChar& c : line) entry.chars.Append(c, &record);
        writer.Add(entry, &record);
    }
    CheckedArray<uint8_t> out;
    EXPECT_TRUE(writer.Finish(&out, &record));
    return Bytes(out.begin(), out.end());
}

// Reads every entry of `bytes` and writes them again, turned by `degrees`
// on a page of `width` x `height` pixels.
Bytes Rewrite(const Bytes& bytes, uint16_t degrees = 0, int32_t width = 0, int32_t height = 0) {
    ErrorRecord record;
    OcrTextView view;
    CheckedArray<uint8_t> out;
    EXPECT_TRUE(OpenOcrText(bytes.data(), static_cast<uint32_t>(bytes.size()), &view, &record) &&
                RotateOcrText(view, degrees, width, height, &out, &record));
    return Bytes(out.begin(), out.end());
}

HGLOBAL Handle(const Bytes& bytes) {
    HGLOBAL handle = platform::MemAlloc(GMEM_MOVEABLE, bytes.size());
    std::memcpy(platform::MemLock(handle), bytes.data(), bytes.size());
    platform::MemUnlock(handle);
    return handle;
}

OcrChar Boxed(uint16_t code, int32_t left, int32_t top, int32_t right, int32_t bottom) {
    return {code, OcrCharKind::Boxed, {left, top, right, bottom}};
}
OcrChar Space() { return {' ', OcrCharKind::Separator, {}}; }

// Random records of both formats with every option: reading one and writing
// it again gives the same bytes, and so does turning it a quarter and back.
TEST(OcrText, RandomRecordsReadBackAsWrittenAndTurnBack) {
    std::mt19937 random(7);
    // Values of each coded width: 5, 8, 16 and 32 bits.
    auto number = [&] { return static_cast<int32_t>(random()) >> (random() % 4 == 0 ? 27 : 8 * (random() % 4)); };
    for (int round = 0; round < 300; ++round) {
        const uint32_t options = round % 2 ? random() % 8 : 0;
        const uint32_t count = round % 5 == 0 ? 0 : 1 + random() % 4;
        ErrorRecord record;
        OcrTextWriter writer;
        writer.Begin(1 + round % 2, 90 * (random() % 4), options, count);
        for (uint32_t i = 0; i < count; ++i) {
            OcrEntry entry;
            for (int n = random() % 12; n > 0; --n) {
                const uint16_t code = 1 + random() % ((options & kOcrTextNarrow) ? 255 : 65535);
                OcrChar c{code, static_cast<OcrCharKind>(random() % 3), {}};
                if (c.kind == OcrCharKind::Boxed) c.box = {number(), number(), number(), number()};
                entry.chars.Append(c, &record);
            }
            entry.hasWordFlags = (options & kOcrTextWordFlags) && random() % 2;
            const size_t words = entry.hasWordFlags ? CountOcrWords(entry.chars.data(), entry.chars.size()) : 0;
            for (size_t w = 0; w < words; ++w) entry.wordFlags.Append(random() % 2, &record);
            if (options & kOcrTextEntryValue) entry.value = static_cast<uint32_t>(random());
            writer.Add(entry, &record);
        }
        CheckedArray<uint8_t> written;
        ASSERT_TRUE(writer.Finish(&written, &record));
        const Bytes bytes(written.begin(), written.end());
        const int32_t width = 1 + random() % 5000, height = 1 + random() % 5000;
        EXPECT_EQ(Rewrite(bytes), bytes) << round;
        EXPECT_EQ(Rewrite(Rewrite(bytes, 90, width, height), 270, height, width), bytes) << round;
    }
}

TEST(OcrText, BoxesAreCodedMostSignificantBitFirstInTheShortestForm) {
    const Bytes bytes = Write(1, 0, 0, {{Boxed('A', 1, 2, 300, -1)}});
    EXPECT_EQ(Bytes(bytes.end() - 5, bytes.end()), (Bytes{0x02, 0x16, 0x01, 0x2C, 0x7C}));
    EXPECT_EQ(bytes.size(), 28u + 8 + 4 + 5);
}

TEST(OcrText, ExportsRefuseBadCallsAndBadData) {
    const Bytes good = Write(1, 0, 0, {{Boxed('a', 0, 0, 9, 9), Space(), Boxed('b', 20, 0, 29, 9)}});
    const DWORD size = static_cast<DWORD>(good.size());
    auto patched = [&](size_t at, uint8_t value) {
        Bytes bytes = good;
        bytes[at] = value;
        return Handle(bytes);
    };
    HGLOBAL text = Handle(good), empty = Handle(Write(1, 0, 0, {}));
    HGLOBAL bad[] = {patched(20, 3), patched(22, 45), patched(5, 'x'), patched(24, 200), Handle(Write(2, 0, 8, {}))};
    // Freed last, so that no block made since holds its value.
    HGLOBAL dead = platform::MemAlloc(GMEM_MOVEABLE, 32);
    platform::MemFree(dead);
    constexpr uint32_t kBad = kErrBadOcrTextData, kUnsupported = kErrUnsupportedOcrText;
    struct Row {
        const char* what;
        std::function<long()> call;
        long result;
        uint32_t error;
    };
    const Row rows[] = {
        {"count none", [&] { return GetVelmoraOCRTextCount(nullptr, 0); }, 0, 0},
        {"count empty", [&] { return GetVelmoraOCRTextCount(empty, 28); }, 0, 0},
        {"count dead", [&] { return GetVelmoraOCRTextCount(dead, size); }, -1, 6},
        {"count 27", [&] { return GetVelmoraOCRTextCount(text, 27); }, -1, kBad},
        {"count other size", [&] { return GetVelmoraOCRTextCount(text, size - 1); }, -1, kBad},
        {"count past block", [&] { return GetVelmoraOCRTextCount(text, 4096); }, -1, 87},
        {"format 3", [&] { return GetVelmoraOCRTextCount(bad[0], size); }, -1, kUnsupported},
        {"rotation 45", [&] { return GetVelmoraOCRTextCount(bad[1], size); }, -1, kBad},
        {"signature", [&] { return GetVelmoraOCRTextCount(bad[2], size); }, -1, kBad},
        {"table past end", [&] { return GetVelmoraOCRTextCount(bad[3], size); }, -1, kBad},
        {"option 8", [&] { return GetVelmoraOCRTextCount(bad[4], 32); }, -1, kUnsupported},
        {"rects empty", [&] { return GetVelmoraOCRTextRects(empty, 28, 0, 0, 0, nullptr); }, -1, 2},
        {"rects index", [&] { return GetVelmoraOCRTextRects(text, size, 1, 0, 1, nullptr); }, -1, 2},
        {"rects first", [&] { return GetVelmoraOCRTextRects(text, size, 0, 3, 0, nullptr); }, -1, 87},
        {"rects past end", [&] { return GetVelmoraOCRTextRects(text, size, 0, 1, 3, nullptr); }, -1, 87},
        {"destroy none", [&] { return DestroyVelmoraOCRText(nullptr); }, 1, 0},
        {"destroy dead", [&] { return DestroyVelmoraOCRText(dead); }, 0, 6},
    };
    for (const Row& row : rows) {
        SetErrorCode(0);
        EXPECT_EQ(row.call(), row.result) << row.what;
        EXPECT_EQ(LastErrorCode(), row.error) << row.what;
    }
    for (HGLOBAL handle : bad) EXPECT_EQ(DestroyVelmoraOCRText(handle), 1);
    EXPECT_TRUE(DestroyVelmoraOCRText(empty) && DestroyVelmoraOCRText(text));
}

TEST(OcrText, BoxesMergeAlongTheReadingDirectionOnly) {
    // Three letters side by side, three stacked letters, then a word far to the right.
    static const OcrBox kBoxes[] = {{0, 0, 9, 9},     {10, 0, 19, 9},   {20, 0, 29, 9},
                                    {30, 10, 39, 19}, {30, 20, 39, 29}, {30, 30, 39, 39}};
    std::vector<OcrChar> line = {Space(), Boxed('g', 200, 0, 209, 9)};
    for (const OcrBox& box : kBoxes) line.insert(line.end() - 2, OcrChar{'x', OcrCharKind::Boxed, box});
    static const struct {
        uint16_t rotation;
        std::vector<LONG> rects;
    } kCases[] = {
        {0, {0, 0, 29, 9, 30, 10, 39, 19, 30, 20, 39, 29, 30, 30, 39, 39, 200, 0, 209, 9}},
        {90, {0, 0, 9, 9, 10, 0, 19, 9, 20, 0, 29, 9, 30, 10, 39, 39, 200, 0, 209, 9}},
    };
    for (const auto& c : kCases) {
        HGLOBAL text = Handle(Write(1, c.rotation, 0, {line}));
        RECT rects[8];
        const LONG n = GetVelmoraOCRTextRects(text, static_cast<DWORD>(platform::MemSize(text)), 0, 0, 8, rects);
        EXPECT_EQ(std::vector<LONG>(&rects[0].left, &rects[0].left + 4 * std::max<LONG>(n, 0)), c.rects) << c.rotation;
        DestroyVelmoraOCRText(text);
    }
}

TEST(OcrText, TextLayerSetsWordsOverTheirBoxesAndLeavesRedactionsOut) {
    const Bytes r = Write(1, 0, 0,
                          {{Boxed('a', 10, 20, 19, 29), Boxed('(', 20, 20, 29, 29), Boxed('b', 30, 20, 39, 29),
                            Boxed(')', 40, 20, 49, 29), Space(), Boxed('c', 60, 20, 79, 29)}});
    auto layer = [&](const OcrBox* redactions, size_t count) {
        CheckedArray<uint8_t> out;
        ErrorRecord record;
        EXPECT_TRUE(BuildTextLayer(r.data(), static_cast<uint32_t>(r.size()), {100, 100, 72, 72, 0}, redactions, count,
                                   &out, &record));
        return std::string(out.begin(), out.end());
    };
    EXPECT_EQ(layer(nullptr, 0),
              "q 3 Tr BT 0 Tc /F1 12.722646 Tf 1 0 0 1 10 71.997455 Tm 131 Tz (a\\(b\\) ) Tj "
              "1 0 0 1 60 71.997455 Tm 262 Tz (c) Tj ET Q");
    const OcrBox touchingC = {79, 29, 90, 40};
    EXPECT_EQ(layer(&touchingC, 1),
              "q 3 Tr BT 0 Tc /F1 12.722646 Tf 1 0 0 1 10 71.997455 Tm 131 Tz (a\\(b\\) ) Tj ET Q");
}

}  // namespace
}  // namespace velmora
