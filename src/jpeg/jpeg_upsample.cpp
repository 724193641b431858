#include "jpeg/jpeg_upsample.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace velmora::jpeg {
namespace {

// The two outputs of sample i across, from the sample and its neighbours
// (or, for both directions, from column sums), scalar.
inline void AcrossPair(uint32_t here, uint32_t left, uint32_t right, uint8_t* out, uint32_t x, uint32_t width) {
    if (x < width) out[x] = static_cast<uint8_t>((3 * here + left + 1) >> 2);
    if (x + 1 < width) out[x + 1] = static_cast<uint8_t>((3 * here + right + 2) >> 2);
}
inline void BothPair(uint32_t here, uint32_t left, uint32_t right, uint8_t* out, uint32_t x, uint32_t width) {
    if (x < width) out[x] = static_cast<uint8_t>((3 * here + left + 8) >> 4);
    if (x + 1 < width) out[x + 1] = static_cast<uint8_t>((3 * here + right + 7) >> 4);
}

#if defined(__SSE2__)
inline __m128i Load8(const uint8_t* p) {
    return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), _mm_setzero_si128());
}
inline __m128i Times3(__m128i v) { return _mm_add_epi16(v, _mm_add_epi16(v, v)); }
// Stores eight even and eight odd outputs interleaved.
inline void StorePairs(uint8_t* out, __m128i even, __m128i odd) {
    const __m128i low = _mm_unpacklo_epi16(even, odd), high = _mm_unpackhi_epi16(even, odd);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(low, high));
}
#endif

}  // namespace

void TriangleAcross(const uint8_t* s, uint32_t n, uint8_t* out, uint32_t width) {
    if (n == 0) return;
    uint32_t i = 0;
    AcrossPair(s[0], s[0], n > 1 ? s[1] : s[0], out, 0, width);
    i = 1;
#if defined(__SSE2__)
    // Eight samples at a time while their right neighbours exist and their
    // sixteen outputs fit.
    const __m128i one = _mm_set1_epi16(1), two = _mm_set1_epi16(2);
    for (; i + 9 <= n && 2 * i + 16 <= width; i += 8) {
        const __m128i here = Times3(Load8(s + i));
        const __m128i even = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(here, Load8(s + i - 1)), one), 2);
        const __m128i odd = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(here, Load8(s + i + 1)), two), 2);
        StorePairs(out + 2 * i, even, odd);
    }
#endif
    for (; i < n && 2 * i < width; ++i) AcrossPair(s[i], s[i - 1], i + 1 < n ? s[i + 1] : s[i], out, 2 * i, width);
}

void TriangleDown(const uint8_t* s, const uint8_t* t, bool lower, uint8_t* out, uint32_t width) {
    const uint32_t bias = lower ? 2 : 1;
    uint32_t x = 0;
#if defined(__SSE2__)
    const __m128i b = _mm_set1_epi16(static_cast<int16_t>(bias));
    for (; x + 8 <= width; x += 8) {
        const __m128i sum = _mm_add_epi16(_mm_add_epi16(Times3(Load8(s + x)), Load8(t + x)), b);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + x),
                         _mm_packus_epi16(_mm_srli_epi16(sum, 2), _mm_setzero_si128()));
    }
#endif
    for (; x < width; ++x) out[x] = static_cast<uint8_t>((3u * s[x] + t[x] + bias) >> 2);
}

void TriangleBoth(const uint8_t* s, const uint8_t* t, uint32_t n, uint8_t* out, uint32_t width) {
    if (n == 0) return;
    auto sum = [s, t](uint32_t i) { return 3u * s[i] + t[i]; };
    BothPair(sum(0), sum(0), n > 1 ? sum(1) : sum(0), out, 0, width);
    uint32_t i = 1;
#if defined(__SSE2__)
    const __m128i eight = _mm_set1_epi16(8), seven = _mm_set1_epi16(7);
    for (; i + 9 <= n && 2 * i + 16 <= width; i += 8) {
        const __m128i left = _mm_add_epi16(Times3(Load8(s + i - 1)), Load8(t + i - 1));
        const __m128i here = _mm_add_epi16(Times3(Load8(s + i)), Load8(t + i));
        const __m128i right = _mm_add_epi16(Times3(Load8(s + i + 1)), Load8(t + i + 1));
        const __m128i even = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(Times3(here), left), eight), 4);
        const __m128i odd = _mm_srli_epi16(_mm_add_epi16(_mm_add_epi16(Times3(here), right), seven), 4);
        StorePairs(out + 2 * i, even, odd);
    }
#endif
    for (; i < n && 2 * i < width; ++i) BothPair(sum(i), sum(i - 1), i + 1 < n ? sum(i + 1) : sum(i), out, 2 * i, width);
}

}  // namespace velmora::jpeg
