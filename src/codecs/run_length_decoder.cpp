// The library's own run-length strips (TIFF compression 50000): the PCX
// run-length scheme over rows coded to an even number of bytes. A byte with
// both top bits set repeats the next byte (its low six bits) times; any other
// byte stands for itself. Runs stop at the end of their row; coded bytes past
// the row's visible part are consumed and dropped. Rows of three 8-bit
// samples are stored red first and come out blue first, as DIB rows are.
#include <algorithm>
#include <utility>

#include "codecs/byte_decoders.h"
#include "codecs/strip_input.h"
#include "codecs/strip_rows.h"

namespace velmora {
namespace {

void SwapRedAndBlue(uint8_t* row, size_t bytes) {
    for (size_t i = 0; i + 3 <= bytes; i += 3) std::swap(row[i], row[i + 2]);
}

class RunLengthDecoder final : public StripDecoder {
public:
    bool Begin(const CodecPage& page, ErrorRecord* record) override {
        page_ = page;
        size_t stored = 0;
        if (!StripRowSizes(page, &stored, &visible_, record)) return false;
        codedBytes_ = stored + (stored & 1);
        visible_ = std::min(visible_, stored);
        rgb_ = page.samplesPerPixel == 3 && page.bitsPerSample == 8;
        return true;
    }

    bool Decode(const CodecStrip& strip, ErrorRecord* record) override {
        if (record->failed()) return false;
        if (!input_.Load(page_, strip, record)) return false;
        if (!rows_.Start(page_, strip, codedBytes_, visible_, rgb_ ? SwapRedAndBlue : nullptr, record)) return false;
        bool ok = DecodeBytes(input_.data(), input_.size(), record);
        rows_.Close();
        return ok;
    }

private:
    bool DecodeBytes(const uint8_t* p, size_t size, ErrorRecord* record) {
        const uint8_t* end = p + size;
        while (p < end && !rows_.done()) {
            uint8_t b = *p++;
            if ((b & 0xC0) != 0xC0) {
                *rows_.cursor() = b;
                if (!rows_.Advance(1, record)) return false;
                continue;
            }
            if (p == end) break;
            size_t count = std::min<size_t>(b & 0x3F, rows_.room());
            if (count > 0 && !rows_.PutRun(*p, count, record)) return false;
            ++p;
        }
        return true;
    }

    CodecPage page_;
    size_t codedBytes_ = 0;
    size_t visible_ = 0;
    bool rgb_ = false;
    StripInput input_;
    StripRowWriter rows_;
};

}  // namespace

std::unique_ptr<StripDecoder> CreateRunLengthDecoder() { return NewDecoder<RunLengthDecoder>(); }

}  // namespace velmora
