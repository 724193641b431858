// The forward discrete cosine transform of JPEG encoding, with quantisation.
//
// The transform is the floating-point factorisation of Arai, Agui and
// Nakajima: five multiplications per eight-point pass, rows and then
// columns. Its outputs are the true DCT coefficients (as ITU-T T.81 A.3.3
// defines them) times 8 x s(u) x s(v), with s(0) = 1 and s(k) = sqrt(2)
// cos(k pi / 16); that scale is folded into the quantisation divisors, so
// the transform plus quantisation costs one multiplication per coefficient
// beyond the factorisation. Single precision keeps the coefficients within
// a hundredth of the exact ones, far inside a quantiser step.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora::jpeg {

// The reciprocal divisors of one quantisation table, natural order.
struct DctDivisors {
    float reciprocal[64];
};

// `quantiser` holds 64 values of 1..255 in natural order.
void MakeDctDivisors(const uint16_t* quantiser, DctDivisors* divisors);

// Transforms the 8x8 samples at `samples` (rows `stride` bytes apart; the
// level shift of 128 is applied here), divides by the quantiser and rounds
// to the nearest integer. Writes 64 coefficients in natural order; the DC
// coefficient lies in -1024..1023 and the AC ones are limited to
// -1023..1023, the ranges baseline coding can carry.
void ForwardDctQuantise(const uint8_t* samples, ptrdiff_t stride, const DctDivisors& divisors, int16_t* coefficients);

}  // namespace velmora::jpeg
