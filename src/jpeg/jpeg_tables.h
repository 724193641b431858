// Tables of baseline JPEG (ITU-T T.81) shared by the encoder and the
// decoder: the zig-zag order of the 64 coefficients of a block, the example
// quantisation tables of Annex K.1 with the library's quality scaling, and
// the example Huffman tables of Annex K.3.
#pragma once

#include <cstdint>

namespace velmora::jpeg {

// kZigZag[k] is the natural (row-major) index of the coefficient at
// position k of the zig-zag sequence: coefficient k of a DQT table or of an
// entropy-coded block belongs at row kZigZag[k] / 8, column kZigZag[k] % 8.
extern const uint8_t kZigZag[64];

// Tables K.1 (luminance) and K.2 (chrominance), natural order.
extern const uint8_t kLuminanceQuantisation[64];
extern const uint8_t kChrominanceQuantisation[64];

// The divisor scale of a quality: q limited to 1..100, then 5000 / q below
// 50 and 200 - 2q from 50 on (a percentage of the example tables).
uint32_t QualityScale(int32_t quality);
// Scales a natural-order base table by a percentage from QualityScale:
// each entry becomes (base x scale + 50) / 100, limited to 1..255.
void ScaleQuantisation(const uint8_t* base, uint32_t scale, uint16_t* out);

// A Huffman table as DHT carries it: the number of codes of each length 1 to
// 16, then the symbols in order of increasing code length.
struct HuffmanSpec {
    uint8_t counts[16];
    const uint8_t* symbols;
    uint16_t symbolCount;
};

// Tables K.3 to K.6: DC and AC, luminance and chrominance.
extern const HuffmanSpec kDcLuminanceHuffman;
extern const HuffmanSpec kDcChrominanceHuffman;
extern const HuffmanSpec kAcLuminanceHuffman;
extern const HuffmanSpec kAcChrominanceHuffman;

}  // namespace velmora::jpeg
