// Fax strips come straight from files: the decoder must take any bytes.
// The first five bytes choose the coding, its options, the fill order, the
// width, the rows, a narrower output and a tile offset; the rest is the strip.
#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <vector>

#include "codecs/fax_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 5) return 0;
    static const uint16_t kCompressions[] = {2, 32771, 3, 4};
    uint16_t compression = kCompressions[data[0] & 3];
    uint32_t t4Options = (data[0] >> 2) & 0x5;  // two-dimensional, fill bits
    uint16_t fillOrder = (data[0] & 0x10) ? 2 : 1;
    bool bottomUp = (data[0] & 0x20) != 0;
    uint32_t width = 1 + (data[1] | (static_cast<uint32_t>(data[2] & 0x1F) << 8));  // 1 to 8192
    uint32_t rows = 1 + (data[3] & 0x3F);
    uint32_t outputWidth = width - std::min<uint32_t>(width - 1, data[4] & 0x0F);
    uint32_t xOffset = data[4] >> 4;
    data += 5;
    size -= 5;

    auto decoder = velmora::CreateFaxDecoder(compression);
    velmora::CodecPage page;
    page.imageWidth = width;
    page.outputWidth = outputWidth;
    page.imageLength = rows * 2;
    page.rowsPerStrip = rows;
    page.stripCount = 2;
    page.compression = compression;
    page.fillOrder = fillOrder;
    page.t4Options = t4Options;
    velmora::ErrorRecord record;
    if (!decoder->Begin(page, &record)) __builtin_trap();

    size_t rowBytes = (xOffset + outputWidth + 7) / 8;
    std::vector<uint8_t> image(rowBytes * rows, 0);
    velmora::CodecStrip strip;
    strip.data = data;
    strip.size = size;
    strip.rows = rows;
    strip.index = 1;
    strip.xOffset = xOffset;
    strip.topRow = bottomUp ? &image[rowBytes * (rows - 1)] : image.data();
    strip.stride = bottomUp ? -static_cast<ptrdiff_t>(rowBytes) : static_cast<ptrdiff_t>(rowBytes);
    bool ok = decoder->Decode(strip, &record);
    if (ok != record.ok()) __builtin_trap();
    if (!ok && record.code != velmora::kErrBadImageData) __builtin_trap();
    decoder->End();
    return 0;
}
