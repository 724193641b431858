// GDI bitmaps on Windows: their size and their rows.
#include <windows.h>

#include "platform/platform.h"

namespace velmora::platform {

bool ReadBitmapSize(HBITMAP bitmap, uint32_t* width, uint32_t* height, uint32_t* bitsPerPixel, uint32_t* rowBytes,
                    uint32_t* error) {
    BITMAP info = {};
    if (::GetObjectW(bitmap, sizeof info, &info) == 0) {
        *error = ::GetLastError() != 0 ? ::GetLastError() : ERROR_INVALID_HANDLE;
        return false;
    }
    *width = info.bmWidth > 0 ? static_cast<uint32_t>(info.bmWidth) : 0;
    *height = info.bmHeight > 0 ? static_cast<uint32_t>(info.bmHeight) : 0;
    *bitsPerPixel = info.bmBitsPixel;
    *rowBytes = info.bmWidthBytes > 0 ? static_cast<uint32_t>(info.bmWidthBytes) : 0;
    return true;
}

bool ReadBitmapRows(HBITMAP bitmap, void* out, size_t bytes, uint32_t* error) {
    if (bytes > 0x7FFFFFFF || ::GetBitmapBits(bitmap, static_cast<LONG>(bytes), out) == 0) {
        *error = ::GetLastError() != 0 ? ::GetLastError() : ERROR_INVALID_HANDLE;
        return false;
    }
    return true;
}

}  // namespace velmora::platform
