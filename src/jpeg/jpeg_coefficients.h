// A DCT image as its quantised coefficients, as the entropy decoder leaves
// them: what lossless transformations of a JPEG stream work on.
#pragma once

#include <cstdint>

#include "jpeg/jpeg_decoder.h"
#include "frame/error_record.h"

namespace velmora::jpeg {

struct CoefficientComponent {
    uint8_t id = 0;
    uint8_t h = 1, v = 1;             // sampling factors of the frame
    uint8_t quantTable = 0;           // index into CoefficientImage::quant
    uint32_t blocksWide = 0;          // blocks per row, padded to whole MCUs
    uint32_t blocksHigh = 0;          // rows of blocks, padded to whole MCUs
    const int16_t* blocks = nullptr;  // 64 coefficients per block, natural order, rows of blocks top first
};

struct CoefficientImage {
    JpegInfo info;  // the stream's description, read to its end
    uint32_t width = 0, height = 0;
    uint8_t precision = 8;
    uint8_t hMax = 1, vMax = 1;
    bool quantDefined[4] = {};
    uint16_t quant[4][64] = {};  // natural order
    uint32_t componentCount = 0;
    CoefficientComponent components[4];
};

// Receives the coefficients of a whole image; they live only during the
// call. A false return ends the read with whatever the record holds.
class CoefficientConsumer {
public:
    virtual ~CoefficientConsumer() = default;
    virtual bool Consume(const CoefficientImage& image, ErrorRecord* record) = 0;
};

// Entropy-decodes every scan of a sequential or progressive Huffman DCT
// stream and hands the image's coefficients to `consumer`. Lossless,
// arithmetic-coded and hierarchical streams, and streams that change a
// table after their first scan, fail with 0x02000005; malformed ones as the
// decoder fails them.
bool ReadJpegCoefficients(const JpegSource& source, CoefficientConsumer* consumer, ErrorRecord* record);

}  // namespace velmora::jpeg
