#include "dib/resolution.h"

namespace velmora {
namespace {

constexpr uint64_t kMaxPels = 0x7FFFFFFF;

// numerator * multiplier / (denominator * divisor), rounded half up, capped.
int32_t RoundedRatio(uint64_t numerator, uint64_t multiplier, uint64_t denominator, uint64_t divisor) {
    // Each operand is below 2^32 and the factors small, so nothing wraps.
    uint64_t top = numerator * multiplier;
    uint64_t bottom = denominator * divisor;
    uint64_t value = (top + bottom / 2) / bottom;
    return static_cast<int32_t>(value > kMaxPels ? kMaxPels : value);
}

}  // namespace

int32_t PelsPerMeter(uint32_t numerator, uint32_t denominator, uint16_t unit) {
    if (numerator == 0 || denominator == 0) return 0;
    switch (unit) {
        case kResolutionUnitInch: return RoundedRatio(numerator, 5000, denominator, 127);
        case kResolutionUnitCentimetre: return RoundedRatio(numerator, 100, denominator, 1);
        case kResolutionUnitNone: return -RoundedRatio(numerator, 1, denominator, 1);
        default: return 0;
    }
}

void DotsFromPelsPerMeter(int32_t pelsPerMeter, uint32_t* value, uint16_t* unit) {
    if (pelsPerMeter > 0) {
        uint64_t dots = (uint64_t{static_cast<uint32_t>(pelsPerMeter)} * 127 + 2500) / 5000;
        *value = dots == 0 ? 1 : static_cast<uint32_t>(dots);
        *unit = kResolutionUnitInch;
    } else if (pelsPerMeter < 0) {
        *value = static_cast<uint32_t>(-static_cast<int64_t>(pelsPerMeter));
        *unit = kResolutionUnitNone;
    } else {
        *value = 0;
        *unit = kResolutionUnitNone;
    }
}

int32_t ScalePelsPerMeter(int32_t pelsPerMeter, uint32_t newPixels, uint32_t oldPixels) {
    if (oldPixels == 0) return pelsPerMeter;
    int64_t scaled = int64_t{pelsPerMeter} * newPixels / oldPixels;
    if (scaled > INT32_MAX) return INT32_MAX;
    if (scaled < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(scaled);
}

}  // namespace velmora
