// The vector routes of the colour conversion, for x86 processors: 16-bit
// lanes, sixteen pixels a step in SSE registers (SSE2, or SSSE3 for the
// byte shuffles that interleave the output) and thirty-two in AVX2
// registers, with the same integer results as the portable code.
#include <cstring>
#include <initializer_list>

#include "jpeg/jpeg_color_routes.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#include <tmmintrin.h>
// AVX2 only where the compiler keeps 32-byte stack slots aligned: GCC for
// Windows does not align spilled 256-bit registers.
#if defined(__x86_64__) && !defined(_WIN32)
#define VELMORA_COLOR_AVX2 1
#include <immintrin.h>
#endif
#endif

namespace velmora::jpeg {

#if defined(__SSE2__)
namespace {

// ---- YCbCr to RGB in 16-bit lanes ----------------------------------------------------
// The portable code computes, with chroma differences cb, cr in -128..127,
//   red term   = (91881 cr + 2^15) >> 16
//   green term = (2^15 - 22554 cb - 46802 cr) >> 16
//   blue term  = (116130 cb + 2^15) >> 16
// and adds each term to Y. Coefficients outside the 16-bit range are split
// into whole multiples of 2^16, which pass the shift unchanged, and a
// remainder that fits:
//   91881 = 2^16 + 26345, -46802 = -2^16 + 18734, 116130 = 2 * 2^16 - 14942.
// A single product rounds through _mm_mulhi_epi16, which gives
// floor(c * 2x / 2^16) = floor(c x / 2^15); adding one and halving gives
// floor((c x + 2^15) / 2^16), the rounded term. The green term adds two
// products before rounding, so it is summed exactly in 32 bits by
// _mm_madd_epi16 instead.
constexpr int16_t kCrToRRest = 26345;
constexpr int16_t kCbToGRest = -22554;
constexpr int16_t kCrToGRest = 18734;
constexpr int16_t kCbToBRest = -14942;

// The amounts added to Y for eight pixels, as 16-bit values.
struct Terms {
    __m128i red, green, blue;
};

// `cb` and `cr` hold eight chroma samples as 16-bit values.
[[gnu::always_inline]] inline Terms ChromaTerms(__m128i cb, __m128i cr) {
    const __m128i centre = _mm_set1_epi16(128), one = _mm_set1_epi16(1);
    cb = _mm_sub_epi16(cb, centre);
    cr = _mm_sub_epi16(cr, centre);
    const __m128i cb2 = _mm_add_epi16(cb, cb), cr2 = _mm_add_epi16(cr, cr);
    Terms terms;
    terms.red =
        _mm_add_epi16(cr, _mm_srai_epi16(_mm_add_epi16(_mm_mulhi_epi16(cr2, _mm_set1_epi16(kCrToRRest)), one), 1));
    terms.blue =
        _mm_add_epi16(cb2, _mm_srai_epi16(_mm_add_epi16(_mm_mulhi_epi16(cb2, _mm_set1_epi16(kCbToBRest)), one), 1));
    const __m128i weights = _mm_set1_epi32(
        static_cast<int32_t>(static_cast<uint16_t>(kCbToGRest) | static_cast<uint32_t>(kCrToGRest) << 16));
    const __m128i half = _mm_set1_epi32(1 << 15);
    const __m128i low = _mm_madd_epi16(_mm_unpacklo_epi16(cb, cr), weights);
    const __m128i high = _mm_madd_epi16(_mm_unpackhi_epi16(cb, cr), weights);
    const __m128i green =
        _mm_packs_epi32(_mm_srai_epi32(_mm_add_epi32(low, half), 16), _mm_srai_epi32(_mm_add_epi32(high, half), 16));
    terms.green = _mm_sub_epi16(green, cr);
    return terms;
}

// Sixteen pixels, one byte per channel in each register.
struct Pixels {
    __m128i blue, green, red;
};

[[gnu::always_inline]] inline __m128i Low16(__m128i bytes) { return _mm_unpacklo_epi8(bytes, _mm_setzero_si128()); }
[[gnu::always_inline]] inline __m128i High16(__m128i bytes) { return _mm_unpackhi_epi8(bytes, _mm_setzero_si128()); }
[[gnu::always_inline]] inline __m128i Load16(const uint8_t* at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
}
[[gnu::always_inline]] inline __m128i Load8(const uint8_t* at) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(at));
}

