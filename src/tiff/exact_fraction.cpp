#include "tiff/exact_fraction.h"

#include <cmath>

namespace velmora {
namespace {

constexpr double kMaxU32 = 4294967295.0;
constexpr int kMaxDecimals = 9;
constexpr double kHalfLastPlace = 5e-10;
constexpr double kNegligible = 1e-9;

uint32_t GreatestCommonDivisor(uint32_t a, uint32_t b) {
    while (b != 0) {
        uint32_t r = a % b;
        a = b;
        b = r;
    }
    return a;
}

}  // namespace

Fraction Reduce(Fraction value) {
    uint32_t divisor = GreatestCommonDivisor(value.numerator, value.denominator);
    if (divisor > 1) {
        value.numerator /= divisor;
        value.denominator /= divisor;
    }
    return value;
}

Fraction FractionFromDouble(double value, ErrorRecord* record) {
    Fraction result;
    if (record->failed()) return result;
    if (!(value >= 0) || std::floor(value) > kMaxU32) {
        SetRecordError(record, kErrRationalOutOfRange, 0);
        return result;
    }
    value += kHalfLastPlace;
    int integerDigits = 0;
    for (double t = value; t >= 1; t *= 0.1) ++integerDigits;
    int decimals = 0;
    double scale = 1;
    while (decimals < kMaxDecimals) {
        double scaled = value * scale;
        if ((scaled - std::floor(scaled)) / scale < kNegligible) break;
        ++decimals;
        scale *= 10;
    }
    if (integerDigits + decimals > kMaxDecimals)
        decimals = integerDigits >= kMaxDecimals ? 0 : kMaxDecimals - integerDigits;
    uint32_t denominator = 1;
    for (int i = 0; i < decimals; ++i) denominator *= 10;
    double numerator = std::floor(value * denominator);
    if (numerator > kMaxU32) numerator = kMaxU32;
    result.numerator = static_cast<uint32_t>(numerator);
    result.denominator = denominator;
    return Reduce(result);
}

Fraction Multiply(Fraction a, Fraction b, ErrorRecord* record) {
    if (record->failed()) return Fraction();
    double numerator = static_cast<double>(a.numerator) * b.numerator;
    double denominator = static_cast<double>(a.denominator) * b.denominator;
    if (numerator <= kMaxU32 && denominator <= kMaxU32) {
        return Reduce(Fraction{a.numerator * b.numerator, a.denominator * b.denominator});
    }
    return FractionFromDouble(numerator / denominator, record);
}

Fraction Divide(Fraction a, Fraction b, ErrorRecord* record) {
    return Multiply(a, Fraction{b.denominator, b.numerator}, record);
}

bool UnitLengthInMillimetres(uint32_t unit, Fraction* length) {
    // Units 2 to 17: inch, centimeter, yard, meter, mile, kilometer,
    // millimeter, foot, chain, rod, furlong, link, micrometer, decimeter,
    // dekameter, point.
    static const Fraction kLengths[] = {
        {254, 10},    {10, 1},     {9144, 10},  {1000, 1},      {1609344, 1}, {1000000, 1}, {1, 1},     {3048, 10},
        {201168, 10}, {50292, 10}, {201168, 1}, {201168, 1000}, {1, 1000},    {100, 1},     {10000, 1}, {127, 360},
    };
    if (unit < 2 || unit > 17) return false;
    *length = Reduce(kLengths[unit - 2]);
    return true;
}

}  // namespace velmora
