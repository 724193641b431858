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

// Open-addressed table of the strings made so far: the key is the byte times
// 4096 plus the prefix code; a prime size keeps the probe sequence covering
// every slot.
constexpr int32_t kHashSize = 9001;
constexpr int32_t kNoKey = -1;

struct LzwHash {
    int32_t keys[kHashSize];
    uint16_t codes[kHashSize];
};

class LzwState {
public:
    LzwState(LzwHash* hash, Stream* out, ErrorRecord* record) : hash_(hash), output_(out, nullptr, record) {
        ClearTable();
    }

    void Begin(uint8_t first) {
        PutCode(kClearCode);
        prefix_ = first;
        input_ = 1;
    }

    void Add(uint8_t c) {
        ++input_;
        const int32_t key = static_cast<int32_t>((uint32_t{c} << 12) + prefix_);
        int32_t h = static_cast<int32_t>((uint32_t{c} << 5) ^ prefix_);
        if (hash_->keys[h] == key) {
            prefix_ = hash_->codes[h];
            return;
        }
        if (hash_->keys[h] != kNoKey) {
            const int32_t step = h == 0 ? 1 : kHashSize - h;
            do {
                h -= step;
                if (h < 0) h += kHashSize;
                if (hash_->keys[h] == key) {
                    prefix_ = hash_->codes[h];
                    return;
                }
            } while (hash_->keys[h] != kNoKey);
        }
        PutCode(prefix_);
        hash_->keys[h] = key;
        hash_->codes[h] = static_cast<uint16_t>(next_++);
        if (next_ == kTableLimit) {
            Restart();
        } else {
            if (next_ > maxCode_) {
                ++width_;
                maxCode_ = (1u << width_) - 1;
            }
            if (input_ > checkpoint_) CheckRatio();
        }
        prefix_ = c;
    }

    uint64_t Finish() {
        PutCode(prefix_);
        if (next_ >= maxCode_) {
            ++width_;
            maxCode_ = (1u << width_) - 1;
        }
        PutCode(kEndCode);
        if (count_ > 0) output_.Put(static_cast<uint8_t>(pending_ << (8 - count_)));
        return output_.Flush();
    }

private:
    void PutCode(uint32_t code) {
        pending_ = (pending_ << width_) | code;
        count_ += width_;
        outputBits_ += width_;
        while (count_ >= 8) {
            count_ -= 8;
            output_.Put(static_cast<uint8_t>(pending_ >> count_));
        }
    }

    void ClearTable() {
        for (int32_t i = 0; i < kHashSize; ++i) hash_->keys[i] = kNoKey;
    }

    // Clears the table and tells the decoder so, at the current width.
    void Restart() {
        ClearTable();
        ratio_ = 0;
        input_ = 0;
        outputBits_ = 0;
        checkpoint_ = kRatioInterval;
        next_ = kFirstFreeCode;
        PutCode(kClearCode);
        width_ = kFirstWidth;
        maxCode_ = (1u << kFirstWidth) - 1;
    }

    // Input bytes per output bit, in 1/256 units; a table that stops paying
    // for itself is thrown away.
    void CheckRatio() {
        checkpoint_ = input_ + kRatioInterval;
        uint64_t ratio;
        if (input_ < 0x800000) {
            ratio = outputBits_ == 0 ? 0x7FFFFFFF : (input_ << 8) / outputBits_;
        } else {
            uint64_t divisor = outputBits_ >> 8;
            ratio = divisor == 0 ? 0x7FFFFFFF : input_ / divisor;
        }
        if (ratio <= ratio_) {
            Restart();
        } else {
            ratio_ = ratio;
        }
    }

    LzwHash* hash_;
    EncodedOutput output_;
    uint32_t prefix_ = 0;
    uint32_t next_ = kFirstFreeCode;
    unsigned width_ = kFirstWidth;
    uint32_t maxCode_ = (1u << kFirstWidth) - 1;
    uint64_t pending_ = 0;
    unsigned count_ = 0;
    uint64_t input_ = 0;
    uint64_t outputBits_ = 0;
    uint64_t checkpoint_ = kRatioInterval;
    uint64_t ratio_ = 0;
};

}  // namespace

uint64_t EncodeLzwStrip(const EncoderStrip& strip, ErrorRecord* record) {
    if (record->failed()) return 0;
    ScratchBlock hashBlock, scratch;
    auto* hash = reinterpret_cast<LzwHash*>(hashBlock.Allocate(sizeof(LzwHash), false, record));
    if (hash == nullptr || !strip.PrepareScratch(&scratch, record)) return 0;
    LzwState lzw(hash, strip.out, record);
    bool started = false;
    for (uint32_t r = 0; r < strip.rows && !record->failed(); ++r) {
        const uint8_t* row = strip.CodedRow(r, scratch);
        uint32_t i = 0;
        if (!started && strip.rowBytes > 0) {
            lzw.Begin(row[0]);
            started = true;
            i = 1;
        }
        for (; i < strip.rowBytes; ++i) lzw.Add(row[i]);
        strip.ReportRows(r + 1, record);
    }
    return started ? lzw.Finish() : 0;
}

}  // namespace velmora
