// Colour conversion and chroma downsampling of the JPEG encoder.
#pragma once

#include <cstdint>

namespace velmora::jpeg {

// Converts `width` pixels of three bytes (blue-green-red, or red-green-blue
// when `redFirst` is set) to Y, Cb and Cr samples with the JFIF equations
//   Y  =  0.299 R + 0.587 G + 0.114 B
//   Cb = -0.168736 R - 0.331264 G + 0.5 B + 128
//   Cr =  0.5 R - 0.418688 G - 0.081312 B + 128
// in 16-bit fixed point, rounded to the nearest level.
void ConvertToYCbCr(const uint8_t* pixels, bool redFirst, uint32_t width, uint8_t* y, uint8_t* cb, uint8_t* cr);

// Averages 2x1 (`below` null) or 2x2 groups of samples into `outWidth`
// samples; `row` and `below` hold 2 x outWidth samples. The rounding bias
// alternates between the two nearest choices from sample to sample, so
// flat areas do not drift in one direction.
void Downsample(const uint8_t* row, const uint8_t* below, uint32_t outWidth, uint8_t* out);

}  // namespace velmora::jpeg
