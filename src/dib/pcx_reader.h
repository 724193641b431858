// Reading a PCX file: a 128-byte header, run-length coded scan lines of one
// or more planes, and for 8-bit images a 256-colour table at the end of the
// file. The image becomes a bottom-up packed DIB of 1, 4, 8 or 24 bits.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "frame/progress.h"
#include "io/stream.h"
#include "velmora/wintypes.h"

namespace velmora {

constexpr uint32_t kPcxHeaderSize = 128;

// The header fields the reader uses.
struct PcxHeader {
    uint8_t version = 0;
    uint8_t bitsPerPlane = 0;  // bits of one pixel in one plane
    uint8_t planes = 0;
    uint16_t bytesPerLine = 0;   // of one plane, as stored
    int32_t width = 0;           // Xmax - Xmin + 1
    int32_t height = 0;          // Ymax - Ymin + 1
    uint16_t bitCount = 0;       // of the DIB: planes x bits per plane
    uint8_t palette16[48] = {};  // red, green, blue of 16 entries
};

// Parses and checks the 128 header bytes: 0x02000002 when they are no PCX
// header, 0x02000004 for an empty image or too few bytes per line,
// 0x02000005 for a plane and depth combination the reader does not take.
bool ParsePcxHeader(const uint8_t* bytes, PcxHeader* header, ErrorRecord* record);

// Reads the PCX image that starts at the stream's current position into a
// new packed DIB. Run-length data that is damaged (a run across the end of a
// scan line, or data that ends before the last row) does not fail the read;
// it sets `*damaged` when that is given. Null with the error in `record`.
HGLOBAL ReadPcxImage(Stream* stream, ProgressReporter* progress, bool* damaged, ErrorRecord* record);

// Reads the PCX image that starts at the stream's current position into a new packed DIB.
HGLOBAL ReadPcxDib(Stream* stream, ProgressReporter* progress, ErrorRecord* record);

}  // namespace velmora