// Y plus the terms of pixels 0..7 and 8..15, clamped to 0..255 by the
// saturating pack.
[[gnu::always_inline]] inline Pixels AddLuma(__m128i luma, const Terms& low, const Terms& high) {
    const __m128i y0 = Low16(luma), y1 = High16(luma);
    return {_mm_packus_epi16(_mm_add_epi16(y0, low.blue), _mm_add_epi16(y1, high.blue)),
            _mm_packus_epi16(_mm_add_epi16(y0, low.green), _mm_add_epi16(y1, high.green)),
            _mm_packus_epi16(_mm_add_epi16(y0, low.red), _mm_add_epi16(y1, high.red))};
}

// floor(value * black / 255) for sixteen pairs of bytes: the product is
// at most 65025, and for those floor(t * 0x8081 / 2^23) = floor(t / 255)
// (0x8081 / 2^23 exceeds 1/255 by less than 1/2^23 per unit of t, too
// little to reach the next multiple of 255).
[[gnu::always_inline]] inline __m128i Darken(__m128i value, __m128i blackLow, __m128i blackHigh) {
    const __m128i scale = _mm_set1_epi16(static_cast<int16_t>(0x8081));
    const __m128i low = _mm_srli_epi16(_mm_mulhi_epu16(_mm_mullo_epi16(Low16(value), blackLow), scale), 7);
    const __m128i high = _mm_srli_epi16(_mm_mulhi_epu16(_mm_mullo_epi16(High16(value), blackHigh), scale), 7);
    return _mm_packus_epi16(low, high);
}

// Inverted CMYK to RGB: each stored ink value darkened by the stored K.
[[gnu::always_inline]] inline Pixels DarkenAll(const Pixels& ink, __m128i black) {
    const __m128i low = Low16(black), high = High16(black);
    return {Darken(ink.blue, low, high), Darken(ink.green, low, high), Darken(ink.red, low, high)};
}

// ---- Writing blue-green-red triples -----------------------------------------------------

// SSE2 has no byte shuffle: bytes are paired with unpacks into 32-bit
// pixels (blue, green, red, zero), and the zero bytes squeezed out with
// shifts, three pixels' worth of bytes into each 64-bit half and the halves
// joined; every 16-byte store carries twelve bytes, the next store
// overwriting the other four, and the last writes exactly its twelve.
struct Sse2Store {
    // Four pixels as (b, g, r, 0) to their twelve bytes at the start.
    [[gnu::always_inline]] static __m128i Squeeze(__m128i pixels) {
        const __m128i first = _mm_set_epi32(0, 0x00FFFFFF, 0, 0x00FFFFFF);
        const __m128i second =
            _mm_set_epi32(0x0000FFFF, static_cast<int32_t>(0xFF000000), 0x0000FFFF, static_cast<int32_t>(0xFF000000));
        const __m128i halves =
            _mm_or_si128(_mm_and_si128(pixels, first), _mm_and_si128(_mm_srli_epi64(pixels, 8), second));
        return _mm_or_si128(_mm_move_epi64(halves), _mm_slli_si128(_mm_unpackhi_epi64(halves, halves), 6));
    }
    [[gnu::always_inline]] static void Store(uint8_t* out, const Pixels& p) {
        const __m128i zero = _mm_setzero_si128();
        const __m128i bg0 = _mm_unpacklo_epi8(p.blue, p.green), bg1 = _mm_unpackhi_epi8(p.blue, p.green);
        const __m128i r0 = _mm_unpacklo_epi8(p.red, zero), r1 = _mm_unpackhi_epi8(p.red, zero);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), Squeeze(_mm_unpacklo_epi16(bg0, r0)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 12), Squeeze(_mm_unpackhi_epi16(bg0, r0)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 24), Squeeze(_mm_unpacklo_epi16(bg1, r1)));
        const __m128i last = Squeeze(_mm_unpackhi_epi16(bg1, r1));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + 36), last);
        const int32_t tail = _mm_cvtsi128_si32(_mm_srli_si128(last, 8));
        std::memcpy(out + 44, &tail, 4);
    }
};

