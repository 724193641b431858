#include "dib/pixel_operations.h"

#include <algorithm>
#include <cstring>

#include "dib/image.h"
#include "dib/palette.h"
#include "dib/rotate.h"
#include "frame/checked_array.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace velmora {
namespace {

bool KnownDepth(uint32_t bitCount) {
    return bitCount == 1 || bitCount == 4 || bitCount == 8 || bitCount == 16 || bitCount == 24 || bitCount == 32;
}

// A DIB read and written pixel by pixel, rows counted from the top.
class Pixels {
public:
    Pixels(const BITMAPINFOHEADER* header, const void* bits)
        : rows_(RowsFromTop(const_cast<BITMAPINFOHEADER*>(header), const_cast<void*>(bits))),
          bitCount_(header->biBitCount),
          table_(ColorTable(header)),
          count_(ColorCount(header)) {}

    uint32_t bitCount() const { return bitCount_; }
    bool paletted() const { return bitCount_ <= 8; }
    uint8_t* Row(uint32_t y) const { return rows_.top + rows_.stride * static_cast<ptrdiff_t>(y); }
    const DibRows& rows() const { return rows_; }

    // Entries a pixel can index: the table, but no more than 2^bits.
    uint32_t usable() const { return std::min(count_, uint32_t{1} << bitCount_); }
    // The colour of an index; indexes past the table are black.
    COLORREF Entry(uint32_t index) const { return index < count_ ? ColorOf(table_[index]) : 0; }
    uint32_t Nearest(COLORREF color) const {
        int32_t index = NearestColor(table_, usable(), color, nullptr);
        return index < 0 ? 0 : static_cast<uint32_t>(index);
    }

    uint32_t Index(const uint8_t* row, uint32_t x) const {
        switch (bitCount_) {
            case 1: return row[x / 8] >> (7 - x % 8) & 1;
            case 4: return x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 0x0F;
            default: return row[x];
        }
    }
    void SetIndex(uint8_t* row, uint32_t x, uint32_t value) const {
        switch (bitCount_) {
            case 1: {
                uint8_t bit = static_cast<uint8_t>(0x80 >> x % 8);
                row[x / 8] = static_cast<uint8_t>(value != 0 ? row[x / 8] | bit : row[x / 8] & ~bit);
                break;
            }
            case 4:
                row[x / 2] = static_cast<uint8_t>(x % 2 == 0 ? (row[x / 2] & 0x0F) | value << 4
                                                             : (row[x / 2] & 0xF0) | (value & 0x0F));
                break;
            default: row[x] = static_cast<uint8_t>(value); break;
        }
    }

