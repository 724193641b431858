// Bit streams for the decoders' tests: codes of any width, most significant
// bit first (or least significant first), padded as a format wants.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace velmora::testing_support {

class BitWriter {
public:
    explicit BitWriter(bool lsbFirst = false) : lsbFirst_(lsbFirst) {}

    // The low `count` bits of `value`.
    BitWriter& Put(uint32_t value, unsigned count) {
        for (unsigned i = 0; i < count; ++i) Bit((value >> (lsbFirst_ ? i : count - 1 - i)) & 1);
        return *this;
    }
    // Bits spelt out as '0' and '1', in the order they are written.
    BitWriter& operator<<(const std::string& bits) {
        for (char c : bits) Bit(c == '1');
        return *this;
    }
    // Pads to a multiple of `bits` with ones or zeros.
    BitWriter& Align(unsigned bits, bool one) {
        while (count_ % bits != 0) Bit(one);
        return *this;
    }
    size_t count() const { return count_; }
    // The bytes so far, the last one padded with zeros; `stuffed` puts a zero
    // after every 0xFF, as JPEG's entropy-coded data has it.
    std::vector<uint8_t> bytes(bool stuffed = false) const {
        std::vector<uint8_t> out;
        for (uint8_t byte : bytes_) {
            out.push_back(byte);
            if (stuffed && byte == 0xFF) out.push_back(0);
        }
        return out;
    }

private:
    void Bit(bool bit) {
        if (count_ % 8 == 0) bytes_.push_back(0);
        if (bit) bytes_.back() |= static_cast<uint8_t>(lsbFirst_ ? 1u << (count_ % 8) : 0x80u >> (count_ % 8));
        ++count_;
    }

    std::vector<uint8_t> bytes_;
    size_t count_ = 0;
    bool lsbFirst_;
};

}  // namespace velmora::testing_support
