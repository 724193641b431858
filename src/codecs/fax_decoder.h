// The CCITT fax decoder: Modified Huffman (TIFF Compression 2), the same
// with word-aligned rows (32771), Group 3 one- and two-dimensional (3, by
// T4Options bit 0) and Group 4 (4), as coded by ITU-T T.4 and T.6.
//
// Output rows hold 1 bit per pixel, the leftmost pixel in the most
// significant bit. A set bit is a pixel of a black run as the code names it
// (white runs are 0): the stored sense of PhotometricInterpretation 0
// (WhiteIsZero), the usual one of fax pages. The decoder only sets the bits of
// black runs: the destination rows must be all 0 before a strip is decoded.
// Pixel x of a stored row goes to bit x of its output row (a tile's rows too), for x
// below the page's output width; runs beyond it are decoded but not drawn.
//
// A strip that fails keeps the rows it finished; a two-dimensional row in
// progress is completed to the page width and drawn first; the strip then
// reports "Bad image data." (0x02000006). An EOL inside Modified Huffman
// data, or one not ending on a byte boundary when T4Options bit 2 (fill
// bits) is set, makes the strip report the same error after all its rows
// were decoded. A progress callback that cancels leaves 1223.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "codecs/codec.h"

namespace velmora {

enum : uint16_t {
    kCompressionCcittRle = 2,
    kCompressionCcittGroup3 = 3,
    kCompressionCcittGroup4 = 4,
    kCompressionCcittRleWord = 32771,
};

// Widest row the decoder takes, in pixels.
inline constexpr uint32_t kMaxFaxWidth = 1u << 20;

// A decoder for one of the four fax compressions; null for any other value.
// Begin reads imageWidth, outputWidth, rowsPerStrip, stripCount, fillOrder
// (2: least significant bit first; anything else: most significant first),
// t4Options (bit 0: two-dimensional, bit 2: fill bits) and t6Options (bit 1,
// uncompressed mode, is refused as "Unsupported image type.").
std::unique_ptr<StripDecoder> CreateFaxDecoder(uint16_t compression);

// Decodes a whole Group 4 raster stored as one strip (a CALS Type 1 page):
// `height` rows of `width` pixels into rows that are all 0 beforehand, the
// first at `topRow`, the next `stride` bytes on. False with the record set
// when the data is bad (the rows decoded before the fault are kept).
bool DecodeGroup4Raster(const uint8_t* data, size_t size, uint32_t width, uint32_t height, uint16_t fillOrder,
                        uint8_t* topRow, ptrdiff_t stride, ProgressReporter* progress, ErrorRecord* record);

}  // namespace velmora
