#include "jpeg/jpeg_color.h"

#include <bit>
#include <cstring>

#include "jpeg/jpeg_color_routes.h"
#include "jpeg/jpeg_upsample.h"

namespace velmora::jpeg {
namespace {

// ---- Upsampling by replication ---------------------------------------------
// Each routine fills `width` output samples from one component row whose
// samples cover `ratio` output columns each (the last one possibly fewer).

void ReplicateBy2(const uint8_t* __restrict source, uint8_t* __restrict target, uint32_t width) {
    const uint32_t pairs = width / 2;
    for (uint32_t i = 0; i < pairs; ++i) {
        target[2 * i] = source[i];
        target[2 * i + 1] = source[i];
    }
    if (width & 1) target[width - 1] = source[pairs];
}

void ReplicateByN(const uint8_t* __restrict source, uint8_t* __restrict target, uint32_t width, uint32_t ratio) {
    uint32_t x = 0;
    for (uint32_t i = 0; x < width; ++i) {
        const uint32_t end = width - x < ratio ? width : x + ratio;
        for (; x < end; ++x) target[x] = source[i];
    }
}

// Factors that do not divide each other: column x takes sample x * h / hMax.
void ReplicateFraction(const uint8_t* __restrict source, uint8_t* __restrict target, uint32_t width, uint32_t h,
                       uint32_t hMax) {
    for (uint32_t x = 0; x < width; ++x) target[x] = source[uint64_t{x} * h / hMax];
}

// ---- Interpolation (jpeg_upsample.h) -------------------------------------------

// The samples of the component's rows that belong to the image.
uint32_t SamplesWide(const ComponentBand& component, uint32_t width, uint8_t hMax) {
    if (component.samplesWide != 0) return component.samplesWide;
    return static_cast<uint32_t>((uint64_t{width} * component.h + hMax - 1) / hMax);
}

// Whether the component is interpolated rather than replicated.
bool Interpolated(const ComponentBand& component, uint32_t width, uint8_t hMax, uint8_t vMax) {
    const bool across = hMax == 2 * component.h, down = vMax == 2 * component.v;
    const bool wholeAcross = across || hMax == component.h, wholeDown = down || vMax == component.v;
    if (!wholeAcross || !wholeDown || (!across && !down)) return false;
    return !across || SamplesWide(component, width, hMax) > 2;
}

// The component row `j` of the band, or the row standing in for it above
// the band's first row and below its last real one.
const uint8_t* ComponentRow(const ComponentBand& component, int64_t j) {
    if (j < 0) return component.above != nullptr ? component.above : component.samples;
    if (j > static_cast<int64_t>(component.lastRow)) {
        const bool bandEnd = component.below != nullptr;
        j = component.lastRow;
        if (bandEnd) return component.below;
    }
    return component.samples + static_cast<ptrdiff_t>(j) * component.stride;
}

// The component row for output row `row` of the band, widened to `width`
// samples in `scratch` when the component is subsampled.
const uint8_t* FullWidthRow(const ComponentBand& component, uint32_t row, uint32_t width, uint8_t hMax, uint8_t vMax,
                            uint8_t* scratch) {
    const uint32_t j = row * component.v / vMax;
    const uint8_t* source = component.samples + static_cast<ptrdiff_t>(j) * component.stride;
    const uint32_t h = component.h;
    if (Interpolated(component, width, hMax, vMax)) {
        const bool down = vMax == 2 * component.v, lower = (row & 1) != 0;
        const uint32_t n = SamplesWide(component, width, hMax);
        if (!down) {
            TriangleAcross(source, n, scratch, width);
        } else {
            const uint8_t* other = ComponentRow(component, lower ? int64_t{j} + 1 : int64_t{j} - 1);
            if (hMax == 2 * h) {
                TriangleBoth(source, other, n, scratch, width);
            } else {
                TriangleDown(source, other, lower, scratch, width);
            }
        }
        return scratch;
    }
    if (h >= hMax) return source;
    if (hMax == 2 * h) {
        ReplicateBy2(source, scratch, width);
    } else if (hMax % h == 0) {
        ReplicateByN(source, scratch, width, hMax / h);
    } else {
        ReplicateFraction(source, scratch, width, h, hMax);
    }
    return scratch;
}

// ---- Colour conversion --------------------------------------------------------
// JFIF YCbCr to RGB (JFIF 1.02, with the coefficients of CCIR 601):
//   R = Y + 1.402 (Cr - 128)
//   G = Y - 0.34414 (Cb - 128) - 0.71414 (Cr - 128)
//   B = Y + 1.772 (Cb - 128)
// in 16-bit fixed point, each chroma term rounded to the nearest integer
// before it is added to Y, then clamped to 0..255. The products of a
// chroma difference (-128..127) and a coefficient below 2^17 fit easily in
// 32 bits.
constexpr int kScaleBits = 16;
constexpr int32_t kHalf = 1 << (kScaleBits - 1);
constexpr int32_t kCrToR = 91881;   // 1.402 * 2^16
constexpr int32_t kCbToG = 22554;   // 0.34414 * 2^16
constexpr int32_t kCrToG = 46802;   // 0.71414 * 2^16
constexpr int32_t kCbToB = 116130;  // 1.772 * 2^16

inline uint8_t Clamp255(int32_t value) { return static_cast<uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value); }

// The three conversions of one pixel, shared by YCbCr and YCCK.
struct Rgb {
    int32_t r, g, b;
};
inline Rgb YccToRgb(int32_t y, int32_t cb, int32_t cr) {
    cb -= 128;
    cr -= 128;
    return {y + ((kCrToR * cr + kHalf) >> kScaleBits), y + ((kHalf - kCbToG * cb - kCrToG * cr) >> kScaleBits),
            y + ((kCbToB * cb + kHalf) >> kScaleBits)};
}

// Rows are converted in pieces of this many pixels. The arithmetic runs
// over whole pieces of plain arrays, which the compiler vectorises at -O2,
// and leaves each pixel packed in a 32-bit word (blue in the low byte);
// one store per pixel then writes the triples.
constexpr size_t kPiece = 128;

// Writes `count` packed pixels as blue-green-red triples. On little-endian
// targets a pixel is stored as four bytes whose last one the next pixel
// overwrites; so the last pixel of the row is stored as three, and so is
// the last of a piece unless `followed` says more pixels come after it.
void StoreTriples(const uint32_t* __restrict packed, uint8_t* __restrict out, size_t count, bool followed) {
    const size_t wide = followed ? count : count - 1;
    if constexpr (std::endian::native == std::endian::little) {
        for (size_t i = 0; i < wide; ++i) std::memcpy(out + 3 * i, packed + i, 4);
    } else {
        for (size_t i = 0; i < wide; ++i) {
            out[3 * i] = static_cast<uint8_t>(packed[i]);
            out[3 * i + 1] = static_cast<uint8_t>(packed[i] >> 8);
            out[3 * i + 2] = static_cast<uint8_t>(packed[i] >> 16);
        }
    }
    if (followed) return;
    const uint32_t last = packed[count - 1];
    uint8_t* at = out + 3 * (count - 1);
    at[0] = static_cast<uint8_t>(last);
    at[1] = static_cast<uint8_t>(last >> 8);
    at[2] = static_cast<uint8_t>(last >> 16);
}

inline uint32_t Pack(uint32_t red, uint32_t green, uint32_t blue) { return blue | green << 8 | red << 16; }

// Runs `convert` over the row one piece at a time, with `N` input planes.
// The last, partial piece works on copies padded to a whole piece, so that
// the conversions always run over whole pieces.
template <size_t N, typename Convert>
void ConvertPieces(const uint8_t* const (&planes)[N], uint8_t* out, uint32_t width, Convert convert) {
    alignas(16) uint32_t packed[kPiece];
    for (size_t start = 0; start < width; start += kPiece) {
        const size_t count = width - start < kPiece ? width - start : kPiece;
        // The tail copies: only filled for the last piece of a row.
        alignas(16) uint8_t tail[N][kPiece];
        const uint8_t* at[N];
        for (size_t n = 0; n < N; ++n) {
            if (count == kPiece) {
                at[n] = planes[n] + start;
            } else {
                std::memcpy(tail[n], planes[n] + start, count);
                std::memset(tail[n] + count, 0, kPiece - count);
                at[n] = tail[n];
            }
        }
        convert(at, packed);
        // Pieces are stored in order, so a four-byte store may run into the
        // next piece's first pixel, never past the row.
        StoreTriples(packed, out + 3 * start, count, start + count < width);
    }
}

void YccPiece(const uint8_t* __restrict y, const uint8_t* __restrict cb, const uint8_t* __restrict cr,
              uint32_t* __restrict packed) {
    for (size_t i = 0; i < kPiece; ++i) {
        const Rgb rgb = YccToRgb(y[i], cb[i], cr[i]);
        packed[i] = Pack(Clamp255(rgb.r), Clamp255(rgb.g), Clamp255(rgb.b));
    }
}

void RgbPiece(const uint8_t* __restrict r, const uint8_t* __restrict g, const uint8_t* __restrict b,
              uint32_t* __restrict packed) {
    for (size_t i = 0; i < kPiece; ++i) packed[i] = Pack(r[i], g[i], b[i]);
}

// Adobe CMYK as Photoshop and ImageMagick store it is inverted: a stored
// value of 255 means no ink. With stored values c, m, y, k the colour is
//   red = c * k / 255, green = m * k / 255, blue = y * k / 255,
// the division rounding towards zero.
inline uint32_t Darken(uint32_t value, uint32_t black) { return value * black / 255; }

void CmykPiece(const uint8_t* __restrict c, const uint8_t* __restrict m, const uint8_t* __restrict y,
               const uint8_t* __restrict k, uint32_t* __restrict packed) {
    for (size_t i = 0; i < kPiece; ++i) packed[i] = Pack(Darken(c[i], k[i]), Darken(m[i], k[i]), Darken(y[i], k[i]));
}

// Adobe YCCK: the first three components are the YCbCr of 255 - c,
// 255 - m, 255 - y for the stored (inverted) CMYK values, the fourth is k
// as stored. YCbCr to RGB gives those complements; from there as CMYK.
void YcckPiece(const uint8_t* __restrict y, const uint8_t* __restrict cb, const uint8_t* __restrict cr,
               const uint8_t* __restrict k, uint32_t* __restrict packed) {
    for (size_t i = 0; i < kPiece; ++i) {
        const Rgb rgb = YccToRgb(y[i], cb[i], cr[i]);
        packed[i] = Pack(Darken(255 - Clamp255(rgb.r), k[i]), Darken(255 - Clamp255(rgb.g), k[i]),
                         Darken(255 - Clamp255(rgb.b), k[i]));
    }
}

// Ink amounts of a separated page: 0 is no ink, so each colour is the
// complement of its ink darkened by the complement of black.
void InkCmykPiece(const uint8_t* __restrict c, const uint8_t* __restrict m, const uint8_t* __restrict y,
                  const uint8_t* __restrict k, uint32_t* __restrict packed) {
    for (size_t i = 0; i < kPiece; ++i) {
        const uint32_t white = 255u - k[i];
        packed[i] = Pack(Darken(255u - c[i], white), Darken(255u - m[i], white), Darken(255u - y[i], white));
    }
}

void InkYcckPiece(const uint8_t* __restrict y, const uint8_t* __restrict cb, const uint8_t* __restrict cr,
                  const uint8_t* __restrict k, uint32_t* __restrict packed) {
    for (size_t i = 0; i < kPiece; ++i) {
        const Rgb rgb = YccToRgb(y[i], cb[i], cr[i]);
        const uint32_t white = 255u - k[i];
        packed[i] = Pack(Darken(Clamp255(rgb.r), white), Darken(Clamp255(rgb.g), white), Darken(Clamp255(rgb.b), white));
    }
}

uint32_t ComponentCount(ColorKind kind) {
    switch (kind) {
        case ColorKind::Grey: return 1;
        case ColorKind::YCbCr:
        case ColorKind::Rgb: return 3;
        case ColorKind::Cmyk:
        case ColorKind::Ycck:
        case ColorKind::InkCmyk:
        case ColorKind::InkYcck: return 4;
    }
    return 0;
}

// The band loop of the portable route: each row's components widened to
// full width as needed, then converted in pieces.
void ConvertPortable(ColorKind kind, uint32_t count, const ComponentBand* components, uint32_t width, uint32_t rows,
                     uint8_t hMax, uint8_t vMax, uint8_t* output, ptrdiff_t outputStride, uint8_t* scratch) {
    for (uint32_t row = 0; row < rows; ++row) {
        uint8_t* out = output + static_cast<ptrdiff_t>(row) * outputStride;
        const uint8_t* planes[4];
        for (uint32_t i = 0; i < count; ++i) {
            planes[i] = FullWidthRow(components[i], row, width, hMax, vMax, scratch + size_t{i} * width);
        }
        switch (kind) {
            case ColorKind::Grey:
                if (planes[0] != out) std::memcpy(out, planes[0], width);
                break;
            case ColorKind::YCbCr: {
                const uint8_t* const three[3] = {planes[0], planes[1], planes[2]};
                ConvertPieces(three, out, width,
                              [](const uint8_t* const* p, uint32_t* packed) { YccPiece(p[0], p[1], p[2], packed); });
                break;
            }
            case ColorKind::Rgb: {
                const uint8_t* const three[3] = {planes[0], planes[1], planes[2]};
                ConvertPieces(three, out, width,
                              [](const uint8_t* const* p, uint32_t* packed) { RgbPiece(p[0], p[1], p[2], packed); });
                break;
            }
            case ColorKind::Cmyk:
                ConvertPieces(planes, out, width, [](const uint8_t* const* p, uint32_t* packed) {
                    CmykPiece(p[0], p[1], p[2], p[3], packed);
                });
                break;
            case ColorKind::Ycck:
                ConvertPieces(planes, out, width, [](const uint8_t* const* p, uint32_t* packed) {
                    YcckPiece(p[0], p[1], p[2], p[3], packed);
                });
                break;
            case ColorKind::InkCmyk:
                ConvertPieces(planes, out, width, [](const uint8_t* const* p, uint32_t* packed) {
                    InkCmykPiece(p[0], p[1], p[2], p[3], packed);
                });
                break;
            case ColorKind::InkYcck:
                ConvertPieces(planes, out, width, [](const uint8_t* const* p, uint32_t* packed) {
                    InkYcckPiece(p[0], p[1], p[2], p[3], packed);
                });
                break;
        }
    }
}

// The component's row for output row `row` of the band.
const uint8_t* SourceRow(const ComponentBand& component, uint32_t row, uint8_t vMax) {
    return component.samples + static_cast<ptrdiff_t>(row * component.v / vMax) * component.stride;
}

// The band loop of the vector routes. The chroma components of YCbCr and
// YCCK images subsampled 2:1 across are read as they are (the vector code
// uses each sample for two pixels), and when consecutive output rows read
// the same chroma rows and need no widened rows of their own they are
// converted together, the chroma arithmetic done once for both. Anything
// else is widened as in the portable route.
void ConvertVector(ColorRoute route, ColorKind kind, uint32_t count, const ComponentBand* components, uint32_t width,
                   uint32_t rows, uint8_t hMax, uint8_t vMax, uint8_t* output, ptrdiff_t outputStride,
                   uint8_t* scratch) {
    const bool chromaKind = kind == ColorKind::YCbCr || kind == ColorKind::Ycck;
    VectorRows step;
    step.kind = kind;
    step.width = width;
    const bool interpolated =
        Interpolated(components[1], width, hMax, vMax) || Interpolated(components[2], width, hMax, vMax);
    step.halved = chromaKind && !interpolated && components[1].h == components[2].h && hMax == 2 * components[1].h;
    // Components 0 and 3 (when present) belong to each output row, 1 and 2
    // may be shared; rows can only be paired when the own components need
    // no scratch space.
    bool ownAtFullWidth = components[0].h >= hMax;
    if (count == 4) ownAtFullWidth = ownAtFullWidth && components[3].h >= hMax;

    for (uint32_t row = 0; row < rows; row += step.count) {
        for (uint32_t i = 0; i < count; ++i) {
            const bool shared = i == 1 || i == 2;
            step.planes[0][i] = shared && step.halved
                                    ? SourceRow(components[i], row, vMax)
                                    : FullWidthRow(components[i], row, width, hMax, vMax, scratch + size_t{i} * width);
        }
        step.out[0] = output + static_cast<ptrdiff_t>(row) * outputStride;
        step.count = 1;
        if (chromaKind && !interpolated && ownAtFullWidth && row + 1 < rows &&
            SourceRow(components[1], row, vMax) == SourceRow(components[1], row + 1, vMax) &&
            SourceRow(components[2], row, vMax) == SourceRow(components[2], row + 1, vMax)) {
            step.count = 2;
            step.planes[1][0] = SourceRow(components[0], row + 1, vMax);
            if (count == 4) step.planes[1][3] = SourceRow(components[3], row + 1, vMax);
            step.out[1] = step.out[0] + outputStride;
        }
        ConvertVectorRows(route, step);
    }
}

}  // namespace