    COLORREF Color(const uint8_t* row, uint32_t x) const {
        switch (bitCount_) {
            case 1:
            case 4:
            case 8: return Entry(Index(row, x));
            case 16: {
                uint32_t v = row[2 * size_t{x}] | row[2 * size_t{x} + 1] << 8;
                return (v >> 10 & 31) * 255 / 31 | ((v >> 5 & 31) * 255 / 31) << 8 | ((v & 31) * 255 / 31) << 16;
            }
            default: {
                const uint8_t* p = row + size_t{x} * (bitCount_ / 8);
                return COLORREF{p[2]} | COLORREF{p[1]} << 8 | COLORREF{p[0]} << 16;
            }
        }
    }
    // Direct depths only (16, 24, 32). The top 5 bits of each channel at 16
    // bits, which read back as the same value; at 32 bits the fourth byte
    // is kept.
    void SetColor(uint8_t* row, uint32_t x, COLORREF color) const {
        if (bitCount_ == 16) {
            uint32_t v = (RedOf(color) >> 3) << 10 | (GreenOf(color) >> 3) << 5 | BlueOf(color) >> 3;
            row[2 * size_t{x}] = static_cast<uint8_t>(v);
            row[2 * size_t{x} + 1] = static_cast<uint8_t>(v >> 8);
            return;
        }
        uint8_t* p = row + size_t{x} * (bitCount_ / 8);
        p[0] = BlueOf(color);
        p[1] = GreenOf(color);
        p[2] = RedOf(color);
    }

private:
    DibRows rows_;
    uint32_t bitCount_;
    const RGBQUAD* table_;
    uint32_t count_;
};

COLORREF ApplyFill(COLORREF pixel, COLORREF color, uint32_t mode) {
    switch (mode) {
        case kFillSet: return color;
        case kFillAnd: return pixel & color;
        default:
            return static_cast<COLORREF>((RedOf(pixel) + RedOf(color)) / 2) |
                   static_cast<COLORREF>((GreenOf(pixel) + GreenOf(color)) / 2) << 8 |
                   static_cast<COLORREF>((BlueOf(pixel) + BlueOf(color)) / 2) << 16;
    }
}

// 8 bits starting `bit` bits into `source`, leftmost first; bytes beyond the
// `remaining` bits of the span are not read (their bits come out 0).
uint8_t BitsAt(const uint8_t* source, uint64_t bit, uint64_t remaining) {
    const size_t at = static_cast<size_t>(bit / 8);
    const unsigned shift = static_cast<unsigned>(bit % 8);
    unsigned value = static_cast<unsigned>(source[at]) << shift;
    if (shift != 0 && remaining > 8 - shift) value |= source[at + 1] >> (8 - shift);
    return static_cast<uint8_t>(value);
}

// Copies `count` bits between any bit positions of two rows.
void CopyBitSpan(const uint8_t* source, uint64_t sourceBit, uint8_t* target, uint64_t targetBit, uint64_t count) {
    while (count > 0 && targetBit % 8 != 0) {
        const unsigned bit = source[sourceBit / 8] >> (7 - sourceBit % 8) & 1;
        uint8_t& out = target[targetBit / 8];
        const uint8_t mask = static_cast<uint8_t>(0x80 >> targetBit % 8);
        out = static_cast<uint8_t>(bit != 0 ? out | mask : out & ~mask);
        ++sourceBit, ++targetBit, --count;
    }
    uint8_t* out = target + targetBit / 8;
    if (sourceBit % 8 == 0) {
        const size_t bytes = static_cast<size_t>(count / 8);
        std::memcpy(out, source + sourceBit / 8, bytes);
        out += bytes;
        sourceBit += uint64_t{bytes} * 8;
        count %= 8;
    } else {
        for (; count >= 8; count -= 8, sourceBit += 8) *out++ = BitsAt(source, sourceBit, count);
    }
    if (count > 0) {
        const uint8_t mask = static_cast<uint8_t>(0xFF << (8 - count));
        *out = static_cast<uint8_t>((*out & ~mask) | (BitsAt(source, sourceBit, count) & mask));
    }
}

}  // namespace

void FillBitRect(const DibRows& rows, uint32_t left, uint32_t top, uint32_t right, uint32_t bottom, BitFill fill) {
    if (left >= right || top >= bottom) return;
    const uint32_t first = left / 8, last = (right - 1) / 8;
    const uint8_t leftMask = static_cast<uint8_t>(0xFF >> left % 8);
    const uint8_t rightMask = static_cast<uint8_t>(0xFF << (7 - (right - 1) % 8));
    auto apply = [fill](uint8_t* byte, uint8_t mask) {
        switch (fill) {
            case BitFill::Clear: *byte = static_cast<uint8_t>(*byte & ~mask); break;
            case BitFill::Set: *byte = static_cast<uint8_t>(*byte | mask); break;
            case BitFill::Invert: *byte = static_cast<uint8_t>(*byte ^ mask); break;
        }
    };
    for (uint32_t y = top; y < bottom; ++y) {
        uint8_t* row = rows.top + rows.stride * static_cast<ptrdiff_t>(y);
        if (first == last) {
            apply(row + first, static_cast<uint8_t>(leftMask & rightMask));
            continue;
        }
        apply(row + first, leftMask);
        apply(row + last, rightMask);
        uint8_t* middle = row + first + 1;
        const size_t bytes = last - first - 1;
        if (fill == BitFill::Invert) {
            for (size_t i = 0; i < bytes; ++i) middle[i] = static_cast<uint8_t>(~middle[i]);
        } else {
            std::memset(middle, fill == BitFill::Set ? 0xFF : 0x00, bytes);
        }
    }
}

