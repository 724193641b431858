#include "codecs/inflater.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "codecs/adler32.h"
#include "codecs/deflate_tables.h"
#include "io/byte_order.h"

namespace velmora {
namespace {

// ---- Decoding tables ---------------------------------------------------------
//
// A code is looked up by the next `primary` bits of the stream (codes are
// read least significant bit first, so a code's bits are reversed to index
// the table). Codes longer than the primary bits continue in a subtable,
// reached through a link entry, that the following bits index.
//
// Entry:
//   bits 0-7    the bits the symbol takes: its code and the extra bits after it
//   bits 8-11   the code's length (a link: the index bits of its subtable)
//   bits 12-15  the flags below
//   bits 16-31  the value: a literal, a length or distance base, a
//               code-length symbol, or a link's subtable offset
// A length or distance is its base plus the extra bits above its code; as
// the entry counts both, one shift drops the code with its extra bits.
constexpr uint32_t kLiteralFlag = 0x8000;
constexpr uint32_t kSpecialFlag = 0x4000;  // end of block, link, or a code that is not allowed
constexpr uint32_t kLinkFlag = 0x2000;
constexpr uint32_t kEndFlag = 0x1000;
constexpr uint32_t kPairFlag = 0x1000;  // with kLiteralFlag: two literals
constexpr uint32_t kInvalidEntry = kSpecialFlag;

constexpr uint32_t SymbolEntry(uint32_t flags, unsigned extra, unsigned value) {
    return (uint32_t{value} << 16) | flags | extra;
}
inline unsigned TakenBits(uint32_t e) { return e & 0xFF; }
inline unsigned CodeBits(uint32_t e) { return (e >> 8) & 0xF; }
inline unsigned Value(uint32_t e) { return e >> 16; }
// The entry's base plus its extra bits (at most 13 above a code of at most
// 15 bits, so the mask stays below 32 bits).
inline uint32_t Amount(uint32_t e, uint64_t bits) {
    return Value(e) + ((static_cast<uint32_t>(bits) & ((1u << TakenBits(e)) - 1)) >> CodeBits(e));
}

constexpr unsigned kMaxCodeLength = 15;
constexpr unsigned kLiteralBits = 12;
constexpr unsigned kDistanceBits = 8;
constexpr unsigned kCodeLengthBits = 7;
constexpr unsigned kLiteralSymbols = 288;
constexpr unsigned kDistanceSymbols = 32;
// Subtables: at most one per code longer than the primary bits, each at most
// 2^(15 - primary) entries.
constexpr size_t kLiteralTableSize = (size_t{1} << kLiteralBits) + kLiteralSymbols * (1u << (15 - kLiteralBits));
constexpr size_t kDistanceTableSize = (size_t{1} << kDistanceBits) + kDistanceSymbols * (1u << (15 - kDistanceBits));

template <unsigned Primary>
inline uint32_t Lookup(const uint32_t* table, uint64_t bits) {
    uint32_t e = table[bits & ((1u << Primary) - 1)];
    if (e & kLinkFlag) e = table[Value(e) + (static_cast<uint32_t>(bits >> Primary) & ((1u << CodeBits(e)) - 1))];
    return e;
}

// Every symbol's entry without its code length.
struct SymbolEntries {
    uint32_t literal[kLiteralSymbols];
    uint32_t distance[kDistanceSymbols];
    uint32_t codeLength[19];
    constexpr SymbolEntries() : literal(), distance(), codeLength() {
        for (unsigned s = 0; s < 256; ++s) literal[s] = SymbolEntry(kLiteralFlag, 0, s);
        literal[256] = SymbolEntry(kSpecialFlag | kEndFlag, 0, 0);
        for (unsigned s = 257; s < 286; ++s) literal[s] = SymbolEntry(0, kLengthExtra[s - 257], kLengthBase[s - 257]);
        literal[286] = literal[287] = kInvalidEntry;
        for (unsigned s = 0; s < 30; ++s) distance[s] = SymbolEntry(0, kDistanceExtra[s], kDistanceBase[s]);
        distance[30] = distance[31] = kInvalidEntry;
        for (unsigned s = 0; s < 19; ++s) codeLength[s] = SymbolEntry(0, 0, s);
    }
};
constexpr SymbolEntries kSymbols;

struct ReversedBytes {
    uint8_t of[256];
    constexpr ReversedBytes() : of() {
        for (unsigned b = 0; b < 256; ++b) {
            unsigned r = 0;
            for (unsigned i = 0; i < 8; ++i) r |= ((b >> i) & 1) << (7 - i);
            of[b] = static_cast<uint8_t>(r);
        }
    }
};
constexpr ReversedBytes kReversed;

inline unsigned ReverseBits(unsigned code, unsigned length) {
    unsigned r = (unsigned{kReversed.of[code & 0xFF]} << 8) | kReversed.of[(code >> 8) & 0xFF];
    return r >> (16 - length);
}

// A literal's code in a primary table.
struct LiteralCode {
    uint16_t reversed;  // its bits in the order of the stream
    uint8_t length;
    uint8_t value;
};

// Joins two literals into one primary entry wherever both codes fit in the
// primary bits: the entry takes both codes, its value holds the first
// literal in bits 16-23 and the second in bits 24-31, and its code length
// stays the first literal's. The slots of a pair are those that begin with
// the first code followed by the second. `codes` are the literals' codes
// shorter than the primary bits, shortest first.
void PairLiterals(const LiteralCode* codes, unsigned count, unsigned primary, uint32_t* table) {
    const uint32_t size = 1u << primary;
    for (unsigned a = 0; a < count; ++a) {
        const LiteralCode& first = codes[a];
        for (unsigned b = 0; b < count && first.length + codes[b].length <= primary; ++b) {
            const LiteralCode& second = codes[b];
            const unsigned taken = first.length + second.length;
            const uint32_t entry = (uint32_t{second.value} << 24) | (uint32_t{first.value} << 16) | kLiteralFlag |
                                   kPairFlag | (uint32_t{first.length} << 8) | taken;
            for (uint32_t i = first.reversed | (uint32_t{second.reversed} << first.length); i < size; i += 1u << taken)
                table[i] = entry;
        }
    }
}

// Builds the table of the canonical code with the given lengths (RFC 1951
// section 3.2.2). A set of lengths that over-fills the code space keeps the
// codes that fit, in canonical order; codes of an incomplete set that belong
// to no symbol decode as invalid.
//
// The primary table is filled length by length: once the codes up to some
// length L are in its first 2^L entries, those entries repeat with period
// 2^L, so doubling them and adding the codes of length L + 1 (one entry
// each) gives the first 2^(L + 1) entries.
void BuildTable(const uint8_t* lengths, unsigned count, const uint32_t* symbols, unsigned primary, uint32_t* table,
                bool pairs = false) {
    unsigned perLength[kMaxCodeLength + 1] = {};
    for (unsigned s = 0; s < count; ++s) ++perLength[lengths[s]];
    perLength[0] = 0;
    // The symbols by code length, in symbol order within one length.
    unsigned start[kMaxCodeLength + 2] = {};
    for (unsigned len = 1; len <= kMaxCodeLength; ++len) start[len + 1] = start[len] + perLength[len];
    uint16_t sorted[kLiteralSymbols];
    {
        unsigned at[kMaxCodeLength + 2];
        std::memcpy(at, start, sizeof at);
        for (unsigned s = 0; s < count; ++s)
            if (lengths[s] != 0) sorted[at[lengths[s]]++] = static_cast<uint16_t>(s);
    }

    LiteralCode literals[256];
    unsigned literalCount = 0;
    uint32_t code = 0;  // the next code of the current length
    table[0] = table[1] = kInvalidEntry;
    uint32_t filled = 2;
    for (unsigned len = 1; len <= primary; ++len, code <<= 1) {
        if (len > 1) {
            std::memcpy(table + filled, table, filled * sizeof(uint32_t));
            filled *= 2;
        }
        for (unsigned k = start[len]; k < start[len + 1] && code < (1u << len); ++k, ++code) {
            const uint32_t entry = symbols[sorted[k]];
            const unsigned reversed = ReverseBits(code, len);
            table[reversed] = entry + len + (len << 8);
            if (pairs && (entry & kLiteralFlag) && len < primary)
                literals[literalCount++] = {static_cast<uint16_t>(reversed), static_cast<uint8_t>(len),
                                            static_cast<uint8_t>(Value(entry))};
        }
        code = std::min(code, 1u << len);  // the codes past the code space are dropped
    }
    if (pairs) PairLiterals(literals, literalCount, primary, table);

    // Longer codes: a subtable per primary slot, as large as the longest code
    // continuing there needs.
    if (start[kMaxCodeLength + 1] == start[primary + 1]) return;
    struct Code {
        uint16_t reversed;
        uint8_t length;
        uint32_t entry;
    };
    Code codes[kLiteralSymbols];
    unsigned codeCount = 0;
    // Per primary slot: the longest code continuing there. The codes come
    // shortest first, so the last one written is the longest; only slots
    // that long codes use are read.
    uint8_t longest[1u << kLiteralBits];
    const uint32_t slotMask = (1u << primary) - 1;
    for (unsigned len = primary + 1; len <= kMaxCodeLength; ++len, code <<= 1) {
        for (unsigned k = start[len]; k < start[len + 1] && code < (1u << len); ++k, ++code) {
            unsigned reversed = ReverseBits(code, len);
            codes[codeCount++] = {static_cast<uint16_t>(reversed), static_cast<uint8_t>(len),
                                  symbols[sorted[k]] + len + (len << 8)};
            longest[reversed & slotMask] = static_cast<uint8_t>(len);
        }
        code = std::min(code, 1u << len);
    }
    uint32_t offset = 1u << primary;
    for (unsigned k = 0; k < codeCount; ++k) {
        const Code& c = codes[k];
        uint32_t& link = table[c.reversed & slotMask];
        if (!(link & kLinkFlag)) {
            // The slot's first long code: its subtable follows the others.
            unsigned bits = longest[c.reversed & slotMask] - primary;
            link = (offset << 16) | kSpecialFlag | kLinkFlag | (bits << 8);
            std::fill(table + offset, table + offset + (1u << bits), kInvalidEntry);
            offset += 1u << bits;
        }
        uint32_t size = 1u << CodeBits(link);
        for (uint32_t i = c.reversed >> primary; i < size; i += 1u << (c.length - primary))
            table[Value(link) + i] = c.entry;
    }
}

constexpr uint32_t kHistory = 32768;     // the largest window
constexpr uint32_t kChunk = 224 * 1024;  // new output between two slides of the window
constexpr uint32_t kMaxMatch = 258;
// The fast loop may write six literals and a match past its limit, and a
// match's copy up to 31 bytes past the match's end.
constexpr uint32_t kCopySlack = 48;
constexpr uint32_t kMargin = kMaxMatch + kCopySlack;  // room kept past the limit of the output
constexpr size_t kBufferSize = kHistory + kChunk + kMargin;
// The fast loop refills its bits twice per symbol from 8-byte loads.
constexpr ptrdiff_t kFastInput = 16;

}  // namespace

struct InflateTables {
    uint32_t literal[kLiteralTableSize];
    uint32_t distance[kDistanceTableSize];
    uint32_t fixedLiteral[kLiteralTableSize];
    uint32_t fixedDistance[kDistanceTableSize];
    uint32_t codeLength[1u << kCodeLengthBits];
    bool fixedBuilt = false;

