#include "jpeg/jpeg_idct.h"

#include <array>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace velmora::jpeg {
namespace {

// The transform works on eight lanes at once: in the column pass lane c
// holds column c, in the row pass lane r holds row r. GCC and Clang lower
// these vector types to whatever the target offers (two SSE2 registers, one
// AVX2 register, or plain scalar code), so the arithmetic is the same on
// every build.
//
// Lanes are unsigned so that sums wrap instead of overflowing: a block of
// arbitrary coefficients cannot cause undefined behaviour. Where the true
// sum fits in 32 bits the wrapped sum is the true sum, and the passes are
// arranged so that this holds for every block real samples produce (see
// the descaling notes below). On SSE2 targets most blocks take a faster
// route over 16-bit lanes with the same results (further below).
typedef uint32_t Lanes __attribute__((vector_size(32)));
typedef int32_t SignedLanes __attribute__((vector_size(32)));
typedef int16_t Coefficients16 __attribute__((vector_size(16)));
typedef uint16_t Quantisers16 __attribute__((vector_size(16)));

// The multipliers of the Loeffler-Ligtenberg-Moschytz factorisation, in
// 13-bit fixed point. With ck = cos(k*pi/16) and every AC input weighted by
// sqrt(2) (so that one pass computes sqrt(8) times the orthonormal 1-D
// IDCT and both passes together eight times the 2-D IDCT of T.81 A.3.3):
constexpr uint32_t kFix0_298631336 = 2446;   // sqrt2 (-c1 + c3 + c5 - c7)
constexpr uint32_t kFix0_390180644 = 3196;   // sqrt2 (c3 - c5)
constexpr uint32_t kFix0_541196100 = 4433;   // sqrt2 c6
constexpr uint32_t kFix0_765366865 = 6270;   // sqrt2 (c2 - c6)
constexpr uint32_t kFix0_899976223 = 7373;   // sqrt2 (c3 - c7)
constexpr uint32_t kFix1_175875602 = 9633;   // sqrt2 c3
constexpr uint32_t kFix1_501321110 = 12299;  // sqrt2 (c1 + c3 - c5 - c7)
constexpr uint32_t kFix1_847759065 = 15137;  // sqrt2 (c2 + c6)
constexpr uint32_t kFix1_961570560 = 16069;  // sqrt2 (c3 + c5)
constexpr uint32_t kFix2_053119869 = 16819;  // sqrt2 (c1 + c3 - c5 + c7)
constexpr uint32_t kFix2_562915447 = 20995;  // sqrt2 (c1 + c3)
constexpr uint32_t kFix3_072711026 = 25172;  // sqrt2 (c1 + c3 + c5 - c7)
constexpr int kConstBits = 13;

// One 1-D inverse transform of eight lanes: in[k] is frequency k, out[n]
// receives sample n scaled by 2^13 (plus whatever scale the inputs carry).
// No rounding happens inside, so every output is an exact integer linear
// combination of the inputs; only the caller's descaling rounds.
inline void Transform(const Lanes (&in)[8], Lanes (&out)[8]) {
    // Even part: x0 and x4 are a plain butterfly; x2 and x6 a rotation by
    // 3pi/8 that shares one multiplication.
    const Lanes rotation = (in[2] + in[6]) * kFix0_541196100;
    const Lanes even2 = rotation - in[6] * kFix1_847759065;
    const Lanes even3 = rotation + in[2] * kFix0_765366865;
    const Lanes even0 = (in[0] + in[4]) << kConstBits;
    const Lanes even1 = (in[0] - in[4]) << kConstBits;
    const Lanes e10 = even0 + even3;
    const Lanes e13 = even0 - even3;
    const Lanes e11 = even1 + even2;
    const Lanes e12 = even1 - even2;

    // Odd part: the four odd frequencies x7, x5, x3, x1 enter the
    // factorised odd stage, in which the shared rotation by 3pi/16 (z5)
    // and four pairwise sums keep the count at 12 multiplications.
    Lanes odd0 = in[7];
    Lanes odd1 = in[5];
    Lanes odd2 = in[3];
    Lanes odd3 = in[1];
    Lanes z1 = odd0 + odd3;
    Lanes z2 = odd1 + odd2;
    Lanes z3 = odd0 + odd2;
    Lanes z4 = odd1 + odd3;
    const Lanes z5 = (z3 + z4) * kFix1_175875602;
    odd0 *= kFix0_298631336;
    odd1 *= kFix2_053119869;
    odd2 *= kFix3_072711026;
    odd3 *= kFix1_501321110;
    z1 *= -kFix0_899976223;
    z2 *= -kFix2_562915447;
    z3 = z5 - z3 * kFix1_961570560;
    z4 = z5 - z4 * kFix0_390180644;
    odd0 += z1 + z3;
    odd1 += z2 + z4;
    odd2 += z2 + z3;
    odd3 += z1 + z4;

    out[0] = e10 + odd3;
    out[7] = e10 - odd3;
    out[1] = e11 + odd2;
    out[6] = e11 - odd2;
    out[2] = e12 + odd1;
    out[5] = e12 - odd1;
    out[3] = e13 + odd0;
    out[4] = e13 - odd0;
}

// Values are passed by reference: passing 32-byte vectors by value would
// depend on whether the target has AVX.
inline void ArithmeticShift(Lanes& value, int bits) {
    value = reinterpret_cast<Lanes>(reinterpret_cast<SignedLanes>(value) >> bits);
}

// Column k of the dequantised block, one lane per column: coefficients
// times quantisers. The product of an int16 and a uint16 always fits in a
// signed 32-bit value.
inline void DequantisedRow(const int16_t* coefficients, const uint16_t* quantiser, Lanes& row) {
    Coefficients16 c;
    Quantisers16 q;
    std::memcpy(&c, coefficients, sizeof c);
    std::memcpy(&q, quantiser, sizeof q);
    row = reinterpret_cast<Lanes>(__builtin_convertvector(c, SignedLanes)) * __builtin_convertvector(q, Lanes);
}

inline bool AllZero(const Lanes& v) {
    uint32_t any = 0;
    for (int i = 0; i < 8; ++i) any |= v[i];
    return any == 0;
}

// Both precisions run the same two passes with two extra fraction bits:
// the column pass outputs its sums >> 11, the row pass its sums >> 18 (the
// extra 3 bits divide by 8). The row pass result is only used through a
// window of its low bits: bits 18..27 (10 bits) for 8-bit samples, bits
// 18..31 (14 bits) for 12-bit samples. Those bits of a wrapped 32-bit sum
// equal those of the true sum, so the row pass is exact for any input. The
// column pass is exact while its sums stay below 2^31, which holds for
// every dequantised coefficient within the 16-bit range (the largest
// column sum is 61213 times the largest input), and so for every block
// that real 8-bit or 12-bit samples produce.
constexpr int kPassBits = 2;
constexpr int kColumnShift = kConstBits - kPassBits;
constexpr int kRowShift = kConstBits + kPassBits + 3;

inline void TwoPasses(const int16_t* coefficients, const uint16_t* quantiser, Lanes (&result)[8]) {
    Lanes rows[8];
    uint32_t ac = 0;
    for (int k = 0; k < 8; ++k) {
        DequantisedRow(coefficients + 8 * k, quantiser + 8 * k, rows[k]);
    }
    for (int k = 1; k < 8; ++k) ac |= AllZero(rows[k]) ? 0u : 1u;

    // Column pass: lane c is column c. When no column has an AC term every
    // column's samples equal its DC term, which the full pass would also
    // give exactly: (x0 * 2^13 + rounding) >> kColumnShift = x0 << kPassBits.
    Lanes columns[8];
    if (ac == 0) {
        const Lanes dc = rows[0] << kPassBits;
        for (int n = 0; n < 8; ++n) columns[n] = dc;
    } else {
        Transform(rows, columns);
        const Lanes rounding = Lanes{} + (1u << (kColumnShift - 1));
        for (int n = 0; n < 8; ++n) {
            columns[n] += rounding;
            ArithmeticShift(columns[n], kColumnShift);
        }
    }

    // Row pass: transpose so that lane r is row r and input k is column k.
    Lanes transposed[8];
    for (int c = 0; c < 8; ++c) {
        transposed[c] = Lanes{columns[0][c], columns[1][c], columns[2][c], columns[3][c],
                              columns[4][c], columns[5][c], columns[6][c], columns[7][c]};
    }
    Transform(transposed, result);
    const Lanes rounding = Lanes{} + (1u << (kRowShift - 1));
    for (int n = 0; n < 8; ++n) result[n] = (result[n] + rounding) >> kRowShift;
}

// Range limiting for 8-bit samples: the row pass result taken modulo 1024
// is a signed value -512..511 around zero; the table adds the level shift
// of 128 and clamps to 0..255. Results that wrapped past +-512 (only
// possible for coefficients no real image produces) land at an arbitrary
// but defined sample.
constexpr std::array<uint8_t, 1024> MakeRangeLimit() {
    std::array<uint8_t, 1024> table{};
    for (int i = 0; i < 1024; ++i) {
        int value = (i < 512 ? i : i - 1024) + 128;
        table[i] = static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
    }
    return table;
}
static const std::array<uint8_t, 1024> kRangeLimit = MakeRangeLimit();

// The same for 12-bit samples on a 14-bit window, computed instead of
// looked up in a table of 16384 entries: sign-extend the 14 bits, add the
// level shift of 2048, clamp to 0..4095.
inline uint16_t RangeLimit12(uint32_t value) {
    int32_t centred = static_cast<int32_t>(value << 18) >> 18;
    int32_t sample = centred + 2048;
    return static_cast<uint16_t>(sample < 0 ? 0 : sample > 4095 ? 4095 : sample);
}

#if defined(__SSE2__)
// ---- SSE2: sixteen-bit lanes and pair products ------------------------------------
// With no rounding inside a pass, every pass output is an integer linear
// form of its eight inputs whose weights follow from the constants above.
// Where the inputs fit in 16 bits, _mm_madd_epi16 evaluates two terms of
// such a form at once into exact 32-bit sums, the same sums the general
// code reaches. The column pass inputs fit whenever the dequantised
// coefficients do, the row pass inputs whenever the column pass outputs
// do; a block for which either fails takes the general code.

// The weights of the forms, expanded from the factorisation: e.g. input 1
// reaches the odd term of outputs 0 and 7 through odd3, z1, z4 and z5.
constexpr int kEvenX2 = kFix0_541196100 + kFix0_765366865;           // even3 from x2
constexpr int kEvenX6 = kFix0_541196100;                             // even3 from x6
constexpr int kRotX2 = kFix0_541196100;                              // even2 from x2
constexpr int kRotX6 = int(kFix0_541196100) - int(kFix1_847759065);  // even2 from x6
// Odd terms: odd3 (outputs 0, 7), odd2 (1, 6), odd1 (2, 5), odd0 (3, 4)
// from x1, x3, x5, x7.
constexpr int kOdd3[4] = {int(kFix1_501321110) - int(kFix0_899976223) - int(kFix0_390180644) + int(kFix1_175875602),
                          int(kFix1_175875602), int(kFix1_175875602) - int(kFix0_390180644),
                          int(kFix1_175875602) - int(kFix0_899976223)};
constexpr int kOdd2[4] = {int(kFix1_175875602),
                          int(kFix3_072711026) - int(kFix2_562915447) - int(kFix1_961570560) + int(kFix1_175875602),
                          int(kFix1_175875602) - int(kFix2_562915447), int(kFix1_175875602) - int(kFix1_961570560)};
constexpr int kOdd1[4] = {int(kFix1_175875602) - int(kFix0_390180644), int(kFix1_175875602) - int(kFix2_562915447),
                          int(kFix2_053119869) - int(kFix2_562915447) - int(kFix0_390180644) + int(kFix1_175875602),
                          int(kFix1_175875602)};
constexpr int kOdd0[4] = {int(kFix1_175875602) - int(kFix0_899976223), int(kFix1_175875602) - int(kFix1_961570560),
                          int(kFix1_175875602),
                          int(kFix0_298631336) - int(kFix0_899976223) - int(kFix1_961570560) + int(kFix1_175875602)};

// A pair of 16-bit weights for _mm_madd_epi16: `first` multiplies the
// first input of each interleaved pair.
inline __m128i Pair(int first, int second) {
    return _mm_set1_epi32(static_cast<int32_t>(static_cast<uint16_t>(first) | static_cast<uint32_t>(second) << 16));
}

// One pass over eight 16-bit lanes: in[k] holds frequency k. out[n] and
// out[n + 8] receive output n plus `bias` as 32-bit sums, for lanes 0..3
// and 4..7.
inline void PairPass(const __m128i (&in)[8], __m128i bias, __m128i (&out)[16]) {
    const __m128i halves[2][4] = {{_mm_unpacklo_epi16(in[0], in[4]), _mm_unpacklo_epi16(in[2], in[6]),
                                   _mm_unpacklo_epi16(in[1], in[3]), _mm_unpacklo_epi16(in[5], in[7])},
                                  {_mm_unpackhi_epi16(in[0], in[4]), _mm_unpackhi_epi16(in[2], in[6]),
                                   _mm_unpackhi_epi16(in[1], in[3]), _mm_unpackhi_epi16(in[5], in[7])}};
    constexpr int one = 1 << kConstBits;
    for (int h = 0; h < 2; ++h) {
        const __m128i x04 = halves[h][0], x26 = halves[h][1], x13 = halves[h][2], x57 = halves[h][3];
        const __m128i even0 = _mm_add_epi32(_mm_madd_epi16(x04, Pair(one, one)), bias);
        const __m128i even1 = _mm_add_epi32(_mm_madd_epi16(x04, Pair(one, -one)), bias);
        const __m128i even3 = _mm_madd_epi16(x26, Pair(kEvenX2, kEvenX6));
        const __m128i even2 = _mm_madd_epi16(x26, Pair(kRotX2, kRotX6));
        const __m128i e10 = _mm_add_epi32(even0, even3), e13 = _mm_sub_epi32(even0, even3);
        const __m128i e11 = _mm_add_epi32(even1, even2), e12 = _mm_sub_epi32(even1, even2);
        const __m128i odd3 =
            _mm_add_epi32(_mm_madd_epi16(x13, Pair(kOdd3[0], kOdd3[1])), _mm_madd_epi16(x57, Pair(kOdd3[2], kOdd3[3])));
        const __m128i odd2 =
            _mm_add_epi32(_mm_madd_epi16(x13, Pair(kOdd2[0], kOdd2[1])), _mm_madd_epi16(x57, Pair(kOdd2[2], kOdd2[3])));
        const __m128i odd1 =
            _mm_add_epi32(_mm_madd_epi16(x13, Pair(kOdd1[0], kOdd1[1])), _mm_madd_epi16(x57, Pair(kOdd1[2], kOdd1[3])));
        const __m128i odd0 =
            _mm_add_epi32(_mm_madd_epi16(x13, Pair(kOdd0[0], kOdd0[1])), _mm_madd_epi16(x57, Pair(kOdd0[2], kOdd0[3])));
        __m128i* o = out + 8 * h;
        o[0] = _mm_add_epi32(e10, odd3);
        o[7] = _mm_sub_epi32(e10, odd3);
        o[1] = _mm_add_epi32(e11, odd2);
        o[6] = _mm_sub_epi32(e11, odd2);
        o[2] = _mm_add_epi32(e12, odd1);
        o[5] = _mm_sub_epi32(e12, odd1);
        o[3] = _mm_add_epi32(e13, odd0);
        o[4] = _mm_sub_epi32(e13, odd0);
    }
}

// out[c] lane r = in[r] lane c, for 8x8 16-bit values.
inline void Transpose16(const __m128i (&in)[8], __m128i (&out)[8]) {
    __m128i a[8], b[8];
    for (int i = 0; i < 4; ++i) {
        a[2 * i] = _mm_unpacklo_epi16(in[2 * i], in[2 * i + 1]);
        a[2 * i + 1] = _mm_unpackhi_epi16(in[2 * i], in[2 * i + 1]);
    }
    for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 2; ++j) {
            b[4 * i + 2 * j] = _mm_unpacklo_epi32(a[4 * i + j], a[4 * i + j + 2]);
            b[4 * i + 2 * j + 1] = _mm_unpackhi_epi32(a[4 * i + j], a[4 * i + j + 2]);
        }
    }
    for (int c = 0; c < 4; ++c) {
        out[2 * c] = _mm_unpacklo_epi64(b[c], b[c + 4]);
        out[2 * c + 1] = _mm_unpackhi_epi64(b[c], b[c + 4]);
    }
}