RECT ClipToImage(const BITMAPINFOHEADER* header, const RECT* rect) {
    RECT whole = {0, 0, header->biWidth, header->biHeight};
    if (rect == nullptr) return whole;
    RECT clipped = {std::max(rect->left, LONG{0}), std::max(rect->top, LONG{0}), std::min(rect->right, whole.right),
                    std::min(rect->bottom, whole.bottom)};
    if (clipped.right < clipped.left) clipped.right = clipped.left;
    if (clipped.bottom < clipped.top) clipped.bottom = clipped.top;
    return clipped;
}

bool FillDibRect(const BITMAPINFOHEADER* header, void* bits, const RECT& rect, COLORREF color, uint32_t mode,
                 ErrorRecord* record) {
    if (record->failed()) return false;
    if (header->biCompression != BI_RGB || !KnownDepth(header->biBitCount)) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    color &= 0xFFFFFFu;
    if (rect.left >= rect.right || rect.top >= rect.bottom) return true;
    const Pixels pixels(header, bits);
    const uint32_t left = static_cast<uint32_t>(rect.left), right = static_cast<uint32_t>(rect.right);
    const uint32_t top = static_cast<uint32_t>(rect.top), bottom = static_cast<uint32_t>(rect.bottom);
    if (!pixels.paletted()) {
        for (uint32_t y = top; y < bottom; ++y) {
            uint8_t* row = pixels.Row(y);
            for (uint32_t x = left; x < right; ++x)
                pixels.SetColor(row, x, ApplyFill(pixels.Color(row, x), color, mode));
        }
        return true;
    }
    // Each index's result, worked out once on the table.
    uint8_t map[256];
    const uint32_t indexes = uint32_t{1} << pixels.bitCount();
    for (uint32_t i = 0; i < indexes; ++i) {
        map[i] = static_cast<uint8_t>(pixels.Nearest(ApplyFill(pixels.Entry(i), color, mode)));
    }
    if (pixels.bitCount() == 1) {
        if (map[0] == 0 && map[1] == 1) return true;
        const BitFill fill = map[0] == map[1] ? (map[0] == 0 ? BitFill::Clear : BitFill::Set) : BitFill::Invert;
        FillBitRect(pixels.rows(), left, top, right, bottom, fill);
        return true;
    }
    for (uint32_t y = top; y < bottom; ++y) {
        uint8_t* row = pixels.Row(y);
        for (uint32_t x = left; x < right; ++x) pixels.SetIndex(row, x, map[pixels.Index(row, x)]);
    }
    return true;
}

void ReverseDibColors(BITMAPINFOHEADER* header, void* bits) {
    RGBQUAD* table = ColorTable(header);
    std::swap(table[0], table[1]);
    // The lowest bit of every index: each pixel's index 0 becomes 1 and back.
    const uint8_t flip = header->biBitCount == 1 ? 0xFF : header->biBitCount == 4 ? 0x11 : 0x01;
    uint64_t bytes = 0;
    ImageBytes(header, &bytes);
    auto* byte = static_cast<uint8_t*>(bits);
    for (uint64_t i = 0; i < bytes; ++i) byte[i] ^= flip;
}

