// One JPEG stream from a page stored as JPEG in several strips, made without
// decoding: each strip's entropy-coded data becomes one restart interval
// (ITU-T T.81 B.2.4.4, E.1.4) of a single frame as tall as the page. A
// restart resets the DC predictions exactly as the start of a new strip
// does, so the joined stream holds the same coefficients as the strips.
#pragma once

#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"

namespace velmora {

// Joins the strips of a JPEG page (compression 7, chunky, 8-bit samples).
// Returns false with the record untouched when the strips cannot be joined:
// they are not baseline or extended sequential single-scan streams with the
// same frame layout, scan header and tables; a strip other than the last
// does not end on a row of MCUs; a strip holds restart markers of its own or
// a second scan; a strip's frame height is not its share of the page; or a
// strip holds more MCUs than a restart interval can count. Reading errors
// and a lack of memory fail the record.
bool JoinJpegStrips(TiffFile* tiff, const TiffPageInfo& info, CheckedArray<uint8_t>* joined, ErrorRecord* record);

}  // namespace velmora