// With SSSE3, each 16 bytes of output gathers its bytes from the three
// channel registers with one shuffle each: shuffle table [k][c] takes
// channel c (blue, green, red) to its places in output bytes 16k..16k+15,
// zero (0x80) everywhere else.
struct ShuffleTables {
    alignas(16) uint8_t table[3][3][16];
};
constexpr ShuffleTables MakeShuffleTables() {
    ShuffleTables t{};
    for (int k = 0; k < 3; ++k) {
        for (int c = 0; c < 3; ++c) {
            for (int i = 0; i < 16; ++i) {
                const int at = 16 * k + i;
                t.table[k][c][i] = static_cast<uint8_t>(at % 3 == c ? at / 3 : 0x80);
            }
        }
    }
    return t;
}
static const ShuffleTables kShuffles = MakeShuffleTables();

struct Ssse3Store {
    __attribute__((target("ssse3"))) static void Store(uint8_t* out, const Pixels& p) {
        for (int k = 0; k < 3; ++k) {
            const __m128i* masks = reinterpret_cast<const __m128i*>(kShuffles.table[k]);
            const __m128i bytes = _mm_or_si128(_mm_or_si128(_mm_shuffle_epi8(p.blue, _mm_load_si128(masks)),
                                                            _mm_shuffle_epi8(p.green, _mm_load_si128(masks + 1))),
                                               _mm_shuffle_epi8(p.red, _mm_load_si128(masks + 2)));
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 16 * k), bytes);
        }
    }
};

// ---- Steps of sixteen pixels --------------------------------------------------------

// The chroma terms of sixteen pixels: low for pixels 0..7, high for 8..15.
template <bool Halved>
[[gnu::always_inline]] inline void SixteenTerms(const uint8_t* cb, const uint8_t* cr, Terms& low, Terms& high) {
    if constexpr (Halved) {
        // Eight chroma samples, each the terms of two neighbouring pixels.
        const Terms eight = ChromaTerms(Low16(Load8(cb)), Low16(Load8(cr)));
        low = {_mm_unpacklo_epi16(eight.red, eight.red), _mm_unpacklo_epi16(eight.green, eight.green),
               _mm_unpacklo_epi16(eight.blue, eight.blue)};
        high = {_mm_unpackhi_epi16(eight.red, eight.red), _mm_unpackhi_epi16(eight.green, eight.green),
                _mm_unpackhi_epi16(eight.blue, eight.blue)};
    } else {
        const __m128i b = Load16(cb), r = Load16(cr);
        low = ChromaTerms(Low16(b), Low16(r));
        high = ChromaTerms(High16(b), High16(r));
    }
}

