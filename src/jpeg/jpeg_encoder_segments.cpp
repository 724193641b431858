#include "jpeg/jpeg_encoder_segments.h"

#include <cstring>

namespace velmora::jpeg {
void WriteMarker(Stream* stream, uint8_t marker, ErrorRecord* record) {
    const uint8_t bytes[2] = {0xFF, marker};
    StreamWrite(stream, bytes, 2, record);
}

void WriteQuantisationSegment(Stream* stream, const uint16_t (*tables)[64], uint8_t count, ErrorRecord* record) {
    SegmentBytes segment(kMarkerDqt);
    for (uint8_t id = 0; id < count && id < 2; ++id) {
        segment.Put8(id);  // precision 0: 8-bit values
        for (int k = 0; k < 64; ++k) segment.Put8(tables[id][kZigZag[k]]);
    }
    segment.Write(stream, record);
}

void WriteFrameHeader(Stream* stream, uint8_t marker, const FrameLayout& frame, ErrorRecord* record) {
    SegmentBytes segment(marker);
    segment.Put8(8);
    segment.Put16(frame.height);
    segment.Put16(frame.width);
    segment.Put8(frame.components);
    for (uint8_t c = 0; c < frame.components; ++c) {
        segment.Put8(c + 1);
        segment.Put8(frame.h[c] << 4 | frame.v[c]);
        segment.Put8(c == 0 ? 0 : 1);
    }
    segment.Write(stream, record);
}

void WriteHuffmanSegment(Stream* stream, uint8_t tableClass, uint8_t id, const HuffmanSpec& spec, ErrorRecord* record) {
    SegmentBytes segment(kMarkerDht);
    segment.Put8(tableClass << 4 | id);
    for (int i = 0; i < 16; ++i) segment.Put8(spec.counts[i]);
    for (uint16_t i = 0; i < spec.symbolCount && i < 256; ++i) segment.Put8(spec.symbols[i]);
    segment.Write(stream, record);
}

void WriteScanHeader(Stream* stream, const FrameLayout& frame, bool lossless, ErrorRecord* record) {
    SegmentBytes segment(kMarkerSos);
    segment.Put8(frame.components);
    for (uint8_t c = 0; c < frame.components; ++c) {
        segment.Put8(c + 1);
        segment.Put8(c == 0 ? 0x00 : 0x11);
    }
    segment.Put8(lossless ? 1 : 0);   // Ss: spectral start, or the predictor
    segment.Put8(lossless ? 0 : 63);  // Se
    segment.Put8(0);                  // Ah, Al: no successive approximation, point transform 0
    segment.Write(stream, record);
}

void WriteCommentSegment(Stream* stream, const char* text, ErrorRecord* record) {
    size_t length = std::strlen(text);
    if (length > 255) length = 255;
    SegmentBytes segment(kMarkerCom);
    for (size_t i = 0; i < length; ++i) segment.Put8(static_cast<uint8_t>(text[i]));
    segment.Write(stream, record);
}

void WritePrivateSegment(Stream* stream, const PrivateSegment& segment, ErrorRecord* record) {
    uint8_t bytes[kPrivateSegmentTotalSize];
    BuildPrivateSegment(segment, bytes);
    StreamWrite(stream, bytes, sizeof bytes, record);
}

}  // namespace velmora::jpeg
