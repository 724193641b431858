// The Deflate encoder of TIFF strips (Compression 8): each strip is one zlib
// stream (RFC 1950) of Deflate blocks (RFC 1951).
//
// Matches are found with hash chains over the 32 KB window (three-byte
// hashes, chains followed at most kMaxChain steps, a match of kNiceLength or
// more taken at once) and chosen lazily: a match shorter than kLazyLimit is
// put off by one byte when the next byte starts a longer one. Symbols are gathered kBlockSymbols at a
// time; each block is written in whichever of the three block types is
// shortest: stored, fixed codes, or codes made for the block (Huffman codes
// limited to 15 bits, the code-length code to 7).
#include <algorithm>
#include <cstring>

#include "codecs/adler32.h"
#include "codecs/byte_encoders.h"
#include "codecs/deflate_tables.h"
#include "frame/checked_array.h"
#include "frame/scratch_block.h"

namespace velmora {
namespace {

constexpr uint32_t kWindowSize = 32768;
constexpr uint32_t kHashBits = 15;
constexpr uint32_t kHashSize = 1u << kHashBits;
constexpr uint32_t kMinMatch = 3;
constexpr uint32_t kMaxMatch = 258;
constexpr uint32_t kMaxChain = 32;
constexpr uint32_t kNiceLength = 128;
constexpr uint32_t kTooFar = 4096;
constexpr uint32_t kLazyLimit = 16;  // matches this long are taken without looking one byte on
constexpr uint32_t kGoodLength = 8;  // a match this long shortens the search for a longer one fourfold
constexpr uint32_t kBlockSymbols = 16384;
constexpr unsigned kLiteralCodes = 286, kDistanceCodes = 30, kLengthCodes = 19;
constexpr unsigned kEndOfBlock = 256;
constexpr unsigned kMaxBits = 15, kMaxCodeLengthBits = 7;
// zlib header: Deflate with a 32 KB window, default compression level; the
// pair is a multiple of 31 (RFC 1950 section 2.2).
constexpr uint8_t kZlibHeader[2] = {0x78, 0x9C};

// A literal (distance 0) or a match of `length` bytes `distance` back.
struct Symbol {
    uint16_t length;  // the byte of a literal
    uint16_t distance;
};

// Symbol numbers of lengths 3..258 and of distances 1..32768.
struct SymbolTables {
    uint8_t lengthCode[kMaxMatch + 1];
    uint8_t distanceCode[512];  // distances 1..256 directly, then (d - 1) >> 7
    SymbolTables() {
        for (unsigned code = 0; code < 29; ++code) {
            const unsigned end = code == 28 ? kMaxMatch + 1 : kLengthBase[code + 1];
            for (unsigned length = kLengthBase[code]; length < end; ++length) lengthCode[length] = uint8_t(code);
        }
        lengthCode[kMaxMatch] = 28;
        for (unsigned code = 0; code < kDistanceCodes; ++code) {
            const unsigned first = kDistanceBase[code], last = first + (1u << kDistanceExtra[code]) - 1;
            for (unsigned d = first; d <= last; ++d) {
                if (d <= 256)
                    distanceCode[d - 1] = uint8_t(code);
                else
                    distanceCode[256 + ((d - 1) >> 7)] = uint8_t(code);
            }
        }
    }
    uint8_t Distance(unsigned d) const { return d <= 256 ? distanceCode[d - 1] : distanceCode[256 + ((d - 1) >> 7)]; }
};
const SymbolTables kSymbols;

// Writes bits least significant first, as Deflate sends them, four bytes at
// a time.
class BitOutput {
public:
    explicit BitOutput(EncodedOutput* out) : out_(out) {}
    void Put(uint32_t value, unsigned count) {
        bits_ |= uint64_t{value} << count_;
        count_ += count;
        if (count_ >= 32) {
            uint8_t* at = out_->Reserve(4);
            for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(bits_ >> (8 * i));
            bits_ >>= 32;
            count_ -= 32;
        }
    }
    void AlignToByte() {
        while (count_ > 0) {
            out_->Put(static_cast<uint8_t>(bits_));
            bits_ >>= 8;
            count_ = count_ > 8 ? count_ - 8 : 0;
        }
        bits_ = 0;
    }

private:
    EncodedOutput* out_;
    uint64_t bits_ = 0;
    unsigned count_ = 0;
};

// A prefix code: lengths by symbol, and the codes bit-reversed for sending.
// Room for the 288 symbols of the fixed literal code: its two unused symbols
// still take their place among the canonical codes.
constexpr unsigned kFixedLiteralCodes = 288;
struct Code {
    uint8_t length[kFixedLiteralCodes] = {};
    uint16_t bits[kFixedLiteralCodes] = {};
};

// Code lengths of at most `limit` bits for the symbols with non-zero counts
// (Huffman's construction, then the longest codes shortened and others
// lengthened until the lengths form a prefix code again).
void BuildLengths(const uint32_t* counts, unsigned symbols, unsigned limit, uint8_t* lengths) {
    std::fill(lengths, lengths + symbols, uint8_t{0});
    struct Node {
        uint64_t weight;
        int parent;
    };
    Node nodes[2 * kLiteralCodes];
    uint16_t leaves[kLiteralCodes];
    unsigned leafCount = 0;
    for (unsigned s = 0; s < symbols; ++s) {
        if (counts[s] != 0) leaves[leafCount++] = static_cast<uint16_t>(s);
    }
    if (leafCount == 0) return;
    if (leafCount == 1) {
        // One code of one bit, and a second one to make the code complete.
        lengths[leaves[0]] = 1;
        lengths[leaves[0] == 0 ? 1 : 0] = 1;
        return;
    }
    std::sort(leaves, leaves + leafCount, [&](uint16_t a, uint16_t b) { return counts[a] < counts[b]; });
    for (unsigned i = 0; i < leafCount; ++i) nodes[i] = Node{counts[leaves[i]], -1};
    // Two queues: the sorted leaves, and the internal nodes in the order made.
    unsigned nextLeaf = 0, nextInner = leafCount, made = leafCount;
    auto take = [&]() {
        if (nextLeaf < leafCount && (nextInner >= made || nodes[nextLeaf].weight <= nodes[nextInner].weight)) {
            return nextLeaf++;
        }
        return nextInner++;
    };
    while (made < 2 * leafCount - 1) {
        const unsigned a = take(), b = take();
        nodes[made] = Node{nodes[a].weight + nodes[b].weight, -1};
        nodes[a].parent = nodes[b].parent = static_cast<int>(made);
        ++made;
    }
    uint8_t depth[2 * kLiteralCodes];
    depth[made - 1] = 0;
    for (int i = static_cast<int>(made) - 2; i >= 0; --i) depth[i] = static_cast<uint8_t>(depth[nodes[i].parent] + 1);
    // Too long: cut to the limit, then lengthen the longest codes below it
    // (the least frequent first) until the Kraft sum fits.
    uint64_t kraft = 0;
    for (unsigned i = 0; i < leafCount; ++i) {
        if (depth[i] > limit) depth[i] = static_cast<uint8_t>(limit);
        kraft += uint64_t{1} << (limit - depth[i]);
    }
    while (kraft > (uint64_t{1} << limit)) {
        unsigned pick = leafCount;
        for (unsigned i = 0; i < leafCount; ++i) {
            if (depth[i] < limit && (pick == leafCount || depth[i] > depth[pick])) pick = i;
        }
        kraft -= uint64_t{1} << (limit - depth[pick] - 1);
        ++depth[pick];
    }
    // Lengthening may overshoot: shorten the most frequent codes that fit
    // until the code is complete again (a complete code is what decoders
    // accept for every table).
    while (kraft < (uint64_t{1} << limit)) {
        const uint64_t slack = (uint64_t{1} << limit) - kraft;
        unsigned pick = leafCount;
        for (unsigned i = leafCount; i-- > 0;) {
            if (depth[i] > 1 && (uint64_t{1} << (limit - depth[i])) <= slack &&
                (pick == leafCount || depth[i] > depth[pick])) {
                pick = i;
            }
        }
        if (pick == leafCount) break;
        kraft += uint64_t{1} << (limit - depth[pick]);
        --depth[pick];
    }
    for (unsigned i = 0; i < leafCount; ++i) lengths[leaves[i]] = depth[i];
}

// Canonical codes from lengths (RFC 1951 section 3.2.2), bit-reversed.
void AssignCodes(Code* code, unsigned symbols) {
    uint16_t count[kMaxBits + 1] = {}, next[kMaxBits + 2] = {};
    for (unsigned s = 0; s < symbols; ++s) ++count[code->length[s]];
    count[0] = 0;
    for (unsigned bits = 1; bits <= kMaxBits; ++bits)
        next[bits + 1] = static_cast<uint16_t>((next[bits] + count[bits]) << 1);
    for (unsigned s = 0; s < symbols; ++s) {
        const unsigned length = code->length[s];
        if (length == 0) continue;
        uint32_t value = next[length]++, reversed = 0;
        for (unsigned i = 0; i < length; ++i, value >>= 1) reversed = reversed << 1 | (value & 1);
        code->bits[s] = static_cast<uint16_t>(reversed);
    }
}

// The fixed codes of block type 1 (RFC 1951 section 3.2.6).
struct FixedCodes {
    Code literal, distance;
    FixedCodes() {
        for (unsigned s = 0; s < kFixedLiteralCodes; ++s)
            literal.length[s] = s < 144 ? 8 : s < 256 ? 9 : s < 280 ? 7 : 8;
        for (unsigned s = 0; s < kDistanceCodes; ++s) distance.length[s] = 5;
        AssignCodes(&literal, kFixedLiteralCodes);
        AssignCodes(&distance, kDistanceCodes);
    }
};
const FixedCodes kFixed;

// The code lengths of both codes, run-length coded with symbols 16, 17 and
// 18 (RFC 1951 section 3.2.7): symbol in the low byte, extra bits above.
unsigned RunLengthCode(const uint8_t* lengths, unsigned count, uint16_t* out) {
    unsigned n = 0;
    for (unsigned i = 0; i < count;) {
        const uint8_t length = lengths[i];
        unsigned run = 1;
        while (i + run < count && lengths[i + run] == length) ++run;
        i += run;
        if (length == 0) {
            for (; run >= 11; run -= std::min(run, 138u))
                out[n++] = static_cast<uint16_t>(18 | (std::min(run, 138u) - 11) << 8);
            if (run >= 3) {
                out[n++] = static_cast<uint16_t>(17 | (run - 3) << 8);
                run = 0;
            }
        } else {
            out[n++] = length;
            --run;
            for (; run >= 3; run -= std::min(run, 6u))
                out[n++] = static_cast<uint16_t>(16 | (std::min(run, 6u) - 3) << 8);
        }
        for (; run > 0; --run) out[n++] = length;
    }
    return n;
}

class DeflateState {
public:
    DeflateState(const uint8_t* data, uint32_t size, EncodedOutput* out) : data_(data), size_(size), bits_(out) {}

