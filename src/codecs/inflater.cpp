#include "codecs/inflater.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "codecs/adler32.h"
#include "codecs/byte_order.h"

namespace velmora {
namespace {

// ---- Decoding tables ---------------------------------------------------------
//
// A code is looked up by the next `primary` bits of the stream (codes are
// read least significant bit first, so a code's bits are reversed to index
// the table). Codes longer than the primary bits continue in a subtable,
// reached through a link entry, that the following bits index.
//
// Entry: bits 0-4 the code's length in bits, 5-7 its kind, 8-12 the extra
// bits that follow it (or a link's subtable index bits), 16-31 its value
// (a literal, a length or distance base, or a link's subtable offset).
enum Kind : uint32_t { kLiteral = 0, kBase = 1, kEndOfBlock = 2, kLink = 3, kInvalid = 4 };

constexpr uint32_t Entry(Kind kind, unsigned extra, unsigned value) {
    return (uint32_t{kind} << 5) | (uint32_t{extra} << 8) | (uint32_t{value} << 16);
}
inline unsigned CodeLength(uint32_t e) { return e & 31; }
inline uint32_t KindOf(uint32_t e) { return (e >> 5) & 7; }
inline unsigned Extra(uint32_t e) { return (e >> 8) & 31; }
inline unsigned Value(uint32_t e) { return e >> 16; }

constexpr unsigned kMaxCodeLength = 15;
constexpr unsigned kLiteralBits = 10;
constexpr unsigned kDistanceBits = 8;
constexpr unsigned kCodeLengthBits = 7;
constexpr unsigned kLiteralSymbols = 288;
constexpr unsigned kDistanceSymbols = 32;
// Subtables: at most one per code longer than the primary bits, each at most
// 2^(15 - primary) entries.
constexpr size_t kLiteralTableSize = (size_t{1} << kLiteralBits) + kLiteralSymbols * (1u << (15 - kLiteralBits));
constexpr size_t kDistanceTableSize = (size_t{1} << kDistanceBits) + kDistanceSymbols * (1u << (15 - kDistanceBits));

// RFC 1951 section 3.2.5.
constexpr uint16_t kLengthBase[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                      31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                      2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr uint16_t kDistanceBase[30] = {1,    2,    3,    4,    5,    7,    9,    13,    17,    25,
                                        33,   49,   65,   97,   129,  193,  257,  385,   513,   769,
                                        1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
constexpr uint8_t kDistanceExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                        6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
// RFC 1951 section 3.2.7: the order of the code-length code's lengths.
const uint8_t kCodeLengthOrder[19] = {16, 17, 18, 0, 8, 7, 9, 6, 10, 5, 11, 4, 12, 3, 13, 2, 14, 1, 15};

struct SymbolEntries {
    uint32_t literal[kLiteralSymbols];
    uint32_t distance[kDistanceSymbols];
    uint32_t codeLength[19];
    constexpr SymbolEntries() : literal(), distance(), codeLength() {
        for (unsigned s = 0; s < 256; ++s) literal[s] = Entry(kLiteral, 0, s);
        literal[256] = Entry(kEndOfBlock, 0, 0);
        for (unsigned s = 257; s < 286; ++s) literal[s] = Entry(kBase, kLengthExtra[s - 257], kLengthBase[s - 257]);
        literal[286] = literal[287] = Entry(kInvalid, 0, 0);
        for (unsigned s = 0; s < 30; ++s) distance[s] = Entry(kBase, kDistanceExtra[s], kDistanceBase[s]);
        distance[30] = distance[31] = Entry(kInvalid, 0, 0);
        for (unsigned s = 0; s < 19; ++s) codeLength[s] = Entry(kLiteral, 0, s);
    }
};
constexpr SymbolEntries kSymbols;

inline unsigned ReverseBits(unsigned code, unsigned length) {
    unsigned r = 0;
    for (unsigned i = 0; i < length; ++i, code >>= 1) r = (r << 1) | (code & 1);
    return r;
}

// Builds the table of the canonical code with the given lengths (RFC 1951
// section 3.2.2). A set of lengths that over-fills the code space keeps the
// codes that fit, in canonical order; codes of an incomplete set that belong
// to no symbol decode as invalid.
void BuildTable(const uint8_t* lengths, unsigned count, const uint32_t* symbols, unsigned primary, uint32_t* table) {
    unsigned perLength[kMaxCodeLength + 1] = {};
    for (unsigned s = 0; s < count; ++s) ++perLength[lengths[s]];
    uint32_t next[kMaxCodeLength + 2] = {};
    perLength[0] = 0;
    for (unsigned len = 1; len <= kMaxCodeLength; ++len) next[len] = (next[len - 1] + perLength[len - 1]) << 1;

    const uint32_t primarySize = 1u << primary;
    const uint32_t invalid = Entry(kInvalid, 0, 0);
    for (uint32_t i = 0; i < primarySize; ++i) table[i] = invalid;

    struct Code {
        uint16_t reversed;
        uint8_t length;
        uint16_t symbol;
    };
    Code codes[kLiteralSymbols];
    unsigned codeCount = 0;
    uint8_t longest[1u << kLiteralBits] = {};  // per primary slot: the longest code continuing there
    for (unsigned s = 0; s < count; ++s) {
        unsigned len = lengths[s];
        if (len == 0) continue;
        uint32_t code = next[len]++;
        if (code >= (1u << len)) continue;  // past the code space
        unsigned reversed = ReverseBits(code, len);
        codes[codeCount++] = {static_cast<uint16_t>(reversed), static_cast<uint8_t>(len), static_cast<uint16_t>(s)};
        if (len <= primary) {
            for (uint32_t i = reversed; i < primarySize; i += 1u << len) table[i] = symbols[s] | len;
        } else {
            uint8_t& slot = longest[reversed & (primarySize - 1)];
            slot = std::max<uint8_t>(slot, static_cast<uint8_t>(len));
        }
    }
    // Subtables after the primary table.
    uint32_t offset = primarySize;
    for (uint32_t slot = 0; slot < primarySize; ++slot) {
        if (longest[slot] == 0) continue;
        unsigned bits = longest[slot] - primary;
        table[slot] = Entry(kLink, bits, offset) | primary;
        for (uint32_t i = 0; i < (1u << bits); ++i) table[offset + i] = invalid;
        offset += 1u << bits;
    }
    for (unsigned k = 0; k < codeCount; ++k) {
        const Code& c = codes[k];
        if (c.length <= primary) continue;
        uint32_t link = table[c.reversed & (primarySize - 1)];
        uint32_t size = 1u << Extra(link);
        for (uint32_t i = c.reversed >> primary; i < size; i += 1u << (c.length - primary))
            table[Value(link) + i] = symbols[c.symbol] | c.length;
    }
}

constexpr uint32_t kHistory = 32768;    // the largest window
constexpr uint32_t kChunk = 96 * 1024;  // new output between two slides of the window
constexpr uint32_t kMaxMatch = 258;
constexpr uint32_t kCopySlack = 16;  // 16-byte block copies may pass a match's end
constexpr size_t kBufferSize = kHistory + kChunk + kMaxMatch + kCopySlack;

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
        BuildTable(lengths, kLiteralSymbols, kSymbols.literal, kLiteralBits, fixedLiteral);
        uint8_t distances[30];
        std::memset(distances, 5, sizeof distances);
        BuildTable(distances, 30, kSymbols.distance, kDistanceBits, fixedDistance);
        fixedBuilt = true;
    }
};

namespace {

// The state of one stream's decoding.
class StreamDecoder {
public:
    StreamDecoder(const uint8_t* data, size_t size, uint8_t* buffer, uint32_t windowSize, InflateSink* sink,
                  InflateTables* tables)
        : in_(data),
          end_(data + size),
          buffer_(buffer),
          out_(buffer + kHistory),
          emitted_(buffer + kHistory),
          limit_(buffer + kHistory + kChunk),
          windowMask_(windowSize - 1),
          sink_(sink),
          tables_(tables) {}

