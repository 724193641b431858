#include "dib/dib_layout.h"

namespace velmora {
namespace {

uint64_t Magnitude(int32_t value) {
    return value < 0 ? static_cast<uint64_t>(-static_cast<int64_t>(value)) : static_cast<uint64_t>(value);
}

bool HasPaletteHint(uint32_t bitCount) { return bitCount == 16 || bitCount == 24 || bitCount == 32; }

}  // namespace

uint32_t ColorCount(const BITMAPINFOHEADER* header) {
    uint32_t used = header->biClrUsed & 0xFFFFu;
    switch (header->biBitCount) {
        case 1: return used != 0 ? used : 2;
        case 4: return used != 0 ? used : 16;
        case 8: return used != 0 ? used : 256;
        default: return 0;
    }
}

uint64_t BitsOffset(const BITMAPINFOHEADER* header) {
    uint64_t offset = uint64_t{header->biSize} + uint64_t{ColorCount(header)} * 4;
    uint32_t bitCount = header->biBitCount;
    if ((bitCount == 16 || bitCount == 32) && header->biCompression == BI_BITFIELDS) offset += kBitFieldMaskBytes;
    if (HasPaletteHint(bitCount)) offset += uint64_t{header->biClrUsed} * 4;
    return offset;
}

uint64_t RowStride(uint32_t bitCount, uint64_t width) { return ((bitCount * width + 7) / 8 + 3) & ~uint64_t{3}; }

uint64_t RowStride(const BITMAPINFOHEADER* header) { return RowStride(header->biBitCount, Magnitude(header->biWidth)); }

bool ImageBytes(const BITMAPINFOHEADER* header, uint64_t* bytes) {
    // stride < 2^45 and height < 2^32, so the product is checked by division.
    uint64_t stride = RowStride(header);
    uint64_t height = Magnitude(header->biHeight);
    if (height != 0 && stride > kMaxPackedDibBytes / height) return false;
    *bytes = stride * height;
    return true;
}

bool PackedSize(const BITMAPINFOHEADER* header, uint64_t* bytes) {
    uint64_t rows = 0;
    if (!ImageBytes(header, &rows)) return false;
    uint64_t total = BitsOffset(header) + rows;  // both below 2^35
    if (total > kMaxPackedDibBytes) return false;
    *bytes = total;
    return true;
}

bool CoreFormatSize(const BITMAPINFOHEADER* header, uint64_t* bytes) {
    uint64_t rows = 0;
    if (!ImageBytes(header, &rows)) return false;
    uint32_t bitCount = header->biBitCount;
    uint64_t table = bitCount == 1 || bitCount == 4 || bitCount == 8 ? 3u << bitCount : 0;
    uint64_t total = 12 + table + rows;
    if (total > kMaxPackedDibBytes) return false;
    *bytes = total;
    return true;
}

DibRows RowsFromTop(BITMAPINFOHEADER* header, void* bits) {
    uint64_t stride = RowStride(header);
    uint32_t height = static_cast<uint32_t>(Magnitude(header->biHeight));
    DibRows rows;
    rows.rowBytes = static_cast<uint32_t>(stride);
    rows.height = height;
    rows.stride = -static_cast<ptrdiff_t>(stride);
    rows.top = static_cast<uint8_t*>(bits) + (height == 0 ? 0 : static_cast<size_t>(stride) * (height - 1));
    return rows;
}

uint32_t ColorDistance(COLORREF a, COLORREF b) {
    int dr = RedOf(a) - RedOf(b);
    int dg = GreenOf(a) - GreenOf(b);
    int db = BlueOf(a) - BlueOf(b);
    return static_cast<uint32_t>(dr * dr + dg * dg + db * db);
}

}  // namespace velmora
