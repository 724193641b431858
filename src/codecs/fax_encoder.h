// The CCITT fax encoder: Modified Huffman (TIFF Compression 2), Group 3 one-
// and two-dimensional (3, by T4Options bit 0, with fill bits by bit 2) and
// Group 4 (4), coded as ITU-T T.4 and T.6 describe.
//
// Source rows hold 1 bit per pixel, the leftmost pixel in the most significant
// bit, 1 = black: the stored sense of PhotometricInterpretation 0. Bits past
// the page width in a row are ignored.
//
// Each strip is coded on its own, as readers decode it: a Group 3 strip starts
// a new group of two-dimensional rows with a one-dimensional row, and a Group 4
// strip codes its first row against an all-white reference row. Group 3 writes
// an EOL before every row and nothing after the last (no RTC); Group 4 ends
// each strip with the end-of-facsimile block (two EOLs). Every strip ends on a
// byte boundary, padded with zero bits, and FillOrder 2 reverses the bits of
// every byte written.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codecs/strip_encoding.h"
#include "frame/error_record.h"
#include "frame/scratch_block.h"

namespace velmora {

// What the encoder learns of the page, once.
struct FaxEncoderPage {
    uint16_t compression = 4;   // 2, 3 or 4
    uint32_t width = 0;         // ImageWidth, 1 to kMaxFaxWidth
    uint32_t t4Options = 0;     // bit 0: two-dimensional, bit 2: fill bits (Group 3)
    uint16_t fillOrder = 1;     // 2: least significant bit first
    double yResolution = 0;     // YResolution, for the rows per group of Group 3 2D
    uint16_t resolutionUnit = 2;
    uint32_t rowsPerGroup = 0;  // K of Group 3 2D; 0 takes it from the resolution
};

// K, the rows per group of Group 3 two-dimensional coding: the page's own value
// when it has one; otherwise 4 for pages finer than 200 dots per inch (unit 2)
// or 7.874015748031496 dots per centimetre (unit 3, a threshold kept exactly as
// written files have always used it), else 2.
uint32_t FaxRowsPerGroup(uint32_t rowsPerGroup, double yResolution, uint16_t resolutionUnit);

class FaxEncoder {
public:
    // Set-up for a page; false with the record set for a compression other
    // than 2, 3, 4, a width of 0 or above the fax limit, or short memory.
    bool Begin(const FaxEncoderPage& page, ErrorRecord* record);
    // Codes one strip of the page's width (`strip.rowBytes` is not used).
    uint64_t Encode(const EncoderStrip& strip, ErrorRecord* record);
    void End() { changes_.Release(); }

private:
    FaxEncoderPage page_;
    uint32_t rowsPerGroup_ = 0;
    ScratchBlock changes_;  // the change lists of two rows
};

}  // namespace velmora
