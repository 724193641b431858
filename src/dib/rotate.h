// Turning a finished image by quarter turns.
#pragma once

#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

// A new packed DIB holding `dib` (any kind but a spill store) turned
// clockwise by `degrees` (0, 90, 180 or 270) at 1, 4, 8, 16, 24 or 32 bits.
// Quarter turns exchange width and height and the two resolutions; the
// colour table, masks and palette hint are copied. The source is left as it
// is. Null on failure: 87 for another angle, 0x02000005 for another depth.
HGLOBAL RotateDib(HGLOBAL dib, int degrees, ErrorRecord* record);

}  // namespace velmora
