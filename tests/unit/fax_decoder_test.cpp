// The fax decoder's corners that real encoders rarely produce: rows that end
// exactly at the width or run past it, EOLs where none belong, damaged
// two-dimensional rows, strips that end early, tile offsets, progress and
// cancel. The bulk of the checking (long runs, word-aligned rows, both fill
// orders) is the comparison with libtiff (tests/interop).
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "codecs/fax_decoder.h"
#include "../support/bit_writer.h"

namespace velmora {
namespace {

// Code words of ITU-T T.4 used below, in transmission order.
constexpr const char* kEol = "000000000001";
constexpr const char* kHorizontal = "001";
constexpr const char* kVertical0 = "1";
constexpr const char* kVerticalLeft3 = "0000010";
constexpr const char* kPass = "0001";
constexpr const char* kExtension = "0000001";

// Bit streams, most significant bit first; padding with ones, which no
// aligned reader may see, or zeros.
using Bits = testing_support::BitWriter;

struct Result {
    bool ok = false;
    uint32_t error = 0;
    std::vector<std::string> rows;  // '#' black, '.' white, over the whole output byte row
};

struct Job {
    uint16_t compression = 4;
    uint32_t width = 16;
    uint32_t outputWidth = 0;  // 0: the width
    uint32_t rows = 1;
    uint32_t t4Options = 0;
    uint32_t xOffset = 0;
    bool bottomUp = false;
    ProgressReporter* progress = nullptr;
    uint32_t stripIndex = 0, stripCount = 1;
};

Result Decode(const Job& job, const std::vector<uint8_t>& data) {
    Result result;
    uint32_t outputWidth = job.outputWidth ? job.outputWidth : job.width;
    size_t rowBytes = (job.xOffset + outputWidth + 7) / 8;
    std::vector<uint8_t> image(rowBytes * job.rows, 0);
    auto decoder = CreateFaxDecoder(job.compression);
    if (decoder == nullptr) return result;
    CodecPage page;
    page.imageWidth = job.width;
    page.outputWidth = outputWidth;
    page.imageLength = job.rows * job.stripCount;
    page.rowsPerStrip = job.rows;
    page.stripCount = job.stripCount;
    page.compression = job.compression;
    page.t4Options = job.t4Options;
    ErrorRecord record;
    if (decoder->Begin(page, &record)) {
        CodecStrip strip;
        strip.data = data.data();
        strip.size = data.size();
        strip.rows = job.rows;
        strip.index = job.stripIndex;
        strip.xOffset = job.xOffset;
        strip.progress = job.progress;
        // A bottom-up image keeps its top row last in memory.
        strip.topRow = job.bottomUp ? &image[rowBytes * (job.rows - 1)] : image.data();
        strip.stride = job.bottomUp ? -static_cast<ptrdiff_t>(rowBytes) : static_cast<ptrdiff_t>(rowBytes);
        result.ok = decoder->Decode(strip, &record);
        decoder->End();
    }
    result.error = record.code;
    for (uint32_t r = 0; r < job.rows; ++r) {
        const uint8_t* row = &image[rowBytes * (job.bottomUp ? job.rows - 1 - r : r)];
        std::string text;
        for (size_t x = 0; x < rowBytes * 8; ++x) text += (row[x / 8] & (0x80 >> (x % 8))) ? '#' : '.';
        result.rows.push_back(text);
    }
    return result;
}

TEST(FaxDecoder, ModifiedHuffmanRowsEndExactlyAtTheWidth) {
    Bits bits;
    bits << "1100"
         << "011"
         << "1111";  // white 5, black 4, white 7
    bits.Align(8, true);
    bits << "00110101"
         << "0000010111";  // white 0, black 16: black from the first pixel
    bits.Align(8, true);
    bits << "101010";  // white 16 ends the row without a black run
    bits.Align(8, true);
    bits << "00111"
         << "00011";  // white 10, black 7: past the width
    bits.Align(8, false);
    bits << "1100"
         << "011"
         << "1111";  // never reached

    Job job{.compression = 2, .width = 16, .rows = 5};
    Result r = Decode(job, bits.bytes());
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, kErrBadImageData);
    EXPECT_EQ(r.rows[0], ".....####.......");
    EXPECT_EQ(r.rows[1], "################");
    EXPECT_EQ(r.rows[2], "................");
    EXPECT_EQ(r.rows[3], "..........######");  // the run is drawn up to the width, then the strip fails
    EXPECT_EQ(r.rows[4], "................");
}

// An EOL inside Modified Huffman data, or an EOL off the byte boundary when
// the Group 3 fill-bit option is set, fails the strip only after all its
// rows were decoded.
TEST(FaxDecoder, MisplacedEolsFailTheStripAfterItsRows) {
    Bits mh;
    mh << "1100"
       << "0011"
       << "1000";  // white 5, black 5, white 3
    mh.Align(8, false);
    mh << kEol;
    mh.Align(8, false);
    mh << "1000"
       << "0011"
       << "1100";  // white 3, black 5, white 5
    mh.Align(8, false);
    Result r = Decode(Job{.compression = 2, .width = 13, .rows = 3}, mh.bytes());
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, kErrBadImageData);
    EXPECT_EQ(r.rows[0], ".....#####......");
    EXPECT_EQ(r.rows[1], "................");
    EXPECT_EQ(r.rows[2], "...#####........");