// Nonzero lanes where a 32-bit value is outside the 16-bit range.
inline __m128i Outside16(__m128i v) { return _mm_srli_epi32(_mm_add_epi32(v, _mm_set1_epi32(0x8000)), 16); }

// Both passes; false (nothing written) when the block needs the general
// code. rows[r] receives output row r as eight 16-bit values: the 8-bit
// window (bits 18..27) or the 12-bit window (bits 18..31) of the row pass
// sums, sign-extended, plus the level shift.
template <bool TwelveBit>
inline bool PairPasses(const int16_t* coefficients, const uint16_t* quantiser, __m128i (&rows)[8]) {
    __m128i in[8];
    __m128i outside = _mm_setzero_si128(), quantisers = _mm_setzero_si128();
    for (int k = 0; k < 8; ++k) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(coefficients + 8 * k));
        const __m128i q = _mm_loadu_si128(reinterpret_cast<const __m128i*>(quantiser + 8 * k));
        quantisers = _mm_or_si128(quantisers, q);
        in[k] = _mm_mullo_epi16(c, q);
        outside = _mm_or_si128(outside, _mm_xor_si128(_mm_mulhi_epi16(c, q), _mm_srai_epi16(in[k], 15)));
    }
    // Quantisers from 32768 up would be negative as 16-bit weights.
    outside = _mm_or_si128(outside, _mm_srai_epi16(quantisers, 15));

    __m128i sums[16], columns[8], transposed[8];
    PairPass(in, _mm_set1_epi32(1 << (kColumnShift - 1)), sums);
    for (int n = 0; n < 16; ++n) {
        sums[n] = _mm_srai_epi32(sums[n], kColumnShift);
        outside = _mm_or_si128(outside, Outside16(sums[n]));
    }
    if (_mm_movemask_epi8(_mm_cmpeq_epi32(outside, _mm_setzero_si128())) != 0xFFFF) return false;
    for (int n = 0; n < 8; ++n) columns[n] = _mm_packs_epi32(sums[n], sums[n + 8]);

    Transpose16(columns, transposed);
    PairPass(transposed, _mm_set1_epi32(1 << (kRowShift - 1)), sums);
    __m128i samples[8];
    for (int n = 0; n < 8; ++n) {
        __m128i low = sums[n], high = sums[n + 8];
        if constexpr (TwelveBit) {
            low = _mm_srai_epi32(low, kRowShift);
            high = _mm_srai_epi32(high, kRowShift);
        } else {
            low = _mm_srai_epi32(_mm_slli_epi32(low, 4), 22);
            high = _mm_srai_epi32(_mm_slli_epi32(high, 4), 22);
        }
        samples[n] = _mm_add_epi16(_mm_packs_epi32(low, high), _mm_set1_epi16(TwelveBit ? 2048 : 128));
    }
    Transpose16(samples, rows);
    return true;
}
#endif

}  // namespace

