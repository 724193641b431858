#include "tiff/page_format.h"

#include <cmath>
#include <cstring>

#include "io/stream.h"
#include "tiff/compression.h"

namespace velmora {
namespace {

constexpr uint16_t kPhotometricMinIsWhite = 0;
constexpr uint16_t kPhotometricMinIsBlack = 1;
constexpr uint16_t kPhotometricRgb = 2;
constexpr uint16_t kPhotometricPalette = 3;
constexpr uint16_t kPhotometricMask = 4;
constexpr uint16_t kPhotometricSeparated = 5;
constexpr uint16_t kPhotometricYcbcr = 6;
constexpr uint16_t kPhotometricAbsent = 0xFFFF;
constexpr uint16_t kPlanarSeparate = 2;
constexpr uint32_t kT6Uncompressed = 0x2;
constexpr uint16_t kPrivateRunLength = 50000;

bool Unsupported(TiffFile* tiff, ErrorRecord* record) {
    StreamFail(GetTiffStream(tiff), kErrUnsupportedImageType, record);
    return false;
}

double Rational(const TiffRational& r) { return r.denominator == 0 ? 0.0 : double(r.numerator) / r.denominator; }

// The grey ramp of a `bits`-bit sample: value v is v * 255 / (2^bits - 1),
// entry 0 black, or white when the page stores white as zero.
void GreyRamp(PageFormat* format, uint16_t bits, bool whiteIsZero) {
    uint32_t n = 1u << bits;
    for (uint32_t i = 0; i < n; ++i) {
        uint8_t v = static_cast<uint8_t>(i * 255 / (n - 1));
        if (whiteIsZero) v = static_cast<uint8_t>(255 - v);
        format->table[i] = RGBQUAD{v, v, v, 0};
    }
    format->tableCount = 1u << format->dibBits;
}

// The colour map's entries, high byte of each 16-bit value.
void PaletteFromColorMap(PageFormat* format, const TiffPageInfo& info, uint16_t bits) {
    uint32_t n = 1u << bits;
    const uint64_t* map = info.colorMap.values;
    for (uint32_t i = 0; i < n && map != nullptr && 3 * n <= info.colorMap.count; ++i) {
        format->table[i] = RGBQUAD{static_cast<BYTE>(map[2 * n + i] >> 8), static_cast<BYTE>(map[n + i] >> 8),
                                   static_cast<BYTE>(map[i] >> 8), 0};
    }
    format->tableCount = 1u << format->dibBits;
}

// TIFF 6.0 section 21: codes through ReferenceBlackWhite, then the luma
// coefficients, in double precision once per page.
void BuildYcbcrTables(PageFormat* format, const TiffPageInfo& info) {
    double lumaRed = Rational(info.ycbcrCoefficients[0]);
    double lumaGreen = Rational(info.ycbcrCoefficients[1]);
    double lumaBlue = Rational(info.ycbcrCoefficients[2]);
    if (lumaGreen == 0) lumaGreen = 1;
    double rb[6];
    for (int i = 0; i < 6; ++i) rb[i] = Rational(info.referenceBlackWhite[i]);
    auto scale = [](double code, double black, double white, double range) {
        double span = white - black;
        return (code - black) * range / (span == 0 ? 1 : span);
    };
    for (int c = 0; c < 256; ++c) {
        format->lumaOf[c] = scale(c, rb[0], rb[1], 255);
        double cb = scale(c, rb[2], rb[3], 127);
        double cr = scale(c, rb[4], rb[5], 127);
        format->redOfCr[c] = cr * (2 - 2 * lumaRed);
        format->blueOfCb[c] = cb * (2 - 2 * lumaBlue);
        format->greenOfCb[c] = -lumaBlue * format->blueOfCb[c] / lumaGreen;
        format->greenOfCr[c] = -lumaRed * format->redOfCr[c] / lumaGreen;
    }
}

uint8_t Clamp(double v) {
    double r = std::floor(v + 0.5);
    return static_cast<uint8_t>(r < 0 ? 0 : r > 255 ? 255 : r);
}

// JPEG pages come out of the JPEG decoder as finished pixels: grey, or
// blue-green-red triples whatever the photometric interpretation (the
// decoder turns YCbCr into RGB itself), eight bits per sample.
bool ChooseJpegFormat(TiffFile* tiff, const TiffPageInfo& info, PageFormat* format, ErrorRecord* record) {
    uint16_t photometric = info.photometric;
    if (photometric == kPhotometricPalette || photometric == kPhotometricMask) {
        StreamFail(GetTiffStream(tiff), kErrBadFileData, record);
        return false;
    }
    const uint16_t samples = info.samplesPerPixel;
    if (photometric == kPhotometricAbsent) photometric = samples >= 3 ? kPhotometricRgb : kPhotometricMinIsBlack;
    const bool planar = info.planarConfiguration == kPlanarSeparate && samples > 1;
    if (info.bitsPerSample != 8 || info.bitsPerSampleDiffer || planar) return Unsupported(tiff, record);
    format->sourceBits = 8;
    switch (photometric) {
        case kPhotometricMinIsWhite:
        case kPhotometricMinIsBlack:
            if (samples != 1) return Unsupported(tiff, record);
            format->kind = SampleKind::kIndex;
            format->dibBits = 8;
            GreyRamp(format, 8, photometric == kPhotometricMinIsWhite);
            return true;
        case kPhotometricRgb:
        case kPhotometricYcbcr:
        case kPhotometricSeparated:
            // Separated pages are four inks (CMYK), turned into colour by the
            // JPEG decoder with the same formula as uncompressed ones.
            if (samples != (photometric == kPhotometricSeparated ? 4 : 3)) return Unsupported(tiff, record);
            if (photometric == kPhotometricSeparated && info.inkSet > 1) return Unsupported(tiff, record);
            format->kind = SampleKind::kRgb;
            format->dibBits = 24;
            format->pixelSamples = 3;
            format->blueFirst = true;
            return true;
        default: return Unsupported(tiff, record);
    }
}

}  // namespace

bool ChoosePageFormat(TiffFile* tiff, const TiffPageInfo& info, PageFormat* format, ErrorRecord* record) {
    if (record->failed()) return false;
    *format = PageFormat();
    const TiffCompression* compression = FindCompression(info.compression);
    if (compression == nullptr) {
        SetRecordError(record, kErrUnknownImageType, 0);
        return false;
    }
    if (compression->coding == StripCoding::Jpeg) return ChooseJpegFormat(tiff, info, format, record);
    if (info.compression == 4 && (info.t6Options & kT6Uncompressed)) return Unsupported(tiff, record);
    if (info.bitsPerSampleDiffer || info.sampleFormat > 1) return Unsupported(tiff, record);

    uint16_t extra = static_cast<uint16_t>(info.extraSamples.count);
    uint16_t samples = info.samplesPerPixel;
    uint16_t colourSamples = samples > extra ? static_cast<uint16_t>(samples - extra) : 0;
    uint16_t bits = info.bitsPerSample;
    uint16_t photometric = info.photometric;
    if (photometric == kPhotometricAbsent) photometric = colourSamples >= 3 ? kPhotometricRgb : kPhotometricMinIsWhite;
    bool planar = info.planarConfiguration == kPlanarSeparate && samples > 1;
    format->sourceBits = bits;
    format->bigEndian = (tiff->flags & kTiffBigEndian) != 0;
    format->pixelSamples = planar ? 1 : samples;

    switch (photometric) {
        case kPhotometricMinIsWhite:
        case kPhotometricMinIsBlack:
        case kPhotometricPalette: {
            // Extra samples (an alpha beside the index) are stepped over; of a
            // planar page only the first plane is read.
            if (colourSamples != 1) return Unsupported(tiff, record);
            bool palette = photometric == kPhotometricPalette;
            if (bits == 16 && !palette) {
                format->kind = SampleKind::kGrey16;
                format->dibBits = 8;
                GreyRamp(format, 8, photometric == kPhotometricMinIsWhite);
                return true;
            }
            if (bits == 0 || bits > 8) return Unsupported(tiff, record);
            format->kind = SampleKind::kIndex;
            format->dibBits = bits == 1 ? 1 : bits <= 4 ? 4 : 8;
            // Widened samples keep their value: a row of tiles or strips
            // narrower than the image must start on a whole byte.
            if (bits != format->dibBits && info.tiled && (uint64_t{info.tileWidth} * bits) % 8 != 0) {
                return Unsupported(tiff, record);
            }
            if (palette) {
                PaletteFromColorMap(format, info, bits);
            } else {
                GreyRamp(format, bits, photometric == kPhotometricMinIsWhite);
            }
            return true;
        }
        case kPhotometricRgb:
            if (bits != 8 || colourSamples != 3) return Unsupported(tiff, record);
            format->kind = SampleKind::kRgb;
            format->dibBits = 24;
            format->planes = planar ? 3 : 1;
            format->blueFirst = info.compression == kPrivateRunLength && samples == 3;
            return true;
        case kPhotometricSeparated:
            if (bits != 8 || colourSamples != 4 || planar || info.inkSet > 1) return Unsupported(tiff, record);
            format->kind = SampleKind::kCmyk;
            format->dibBits = 24;
            if (info.dotRange.count >= 2 && info.dotRange.values[1] > info.dotRange.values[0] &&
                info.dotRange.values[1] <= 255) {
                format->dotLow = static_cast<uint16_t>(info.dotRange.values[0]);
                format->dotHigh = static_cast<uint16_t>(info.dotRange.values[1]);
            }
            return true;
        case kPhotometricYcbcr: {
            uint16_t h = info.ycbcrSubsampling[0], v = info.ycbcrSubsampling[1];
            bool validSubsampling = (h == 1 || h == 2 || h == 4) && (v == 1 || v == 2 || v == 4) && v <= h;
            if (bits != 8 || samples != 3 || planar || !validSubsampling || info.predictor != 1) {
                return Unsupported(tiff, record);
            }
            format->kind = SampleKind::kYcbcr;
            format->dibBits = 24;
            format->subH = h;
            format->subV = v;
            BuildYcbcrTables(format, info);
            return true;
        }
        default: return Unsupported(tiff, record);
    }
}

void ConvertRow(const PageFormat& f, const uint8_t* const* planes, uint32_t width, uint8_t* out) {
    const uint8_t* in = planes[0];
    switch (f.kind) {
        case SampleKind::kIndex:
            if (f.sourceBits == f.dibBits && f.pixelSamples == 1) {
                std::memcpy(out, in, (uint64_t{width} * f.dibBits + 7) / 8);
                return;
            }
            if (f.sourceBits == 8) {
                for (uint32_t x = 0; x < width; ++x) out[x] = in[size_t{x} * f.pixelSamples];
                return;
            }
            // Widen each sample (the first of each pixel) into a 1, 4 or
            // 8-bit cell, value unchanged.
            std::memset(out, 0, (uint64_t{width} * f.dibBits + 7) / 8);
            for (uint32_t x = 0; x < width; ++x) {
                uint64_t bit = uint64_t{x} * f.pixelSamples * f.sourceBits;
                uint32_t v = 0;
                for (uint16_t b = 0; b < f.sourceBits; ++b, ++bit) v = (v << 1) | ((in[bit / 8] >> (7 - bit % 8)) & 1);
                if (f.dibBits == 8) {
                    out[x] = static_cast<uint8_t>(v);
                } else if (f.dibBits == 4) {
                    out[x / 2] |= static_cast<uint8_t>(x % 2 ? v : v << 4);
                } else {
                    out[x / 8] |= static_cast<uint8_t>(v << (7 - x % 8));
                }
            }
            return;
        case SampleKind::kGrey16: {
            const size_t high = f.bigEndian ? 0 : 1, step = size_t{2} * f.pixelSamples;
            for (uint32_t x = 0; x < width; ++x) out[x] = in[step * x + high];
            return;
        }
        case SampleKind::kRgb:
            if (f.planes == 3) {
                for (uint32_t x = 0; x < width; ++x) {
                    out[3 * x] = planes[2][x];
                    out[3 * x + 1] = planes[1][x];
                    out[3 * x + 2] = planes[0][x];
                }
            } else if (f.blueFirst) {
                std::memcpy(out, in, size_t{width} * 3);
            } else {
                for (uint32_t x = 0; x < width; ++x) {
                    const uint8_t* p = in + size_t{x} * f.pixelSamples;
                    out[3 * x] = p[2];
                    out[3 * x + 1] = p[1];
                    out[3 * x + 2] = p[0];
                }
            }
            return;
        case SampleKind::kCmyk: {
            uint32_t span = f.dotHigh - f.dotLow;
            auto ink = [&](uint8_t v) -> uint32_t {
                if (f.dotLow == 0 && f.dotHigh == 255) return v;
                if (v <= f.dotLow) return 0;
                if (v >= f.dotHigh) return 255;
                return (uint32_t{v} - f.dotLow) * 255 / span;
            };
            for (uint32_t x = 0; x < width; ++x) {
                const uint8_t* p = in + size_t{x} * f.pixelSamples;
                uint32_t white = 255 - ink(p[3]);
                out[3 * x] = static_cast<uint8_t>((255 - ink(p[2])) * white / 255);
                out[3 * x + 1] = static_cast<uint8_t>((255 - ink(p[1])) * white / 255);
                out[3 * x + 2] = static_cast<uint8_t>((255 - ink(p[0])) * white / 255);
            }
            return;
        }
        case SampleKind::kYcbcr: return;  // converted band by band
    }
}

void ConvertYcbcrBand(const PageFormat& f, const uint8_t* units, uint32_t width, uint32_t rows, uint8_t* const* out) {
    const uint32_t unitBytes = uint32_t{f.subH} * f.subV + 2;
    for (uint32_t x0 = 0; x0 < width; x0 += f.subH, units += unitBytes) {
        const uint8_t cb = units[unitBytes - 2];
        const uint8_t cr = units[unitBytes - 1];
        const double red = f.redOfCr[cr], blue = f.blueOfCb[cb], green = f.greenOfCb[cb] + f.greenOfCr[cr];
        for (uint32_t dy = 0; dy < rows; ++dy) {
            for (uint32_t dx = 0; dx < f.subH && x0 + dx < width; ++dx) {
                double luma = f.lumaOf[units[dy * f.subH + dx]];
                uint8_t* p = out[dy] + 3 * size_t{x0 + dx};
                p[0] = Clamp(luma + blue);
                p[1] = Clamp(luma + green);
                p[2] = Clamp(luma + red);
            }
        }
    }
}

}  // namespace velmora
