// The marker layer of JPEG decoding: one pass over a stream's segments,
// reading the frame header, the quantisation and Huffman tables, scan
// headers, DRI, DNL, DHP and the application segments the library uses
// (JFIF and JFXX, the library's own APP3, Adobe APP14), with every check on
// their contents. Entropy-coded data is left to the scan decoders, which hand
// back the marker that ended it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/jpeg_decoder.h"
#include "jpeg/jpeg_huffman_decoder.h"
#include "jpeg/jpeg_input.h"

namespace velmora::jpeg {

constexpr uint32_t kMaxTables = 4;
constexpr uint32_t kMaxScanComponents = 4;
constexpr uint32_t kMaxBlocksInMcu = 10;

// The tables a decoder keeps from stream to stream.
struct QuantTable {
    bool defined = false;
    uint16_t natural[64] = {};  // in natural (row-major) order
};

struct DecoderTables {
    QuantTable quant[kMaxTables];
    HuffmanTable dc[kMaxTables];
    HuffmanTable ac[kMaxTables];
};

struct FrameComponent {
    uint8_t id = 0;
    uint8_t h = 1;
    uint8_t v = 1;
    uint8_t quantTable = 0;
};

struct Frame {
    bool present = false;
    uint8_t marker = 0;  // 0xC0 ...
    uint8_t precision = 8;
    bool progressive = false;
    bool lossless = false;
    bool arithmetic = false;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t componentCount = 0;
    uint8_t hMax = 1;
    uint8_t vMax = 1;
    FrameComponent component[256];
};

struct ScanHeader {
    uint32_t count = 0;
    uint8_t componentIndex[kMaxScanComponents] = {};  // indices into Frame::component
    uint8_t dcTable[kMaxScanComponents] = {};
    uint8_t acTable[kMaxScanComponents] = {};
    uint8_t ss = 0, se = 63, ah = 0, al = 0;
};

// The natural-order index of zig-zag position k (T.81 Figure A.6), with
// 16 extra entries so that a run that passes 63 stays inside the table.
extern const uint8_t kZigZagToNatural[80];

enum class MarkerEvent { Scan, End, EndOfData };

class MarkerReader {
public:
    MarkerReader(JpegInput* input, DecoderTables* tables, uint8_t* segmentBuffer, uint32_t request,
                 ErrorRecord* record);

    // The stream must begin with SOI (else 0x02000002).
    bool ReadStart();
    // Reads segments up to the next SOS (its header in `scan`), EOI or the
    // end of the data. A malformed segment sets the record (and returns
    // EndOfData).
    MarkerEvent Next(ScanHeader* scan);
    // The marker that ended a scan's entropy-coded data, read by the scan
    // decoder (kEndOfData when the data ended).
    void SetPendingMarker(uint32_t marker) { pending_ = marker; }
    // Skips entropy-coded data (restart markers included) up to the next
    // marker, which becomes pending.
    void SkipEntropyData();
    // Fills the information record from what was read so far.
    void FillInfo(JpegInfo* info) const;

    Frame frame;
    bool hierarchical = false;
    bool scanSeen = false;
    bool tablesChanged = false;  // a table segment came after the first scan
    uint32_t restartInterval = 0;

private:
    bool ReadSegment(uint32_t* length);  // reads the whole segment into the buffer
    bool ReadFrame(uint8_t marker);
    bool ReadQuantTables(uint32_t length);
    bool ReadHuffmanTables(uint32_t length);
    bool ReadScan(uint32_t length, ScanHeader* scan);
    bool ReadApp0();
    bool ReadApp1();
    bool ReadApp3();
    bool ReadApp14();
    bool SkipSegment();
    bool Fail();

    JpegInput* in_;
    DecoderTables* tables_;
    uint8_t* buffer_;  // 65536 bytes
    uint32_t request_;
    ErrorRecord* record_;
    uint32_t pending_ = 0;
    uint8_t previous_ = 0;  // the marker of the previous segment
    bool jfifSeen_ = false;
    bool hasJfifDensity_ = false;
    uint16_t jfifUnit_ = 1;
    uint32_t jfifX_ = 0, jfifY_ = 0;
    uint32_t flags_ = 0;
    uint8_t adobeTransform_ = 0;
    uint8_t thumbnailWidth_ = 0, thumbnailHeight_ = 0;
    uint64_t thumbnailOffset_ = 0;
    uint32_t thumbnailBytes_ = 0;
    bool hasResolution_ = false, hasScale_ = false;
    uint16_t resolutionUnit_ = 1, scaleUnit_ = 0;
    uint32_t resolution_[4] = {0, 1, 0, 1};
    uint32_t scale_[4] = {0, 1, 0, 1};
};

}  // namespace velmora::jpeg