    void BuildFixed() {
        if (fixedBuilt) return;
        uint8_t lengths[kLiteralSymbols];
        for (unsigned s = 0; s < kLiteralSymbols; ++s) lengths[s] = s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8;
        BuildTable(lengths, kLiteralSymbols, kSymbols.literal, kLiteralBits, fixedLiteral, true);
        uint8_t distances[30];
        std::memset(distances, 5, sizeof distances);
        BuildTable(distances, 30, kSymbols.distance, kDistanceBits, fixedDistance);
        fixedBuilt = true;
    }
};

namespace {

// The state of one stream's decoding. Output goes either to the window
// buffer (32 KiB of history, then new output up to the limit; when that is
// full, the new output goes to the sink and the last 32 KiB slide back to the
// history) or, while there is room, straight to the caller's output area, of
// which the decoder settles the part that matches can no longer reach.
class StreamDecoder {
public:
    StreamDecoder(const uint8_t* data, size_t size, uint8_t* buffer, uint8_t* area, size_t areaSize,
                  uint32_t windowSize, InflateSink* sink, InflateTables* tables)
        : in_(data), end_(data + size), buffer_(buffer), windowMask_(windowSize - 1), sink_(sink), tables_(tables) {
        if (area != nullptr && areaSize > kMargin) {
            direct_ = true;
            base_ = out_ = emitted_ = checked_ = area;
            limit_ = area + (areaSize - kMargin);
            areaEnd_ = area + areaSize;
        } else {
            UseBuffer();
        }
    }

