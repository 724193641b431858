// The system clipboard: blocks placed under formats registered by name, so
// that every process that registers the same names finds them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "velmora/wintypes.h"

namespace velmora::platform {

// Empties the clipboard and places blocks[i] (movable memory blocks) under
// the format named names[i]. The blocks are handed over either way: the
// clipboard owns them after success, and after a failure they are freed, the
// clipboard is left empty and *error holds the system's code (120 where the
// system has no clipboard). The clipboard is closed in every case.
bool PutOnClipboard(const char16_t* const* names, const HGLOBAL* blocks, size_t count, uint32_t* error);

}  // namespace velmora::platform