void InverseDct8(const int16_t* coefficients, const uint16_t* quantiser, uint8_t* output, ptrdiff_t stride) {
#if defined(__SSE2__)
    __m128i rows[8];
    if (PairPasses<false>(coefficients, quantiser, rows)) {
        for (int r = 0; r < 8; r += 2) {
            const __m128i bytes = _mm_packus_epi16(rows[r], rows[r + 1]);  // clamps to 0..255
            _mm_storel_epi64(reinterpret_cast<__m128i*>(output + r * stride), bytes);
            _mm_storel_epi64(reinterpret_cast<__m128i*>(output + (r + 1) * stride), _mm_srli_si128(bytes, 8));
        }
        return;
    }
#endif
    Lanes result[8];  // result[c][r]: row r, column c
    TwoPasses(coefficients, quantiser, result);
    for (int r = 0; r < 8; ++r) {
        uint8_t* row = output + r * stride;
        for (int c = 0; c < 8; ++c) row[c] = kRangeLimit[result[c][r] & 1023];
    }
}

void InverseDct12(const int16_t* coefficients, const uint16_t* quantiser, uint16_t* output, ptrdiff_t stride) {
#if defined(__SSE2__)
    __m128i rows[8];
    if (PairPasses<true>(coefficients, quantiser, rows)) {
        for (int r = 0; r < 8; ++r) {
            const __m128i clamped = _mm_min_epi16(_mm_max_epi16(rows[r], _mm_setzero_si128()), _mm_set1_epi16(4095));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(output + r * stride), clamped);
        }
        return;
    }
#endif
    Lanes result[8];
    TwoPasses(coefficients, quantiser, result);
    for (int r = 0; r < 8; ++r) {
        uint16_t* row = output + r * stride;
        for (int c = 0; c < 8; ++c) row[c] = RangeLimit12(result[c][r]);
    }
}

}  // namespace velmora::jpeg