// Converts sixteen pixels of `count` rows starting at pixel `x` of the
// given rows (chroma at x / 2 when halved) to out[r] + 3 x.
template <typename Store, ColorKind Kind, bool Halved, uint32_t Count>
[[gnu::always_inline]] inline void SseStep(const uint8_t* const (&planes)[2][4], uint8_t* const (&out)[2], size_t x) {
    if constexpr (Kind == ColorKind::Rgb) {
        Store::Store(out[0] + 3 * x, {Load16(planes[0][2] + x), Load16(planes[0][1] + x), Load16(planes[0][0] + x)});
    } else if constexpr (Kind == ColorKind::Cmyk) {
        const Pixels ink = {Load16(planes[0][2] + x), Load16(planes[0][1] + x), Load16(planes[0][0] + x)};
        Store::Store(out[0] + 3 * x, DarkenAll(ink, Load16(planes[0][3] + x)));
    } else {
        const size_t chroma = Halved ? x / 2 : x;
        Terms low, high;
        SixteenTerms<Halved>(planes[0][1] + chroma, planes[0][2] + chroma, low, high);
        for (uint32_t r = 0; r < Count; ++r) {
            const Pixels rgb = AddLuma(Load16(planes[r][0] + x), low, high);
            if constexpr (Kind == ColorKind::Ycck) {
                // The YCbCr gives the complements of the stored inks.
                const __m128i ones = _mm_set1_epi8(-1);
                const Pixels ink = {_mm_xor_si128(rgb.blue, ones), _mm_xor_si128(rgb.green, ones),
                                    _mm_xor_si128(rgb.red, ones)};
                Store::Store(out[r] + 3 * x, DarkenAll(ink, Load16(planes[r][3] + x)));
            } else {
                Store::Store(out[r] + 3 * x, rgb);
            }
        }
    }
}

// The SSE2 and SSSE3 routes: sixteen pixels a step.
template <typename Store>
struct SseLanes {
    static constexpr size_t kStep = 16;
    template <ColorKind Kind, bool Halved, uint32_t Count>
    [[gnu::always_inline]] static void Step(const uint8_t* const (&planes)[2][4], uint8_t* const (&out)[2], size_t x) {
        SseStep<Store, Kind, Halved, Count>(planes, out, x);
    }
};

#if defined(VELMORA_COLOR_AVX2)
// ---- AVX2: thirty-two pixels a step ------------------------------------------------------
// The same arithmetic in 256-bit registers. Unpacks and packs work within
// each 128-bit half, so widening 32 bytes gives pixels 0..7 and 16..23 in
// one register and 8..15 and 24..31 in the other, and packing them back
// restores the order; chroma and luma are widened alike, so the pixels
// meet their own terms.
#define VELMORA_AVX2 __attribute__((target("avx2")))

struct Terms32 {
    __m256i red, green, blue;
};

VELMORA_AVX2 inline Terms32 ChromaTerms32(__m256i cb, __m256i cr) {
    const __m256i centre = _mm256_set1_epi16(128), one = _mm256_set1_epi16(1);
    cb = _mm256_sub_epi16(cb, centre);
    cr = _mm256_sub_epi16(cr, centre);
    const __m256i cb2 = _mm256_add_epi16(cb, cb), cr2 = _mm256_add_epi16(cr, cr);
    Terms32 terms;
    terms.red = _mm256_add_epi16(
        cr, _mm256_srai_epi16(_mm256_add_epi16(_mm256_mulhi_epi16(cr2, _mm256_set1_epi16(kCrToRRest)), one), 1));
    terms.blue = _mm256_add_epi16(
        cb2, _mm256_srai_epi16(_mm256_add_epi16(_mm256_mulhi_epi16(cb2, _mm256_set1_epi16(kCbToBRest)), one), 1));
    const __m256i weights = _mm256_set1_epi32(
        static_cast<int32_t>(static_cast<uint16_t>(kCbToGRest) | static_cast<uint32_t>(kCrToGRest) << 16));
    const __m256i half = _mm256_set1_epi32(1 << 15);
    const __m256i low = _mm256_madd_epi16(_mm256_unpacklo_epi16(cb, cr), weights);
    const __m256i high = _mm256_madd_epi16(_mm256_unpackhi_epi16(cb, cr), weights);
    const __m256i green = _mm256_packs_epi32(_mm256_srai_epi32(_mm256_add_epi32(low, half), 16),
                                             _mm256_srai_epi32(_mm256_add_epi32(high, half), 16));
    terms.green = _mm256_sub_epi16(green, cr);
    return terms;
}

struct Pixels32 {
    __m256i blue, green, red;
};

VELMORA_AVX2 inline __m256i Load32(const uint8_t* at) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(at));
}
VELMORA_AVX2 inline __m256i Low32(__m256i bytes) { return _mm256_unpacklo_epi8(bytes, _mm256_setzero_si256()); }
VELMORA_AVX2 inline __m256i High32(__m256i bytes) { return _mm256_unpackhi_epi8(bytes, _mm256_setzero_si256()); }

