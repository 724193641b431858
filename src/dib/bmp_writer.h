// Writing a DIB as a BMP file.
#pragma once

#include <cstdint>
#include <string>

#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

// How the bitmap is stored in the file.
enum class BmpForm : uint8_t {
    Plain,      // the 40-byte header, the colour table and the rows as stored
    Core,       // the old-style 12-byte header with 3-byte table entries
    RunLength,  // RLE8 rows for 8-bit DIBs, RLE4 rows for 4-bit ones; plain otherwise
};

// Writes a BMP file: the 14-byte file header ("BM", file size, two zero
// words, pixel offset), the bitmap header and colour table, then the rows.
//
// Plain: the DIB's 40-byte header and its colour table as they are stored,
// then the rows as they are stored. Bit-field masks and the high-colour
// palette hint are not written.
//
// Core: a 12-byte header (u32 12, u16 width, height, planes, bit count) and,
// at 1, 4 and 8 bits, 2^bits table entries of blue, green, red (those beyond
// the DIB's colour count are zeros), then the rows. Width and height must be
// below 65536, else 0x0200002D ("Image too large.").
//
// Run length: the 40-byte header and table, then each stored row (bottom row
// first) coded as a sequence of runs (count, value) and absolute stretches
// (0, count, values, padded to 16 bits), ending with 0 0, and 0 1 after the
// last row; the file size and the header's compression (1 for RLE8, 2 for
// RLE4) and image size are then written in place. A stretch is taken in
// absolute form when, from a point at least 4 pixels before the row's end,
// more than 3 pixels follow before the next 3 equal ones (at most 255);
// otherwise a run takes the equal pixels there (RLE4: the pixels repeating
// the pair that starts there), at most 255. RLE4 stretches are cut to an even
// number of pixels, so that each ends on a whole byte.
//
// The file is written under a temporary name beside `path` and then put in
// its place, so a failure leaves any earlier file untouched and no partial
// one behind. `header` must have passed CheckDib.
bool WriteBmpFile(const std::u16string& path, const BITMAPINFOHEADER* header, const void* bits, BmpForm form,
                  ErrorRecord* record);
inline bool WriteBmpFile(const std::u16string& path, const BITMAPINFOHEADER* header, const void* bits,
                         ErrorRecord* record) {
    return WriteBmpFile(path, header, bits, BmpForm::Plain, record);
}

}  // namespace velmora
