// Changing the colour type of a DIB, and making a palette image smaller.
//
// Grey levels weigh red, green and blue by 0.299, 0.587 and 0.114 in 24-bit
// fixed point, rounded to 8 bits: (255, 0, 0) is 76. A 4-bit grey is the
// 8-bit grey shifted right by 4 (truncated after rounding), and a bi-level
// pixel is white when its 8-bit grey is 128 or more. Bi-level and grey
// results carry an ascending ramp: entry 0 black, the last entry white.
//
// Every conversion makes a new packed DIB with the source's resolution; the
// source is never changed.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "frame/progress.h"
#include "velmora/wintypes.h"

namespace velmora {

// Targets of ChangeDibColor: the colour types (0 bi-level, 1 two-colour
// palette, 2 16-level grey, 3 16-colour palette, 4 256-level grey, 5
// 256-colour palette, 6 24-bit colour) and dithered bi-level.
constexpr int32_t kTargetDitheredBilevel = -2;

// The rounded 8-bit grey of a colour (0x00BBGGRR).
uint8_t GreyLevel(COLORREF color);

// Converts the validated DIB (`header` and its first stored row `bits`) to
// `target`. Null with the record set: 87 for an unknown target or a plane
// count other than 1, 8 when memory is short, 1223 when cancelled.
HGLOBAL ChangeDibColor(const BITMAPINFOHEADER* header, const void* bits, int32_t target, ProgressReporter* progress,
                       ErrorRecord* record);

// Replaces the locked DIB image `*dib`, whose header is `header`, by its
// conversion to black and white (dithered, or thresholded) and returns the
// new image's header, locked. Null after a failure, with `*dib` freed.
BITMAPINFOHEADER* ReplaceWithBilevel(HGLOBAL* dib, BITMAPINFOHEADER* header, bool dither, ErrorRecord* record);

// The smallest palette image with the same pixels: 16-, 24- and 32-bit
// sources of at most 256 colours become 1-, 4- or 8-bit palette images (8-bit
// grey when every colour of a 24-bit source is grey); 4- and 8-bit sources
// keep only the distinct colours their pixels use. Null with the record clear
// when there is no smaller form (more than 256 colours, a 1-bit source).
HGLOBAL OptimizeDibColors(const BITMAPINFOHEADER* header, const void* bits, ProgressReporter* progress,
                          ErrorRecord* record);

}  // namespace velmora