VELMORA_AVX2 inline Pixels32 AddLuma32(__m256i luma, const Terms32& low, const Terms32& high) {
    const __m256i y0 = Low32(luma), y1 = High32(luma);
    return {_mm256_packus_epi16(_mm256_add_epi16(y0, low.blue), _mm256_add_epi16(y1, high.blue)),
            _mm256_packus_epi16(_mm256_add_epi16(y0, low.green), _mm256_add_epi16(y1, high.green)),
            _mm256_packus_epi16(_mm256_add_epi16(y0, low.red), _mm256_add_epi16(y1, high.red))};
}

VELMORA_AVX2 inline __m256i Darken32(__m256i value, __m256i blackLow, __m256i blackHigh) {
    const __m256i scale = _mm256_set1_epi16(static_cast<int16_t>(0x8081));
    const __m256i low = _mm256_srli_epi16(_mm256_mulhi_epu16(_mm256_mullo_epi16(Low32(value), blackLow), scale), 7);
    const __m256i high = _mm256_srli_epi16(_mm256_mulhi_epu16(_mm256_mullo_epi16(High32(value), blackHigh), scale), 7);
    return _mm256_packus_epi16(low, high);
}

VELMORA_AVX2 inline Pixels32 DarkenAll32(const Pixels32& ink, __m256i black) {
    const __m256i low = Low32(black), high = High32(black);
    return {Darken32(ink.blue, low, high), Darken32(ink.green, low, high), Darken32(ink.red, low, high)};
}

// The 96 output bytes are three registers. Shuffles stay within 128-bit
// halves, so each output half draws on the channel half that holds its
// pixels: the first register on pixels 0..15 in both halves, the second on
// 0..15 and 16..31 as they lie, the third on 16..31 in both. Table [k][c]
// places channel c in output register k.
struct WideShuffleTables {
    alignas(32) uint8_t table[3][3][32];
};
constexpr WideShuffleTables MakeWideShuffleTables() {
    WideShuffleTables t{};
    for (int k = 0; k < 3; ++k) {
        for (int c = 0; c < 3; ++c) {
            for (int i = 0; i < 32; ++i) {
                const int at = 32 * k + i, pixel = at / 3;
                const int base = (k == 0 || (k == 1 && i < 16)) ? 0 : 16;
                t.table[k][c][i] = static_cast<uint8_t>(at % 3 == c ? pixel - base : 0x80);
            }
        }
    }
    return t;
}
static const WideShuffleTables kWideShuffles = MakeWideShuffleTables();

VELMORA_AVX2 inline void Store96(uint8_t* out, const Pixels32& p) {
    const __m256i channels[3] = {p.blue, p.green, p.red};
    __m256i bytes[3] = {_mm256_setzero_si256(), _mm256_setzero_si256(), _mm256_setzero_si256()};
    for (int c = 0; c < 3; ++c) {
        const __m256i sources[3] = {_mm256_permute4x64_epi64(channels[c], 0x44), channels[c],
                                    _mm256_permute4x64_epi64(channels[c], 0xEE)};
        for (int k = 0; k < 3; ++k) {
            const __m256i mask = _mm256_load_si256(reinterpret_cast<const __m256i*>(kWideShuffles.table[k][c]));
            bytes[k] = _mm256_or_si256(bytes[k], _mm256_shuffle_epi8(sources[k], mask));
        }
    }
    for (int k = 0; k < 3; ++k) _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 32 * k), bytes[k]);
}

