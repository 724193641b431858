// ThunderScan strips (TIFF compression 32809): 4-bit pixels, two to a byte,
// high nibble first. Each code byte's top two bits choose a run of the last
// value, three 2-bit deltas, two 3-bit deltas or a raw value; a row starts
// from the value 0, ends after its pixel count, and pixels past it are
// dropped.
#include <cstring>

#include "codecs/byte_decoders.h"
#include "codecs/strip_input.h"
#include "codecs/strip_rows.h"

namespace velmora {
namespace {

const int kTwoBitDelta[4] = {0, 1, 0, -1};                  // code 2: no pixel
const int kThreeBitDelta[8] = {0, 1, 2, 3, 0, -3, -2, -1};  // code 4: no pixel

class ThunderScanDecoder final : public StripDecoder {
public:
    bool Begin(const CodecPage& page, ErrorRecord* record) override {
        if (page.bitsPerSample != 4 || page.samplesPerPixel != 1) {
            SetRecordError(record, kErrUnsupportedImageType, 0);
            return false;
        }
        page_ = page;
        if (!StripRowSizes(page, &rowBytes_, &visible_, record)) return false;
        return row_.Allocate(rowBytes_, true, record) != nullptr;
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
    void Pixel(unsigned value) {
        if (pixel_ >= page_.imageWidth) return;
        uint8_t* byte = row_.data() + pixel_ / 2;
        *byte = (pixel_ & 1) ? static_cast<uint8_t>((*byte & 0xF0) | value) : static_cast<uint8_t>(value << 4);
        ++pixel_;
    }

    // Hands the assembled row (or what there is of it) to the writer.
    bool FlushRow(ErrorRecord* record) {
        size_t bytes = (pixel_ + 1) / 2;
        pixel_ = 0;
        last_ = 0;
        return rows_.Put(row_.data(), bytes, record);
    }

    bool DecodeBytes(const uint8_t* p, size_t size, ErrorRecord* record) {
        const uint8_t* end = p + size;
        pixel_ = 0;
        last_ = 0;
        std::memset(row_.data(), 0, rowBytes_);
        while (p < end && !rows_.done()) {
            uint8_t b = *p++;
            switch (b & 0xC0) {
                case 0x00:
                    for (unsigned n = b & 0x3F; n > 0 && pixel_ < page_.imageWidth; --n) Pixel(last_);
                    break;
                case 0x40:
                    for (int shift = 4; shift >= 0; shift -= 2) {
                        unsigned d = (b >> shift) & 3;
                        if (d == 2) continue;
                        last_ = (last_ + kTwoBitDelta[d]) & 0x0F;
                        Pixel(last_);
                    }
                    break;
                case 0x80:
                    for (int shift = 3; shift >= 0; shift -= 3) {
                        unsigned d = (b >> shift) & 7;
                        if (d == 4) continue;
                        last_ = (last_ + kThreeBitDelta[d]) & 0x0F;
                        Pixel(last_);
                    }
                    break;
                default:
                    last_ = b & 0x0F;
                    Pixel(last_);
                    break;
            }
            if (pixel_ >= page_.imageWidth && !FlushRow(record)) return false;
        }
        // A row cut short by the end of the data keeps the pixels it has.
        if (pixel_ > 0 && !rows_.done()) return FlushRow(record);
        return true;
    }

    CodecPage page_;
    size_t rowBytes_ = 0;
    size_t visible_ = 0;
    uint32_t pixel_ = 0;
    unsigned last_ = 0;  // the last pixel value, 0 at the start of each row
    ScratchBlock row_;
    StripInput input_;
    StripRowWriter rows_;
};

}  // namespace

std::unique_ptr<StripDecoder> CreateThunderScanDecoder() { return NewDecoder<ThunderScanDecoder>(); }

}  // namespace velmora
