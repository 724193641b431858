#include "jpeg/jpeg_mcu_index.h"

namespace velmora::jpeg {
namespace {

constexpr uint32_t kOneByteLimit = 129;    // lengths 1..128
constexpr uint32_t kTwoByteLimit = 16513;  // 129 + 2^14

uint64_t BitPosition(uint64_t byte, uint32_t bit) { return byte * 8 + bit; }

uint32_t SizeClass(int64_t difference) {
    if (difference == 0) return 0;
    if (difference >= -8 && difference <= 7) return 1;
    if (difference >= -128 && difference <= 127) return 2;
    return 3;
}

}  // namespace

void McuIndex::Reset(uint32_t componentCount) {
    componentCount_ = componentCount < kMaxIndexComponents ? componentCount : kMaxIndexComponents;
    entries_ = 0;
    last_ = McuIndexEntry{};
    data_.Clear();
    breaks_.Clear();
}

void McuIndex::PutDifferences(const int32_t* from, const int32_t* to, ErrorRecord* record) {
    int32_t difference[kMaxIndexComponents] = {};
    uint32_t classes = 0, nibbles = 0;
    for (uint32_t c = 0; c < componentCount_; ++c) {
        difference[c] = static_cast<int32_t>(static_cast<uint32_t>(to[c]) - static_cast<uint32_t>(from[c]));
        const uint32_t size = SizeClass(difference[c]);
        classes |= size << (2 * c);
        if (size == 1) ++nibbles;
    }
    Put(static_cast<uint8_t>(classes), record);
    uint32_t pending = 0, halves = 0;
    for (uint32_t c = 0; c < componentCount_; ++c) {
        if ((classes >> (2 * c) & 3) != 1) continue;
        pending = pending << 4 | (static_cast<uint32_t>(difference[c]) & 15);
        if (++halves == 2) {
            Put(static_cast<uint8_t>(pending), record);
            pending = halves = 0;
        }
    }
    if (halves == 1) Put(static_cast<uint8_t>(pending << 4), record);
    for (uint32_t c = 0; c < componentCount_; ++c) {
        if ((classes >> (2 * c) & 3) == 2) Put(static_cast<uint8_t>(difference[c]), record);
    }
    for (uint32_t c = 0; c < componentCount_; ++c) {
        if ((classes >> (2 * c) & 3) != 3) continue;
        const uint32_t value = static_cast<uint32_t>(difference[c]);
        for (int shift = 24; shift >= 0; shift -= 8) Put(static_cast<uint8_t>(value >> shift), record);
    }
}

bool McuIndex::Append(const McuIndexEntry& entry, ErrorRecord* record) {
    const uint64_t start = BitPosition(entry.span.startByte, entry.span.startBit);
    const uint64_t end = BitPosition(entry.span.endByte, entry.span.endBit);
    if (end <= start || end - start > kMaxIndexedMcuBits) return false;
    const uint32_t length = static_cast<uint32_t>(end - start);
    const bool chained =
        entries_ > 0 && entry.span.startByte == last_.span.endByte && entry.span.startBit == last_.span.endBit;
    if (!chained) breaks_.Append(Break{entries_, entry.span.startByte, entry.span.startBit}, record);
    if (length < kOneByteLimit) {
        Put(static_cast<uint8_t>(length - 1), record);
    } else if (length < kTwoByteLimit) {
        const uint32_t value = length - kOneByteLimit;
        Put(static_cast<uint8_t>(0x80 | value >> 8), record);
        Put(static_cast<uint8_t>(value), record);
    } else {
        const uint32_t value = length - kTwoByteLimit;
        Put(static_cast<uint8_t>(0xC0 | value >> 16), record);
        Put(static_cast<uint8_t>(value >> 8), record);
        Put(static_cast<uint8_t>(value), record);
    }
    PutDifferences(last_.after, entry.before, record);
    PutDifferences(entry.before, entry.after, record);
    last_ = entry;
    ++entries_;
    return record->ok();
}

McuSpan McuIndex::Extent() const {
    McuSpan extent;
    if (entries_ == 0) return extent;
    // The first entry always starts a break: nothing came before it.
    extent.startByte = breaks_[0].byte;
    extent.startBit = breaks_[0].bit;
    extent.endByte = last_.span.endByte;
    extent.endBit = last_.span.endBit;
    return extent;
}

// Reads one set of predictors written by PutDifferences, as changes of `from`.
static size_t TakeDifferences(const uint8_t* data, size_t at, uint32_t components, const int32_t* from, int32_t* to) {
    const uint32_t classes = data[at++];
    uint32_t halves = 0;
    for (uint32_t c = 0; c < components; ++c) {
        uint32_t difference = 0;
        if ((classes >> (2 * c) & 3) == 1) {
            const uint32_t nibble = halves == 0 ? data[at] >> 4 : data[at] & 15;
            difference = nibble >= 8 ? nibble - 16 : nibble;  // sign-extended from 4 bits
            if (++halves == 2) {
                halves = 0;
                ++at;
            }
        }
        to[c] = static_cast<int32_t>(static_cast<uint32_t>(from[c]) + difference);
    }
    if (halves == 1) ++at;
    for (uint32_t c = 0; c < components; ++c) {
        if ((classes >> (2 * c) & 3) != 2) continue;
        to[c] = static_cast<int32_t>(static_cast<uint32_t>(from[c]) + static_cast<uint32_t>(int8_t(data[at++])));
    }
    for (uint32_t c = 0; c < components; ++c) {
        if ((classes >> (2 * c) & 3) != 3) continue;
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) value = value << 8 | data[at++];
        to[c] = static_cast<int32_t>(static_cast<uint32_t>(from[c]) + value);
    }
    return at;
}

bool McuIndex::Reader::Next(McuIndexEntry* entry) {
    if (ordinal_ >= index_.entries_) return false;
    const uint8_t* data = index_.data_.data();
    McuIndexEntry next;
    uint32_t length = 0;
    const uint8_t head = data[at_++];
    if (head < 0x80) {
        length = head + 1u;
    } else if (head < 0xC0) {
        length = ((head & 0x3Fu) << 8 | data[at_]) + kOneByteLimit;
        at_ += 1;
    } else {
        length = ((head & 0x3Fu) << 16 | uint32_t{data[at_]} << 8 | data[at_ + 1]) + kTwoByteLimit;
        at_ += 2;
    }
    if (nextBreak_ < index_.breaks_.size() && index_.breaks_[nextBreak_].ordinal == ordinal_) {
        next.span.startByte = index_.breaks_[nextBreak_].byte;
        next.span.startBit = index_.breaks_[nextBreak_].bit;
        ++nextBreak_;
    } else {
        next.span.startByte = last_.span.endByte;
        next.span.startBit = last_.span.endBit;
    }
    const uint64_t end = BitPosition(next.span.startByte, next.span.startBit) + length;
    next.span.endByte = end / 8;
    next.span.endBit = static_cast<uint32_t>(end % 8);
    at_ = TakeDifferences(data, at_, index_.componentCount_, last_.after, next.before);
    at_ = TakeDifferences(data, at_, index_.componentCount_, next.before, next.after);
    last_ = next;
    ++ordinal_;
    *entry = next;
    return true;
}

}  // namespace velmora::jpeg