    Bits g3;
    g3 << "0000" << kEol << "1100"
       << "0011"
       << "1000";  // fill bits, then an EOL ending on a byte boundary
    g3 << "0" << kEol << "1000"
       << "0011"
       << "1100";  // an EOL ending at bit 41
    Job job{.compression = 3, .width = 13, .rows = 2, .t4Options = 4};
    r = Decode(job, g3.bytes());
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.rows[0], ".....#####......");
    EXPECT_EQ(r.rows[1], "...#####........");
    job.t4Options = 0;  // without the option the same data is good
    EXPECT_TRUE(Decode(job, g3.bytes()).ok);
}

// A two-dimensional row that goes wrong is completed to the width from its
// last changing element and drawn; the rows after it stay white. Rows go
// into a bottom-up image.
TEST(FaxDecoder, TwoDimensionalRowInProgressIsCompleted) {
    Bits bits;
    bits << kHorizontal << "1011"
         << "0000111";                 // white 4, black 12
    bits << kVertical0 << kExtension;  // black from b1 = 4, then uncompressed mode
    bits << kHorizontal << "1011"
         << "0000111";
    Job job{.compression = 4, .width = 16, .rows = 3, .bottomUp = true};
    Result r = Decode(job, bits.bytes());
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, kErrBadImageData);
    EXPECT_EQ(r.rows[0], "....############");
    EXPECT_EQ(r.rows[1], "....############");
    EXPECT_EQ(r.rows[2], "................");

    // a1 = b1 - 3 lies left of the row's start.
    Bits left;
    left << kHorizontal << "000111"
         << "000011000"  // white 1, black 15
         << kVerticalLeft3;
    r = Decode(Job{.compression = 4, .width = 16, .rows = 2}, left.bytes());
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.rows[0], ".###############");
    EXPECT_EQ(r.rows[1], "................");
}

