#include "platform/clipboard.h"

#include <windows.h>

namespace velmora::platform {

bool PutOnClipboard(const char16_t* const* names, const HGLOBAL* blocks, size_t count, uint32_t* error) {
    size_t placed = 0;
    const bool open = OpenClipboard(nullptr) != 0;
    bool ok = open && EmptyClipboard() != 0;
    for (; ok && placed < count; ++placed) {
        const UINT format = RegisterClipboardFormatW(reinterpret_cast<LPCWSTR>(names[placed]));
        ok = format != 0 && SetClipboardData(format, blocks[placed]) != nullptr;
        if (!ok) break;
    }
    if (!ok) {
        *error = GetLastError();
        // Blocks already placed go with the emptied clipboard.
        if (open) EmptyClipboard();
        for (size_t i = placed; i < count; ++i) GlobalFree(blocks[i]);
    }
    if (open) CloseClipboard();
    return ok;
}

}  // namespace velmora::platform