    // Decodes the blocks and checks the trailer; the header is already read.
    bool Run(ErrorRecord* record);
    bool slid() const { return slid_; }
    // Clears the output area past the output, where copies may have left
    // scratch bytes, when the stream ended inside it.
    void ClearRestOfArea() {
        if (direct_) std::memset(out_, 0, static_cast<size_t>(areaEnd_ - out_));
    }

private:
    void Refill() {
        if (end_ - in_ >= 8) {
            bits_ |= LoadLittleEndian64(in_) << count_;
            in_ += (63 - count_) >> 3;
            count_ |= 56;
            return;
        }
        while (count_ <= 56) {
            uint64_t byte = 0;
            if (in_ < end_) {
                byte = *in_++;
            } else {
                ++padding_;
            }
            bits_ |= byte << count_;
            count_ += 8;
        }
    }
    // Bits taken past the stream's last byte came from the zero padding.
    bool Overrun() const { return count_ < 8 * padding_; }
    uint32_t Take(unsigned n) {
        uint32_t v = static_cast<uint32_t>(bits_ & ((uint64_t{1} << n) - 1));
        bits_ >>= n;
        count_ -= n;
        return v;
    }
    void Drop(unsigned n) {
        bits_ >>= n;
        count_ -= n;
    }

    void UseBuffer() {
        direct_ = false;
        base_ = buffer_;
        out_ = emitted_ = checked_ = buffer_ + kHistory;
        limit_ = out_ + kChunk;
    }
    bool Emit(ErrorRecord* record);
    bool Slide(ErrorRecord* record);
    bool Deliver(bool all, ErrorRecord* record);
    bool LeaveArea(ErrorRecord* record);
    bool MakeRoom(ErrorRecord* record) { return direct_ ? LeaveArea(record) : Slide(record); }
    bool Fail(ErrorRecord* record);
    bool StoredBlock(ErrorRecord* record);
    bool DynamicTables(ErrorRecord* record);
    bool CodedBlock(const uint32_t* literal, const uint32_t* distance, ErrorRecord* record);
    int FastSymbols(const uint32_t* literal, const uint32_t* distance, uint8_t* outLimit);

