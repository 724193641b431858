// Windows: global memory is the system's own.
#include <windows.h>

#include "platform/platform.h"

namespace velmora::platform {

HGLOBAL MemAlloc(unsigned flags, size_t bytes) { return ::GlobalAlloc(flags, bytes); }
HGLOBAL MemReAlloc(HGLOBAL mem, size_t bytes, unsigned flags) { return ::GlobalReAlloc(mem, bytes, flags); }
void* MemLock(HGLOBAL mem) { return ::GlobalLock(mem); }
bool MemUnlock(HGLOBAL mem) { return ::GlobalUnlock(mem) != FALSE; }
size_t MemSize(HGLOBAL mem) { return ::GlobalSize(mem); }
unsigned MemFlags(HGLOBAL mem) { return ::GlobalFlags(mem); }
HGLOBAL MemFree(HGLOBAL mem) { return ::GlobalFree(mem); }

void MemoryStatus(uint64_t* available, uint64_t* total) {
    MEMORYSTATUSEX status = {};
    status.dwLength = sizeof status;
    if (::GlobalMemoryStatusEx(&status)) {
        *available = status.ullAvailVirtual;
        *total = status.ullTotalVirtual;
    } else {
        *available = 0;
        *total = 0;
    }
}

}  // namespace velmora::platform
