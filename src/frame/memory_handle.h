// Memory blocks handed to hosts: movable global memory, allocated and freed
// through these helpers so that every failure carries the same message.
#pragma once

#include <cstddef>

#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

// Allocates a movable block (GMEM_MOVEABLE is always added to `flags`). On
// failure returns null and the record holds the system's error with the
// detail "Unable to allocate memory (allocating N, N remaining of N)".
HGLOBAL AllocHandle(size_t size, unsigned flags, ErrorRecord* record);
// Frees *handle when it is not null and sets it to null.
void FreeHandle(HGLOBAL* handle);

// Converts wide text into a host's narrow output buffer of `size` bytes in the
// system code page. A buffer too small for the whole text is an error (the
// buffer then holds an empty string); wide outputs, by contrast, are
// truncated by their callers.
bool CopyToNarrowOutput(const char16_t* text, char* buffer, size_t size, ErrorRecord* record);

}  // namespace velmora
