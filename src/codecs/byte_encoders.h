// Encoders of the byte-oriented TIFF compressions: LZW (Compression 5),
// PackBits (32773) and Deflate (8). They code the strip's rows as bytes, with
// no predictor.
//
// LZW codes the whole strip as one stream, TIFF's most-significant-bit-first
// form with the early width change: Clear first, EndOfInformation last, the
// last byte padded with zero bits. The string table is cleared when it would
// reach code 4094, and whenever the compression ratio measured every 10,000
// input bytes stops improving.
//
// PackBits codes each row on its own (TIFF 6.0, section 9).
#pragma once

#include <cstdint>

#include "codecs/strip_encoding.h"
#include "frame/error_record.h"

namespace velmora {

uint64_t EncodeLzwStrip(const EncoderStrip& strip, ErrorRecord* record);
uint64_t EncodePackBitsStrip(const EncoderStrip& strip, ErrorRecord* record);
// A zlib stream of Deflate blocks (Compression 8); see deflate_encoder.cpp.
uint64_t EncodeDeflateStrip(const EncoderStrip& strip, ErrorRecord* record);

}  // namespace velmora
