// The lossless scan: every sample predicted from its left neighbour
// (predictor 1), the first sample of a row from the one above it and the
// image's first sample from 128 (H.1.2.1), the differences Huffman coded by
// category (H.1.2.2) with tables made for the image in a first pass.
#include "jpeg/jpeg_encoder_color.h"
#include "jpeg/jpeg_encoder_scan.h"
#include "jpeg/jpeg_huffman_encoder.h"
#include "frame/scratch_block.h"

namespace velmora::jpeg {
namespace {

// The rows of every component, the current one and the one above.
class LosslessRows {
public:
    bool Allocate(const EncoderSource& source, uint8_t components, ErrorRecord* record) {
        components_ = components;
        width_ = source.width;
        uint8_t* memory = memory_.Allocate(size_t{width_} * (2 * components + 3), false, record);
        if (memory == nullptr) return false;
        for (uint8_t c = 0; c < components; ++c) {
            current_[c] = memory + size_t{width_} * (2 * c);
            previous_[c] = memory + size_t{width_} * (2 * c + 1);
        }
        scratch_ = memory + size_t{width_} * 2 * components;
        return true;
    }

    void Next(const EncoderSource& source, uint32_t y) {
        for (uint8_t c = 0; c < components_; ++c) {
            uint8_t* swap = previous_[c];
            previous_[c] = current_[c];
            current_[c] = swap;
        }
        bool redFirst = false;
        const uint8_t* row = SourceRow(source, y, scratch_, &redFirst);
        if (components_ == 1) {
            for (uint32_t x = 0; x < width_; ++x) current_[0][x] = row[x];
        } else {
            ConvertToYCbCr(row, redFirst, width_, current_[0], current_[1], current_[2]);
        }
    }

    // The difference of sample x of component c from its prediction.
    int32_t Difference(uint8_t c, uint32_t x, uint32_t y) const {
        int32_t predicted = x > 0 ? current_[c][x - 1] : y > 0 ? previous_[c][0] : 128;
        return current_[c][x] - predicted;
    }

private:
    ScratchBlock memory_;
    uint8_t components_ = 1;
    uint32_t width_ = 0;
    uint8_t* current_[3] = {};
    uint8_t* previous_[3] = {};
    uint8_t* scratch_ = nullptr;
};

template <typename Visit>
bool ForEachDifference(const EncoderSource& source, const FrameLayout& frame, LosslessRows* rows,
                       ProgressReporter* progress, uint32_t firstReport, ErrorRecord* record, Visit visit) {
    for (uint32_t y = 0; y < frame.height; ++y) {
        rows->Next(source, y);
        for (uint32_t x = 0; x < frame.width; ++x) {
            for (uint8_t c = 0; c < frame.components; ++c) visit(c, rows->Difference(c, x, y));
        }
        if (record->failed()) return false;
        if (progress != nullptr && !progress->Row(firstReport + y, 2 * frame.height, record)) return false;
    }
    return record->ok();
}

}  // namespace

bool EncodeLosslessScan(const EncoderSource& source, const FrameLayout& frame, Stream* stream,
                        ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return false;
    WriteFrameHeader(stream, kMarkerSof3, frame, record);
    LosslessRows rows;
    if (!rows.Allocate(source, frame.components, record)) return false;

    uint8_t tables = frame.components == 1 ? 1 : 2;
    uint32_t frequencies[2][256] = {};
    bool counted = ForEachDifference(source, frame, &rows, progress, 0, record, [&](uint8_t c, int32_t difference) {
        ++frequencies[c == 0 ? 0 : 1][Category(difference)];
    });
    if (!counted) return false;
    OptimalHuffman optimal[2];
    HuffmanCodes codes[2];
    for (uint8_t t = 0; t < tables; ++t) {
        MakeOptimalHuffman(frequencies[t], &optimal[t]);
        MakeHuffmanCodes(optimal[t].spec, &codes[t]);
        WriteHuffmanSegment(stream, 0, t, optimal[t].spec, record);
    }
    WriteScanHeader(stream, frame, true, record);

    EntropyWriter writer;
    if (!writer.Begin(stream, record)) return false;
    bool coded = ForEachDifference(
        source, frame, &rows, progress, frame.height, record,
        [&](uint8_t c, int32_t difference) { writer.EncodeDifference(difference, codes[c == 0 ? 0 : 1]); });
    if (!coded) return false;
    writer.Finish();
    return record->ok();
}

}  // namespace velmora::jpeg
