// The library's own APP3 segments in JPEG streams. They carry what TIFF
// pages keep in their resolution tags (XResolution, YResolution,
// ResolutionUnit) and in the private scale tags: a unit and a horizontal and
// vertical value, each an exact fraction.
//
// Segment data (after the marker and the two length bytes), big-endian like
// the rest of JPEG:
//   0   8 bytes  "Velmora" and a NUL
//   8   1 byte   kind: 1 resolution, 2 scale
//   9   u16      unit (resolution: 1 none, 2 inch, 3 centimetre; scale: 1..17)
//   11  u32 x 4  horizontal numerator, denominator, vertical numerator,
//                denominator
// 27 bytes in all; the segment length field therefore holds 29.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/jpeg_marker_codes.h"

namespace velmora::jpeg {

constexpr uint8_t kPrivateSegmentMarker = kMarkerApp3;
constexpr size_t kPrivateSegmentDataSize = 27;

enum class PrivateSegmentKind : uint8_t { Resolution = 1, Scale = 2 };

struct PrivateSegment {
    PrivateSegmentKind kind = PrivateSegmentKind::Resolution;
    uint16_t unit = 1;
    uint32_t xNumerator = 0;
    uint32_t xDenominator = 1;
    uint32_t yNumerator = 0;
    uint32_t yDenominator = 1;
};

// Writes the whole segment (marker, length and data: 31 bytes) to `out`.
constexpr size_t kPrivateSegmentTotalSize = 4 + kPrivateSegmentDataSize;
void BuildPrivateSegment(const PrivateSegment& segment, uint8_t* out);

// Reads the data of an APP3 segment (without marker and length). False when
// the data is not one of the library's segments: another signature, a
// length other than 27, an unknown kind, or a zero denominator.
bool ParsePrivateSegment(const uint8_t* data, size_t size, PrivateSegment* segment);

}  // namespace velmora::jpeg
