// OCR text records: random records of every coding read back as written,
// the exports' errors, box merging, and the invisible text layer's bytes.
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

struct Record {
    std::vector<uint8_t> bytes;
};

Record Write(uint16_t format, uint16_t rotation, uint32_t options, std::vector<std::vector<OcrChar>> lines) {
    OcrTextWriter writer;
    ErrorRecord record;
    writer.Begin(format, rotation, options, static_cast<uint32_t>(lines.size()));
    for (const auto& line : lines) {
        OcrEntry entry;
        for (const OcrChar& c : line) entry.chars.Append(c, &record);
        writer.Add(entry, &record);
    }
    CheckedArray<uint8_t> out;
    writer.Finish(&out, &record);
    EXPECT_TRUE(record.ok());
    return {std::vector<uint8_t>(out.begin(), out.end())};
}

HGLOBAL Handle(const std::vector<uint8_t>& bytes) {
    HGLOBAL handle = platform::MemAlloc(GMEM_MOVEABLE, bytes.size());
    std::memcpy(platform::MemLock(handle), bytes.data(), bytes.size());
    platform::MemUnlock(handle);
    return handle;
}

OcrChar Boxed(uint16_t code, int32_t left, int32_t top, int32_t right, int32_t bottom) {
    return {code, OcrCharKind::Boxed, {left, top, right, bottom}};
}
OcrChar Space() { return {' ', OcrCharKind::Separator, {}}; }

