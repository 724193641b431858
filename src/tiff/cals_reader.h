// Reading a CALS Type 1 raster file: its header, and its one page of
// Group 4 data as a 1-bit DIB.
#pragma once

#include <cstdint>

#include "frame/progress.h"
#include "frame/error_record.h"
#include "io/stream.h"
#include "tiff/cals_header.h"
#include "velmora/wintypes.h"

namespace velmora {

constexpr uint32_t kCalsDecode = 0x1;          // decode the image into `dib`
constexpr uint32_t kCalsKeepStored = 0x2;      // do not flip mirrored pages
constexpr uint32_t kCalsLsbFirst = 0x4;        // the data's bytes hold pixels least significant bit first

struct CalsPage {
    uint32_t width = 0;
    uint32_t height = 0;
    uint16_t density = 0;       // dots per inch, 0 when unknown
    uint16_t orientation = 1;   // as a TIFF Orientation value
    uint16_t angle = 0;         // the clockwise rotation the page still needs
    uint64_t dataSize = 0;      // bytes of image data after the header
    HGLOBAL dib = nullptr;      // with kCalsDecode; owned by the caller
};

// Reads the header from the start of the stream.
bool ReadCalsHeader(Stream* stream, CalsHeader* header, ErrorRecord* record);
// Describes (and with kCalsDecode decodes) page `page`; only page 1 exists
// ("IFD not found." otherwise).
bool ReadCalsPage(Stream* stream, const CalsHeader& header, uint32_t page, uint32_t flags, CalsPage* out,
                  ProgressReporter* progress, ErrorRecord* record);

}  // namespace velmora
