// Module entry and the Win32 memory and last-error functions that the library
// exports on POSIX systems (velmora/wintypes.h maps the Win32 names onto
// them).
#include <dlfcn.h>

#include "platform/platform.h"
#include "velmora/velmora.h"

namespace {

__attribute__((constructor)) void LibraryLoaded() {
    Dl_info info;
    void* self = nullptr;
    if (dladdr(reinterpret_cast<void*>(&LibraryLoaded), &info) != 0) self = info.dli_fbase;
    velmora::ProcessAttach(self);
}

__attribute__((destructor)) void LibraryUnloaded() { velmora::ProcessDetach(); }

}  // namespace

extern "C" {

VELMORA_EXPORT HGLOBAL VelmoraGlobalAlloc(UINT flags, SIZE_T bytes) {
    return velmora::platform::MemAlloc(flags, bytes);
}
VELMORA_EXPORT HGLOBAL VelmoraGlobalReAlloc(HGLOBAL mem, SIZE_T bytes, UINT flags) {
    return velmora::platform::MemReAlloc(mem, bytes, flags);
}
VELMORA_EXPORT LPVOID VelmoraGlobalLock(HGLOBAL mem) { return velmora::platform::MemLock(mem); }
VELMORA_EXPORT BOOL VelmoraGlobalUnlock(HGLOBAL mem) { return velmora::platform::MemUnlock(mem) ? TRUE : FALSE; }
VELMORA_EXPORT SIZE_T VelmoraGlobalSize(HGLOBAL mem) { return velmora::platform::MemSize(mem); }
VELMORA_EXPORT UINT VelmoraGlobalFlags(HGLOBAL mem) { return velmora::platform::MemFlags(mem); }
VELMORA_EXPORT HGLOBAL VelmoraGlobalFree(HGLOBAL mem) { return velmora::platform::MemFree(mem); }
VELMORA_EXPORT DWORD VelmoraGetLastError(void) { return velmora::platform::GetSystemError(); }
VELMORA_EXPORT void VelmoraSetLastError(DWORD code) { velmora::platform::SetSystemError(code); }

}  // extern "C"
