// No system clipboard is reached from the library here: the desktop's
// clipboard belongs to the toolkit of the program that shows the viewer.
#include "platform/clipboard.h"

#include "platform/platform.h"

namespace velmora::platform {

bool PutOnClipboard(const char16_t* const*, const HGLOBAL* blocks, size_t count, uint32_t* error) {
    for (size_t i = 0; i < count; ++i) MemFree(blocks[i]);
    *error = 120;  // ERROR_CALL_NOT_IMPLEMENTED
    return false;
}

}  // namespace velmora::platform
