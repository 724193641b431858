#include "jpeg/jpeg_encoder_color.h"

namespace velmora::jpeg {
namespace {

// The JFIF coefficients times 65536; each row of three sums to 65536 or 0,
// so grey stays grey and the chrominance of grey is exactly 128.
constexpr int32_t kYR = 19595, kYG = 38470, kYB = 7471;
constexpr int32_t kCbR = -11059, kCbG = -21709, kCbB = 32768;
constexpr int32_t kCrR = 32768, kCrG = -27439, kCrB = -5329;
// 128 plus just under one half: the largest chrominance sum then still
// shifts down to 255.
constexpr int32_t kChromaOffset = (128 << 16) + 32767;

// The channel offsets are constants here so that the compiler can turn the
// loop into vector code; the outputs never overlap the input.
template <int kRed, int kBlue>
void Convert(const uint8_t* __restrict pixels, uint32_t width, uint8_t* __restrict y, uint8_t* __restrict cb,
             uint8_t* __restrict cr) {
    for (uint32_t x = 0; x < width; ++x) {
        int32_t red = pixels[3 * x + kRed], green = pixels[3 * x + 1], blue = pixels[3 * x + kBlue];
        y[x] = static_cast<uint8_t>((kYR * red + kYG * green + kYB * blue + 32768) >> 16);
        cb[x] = static_cast<uint8_t>((kCbR * red + kCbG * green + kCbB * blue + kChromaOffset) >> 16);
        cr[x] = static_cast<uint8_t>((kCrR * red + kCrG * green + kCrB * blue + kChromaOffset) >> 16);
    }
}

}  // namespace

void ConvertToYCbCr(const uint8_t* pixels, bool redFirst, uint32_t width, uint8_t* y, uint8_t* cb, uint8_t* cr) {
    if (redFirst) {
        Convert<0, 2>(pixels, width, y, cb, cr);
    } else {
        Convert<2, 0>(pixels, width, y, cb, cr);
    }
}

void Downsample(const uint8_t* row, const uint8_t* below, uint32_t outWidth, uint8_t* out) {
    if (below == nullptr) {
        for (uint32_t x = 0; x < outWidth; ++x) {
            out[x] = static_cast<uint8_t>((row[2 * x] + row[2 * x + 1] + (x & 1)) >> 1);
        }
        return;
    }
    for (uint32_t x = 0; x < outWidth; ++x) {
        uint32_t sum = row[2 * x] + row[2 * x + 1] + below[2 * x] + below[2 * x + 1];
        out[x] = static_cast<uint8_t>((sum + 1 + (x & 1)) >> 2);
    }
}

}  // namespace velmora::jpeg
