// Language selection: the built-in US English texts, or a language module that
// replaces the translatable texts. A language module is a data file
// "vlmr<language as four hex digits>.lang" in the library's directory.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "frame/resources.h"

namespace velmora {

constexpr uint16_t kEnglishUs = 1033;
// The "Language Version" a module must carry to be used with this library.
constexpr uint32_t kLanguageVersion = 187;

// Selects a language; 1 when it is in use afterwards. A missing module returns
// 0 with no error in the record (the caller decides what that means); a module
// of the wrong version or with bad texts returns 0 with the error.
bool SelectLanguage(uint16_t language, ErrorRecord* record);
uint16_t GetCurrentLanguage();
// The translated text of `id` from the current module, when one is loaded.
bool LanguageModuleString(uint16_t id, ResourceBytes* text);
void UnloadLanguageModule();

// Checks a language's module and reports what is wrong with it; the work of
// the exported check.
bool CheckLanguage(uint16_t language, bool showMessages, ErrorRecord* record);

}  // namespace velmora
