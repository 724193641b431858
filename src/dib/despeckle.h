// Removing specks from bi-level pages: small connected areas of one colour
// are painted over with the other.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "frame/progress.h"
#include "velmora/wintypes.h"

namespace velmora {

enum : uint32_t {
    kDespeckleWhite = 1,    // fill small areas of the lighter colour (holes)
    kDespeckleBlack = 2,    // remove small areas of the darker colour (dots)
    kDespeckleInPlace = 4,  // (export only) work on the host's pixels
};
constexpr uint32_t kDespeckleMaximum = 254;

// Removes, in place, every speck of at most `maximum` pixels (larger values
// count as kDespeckleMaximum) from a 1-bit DIB: the black pass first, then
// the white pass on its result. A speck is a set of pixels of one colour
// joined through their eight neighbours (diagonal contact joins), found on
// the image as the pass starts; its bounding rectangle, other pixels of the
// speck colour included, is filled with the other colour. The lighter colour
// is the table entry nearer to white by |dr| + |dg| + |db|, entry 1 on a
// tie. With both passes each reports half of the progress range.
bool DespeckleDib(const BITMAPINFOHEADER* header, void* bits, uint32_t maximum, uint32_t flags,
                  ProgressReporter* progress, ErrorRecord* record);

}  // namespace velmora
