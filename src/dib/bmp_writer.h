// Writing a DIB as a BMP file.
#pragma once

#include <string>

#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

// Writes a plain BMP file: the 14-byte file header ("BM", file size, two
// zero words, pixel offset), the DIB's 40-byte header and its colour table as
// they are stored, then the rows as they are stored. Bit-field masks and the
// high-colour palette hint are not written. The file is written under a
// temporary name beside `path` and then put in its place, so a failure leaves
// any earlier file untouched and no partial one behind. `header` must have
// passed CheckDib.
bool WriteBmpFile(const std::u16string& path, const BITMAPINFOHEADER* header, const void* bits, ErrorRecord* record);

}  // namespace velmora
