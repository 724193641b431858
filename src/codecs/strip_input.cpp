#include "codecs/strip_input.h"

namespace velmora {
namespace {

struct ReversalTable {
    uint8_t value[256];
    constexpr ReversalTable() : value() {
        for (int i = 0; i < 256; ++i) {
            int r = 0;
            for (int bit = 0; bit < 8; ++bit)
                if (i & (1 << bit)) r |= 0x80 >> bit;
            value[i] = static_cast<uint8_t>(r);
        }
    }
};

constexpr ReversalTable kReversed;

}  // namespace

void ReverseBitOrder(const uint8_t* in, uint8_t* out, size_t count) {
    for (size_t i = 0; i < count; ++i) out[i] = kReversed.value[in[i]];
}

bool StripInput::Load(const CodecPage& page, const CodecStrip& strip, ErrorRecord* record) {
    data_ = strip.data;
    size_ = strip.data == nullptr ? 0 : strip.size;
    if (page.fillOrder != 2 || size_ == 0) return record->ok();
    if (copy_.size() < size_ && copy_.Allocate(size_, false, record) == nullptr) return false;
    ReverseBitOrder(data_, copy_.data(), size_);
    data_ = copy_.data();
    return true;
}

}  // namespace velmora
