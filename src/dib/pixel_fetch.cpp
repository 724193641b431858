#include "dib/pixel_fetch.h"

#include "dib/dib_layout.h"

namespace velmora {
namespace {

COLORREF TableColor(const BITMAPINFOHEADER* header, uint32_t index) {
    return index < ColorCount(header) ? ColorOf(ColorTable(header)[index]) : 0;
}

uint32_t Expand5(uint32_t v) { return v * 255 / 31; }

}  // namespace

COLORREF PixelColor(const BITMAPINFOHEADER* header, const void* bits, int32_t x, int32_t y) {
    if (x < 0 || y < 0 || x >= header->biWidth || y >= header->biHeight) return 0;
    const uint8_t* row =
        static_cast<const uint8_t*>(bits) + static_cast<size_t>(RowStride(header)) * (header->biHeight - 1 - y);
    uint32_t ux = static_cast<uint32_t>(x);
    switch (header->biBitCount) {
        case 1: return TableColor(header, row[ux / 8] >> (7 - ux % 8) & 1);
        case 4: return TableColor(header, ux % 2 == 0 ? row[ux / 2] >> 4 : row[ux / 2] & 0x0F);
        case 8: return TableColor(header, row[ux]);
        case 16: {
            uint32_t v = row[2 * size_t{ux}] | row[2 * size_t{ux} + 1] << 8;
            return Expand5(v >> 10 & 31) | Expand5(v >> 5 & 31) << 8 | Expand5(v & 31) << 16;
        }
        case 24: {
            const uint8_t* p = row + 3 * size_t{ux};
            return static_cast<COLORREF>(p[2]) | static_cast<COLORREF>(p[1]) << 8 | static_cast<COLORREF>(p[0]) << 16;
        }
        default: return 0;
    }
}

}  // namespace velmora