    bool Begin(ErrorRecord* record) {
        return head_.Sized(kHashSize, record) && chain_.Sized(kWindowSize, record) &&
               symbols_.Sized(kBlockSymbols, record);
    }

    void Run() {
        std::fill(head_.begin(), head_.end(), UINT32_MAX);
        uint32_t i = 0;
        Match current = Find(0);
        while (i < size_) {
            if (current.length >= kMinMatch) {
                if (current.length < kLazyLimit && i + 1 < size_) {
                    const Match next = Find(i + 1, current.length >= kGoodLength ? kMaxChain / 4 : kMaxChain);
                    if (next.length > current.length) {
                        Literal(data_[i++]);
                        current = next;
                        continue;
                    }
                    InsertRange(i + 2, i + current.length);
                } else {
                    InsertRange(i + 1, i + current.length);
                }
                AddMatch(current);
                i += current.length;
            } else {
                Literal(data_[i++]);
            }
            if (i < size_) current = Find(i);
        }
        FlushBlock(true);
    }

private:
    struct Match {
        uint32_t length = 0, distance = 0;
    };

    uint32_t Hash(uint32_t at) const {
        const uint32_t three = uint32_t{data_[at]} | uint32_t{data_[at + 1]} << 8 | uint32_t{data_[at + 2]} << 16;
        return (three * 2654435761u) >> (32 - kHashBits);
    }
    // Enters position `at` into its chain; returns the chain's previous head.
    uint32_t Insert(uint32_t at) {
        const uint32_t h = Hash(at);
        const uint32_t previous = head_[h];
        head_[h] = at;
        chain_[at & (kWindowSize - 1)] = previous;
        return previous;
    }
    void InsertRange(uint32_t from, uint32_t to) {
        for (uint32_t at = from; at < to && at + kMinMatch <= size_; ++at) Insert(at);
    }
    uint32_t CommonLength(uint32_t a, uint32_t b, uint32_t limit) const {
        uint32_t n = 0;
        while (n + 8 <= limit) {
            uint64_t x, y;
            std::memcpy(&x, data_ + a + n, 8);
            std::memcpy(&y, data_ + b + n, 8);
            if (x != y) return n + static_cast<uint32_t>(__builtin_ctzll(x ^ y) / 8);
            n += 8;
        }
        while (n < limit && data_[a + n] == data_[b + n]) ++n;
        return n;
    }
    // The longest match for the bytes at `at`, which enters the chains.
    Match Find(uint32_t at, uint32_t maxChain = kMaxChain) {
        Match best;
        if (at + kMinMatch > size_) return best;
        const uint32_t limit = std::min(kMaxMatch, size_ - at);
        uint32_t candidate = Insert(at);
        for (uint32_t steps = 0;
             candidate != UINT32_MAX && candidate < at && at - candidate <= kWindowSize && steps < maxChain; ++steps) {
            if (data_[candidate + best.length] == data_[at + best.length] || best.length == 0) {
                const uint32_t length = CommonLength(candidate, at, limit);
                if (length > best.length) {
                    best = Match{length, at - candidate};
                    if (length >= kNiceLength || length == limit) break;
                }
            }
            const uint32_t next = chain_[candidate & (kWindowSize - 1)];
            if (next >= candidate) break;  // a slot reused by a newer position
            candidate = next;
        }
        // A three-byte match far back costs about as much as three literals.
        if (best.length < kMinMatch || (best.length == kMinMatch && best.distance > kTooFar)) best.length = 0;
        return best;
    }

