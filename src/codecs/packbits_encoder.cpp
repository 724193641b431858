#include "codecs/byte_encoders.h"

namespace velmora {
namespace {

constexpr uint32_t kLongestRun = 128;
constexpr uint32_t kLiteralClose = 127;   // a literal group this long is written out
constexpr uint32_t kLiteralMergeRoom = 125;  // a 2-byte run joins a literal group up to this long

class PackBitsRow {
public:
    explicit PackBitsRow(EncodedOutput* out) : out_(out) {}

    void Encode(const uint8_t* row, uint32_t size) {
        uint32_t i = 0;
        while (i < size) {
            uint32_t run = 1;
            while (i + run < size && row[i + run] == row[i]) ++run;
            const uint8_t value = row[i];
            i += run;
            if (run == 1) {
                AddLiteral(value);
            } else if (run == 2 && literalCount_ > 0 && literalCount_ <= kLiteralMergeRoom) {
                // Joining the literal group costs no more than a run would and
                // keeps the output from alternating between short groups.
                AddLiteral(value);
                AddLiteral(value);
            } else {
                CloseLiteral();
                for (; run > kLongestRun; run -= kLongestRun) PutRun(value, kLongestRun);
                if (run == 1) {
                    AddLiteral(value);
                } else {
                    PutRun(value, run);
                }
            }
        }
        CloseLiteral();
    }

private:
    void AddLiteral(uint8_t value) {
        literal_[literalCount_++] = value;
        if (literalCount_ == kLiteralClose) CloseLiteral();
    }
    void CloseLiteral() {
        if (literalCount_ == 0) return;
        uint8_t* at = out_->Reserve(literalCount_ + 1);
        at[0] = static_cast<uint8_t>(literalCount_ - 1);
        std::memcpy(at + 1, literal_, literalCount_);
        literalCount_ = 0;
    }
    void PutRun(uint8_t value, uint32_t run) {
        uint8_t* at = out_->Reserve(2);
        at[0] = static_cast<uint8_t>(1 - static_cast<int32_t>(run));
        at[1] = value;
    }

    EncodedOutput* out_;
    uint8_t literal_[kLiteralClose];
    uint32_t literalCount_ = 0;
};

}  // namespace

uint64_t EncodePackBitsStrip(const EncoderStrip& strip, ErrorRecord* record) {
    if (record->failed()) return 0;
    ScratchBlock scratch;
    if (!strip.PrepareScratch(&scratch, record)) return 0;
    EncodedOutput output(strip.out, nullptr, record);
    for (uint32_t r = 0; r < strip.rows && !record->failed(); ++r) {
        PackBitsRow(&output).Encode(strip.CodedRow(r, scratch), strip.rowBytes);
        strip.ReportRows(r + 1, record);
    }
    return output.Flush();
}

}  // namespace velmora
