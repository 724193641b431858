// Strip decoders of the byte-oriented TIFF compressions: LZW (5), Deflate
// (8 and 32946), PackBits (32773), ThunderScan (32809) and the library's own
// run-length code (50000).
//
// Each decodes a strip into rows of StoredRowBytes(imageWidth, bitsPerSample,
// samplesPerPixel) bytes, of which the first StoredRowBytes(outputWidth, ...)
// are written at strip.topRow, strip.topRow + stride, ... (an outputWidth of 0
// stands for imageWidth). Rows stop at strip.rows and at imageLength. LZW and
// Deflate undo Predictor 2 on every finished row.
#pragma once

#include <memory>

#include "codecs/codec.h"

namespace velmora {

std::unique_ptr<StripDecoder> CreateLzwDecoder();
std::unique_ptr<StripDecoder> CreatePackBitsDecoder();
std::unique_ptr<StripDecoder> CreateThunderScanDecoder();
std::unique_ptr<StripDecoder> CreateRunLengthDecoder();
std::unique_ptr<StripDecoder> CreateDeflateDecoder();

}  // namespace velmora
