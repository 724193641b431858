// Runs a strip decoder over a whole page the way the page pipeline does: rows
// go bottom-up into a buffer with 4-byte aligned rows, whose bytes outside
// the written part of each row keep a guard value.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "codecs/codec.h"
#include "frame/error_record.h"

namespace velmora::testing {

constexpr uint8_t kGuard = 0xEE;

struct DecodedPage {
    bool ok = false;
    ErrorRecord record;
    std::vector<uint8_t> rows;  // the written bytes of every row, top row first
    bool guardsIntact = true;   // nothing was written outside the rows' visible parts
    std::u16string message() const { return record.message; }
};

// Where the rows go: bottom-up with 4-byte aligned rows as in a DIB, or top
// down and touching, as the page pipeline's strip buffers (guards only
// before and after them).
enum class RowLayout { kBottomUp, kTouching };

// Decodes `strips` (each of page.rowsPerStrip rows, the last one shorter) and
// returns the visible bytes of all rows.
inline DecodedPage DecodePage(StripDecoder& decoder, const CodecPage& page,
                              const std::vector<std::vector<uint8_t>>& strips, ProgressReporter* progress = nullptr,
                              RowLayout layout = RowLayout::kBottomUp) {
    DecodedPage result;
    uint32_t outputWidth = page.outputWidth == 0 ? page.imageWidth : page.outputWidth;
    size_t visible = static_cast<size_t>(StoredRowBytes(outputWidth, page.bitsPerSample, page.samplesPerPixel));
    const bool bottomUp = layout == RowLayout::kBottomUp;
    size_t stride = bottomUp ? (visible + 3) & ~size_t{3} : visible;
    std::vector<uint8_t> dib(stride * page.imageLength + 64, kGuard);
    uint8_t* base = dib.data() + 32;  // guard bytes before and after the rows
    if (!decoder.Begin(page, &result.record)) return result;
    bool ok = true;
    for (uint32_t i = 0; i < strips.size() && ok; ++i) {
        CodecStrip strip;
        strip.data = strips[i].data();
        strip.size = strips[i].size();
        strip.index = i;
        strip.firstRow = i * page.rowsPerStrip;
        strip.rows = page.rowsPerStrip;
        if (strip.firstRow >= page.imageLength) break;
        strip.topRow = base + stride * (bottomUp ? page.imageLength - 1 - strip.firstRow : strip.firstRow);
        strip.stride = bottomUp ? -static_cast<ptrdiff_t>(stride) : static_cast<ptrdiff_t>(stride);
        strip.progress = progress;
        ok = decoder.Decode(strip, &result.record);
    }
    decoder.End();
    result.ok = ok;
    for (uint32_t r = 0; r < page.imageLength; ++r) {
        const uint8_t* row = base + stride * (bottomUp ? page.imageLength - 1 - r : r);
        result.rows.insert(result.rows.end(), row, row + visible);
        for (size_t k = visible; k < stride; ++k) result.guardsIntact &= row[k] == kGuard;
    }
    for (size_t k = 0; k < 32; ++k) result.guardsIntact &= dib[k] == kGuard && dib[dib.size() - 1 - k] == kGuard;
    return result;
}

// An 8-bit page of `width` x `length` samples of `samples` per pixel.
inline CodecPage BytePage(uint16_t compression, uint32_t width, uint32_t length, uint32_t rowsPerStrip,
                          uint16_t samples = 1, uint16_t predictor = 1) {
    CodecPage page;
    page.compression = compression;
    page.imageWidth = page.outputWidth = width;
    page.imageLength = length;
    page.rowsPerStrip = rowsPerStrip;
    page.stripCount = (length + rowsPerStrip - 1) / rowsPerStrip;
    page.bitsPerSample = 8;
    page.samplesPerPixel = samples;
    page.predictor = predictor;
    return page;
}

}  // namespace velmora::testing
