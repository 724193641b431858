// Deflate strips (TIFF compression 8, and 32946 of early writers): each strip
// is one zlib stream whose output fills the strip's rows; output past the
// last row is still decoded, so that the stream's checksum is verified.
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
        bool ok = inflater_.DecodeZlibStream(input_.data(), input_.size(), this, record);
        rows_.Close();
        return ok;
    }

    void End() override { inflater_.Release(); }

private:
    bool Take(const uint8_t* bytes, size_t count, ErrorRecord* record) override {
        return rows_.Put(bytes, count, record);
    }

    CodecPage page_;
    RowRoutine predictor_ = nullptr;
    size_t rowBytes_ = 0;
    size_t visible_ = 0;
    StripInput input_;
    StripRowWriter rows_;
    Inflater inflater_;
};

}  // namespace

std::unique_ptr<StripDecoder> CreateDeflateDecoder() { return std::make_unique<DeflateDecoder>(); }

}  // namespace velmora
