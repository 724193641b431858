// Huffman tables of JPEG decoding (ITU-T T.81 Annex C and F.2.2.3): the
// canonical codes derived from the 16 code counts, with a 9-bit lookahead
// table for the short codes and, for AC tables, a second table that also
// holds the coefficient value when code and value bits fit in 9 bits.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora::jpeg {

constexpr int kLookaheadBits = 9;

struct HuffmanTable {
    bool defined = false;
    // (code length << 8) | symbol for every 9-bit prefix that starts with a
    // code of at most 9 bits; 0 for longer codes.
    uint16_t lookup[1 << kLookaheadBits];
    // AC only: (value << 16) | (run << 8) | (code length + value bits) when
    // a non-zero coefficient's code and value bits fit in 9 bits; else 0.
    int32_t acFast[1 << kLookaheadBits];
    // Per code length 1..16: the largest code (-1 when there is none) and
    // the offset from a code to its symbol's index in `values`.
    int32_t maxCode[17];
    int32_t valueOffset[17];
    uint8_t values[256];
    // The table as its DHT segment gave it: codes per length 1..16 and the
    // number of symbols, so that it can be written out again.
    uint8_t counts[16];
    uint16_t valueCount;
};

// Builds `table` from 16 code counts and their `valueCount` symbols. False
// when the counts over-subscribe a code length: as many codes of a length as
// that length can hold (the all-ones code is reserved) or more.
bool BuildHuffmanTable(const uint8_t* counts, const uint8_t* values, size_t valueCount, HuffmanTable* table);

}  // namespace velmora::jpeg