    void Literal(uint8_t byte) {
        symbols_[symbolCount_++] = Symbol{byte, 0};
        ++blockBytes_;
        if (symbolCount_ == kBlockSymbols) FlushBlock(false);
    }
    void AddMatch(const Match& match) {
        symbols_[symbolCount_++] = Symbol{static_cast<uint16_t>(match.length), static_cast<uint16_t>(match.distance)};
        blockBytes_ += match.length;
        if (symbolCount_ == kBlockSymbols) FlushBlock(false);
    }

    // Bits of the block's symbols with the codes, given the symbols' counts
    // and their extra bits.
    static uint64_t SymbolBits(const Code& literal, const Code& distance, const uint32_t* literalCounts,
                               const uint32_t* distanceCounts, uint64_t extraBits) {
        uint64_t bits = extraBits;
        for (unsigned s = 0; s < kLiteralCodes; ++s) bits += uint64_t{literalCounts[s]} * literal.length[s];
        for (unsigned s = 0; s < kDistanceCodes; ++s) bits += uint64_t{distanceCounts[s]} * distance.length[s];
        return bits;
    }
    void SendSymbols(const Code& literal, const Code& distance) {
        for (uint32_t i = 0; i < symbolCount_; ++i) {
            const Symbol& s = symbols_[i];
            if (s.distance == 0) {
                bits_.Put(literal.bits[s.length], literal.length[s.length]);
                continue;
            }
            const unsigned lc = kSymbols.lengthCode[s.length], dc = kSymbols.Distance(s.distance);
            bits_.Put(literal.bits[257 + lc], literal.length[257 + lc]);
            bits_.Put(s.length - kLengthBase[lc], kLengthExtra[lc]);
            bits_.Put(distance.bits[dc], distance.length[dc]);
            bits_.Put(s.distance - kDistanceBase[dc], kDistanceExtra[dc]);
        }
        bits_.Put(literal.bits[kEndOfBlock], literal.length[kEndOfBlock]);
    }

