// Reading a PNG image (ISO/IEC 15948) into a packed DIB.
//
// Every PNG colour type is mapped onto a DIB depth: grey at 1, 4 and 8 bits
// becomes a DIB of that depth with an ascending grey ramp (2-bit grey is
// widened to 4 bits, 16-bit grey reduced to 8); palette images keep their
// indices (2-bit widened to 4) with the PLTE colours as the table; grey with
// alpha becomes 8-bit grey; RGB and RGB with alpha become 24 bits. 16-bit
// samples keep their most significant byte; alpha is dropped unless the
// caller asks for it separately. A pHYs resolution in pixels per metre is
// kept as is; an aspect ratio without a unit is kept negated.
//
// Errors: 0x02000002 no PNG signature; 0x02000004 a short chunk, a CRC
// mismatch in IHDR, PLTE, bKGD or pHYs, or a first chunk that is not a
// 13-byte IHDR; 0x02000005 a bit depth, colour type or method the reader
// does not take; 0x02000006 a chunk that breaks the format's rules (order,
// length, values). Image data that ends early or is damaged is not an
// error: the rows decoded so far are kept and the warning flag is set.
#pragma once

#include "frame/error_record.h"
#include "frame/progress.h"
#include "io/stream.h"
#include "velmora/wintypes.h"

namespace velmora {

// Reads the PNG image that starts at the stream's current position into a
// new packed DIB (caller frees with platform::MemFree / GlobalFree); null with
// the error in `record`. `progress` may be null.
HGLOBAL ReadPngDib(Stream* stream, ProgressReporter* progress, ErrorRecord* record);

// The same, with two optional outputs (either may be null). `alpha` asks for
// the alpha channel of an 8-bit RGB-with-alpha image as an 8-bit grey DIB of
// the same size (ascending ramp), set to null for images without alpha;
// asking for it of a grey-with-alpha or 16-bit RGB-with-alpha image is
// refused with 0x02000005. `warning` is set when the image data stopped
// early or was damaged (the rows decoded before are kept) or a bKGD chunk
// came after the image data, and cleared otherwise.
HGLOBAL ReadPngDib(Stream* stream, ProgressReporter* progress, HGLOBAL* alpha, bool* warning, ErrorRecord* record);

}  // namespace velmora