    const uint8_t* in_;
    const uint8_t* end_;
    uint64_t bits_ = 0;
    unsigned count_ = 0;
    unsigned padding_ = 0;
    uint8_t* buffer_;
    bool direct_ = false;  // output goes to the caller's area
    uint8_t* base_;        // the first byte matches may read
    uint8_t* out_;         // where the next byte goes
    uint8_t* emitted_;     // the first byte not yet handed on (or settled)
    uint8_t* checked_;     // the first byte not yet in the checksum
    uint8_t* limit_;       // the fast loop and single symbols stop here
    uint8_t* areaEnd_ = nullptr;
    uint32_t windowMask_;
    uint32_t adler_ = 1;
    bool slid_ = false;
    InflateSink* sink_;
    InflateTables* tables_;
};

// Hands the new output to the sink.
bool StreamDecoder::Emit(ErrorRecord* record) {
    size_t n = static_cast<size_t>(out_ - emitted_);
    if (n == 0) return true;
    adler_ = Adler32Update(adler_, emitted_, n);
    const uint8_t* from = emitted_;
    emitted_ = out_;
    return sink_->Take(from, n, record);
}

// Emits the new output and moves the last 32 KiB to the history.
bool StreamDecoder::Slide(ErrorRecord* record) {
    if (!Emit(record)) return false;
    std::memmove(buffer_, out_ - kHistory, kHistory);
    out_ = buffer_ + kHistory;
    emitted_ = out_;
    slid_ = true;
    return true;
}

// Hands on the output so far. From the output area, the bytes older than
// the largest window (or all of them) are settled.
bool StreamDecoder::Deliver(bool all, ErrorRecord* record) {
    if (!direct_) return Emit(record);
    if (out_ > checked_) {
        adler_ = Adler32Update(adler_, checked_, static_cast<size_t>(out_ - checked_));
        checked_ = out_;
    }
    uint8_t* settle = out_;
    if (!all) settle = static_cast<size_t>(out_ - base_) > kHistory ? out_ - kHistory : base_;
    if (settle <= emitted_) return true;
    size_t n = static_cast<size_t>(settle - emitted_);
    emitted_ = settle;
    return sink_->Settled(n, record);
}

// The output area is full up to its margin: the rest of the stream goes to
// the window buffer, with the area's last 32 KiB (and zeros before the
// stream's start) as its history, copied before the sink may change them.
bool StreamDecoder::LeaveArea(ErrorRecord* record) {
    const size_t keep = std::min<size_t>(static_cast<size_t>(out_ - base_), kHistory);
    std::memset(buffer_, 0, kHistory - keep);
    std::memcpy(buffer_ + kHistory - keep, out_ - keep, keep);
    if (!Deliver(true, record)) return false;
    ClearRestOfArea();
    UseBuffer();
    slid_ = true;
    return true;
}

bool StreamDecoder::Fail(ErrorRecord* record) {
    if (Deliver(true, record)) SetRecordError(record, kErrBadFileData, 0);
    return false;
}

bool StreamDecoder::Run(ErrorRecord* record) {
    bool final = false;
    while (!final) {
        Refill();
        final = Take(1) != 0;
        uint32_t type = Take(2);
        if (Overrun()) return Fail(record);
        bool ok;
        switch (type) {
            case 0: ok = StoredBlock(record); break;
            case 1:
                tables_->BuildFixed();
                ok = CodedBlock(tables_->fixedLiteral, tables_->fixedDistance, record);
                break;
            case 2: ok = DynamicTables(record) && CodedBlock(tables_->literal, tables_->distance, record); break;
            default: return Fail(record);
        }
        if (!ok) return false;
        if (direct_ && !Deliver(false, record)) return false;
    }
    if (!Deliver(true, record)) return false;
    // The Adler-32 of the output follows at the next byte, most significant
    // byte first.
    Drop(count_ & 7);
    Refill();
    uint32_t stored = 0;
    for (int i = 0; i < 4; ++i) stored = (stored << 8) | Take(8);
    if (Overrun() || stored != adler_) return Fail(record);
    return true;
}

bool StreamDecoder::StoredBlock(ErrorRecord* record) {
    Drop(count_ & 7);
    Refill();
    uint32_t length = Take(16);
    uint32_t complement = Take(16);
    if (Overrun() || (length ^ complement) != 0xFFFF) return Fail(record);
    // Give the whole bytes still in the accumulator back to the input.
    while (count_ >= 8) {
        if (padding_ > 0) {
            --padding_;
        } else {
            --in_;
        }
        count_ -= 8;
    }
    bits_ = 0;
    while (length > 0) {
        if (out_ >= limit_ && !MakeRoom(record)) return false;
        size_t n = std::min<size_t>({length, static_cast<size_t>(end_ - in_), static_cast<size_t>(limit_ - out_)});
        if (n == 0) return Fail(record);  // the stream ends inside the block
        std::memcpy(out_, in_, n);
        out_ += n;
        in_ += n;
        length -= static_cast<uint32_t>(n);
    }
    return true;
}

bool StreamDecoder::DynamicTables(ErrorRecord* record) {
    Refill();
    unsigned literals = Take(5) + 257;
    unsigned distances = Take(5) + 1;
    unsigned codeLengthCount = Take(4) + 4;
    if (Overrun()) return Fail(record);
    uint8_t codeLengths[19] = {};
    for (unsigned i = 0; i < codeLengthCount; ++i) {
        Refill();
        codeLengths[kCodeLengthOrder[i]] = static_cast<uint8_t>(Take(3));
    }
    if (Overrun()) return Fail(record);
    BuildTable(codeLengths, 19, kSymbols.codeLength, kCodeLengthBits, tables_->codeLength);

    // Literal/length and distance lengths form one sequence, so a repeat may
    // run from one into the other.
    uint8_t lengths[kLiteralSymbols + kDistanceSymbols];
    const unsigned total = literals + distances;
    unsigned i = 0;
    while (i < total) {
        Refill();
        uint32_t e = Lookup<kCodeLengthBits>(tables_->codeLength, bits_);
        if (e & kSpecialFlag) return Fail(record);
        Drop(TakenBits(e));
        unsigned symbol = Value(e);
        if (symbol < 16) {
            if (Overrun()) return Fail(record);
            lengths[i++] = static_cast<uint8_t>(symbol);
            continue;
        }
        unsigned repeat;
        uint8_t value = 0;
        if (symbol == 16) {
            if (i == 0) return Fail(record);
            value = lengths[i - 1];
            repeat = 3 + Take(2);
        } else if (symbol == 17) {
            repeat = 3 + Take(3);
        } else {
            repeat = 11 + Take(7);
        }
        if (Overrun() || i + repeat > total) return Fail(record);
        std::memset(lengths + i, value, repeat);
        i += repeat;
    }
    BuildTable(lengths, literals, kSymbols.literal, kLiteralBits, tables_->literal, true);
    BuildTable(lengths + literals, distances, kSymbols.distance, kDistanceBits, tables_->distance);
    return true;
}

constexpr uint32_t kLiteralMask = (1u << kLiteralBits) - 1;
constexpr uint32_t kDistanceMask = (1u << kDistanceBits) - 1;

// For a match whose distance is below 8: the smallest multiple of the
// distance that is at least 8. The output repeats with the distance as its
// period, so once the first 8 bytes are written, 8-byte words can be copied
// from that far back.
const uint8_t kPeriodWord[8] = {0, 8, 8, 9, 8, 10, 12, 14};

// Copies a match of `length` bytes from `dist` bytes back; overlapping
// copies repeat the bytes as they are written. Up to 31 bytes past the
// match's end are written with bytes of no meaning.
inline void CopyMatch(uint8_t* to, uint32_t dist, uint32_t length) {
    const uint8_t* from = to - dist;
    uint8_t* const end = to + length;
    if (dist >= 16) {
        // Most matches are short: their first 32 bytes go without a test.
        std::memcpy(to, from, 16);
        std::memcpy(to + 16, from + 16, 16);
        for (to += 32, from += 32; to < end; to += 16, from += 16) std::memcpy(to, from, 16);
    } else if (dist >= 8) {
        do {
            std::memcpy(to, from, 8);
            to += 8;
            from += 8;
        } while (to < end);
    } else if (dist == 1) {
        const uint64_t pattern = from[0] * uint64_t{0x0101010101010101};
        do {
            std::memcpy(to, &pattern, 8);
            std::memcpy(to + 8, &pattern, 8);
            to += 16;
        } while (to < end);
    } else {
        for (int i = 0; i < 8; ++i) to[i] = from[i];
        const uint32_t back = kPeriodWord[dist];
        for (to += 8; to < end; to += 8) std::memcpy(to, to - back, 8);
    }
}

// A match that wraps around a window smaller than 32 KiB, or reaches before
// the stream's first byte in the output area, where the history would hold
// zeros. Taken only by streams that zlib refuses.
uint8_t* CopyFarMatch(uint8_t* out, const uint8_t* base, uint32_t dist, uint32_t length, uint32_t windowMask) {
    if (dist > windowMask + 1) dist = ((dist - 1) & windowMask) + 1;
    const size_t done = static_cast<size_t>(out - base);
    if (dist <= done) {
        CopyMatch(out, dist, length);
    } else {
        for (uint32_t i = 0; i < length; ++i) out[i] = done + i >= dist ? *(out + i - dist) : 0;
    }
    return out + length;
}

// The part of a stream's state that the fast loop works on.
struct FastCursor {
    const uint8_t* in;
    const uint8_t* inLimit;  // the loop stops past this (kFastInput before the end)
    uint64_t bits;
    unsigned count;
    uint8_t* out;
    uint8_t* outLimit;
    const uint8_t* base;
    uint32_t windowMask;
    const uint32_t* literal;
    const uint32_t* distance;
};

// Decodes symbols while at least kFastInput input bytes remain and the
// output limit is not reached (the buffer has room for two literals and a
// match past it), so that neither end needs a check per symbol. The state
// lives in locals, out of reach of the output's byte stores. Returns 1 at
// the end of the block, -1 at an invalid code, 0 when the careful loop must
// take over.
#if defined(__GNUC__)
#define VELMORA_ALWAYS_INLINE inline __attribute__((always_inline))
#else
#define VELMORA_ALWAYS_INLINE inline
#endif

VELMORA_ALWAYS_INLINE int DecodeFast(FastCursor& cursor) {
    const uint8_t* in = cursor.in;
    const uint8_t* const inLimit = cursor.inLimit;
    uint64_t bits = cursor.bits;
    unsigned count = cursor.count;
    uint8_t* out = cursor.out;
    uint8_t* const outLimit = cursor.outLimit;
    const uint8_t* const base = cursor.base;
    const uint32_t windowMask = cursor.windowMask;
    const uint32_t* const literal = cursor.literal;
    const uint32_t* const distance = cursor.distance;
    int result = 0;
    // A refill leaves at least 56 bits: three literal entries of the primary
    // table take at most 36; a length with its extra bits takes at most 20,
    // and the refill after it leaves 28 for the next lookup once the
    // distance has taken its at most 28. There are at most two refills per
    // round.
    // Only the low byte of `count` is the number of bits held (below 64):
    // whole entries are subtracted from it, their low byte being the bits
    // they take, and the bits above are left as they fall.
    auto refill = [&] {
        bits |= LoadLittleEndian64(in) << (count & 63);
        in += (~count & 63) >> 3;
        count |= 56;
    };
    auto drop = [&](uint32_t e) {
        bits >>= e & 63;
        count -= e;
    };
    // Literal entries may carry two literals: both bytes are stored, and the
    // output moves by one or two.
    auto literals = [&](uint32_t e) {
        drop(e);
        const uint16_t value = static_cast<uint16_t>(e >> 16);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
        out[0] = static_cast<uint8_t>(value);
        out[1] = static_cast<uint8_t>(value >> 8);
#else
        std::memcpy(out, &value, 2);
#endif
        out += 1 + ((e & kPairFlag) >> 12);
    };
    // Each round starts with the entry of the next symbol looked up; a
    // refill leaves it valid, since it only adds bits above.
    refill();
    uint32_t e = literal[bits & kLiteralMask];
    do {
        refill();
        if (e & kLiteralFlag) {
            literals(e);
            e = literal[bits & kLiteralMask];
            if (e & kLiteralFlag) {
                literals(e);
                e = literal[bits & kLiteralMask];
                if (e & kLiteralFlag) {
                    literals(e);
                    e = literal[bits & kLiteralMask];
                }
            }
            continue;
        }
        if (e & kSpecialFlag) {
            if (e & kLinkFlag) {
                e = literal[Value(e) + (static_cast<uint32_t>(bits >> kLiteralBits) & ((1u << CodeBits(e)) - 1))];
                if (e & kLiteralFlag) {
                    literals(e);
                    e = literal[bits & kLiteralMask];
                    continue;
                }
            }
            if (e & kEndFlag) {
                drop(e);
                result = 1;
                break;
            }
            if (e & kSpecialFlag) {
                result = -1;
                break;
            }
        }
        const uint32_t length = Amount(e, bits);
        drop(e);
        // The distance is read from the bits left after the length (at least
        // 36), so that the refill for the symbol after it goes on beside and
        // the next lookup waits on the distance's entry alone: a refill adds
        // bits only above those held.
        const uint64_t held = bits;
        refill();
        uint32_t d = distance[held & kDistanceMask];
        if (d & kSpecialFlag) {
            if (d & kLinkFlag)
                d = distance[Value(d) + (static_cast<uint32_t>(held >> kDistanceBits) & ((1u << CodeBits(d)) - 1))];
            if (d & kSpecialFlag) {
                result = -1;
                break;
            }
        }
        const uint32_t dist = Amount(d, held);
        drop(d);
        e = literal[bits & kLiteralMask];
        if (dist > windowMask + 1 || dist > static_cast<size_t>(out - base)) {
            out = CopyFarMatch(out, base, dist, length, windowMask);
            continue;
        }
        CopyMatch(out, dist, length);
        out += length;
    } while (out < outLimit && in <= inLimit);
    cursor.in = in;
    cursor.bits = bits;
    cursor.count = count & 0xFF;
    cursor.out = out;
    return result;
}

// The loop compiled twice on x86-64: processors with BMI2 shift and mask the
// bit buffer by a register count in one instruction each.
int DecodeFastPortable(FastCursor& cursor) { return DecodeFast(cursor); }

using FastRoutine = int (*)(FastCursor&);

#if defined(__x86_64__) && defined(__GNUC__)
__attribute__((target("bmi2"))) int DecodeFastBmi2(FastCursor& cursor) { return DecodeFast(cursor); }

FastRoutine ChooseFastRoutine() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("bmi2") ? DecodeFastBmi2 : DecodeFastPortable;
}
#else
FastRoutine ChooseFastRoutine() { return DecodeFastPortable; }
#endif

int StreamDecoder::FastSymbols(const uint32_t* literal, const uint32_t* distance, uint8_t* outLimit) {
    if (end_ - in_ < kFastInput || out_ >= outLimit) return 0;
    FastCursor cursor{in_, end_ - kFastInput, bits_, count_, out_, outLimit, base_, windowMask_, literal, distance};
    static const FastRoutine decodeFast = ChooseFastRoutine();
    const int result = decodeFast(cursor);
    in_ = cursor.in;
    bits_ = cursor.bits;
    count_ = cursor.count;
    out_ = cursor.out;
    return result;
}

bool StreamDecoder::CodedBlock(const uint32_t* literal, const uint32_t* distance, ErrorRecord* record) {
    for (;;) {
        int fast = FastSymbols(literal, distance, limit_);
        if (fast > 0) return true;
        if (fast < 0) return Fail(record);
        if (out_ >= limit_ && !MakeRoom(record)) return false;
        Refill();
        uint32_t e = Lookup<kLiteralBits>(literal, bits_);
        if (e & kLiteralFlag) {
            // One literal at a time, even from an entry of two, so that a
            // stream cut after the first still delivers it.
            Drop(CodeBits(e));
            if (Overrun()) return Fail(record);
            *out_++ = static_cast<uint8_t>(Value(e));
            continue;
        }
        if (e & kEndFlag) {
            Drop(TakenBits(e));
            if (Overrun()) return Fail(record);
            return true;
        }
        if (e & kSpecialFlag) return Fail(record);
        uint32_t length = Amount(e, bits_);
        Drop(TakenBits(e));
        uint32_t d = Lookup<kDistanceBits>(distance, bits_);
        if (d & kSpecialFlag) return Fail(record);
        uint32_t dist = Amount(d, bits_);
        Drop(TakenBits(d));
        if (Overrun()) return Fail(record);
        // A distance past the window wraps around it, as in a ring buffer of
        // the window's size.
        out_ = CopyFarMatch(out_, base_, dist, length, windowMask_);
    }
}

}  // namespace

