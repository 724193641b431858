#include "dib/palette.h"

#include <cstring>

#include "dib/dib_layout.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace velmora {

GreyKind ClassifyGrey(const RGBQUAD* table, uint32_t count, uint32_t bitCount) {
    if (count == 0) return GreyKind::NotGrey;
    for (uint32_t i = 0; i < count; ++i) {
        if (table[i].rgbRed != table[i].rgbGreen || table[i].rgbGreen != table[i].rgbBlue) return GreyKind::NotGrey;
    }
    if (bitCount >= 32 || count != uint32_t{1} << bitCount || count < 2) return GreyKind::Irregular;
    bool ascending = true;
    bool descending = true;
    for (uint32_t i = 0; i < count; ++i) {
        ascending = ascending && table[i].rgbRed == RampLevel(i, count);
        descending = descending && table[i].rgbRed == RampLevel(count - 1 - i, count);
    }
    if (ascending) return GreyKind::Ascending;
    if (descending) return GreyKind::Descending;
    return GreyKind::Irregular;
}

GreyKind ClassifyGrey(const BITMAPINFOHEADER* header) {
    return ClassifyGrey(ColorTable(header), ColorCount(header), header->biBitCount);
}

namespace {

int32_t Nearest(const RGBQUAD* table, uint32_t count, COLORREF color, bool exclude, COLORREF excluded,
                COLORREF* found) {
    int32_t best = -1;
    uint32_t bestDistance = 0;
    for (uint32_t i = 0; i < count; ++i) {
        COLORREF entry = ColorOf(table[i]);
        if (exclude && entry == excluded) continue;
        uint32_t distance = ColorDistance(entry, color);
        if (best < 0 || distance < bestDistance) {
            best = static_cast<int32_t>(i);
            bestDistance = distance;
            if (distance == 0) break;  // an exact match is the first equal entry
        }
    }
    if (best >= 0 && found != nullptr) *found = ColorOf(table[best]);
    return best;
}

}  // namespace

int32_t NearestColor(const RGBQUAD* table, uint32_t count, COLORREF color, COLORREF* found) {
    return Nearest(table, count, color & 0xFFFFFFu, false, 0, found);
}

int32_t NearestColorExcluding(const RGBQUAD* table, uint32_t count, COLORREF color, COLORREF excluded,
                              COLORREF* found) {
    return Nearest(table, count, color & 0xFFFFFFu, true, excluded & 0xFFFFFFu, found);
}

bool SamePalette(const BITMAPINFOHEADER* a, const BITMAPINFOHEADER* b) {
    uint32_t count = ColorCount(a);
    if (count == 0 || count != ColorCount(b)) return false;
    const RGBQUAD* ta = ColorTable(a);
    const RGBQUAD* tb = ColorTable(b);
    for (uint32_t i = 0; i < count; ++i) {
        if (ColorOf(ta[i]) != ColorOf(tb[i])) return false;
    }
    return true;
}

HGLOBAL LogPaletteFromTable(const BITMAPINFOHEADER* header, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    uint32_t count = ColorCount(header);
    HGLOBAL block = AllocHandle(4 + size_t{count} * 4, 0, record);
    if (block == nullptr) return nullptr;
    auto* out = static_cast<uint8_t*>(platform::MemLock(block));
    uint16_t version = kLogPaletteVersion;
    uint16_t entries = static_cast<uint16_t>(count);
    std::memcpy(out, &version, 2);
    std::memcpy(out + 2, &entries, 2);
    const RGBQUAD* table = ColorTable(header);
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t* entry = out + 4 + size_t{i} * 4;
        entry[0] = table[i].rgbRed;
        entry[1] = table[i].rgbGreen;
        entry[2] = table[i].rgbBlue;
        entry[3] = 0;
    }
    platform::MemUnlock(block);
    return block;
}

}  // namespace velmora
