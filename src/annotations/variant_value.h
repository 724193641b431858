// A host's automation variant read as the type a property needs: a number
// (VT_I2, VT_I4, VT_UI1, VT_BOOL) or a text (VT_BSTR), converted the way
// automation converts values: numbers of any width, booleans and decimal
// texts become numbers; numbers become decimal texts. A value of another
// type fails with DISP_E_TYPEMISMATCH, one out of range with DISP_E_OVERFLOW.
#pragma once

#include <cstdint>

#include "annotations/annotation.h"
#include "velmora/wintypes.h"

namespace velmora {

constexpr uint32_t kErrTypeMismatch = 0x80020005;  // DISP_E_TYPEMISMATCH
constexpr uint32_t kErrOverflow = 0x8002000A;      // DISP_E_OVERFLOW

// `target` VT_I2, VT_I4, VT_UI1 or VT_BOOL: the number (a boolean is -1 or 0).
bool VariantNumber(const VARIANT& value, VARTYPE target, int64_t* number, ErrorRecord* record);
// `target` VT_BSTR.
bool VariantText(const VARIANT& value, AnnotationText* text, ErrorRecord* record);

}  // namespace velmora
