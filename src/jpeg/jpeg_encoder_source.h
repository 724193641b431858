// The pixels a JPEG encode reads: DIB rows of every palette depth, 24-bit
// DIB rows and plain rows, seen as rows of grey samples or of blue-green-red
// pixels, top row first.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora::jpeg {

struct EncoderSource {
    enum class Layout : uint8_t {
        Grey,     // one byte per pixel, used as it is
        Bgr,      // blue, green, red
        Rgb,      // red, green, blue
        Indexed,  // 1, 4 or 8-bit indices into `lookup`
    };
    const uint8_t* top = nullptr;
    ptrdiff_t stride = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    Layout layout = Layout::Grey;
    uint8_t bitCount = 8;    // of Indexed rows
    uint8_t components = 1;  // 1: grey rows; 3: blue-green-red rows
    // Indexed: the grey level (components 1) or blue, green, red
    // (components 3) of every index; indices beyond the table give black.
    uint8_t lookup[256][3] = {};
};

// A DIB's rows: 1-, 4- and 8-bit palette DIBs (grey when every table entry
// is grey), 24-bit DIBs; any other depth fails with 0x02000013, a header
// without a positive width and a non-zero height with 87. `bits` null: the
// rows follow the colour table.
bool SourceFromDib(const BITMAPINFOHEADER* header, const void* bits, EncoderSource* source, ErrorRecord* record);

// Row `y` (0 = top) as `components` bytes per pixel: a pointer into the
// source itself when its layout already is that, else `scratch` (room for
// 3 x width bytes) filled. Colour rows are blue-green-red, or red-green-blue
// when *redFirst comes back set.
const uint8_t* SourceRow(const EncoderSource& source, uint32_t y, uint8_t* scratch, bool* redFirst);

}  // namespace velmora::jpeg
