// Test literals are char16_t; the interface's WCHAR is wchar_t on Windows.
#pragma once

#include "frame/wide_text.h"

namespace velmora {

inline const WCHAR* W(const char16_t* text) { return ToHost(text); }
inline WCHAR* W(char16_t* text) { return ToHost(text); }

}  // namespace velmora
