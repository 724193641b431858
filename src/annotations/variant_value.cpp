#include "annotations/variant_value.h"

#include <cmath>
#include <cstdio>

namespace velmora {

namespace {

constexpr VARTYPE kNull = 1, kR4 = 4, kR8 = 5, kI1 = 16, kUI2 = 18, kUI4 = 19, kI8 = 20, kUI8 = 21, kInt = 22,
                  kUInt = 23;

bool Fail(uint32_t code, ErrorRecord* record) {
    SetRecordError(record, code, 0);
    return false;
}

const char16_t* BstrText(const VARIANT& value) {
    return value.bstrVal != nullptr ? reinterpret_cast<const char16_t*>(value.bstrVal) : u"";
}

bool EqualsIgnoringCase(const char16_t* text, const char* word) {
    for (; *word != 0; ++text, ++word) {
        char16_t c = *text;
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
        if (c != static_cast<char16_t>(*word)) return false;
    }
    return *text == 0;
}

// A decimal integer with optional surrounding spaces and sign; a boolean word
// when `words` is set.
bool ParseNumber(const char16_t* text, bool words, double* number, ErrorRecord* record) {
    if (words && (EqualsIgnoringCase(text, "true") || EqualsIgnoringCase(text, "false"))) {
        *number = text[0] == u't' || text[0] == u'T' ? -1 : 0;
        return true;
    }
    while (*text == u' ') ++text;
    const bool negative = *text == u'-';
    if (*text == u'-' || *text == u'+') ++text;
    if (*text < u'0' || *text > u'9') return Fail(kErrTypeMismatch, record);
    double value = 0;
    for (; *text >= u'0' && *text <= u'9'; ++text) value = value * 10 + (*text - u'0');
    while (*text == u' ') ++text;
    if (*text != 0) return Fail(kErrTypeMismatch, record);
    *number = negative ? -value : value;
    return true;
}

// The variant's value as a double (exact for every integer type up to 2^53).
bool Numeric(const VARIANT& value, bool words, double* number, ErrorRecord* record) {
    switch (value.vt) {
        case VT_EMPTY: *number = 0; return true;
        case VT_I2: *number = value.iVal; return true;
        case VT_I4: *number = value.lVal; return true;
        case VT_UI1: *number = value.bVal; return true;
        case VT_BOOL: *number = value.boolVal != 0 ? -1 : 0; return true;
        case kR4: *number = value.fltVal; return true;
        case kR8: *number = value.dblVal; return true;
        case kI1: *number = value.cVal; return true;
        case kUI2: *number = value.uiVal; return true;
        case kUI4: *number = value.ulVal; return true;
        case kI8: *number = static_cast<double>(value.llVal); return true;
        case kUI8: *number = static_cast<double>(static_cast<uint64_t>(value.llVal)); return true;
        case kInt: *number = value.intVal; return true;
        case kUInt: *number = value.uintVal; return true;
        case VT_BSTR: return ParseNumber(BstrText(value), words, number, record);
        case kNull:
        default: return Fail(kErrTypeMismatch, record);
    }
}

}  // namespace

bool VariantNumber(const VARIANT& value, VARTYPE target, int64_t* number, ErrorRecord* record) {
    if (record->failed()) return false;
    double n;
    if (!Numeric(value, target == VT_BOOL, &n, record)) return false;
    if (std::isnan(n)) return Fail(kErrOverflow, record);
    if (target == VT_BOOL) {
        *number = n != 0 ? -1 : 0;
        return true;
    }
    // Fractions round to the nearest integer, halves to the even one.
    n = std::nearbyint(n);
    const double low = target == VT_I2 ? -32768.0 : target == VT_UI1 ? 0.0 : -2147483648.0;
    const double high = target == VT_I2 ? 32767.0 : target == VT_UI1 ? 255.0 : 2147483647.0;
    if (n < low || n > high) return Fail(kErrOverflow, record);
    *number = static_cast<int64_t>(n);
    return true;
}

bool VariantText(const VARIANT& value, AnnotationText* text, ErrorRecord* record) {
    if (record->failed()) return false;
    if (value.vt == VT_BSTR) {
        const char16_t* units = BstrText(value);
        size_t length = 0;
        while (units[length] != 0) ++length;
        return text->Assign(units, length, record);
    }
    double n;
    if (!Numeric(value, false, &n, record)) return false;
    char digits[40];
    const int length = std::snprintf(digits, sizeof digits, "%.15g", n);
    char16_t wide[40];
    for (int i = 0; i < length; ++i) wide[i] = static_cast<char16_t>(digits[i]);
    return text->Assign(wide, static_cast<size_t>(length), record);
}

}  // namespace velmora
