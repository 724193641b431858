#include "jpeg/jpeg_huffman_encoder.h"

#include <cstring>

namespace velmora::jpeg {
namespace {

constexpr size_t kBufferSize = 65536;
// Room for the longest block: 27 bits of DC, 63 x 26 bits of AC, every byte
// stuffed, and the accumulator's contents.
constexpr size_t kBlockReserve = 1024;

constexpr uint8_t kEndOfBlock = 0x00;
constexpr uint8_t kZeroRun = 0xF0;

// The extra bits of a value of category `category` (F.1.2.1): the value
// itself when positive, its ones' complement when negative.
inline uint32_t ExtraBits(int32_t value, uint32_t category) {
    uint32_t bits = static_cast<uint32_t>(value < 0 ? value - 1 : value);
    return bits & ((1u << category) - 1);
}

}  // namespace

void MakeHuffmanCodes(const HuffmanSpec& spec, HuffmanCodes* codes) {
    std::memset(codes->length, 0, sizeof codes->length);
    std::memset(codes->code, 0, sizeof codes->code);
    uint32_t code = 0;
    uint32_t index = 0;
    for (uint32_t length = 1; length <= 16; ++length) {
        for (uint32_t n = 0; n < spec.counts[length - 1] && index < spec.symbolCount; ++n, ++index) {
            uint8_t symbol = spec.symbols[index];
            codes->code[symbol] = static_cast<uint16_t>(code);
            codes->length[symbol] = static_cast<uint8_t>(length);
            ++code;
        }
        code <<= 1;
    }
}

void MakeOptimalHuffman(const uint32_t* frequencies, OptimalHuffman* table) {
    // Entry 256 is the reserved symbol; 64-bit sums cannot overflow however
    // many blocks an image has.
    constexpr int kEntries = 257;
    uint64_t frequency[kEntries];
    int codeSize[kEntries];
    int others[kEntries];
    bool any = false;
    for (int i = 0; i < 256; ++i) {
        frequency[i] = frequencies[i];
        any = any || frequencies[i] != 0;
    }
    // A table nobody uses still needs one code to be a valid table.
    if (!any) frequency[0] = 1;
    frequency[256] = 1;
    for (int i = 0; i < kEntries; ++i) {
        codeSize[i] = 0;
        others[i] = -1;
    }

    for (;;) {
        // The two least frequent entries; among equals the highest index.
        int v1 = -1;
        for (int i = 0; i < kEntries; ++i) {
            if (frequency[i] != 0 && (v1 < 0 || frequency[i] <= frequency[v1])) v1 = i;
        }
        int v2 = -1;
        for (int i = 0; i < kEntries; ++i) {
            if (i != v1 && frequency[i] != 0 && (v2 < 0 || frequency[i] <= frequency[v2])) v2 = i;
        }
        if (v2 < 0) break;
        frequency[v1] += frequency[v2];
        frequency[v2] = 0;
        ++codeSize[v1];
        while (others[v1] >= 0) {
            v1 = others[v1];
            ++codeSize[v1];
        }
        others[v1] = v2;
        ++codeSize[v2];
        while (others[v2] >= 0) {
            v2 = others[v2];
            ++codeSize[v2];
        }
    }

    // Codes per length; a chain of 257 entries is at most 256 long.
    uint32_t bits[kEntries + 1] = {};
    int longest = 0;
    for (int i = 0; i < kEntries; ++i) {
        if (codeSize[i] == 0) continue;
        ++bits[codeSize[i]];
        if (codeSize[i] > longest) longest = codeSize[i];
    }
    // Folds lengths above 16 back (Figure K.3): two codes of the longest
    // length become one a bit shorter plus two below the shortest free
    // prefix.
    for (int i = longest; i > 16; --i) {
        while (bits[i] > 0) {
            int j = i - 2;
            while (bits[j] == 0) --j;
            bits[i] -= 2;
            bits[i - 1] += 1;
            bits[j + 1] += 2;
            bits[j] -= 1;
        }
    }
    // Drops the reserved code, one of the longest.
    int last = 16;
    while (last > 0 && bits[last] == 0) --last;
    if (last > 0) --bits[last];
    for (int i = 0; i < 16; ++i) table->spec.counts[i] = static_cast<uint8_t>(bits[i + 1]);

    // Symbols in order of their unfolded code size, then value (Figure K.4).
    uint16_t count = 0;
    for (int size = 1; size <= longest; ++size) {
        for (int symbol = 0; symbol < 256; ++symbol) {
            if (codeSize[symbol] == size) table->symbols[count++] = static_cast<uint8_t>(symbol);
        }
    }
    table->spec.symbols = table->symbols;
    table->spec.symbolCount = count;
}

namespace {

// Walks a block of quantised coefficients (natural order) as sequential
// Huffman coding codes it (T.81 F.1.2.1 and F.1.2.2): `dc(category,
// difference)` once, then `ac(symbol, value, category)` for every run/size
// symbol in zig-zag order, ZRL and EOB with value and category 0.
template <typename Dc, typename Ac>
inline void WalkBlock(const int16_t* coefficients, int32_t* lastDc, Dc dc, Ac ac) {
    const int32_t difference = coefficients[0] - *lastDc;
    *lastDc = coefficients[0];
    dc(Category(difference), difference);
    uint32_t run = 0;
    for (int k = 1; k < 64; ++k) {
        const int32_t value = coefficients[kZigZag[k]];
        if (value == 0) {
            ++run;
            continue;
        }
        for (; run > 15; run -= 16) ac(kZeroRun, 0, 0u);
        const uint32_t category = Category(value);
        ac((run << 4) | category, value, category);
        run = 0;
    }
    if (run > 0) ac(kEndOfBlock, 0, 0u);
}

}  // namespace

void CountBlock(const int16_t* coefficients, int32_t* lastDc, uint32_t* dcFrequencies, uint32_t* acFrequencies) {
    WalkBlock(
        coefficients, lastDc, [&](uint32_t category, int32_t) { ++dcFrequencies[category]; },
        [&](uint32_t symbol, int32_t, uint32_t) { ++acFrequencies[symbol]; });
}

bool EntropyWriter::Begin(Stream* stream, ErrorRecord* record) {
    stream_ = stream;
    record_ = record;
    used_ = 0;
    accumulator_ = 0;
    pending_ = 0;
    return buffer_.Allocate(kBufferSize, false, record) != nullptr;
}

void EntropyWriter::Put(uint32_t bits, uint32_t count) {
    accumulator_ = (accumulator_ << count) | bits;
    pending_ += count;
    if (pending_ >= 32) EmitWord();
}

void EntropyWriter::EmitWord() {
    uint32_t word = static_cast<uint32_t>(accumulator_ >> (pending_ - 32));
    pending_ -= 32;
    uint8_t* out = buffer_.data() + used_;
    for (int shift = 24; shift >= 0; shift -= 8) {
        uint8_t byte = static_cast<uint8_t>(word >> shift);
        *out++ = byte;
        if (byte == 0xFF) *out++ = 0;
    }
    used_ = static_cast<size_t>(out - buffer_.data());
}

void EntropyWriter::Reserve() {
    if (used_ + kBlockReserve <= kBufferSize) return;
    StreamWrite(stream_, buffer_.data(), static_cast<uint32_t>(used_), record_);
    used_ = 0;
}

void EntropyWriter::EncodeBlock(const int16_t* coefficients, int32_t* lastDc, const HuffmanCodes& dc,
                                const HuffmanCodes& ac) {
    Reserve();
    WalkBlock(
        coefficients, lastDc,
        [&](uint32_t category, int32_t difference) {
            Put(dc.code[category], dc.length[category]);
            if (category != 0) Put(ExtraBits(difference, category), category);
        },
        [&](uint32_t symbol, int32_t value, uint32_t category) {
            Put(ac.code[symbol], ac.length[symbol]);
            if (category != 0) Put(ExtraBits(value, category), category);
        });
}

void EntropyWriter::EncodeDifference(int32_t difference, const HuffmanCodes& table) {
    Reserve();
    uint32_t category = Category(difference);
    if (category > 16) category = 16;
    Put(table.code[category], table.length[category]);
    if (category != 0 && category < 16) Put(ExtraBits(difference, category), category);
}

void EntropyWriter::Finish() {
    Reserve();
    uint32_t padding = (8 - pending_ % 8) % 8;
    if (padding != 0) Put((1u << padding) - 1, padding);
    uint8_t* out = buffer_.data() + used_;
    while (pending_ >= 8) {
        pending_ -= 8;
        uint8_t byte = static_cast<uint8_t>(accumulator_ >> pending_);
        *out++ = byte;
        if (byte == 0xFF) *out++ = 0;
    }
    used_ = static_cast<size_t>(out - buffer_.data());
    if (used_ != 0) StreamWrite(stream_, buffer_.data(), static_cast<uint32_t>(used_), record_);
    used_ = 0;
}

}  // namespace velmora::jpeg
