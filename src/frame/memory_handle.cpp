#include "frame/memory_handle.h"

#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint16_t kUnableToAllocate = 64;  // "Unable to allocate memory (allocating %zu, %zu remaining of %zu)"
constexpr uint16_t kUnableToConvert = 260;  // "Unable to convert wide string to string"

}  // namespace

HGLOBAL AllocHandle(size_t size, unsigned flags, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    HGLOBAL handle = platform::MemAlloc(flags | GMEM_MOVEABLE, size);
    if (handle == nullptr) {
        uint32_t error = platform::GetSystemError();
        uint64_t available = 0, total = 0;
        platform::MemoryStatus(&available, &total);
        SetRecordError(record, error == 0 ? kErrNotEnoughMemory : error, kUnableToAllocate, size,
                       static_cast<size_t>(available), static_cast<size_t>(total));
    }
    return handle;
}

void FreeHandle(HGLOBAL* handle) {
    if (*handle == nullptr) return;
    platform::MemFree(*handle);
    *handle = nullptr;
}

bool CopyToNarrowOutput(const char16_t* text, char* buffer, size_t size, ErrorRecord* record) {
    if (record->failed()) return false;
    uint32_t error = 0;
    if (!platform::WideToNarrow(text, buffer, size, &error)) {
        if (size > 0) buffer[0] = '\0';
        SetRecordError(record, error, kUnableToConvert);
        return false;
    }
    return true;
}

}  // namespace velmora