struct Avx2Lanes {
    static constexpr size_t kStep = 32;
    template <ColorKind Kind, bool Halved, uint32_t Count>
    VELMORA_AVX2 static void Step(const uint8_t* const (&planes)[2][4], uint8_t* const (&out)[2], size_t x) {
        if constexpr (Kind == ColorKind::Rgb) {
            Store96(out[0] + 3 * x, {Load32(planes[0][2] + x), Load32(planes[0][1] + x), Load32(planes[0][0] + x)});
        } else if constexpr (Kind == ColorKind::Cmyk) {
            const Pixels32 ink = {Load32(planes[0][2] + x), Load32(planes[0][1] + x), Load32(planes[0][0] + x)};
            Store96(out[0] + 3 * x, DarkenAll32(ink, Load32(planes[0][3] + x)));
        } else {
            Terms32 low, high;
            if constexpr (Halved) {
                // Sixteen chroma samples widened in order put 0..7 and
                // 8..15 in the two halves; doubling each gives the terms
                // of pixels 0..7 and 16..23, and of 8..15 and 24..31.
                const __m256i cb =
                    _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(planes[0][1] + x / 2)));
                const __m256i cr =
                    _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(planes[0][2] + x / 2)));
                const Terms32 t = ChromaTerms32(cb, cr);
                low = {_mm256_unpacklo_epi16(t.red, t.red), _mm256_unpacklo_epi16(t.green, t.green),
                       _mm256_unpacklo_epi16(t.blue, t.blue)};
                high = {_mm256_unpackhi_epi16(t.red, t.red), _mm256_unpackhi_epi16(t.green, t.green),
                        _mm256_unpackhi_epi16(t.blue, t.blue)};
            } else {
                const __m256i cb = Load32(planes[0][1] + x), cr = Load32(planes[0][2] + x);
                low = ChromaTerms32(Low32(cb), Low32(cr));
                high = ChromaTerms32(High32(cb), High32(cr));
            }
            for (uint32_t r = 0; r < Count; ++r) {
                const Pixels32 rgb = AddLuma32(Load32(planes[r][0] + x), low, high);
                if constexpr (Kind == ColorKind::Ycck) {
                    const __m256i ones = _mm256_set1_epi8(-1);
                    const Pixels32 ink = {_mm256_xor_si256(rgb.blue, ones), _mm256_xor_si256(rgb.green, ones),
                                          _mm256_xor_si256(rgb.red, ones)};
                    Store96(out[r] + 3 * x, DarkenAll32(ink, Load32(planes[r][3] + x)));
                } else {
                    Store96(out[r] + 3 * x, rgb);
                }
            }
        }
    }
};
#endif

constexpr uint32_t Components(ColorKind kind) { return kind == ColorKind::Cmyk || kind == ColorKind::Ycck ? 4 : 3; }

// Whole steps along the rows, then the last pixels through copies padded
// to a whole step.
template <typename Lanes, ColorKind Kind, bool Halved, uint32_t Count>
[[gnu::always_inline]] inline void Run(const VectorRows& rows) {
    constexpr size_t step = Lanes::kStep;
    const size_t width = rows.width;
    size_t x = 0;
    for (; x + step <= width; x += step) Lanes::template Step<Kind, Halved, Count>(rows.planes, rows.out, x);
    if (x == width) return;

    const size_t left = width - x;
    alignas(32) uint8_t padded[2][4][step] = {};
    alignas(32) uint8_t result[2][3 * step];
    const uint8_t* planes[2][4] = {};
    uint8_t* const out[2] = {result[0], result[1]};
    for (uint32_t r = 0; r < Count; ++r) {
        for (uint32_t c = 0; c < Components(Kind); ++c) {
            const bool chroma = c == 1 || c == 2;
            planes[r][c] = padded[r][c];
            if (chroma && r > 0) continue;  // shared with row 0
            if (chroma && Halved) {
                std::memcpy(padded[r][c], rows.planes[r][c] + x / 2, (left + 1) / 2);
            } else {
                std::memcpy(padded[r][c], rows.planes[r][c] + x, left);
            }
        }
    }
    Lanes::template Step<Kind, Halved, Count>(planes, out, 0);
    for (uint32_t r = 0; r < Count; ++r) std::memcpy(rows.out[r] + 3 * x, result[r], 3 * left);
}

