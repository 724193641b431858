// The inverse discrete cosine transform of JPEG decoding: the integer
// Loeffler-Ligtenberg-Moschytz factorisation with 13-bit constants, two
// extra fraction bits between the column and the row pass, and a
// range-limiting table that adds the level shift and clamps the result.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora::jpeg {

// Transforms one 8x8 block of 8-bit precision. `coefficients` and
// `quantiser` are in natural (row-major) order; the coefficients are the
// quantised values as decoded, and the column pass multiplies them by the
// quantiser. Writes 8 rows of 8 samples (0..255) from `output`, rows
// `stride` bytes apart.
void InverseDct8(const int16_t* coefficients, const uint16_t* quantiser, uint8_t* output, ptrdiff_t stride);

// The same at 12-bit precision: samples 0..4095, rows `stride` elements
// apart.
void InverseDct12(const int16_t* coefficients, const uint16_t* quantiser, uint16_t* output, ptrdiff_t stride);

}  // namespace velmora::jpeg
