// The shape every strip decoder has: set up once per page, decode once per
// strip or tile, end once per page. A decoder writes the rows of a strip
// top row first, through a row pointer and a stride that is negative when
// the rows go into a bottom-up DIB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "frame/progress.h"
#include "frame/error_record.h"

namespace velmora {

// What a decoder learns of the page, once.
struct CodecPage {
    uint32_t imageWidth = 0;       // pixels in a stored row (ImageWidth, or the tile width)
    uint32_t outputWidth = 0;      // pixels to write per row (at most imageWidth)
    uint32_t imageLength = 0;      // rows of the image (ImageLength)
    uint32_t rowsPerStrip = 0;     // rows per strip (RowsPerStrip, or the tile length)
    uint32_t stripCount = 0;       // strips or tiles of the page
    uint16_t compression = 1;      // the Compression tag
    uint16_t bitsPerSample = 1;    // bits of one sample
    uint16_t samplesPerPixel = 1;  // samples in a stored pixel (1 for one plane of a planar page)
    uint16_t fillOrder = 1;        // 1: most significant bit first; 2: least significant first
    uint16_t predictor = 1;        // 1: none; 2: horizontal differencing
    uint32_t t4Options = 0;
    uint32_t t6Options = 0;
    bool endCodeRequired = false;  // LZW: a strip that runs out of codes before its end code fails
};

// One strip or tile to decode.
struct CodecStrip {
    const uint8_t* data = nullptr;  // the strip's bytes as stored in the file
    size_t size = 0;                // their count
    uint32_t firstRow = 0;          // the image row of the strip's first row
    uint32_t rows = 0;              // rows to produce
    uint32_t index = 0;             // the strip's index
    uint32_t xOffset = 0;           // where a tile starts in the image, in pixels (its rows still go to topRow)
    uint8_t* topRow = nullptr;      // where the strip's first row goes
    ptrdiff_t stride = 0;           // from one output row to the next (negative for bottom-up DIBs)
    ProgressReporter* progress = nullptr;  // may be null
};

// Bytes of one stored row: samples of `bitsPerSample` bits, packed.
inline uint64_t StoredRowBytes(uint32_t width, uint16_t bitsPerSample, uint16_t samplesPerPixel) {
    return (uint64_t{width} * bitsPerSample * samplesPerPixel + 7) / 8;
}

class StripDecoder {
public:
    virtual ~StripDecoder() = default;
    // Set-up for a page; false with the record set when the page's
    // parameters cannot be decoded.
    virtual bool Begin(const CodecPage& page, ErrorRecord* record) = 0;
    // Decodes one strip into `strip.rows` rows of the page's row size; false
    // with the record set on failure.
    virtual bool Decode(const CodecStrip& strip, ErrorRecord* record) = 0;
    // End of the page.
    virtual void End() {}
};

// Makes a decoder without aborting when memory is short: null then, which
// callers report as "Not enough memory.".
template <typename Decoder, typename... Args>
std::unique_ptr<StripDecoder> NewDecoder(Args&&... args) {
    return std::unique_ptr<StripDecoder>(new (std::nothrow) Decoder(std::forward<Args>(args)...));
}

}  // namespace velmora
