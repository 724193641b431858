// The fax decoder's view of a strip: a bit accumulator that hands out the
// stream's bits least significant first, whatever the bytes' fill order.
//
// Bytes stored most significant bit first (FillOrder 1, the TIFF default)
// have their bits reversed on the way in. Past the end of the data the
// stream reads as zeros; a lookup that finds no real bit left at all is the
// end of the input (Exhausted).
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace velmora {

static_assert(std::endian::native == std::endian::little, "the fax bit reader loads little-endian words");

class FaxBitReader {
public:
    FaxBitReader(const uint8_t* data, size_t size, bool mostSignificantFirst, const uint8_t* bitReversal)
        : next_(data), end_(data + size), start_(data), reverse_(mostSignificantFirst), bitReversal_(bitReversal) {}

    // Makes at least 32 bits available while the data lasts. False when not
    // a single real bit is left.
    bool Fill() {
        if (count_ >= 32) return true;
        Refill();
        return count_ > 0;
    }

    // The next bits, the next one in bit 0. Bits past the end read as 0.
    uint64_t Peek() const { return bits_; }
    // Drops `n` (below 64) bits; dropping past the end leaves the count
    // below zero, which later Fill calls report.
    void Drop(unsigned n) {
        bits_ >>= n;
        count_ -= static_cast<int>(n);
    }
    // Bits held that come from the data (may be negative after a drop past
    // the end).
    int count() const { return count_; }
    // True when the bits taken so far end on a byte boundary.
    bool ByteAligned() const { return (count_ & 7) == 0; }
    // Bits taken from the start of the strip.
    uint64_t Position() const { return uint64_t(next_ - start_) * 8 - static_cast<uint64_t>(count_); }

private:
    static uint64_t ReverseBitsOfEachByte(uint64_t x) {
        x = ((x >> 1) & 0x5555555555555555u) | ((x & 0x5555555555555555u) << 1);
        x = ((x >> 2) & 0x3333333333333333u) | ((x & 0x3333333333333333u) << 2);
        return ((x >> 4) & 0x0F0F0F0F0F0F0F0Fu) | ((x & 0x0F0F0F0F0F0F0F0Fu) << 4);
    }

    void Refill() {
        if (count_ < 0) return;  // only past the end
        if (end_ - next_ >= 8) {
            // Takes a whole word; the bytes above the new count are the
            // next ones, exactly as a later refill will put them there.
            uint64_t word;
            std::memcpy(&word, next_, 8);
            if (reverse_) word = ReverseBitsOfEachByte(word);
            bits_ |= word << count_;
            next_ += (63 - count_) >> 3;
            count_ |= 56;
            return;
        }
        while (count_ <= 48 && next_ < end_) {  // at most 56 bits held
            uint8_t byte = reverse_ ? bitReversal_[*next_] : *next_;
            bits_ |= uint64_t{byte} << count_;
            ++next_;
            count_ += 8;
        }
    }

    uint64_t bits_ = 0;
    int count_ = 0;
    const uint8_t* next_;
    const uint8_t* end_;
    const uint8_t* start_;
    bool reverse_;
    const uint8_t* bitReversal_;
};

}  // namespace velmora