template <typename Lanes, ColorKind Kind>
[[gnu::always_inline]] inline void RunShared(const VectorRows& rows) {
    if (rows.halved) {
        rows.count == 2 ? Run<Lanes, Kind, true, 2>(rows) : Run<Lanes, Kind, true, 1>(rows);
    } else {
        rows.count == 2 ? Run<Lanes, Kind, false, 2>(rows) : Run<Lanes, Kind, false, 1>(rows);
    }
}

// Kinds without shared chroma terms convert their rows one by one.
template <typename Lanes, ColorKind Kind>
[[gnu::always_inline]] inline void RunEach(const VectorRows& rows) {
    for (uint32_t r = 0; r < rows.count; ++r) {
        VectorRows one;
        for (uint32_t c = 0; c < 4; ++c) one.planes[0][c] = rows.planes[r][c];
        one.out[0] = rows.out[r];
        one.width = rows.width;
        Run<Lanes, Kind, false, 1>(one);
    }
}

template <typename Lanes>
[[gnu::always_inline]] inline void Convert(const VectorRows& rows) {
    switch (rows.kind) {
        case ColorKind::YCbCr: RunShared<Lanes, ColorKind::YCbCr>(rows); break;
        case ColorKind::Ycck: RunShared<Lanes, ColorKind::Ycck>(rows); break;
        case ColorKind::Rgb: RunEach<Lanes, ColorKind::Rgb>(rows); break;
        case ColorKind::Cmyk: RunEach<Lanes, ColorKind::Cmyk>(rows); break;
        case ColorKind::Grey:
        case ColorKind::InkCmyk:
        case ColorKind::InkYcck: break;  // never given to the vector routes
    }
}

void ConvertSse2(const VectorRows& rows) { Convert<SseLanes<Sse2Store>>(rows); }

__attribute__((target("ssse3"))) void ConvertSsse3(const VectorRows& rows) { Convert<SseLanes<Ssse3Store>>(rows); }

#if defined(VELMORA_COLOR_AVX2)
__attribute__((target("avx2"), flatten)) void ConvertAvx2(const VectorRows& rows) { Convert<Avx2Lanes>(rows); }
#endif

bool Supports(ColorRoute route) {
    __builtin_cpu_init();
    switch (route) {
        case ColorRoute::Portable:
        case ColorRoute::Sse2: return true;
        case ColorRoute::Ssse3: return __builtin_cpu_supports("ssse3");
#if defined(VELMORA_COLOR_AVX2)
        case ColorRoute::Avx2: return __builtin_cpu_supports("avx2");
#else
        case ColorRoute::Avx2: return false;
#endif
    }
    return false;
}

}  // namespace

bool ColorRouteAvailable(ColorRoute route) {
    static const bool ssse3 = Supports(ColorRoute::Ssse3), avx2 = Supports(ColorRoute::Avx2);
    return route == ColorRoute::Ssse3 ? ssse3 : route == ColorRoute::Avx2 ? avx2 : true;
}

void ConvertVectorRows(ColorRoute route, const VectorRows& rows) {
    switch (route) {
        case ColorRoute::Sse2: ConvertSse2(rows); break;
        case ColorRoute::Ssse3: ConvertSsse3(rows); break;
#if defined(VELMORA_COLOR_AVX2)
        case ColorRoute::Avx2: ConvertAvx2(rows); break;
#else
        case ColorRoute::Avx2: break;
#endif
        case ColorRoute::Portable: break;
    }
}

#else  // no vector routes in this build

bool ColorRouteAvailable(ColorRoute route) { return route == ColorRoute::Portable; }

void ConvertVectorRows(ColorRoute, const VectorRows&) {}

#endif

ColorRoute BestColorRoute() {
    static const ColorRoute best = [] {
        for (ColorRoute route : {ColorRoute::Avx2, ColorRoute::Ssse3, ColorRoute::Sse2}) {
            if (ColorRouteAvailable(route)) return route;
        }
        return ColorRoute::Portable;
    }();
    return best;
}

}  // namespace velmora::jpeg
