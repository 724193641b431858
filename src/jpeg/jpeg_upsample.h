// Interpolation of chroma sampled at half the resolution across, down or
// both: triangle filters in which each output sample weighs its own sample
// 3/4 and the nearer neighbour 1/4 in each halved direction, with rounding
// biases alternating between the two outputs of a sample:
//   across:  out[2i] = (3 s[i] + s[i-1] + 1) / 4,  out[2i+1] = (3 s[i] + s[i+1] + 2) / 4
//   down:    upper = (3 s + above + 1) / 4,          lower = (3 s + below + 2) / 4
//   both:    column sums c[i] = 3 s[i] + t[i] (t: the row above for the upper
//            output row, below for the lower), then
//            out[2i] = (3 c[i] + c[i-1] + 8) / 16,   out[2i+1] = (3 c[i] + c[i+1] + 7) / 16
// The first and last samples of a row stand in for their missing outer
// neighbours. Each routine writes the first `width` outputs of a row of `n`
// samples (width at most 2n across).
#pragma once

#include <cstdint>

namespace velmora::jpeg {

void TriangleAcross(const uint8_t* s, uint32_t n, uint8_t* out, uint32_t width);
// `lower`: the output row below the sample row (t is the row below it).
void TriangleDown(const uint8_t* s, const uint8_t* t, bool lower, uint8_t* out, uint32_t width);
void TriangleBoth(const uint8_t* s, const uint8_t* t, uint32_t n, uint8_t* out, uint32_t width);

}  // namespace velmora::jpeg
