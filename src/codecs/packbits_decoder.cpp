// PackBits strips (TIFF compression 32773, TIFF 6.0 section 9): a signed
// control byte n copies the next n + 1 bytes (0 to 127), repeats the next
// byte 1 - n times (-1 to -127), or does nothing (-128). Runs and copies
// continue across row ends.
#include <algorithm>
#include <cstring>

#include "codecs/byte_decoders.h"
#include "codecs/strip_input.h"
#include "codecs/strip_rows.h"

namespace velmora {
namespace {

class PackBitsDecoder final : public StripDecoder {
public:
    bool Begin(const CodecPage& page, ErrorRecord* record) override {
        page_ = page;
        return StripRowSizes(page, &rowBytes_, &visible_, record);
    }

    bool Decode(const CodecStrip& strip, ErrorRecord* record) override {
        if (record->failed()) return false;
        if (!input_.Load(page_, strip, record)) return false;
        if (!rows_.Start(page_, strip, rowBytes_, visible_, nullptr, record)) return false;
        bool ok = DecodeBytes(input_.data(), input_.size(), record);
        rows_.Close();
        return ok;
    }

private:
    // Input that ends before its control bytes are satisfied ends the strip
    // with what it holds.
    bool DecodeBytes(const uint8_t* p, size_t size, ErrorRecord* record) {
        const uint8_t* end = p + size;
        while (p < end && !rows_.done()) {
            int n = static_cast<int8_t>(*p++);
            if (n >= 0) {
                size_t count = std::min<size_t>(static_cast<size_t>(n) + 1, static_cast<size_t>(end - p));
                if (count < rows_.room()) {
                    std::memcpy(rows_.cursor(), p, count);
                    rows_.Advance(count, record);
                } else if (!rows_.Put(p, count, record)) {
                    return false;
                }
                p += count;
            } else if (n != -128) {
                if (p == end) break;
                size_t count = static_cast<size_t>(1 - n);
                if (count < rows_.room()) {
                    std::memset(rows_.cursor(), *p, count);
                    rows_.Advance(count, record);
                } else if (!rows_.PutRun(*p, count, record)) {
                    return false;
                }
                ++p;
            }
        }
        return true;
    }

    CodecPage page_;
    size_t rowBytes_ = 0;
    size_t visible_ = 0;
    StripInput input_;
    StripRowWriter rows_;
};

}  // namespace

std::unique_ptr<StripDecoder> CreatePackBitsDecoder() { return std::make_unique<PackBitsDecoder>(); }

}  // namespace velmora