HGLOBAL CreateMaskDib(const BITMAPINFOHEADER* header, const void* bits, COLORREF key, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    if (header->biCompression != BI_RGB || !KnownDepth(header->biBitCount)) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return nullptr;
    }
    key &= 0xFFFFFFu;
    const Pixels source(header, bits);
    RGBQUAD table[2] = {{0, 0, 0, 0}, {255, 255, 255, 0}};
    if (source.bitCount() == 1) {
        for (uint32_t i = 0; i < 2; ++i)
            table[i] = source.Entry(i) == key ? RGBQUAD{0, 0, 0, 0} : RGBQUAD{255, 255, 255, 0};
    }
    HGLOBAL mask = CreatePackedDib(header->biWidth, header->biHeight, 1, table, 2, header->biXPelsPerMeter,
                                   header->biYPelsPerMeter, record);
    if (mask == nullptr) return nullptr;
    ImageLock lock(mask);
    const Pixels target(lock.header(), lock.bits());
    const uint32_t width = static_cast<uint32_t>(header->biWidth);
    for (uint32_t y = 0; y < target.rows().height; ++y) {
        const uint8_t* in = source.Row(y);
        uint8_t* out = target.Row(y);
        if (source.bitCount() == 1) {
            std::memcpy(out, in, target.rows().rowBytes);
            continue;
        }
        for (uint32_t x = 0; x < width; ++x) {
            if (source.Color(in, x) != key) out[x / 8] = static_cast<uint8_t>(out[x / 8] | 0x80 >> x % 8);
        }
    }
    return mask;
}

bool DrawDibMask(const BITMAPINFOHEADER* header, void* bits, int32_t x, int32_t y, COLORREF color, const uint8_t* mask,
                 uint32_t maskWidth, uint32_t maskHeight, size_t maskStride, ErrorRecord* record) {
    if (record->failed()) return false;
    if (header->biCompression != BI_RGB || !KnownDepth(header->biBitCount)) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    color &= 0xFFFFFFu;
    const Pixels pixels(header, bits);
    const uint32_t index = pixels.paletted() ? pixels.Nearest(color) : 0;
    for (uint32_t my = 0; my < maskHeight; ++my) {
        const uint8_t* maskRow = mask + maskStride * my;
        uint8_t* row = pixels.Row(static_cast<uint32_t>(y) + my);
        for (uint32_t mx = 0; mx < maskWidth; ++mx) {
            if ((maskRow[mx / 8] >> (7 - mx % 8) & 1) != 0) continue;
            const uint32_t at = static_cast<uint32_t>(x) + mx;
            if (pixels.paletted()) {
                pixels.SetIndex(row, at, index);
            } else {
                pixels.SetColor(row, at, color);
            }
        }
    }
    return true;
}

