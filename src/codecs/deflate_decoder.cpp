// Deflate strips (TIFF compression 8, and 32946 of early writers): each strip
// is one zlib stream whose output fills the strip's rows; output past the
// last row is still decoded, so that the stream's checksum is verified.
// Rows that touch one another in memory are decoded in place; there, rows
// (or the part of a row) that a stream ends short of are cleared to zero.
#include "codecs/byte_decoders.h"
#include "codecs/inflater.h"
#include "codecs/predictor.h"
#include "codecs/strip_input.h"
#include "codecs/strip_rows.h"

namespace velmora {
namespace {

class DeflateDecoder final : public StripDecoder, private InflateSink {
public:
    bool Begin(const CodecPage& page, ErrorRecord* record) override {
        page_ = page;
        if (!SelectPredictor(page, &predictor_, record)) return false;
        return StripRowSizes(page, &rowBytes_, &visible_, record);
    }

    bool Decode(const CodecStrip& strip, ErrorRecord* record) override {
        if (record->failed()) return false;
        if (!input_.Load(page_, strip, record)) return false;
        if (!rows_.Start(page_, strip, rowBytes_, visible_, predictor_, record)) return false;
        // Rows that follow one another in memory are decoded in place.
        uint8_t* area = nullptr;
        size_t areaSize = 0;
        if (rows_.contiguous()) {
            area = rows_.cursor();
            areaSize = static_cast<size_t>(rows_.remaining());
        }
        bool ok = inflater_.DecodeZlibStream(input_.data(), input_.size(), area, areaSize, this, record);
        rows_.Close();
        return ok;
    }

    void End() override { inflater_.Release(); }

private:
    bool Take(const uint8_t* bytes, size_t count, ErrorRecord* record) override {
        return rows_.Put(bytes, count, record);
    }
    bool Settled(size_t count, ErrorRecord* record) override { return rows_.Written(count, record); }

    CodecPage page_;
    RowRoutine predictor_ = nullptr;
    size_t rowBytes_ = 0;
    size_t visible_ = 0;
    StripInput input_;
    StripRowWriter rows_;
    Inflater inflater_;
};

}  // namespace

std::unique_ptr<StripDecoder> CreateDeflateDecoder() { return NewDecoder<DeflateDecoder>(); }

}  // namespace velmora
