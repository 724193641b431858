// Texts of the library's string table, by 16-bit id. Ids below 10000 are
// user-visible texts that a language module may replace; ids from 10000 up are
// identifiers and templates that always come from the library itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/error_record.h"

namespace velmora {

// Loads text `id` into `buffer` (`size` characters, terminator included).
// Returns 0 when it cannot be loaded (the buffer is then empty and the record
// holds the error), 1 when loaded, 2 when the text is a string list: its
// members are then stored one after the other, each with its terminator.
// A size of 0 returns 1 and writes nothing.
int LoadText(uint16_t id, char16_t* buffer, size_t size, ErrorRecord* record);
// The same into a narrow buffer in the system code page (`size` bytes).
int LoadTextNarrow(uint16_t id, char* buffer, size_t size, ErrorRecord* record);
// Loads template `id` and formats it printf-style with the arguments.
bool FormatText(uint16_t templateId, char16_t* buffer, size_t size, ErrorRecord* record, ...);

// Convenience for building paths and names: the text (first member of a list)
// or an empty string.
std::u16string TextString(uint16_t id);

}  // namespace velmora
