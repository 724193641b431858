// Exact fractions of two unsigned 32-bit integers, for resolutions and scales.
// Results are kept reduced. A product whose terms do not fit in 32 bits is
// computed in double precision and turned back into a fraction by decimal
// digits; a value whose integer part does not fit is "Rational out of range."
#pragma once

#include <cstdint>

#include "frame/error_record.h"

namespace velmora {

struct Fraction {
    uint32_t numerator = 0;
    uint32_t denominator = 1;
};

constexpr uint32_t kErrRationalOutOfRange = 0x02000012;

Fraction Reduce(Fraction value);
// The decimal method: at most nine significant decimal places.
Fraction FractionFromDouble(double value, ErrorRecord* record);
Fraction Multiply(Fraction a, Fraction b, ErrorRecord* record);
Fraction Divide(Fraction a, Fraction b, ErrorRecord* record);

// The length of a resolution or scale unit (1 to 17) in millimetres; false
// for unit 1 (no absolute unit) and for unknown units.
bool UnitLengthInMillimetres(uint32_t unit, Fraction* length);

}  // namespace velmora
