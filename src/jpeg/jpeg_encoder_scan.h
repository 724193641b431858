// The scans of the JPEG encoder: from source rows to the frame header, the
// Huffman tables and the entropy-coded data of one scan holding every
// component.
#pragma once

#include <cstdint>

#include "jpeg/jpeg_encoder_segments.h"
#include "jpeg/jpeg_encoder_source.h"
#include "frame/progress.h"
#include "frame/error_record.h"
#include "io/stream.h"

namespace velmora::jpeg {

struct BaselineOptions {
    const uint16_t (*quantisation)[64] = nullptr;  // [0] luminance, [1] chrominance, natural order
    bool optimiseHuffman = false;
    bool omitTables = false;  // leave DQT and the standard DHT out
};

// DQT (unless omitted), SOF0, DHT, SOS and the data of a sequential DCT
// scan (F.1.2).
bool EncodeBaselineScan(const EncoderSource& source, const FrameLayout& frame, const BaselineOptions& options,
                        Stream* stream, ProgressReporter* progress, ErrorRecord* record);

// SOF3, DHT, SOS and the data of a lossless scan with predictor 1 and point
// transform 0 (H.1.2), with Huffman tables made for the image. Every
// component is sampled 1x1.
bool EncodeLosslessScan(const EncoderSource& source, const FrameLayout& frame, Stream* stream,
                        ProgressReporter* progress, ErrorRecord* record);

}  // namespace velmora::jpeg
