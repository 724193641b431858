// Reducing a DIB to a smaller size, for thumbnails.
//
// Each target pixel (x, y) covers the source pixels from x * W / w up to
// (x + 1) * W / w (at least one) across, and likewise down. A smooth
// reduction averages them, rounded: grey sources (1-bit with a grey table,
// grey tables at 4 and 8 bits) become 8-bit grey images with the ascending
// ramp, the others 24-bit images. A nearest reduction takes each box's first
// pixel and keeps the source's depth and table (16- and 32-bit sources become
// 24-bit). The resolution is scaled so that the physical size stays.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

// A new packed DIB of `width` x `height` (1 to the source's size) from the
// validated DIB `header` with its first stored row at `bits`; null with the
// record set when memory is short.
HGLOBAL ReduceDib(const BITMAPINFOHEADER* header, const void* bits, uint32_t width, uint32_t height, bool smooth,
                  ErrorRecord* record);

}  // namespace velmora
