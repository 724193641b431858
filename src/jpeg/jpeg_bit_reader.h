// The bit reader of JPEG entropy-coded segments: a 64-bit buffer, most
// significant bit first, filled eight bytes at a time when no 0xFF byte is
// near and byte by byte otherwise, where stuffed zero bytes are removed and
// a marker ends the segment. Past a marker (or the end of the data) the
// reader supplies zero bits and counts them, so a decoder can tell whether
// it used bits that were never there (Overrun).
#pragma once

#include <cstdint>

#include "io/byte_order.h"
#include "jpeg/jpeg_huffman_decoder.h"
#include "jpeg/jpeg_input.h"

namespace velmora::jpeg {

// One Huffman symbol from a reader's filled buffer, or -1 for a code that
// names none: short codes through the lookahead table, longer ones by
// their per-length largest code (T.81 F.2.2.3).
template <typename Reader>
inline int DecodeSymbol(Reader& reader, const HuffmanTable& table) {
    uint32_t entry = table.lookup[reader.Peek(kLookaheadBits)];
    if (entry != 0) {
        reader.Skip(static_cast<int>(entry >> 8));
        return static_cast<int>(entry & 0xFF);
    }
    for (int length = kLookaheadBits + 1; length <= 16; ++length) {
        int32_t code = static_cast<int32_t>(reader.Peek(length));
        if (code <= table.maxCode[length]) {
            reader.Skip(length);
            return table.values[(code + table.valueOffset[length]) & 0xFF];
        }
    }
    return -1;
}

class BitReader {
public:
    BitReader(JpegInput* input, ErrorRecord* record) : in_(input), record_(record) {}

    // Forgets buffered bits and the marker met: for the start of a scan and
    // after a restart marker.
    void Reset() {
        bits_ = 0;
        count_ = 0;
        padded_ = 0;
        marker_ = 0;
        loaded_ = 0;
        ffHead_ = ffTail_ = 0;
        stuffed_ = 0;
        segmentStart_ = in_->Position();
    }

    // Makes at least 57 bits available (zero bits past the end).
    inline void Fill() {
        if (count_ > 56) return;
        if (marker_ == 0 && in_->end - in_->cur >= 8) {
            uint64_t word = LoadBigEndian64(in_->cur);
            uint64_t inverted = ~word;
            // No byte of `word` is 0xFF: no zero byte in its complement.
            if (((inverted - 0x0101010101010101ull) & ~inverted & 0x8080808080808080ull) == 0) {
                int bytes = (64 - count_) >> 3;
                bits_ |= (word >> (64 - 8 * bytes)) << (64 - count_ - 8 * bytes);
                in_->cur += bytes;
                count_ += 8 * bytes;
                loaded_ += static_cast<uint64_t>(bytes);
                return;
            }
        }
        FillSlowly();
    }

    inline uint32_t Peek(int n) const { return static_cast<uint32_t>(bits_ >> (64 - n)); }
    inline void Skip(int n) {
        bits_ <<= n;
        count_ -= n;
    }
    // `n` (1..16) bits as an unsigned value; the caller filled beforehand.
    inline uint32_t Bits(int n) {
        uint32_t value = Peek(n);
        Skip(n);
        return value;
    }
    // `n` (0..16) bits extended to a signed difference (T.81 F.2.2.1).
    inline int32_t Receive(int n) {
        if (n == 0) return 0;
        int32_t value = static_cast<int32_t>(Bits(n));
        return value < (1 << (n - 1)) ? value - (1 << n) + 1 : value;
    }
    // One Huffman symbol, or -1 for a code that names none. The caller
    // filled beforehand.
    inline int Decode(const HuffmanTable& table) { return DecodeSymbol(*this, table); }

    // True when the decoder used bits past the end of the segment.
    bool Overrun() const { return count_ < padded_; }
    // The marker that ended the segment (its second byte; both bytes are
    // consumed), kEndOfData, or 0 when none was met yet.
    uint32_t marker() const { return marker_; }
    // Discards the buffered bits and reads on to the marker that ends the
    // segment, skipping stray bytes. Returns the marker, kEndOfData, or 0 on
    // a stream error.
    uint32_t FindMarker();

    // The position of the next unread bit: byte offset from the start of the
    // source and bit within that byte.
    void BitPosition(uint64_t* byteOffset, uint32_t* bitOffset);

    bool failed() const { return record_->failed(); }

private:
    friend class LocalBits;
    void FillSlowly();

    JpegInput* in_;
    ErrorRecord* record_;
    uint64_t bits_ = 0;
    int count_ = 0;
    int padded_ = 0;
    uint32_t marker_ = 0;
    // For BitPosition: bytes of segment data loaded (stuffing removed), the
    // loaded indices of 0xFF data bytes whose stuffed zero (and any fill
    // bytes before it) are not yet accounted for, how many bytes those are,
    // and the bytes without data accounted for.
    uint64_t loaded_ = 0;
    uint64_t ffLoaded_[16] = {};
    uint32_t ffExtra_[16] = {};
    uint32_t ffHead_ = 0, ffTail_ = 0;
    uint64_t stuffed_ = 0;
    uint64_t segmentStart_ = 0;
};

// The reader's bit buffer held in locals for the length of one block, so
// that the hot loop keeps it in registers; written back when it ends and
// around refills.
class LocalBits {
public:
    explicit LocalBits(BitReader* reader) : reader_(reader), bits_(reader->bits_), count_(reader->count_) {}
    ~LocalBits() {
        reader_->bits_ = bits_;
        reader_->count_ = count_;
    }
    LocalBits(const LocalBits&) = delete;
    LocalBits& operator=(const LocalBits&) = delete;

    inline void Fill() {
        if (count_ > 56) return;
        reader_->bits_ = bits_;
        reader_->count_ = count_;
        reader_->Fill();
        bits_ = reader_->bits_;
        count_ = reader_->count_;
    }
    inline uint32_t Peek(int n) const { return static_cast<uint32_t>(bits_ >> (64 - n)); }
    inline void Skip(int n) {
        bits_ <<= n;
        count_ -= n;
    }
    inline int32_t Receive(int n) {
        if (n == 0) return 0;
        int32_t value = static_cast<int32_t>(Peek(n));
        Skip(n);
        return value < (1 << (n - 1)) ? value - (1 << n) + 1 : value;
    }
    inline int Decode(const HuffmanTable& table) { return DecodeSymbol(*this, table); }

private:
    BitReader* reader_;
    uint64_t bits_;
    int count_;
};

}  // namespace velmora::jpeg
