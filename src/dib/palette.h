// Colour tables: grey classification, nearest colours, equality, and the
// LOGPALETTE form GDI takes.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

enum class GreyKind : int {
    NotGrey = 0,     // some entry has red, green and blue not all equal (or no table)
    Irregular = 1,   // grey, but not an exact ramp of 2^bits entries
    Ascending = 2,   // entry i = i * 255 / (n - 1): black is zero
    Descending = 3,  // entry i = (n - 1 - i) * 255 / (n - 1): white is zero
};

GreyKind ClassifyGrey(const RGBQUAD* table, uint32_t count, uint32_t bitCount);
GreyKind ClassifyGrey(const BITMAPINFOHEADER* header);
inline bool IsGreyTable(const BITMAPINFOHEADER* header) { return ClassifyGrey(header) != GreyKind::NotGrey; }

// Ramp entry i of n (n >= 2): i * 255 / (n - 1), truncating.
inline uint8_t RampLevel(uint32_t i, uint32_t n) { return static_cast<uint8_t>(i * 255u / (n - 1)); }

// The index of the first entry equal to `color`, else of the entry nearest
// to it by squared distance (the first such entry wins ties); -1 for an
// empty table. `found` (optional) receives the entry's colour.
int32_t NearestColor(const RGBQUAD* table, uint32_t count, COLORREF color, COLORREF* found);
// The same, never choosing an entry whose colour is `excluded`; -1 when
// every entry is excluded.
int32_t NearestColorExcluding(const RGBQUAD* table, uint32_t count, COLORREF color, COLORREF excluded, COLORREF* found);

// Two DIBs have the same table when their colour counts are equal and
// non-zero and the entries match in red, green and blue, in order.
bool SamePalette(const BITMAPINFOHEADER* a, const BITMAPINFOHEADER* b);

// A movable block holding a LOGPALETTE (u16 version 0x300, u16 count, then
// red, green, blue, 0 per entry) made from the DIB's colour table.
HGLOBAL LogPaletteFromTable(const BITMAPINFOHEADER* header, ErrorRecord* record);
constexpr uint16_t kLogPaletteVersion = 0x300;

}  // namespace velmora
