// Start-up services on POSIX systems. There is no Win32 shell, OLE or GDI
// here: the user-interface parts of the library answer for themselves, so
// these services succeed without doing anything.
#include <unistd.h>

#include <mutex>
#include <new>

#include "platform/platform.h"
#include "platform/version_resource.h"

namespace velmora::platform {
namespace {

// A non-null stand-in for a user-interface library and its entry points.
int g_standIn = 0;

}  // namespace

ModuleHandleT LoadSystemLibrary(const std::u16string&, uint32_t*) { return &g_standIn; }
void* SystemLibrarySymbol(ModuleHandleT library, const char*) { return library; }
void FreeSystemLibrary(ModuleHandleT) {}
uint32_t InitCommonControlsVersion() { return 0; }

void OsVersion(uint16_t* versionWord, uint32_t* platformId) {
    *versionWord = 0x0A00;  // reported as a current NT-family system
    *platformId = 2;
}

void RegisterWheelMessage() {}
int32_t OleInit() { return 0; }
void OleUninit() {}
bool CreateUiFont(const std::u16string&, uint32_t*) { return true; }
void DeleteUiFont() {}
bool LoadCursors(uint32_t*) { return true; }
bool RegisterProgressBarClass(uint32_t*) { return true; }
void UnregisterPrintWindowClass() {}


void ReadVersionResource(std::u16string* productName, std::u16string* productVersion) {
    *productName = WideFromUtf8(kVersionProductName);
    *productVersion = WideFromUtf8(kVersionProductVersion);
}

static_assert(sizeof(std::recursive_mutex) <= 64, "lock storage too small");

RecursiveLock::RecursiveLock() { new (storage_) std::recursive_mutex; }
RecursiveLock::~RecursiveLock() { reinterpret_cast<std::recursive_mutex*>(storage_)->~recursive_mutex(); }
void RecursiveLock::Lock() { reinterpret_cast<std::recursive_mutex*>(storage_)->lock(); }
void RecursiveLock::Unlock() { reinterpret_cast<std::recursive_mutex*>(storage_)->unlock(); }

}  // namespace velmora::platform
