// Reading Windows bitmap files (BMP) into packed DIBs.
//
// Accepted: the 12-byte core header (3-byte table entries) and the 40-byte
// info header, or any larger header of which the first 40 bytes are used; 1,
// 4, 8, 16, 24 and 32 bits per pixel; uncompressed rows, run-length coded
// 8-bit (RLE8) and 4-bit (RLE4) rows, and bit fields at 16 and 32 bits. The
// DIB made always has a 40-byte header and bottom-up rows; 16-bit bit fields
// become 5-5-5 pixels and 32-bit pixels become 24-bit ones (see below).
//
// Errors: a file that does not start with a 14-byte "BM" header whose two
// reserved words are 0 is 0x02000002 ("Unrecognized file format."); a header
// size below 40 other than 12, an unknown depth or a compression the depth
// cannot have is 0x02000005 ("Unsupported image type."); a truncated header,
// table or image, a zero or oversized width or height and unusable bit-field
// masks are 0x02000004 ("Bad file data.").
//
// Tolerated, reported only through `warning`: a stored file size that differs
// from the real one, bit-field pixel data exactly 12 bytes short (the
// missing bytes read as 0), and malformed run-length data (runs past the row
// or the image are cut, missing data leaves pixels at index 0).
#pragma once

#include "frame/error_record.h"
#include "frame/progress.h"
#include "velmora/wintypes.h"

namespace velmora {

struct Stream;

// Reads the BMP that starts at the stream's current position into a new packed DIB.
// `warning` (may be null) is set when the file was read despite a tolerated fault.
HGLOBAL ReadBmpDib(Stream* stream, ProgressReporter* progress, bool* warning, ErrorRecord* record);

}  // namespace velmora
