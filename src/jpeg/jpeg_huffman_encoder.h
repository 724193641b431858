// Huffman coding of JPEG entropy-coded data (ITU-T T.81 Annex C, F.1.2 and
// H.1.2): code tables from DHT-style specifications, optimal tables made from
// symbol statistics (Annex K.2), and the bit writer with byte stuffing.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

#include "jpeg/jpeg_tables.h"
#include "frame/scratch_block.h"
#include "frame/error_record.h"
#include "io/stream.h"

namespace velmora::jpeg {

// The code and its length for every symbol; a length of 0 marks a symbol
// the table cannot code.
struct HuffmanCodes {
    uint16_t code[256];
    uint8_t length[256];
};

// Derives the codes of a table as T.81 Annex C does: code lengths in symbol order,
// codes counting up within a length and doubling from one length to the
// next. The table must be valid (its counts fit codes of 16 bits).
void MakeHuffmanCodes(const HuffmanSpec& spec, HuffmanCodes* codes);

// An optimal table for the given symbol frequencies, as Annex K.2 makes it:
// code lengths by repeatedly joining the two least frequent entries, one
// reserved symbol so that no code is all one bits, lengths above 16 folded
// back into 16, and the symbols ordered by length then value. Symbols with
// frequency 0 get no code. `symbols` receives up to 256 values; `spec`
// points at it.
struct OptimalHuffman {
    HuffmanSpec spec;
    uint8_t symbols[256];
};
void MakeOptimalHuffman(const uint32_t* frequencies, OptimalHuffman* table);

// The number of bits of a magnitude: the category (SSSS) of a value.
inline uint32_t Category(int32_t value) {
    uint32_t magnitude = value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    return static_cast<uint32_t>(std::bit_width(magnitude));
}

// Adds the symbols one block of quantised coefficients (natural order) will
// code to the DC and AC frequency tables; `lastDc` is the component's DC
// predictor and is updated.
void CountBlock(const int16_t* coefficients, int32_t* lastDc, uint32_t* dcFrequencies, uint32_t* acFrequencies);

// Writes entropy-coded data to a stream through a buffer, stuffing a zero
// byte after every 0xFF. Stream errors land in the record given at Begin;
// once it holds an error the writer writes nothing more.
class EntropyWriter {
public:
    EntropyWriter() = default;
    EntropyWriter(const EntropyWriter&) = delete;
    EntropyWriter& operator=(const EntropyWriter&) = delete;

    bool Begin(Stream* stream, ErrorRecord* record);
    // Codes one block of quantised coefficients (natural order) as a
    // sequential DCT block (F.1.2.1 and F.1.2.2).
    void EncodeBlock(const int16_t* coefficients, int32_t* lastDc, const HuffmanCodes& dc, const HuffmanCodes& ac);
    // Codes one lossless difference (H.1.2.2): the category's code, then its
    // extra bits; category 16 has none.
    void EncodeDifference(int32_t difference, const HuffmanCodes& table);
    // Writes `count` (0..24) bits as they are, the most significant first.
    void PutBits(uint32_t bits, uint32_t count) {
        Reserve();
        Put(bits, count);
    }
    // Pads the last byte with one bits and writes what is buffered.
    void Finish();

private:
    void Put(uint32_t bits, uint32_t count);
    void EmitWord();
    void Reserve();

    Stream* stream_ = nullptr;
    ErrorRecord* record_ = nullptr;
    ScratchBlock buffer_;
    size_t used_ = 0;
    uint64_t accumulator_ = 0;
    uint32_t pending_ = 0;  // bits in the accumulator
};

}  // namespace velmora::jpeg
