// Page-granular memory on POSIX systems: anonymous mappings.
#include <sys/mman.h>
#include <unistd.h>

#include "platform/platform.h"

namespace velmora::platform {
namespace {

void* MapAnonymous(size_t bytes, int sharing, uint32_t* error) {
    void* memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, sharing | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        *error = ERROR_NOT_ENOUGH_MEMORY;
        return nullptr;
    }
    return memory;
}

}  // namespace

size_t MemoryPageSize() {
    long size = ::sysconf(_SC_PAGESIZE);
    return size > 0 ? static_cast<size_t>(size) : 4096;
}

void* MapPagedMemory(size_t bytes, uintptr_t* mapping, uint32_t* error) {
    *mapping = 0;
    return MapAnonymous(bytes, MAP_SHARED, error);
}

void UnmapPagedMemory(uintptr_t, void* view, size_t bytes) {
    if (view != nullptr) ::munmap(view, bytes);
}

void* ReserveMemory(size_t bytes, uint32_t* error) { return MapAnonymous(bytes, MAP_PRIVATE, error); }

void ReleaseMemory(void* memory, size_t bytes) {
    if (memory != nullptr) ::munmap(memory, bytes);
}

// There is no GDI here: no device has a palette.
bool ReadDisplayPalette(HDC, DisplayPaletteInfo*) { return false; }

HPALETTE CreateLogicalPalette(const uint8_t*, uint32_t, uint32_t* error) {
    *error = ERROR_CALL_NOT_IMPLEMENTED;
    return nullptr;
}

// Nor are there GDI bitmaps to read.
bool ReadBitmapSize(HBITMAP, uint32_t*, uint32_t*, uint32_t*, uint32_t*, uint32_t* error) {
    *error = ERROR_CALL_NOT_IMPLEMENTED;
    return false;
}

bool ReadBitmapRows(HBITMAP, void*, size_t, uint32_t* error) {
    *error = ERROR_CALL_NOT_IMPLEMENTED;
    return false;
}

}  // namespace velmora::platform
