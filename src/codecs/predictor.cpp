#include "codecs/predictor.h"

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define VELMORA_PREDICTOR_SSE2 1
#endif

namespace velmora {
namespace {

constexpr uint16_t kUnsupportedPredictorBits = 26;     // "Unsupported predictor (BitsPerSample = %lu)"
constexpr uint16_t kUnsupportedPredictorSamples = 27;  // "Unsupported predictor (SamplesPerPixel = %lu)"
constexpr uint16_t kUnsupportedPredictor = 28;         // "Unsupported predictor"
constexpr uint16_t kUnknownPredictor = 282;            // "Unknown predictor (%lu)"

// Each sample keeps its own running sum in a register; the compiler unrolls
// the inner loop over the pixel's samples. Starts at byte `from` (a whole
// number of pixels, at least one) of a row of at least two pixels.
template <unsigned S>
void AccumulateBytes(uint8_t* row, size_t from, size_t bytes) {
    uint8_t sums[S];
    for (unsigned k = 0; k < S; ++k) sums[k] = row[from - S + k];
    size_t pixels = bytes / S;
    uint8_t* p = row + from;
    for (size_t i = from / S; i < pixels; ++i, p += S) {
        for (unsigned k = 0; k < S; ++k) {
            sums[k] = static_cast<uint8_t>(sums[k] + p[k]);
            p[k] = sums[k];
        }
    }
    // Samples of a last, incomplete pixel.
    for (size_t i = pixels * S; i < bytes; ++i) row[i] = static_cast<uint8_t>(row[i] + row[i - S]);
}

#if VELMORA_PREDICTOR_SSE2

// The running sums of a row are prefix sums of the bytes with the pixel's
// size as their step. A vector of 16 bytes gets its own prefix sums by
// adding itself shifted by 1, 2, 4 ... pixels; the sums of everything before
// it come in as a carry vector that holds each sample's total so far in the
// sample's lanes. The carry grows by the vector's own last pixel, spread over
// the lanes, so that one addition per vector is all that waits on the one
// before.

template <unsigned S>
inline __m128i PrefixSums(__m128i v) {
    v = _mm_add_epi8(v, _mm_slli_si128(v, S));
    if constexpr (2 * S < 16) v = _mm_add_epi8(v, _mm_slli_si128(v, 2 * S));
    if constexpr (4 * S < 16) v = _mm_add_epi8(v, _mm_slli_si128(v, 4 * S));
    if constexpr (8 * S < 16) v = _mm_add_epi8(v, _mm_slli_si128(v, 8 * S));
    return v;
}

// The last pixel of the vector in every pixel's place (1, 2 or 4 bytes).
template <unsigned S>
inline __m128i SpreadLastPixel(__m128i v) {
    if constexpr (S == 1) v = _mm_unpackhi_epi8(v, v);
    if constexpr (S <= 2) v = _mm_shufflehi_epi16(v, 0xFF);
    return _mm_shuffle_epi32(v, 0xFF);
}

// Pixels of 1, 2 or 4 bytes: 16 bytes at a time. Returns the bytes done.
template <unsigned S>
size_t AccumulateVectors(uint8_t* row, size_t bytes) {
    __m128i carry = _mm_setzero_si128();
    size_t at = 0;
    for (; at + 16 <= bytes; at += 16) {
        __m128i* p = reinterpret_cast<__m128i*>(row + at);
        __m128i sums = PrefixSums<S>(_mm_loadu_si128(p));
        _mm_storeu_si128(p, _mm_add_epi8(sums, carry));
        carry = _mm_add_epi8(carry, SpreadLastPixel<S>(sums));
    }
    return at;
}

// Three-byte pixels: 16 is not a multiple of 3, so the vectors go in blocks
// of three (16 pixels) and the carry is spread with period 3. A vector that
// starts 16 or 32 bytes into a block sees the samples shifted by one or two
// lanes.
inline __m128i SpreadPeriod3(__m128i v) {  // lanes 13-15, repeated from lane 0
    v = _mm_srli_si128(v, 13);
    v = _mm_or_si128(v, _mm_slli_si128(v, 3));
    v = _mm_or_si128(v, _mm_slli_si128(v, 6));
    return _mm_or_si128(v, _mm_slli_si128(v, 12));
}
template <int K>
inline __m128i Rotate3(__m128i v) {  // lane i takes lane i + K of a period-3 vector
    return _mm_or_si128(_mm_srli_si128(v, K), _mm_slli_si128(v, 15 - K));
}

template <>
size_t AccumulateVectors<3>(uint8_t* row, size_t bytes) {
    __m128i carry = _mm_setzero_si128();
    size_t at = 0;
    for (; at + 48 <= bytes; at += 48) {
        __m128i* p = reinterpret_cast<__m128i*>(row + at);
        __m128i a = PrefixSums<3>(_mm_loadu_si128(p));
        __m128i b = PrefixSums<3>(_mm_loadu_si128(p + 1));
        __m128i c = PrefixSums<3>(_mm_loadu_si128(p + 2));
        b = _mm_add_epi8(b, SpreadPeriod3(a));
        c = _mm_add_epi8(c, SpreadPeriod3(b));
        _mm_storeu_si128(p, _mm_add_epi8(a, carry));
        _mm_storeu_si128(p + 1, _mm_add_epi8(b, Rotate3<1>(carry)));
        _mm_storeu_si128(p + 2, _mm_add_epi8(c, Rotate3<2>(carry)));
        carry = _mm_add_epi8(carry, SpreadPeriod3(c));
    }
    return at;
}

template <unsigned S>
void Accumulate(uint8_t* row, size_t bytes) {
    if (bytes < 2 * S) return;
    size_t done = AccumulateVectors<S>(row, bytes);
    AccumulateBytes<S>(row, done > 0 ? done : S, bytes);
}

#else

template <unsigned S>
void Accumulate(uint8_t* row, size_t bytes) {
    if (bytes < 2 * S) return;
    AccumulateBytes<S>(row, S, bytes);
}

#endif

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
