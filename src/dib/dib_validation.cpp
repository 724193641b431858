#include "dib/dib_validation.h"

#include "dib/dib_layout.h"
#include "frame/error_record.h"
#include "platform/platform.h"

namespace velmora {
namespace {

bool TableReadable(const BITMAPINFOHEADER* header) {
    uint32_t count = ColorCount(header);
    return count == 0 ||
           platform::IsReadableMemory(reinterpret_cast<const uint8_t*>(header) + kDibHeaderSize, size_t{count} * 4);
}

}  // namespace

uint32_t CheckDibHeader(const BITMAPINFOHEADER* header, bool checkSize) {
    if (!platform::IsReadableMemory(header, 4)) return kErrNoAccess;
    if (header->biSize != kDibHeaderSize) return kErrInvalidParameter;
    if (!platform::IsReadableMemory(header, kDibHeaderSize)) return kErrNoAccess;
    if (!TableReadable(header)) return kErrNoAccess;
    if (checkSize && (header->biWidth <= 0 || header->biHeight == 0)) return kErrInvalidParameter;
    return 0;
}

uint32_t CheckDib(const RECT* rect, const void* bits, const BITMAPINFOHEADER* header, DibAccess access) {
    if (rect != nullptr && !platform::IsReadableMemory(rect, sizeof(RECT))) return kErrNoAccess;
    if (!platform::IsReadableMemory(header, 4)) return kErrNoAccess;
    if (header->biSize != kDibHeaderSize) return kErrInvalidParameter;
    if (!platform::IsReadableMemory(header, kDibHeaderSize)) return kErrNoAccess;
    if (header->biHeight < 0 || header->biPlanes != 1) return kErrInvalidParameter;
    if (!TableReadable(header)) return kErrNoAccess;
    // A negative width has no layout the library can address.
    if (header->biWidth <= 0 || header->biHeight == 0) return kErrInvalidParameter;
    if (rect != nullptr &&
        (rect->left < 0 || rect->top < 0 || rect->right > header->biWidth || rect->bottom > header->biHeight)) {
        return kErrInvalidParameter;
    }
    uint64_t bytes = 0;
    if (!ImageBytes(header, &bytes) || bytes > SIZE_MAX) return kErrNoAccess;
    if (!platform::IsReadableMemory(bits, static_cast<size_t>(bytes))) return kErrNoAccess;
    if (access == DibAccess::ReadWrite &&
        !platform::IsWritableMemory(const_cast<void*>(bits), static_cast<size_t>(bytes))) {
        return kErrNoAccess;
    }
    return 0;
}

}  // namespace velmora