void ConvertBandBy(ColorRoute route, ColorKind kind, const ComponentBand* components, uint32_t width, uint32_t rows,
                   uint8_t hMax, uint8_t vMax, uint8_t* output, ptrdiff_t outputStride, uint8_t* scratch) {
    const uint32_t count = ComponentCount(kind);
    if (count == 0 || width == 0 || hMax == 0 || vMax == 0) return;
    // Without a stated last row, the band's rows are all the image has.
    ComponentBand bands[4];
    for (uint32_t i = 0; i < count; ++i) {
        bands[i] = components[i];
        if (bands[i].lastRow == 0xFFFFFFFF) bands[i].lastRow = (rows * bands[i].v + vMax - 1) / vMax - 1;
    }
    components = bands;
    // Separated TIFF pages are rare enough to take the portable route.
    if (route == ColorRoute::Portable || kind == ColorKind::Grey || kind == ColorKind::InkCmyk ||
        kind == ColorKind::InkYcck) {
        ConvertPortable(kind, count, components, width, rows, hMax, vMax, output, outputStride, scratch);
    } else {
        ConvertVector(route, kind, count, components, width, rows, hMax, vMax, output, outputStride, scratch);
    }
}

void ConvertBand(ColorKind kind, const ComponentBand* components, uint32_t width, uint32_t rows, uint8_t hMax,
                 uint8_t vMax, uint8_t* output, ptrdiff_t outputStride, uint8_t* scratch) {
    ConvertBandBy(BestColorRoute(), kind, components, width, rows, hMax, vMax, output, outputStride, scratch);
}

}  // namespace velmora::jpeg
