#include <algorithm>

#include "codecs/byte_encoders.h"
#include "frame/scratch_block.h"

namespace velmora {
namespace {

constexpr uint32_t kClearCode = 256;
constexpr uint32_t kEndCode = 257;
constexpr uint32_t kFirstFreeCode = 258;
constexpr uint32_t kTableLimit = 4094;  // reaching this code clears the table
constexpr unsigned kFirstWidth = 9;
constexpr uint32_t kRatioInterval = 10000;  // input bytes between two ratio checks

// The strings made so far. Each code's string is its prefix code and last
// byte, kept as `keys[code]` = byte << 12 | prefix; a string is found through
// an open-addressed table of codes, 0 marking a free slot (no string has a
// code below 258). The home slot is the prefix code xor a hash of the byte:
// strings ending in the same byte never share a home slot, and the byte's
// hash spreads them over the whole table. Collisions step on by an odd
// distance that depends on the byte, so two strings that met at a home slot
// part at once. The table is eight times the codes, which keeps the probes
// short; the key array stays small and stays in cache.
constexpr unsigned kSlotBits = 15;
constexpr uint32_t kSlotCount = 1u << kSlotBits;
constexpr uint32_t kSlotMask = kSlotCount - 1;
constexpr uint32_t kCodeCount = 4096;

struct LzwTable {
    uint16_t slots[kSlotCount];
    uint32_t keys[kCodeCount];  // keys[0] never matches, for the free slots
};

inline uint32_t HomeSlot(uint32_t prefix, uint32_t byte) {
    return prefix ^ ((byte * 0x9E3779B1u) >> (32 - kSlotBits));
}

class LzwState {
public:
    LzwState(LzwTable* table, Stream* out, ErrorRecord* record) : table_(table), output_(out, nullptr, record) {
        ClearTable();
    }

    void Begin(uint8_t first) {
        PutCode(kClearCode);
        prefix_ = first;
        input_ = 1;
    }

    // Codes the bytes [p, end), which continue the string in prefix_. The
    // state the loop touches on every code lives in locals meanwhile.
    void Code(const uint8_t* p, const uint8_t* end) {
        uint16_t* const slots = table_->slots;
        uint32_t* const keys = table_->keys;
        uint32_t prefix = prefix_;
        uint32_t next = next_;
        unsigned width = width_;
        // the next code whose making widens the codes or fills the table
        uint32_t limit = std::min(maxCode_ + 1, kTableLimit);
        uint64_t pending = pending_;
        unsigned count = count_;
        // The input count of the byte at p is inputBase + p + 1 (wrapping
        // arithmetic); the ratio is due once p reaches checkAt.
        uint64_t inputBase = input_ - reinterpret_cast<uintptr_t>(p);
        uintptr_t checkAt = checkpoint_ - inputBase;
        for (; p < end; ++p) {
            const uint32_t c = *p;
            const uint32_t key = (c << 12) | prefix;
            uint32_t h = HomeSlot(prefix, c);
            uint32_t code = slots[h];
            if (keys[code] == key) {
                prefix = code;
                continue;
            }
            if (code != 0) {
                const uint32_t step = 2 * c + 1;
                do {
                    h = (h + step) & kSlotMask;
                    code = slots[h];
                } while (keys[code] != key && code != 0);
                if (code != 0) {
                    prefix = code;
                    continue;
                }
            }
            // The string ends here: its code goes out, and the string one byte
            // longer takes the next code.
            pending = (pending << width) | prefix;
            count += width;
            if (count >= 32) {
                count -= 32;
                PutWord(static_cast<uint32_t>(pending >> count));
            }
            slots[h] = static_cast<uint16_t>(next);
            keys[next] = key;
            prefix = c;
            if (++next == limit || reinterpret_cast<uintptr_t>(p) >= checkAt) {
                // A width change, a full table or a ratio check: rare enough
                // to go through the members.
                next_ = next;
                width_ = width;
                pending_ = pending;
                count_ = count;
                const uint64_t input = inputBase + reinterpret_cast<uintptr_t>(p + 1);
                if (next_ == kTableLimit) {
                    Restart();
                    inputBase = 0 - reinterpret_cast<uintptr_t>(p + 1);
                } else {
                    if (next_ > maxCode_) {
                        ++width_;
                        maxCode_ = (1u << width_) - 1;
                    }
                    if (input > checkpoint_ && CheckRatio(input)) inputBase = 0 - reinterpret_cast<uintptr_t>(p + 1);
                }
                next = next_;
                width = width_;
                limit = std::min(maxCode_ + 1, kTableLimit);
                pending = pending_;
                count = count_;
                checkAt = checkpoint_ - inputBase;
            }
        }
        prefix_ = prefix;
        next_ = next;
        width_ = width;
        pending_ = pending;
        count_ = count;
        input_ = inputBase + reinterpret_cast<uintptr_t>(end);
    }

