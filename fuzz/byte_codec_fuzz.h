// Shared by the byte-codec fuzz targets: the first bytes of the input choose
// the page's shape, the rest is cut into two strips, decoded into rows of
// exactly their size (so that any stray write is caught), bottom-up as in a
// DIB or top-down and touching as in the page pipeline's strip buffers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "codecs/codec.h"

namespace velmora {

constexpr size_t kShapeBytes = 6;

inline void FuzzByteDecoder(StripDecoder& decoder, uint16_t compression, const uint8_t* data, size_t size) {
    if (size < kShapeBytes) return;
    CodecPage page;
    page.compression = compression;
    page.imageWidth = 1 + data[0] + (data[1] & 0x03) * 256u;  // 1 to 1024 pixels
    page.imageLength = 1 + (data[1] >> 2);                    // 1 to 64 rows
    page.rowsPerStrip = 1 + data[2] % page.imageLength;
    page.samplesPerPixel = 1 + (data[3] & 3);
    page.bitsPerSample = compression == 32809 ? 4 : (data[3] & 4) ? 16 : 8;
    page.predictor = (data[3] & 8) ? 2 : 1;
    page.fillOrder = (data[3] & 16) ? 2 : 1;
    page.endCodeRequired = (data[3] & 32) != 0;
    if (compression == 32809) page.samplesPerPixel = 1;
    page.outputWidth = (data[3] & 64) ? page.imageWidth - data[4] % page.imageWidth : page.imageWidth;
    const bool bottomUp = (data[3] & 128) == 0;
    page.stripCount = (page.imageLength + page.rowsPerStrip - 1) / page.rowsPerStrip;
    data += kShapeBytes;
    size -= kShapeBytes;
    size_t cut = size == 0 ? 0 : (size_t{data[-1]} * 256 + data[-2]) % (size + 1);

    const size_t visible =
        static_cast<size_t>(StoredRowBytes(page.outputWidth, page.bitsPerSample, page.samplesPerPixel));
    ErrorRecord record;
    if (!decoder.Begin(page, &record)) return;
    // The rows, each exactly its visible bytes.
    std::vector<uint8_t> image(visible * page.imageLength);
    const uint8_t* pieces[2] = {data, data + cut};
    const size_t sizes[2] = {cut, size - cut};
    for (uint32_t s = 0; s < 2 && s < page.stripCount; ++s) {
        // Each strip gets its own copy, so that reads past it are caught.
        std::vector<uint8_t> bytes(pieces[s], pieces[s] + sizes[s]);
        CodecStrip strip;
        strip.data = bytes.data();
        strip.size = bytes.size();
        strip.index = s;
        strip.firstRow = s * page.rowsPerStrip;
        strip.rows = page.rowsPerStrip;
        if (strip.firstRow >= page.imageLength) break;
        if (bottomUp) {
            strip.topRow = image.data() + visible * (page.imageLength - 1 - strip.firstRow);
            strip.stride = -static_cast<ptrdiff_t>(visible);
        } else {
            strip.topRow = image.data() + visible * strip.firstRow;
            strip.stride = static_cast<ptrdiff_t>(visible);
        }
        if (!decoder.Decode(strip, &record)) break;
    }
    decoder.End();
}

}  // namespace velmora
