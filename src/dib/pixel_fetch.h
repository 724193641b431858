// Reading one pixel's colour.
#pragma once

#include <cstdint>

#include "velmora/wintypes.h"

namespace velmora {

// The colour (0x00BBGGRR) of pixel (x, y), y counted from the top row, of a
// bottom-up DIB whose rows start at `bits`. Table depths look the index up
// in the colour table; 16 bits expand 5-5-5 fields by v * 255 / 31; 24 bits
// are blue, green, red. Other depths, coordinates outside the image and
// indexes past the table give 0 (black).
COLORREF PixelColor(const BITMAPINFOHEADER* header, const void* bits, int32_t x, int32_t y);

}  // namespace velmora