    void FlushBlock(bool last) {
        // Codes made for this block.
        uint32_t literalCounts[kLiteralCodes] = {}, distanceCounts[kDistanceCodes] = {};
        literalCounts[kEndOfBlock] = 1;
        uint64_t extraBits = 0;
        for (uint32_t i = 0; i < symbolCount_; ++i) {
            const Symbol& s = symbols_[i];
            if (s.distance == 0) {
                ++literalCounts[s.length];
            } else {
                const unsigned lc = kSymbols.lengthCode[s.length], dc = kSymbols.Distance(s.distance);
                ++literalCounts[257 + lc];
                ++distanceCounts[dc];
                extraBits += kLengthExtra[lc] + kDistanceExtra[dc];
            }
        }
        Code literal, distance;
        BuildLengths(literalCounts, kLiteralCodes, kMaxBits, literal.length);
        BuildLengths(distanceCounts, kDistanceCodes, kMaxBits, distance.length);
        AssignCodes(&literal, kLiteralCodes);
        AssignCodes(&distance, kDistanceCodes);
        unsigned literalUsed = kLiteralCodes, distanceUsed = kDistanceCodes;
        while (literalUsed > 257 && literal.length[literalUsed - 1] == 0) --literalUsed;
        while (distanceUsed > 1 && distance.length[distanceUsed - 1] == 0) --distanceUsed;
        uint8_t lengths[kLiteralCodes + kDistanceCodes];
        std::memcpy(lengths, literal.length, literalUsed);
        std::memcpy(lengths + literalUsed, distance.length, distanceUsed);
        uint16_t runs[kLiteralCodes + kDistanceCodes];
        const unsigned runCount = RunLengthCode(lengths, literalUsed + distanceUsed, runs);
        uint32_t lengthCounts[kLengthCodes] = {};
        for (unsigned i = 0; i < runCount; ++i) ++lengthCounts[runs[i] & 0xFF];
        Code lengthCode;
        BuildLengths(lengthCounts, kLengthCodes, kMaxCodeLengthBits, lengthCode.length);
        AssignCodes(&lengthCode, kLengthCodes);
        unsigned lengthUsed = kLengthCodes;
        while (lengthUsed > 4 && lengthCode.length[kCodeLengthOrder[lengthUsed - 1]] == 0) --lengthUsed;

        static const uint8_t kRunExtra[3] = {2, 3, 7};
        uint64_t dynamicBits =
            3 + 5 + 5 + 4 + 3 * lengthUsed + SymbolBits(literal, distance, literalCounts, distanceCounts, extraBits);
        for (unsigned i = 0; i < runCount; ++i) {
            const unsigned symbol = runs[i] & 0xFF;
            dynamicBits += lengthCode.length[symbol] + (symbol >= 16 ? kRunExtra[symbol - 16] : 0);
        }
        const uint64_t fixedBits =
            3 + SymbolBits(kFixed.literal, kFixed.distance, literalCounts, distanceCounts, extraBits);
        // Stored: a header per 65535 bytes and the bytes, after aligning.
        const uint64_t storedBits = (uint64_t{blockBytes_} + 5 * ((blockBytes_ + 65534) / 65535 + 1)) * 8 + 7;

        if (storedBits < fixedBits && storedBits < dynamicBits) {
            uint32_t start = position_;
            uint32_t left = blockBytes_;
            do {
                const uint32_t piece = std::min<uint32_t>(left, 65535);
                left -= piece;
                bits_.Put((last && left == 0) ? 1 : 0, 1);
                bits_.Put(0, 2);
                bits_.AlignToByte();
                bits_.Put(piece, 16);
                bits_.Put(~piece & 0xFFFF, 16);
                for (uint32_t k = 0; k < piece; ++k) bits_.Put(data_[start + k], 8);
                start += piece;
            } while (left != 0);
        } else if (fixedBits <= dynamicBits) {
            bits_.Put(last ? 1 : 0, 1);
            bits_.Put(1, 2);
            SendSymbols(kFixed.literal, kFixed.distance);
        } else {
            bits_.Put(last ? 1 : 0, 1);
            bits_.Put(2, 2);
            bits_.Put(literalUsed - 257, 5);
            bits_.Put(distanceUsed - 1, 5);
            bits_.Put(lengthUsed - 4, 4);
            for (unsigned i = 0; i < lengthUsed; ++i) bits_.Put(lengthCode.length[kCodeLengthOrder[i]], 3);
            for (unsigned i = 0; i < runCount; ++i) {
                const unsigned symbol = runs[i] & 0xFF;
                bits_.Put(lengthCode.bits[symbol], lengthCode.length[symbol]);
                if (symbol >= 16) bits_.Put(runs[i] >> 8, kRunExtra[symbol - 16]);
            }
            SendSymbols(literal, distance);
        }
        position_ += blockBytes_;
        blockBytes_ = 0;
        symbolCount_ = 0;
        if (last) bits_.AlignToByte();
    }