    // Decodes the blocks and checks the trailer; the header is already read.
    bool Run(ErrorRecord* record);
    bool slid() const { return slid_; }

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

    bool Emit(ErrorRecord* record);
    bool Slide(ErrorRecord* record);
    bool Fail(ErrorRecord* record);
    bool StoredBlock(ErrorRecord* record);
    bool DynamicTables(ErrorRecord* record);
    bool CodedBlock(const uint32_t* literal, const uint32_t* distance, ErrorRecord* record);
    int FastSymbols(const uint32_t* literal, const uint32_t* distance);

    const uint8_t* in_;
    const uint8_t* end_;
    uint64_t bits_ = 0;
    unsigned count_ = 0;
    unsigned padding_ = 0;
    uint8_t* buffer_;
    uint8_t* out_;
    uint8_t* emitted_;
    uint8_t* limit_;
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

bool StreamDecoder::Fail(ErrorRecord* record) {
    if (Emit(record)) SetRecordError(record, kErrBadFileData, 0);
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
    }
    if (!Emit(record)) return false;
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
        if (out_ >= limit_ && !Slide(record)) return false;
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
        uint32_t e = tables_->codeLength[bits_ & ((1u << kCodeLengthBits) - 1)];
        if (KindOf(e) == kInvalid) return Fail(record);
        Drop(CodeLength(e));
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
    BuildTable(lengths, literals, kSymbols.literal, kLiteralBits, tables_->literal);
    BuildTable(lengths + literals, distances, kSymbols.distance, kDistanceBits, tables_->distance);
    return true;
}

constexpr uint32_t kLiteralMask = (1u << kLiteralBits) - 1;
constexpr uint32_t kDistanceMask = (1u << kDistanceBits) - 1;

// Copies a match of `length` bytes from `distance` bytes back; overlapping
// copies repeat the bytes as they are written.
inline void CopyMatch(uint8_t* to, uint32_t dist, uint32_t length) {
    const uint8_t* from = to - dist;
    if (dist >= 16) {
        for (uint32_t i = 0; i < length; i += 16) std::memcpy(to + i, from + i, 16);
    } else if (dist == 1) {
        std::memset(to, from[0], length);
    } else {
        for (uint32_t i = 0; i < length; ++i) to[i] = from[i];
    }
}

// Decodes symbols while at least 8 input bytes and room for a match remain,
// so that neither the input's end nor the buffer's needs a check per symbol.
// The state lives in locals, out of reach of the output's byte stores.
// Returns 1 at the end of the block, -1 at an invalid code, 0 when the
// careful loop must take over.
int StreamDecoder::FastSymbols(const uint32_t* literal, const uint32_t* distance) {
    if (end_ - in_ < 8) return 0;
    const uint8_t* in = in_;
    const uint8_t* const last = end_ - 8;
    uint64_t bits = bits_;
    unsigned count = count_;
    uint8_t* out = out_;
    uint8_t* const limit = limit_;
    const uint32_t windowMask = windowMask_;
    int result = 0;
    while (out < limit && in <= last) {
        bits |= LoadLittleEndian64(in) << count;
        in += (63 - count) >> 3;
        count |= 56;
        uint32_t e = literal[bits & kLiteralMask];
        if (KindOf(e) == kLink) e = literal[Value(e) + ((bits >> kLiteralBits) & ((1u << Extra(e)) - 1))];
        if (KindOf(e) == kLiteral) {
            // Up to two more literals fit the bits left (at least 41, then 26).
            bits >>= CodeLength(e);
            count -= CodeLength(e);
            *out++ = static_cast<uint8_t>(Value(e));
            e = literal[bits & kLiteralMask];
            if (KindOf(e) != kLiteral) continue;
            bits >>= CodeLength(e);
            count -= CodeLength(e);
            *out++ = static_cast<uint8_t>(Value(e));
            e = literal[bits & kLiteralMask];
            if (KindOf(e) != kLiteral) continue;
            bits >>= CodeLength(e);
            count -= CodeLength(e);
            *out++ = static_cast<uint8_t>(Value(e));
            continue;
        }
        if (KindOf(e) == kEndOfBlock) {
            bits >>= CodeLength(e);
            count -= CodeLength(e);
            result = 1;
            break;
        }
        if (KindOf(e) != kBase) {
            result = -1;
            break;
        }
        bits >>= CodeLength(e);
        count -= CodeLength(e);
        uint32_t length = Value(e) + static_cast<uint32_t>(bits & ((uint64_t{1} << Extra(e)) - 1));
        bits >>= Extra(e);
        count -= Extra(e);
        uint32_t d = distance[bits & kDistanceMask];
        if (KindOf(d) == kLink) d = distance[Value(d) + ((bits >> kDistanceBits) & ((1u << Extra(d)) - 1))];
        if (KindOf(d) != kBase) {
            result = -1;
            break;
        }
        bits >>= CodeLength(d);
        count -= CodeLength(d);
        uint32_t dist = Value(d) + static_cast<uint32_t>(bits & ((uint64_t{1} << Extra(d)) - 1));
        bits >>= Extra(d);
        count -= Extra(d);
        if (dist > windowMask + 1) dist = ((dist - 1) & windowMask) + 1;
        CopyMatch(out, dist, length);
        out += length;
    }
    in_ = in;
    bits_ = bits;
    count_ = count;
    out_ = out;
    return result;
}

bool StreamDecoder::CodedBlock(const uint32_t* literal, const uint32_t* distance, ErrorRecord* record) {
    for (;;) {
        int fast = FastSymbols(literal, distance);
        if (fast > 0) return true;
        if (fast < 0) return Fail(record);
        if (out_ >= limit_ && !Slide(record)) return false;
        Refill();
        uint32_t e = literal[bits_ & kLiteralMask];
        if (KindOf(e) == kLink) e = literal[Value(e) + ((bits_ >> kLiteralBits) & ((1u << Extra(e)) - 1))];
        uint32_t kind = KindOf(e);
        if (kind == kLiteral) {
            Drop(CodeLength(e));
            if (Overrun()) return Fail(record);
            *out_++ = static_cast<uint8_t>(Value(e));
            continue;
        }
        if (kind == kEndOfBlock) {
            Drop(CodeLength(e));
            if (Overrun()) return Fail(record);
            return true;
        }
        if (kind != kBase) return Fail(record);
        Drop(CodeLength(e));
        uint32_t length = Value(e) + Take(Extra(e));
        uint32_t d = distance[bits_ & kDistanceMask];
        if (KindOf(d) == kLink) d = distance[Value(d) + ((bits_ >> kDistanceBits) & ((1u << Extra(d)) - 1))];
        if (KindOf(d) != kBase) return Fail(record);
        Drop(CodeLength(d));
        uint32_t dist = Value(d) + Take(Extra(d));
        if (Overrun()) return Fail(record);
        // A distance past the window wraps around it, as in a ring buffer of
        // the window's size.
        if (dist > windowMask_ + 1) dist = ((dist - 1) & windowMask_) + 1;
        CopyMatch(out_, dist, length);
        out_ += length;
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
        if (buffer_.Allocate(kBufferSize, true, record) == nullptr) return false;
        zeroFrom_ = 0;
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
    StreamDecoder decoder(data + 2, size - 2, buffer_.data(), windowSize_, sink, tables_.get());
    bool ok = decoder.Run(record);
    // Output reaches the history only when the buffer slides.
    if (decoder.slid()) zeroFrom_ = kHistory;
    return ok;
}

}  // namespace velmora
