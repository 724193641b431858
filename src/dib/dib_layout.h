// The layout of a packed DIB: a 40-byte BITMAPINFOHEADER, the colour table,
// optional bit-field masks and a high-colour palette hint, then the pixel
// rows, bottom row first, each padded to a multiple of 4 bytes.
//
// Every size here is computed from the header alone (biSizeImage is never
// trusted) in 64-bit arithmetic; a size beyond kMaxPackedDibBytes is reported
// as not representable rather than wrapped.
#pragma once

#include <cstddef>
#include <cstdint>

#include "velmora/wintypes.h"

namespace velmora {

constexpr uint32_t kDibHeaderSize = 40;
constexpr uint32_t kBitFieldMaskBytes = 12;
// A packed DIB's size must fit the 32-bit sizes of the interface.
constexpr uint64_t kMaxPackedDibBytes = 0xFFFFFFFFu;
// The largest width or height the library builds an image of.
constexpr int32_t kMaxImageDimension = 1 << 24;

// The number of colour-table entries: at 1, 4 and 8 bits the low 16 bits of
// biClrUsed, or 2^bits when those are 0; none at other depths. Deliberately
// not clamped to 2^bits, so a table may be longer than the pixels can index.
uint32_t ColorCount(const BITMAPINFOHEADER* header);
// The bytes between the header start and the first pixel row: biSize, the
// colour table, 12 bytes of masks for bit fields at 16 and 32 bits, and the
// biClrUsed palette hint at 16, 24 and 32 bits.
uint64_t BitsOffset(const BITMAPINFOHEADER* header);
// The bytes of one row: whole bytes of |width| pixels, rounded up to 4.
uint64_t RowStride(uint32_t bitCount, uint64_t width);
uint64_t RowStride(const BITMAPINFOHEADER* header);
// Bytes of all rows (stride x |height|), or false when that exceeds
// kMaxPackedDibBytes.
bool ImageBytes(const BITMAPINFOHEADER* header, uint64_t* bytes);
// Bits offset plus all rows, or false when that exceeds kMaxPackedDibBytes.
bool PackedSize(const BITMAPINFOHEADER* header, uint64_t* bytes);
// The size of the same image as an old-style bitmap with a 12-byte core
// header and 3-byte table entries (2^bits of them at 1, 4 and 8 bits).
bool CoreFormatSize(const BITMAPINFOHEADER* header, uint64_t* bytes);

inline const RGBQUAD* ColorTable(const BITMAPINFOHEADER* header) {
    return reinterpret_cast<const RGBQUAD*>(reinterpret_cast<const uint8_t*>(header) + header->biSize);
}
inline RGBQUAD* ColorTable(BITMAPINFOHEADER* header) {
    return reinterpret_cast<RGBQUAD*>(reinterpret_cast<uint8_t*>(header) + header->biSize);
}
// The first stored (bottom) row of a packed DIB.
inline const uint8_t* PackedBits(const BITMAPINFOHEADER* header) {
    return reinterpret_cast<const uint8_t*>(header) + BitsOffset(header);
}
inline uint8_t* PackedBits(BITMAPINFOHEADER* header) { return reinterpret_cast<uint8_t*>(header) + BitsOffset(header); }

// The rows of a DIB seen from the top: `top` is the top image row, and adding
// `stride` (negative for the bottom-up layout) steps one row down the image.
struct DibRows {
    uint8_t* top;
    ptrdiff_t stride;
    uint32_t rowBytes;  // the padded length of one row
    uint32_t height;
};
DibRows RowsFromTop(BITMAPINFOHEADER* header, void* bits);

// Colour values are 0x00BBGGRR.
inline COLORREF ColorOf(const RGBQUAD& entry) {
    return static_cast<COLORREF>(entry.rgbRed) | static_cast<COLORREF>(entry.rgbGreen) << 8 |
           static_cast<COLORREF>(entry.rgbBlue) << 16;
}
inline RGBQUAD QuadOf(COLORREF color) {
    return RGBQUAD{static_cast<BYTE>(color >> 16), static_cast<BYTE>(color >> 8), static_cast<BYTE>(color), 0};
}
inline uint8_t RedOf(COLORREF color) { return static_cast<uint8_t>(color); }
inline uint8_t GreenOf(COLORREF color) { return static_cast<uint8_t>(color >> 8); }
inline uint8_t BlueOf(COLORREF color) { return static_cast<uint8_t>(color >> 16); }
// Squared Euclidean distance of two colours, unweighted.
uint32_t ColorDistance(COLORREF a, COLORREF b);

}  // namespace velmora
