#include "codecs/adler32.h"

#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define VELMORA_ADLER_SSE2 1
#endif
// Processors with AVX2 take 32 bytes per step, those with the AVX-512 dot
// products of bytes 64, chosen at run time (not on Windows, where GCC does
// not align spilled 256-bit and 512-bit registers).
#if VELMORA_ADLER_SSE2 && defined(__x86_64__) && defined(__GNUC__) && !defined(_WIN32)
#include <immintrin.h>
#define VELMORA_ADLER_AVX2 1
#endif

namespace velmora {
namespace {

constexpr uint32_t kBase = 65521;
// The most bytes whose sums fit 32 bits before they must be reduced
// (255 n (n + 1) / 2 + (n + 1) (kBase - 1) < 2^32).
constexpr size_t kMaxRun = 5552;

// Over a run of bytes x0 .. x(n-1), a grows by the plain sum and b by
// n a + sum (n - i) xi. Both are gathered block by block and reduced once
// per run.

#if VELMORA_ADLER_SSE2

inline uint32_t SumLanes(__m128i v) {
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0x4E));
    v = _mm_add_epi32(v, _mm_shuffle_epi32(v, 0xB1));
    return static_cast<uint32_t>(_mm_cvtsi128_si32(v));
}

// Blocks of 32 bytes: `sums` gathers the bytes, `before` the sums of the
// blocks before each block (each of them enters b once for every byte of
// the later block), `weighted` each byte times its distance from the
// block's end.
size_t Blocks(const uint8_t* bytes, size_t run, uint32_t* a, uint32_t* b) {
    const size_t blocks = run / 32;
    if (blocks == 0) return 0;
    const __m128i zero = _mm_setzero_si128();
    const __m128i weightsHigh1 = _mm_setr_epi16(32, 31, 30, 29, 28, 27, 26, 25);
    const __m128i weightsHigh2 = _mm_setr_epi16(24, 23, 22, 21, 20, 19, 18, 17);
    const __m128i weightsLow1 = _mm_setr_epi16(16, 15, 14, 13, 12, 11, 10, 9);
    const __m128i weightsLow2 = _mm_setr_epi16(8, 7, 6, 5, 4, 3, 2, 1);
    __m128i sums = zero, before = zero, weighted = zero;
    for (size_t k = 0; k < blocks; ++k, bytes += 32) {
        __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
        __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes + 16));
        before = _mm_add_epi32(before, sums);
        sums = _mm_add_epi32(sums, _mm_add_epi32(_mm_sad_epu8(first, zero), _mm_sad_epu8(second, zero)));
        weighted = _mm_add_epi32(weighted, _mm_madd_epi16(_mm_unpacklo_epi8(first, zero), weightsHigh1));
        weighted = _mm_add_epi32(weighted, _mm_madd_epi16(_mm_unpackhi_epi8(first, zero), weightsHigh2));
        weighted = _mm_add_epi32(weighted, _mm_madd_epi16(_mm_unpacklo_epi8(second, zero), weightsLow1));
        weighted = _mm_add_epi32(weighted, _mm_madd_epi16(_mm_unpackhi_epi8(second, zero), weightsLow2));
    }
    *b += static_cast<uint32_t>(blocks * 32) * *a + 32 * SumLanes(before) + SumLanes(weighted);
    *a += SumLanes(sums);
    return blocks * 32;
}

#if VELMORA_ADLER_AVX2

__attribute__((target("avx2"))) inline uint32_t SumLanesAvx2(__m256i v) {
    return SumLanes(_mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)));
}

__attribute__((target("avx2"))) size_t BlocksAvx2(const uint8_t* bytes, size_t run, uint32_t* a, uint32_t* b) {
    const size_t blocks = run / 32;
    if (blocks == 0) return 0;
    const __m256i zero = _mm256_setzero_si256();
    const __m256i ones = _mm256_set1_epi16(1);
    const __m256i weights = _mm256_setr_epi8(32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17, 16, 15, 14,
                                             13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
    __m256i sums = zero, before = zero, weighted = zero;
    for (size_t k = 0; k < blocks; ++k, bytes += 32) {
        __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bytes));
        before = _mm256_add_epi32(before, sums);
        sums = _mm256_add_epi32(sums, _mm256_sad_epu8(v, zero));
        // Byte times weight in pairs of 16 bits (at most 2 x 255 x 32), then
        // in fours of 32 bits.
        weighted = _mm256_add_epi32(weighted, _mm256_madd_epi16(_mm256_maddubs_epi16(v, weights), ones));
    }
    *b += static_cast<uint32_t>(blocks * 32) * *a + 32 * SumLanesAvx2(before) + SumLanesAvx2(weighted);
    *a += SumLanesAvx2(sums);
    return blocks * 32;
}