bool Same(const OcrBox& a, const OcrBox& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

TEST(OcrText, RandomRecordsReadBackAsWrittenAndTurnBack) {
    std::mt19937 random(7);
    auto number = [&] {
        static const int32_t kRanges[] = {15, 127, 32767, 0x7FFFFFFF};
        const int32_t range = kRanges[random() % 4];
        return static_cast<int32_t>(std::uniform_int_distribution<int64_t>(-int64_t{range} - 1, range)(random));
    };
    for (int round = 0; round < 300; ++round) {
        const uint16_t format = 1 + round % 2;
        const uint32_t options = format == 2 ? random() % 8 : 0;
        const uint16_t rotation = 90 * (random() % 4);
        const bool narrow = options & kOcrTextNarrow;
        std::vector<std::vector<OcrChar>> lines(round % 5 == 0 ? 0 : 1 + random() % 4);
        std::vector<std::vector<uint8_t>> flags(lines.size());
        std::vector<uint32_t> values(lines.size(), 1);
        ErrorRecord record;
        OcrTextWriter writer;
        writer.Begin(format, rotation, options, static_cast<uint32_t>(lines.size()));
        for (size_t i = 0; i < lines.size(); ++i) {
            OcrEntry entry;
            for (int n = random() % 12; n > 0; --n) {
                const uint16_t code = static_cast<uint16_t>(1 + random() % (narrow ? 255 : 65535));
                const auto kind = static_cast<OcrCharKind>(random() % 3);
                OcrChar c{code, kind, {}};
                if (kind == OcrCharKind::Boxed) c.box = {number(), number(), number(), number()};
                lines[i].push_back(c);
                entry.chars.Append(c, &record);
            }
            entry.hasWordFlags = (options & kOcrTextWordFlags) && random() % 2;
            for (size_t w = 0; entry.hasWordFlags && w < CountOcrWords(entry.chars.data(), entry.chars.size()); ++w) {
                flags[i].push_back(random() % 2);
                entry.wordFlags.Append(flags[i].back(), &record);
            }
            if (options & kOcrTextEntryValue) values[i] = entry.value = static_cast<uint32_t>(random());
            writer.Add(entry, &record);
        }
        CheckedArray<uint8_t> bytes;
        ASSERT_TRUE(writer.Finish(&bytes, &record));

        OcrTextView view;
        ASSERT_TRUE(OpenOcrText(bytes.data(), static_cast<uint32_t>(bytes.size()), &view, &record)) << round;
        EXPECT_EQ(view.count, lines.size());
        EXPECT_EQ(view.rotation, rotation);
        const int32_t width = 1 + random() % 5000, height = 1 + random() % 5000;
        CheckedArray<uint8_t> turned, back;
        RotateOcrText(view, 90, width, height, &turned, &record);
        OcrTextView turnedView, backView;
        OpenOcrText(turned.data(), static_cast<uint32_t>(turned.size()), &turnedView, &record);
        RotateOcrText(turnedView, 270, height, width, &back, &record);
        OpenOcrText(back.data(), static_cast<uint32_t>(back.size()), &backView, &record);
        ASSERT_TRUE(record.ok()) << round;
        EXPECT_EQ(std::vector<uint8_t>(back.begin(), back.end()), std::vector<uint8_t>(bytes.begin(), bytes.end()));
        for (uint32_t i = 0; i < view.count; ++i) {
            OcrEntry entry;
            ASSERT_TRUE(ReadOcrEntry(view, i, &entry, &record));
            ASSERT_EQ(entry.chars.size(), lines[i].size());
            for (size_t c = 0; c < lines[i].size(); ++c) {
                EXPECT_EQ(entry.chars[c].code, lines[i][c].code);
                EXPECT_EQ(entry.chars[c].kind, lines[i][c].kind);
                EXPECT_TRUE(Same(entry.chars[c].box, lines[i][c].box)) << round << " " << i << " " << c;
            }
            EXPECT_EQ(std::vector<uint8_t>(entry.wordFlags.begin(), entry.wordFlags.end()), flags[i]);
            EXPECT_EQ(entry.value, values[i]);
        }
        // Any record cut short, with its size field telling the truth, is refused or read.
        for (uint32_t cut = kOcrTextHeaderSizeV1; cut < bytes.size(); cut += 1 + cut / 3) {
            std::vector<uint8_t> part(bytes.begin(), bytes.begin() + cut);
            std::memcpy(part.data(), &cut, 4);
            ErrorRecord partRecord;
            OcrTextView partView;
            if (OpenOcrText(part.data(), cut, &partView, &partRecord)) {
                OcrEntry entry;
                for (uint32_t i = 0; i < partView.count; ++i) ReadOcrEntry(partView, i, &entry, &partRecord);
            }
            EXPECT_TRUE(partRecord.ok() || partRecord.code == kErrBadOcrTextData) << std::hex << partRecord.code;
        }
    }
}

TEST(OcrText, BoxesAreCodedMostSignificantBitFirstInTheShortestForm) {
    const Record r = Write(1, 0, 0, {{Boxed('A', 1, 2, 300, -1)}});
    const std::vector<uint8_t> boxes(r.bytes.end() - 5, r.bytes.end());
    EXPECT_EQ(boxes, (std::vector<uint8_t>{0x02, 0x16, 0x01, 0x2C, 0x7C}));
    EXPECT_EQ(r.bytes.size(), 28u + 8 + 4 + 5);
}

TEST(OcrText, ExportsRefuseBadCallsAndBadData) {
    const Record good = Write(1, 0, 0, {{Boxed('a', 0, 0, 9, 9), Space(), Boxed('b', 20, 0, 29, 9)}});
    const DWORD size = static_cast<DWORD>(good.bytes.size());
    std::vector<uint8_t> format3 = good.bytes, rotation45 = good.bytes, badSignature = good.bytes,
                         shortTable = good.bytes, options8 = Write(2, 0, 8, {}).bytes;
    format3[20] = 3;
    rotation45[22] = 45;
    badSignature[5] ^= 1;
    shortTable[24] = 200;
    const uint8_t empty[28] = {28,  0,   0,   0,   'V', 'e', 'l', 'm', 'o', 'r', 'a',
                               'O', 'C', 'R', 'T', 'e', 'x', 't', 0,   0,   1};
    HGLOBAL text = Handle(good.bytes), emptyText = Handle(std::vector<uint8_t>(empty, empty + 28));
    std::vector<HGLOBAL> bad;
    for (const auto* bytes : {&format3, &rotation45, &badSignature, &shortTable, &options8})
        bad.push_back(Handle(*bytes));
    // Freed last, so that no block made since holds its value.
    HGLOBAL dead = platform::MemAlloc(GMEM_MOVEABLE, 32);
    platform::MemFree(dead);
    RECT one[1];
    const DWORD optionsSize = static_cast<DWORD>(options8.size());
    constexpr uint32_t kBad = kErrBadOcrTextData, kUnsupported = kErrUnsupportedOcrText;
    struct Row {
        const char* what;
        std::function<long()> call;
        long result;
        uint32_t error;
    };
    const Row rows[] = {
        {"count none", [&] { return GetVelmoraOCRTextCount(nullptr, 0); }, 0, 0},
        {"count empty", [&] { return GetVelmoraOCRTextCount(emptyText, 28); }, 0, 0},
        {"count", [&] { return GetVelmoraOCRTextCount(text, size); }, 1, 0},
        {"count dead", [&] { return GetVelmoraOCRTextCount(dead, size); }, -1, 6},
        {"count 27", [&] { return GetVelmoraOCRTextCount(text, 27); }, -1, kBad},
        {"count other size", [&] { return GetVelmoraOCRTextCount(text, size - 1); }, -1, kBad},
        {"count past block", [&] { return GetVelmoraOCRTextCount(text, 4096); }, -1, 87},
        {"format 3", [&] { return GetVelmoraOCRTextCount(bad[0], size); }, -1, kUnsupported},
        {"rotation 45", [&] { return GetVelmoraOCRTextCount(bad[1], size); }, -1, kBad},
        {"signature", [&] { return GetVelmoraOCRTextCount(bad[2], size); }, -1, kBad},
        {"table past end", [&] { return GetVelmoraOCRTextCount(bad[3], size); }, -1, kBad},
        {"option 8", [&] { return GetVelmoraOCRTextCount(bad[4], optionsSize); }, -1, kUnsupported},
        {"rects", [&] { return GetVelmoraOCRTextRects(text, size, 0, 0, 3, nullptr); }, 2, 0},
        {"rects empty", [&] { return GetVelmoraOCRTextRects(emptyText, 28, 0, 0, 0, nullptr); }, -1, 2},
        {"rects index", [&] { return GetVelmoraOCRTextRects(text, size, 1, 0, 1, nullptr); }, -1, 2},
        {"rects first", [&] { return GetVelmoraOCRTextRects(text, size, 0, 3, 0, nullptr); }, -1, 87},
        {"rects past end", [&] { return GetVelmoraOCRTextRects(text, size, 0, 1, 3, nullptr); }, -1, 87},
        {"rects bad data", [&] { return GetVelmoraOCRTextRects(bad[2], size, 0, 0, 1, nullptr); }, -1, kBad},
        {"rects dead", [&] { return GetVelmoraOCRTextRects(dead, size, 0, 0, 1, one); }, -1, 6},
        {"destroy none", [&] { return DestroyVelmoraOCRText(nullptr); }, 1, 0},
        {"destroy dead", [&] { return DestroyVelmoraOCRText(dead); }, 0, 6},
    };
    for (const Row& row : rows) {
        SetErrorCode(0);
        EXPECT_EQ(row.call(), row.result) << row.what;
        EXPECT_EQ(LastErrorCode(), row.error) << row.what;
    }
    for (HGLOBAL handle : bad) EXPECT_EQ(DestroyVelmoraOCRText(handle), 1);
    EXPECT_EQ(DestroyVelmoraOCRText(emptyText), 1);
    EXPECT_EQ(DestroyVelmoraOCRText(text), 1);
}

TEST(OcrText, BoxesMergeAlongTheReadingDirectionOnly) {
    // Three letters side by side, three stacked letters, then a word far to the right.
    const std::vector<OcrChar> line = {Boxed('a', 0, 0, 9, 9),
                                       Boxed('b', 10, 0, 19, 9),
                                       Boxed('c', 20, 0, 29, 9),
                                       Boxed('d', 30, 10, 39, 19),
                                       Boxed('e', 30, 20, 39, 29),
                                       Boxed('f', 30, 30, 39, 39),
                                       Space(),
                                       Boxed('g', 200, 0, 209, 9)};
    static const struct {
        uint16_t rotation;
        std::vector<std::vector<int32_t>> rects;
    } kCases[] = {
        {0, {{0, 0, 29, 9}, {30, 10, 39, 19}, {30, 20, 39, 29}, {30, 30, 39, 39}, {200, 0, 209, 9}}},
        {90, {{0, 0, 9, 9}, {10, 0, 19, 9}, {20, 0, 29, 9}, {30, 10, 39, 39}, {200, 0, 209, 9}}},
    };
    for (const auto& c : kCases) {
        HGLOBAL text = Handle(Write(1, c.rotation, 0, {line}).bytes);
        const DWORD size = static_cast<DWORD>(platform::MemSize(text));
        RECT rects[8];
        ASSERT_EQ(GetVelmoraOCRTextRects(text, size, 0, 0, 8, rects), static_cast<LONG>(c.rects.size()));
        for (size_t i = 0; i < c.rects.size(); ++i) {
            EXPECT_EQ((std::vector<int32_t>{rects[i].left, rects[i].top, rects[i].right, rects[i].bottom}), c.rects[i])
                << c.rotation << " " << i;
        }
        DestroyVelmoraOCRText(text);
    }
}

TEST(OcrText, TextLayerSetsWordsOverTheirBoxesAndLeavesRedactionsOut) {
    const Record r = Write(1, 0, 0,
                           {{Boxed('a', 10, 20, 19, 29), Boxed('(', 20, 20, 29, 29), Boxed('b', 30, 20, 39, 29),
                             Boxed(')', 40, 20, 49, 29), Space(), Boxed('c', 60, 20, 79, 29)}});
    const TextLayerPage page = {100, 100, 72, 72, 0};
    auto layer = [&](const OcrBox* redactions, size_t count) {
        CheckedArray<uint8_t> out;
        ErrorRecord record;
        EXPECT_TRUE(BuildTextLayer(r.bytes.data(), static_cast<uint32_t>(r.bytes.size()), page, redactions, count, &out,
                                   &record));
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
