// A strip's bytes in the order the byte codecs read them: strips stored with
// FillOrder 2 (least significant bit first) are bit-reversed into a scratch
// copy, since the caller's bytes are not ours to change.
#pragma once

#include <cstddef>
#include <cstdint>

#include "codecs/codec.h"
#include "frame/scratch_block.h"

namespace velmora {

class StripInput {
public:
    // Points at the strip's bytes, reversed when the page asks for it; false
    // with the record set when the copy cannot be made.
    bool Load(const CodecPage& page, const CodecStrip& strip, ErrorRecord* record);

    const uint8_t* data() const { return data_; }
    size_t size() const { return size_; }

private:
    const uint8_t* data_ = nullptr;
    size_t size_ = 0;
    ScratchBlock copy_;
};

// Reverses the bit order of every byte of `in` into `out` (which may be `in`).
void ReverseBitOrder(const uint8_t* in, uint8_t* out, size_t count);

}  // namespace velmora
