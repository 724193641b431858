// The library's printf work-alike, for narrow and wide text, always bounded by
// the output buffer's size (in characters, terminator included); the output is
// always terminated and silently truncated.
//
// Conversions: %d %i %u %x %X %o %c %s %S %p %% with flags "-+ #0", width and
// precision (also "*"), and length modifiers h, l, ll, I64, z. Integer sizes
// follow the Windows model on every platform: plain and "l" conversions take
// 32-bit values, "ll" and "I64" 64-bit ones, "z" size_t. In wide output "%s"
// takes a wide string and "%S" a narrow one; in narrow output the reverse.
// "%hs" is always narrow and "%ls" always wide.
//
// Two conversions are the library's own:
//   %D  a signed 32-bit decimal with a plain "-" whatever the locale;
//   %r  a locale-independent real number (64-bit): "-" for negatives, "."
//       as separator, a leading "0", at most the precision's decimals (6 by
//       default) rounded half up, trailing zeros and a bare "." removed unless
//       "#" is given (612 -> "612", 0.5 -> "0.5", 1e-9 -> "0").
//   %f  a fixed-point real with the precision's decimals.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace velmora {

size_t FormatWide(char16_t* out, size_t size, const char16_t* format, ...);
size_t FormatWideV(char16_t* out, size_t size, const char16_t* format, va_list args);
size_t FormatNarrow(char* out, size_t size, const char* format, ...);
size_t FormatNarrowV(char* out, size_t size, const char* format, va_list args);

}  // namespace velmora