// Padding after the last row is never read; data that ends inside a row with
// no bit left fails and keeps the rows before it.
TEST(FaxDecoder, StripEndingEarlyKeepsFinishedRows) {
    Bits bits;
    bits << kHorizontal << "1000"
         << "10" << kVertical0;   // white 3, black 3, white to the end
    bits << kPass << kVertical0;  // pass to b2 = 6 (white goes on), then V0 at the row's end
    bits << kVertical0;           // the same again
    bits << kEol << kEol;         // end of facsimile block
    Job job{.compression = 4, .width = 16, .rows = 3};
    Result r = Decode(job, bits.bytes());
    EXPECT_TRUE(r.ok) << std::hex << r.error;
    EXPECT_EQ(r.rows[0], "...###..........");
    EXPECT_EQ(r.rows[1], "................");
    EXPECT_EQ(r.rows[2], "................");

    // Row 2: V0 (black from 3), horizontal black 2, and the white run's code
    // is missing: the row is completed after its last change and drawn.
    Bits cut;
    cut << kHorizontal << "1000"
        << "10" << kVertical0 << kVertical0 << kHorizontal << "11";
    ASSERT_EQ(cut.count(), 16u);
    job.rows = 3;
    r = Decode(job, cut.bytes());
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, kErrBadImageData);
    EXPECT_EQ(r.rows[0], "...###..........");
    EXPECT_EQ(r.rows[1], "...##...........");
    EXPECT_EQ(r.rows[2], "................");

    // Group 3: an EOL search that runs into the zeros ending the data (once
    // made the bit reader shift by 64).
    std::vector<uint8_t> g3 = {0xBF, 0xF9, 0x0C, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    r = Decode(Job{.compression = 3, .width = 127, .rows = 2}, g3);
    EXPECT_FALSE(r.ok);
}

// Rows are cut at the output width; a tile's rows start at the row's start
// whatever the tile's place in the page.
TEST(FaxDecoder, TileOffsetAndOutputWidth) {
    Bits bits;
    bits << kHorizontal << "0111"
         << "000011000";  // white 2, black 15... past 16
    Bits good;
    good << kHorizontal << "0111"
         << "0000111" << kVertical0;  // white 2, black 12, white to the end
    Job job{.compression = 4, .width = 16, .outputWidth = 10, .xOffset = 3};
    Result r = Decode(job, good.bytes());
    EXPECT_TRUE(r.ok) << std::hex << r.error;
    EXPECT_EQ(r.rows[0], "..########......");
    EXPECT_FALSE(Decode(job, bits.bytes()).ok);
}

int g_reported = -1;
BOOL VELMORA_CALLBACK Cancel(DWORD percent, UINT_PTR) {
    g_reported = static_cast<int>(percent);
    return 0;
}

TEST(FaxDecoder, ProgressReportsThePageShareAndCanCancel) {
    Bits bits;
    for (int i = 0; i < 4; ++i)
        bits << kHorizontal << "1000"
             << "10" << kVertical0;
    ProgressReporter progress(Cancel, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));  // past the 50 ms between reports
    Job job{.compression = 4, .width = 16, .rows = 4, .progress = &progress, .stripIndex = 1, .stripCount = 2};
    Result r = Decode(job, bits.bytes());
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, kErrCancelled);
    EXPECT_EQ(g_reported, 62);  // 100 * (1 * 4 + 1) / (2 * 4)
    EXPECT_EQ(r.rows[0], "...###..........");
    EXPECT_EQ(r.rows[1], "................");
}

TEST(FaxDecoder, RefusesWhatItCannotDecode) {
    EXPECT_EQ(CreateFaxDecoder(1), nullptr);
    EXPECT_EQ(CreateFaxDecoder(5), nullptr);
    auto decoder = CreateFaxDecoder(4);
    CodecPage page;
    page.imageWidth = page.outputWidth = 100;
    page.t6Options = 2;  // uncompressed mode allowed
    ErrorRecord record;
    EXPECT_FALSE(decoder->Begin(page, &record));
    EXPECT_EQ(record.code, kErrUnsupportedImageType);
    ErrorRecord second;
    page.t6Options = 0;
    page.imageWidth = kMaxFaxWidth + 1;
    EXPECT_FALSE(decoder->Begin(page, &second));
    EXPECT_EQ(second.code, kErrUnsupportedImageType);
}

}  // namespace
}  // namespace velmora
