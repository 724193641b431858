// Exported functions of the TIFF family.
#include "frame/export_call.h"
#include "tiff/exact_fraction.h"
#include "velmora/velmora.h"

using velmora::ErrorRecord;
using velmora::ExportCall;
using velmora::Fraction;

namespace {

constexpr uint32_t kUnitNone = 1;
constexpr uint32_t kLastUnit = 17;

bool IsUnit(uint32_t unit) { return unit >= kUnitNone && unit <= kLastUnit; }

bool IsComplete(const VelmoraResolutionScale& value) {
    return value.xNumerator != 0 && value.xDenominator != 0 && value.yNumerator != 0 && value.yDenominator != 0 &&
           IsUnit(value.unit);
}

Fraction Horizontal(const VelmoraResolutionScale& value) { return Fraction{value.xNumerator, value.xDenominator}; }
Fraction Vertical(const VelmoraResolutionScale& value) { return Fraction{value.yNumerator, value.yDenominator}; }

void Store(VelmoraResolutionScale* out, Fraction x, Fraction y, uint32_t unit) {
    out->xDenominator = x.denominator;
    out->xNumerator = x.numerator;
    out->yDenominator = y.denominator;
    out->yNumerator = y.numerator;
    out->unit = static_cast<WORD>(unit);
}

}  // namespace

BOOL VELMORA_API ConvertVelmoraTIFFResolutionScale(VelmoraResolutionScale* value, LONG newUnit) {
    ExportCall call;
    if (!call.Gate() || !call.Writable(value, sizeof *value)) return 0;
    uint32_t target = static_cast<uint32_t>(newUnit);
    if (!call.Value(IsComplete(*value) && IsUnit(target) && (value->unit != kUnitNone || target == kUnitNone))) {
        return 0;
    }
    if (value->unit == target) return 1;
    if (target == kUnitNone) {
        value->unit = static_cast<WORD>(target);
        return 1;
    }
    // Pixels per old unit, divided by the old unit's length, times the new
    // unit's length: pixels per new unit.
    Fraction oldLength, newLength;
    velmora::UnitLengthInMillimetres(value->unit, &oldLength);
    velmora::UnitLengthInMillimetres(target, &newLength);
    Fraction x = velmora::Multiply(velmora::Divide(Horizontal(*value), oldLength, &call.record), newLength, &call.record);
    Fraction y = velmora::Multiply(velmora::Divide(Vertical(*value), oldLength, &call.record), newLength, &call.record);
    if (call.record.ok()) Store(value, x, y, target);
    return call.Finish();
}

BOOL VELMORA_API MultiplyVelmoraTIFFResolutionScale(VelmoraResolutionScale* value, DWORD numerator,
                                                     DWORD denominator) {
    ExportCall call;
    if (!call.Gate() || !call.Writable(value, sizeof *value)) return 0;
    if (!call.Value(value->xNumerator != 0 && value->xDenominator != 0 && value->yNumerator != 0 &&
                    value->yDenominator != 0 && numerator != 0 && denominator != 0)) {
        return 0;
    }
    Fraction factor{numerator, denominator};
    Fraction x = velmora::Multiply(Horizontal(*value), factor, &call.record);
    Fraction y = velmora::Multiply(Vertical(*value), factor, &call.record);
    if (call.record.ok()) Store(value, x, y, value->unit);
    return call.Finish();
}

BOOL VELMORA_API SetVelmoraTIFFResolutionScale(VelmoraResolutionScale* value, DWORD xNumerator, DWORD xDenominator,
                                                DWORD yNumerator, DWORD yDenominator, DWORD unit) {
    ExportCall call;
    if (!call.Gate() ||
        !call.Value(xNumerator != 0 && xDenominator != 0 && yNumerator != 0 && yDenominator != 0 && IsUnit(unit)) ||
        !call.Writable(value, sizeof *value)) {
        return 0;
    }
    Store(value, velmora::Reduce(Fraction{xNumerator, xDenominator}), velmora::Reduce(Fraction{yNumerator, yDenominator}),
          unit);
    value->reserved = 0;
    return 1;
}

BOOL VELMORA_API VelmoraDoubleToURational(double value, DWORD* numerator, DWORD* denominator) {
    ExportCall call;
    if (!call.Gate() || !call.Value(!(value < 0)) || !call.Writable(numerator, sizeof *numerator) ||
        !call.Writable(denominator, sizeof *denominator)) {
        return 0;
    }
    Fraction result = velmora::FractionFromDouble(value, &call.record);
    if (call.record.ok()) {
        *numerator = result.numerator;
        *denominator = result.denominator;
    }
    return call.Finish();
}
