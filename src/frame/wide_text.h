// Wide strings cross the interface as WCHAR, which is wchar_t on Windows and
// char16_t elsewhere; inside the library they are always char16_t. Both are
// UTF-16 code units of the same size.
#pragma once

#include "velmora/wintypes.h"

namespace velmora {

static_assert(sizeof(WCHAR) == sizeof(char16_t), "WCHAR must be a UTF-16 code unit");

inline const char16_t* FromHost(const WCHAR* text) { return reinterpret_cast<const char16_t*>(text); }
inline char16_t* FromHost(WCHAR* text) { return reinterpret_cast<char16_t*>(text); }
inline const WCHAR* ToHost(const char16_t* text) { return reinterpret_cast<const WCHAR*>(text); }
inline WCHAR* ToHost(char16_t* text) { return reinterpret_cast<WCHAR*>(text); }

}  // namespace velmora