Inflater::Inflater() = default;
Inflater::~Inflater() = default;

void Inflater::Release() {
    buffer_.Release();
    tables_.reset();
    windowSize_ = 0;
    zeroFrom_ = 0;
}

bool Inflater::PrepareWindow(uint32_t size, ErrorRecord* record) {
    if (buffer_.data() == nullptr) {
        // Only the history needs zeros, and only as far as the window reaches.
        if (buffer_.Allocate(kBufferSize, false, record) == nullptr) return false;
        zeroFrom_ = kHistory;
        windowSize_ = 0;
    }
    if (tables_ == nullptr) {
        tables_.reset(new (std::nothrow) InflateTables);
        if (tables_ == nullptr) {
            SetRecordError(record, kErrNotEnoughMemory, 0);
            return false;
        }
    }
    // A window that is large enough is reused; only a larger one replaces it.
    windowSize_ = std::max(windowSize_, size);
    uint32_t start = kHistory - windowSize_;
    if (zeroFrom_ > start) {
        std::memset(buffer_.data() + start, 0, zeroFrom_ - start);
        zeroFrom_ = start;
    }
    return true;
}

bool Inflater::DecodeZlibStream(const uint8_t* data, size_t size, InflateSink* sink, ErrorRecord* record) {
    return DecodeZlibStream(data, size, nullptr, 0, sink, record);
}

bool Inflater::DecodeZlibStream(const uint8_t* data, size_t size, uint8_t* area, size_t areaSize, InflateSink* sink,
                                ErrorRecord* record) {
    if (record->failed()) return false;
    if (data == nullptr) size = 0;
    // RFC 1950: method 8 (Deflate), a window of at most 32 KiB, a header
    // check that makes the first two bytes a multiple of 31, no preset
    // dictionary.
    if (size < 2 || (data[0] & 0x0F) != 8 || (data[0] >> 4) > 7 || (data[0] * 256u + data[1]) % 31 != 0 ||
        (data[1] & 0x20) != 0) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    if (!PrepareWindow(1u << ((data[0] >> 4) + 8), record)) return false;
    StreamDecoder decoder(data + 2, size - 2, buffer_.data(), area, areaSize, windowSize_, sink, tables_.get());
    bool ok = decoder.Run(record);
    decoder.ClearRestOfArea();
    // Output reaches the history only when the buffer slides or takes over
    // from the output area.
    if (decoder.slid()) zeroFrom_ = kHistory;
    return ok;
}

}  // namespace velmora
