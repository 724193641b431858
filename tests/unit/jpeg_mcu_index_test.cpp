// The compact MCU index: what goes in comes out, at every length form and
// every size class of predictor change, with restart breaks kept.
#include <gtest/gtest.h>

#include "jpeg/jpeg_mcu_index.h"

namespace velmora::jpeg {
namespace {

McuIndexEntry Entry(uint64_t startBit, uint32_t length, std::initializer_list<int32_t> before,
                    std::initializer_list<int32_t> after) {
    McuIndexEntry entry;
    entry.span.startByte = startBit / 8;
    entry.span.startBit = static_cast<uint32_t>(startBit % 8);
    entry.span.endByte = (startBit + length) / 8;
    entry.span.endBit = static_cast<uint32_t>((startBit + length) % 8);
    std::copy(before.begin(), before.end(), entry.before);
    std::copy(after.begin(), after.end(), entry.after);
    return entry;
}

bool Same(const McuIndexEntry& a, const McuIndexEntry& b) {
    return a.span.startByte == b.span.startByte && a.span.startBit == b.span.startBit &&
           a.span.endByte == b.span.endByte && a.span.endBit == b.span.endBit &&
           std::equal(a.before, a.before + 3, b.before) && std::equal(a.after, a.after + 3, b.after);
}

TEST(JpegMcuIndex, EntriesReadBackAsWritten) {
    // Lengths at the edges of the one-, two- and three-byte forms; predictor
    // changes of every class, negative ones included; entries that begin
    // where the last ended and entries that do not (a restart, a new row).
    const McuIndexEntry entries[] = {
        Entry(1000, 1, {5, 0, 0}, {5, -8, 7}),
        Entry(1001, 128, {5, -8, 7}, {-123, 127, -128}),
        Entry(1129, 129, {0, 0, 0}, {9, 100000, -100000}),
        Entry(1258, 16512, {9, 100000, -100000}, {9, 100000, -100000}),
        Entry(50000, 16513, {9, 99999, -100001}, {-2147483647 - 1, 2147483647, 0}),
        Entry(66513, kMaxIndexedMcuBits, {1, 2, 3}, {1, 2, 3}),
    };
    McuIndex index;
    velmora::ErrorRecord record;
    index.Reset(3);
    for (const McuIndexEntry& entry : entries) ASSERT_TRUE(index.Append(entry, &record));
    McuIndex::Reader reader(index);
    McuIndexEntry read;
    for (const McuIndexEntry& entry : entries) {
        ASSERT_TRUE(reader.Next(&read));
        EXPECT_TRUE(Same(read, entry)) << entry.span.startByte;
    }
    EXPECT_FALSE(reader.Next(&read));
    EXPECT_EQ(index.entries(), 6u);
    const McuSpan extent = index.Extent();
    EXPECT_EQ(extent.startByte * 8 + extent.startBit, 1000u);
    EXPECT_EQ(extent.endByte * 8 + extent.endBit, 66513u + kMaxIndexedMcuBits);

    // Spans that are empty, run backwards or are too long are refused.
    EXPECT_FALSE(index.Append(Entry(8, 0, {}, {}), &record));
    EXPECT_FALSE(index.Append(Entry(8, kMaxIndexedMcuBits + 1, {}, {}), &record));
    McuIndexEntry backwards = Entry(80, 8, {}, {});
    backwards.span.endByte = 9;
    EXPECT_FALSE(index.Append(backwards, &record));
    EXPECT_EQ(index.entries(), 6u);
}

TEST(JpegMcuIndex, UnchangedPredictorsAndShortLengthsTakeTwoBytesAMcu) {
    // One component, lengths below 129, each MCU leaving the predictor where
    // the next one finds it: a length byte and a class byte for "before",
    // and one class byte plus a nibble for a small change "after".
    McuIndex index;
    velmora::ErrorRecord record;
    index.Reset(1);
    int32_t predictor = 0;
    for (uint64_t i = 0; i < 100; ++i) {
        ASSERT_TRUE(index.Append(Entry(i * 40, 40, {predictor}, {predictor + 3}), &record));
        predictor += 3;
    }
    EXPECT_EQ(index.bytes(), 100u * 4);
}

}  // namespace
}  // namespace velmora::jpeg
