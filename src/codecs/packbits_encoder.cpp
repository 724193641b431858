#include <bit>
#include <cstring>

#include "codecs/byte_encoders.h"

namespace velmora {
namespace {

constexpr uint32_t kLongestRun = 128;
constexpr uint32_t kLiteralClose = 127;      // a literal group this long is written out
constexpr uint32_t kLiteralMergeRoom = 125;  // a 2-byte run joins a literal group up to this long
constexpr uint64_t kOnes = 0x0101010101010101;

// Eight bytes at `p`, the first in the low byte.
inline uint64_t Load8(const uint8_t* p) {
    uint64_t word;
    std::memcpy(&word, p, sizeof(word));
    return word;
}

// The first position from `i` whose byte equals the next one, or `size`
// when there is none: the bytes before it are literals. Eight positions are
// compared at a time, a zero byte of the difference marking a pair.
uint32_t NextPair(const uint8_t* row, uint32_t i, uint32_t size) {
    if constexpr (std::endian::native == std::endian::little) {
        for (; i + 9 <= size; i += 8) {
            const uint64_t diff = Load8(row + i) ^ Load8(row + i + 1);
            // The lowest flagged byte is the first zero byte of diff.
            const uint64_t zero = (diff - kOnes) & ~diff & (kOnes << 7);
            if (zero != 0) return i + static_cast<uint32_t>(std::countr_zero(zero)) / 8;
        }
    }
    for (; i + 1 < size; ++i) {
        if (row[i] == row[i + 1]) return i;
    }
    return size;
}

// The length of the run of equal bytes starting at `i`.
uint32_t RunLength(const uint8_t* row, uint32_t i, uint32_t size) {
    uint32_t j = i + 1;
    if constexpr (std::endian::native == std::endian::little) {
        const uint64_t value = kOnes * row[i];
        for (; j + 8 <= size; j += 8) {
            const uint64_t diff = Load8(row + j) ^ value;
            if (diff != 0) return j + static_cast<uint32_t>(std::countr_zero(diff)) / 8 - i;
        }
    }
    while (j < size && row[j] == row[i]) ++j;
    return j - i;
}

// Codes one row. A literal group is always a stretch of the row itself, so
// it is kept as its start and length and copied out when it closes.
class PackBitsRow {
public:
    explicit PackBitsRow(EncodedOutput* out) : out_(out) {}

    void Encode(const uint8_t* row, uint32_t size) {
        uint32_t i = 0;
        while (i < size) {
            const uint32_t pair = NextPair(row, i, size);
            if (pair > i) AddLiterals(row + i, pair - i);
            if (pair == size) break;
            uint32_t run = RunLength(row, pair, size);
            const uint8_t value = row[pair];
            i = pair + run;
            if (run == 2 && literalCount_ > 0 && literalCount_ <= kLiteralMergeRoom) {
                // Joining the literal group costs no more than a run would and
                // keeps the output from alternating between short groups.
                AddLiterals(row + pair, 2);
                continue;
            }
            CloseLiteral();
            for (; run > kLongestRun; run -= kLongestRun) PutRun(value, kLongestRun);
            if (run == 1) {
                AddLiterals(row + i - 1, 1);
            } else {
                PutRun(value, run);
            }
        }
        CloseLiteral();
    }

private:
    // Adds `count` literals at `at`, which follow the open group's; full
    // groups are written out.
    void AddLiterals(const uint8_t* at, uint32_t count) {
        if (literalCount_ == 0) literal_ = at;
        literalCount_ += count;
        while (literalCount_ >= kLiteralClose) {
            PutLiterals(kLiteralClose);
            literal_ += kLiteralClose;
            literalCount_ -= kLiteralClose;
        }
    }
    void CloseLiteral() {
        if (literalCount_ == 0) return;
        PutLiterals(literalCount_);
        literalCount_ = 0;
    }
    void PutLiterals(uint32_t count) {
        uint8_t* at = out_->Reserve(count + 1);
        at[0] = static_cast<uint8_t>(count - 1);
        std::memcpy(at + 1, literal_, count);
    }
    void PutRun(uint8_t value, uint32_t run) {
        uint8_t* at = out_->Reserve(2);
        at[0] = static_cast<uint8_t>(1 - static_cast<int32_t>(run));
        at[1] = value;
    }

    EncodedOutput* out_;
    const uint8_t* literal_ = nullptr;  // the open literal group
    uint32_t literalCount_ = 0;
};

}  // namespace

uint64_t EncodePackBitsStrip(const EncoderStrip& strip, ErrorRecord* record) {
    if (record->failed()) return 0;
    ScratchBlock scratch;
    if (!strip.PrepareScratch(&scratch, record)) return 0;
    EncodedOutput output(strip.out, nullptr, record);
    for (uint32_t r = 0; r < strip.rows && !record->failed(); ++r) {
        PackBitsRow(&output).Encode(strip.CodedRow(r, scratch), strip.rowBytes);
        strip.ReportRows(r + 1, record);
    }
    return output.Flush();
}

}  // namespace velmora
