// The text header of a CALS Type 1 raster file: 16 records of 128 bytes,
// each starting with a keyword, followed at byte 2048 by one page of CCITT
// Group 4 data.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/error_record.h"

namespace velmora {

constexpr size_t kCalsHeaderSize = 2048;
constexpr size_t kCalsRecordSize = 128;

struct CalsHeader {
    uint32_t width = 0;            // pels per line
    uint32_t height = 0;           // lines
    uint16_t density = 0;          // dots per inch; 0 when not given
    uint16_t lineDirection = 270;  // from "rorient:", second value
    uint16_t rotation = 0;         // from "rorient:", first value
};

// What the page's orientation means in TIFF terms.
struct CalsOrientation {
    uint16_t orientation;  // the TIFF Orientation value
    bool mirrored;         // the rows must be flipped to be seen as meant
    uint16_t angle;        // the clockwise rotation reported for the page
};

// True when the bytes begin with "srcdocid:".
bool IsCalsFile(const uint8_t* bytes, size_t size);

// Parses the 16 header records. `bytes` holds at least the first 2049 bytes
// of the file (fewer: "Unrecognized file format."). A file that is not CALS
// is "Unsupported file type."; a raster type other than 1 or a missing
// "rpelcnt:" is "Unsupported image type.".
bool ParseCalsHeader(const uint8_t* bytes, size_t size, CalsHeader* header, ErrorRecord* record);

CalsOrientation CalsPageOrientation(const CalsHeader& header);

}  // namespace velmora
