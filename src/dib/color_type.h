// The colour type of an image: its depth and whether its table is grey.
#pragma once

#include <cstdint>

#include "velmora/wintypes.h"

namespace velmora {

// 0/1: 1 bit grey/colour; 2/3: 4 bits; 4/5: 8 bits; 6: 24 bits; 8: any
// other depth or a plane count other than 1. 7 is never returned.
int32_t DibColorType(const BITMAPINFOHEADER* header);

}  // namespace velmora
