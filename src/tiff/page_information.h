// The page-information block the library stores with a page (tag 33945),
// little-endian:
//
//    0  u32  the block's length
//    4  16   "VelmoraPageInfo" and a NUL
//   20  u32  a value of the page's creator (the viewer's page attributes)
//   24  u32  horizontal value: denominator, then numerator (as in
//   28  u32  VelmoraResolutionScale)
//   32  u32  vertical value: denominator,
//   36  u32  then numerator
//   40  u8   unit: 1 (none), 2 (inch) or 3 (centimetre)
//   41       two NUL-terminated narrow strings, one after the other
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "tiff/exact_fraction.h"
#include "velmora/wintypes.h"

namespace velmora {

constexpr uint32_t kPageInformationHeader = 41;

// A new block of exactly 41 bytes plus the strings (null: empty). Values in
// a unit above 3 (of the library's units 4 to 17) are converted to
// inches exactly; when that overflows they are stored as given with unit 1.
// Null with the record set when memory is short.
HGLOBAL BuildPageInformation(uint32_t value, Fraction horizontal, Fraction vertical, uint32_t unit,
                             const char* first, const char* second, ErrorRecord* record);

}  // namespace velmora
