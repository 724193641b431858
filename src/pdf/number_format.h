// The two number formats of every PDF text the library writes: neither
// depends on the user's locale.
//
// Reals have at most six decimals (or the given precision), "." as the
// separator, a leading "0", rounding half up on the last digit and no
// trailing zeros: 612 -> "612", 72.0 / 300 -> "0.24", 0.00000075 ->
// "0.000001", 1e-9 -> "0". Integers are signed 32-bit decimals with a plain
// "-". Content streams use the same formats through the formatter's "%r" and
// "%lD" conversions.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora {

// Room for any number either format writes, terminator included.
constexpr size_t kNumberTextSize = 400;

// Writes the text into `out` (kNumberTextSize characters) and returns its
// length.
size_t FormatReal(double value, char* out);
size_t FormatInteger(int32_t value, char* out);

}  // namespace velmora
