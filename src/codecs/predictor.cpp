#include "codecs/predictor.h"

namespace velmora {
namespace {

constexpr uint16_t kUnsupportedPredictorBits = 26;     // "Unsupported predictor (BitsPerSample = %lu)"
constexpr uint16_t kUnsupportedPredictorSamples = 27;  // "Unsupported predictor (SamplesPerPixel = %lu)"
constexpr uint16_t kUnsupportedPredictor = 28;         // "Unsupported predictor"
constexpr uint16_t kUnknownPredictor = 282;            // "Unknown predictor (%lu)"

// Each sample keeps its own running sum in a register; the compiler unrolls
// the inner loop over the pixel's samples.
template <unsigned S>
void Accumulate(uint8_t* row, size_t bytes) {
    if (bytes < 2 * S) return;
    uint8_t sums[S];
    for (unsigned k = 0; k < S; ++k) sums[k] = row[k];
    size_t pixels = bytes / S;
    uint8_t* p = row + S;
    for (size_t i = 1; i < pixels; ++i, p += S) {
        for (unsigned k = 0; k < S; ++k) {
            sums[k] = static_cast<uint8_t>(sums[k] + p[k]);
            p[k] = sums[k];
        }
    }
    // Samples of a last, incomplete pixel.
    for (size_t i = pixels * S; i < bytes; ++i) row[i] = static_cast<uint8_t>(row[i] + row[i - S]);
}

void Accumulate1(uint8_t* row, size_t bytes) { Accumulate<1>(row, bytes); }
void Accumulate2(uint8_t* row, size_t bytes) { Accumulate<2>(row, bytes); }
void Accumulate3(uint8_t* row, size_t bytes) { Accumulate<3>(row, bytes); }
void Accumulate4(uint8_t* row, size_t bytes) { Accumulate<4>(row, bytes); }

const RowRoutine kAccumulators[4] = {Accumulate1, Accumulate2, Accumulate3, Accumulate4};

}  // namespace

void UndoHorizontalDifferencing(uint8_t* row, size_t bytes, unsigned samples) {
    if (samples >= 1 && samples <= 4) kAccumulators[samples - 1](row, bytes);
}

bool SelectPredictor(const CodecPage& page, RowRoutine* routine, ErrorRecord* record) {
    *routine = nullptr;
    if (record->failed()) return false;
    if (page.predictor == 1) return true;
    if (page.predictor != 2) {
        SetRecordError(record, kErrUnknownImageType, kUnknownPredictor, uint32_t{page.predictor});
        return false;
    }
    // One plane of a planar page arrives with one sample per pixel, so its
    // plane is differenced by itself.
    switch (page.samplesPerPixel) {
        case 1:
            if (page.bitsPerSample != 8) {
                SetRecordError(record, kErrUnsupportedImageType, kUnsupportedPredictorBits,
                               uint32_t{page.bitsPerSample});
                return false;
            }
            break;
        case 2:
        case 3:
        case 4:
            if (page.bitsPerSample != 8) {
                SetRecordError(record, kErrUnsupportedImageType, kUnsupportedPredictor);
                return false;
            }
            break;
        default:
            SetRecordError(record, kErrUnsupportedImageType, kUnsupportedPredictorSamples,
                           uint32_t{page.samplesPerPixel});
            return false;
    }
    *routine = kAccumulators[page.samplesPerPixel - 1];
    return true;
}

}  // namespace velmora