    uint64_t Finish() {
        PutCode(prefix_);
        if (next_ >= maxCode_) {
            ++width_;
            maxCode_ = (1u << width_) - 1;
        }
        PutCode(kEndCode);
        // At most 31 bits wait in the accumulator: out whole bytes, the last
        // one padded with zero bits.
        pending_ <<= 32 - count_;
        for (unsigned bits = 0; bits < count_; bits += 8) {
            output_.Put(static_cast<uint8_t>(pending_ >> 24));
            pending_ <<= 8;
        }
        return output_.Flush();
    }

private:
    // Codes gather in a 64-bit accumulator and go out four bytes at a time.
    void PutCode(uint32_t code) {
        pending_ = (pending_ << width_) | code;
        count_ += width_;
        if (count_ >= 32) {
            count_ -= 32;
            PutWord(static_cast<uint32_t>(pending_ >> count_));
        }
    }

    void PutWord(uint32_t word) {
        ++words_;
        uint8_t* at = output_.Reserve(4);
        at[0] = static_cast<uint8_t>(word >> 24);
        at[1] = static_cast<uint8_t>(word >> 16);
        at[2] = static_cast<uint8_t>(word >> 8);
        at[3] = static_cast<uint8_t>(word);
    }

    void ClearTable() {
        std::memset(table_->slots, 0, sizeof(table_->slots));
        table_->keys[0] = 0xFFFFFFFF;
    }

    // Clears the table and tells the decoder so, at the current width.
    void Restart() {
        ClearTable();
        ratio_ = 0;
        bitsBefore_ = words_ * 32 + count_;
        checkpoint_ = kRatioInterval;
        next_ = kFirstFreeCode;
        PutCode(kClearCode);
        width_ = kFirstWidth;
        maxCode_ = (1u << kFirstWidth) - 1;
    }

    // Input bytes per output bit, in 1/256 units; a table that stops paying
    // for itself is thrown away. True when it was, which restarts the input
    // count.
    bool CheckRatio(uint64_t input) {
        checkpoint_ = input + kRatioInterval;
        const uint64_t outputBits = words_ * 32 + count_ - bitsBefore_;
        uint64_t ratio;
        if (input < 0x800000) {
            ratio = outputBits == 0 ? 0x7FFFFFFF : (input << 8) / outputBits;
        } else {
            uint64_t divisor = outputBits >> 8;
            ratio = divisor == 0 ? 0x7FFFFFFF : input / divisor;
        }
        if (ratio <= ratio_) {
            Restart();
            return true;
        }
        ratio_ = ratio;
        return false;
    }

    LzwTable* table_;
    EncodedOutput output_;
    uint32_t prefix_ = 0;
    uint32_t next_ = kFirstFreeCode;
    unsigned width_ = kFirstWidth;
    uint32_t maxCode_ = (1u << kFirstWidth) - 1;
    uint64_t pending_ = 0;
    unsigned count_ = 0;
    uint64_t input_ = 0;
    uint64_t words_ = 0;       // 32-bit words written
    uint64_t bitsBefore_ = 0;  // bits written before the table was last cleared
    uint64_t checkpoint_ = kRatioInterval;
    uint64_t ratio_ = 0;
};

}  // namespace

uint64_t EncodeLzwStrip(const EncoderStrip& strip, ErrorRecord* record) {
    if (record->failed()) return 0;
    ScratchBlock tableBlock, scratch;
    auto* table = reinterpret_cast<LzwTable*>(tableBlock.Allocate(sizeof(LzwTable), false, record));
    if (table == nullptr || !strip.PrepareScratch(&scratch, record)) return 0;
    LzwState lzw(table, strip.out, record);
    bool started = false;
    for (uint32_t r = 0; r < strip.rows && !record->failed(); ++r) {
        const uint8_t* row = strip.CodedRow(r, scratch);
        uint32_t i = 0;
        if (!started && strip.rowBytes > 0) {
            lzw.Begin(row[0]);
            started = true;
            i = 1;
        }
        lzw.Code(row + i, row + strip.rowBytes);
        strip.ReportRows(r + 1, record);
    }
    return started ? lzw.Finish() : 0;
}

}  // namespace velmora
