#include "dib/rotate.h"

#include <cstring>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace velmora {
namespace {

struct Plane {
    uint8_t* bits;
    size_t stride;
    uint32_t width;
    uint32_t height;
    // Row y counted from the top.
    uint8_t* Row(uint32_t y) const { return bits + stride * (height - 1 - y); }
};

// The source pixel that lands on destination (x, y), both from the top left.
struct SourceMap {
    int degrees;
    uint32_t width;   // of the source
    uint32_t height;  // of the source
    void At(uint32_t x, uint32_t y, uint32_t* sx, uint32_t* sy) const {
        switch (degrees) {
            case 90: *sx = y, *sy = height - 1 - x; break;
            case 180: *sx = width - 1 - x, *sy = height - 1 - y; break;
            case 270: *sx = width - 1 - y, *sy = x; break;
            default: *sx = x, *sy = y; break;
        }
    }
};

void TurnPackedPixels(const Plane& from, const Plane& to, const SourceMap& map, uint32_t bitCount) {
    // 1 and 4 bits: the leftmost pixel in the most significant bits.
    uint32_t perByte = 8 / bitCount;
    uint32_t mask = (1u << bitCount) - 1;
    for (uint32_t y = 0; y < to.height; ++y) {
        uint8_t* out = to.Row(y);
        for (uint32_t x = 0; x < to.width; ++x) {
            uint32_t sx, sy;
            map.At(x, y, &sx, &sy);
            uint32_t shift = (perByte - 1 - sx % perByte) * bitCount;
            uint32_t value = from.Row(sy)[sx / perByte] >> shift & mask;
            out[x / perByte] |= static_cast<uint8_t>(value << (perByte - 1 - x % perByte) * bitCount);
        }
    }
}

void TurnBytePixels(const Plane& from, const Plane& to, const SourceMap& map, uint32_t bytes) {
    for (uint32_t y = 0; y < to.height; ++y) {
        uint8_t* out = to.Row(y);
        for (uint32_t x = 0; x < to.width; ++x) {
            uint32_t sx, sy;
            map.At(x, y, &sx, &sy);
            std::memcpy(out + size_t{x} * bytes, from.Row(sy) + size_t{sx} * bytes, bytes);
        }
    }
}

}  // namespace

HGLOBAL RotateDib(HGLOBAL dib, int degrees, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    if (degrees != 0 && degrees != 90 && degrees != 180 && degrees != 270) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    ImageLock lock(dib);
    const BITMAPINFOHEADER* source = lock.header();
    uint8_t* sourceBits = lock.bits();
    if (source == nullptr || sourceBits == nullptr || source->biWidth <= 0 || source->biHeight <= 0) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    uint32_t bitCount = source->biBitCount;
    if (bitCount != 1 && bitCount != 4 && bitCount != 8 && bitCount != 16 && bitCount != 24 && bitCount != 32) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return nullptr;
    }
    bool quarter = degrees == 90 || degrees == 270;
    BITMAPINFOHEADER turned = *source;
    if (quarter) {
        turned.biWidth = source->biHeight;
        turned.biHeight = source->biWidth;
        turned.biXPelsPerMeter = source->biYPelsPerMeter;
        turned.biYPelsPerMeter = source->biXPelsPerMeter;
    }
    turned.biSizeImage = 0;
    uint64_t packed = 0;
    if (!PackedSize(&turned, &packed) || packed > SIZE_MAX) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    HGLOBAL result = AllocHandle(static_cast<size_t>(packed), GMEM_ZEROINIT, record);
    if (result == nullptr) return nullptr;
    auto* header = static_cast<BITMAPINFOHEADER*>(platform::MemLock(result));
    size_t headerBytes = static_cast<size_t>(BitsOffset(source));
    std::memcpy(header, source, headerBytes);
    *header = turned;

    Plane from{sourceBits, static_cast<size_t>(RowStride(source)), static_cast<uint32_t>(source->biWidth),
               static_cast<uint32_t>(source->biHeight)};
    Plane to{PackedBits(header), static_cast<size_t>(RowStride(header)), static_cast<uint32_t>(turned.biWidth),
             static_cast<uint32_t>(turned.biHeight)};
    SourceMap map{degrees, from.width, from.height};
    if (degrees == 0) {
        std::memcpy(to.bits, from.bits, to.stride * to.height);
    } else if (bitCount < 8) {
        TurnPackedPixels(from, to, map, bitCount);
    } else {
        TurnBytePixels(from, to, map, bitCount / 8);
    }
    platform::MemUnlock(result);
    return result;
}

}  // namespace velmora