    const uint8_t* data_;
    uint32_t size_;
    BitOutput bits_;
    CheckedArray<uint32_t> head_, chain_;
    CheckedArray<Symbol> symbols_;
    uint32_t symbolCount_ = 0;
    uint32_t blockBytes_ = 0;  // input bytes of the symbols gathered
    uint32_t position_ = 0;    // where the gathered symbols' input starts
};

}  // namespace

uint64_t EncodeDeflateStrip(const EncoderStrip& strip, ErrorRecord* record) {
    if (record->failed()) return 0;
    // The strip's bytes in one piece.
    const uint64_t size = uint64_t{strip.rows} * strip.rowBytes;
    if (size > 0xFFFFFFFFu) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return 0;
    }
    ScratchBlock copy, scratch;
    const uint8_t* data = strip.topRow;
    if (strip.swapRgb || strip.stride != static_cast<ptrdiff_t>(strip.rowBytes)) {
        if (!strip.PrepareScratch(&scratch, record) ||
            copy.Allocate(static_cast<size_t>(size) + 8, false, record) == nullptr) {
            return 0;
        }
        for (uint32_t r = 0; r < strip.rows; ++r) {
            std::memcpy(copy.data() + size_t{r} * strip.rowBytes, strip.CodedRow(r, scratch), strip.rowBytes);
        }
        data = copy.data();
    }
    EncodedOutput out(strip.out, nullptr, record);
    out.Put(kZlibHeader[0]);
    out.Put(kZlibHeader[1]);
    DeflateState deflate(data, static_cast<uint32_t>(size), &out);
    if (!deflate.Begin(record)) return 0;
    deflate.Run();
    const uint32_t adler = Adler32Update(1, data, static_cast<size_t>(size));
    for (int shift = 24; shift >= 0; shift -= 8) out.Put(static_cast<uint8_t>(adler >> shift));
    const uint64_t written = out.Flush();
    strip.ReportRows(strip.rows, record);
    return record->ok() ? written : 0;
}

}  // namespace velmora
