// Resolution in a DIB header: pixels per metre in biXPelsPerMeter and
// biYPelsPerMeter. A page with an absolute unit gets its physical resolution;
// a page without one (TIFF ResolutionUnit 1) keeps only the ratio of its two
// values, stored negated so that it cannot be mistaken for a physical size;
// 0 means unknown.
#pragma once

#include <cstdint>

namespace velmora {

// TIFF resolution units.
constexpr uint16_t kResolutionUnitNone = 1;
constexpr uint16_t kResolutionUnitInch = 2;
constexpr uint16_t kResolutionUnitCentimetre = 3;

// One resolution value (numerator / denominator pixels per `unit`) as pixels
// per metre, rounded to nearest and kept within 32 bits: per inch x 10000 /
// 254, per centimetre x 100; without a unit the value itself, negated. A zero
// numerator or denominator, or an unknown unit, gives 0.
int32_t PelsPerMeter(uint32_t numerator, uint32_t denominator, uint16_t unit);

// The other way, for writers: a positive value becomes whole dots per inch
// (rounded, at least 1) with unit inch; a negative one its magnitude with
// unit none; 0 gives value 0 (unknown).
void DotsFromPelsPerMeter(int32_t pelsPerMeter, uint32_t* value, uint16_t* unit);

// Scales a resolution for a change of pixel size (new / old pixels),
// truncating, so that the physical size stays the same.
int32_t ScalePelsPerMeter(int32_t pelsPerMeter, uint32_t newPixels, uint32_t oldPixels);

}  // namespace velmora
