// The marker segments the JPEG encoder writes (ITU-T T.81 B.2 and B.3).
#pragma once

#include <cstdint>

#include "jpeg/jpeg_marker_codes.h"
#include "jpeg/jpeg_private_segment.h"
#include "jpeg/jpeg_tables.h"
#include "frame/error_record.h"
#include "io/stream.h"

namespace velmora::jpeg {

// The components of a frame: identifiers 1, 2, 3; the first uses
// quantisation and Huffman tables 0, the others tables 1.
struct FrameLayout {
    uint32_t width = 0;
    uint32_t height = 0;
    uint8_t components = 1;
    uint8_t h[3] = {1, 1, 1};
    uint8_t v[3] = {1, 1, 1};
    uint8_t hMax = 1;
    uint8_t vMax = 1;
};

// Builds one segment in place: marker, length (filled in at Write), data.
// The largest segments built this way are a DHT of 256 symbols and a DQT of
// four tables of 16-bit values.
class SegmentBytes {
public:
    explicit SegmentBytes(uint8_t marker) {
        bytes_[0] = 0xFF;
        bytes_[1] = marker;
        size_ = 4;
    }
    void Put8(uint32_t value) { bytes_[size_++] = static_cast<uint8_t>(value); }
    void Put16(uint32_t value) {
        Put8(value >> 8);
        Put8(value);
    }
    void Write(Stream* stream, ErrorRecord* record) {
        bytes_[2] = static_cast<uint8_t>((size_ - 2) >> 8);
        bytes_[3] = static_cast<uint8_t>(size_ - 2);
        StreamWrite(stream, bytes_, static_cast<uint32_t>(size_), record);
    }

private:
    uint8_t bytes_[4 + 4 * (1 + 2 * 64)];
    size_t size_;
};

// Writes 0xFF and the marker.
void WriteMarker(Stream* stream, uint8_t marker, ErrorRecord* record);
// One DQT segment with `count` 8-bit tables (identifiers 0, 1, ...), the
// values taken from natural order into zig-zag order.
void WriteQuantisationSegment(Stream* stream, const uint16_t (*tables)[64], uint8_t count, ErrorRecord* record);
// SOF0 or SOF3 at 8-bit precision.
void WriteFrameHeader(Stream* stream, uint8_t marker, const FrameLayout& frame, ErrorRecord* record);
// One DHT segment holding one table; `tableClass` 0 for DC and lossless, 1
// for AC.
void WriteHuffmanSegment(Stream* stream, uint8_t tableClass, uint8_t id, const HuffmanSpec& spec, ErrorRecord* record);
// SOS for all components of the frame; `lossless` writes the predictor
// selection 1 and no spectral range.
void WriteScanHeader(Stream* stream, const FrameLayout& frame, bool lossless, ErrorRecord* record);
// A COM segment holding `text` (without a terminating zero).
void WriteCommentSegment(Stream* stream, const char* text, ErrorRecord* record);
// The library's APP3 segment (jpeg/jpeg_private_segment.h).
void WritePrivateSegment(Stream* stream, const PrivateSegment& segment, ErrorRecord* record);

}  // namespace velmora::jpeg