#define VELMORA_AVX512_VNNI __attribute__((target("avx512f,avx512bw,avx512vnni")))

// Through memory: three times per run of bytes.
VELMORA_AVX512_VNNI inline uint32_t SumLanesAvx512(__m512i v) {
    uint32_t lanes[16];
    _mm512_storeu_si512(lanes, v);
    uint32_t sum = 0;
    for (uint32_t lane : lanes) sum += lane;
    return sum;
}

// Blocks of 64 bytes, two per step: one dot product instruction weighs a
// block's bytes and adds them up in fours. The two blocks of a step keep
// separate weighted sums, so that neither waits on the other, and the
// second block counts the first one's sum among those before it.
VELMORA_AVX512_VNNI size_t BlocksVnni(const uint8_t* bytes, size_t run, uint32_t* a, uint32_t* b) {
    const size_t pairs = run / 128;
    if (pairs == 0) return 0;
    alignas(64) static const int8_t kWeights[64] = {64, 63, 62, 61, 60, 59, 58, 57, 56, 55, 54, 53, 52, 51, 50, 49,
                                                    48, 47, 46, 45, 44, 43, 42, 41, 40, 39, 38, 37, 36, 35, 34, 33,
                                                    32, 31, 30, 29, 28, 27, 26, 25, 24, 23, 22, 21, 20, 19, 18, 17,
                                                    16, 15, 14, 13, 12, 11, 10, 9,  8,  7,  6,  5,  4,  3,  2,  1};
    const __m512i weights = _mm512_load_si512(kWeights);
    const __m512i zero = _mm512_setzero_si512();
    __m512i sums = zero, before = zero, weightedFirst = zero, weightedSecond = zero;
    for (size_t k = 0; k < pairs; ++k, bytes += 128) {
        const __m512i first = _mm512_loadu_si512(bytes);
        const __m512i second = _mm512_loadu_si512(bytes + 64);
        const __m512i firstSum = _mm512_sad_epu8(first, zero);
        before = _mm512_add_epi32(before, _mm512_add_epi32(_mm512_add_epi32(sums, sums), firstSum));
        sums = _mm512_add_epi32(sums, _mm512_add_epi32(firstSum, _mm512_sad_epu8(second, zero)));
        weightedFirst = _mm512_dpbusd_epi32(weightedFirst, first, weights);
        weightedSecond = _mm512_dpbusd_epi32(weightedSecond, second, weights);
    }
    const uint32_t weighted = SumLanesAvx512(_mm512_add_epi32(weightedFirst, weightedSecond));
    *b += static_cast<uint32_t>(pairs * 128) * *a + 64 * SumLanesAvx512(before) + weighted;
    *a += SumLanesAvx512(sums);
    return pairs * 128;
}

bool HasVnni() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vnni");
}

const bool kHaveAvx2 = __builtin_cpu_supports("avx2");
const bool kHaveVnni = HasVnni();

#endif

#else

// Blocks of 16 bytes in plain code that compilers vectorise.
size_t Blocks(const uint8_t* bytes, size_t run, uint32_t* a, uint32_t* b) {
    size_t done = 0;
    for (; run - done >= 16; done += 16, bytes += 16) {
        uint32_t sum = 0, weighted = 0;
        for (unsigned i = 0; i < 16; ++i) {
            sum += bytes[i];
            weighted += (16 - i) * bytes[i];
        }
        *b += *a * 16 + weighted;
        *a += sum;
    }
    return done;
}

#endif

}  // namespace

uint32_t Adler32Update(uint32_t adler, const uint8_t* bytes, size_t count) {
    uint32_t a = adler & 0xFFFF;
    uint32_t b = adler >> 16;
    while (count > 0) {
        size_t run = count < kMaxRun ? count : kMaxRun;
        count -= run;
#if VELMORA_ADLER_AVX2
        size_t done = kHaveVnni ? BlocksVnni(bytes, run, &a, &b) : 0;
        done += kHaveAvx2 ? BlocksAvx2(bytes + done, run - done, &a, &b) : Blocks(bytes + done, run - done, &a, &b);
#else
        size_t done = Blocks(bytes, run, &a, &b);
#endif
        bytes += done;
        for (run -= done; run > 0; --run) {
            a += *bytes++;
            b += a;
        }
        a %= kBase;
        b %= kBase;
    }
    return (b << 16) | a;
}

}  // namespace velmora
