#include "dib/reduction.h"

#include <cstring>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/palette.h"
#include "dib/pixel_fetch.h"
#include "dib/resolution.h"

namespace velmora {
namespace {

// The source span of target position `i` of `target` positions over `source`.
void Span(uint32_t i, uint32_t target, uint32_t source, uint32_t* first, uint32_t* end) {
    *first = static_cast<uint32_t>(uint64_t{i} * source / target);
    *end = static_cast<uint32_t>(uint64_t{i + 1} * source / target);
    if (*end <= *first) *end = *first + 1;
}

bool IsGreySource(const BITMAPINFOHEADER* header) {
    const uint16_t bits = header->biBitCount;
    return (bits == 1 || bits == 4 || bits == 8) && ClassifyGrey(header) != GreyKind::NotGrey;
}

// Copies the packed bits of one pixel (1, 4, 8 or 24 bits) from `in` to `out`.
void CopyPixel(uint16_t bits, const uint8_t* in, uint32_t from, uint8_t* out, uint32_t to) {
    if (bits == 24) {
        std::memcpy(out + 3 * to, in + 3 * from, 3);
        return;
    }
    const uint32_t perByte = 8 / bits, mask = (1u << bits) - 1;
    const uint32_t shiftIn = (perByte - 1 - from % perByte) * bits, shiftOut = (perByte - 1 - to % perByte) * bits;
    const uint32_t value = (in[from / perByte] >> shiftIn) & mask;
    out[to / perByte] = static_cast<uint8_t>((out[to / perByte] & ~(mask << shiftOut)) | value << shiftOut);
}

}  // namespace

HGLOBAL ReduceDib(const BITMAPINFOHEADER* header, const void* bits, uint32_t width, uint32_t height, bool smooth,
                  ErrorRecord* record) {
    if (record->failed()) return nullptr;
    const uint32_t sourceWidth = static_cast<uint32_t>(header->biWidth);
    const uint32_t sourceHeight = static_cast<uint32_t>(header->biHeight);
    const uint16_t sourceBits = header->biBitCount;
    const bool grey = IsGreySource(header);
    const bool keepDepth = !smooth && (sourceBits == 1 || sourceBits == 4 || sourceBits == 8 || sourceBits == 24);
    const uint16_t bitCount = keepDepth ? sourceBits : (smooth && grey ? 8 : 24);
    const int32_t xPels = ScalePelsPerMeter(header->biXPelsPerMeter, width, sourceWidth);
    const int32_t yPels = ScalePelsPerMeter(header->biYPelsPerMeter, height, sourceHeight);
    HGLOBAL result = nullptr;
    if (keepDepth) {
        result = CreatePackedDib(static_cast<int32_t>(width), static_cast<int32_t>(height), bitCount,
                                 ColorTable(header), ColorCount(header), xPels, yPels, record);
    } else {
        result =
            CreateImage(static_cast<int32_t>(width), static_cast<int32_t>(height), bitCount, xPels, yPels,
                        bitCount == 8 ? 256 : 0, kStorageZeroInit | (bitCount == 8 ? kStorageGreyRamp : 0), record);
    }
    if (result == nullptr) return nullptr;
    ImageLock lock(result);
    BITMAPINFOHEADER* out = lock.header();
    const uint64_t inStride = RowStride(header), outStride = RowStride(out);
    const auto* inRows = static_cast<const uint8_t*>(bits);
    uint8_t* outRows = PackedBits(out);
    for (uint32_t y = 0; y < height; ++y) {
        uint32_t y0, y1;
        Span(y, height, sourceHeight, &y0, &y1);
        // Rows are stored bottom first; y counts from the top.
        uint8_t* row = outRows + (height - 1 - y) * outStride;
        for (uint32_t x = 0; x < width; ++x) {
            uint32_t x0, x1;
            Span(x, width, sourceWidth, &x0, &x1);
            if (keepDepth) {
                CopyPixel(bitCount, inRows + (sourceHeight - 1 - y0) * inStride, x0, row, x);
                continue;
            }
            uint64_t red = 0, green = 0, blue = 0;
            for (uint32_t sy = y0; sy < y1; ++sy) {
                for (uint32_t sx = x0; sx < x1; ++sx) {
                    const COLORREF c = PixelColor(header, bits, static_cast<int32_t>(sx), static_cast<int32_t>(sy));
                    red += RedOf(c);
                    green += GreenOf(c);
                    blue += BlueOf(c);
                }
            }
            const uint64_t n = uint64_t{x1 - x0} * (y1 - y0);
            if (bitCount == 8) {
                row[x] = static_cast<uint8_t>((green + n / 2) / n);
            } else {
                row[3 * x] = static_cast<uint8_t>((blue + n / 2) / n);
                row[3 * x + 1] = static_cast<uint8_t>((green + n / 2) / n);
                row[3 * x + 2] = static_cast<uint8_t>((red + n / 2) / n);
            }
        }
    }
    return result;
}

}  // namespace velmora
