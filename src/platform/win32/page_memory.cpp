// Page-granular memory on Windows: paging-file mappings and virtual memory.
#include <windows.h>

#include "platform/platform.h"

namespace velmora::platform {

size_t MemoryPageSize() {
    SYSTEM_INFO info;
    ::GetSystemInfo(&info);
    return info.dwPageSize != 0 ? info.dwPageSize : 4096;
}

void* MapPagedMemory(size_t bytes, uintptr_t* mapping, uint32_t* error) {
    *mapping = 0;
    uint64_t size = bytes;
    HANDLE object = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE | SEC_COMMIT,
                                         static_cast<DWORD>(size >> 32), static_cast<DWORD>(size), nullptr);
    if (object == nullptr) {
        *error = ::GetLastError();
        return nullptr;
    }
    void* view = ::MapViewOfFile(object, FILE_MAP_WRITE, 0, 0, bytes);
    if (view == nullptr) {
        *error = ::GetLastError();
        ::CloseHandle(object);
        return nullptr;
    }
    *mapping = reinterpret_cast<uintptr_t>(object);
    return view;
}

void UnmapPagedMemory(uintptr_t mapping, void* view, size_t) {
    if (view != nullptr) ::UnmapViewOfFile(view);
    if (mapping != 0) ::CloseHandle(reinterpret_cast<HANDLE>(mapping));
}

void* ReserveMemory(size_t bytes, uint32_t* error) {
    void* memory = ::VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (memory == nullptr) *error = ::GetLastError();
    return memory;
}

void ReleaseMemory(void* memory, size_t) {
    if (memory != nullptr) ::VirtualFree(memory, 0, MEM_RELEASE);
}

}  // namespace velmora::platform