bool CopyDibPixels(const BITMAPINFOHEADER* source, const void* sourceBits, const BITMAPINFOHEADER* destination,
                   void* destinationBits, int32_t x, int32_t y, ErrorRecord* record) {
    if (record->failed()) return false;
    if (source->biCompression != BI_RGB || destination->biCompression != BI_RGB || !KnownDepth(source->biBitCount) ||
        !KnownDepth(destination->biBitCount)) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    if (destination->biBitCount < source->biBitCount) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    // A source sharing memory with the destination is read from a copy.
    uint64_t sourceBytes = 0, destinationBytes = 0;
    ImageBytes(source, &sourceBytes);
    ImageBytes(destination, &destinationBytes);
    const auto sourceStart = reinterpret_cast<uintptr_t>(sourceBits);
    const auto destinationStart = reinterpret_cast<uintptr_t>(destinationBits);
    CheckedArray<uint8_t> copy;
    if (sourceStart < destinationStart + destinationBytes && destinationStart < sourceStart + sourceBytes) {
        if (!copy.Sized(sourceBytes, record)) return false;
        std::memcpy(copy.data(), sourceBits, static_cast<size_t>(sourceBytes));
        sourceBits = copy.data();
    }
    // The part of the source that lands inside the destination.
    const int64_t sx0 = std::max<int64_t>(0, -int64_t{x}), sy0 = std::max<int64_t>(0, -int64_t{y});
    const int64_t sx1 = std::min<int64_t>(source->biWidth, int64_t{destination->biWidth} - x);
    const int64_t sy1 = std::min<int64_t>(source->biHeight, int64_t{destination->biHeight} - y);
    if (sx0 >= sx1 || sy0 >= sy1) return true;
    const Pixels from(source, sourceBits);
    const Pixels to(destination, destinationBits);
    const uint32_t bitCount = from.bitCount();
    const bool sameValues = bitCount == to.bitCount() && (!from.paletted() || SamePalette(source, destination));
    uint8_t map[256] = {};
    if (!sameValues && to.paletted()) {
        for (uint32_t i = 0; i < (uint32_t{1} << bitCount); ++i)
            map[i] = static_cast<uint8_t>(to.Nearest(from.Entry(i)));
    }
    for (int64_t sy = sy0; sy < sy1; ++sy) {
        const uint8_t* in = from.Row(static_cast<uint32_t>(sy));
        uint8_t* out = to.Row(static_cast<uint32_t>(sy + y));
        if (sameValues) {
            CopyBitSpan(in, static_cast<uint64_t>(sx0) * bitCount, out, static_cast<uint64_t>(sx0 + x) * bitCount,
                        static_cast<uint64_t>(sx1 - sx0) * bitCount);
            continue;
        }
        for (int64_t sx = sx0; sx < sx1; ++sx) {
            const uint32_t at = static_cast<uint32_t>(sx + x);
            if (to.paletted()) {
                to.SetIndex(out, at, map[from.Index(in, static_cast<uint32_t>(sx))]);
            } else {
                to.SetColor(out, at, from.Color(in, static_cast<uint32_t>(sx)));
            }
        }
    }
    return true;
}

HGLOBAL CopyDibRect(const BITMAPINFOHEADER* header, const void* bits, const RECT& rect, int degrees,
                    ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    if (degrees != 0 && degrees != 90 && degrees != 180 && degrees != 270) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    if (!KnownDepth(header->biBitCount)) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return nullptr;
    }
    if (rect.left < 0 || rect.top < 0 || rect.left >= rect.right || rect.top >= rect.bottom ||
        rect.right > header->biWidth || rect.bottom > header->biHeight) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    BITMAPINFOHEADER part = *header;
    part.biWidth = rect.right - rect.left;
    part.biHeight = rect.bottom - rect.top;
    part.biSizeImage = 0;
    uint64_t packed = 0;
    if (!PackedSize(&part, &packed) || packed > SIZE_MAX) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return nullptr;
    }
    HGLOBAL copy = AllocHandle(static_cast<size_t>(packed), GMEM_ZEROINIT, record);
    if (copy == nullptr) return nullptr;
    {
        auto* target = static_cast<BITMAPINFOHEADER*>(platform::MemLock(copy));
        // The header, then the table, masks and palette hint as they are.
        std::memcpy(target, header, static_cast<size_t>(BitsOffset(header)));
        *target = part;
        const Pixels from(header, bits);
        const Pixels to(target, PackedBits(target));
        const uint32_t bitCount = header->biBitCount;
        const uint32_t height = static_cast<uint32_t>(part.biHeight);
        for (uint32_t y = 0; y < height; ++y) {
            CopyBitSpan(from.Row(static_cast<uint32_t>(rect.top) + y),
                        uint64_t{static_cast<uint32_t>(rect.left)} * bitCount, to.Row(y), 0,
                        uint64_t{static_cast<uint32_t>(part.biWidth)} * bitCount);
            if (progress != nullptr && !progress->Row(y, height, record)) break;
        }
        platform::MemUnlock(copy);
    }
    if (record->failed()) {
        FreeHandle(&copy);
        return nullptr;
    }
    if (degrees == 0) return copy;
    HGLOBAL turned = RotateDib(copy, degrees, record);
    FreeHandle(&copy);
    return turned;
}

}  // namespace velmora
