// Packed DIBs for tests: a header, a table and rows in one vector, with the
// rows filled by a caller's rule.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "dib/dib_layout.h"
#include "velmora/wintypes.h"

namespace velmora::test {

struct TestDib {
    std::vector<uint32_t> words;  // 4-byte aligned storage
    BITMAPINFOHEADER* header() { return reinterpret_cast<BITMAPINFOHEADER*>(words.data()); }
    uint8_t* bits() { return PackedBits(header()); }
    RGBQUAD* table() { return ColorTable(header()); }
};

inline TestDib MakeDib(int32_t width, int32_t height, uint16_t bitCount, uint32_t clrUsed = 0,
                       uint32_t compression = BI_RGB) {
    BITMAPINFOHEADER h = {};
    h.biSize = 40;
    h.biWidth = width;
    h.biHeight = height;
    h.biPlanes = 1;
    h.biBitCount = bitCount;
    h.biCompression = compression;
    h.biClrUsed = clrUsed;
    uint64_t size = 0;
    PackedSize(&h, &size);
    TestDib dib;
    dib.words.assign((size + 3) / 4, 0);
    *dib.header() = h;
    return dib;
}

// Sets pixel (x, y), y from the top, to `value` (an index or a packed pixel).
inline void SetPixel(BITMAPINFOHEADER* h, uint8_t* bits, int32_t x, int32_t y, uint32_t value) {
    uint8_t* row = bits + RowStride(h) * (h->biHeight - 1 - y);
    switch (h->biBitCount) {
        case 1: row[x / 8] = static_cast<uint8_t>((row[x / 8] & ~(0x80 >> x % 8)) | (value & 1) << (7 - x % 8)); break;
        case 4:
            row[x / 2] = static_cast<uint8_t>(x % 2 == 0 ? (row[x / 2] & 0x0F) | (value & 15) << 4
                                                         : (row[x / 2] & 0xF0) | (value & 15));
            break;
        default: std::memcpy(row + x * (h->biBitCount / 8), &value, h->biBitCount / 8); break;
    }
}

// A deterministic pseudo-random sequence.
inline uint32_t NextRandom(uint32_t* state) {
    *state = *state * 1664525u + 1013904223u;
    return *state >> 8;
}

}  // namespace velmora::test
