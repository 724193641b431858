// Changing the pixel size of a DIB.
//
// Two qualities. Nearest-pixel resizing keeps the depth, table, masks and
// hint of the source: destination row r takes source row r * h / H and
// column c takes column c * w / W (rows counted in stored order, bottom row
// 0). Smooth reduction averages every source pixel of a destination pixel's
// box: destination column i covers source columns i * w / W up to
// (i + 1) * w / W, rows alike.
//
//   1-bit source      8-bit result whose table runs from the colour of entry
//                     0 to that of entry 1; each value counts the box's
//                     pixels of index 1. A uniform reduction (w a multiple of
//                     W, h of H) with at most 254 pixels a box stores the
//                     count itself in a ramp of count + 1 entries; otherwise
//                     count * 255 / box area in a 256-entry ramp.
//   grey table        8-bit grey (ascending ramp), the truncated average level.
//   colour            24 bits, the truncated average of each channel.
//
// One dimension growing while the other shrinks takes two passes (reduce,
// then enlarge). The resolution is scaled with the pixel size.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "frame/progress.h"
#include "velmora/wintypes.h"

namespace velmora {

enum class ResizeQuality { Nearest, Smooth };

// What becomes of a smooth result's colours: colour optimisation, which may
// replace it with the smallest palette image of the same colours; nothing;
// or, for a grey result, its pixels stored as their grey levels under the
// ascending 256-entry ramp (the form thumbnails are written in).
enum class ResizeColors { Optimize, Keep, GreyLevels };

// A new packed DIB of width x height (each 1 to kMaxImageDimension) from the
// validated DIB `header` whose first stored row is at `bits`. Null with the
// record set: 87 for a size out of range or a depth nearest resizing cannot
// take (bytes per pixel other than 1, 2, 3 at 8 bits and more), 0x02000005
// for a depth smooth reduction cannot average (anything but 1, 4, 8, 16, 24
// bits), 1223 when `progress` cancels, or the allocation error. `progress`
// may be null; it reports each pass by destination rows.
HGLOBAL ResizeDib(const BITMAPINFOHEADER* header, const void* bits, uint32_t width, uint32_t height,
                  ResizeQuality quality, ResizeColors colors, ProgressReporter* progress, ErrorRecord* record);

}  // namespace velmora
