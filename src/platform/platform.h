// The one interface between the library and the operating system. Everything
// the library needs from the system (memory handles, the thread's last error,
// files, the module's own path, time, code pages, run-time loading, the user's
// settings store) comes through here; posix/ and win32/ implement it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "velmora/wintypes.h"

namespace velmora::platform {

// ---- Global memory handles -------------------------------------------------
// The Windows global-memory contract: lock counts, GMEM_MOVEABLE, GMEM_ZEROINIT.
// A null, freed or never-issued handle is reported as invalid (flags
// GMEM_INVALID_HANDLE, error 6) and never dereferenced.
HGLOBAL MemAlloc(unsigned flags, size_t bytes);
HGLOBAL MemReAlloc(HGLOBAL mem, size_t bytes, unsigned flags);
void* MemLock(HGLOBAL mem);
bool MemUnlock(HGLOBAL mem);
size_t MemSize(HGLOBAL mem);
unsigned MemFlags(HGLOBAL mem);
HGLOBAL MemFree(HGLOBAL mem);  // null on success, mem on failure
inline bool IsValidHandle(HGLOBAL mem) { return mem != nullptr && MemFlags(mem) != GMEM_INVALID_HANDLE; }
// Total and available memory for allocation-failure messages.
void MemoryStatus(uint64_t* available, uint64_t* total);

// ---- The calling thread's system last error --------------------------------
uint32_t GetSystemError();
void SetSystemError(uint32_t code);

// ---- Time ------------------------------------------------------------------
// Milliseconds since an arbitrary start, wrapping at 2^32.
uint32_t TickCount();

// ---- Strings ---------------------------------------------------------------
// Converts wide (UTF-16) text to the system code page. Fails with error 122
// (and an empty output) when the buffer cannot hold the whole text and its
// terminator. `size` counts bytes including the terminator.
bool WideToNarrow(const char16_t* text, char* out, size_t size, uint32_t* error);
// Converts system-code-page text to wide text; false with an error code when
// the text is not valid in the code page.
bool NarrowToWide(const char* text, std::u16string* out, uint32_t* error);
std::u16string WideFromUtf8(const std::string& text);
std::string Utf8FromWide(const std::u16string& text);

// The system's own text for an error code, without a trailing line break.
// False when the system has none.
bool SystemErrorText(uint32_t code, char16_t* out, size_t size);

// The user's default language id (1033 when the system cannot tell).
uint16_t UserDefaultLanguage();
// The display name of a language ("Deutsch (Deutschland)" or a locale name);
// empty when unknown.
std::u16string LanguageDisplayName(uint16_t language);

// ---- Module and paths -------------------------------------------------------
// Full path of the library's own file.
std::u16string ModulePath();
// The directory for temporary files of the system, with a trailing separator.
std::u16string SystemTempDirectory();
// The native path separator.
char16_t PathSeparator();
bool IsPathSeparator(char16_t c);
// The directory holding per-user configuration files (Linux: $XDG_CONFIG_HOME
// or ~/.config); empty on platforms that keep settings elsewhere.
std::u16string UserConfigDirectory();
// The full path of the system's sRGB colour profile. On Linux the first of
// the paths the distribution's profile packages install that exists (the
// first one when none does, so that opening it reports the missing file);
// on Windows the profile in the system colour folder. False with error 120
// when the system offers no colour folder.
bool SrgbProfilePath(std::u16string* path, uint32_t* error);

// ---- Files -----------------------------------------------------------------
enum class FileAccess { Read, ReadWrite, CreateReadWrite, CreateNew };
using FileHandle = intptr_t;
constexpr FileHandle kNoFile = -1;

FileHandle FileOpen(const std::u16string& path, FileAccess access, uint32_t* error);
// Reads up to `size` bytes; the count read goes to *done (short at the end).
bool FileRead(FileHandle file, void* buffer, size_t size, size_t* done, uint32_t* error);
bool FileWrite(FileHandle file, const void* buffer, size_t size, uint32_t* error);
bool FileSeek(FileHandle file, uint64_t offset, uint32_t* error);
bool FileSize(FileHandle file, uint64_t* size, uint32_t* error);
bool FileTruncate(FileHandle file, uint64_t size, uint32_t* error);
void FileClose(FileHandle file);
bool FileExists(const std::u16string& path, uint32_t* error);
bool FileDelete(const std::u16string& path, uint32_t* error);
bool FileReplace(const std::u16string& from, const std::u16string& to, uint32_t* error);
// Last-write time as a 64-bit count (Windows FILETIME units on Windows).
bool FileWriteTime(const std::u16string& path, uint64_t* time, uint32_t* error);
// Creates a new, empty file with a unique name "<prefix>XXXX.tmp" in `directory`.
bool CreateTempFile(const std::u16string& directory, const std::u16string& prefix, std::u16string* path,
                    uint32_t* error);
bool CreateDirectories(const std::u16string& path, uint32_t* error);
// The absolute, normalised form of `path` (relative to the current directory;
// "." and ".." components resolved by name, as GetFullPathName does).
bool FullPathName(const std::u16string& path, std::u16string* full, uint32_t* error);
// True when `path` names an existing directory.
bool IsDirectory(const std::u16string& path);

// ---- Component-object-model streams ------------------------------------------
// Only Windows has IStream; elsewhere every call fails with error 120 and the
// reference calls do nothing. `mode` receives the STGM_* bits of the stream.
bool ComStreamStat(IStream* stream, uint64_t* size, std::u16string* name, uint32_t* mode, uint32_t* error);
bool ComStreamRead(IStream* stream, void* buffer, uint32_t size, uint32_t* done, uint32_t* error);
bool ComStreamWrite(IStream* stream, const void* buffer, uint32_t size, uint32_t* done, uint32_t* error);
bool ComStreamSeek(IStream* stream, uint64_t offset, uint32_t* error);
bool ComStreamSetSize(IStream* stream, uint64_t size, uint32_t* error);
void ComStreamAddRef(IStream* stream);
void ComStreamRelease(IStream* stream);

// ---- Run-time loading ---------------------------------------------------------
using ModuleHandleT = void*;
ModuleHandleT LoadModule(const std::u16string& path, uint32_t* error);
void* ModuleSymbol(ModuleHandleT module, const char* name);
void UnloadModule(ModuleHandleT module);
// The file name of the shared library called `base`: "<base>.dll" on
// Windows, "lib<base>.so" elsewhere.
std::u16string SharedLibraryName(const std::u16string& base);

#ifdef _WIN32
// ---- The registry --------------------------------------------------------------
// Values below HKEY_CURRENT_USER under a key path such as
// "Software\Solvenir\Velmora\3.0\General" (components separated by backslashes).
bool ReadUserSetting(const std::u16string& keyPath, const std::u16string& name, std::u16string* value);
bool WriteUserSetting(const std::u16string& keyPath, const std::u16string& name, const std::u16string& value,
                      uint32_t* error);
#endif

// ---- Page-granular memory -----------------------------------------------------
// For images too large for one global block. The system's memory page size:
size_t MemoryPageSize();
// Committed memory backed by the paging file: a mapping object and a
// writable view of `bytes`, zero-filled. `*mapping` receives the object (0
// where the system needs none). Null with an error code on failure.
void* MapPagedMemory(size_t bytes, uintptr_t* mapping, uint32_t* error);
void UnmapPagedMemory(uintptr_t mapping, void* view, size_t bytes);
// Memory reserved and committed at once, zero-filled; `bytes` is a multiple of
// the page size. Null with an error code on failure.
void* ReserveMemory(size_t bytes, uint32_t* error);
void ReleaseMemory(void* memory, size_t bytes);

// ---- Display palettes ---------------------------------------------------------
// What a palette device offers: its palette size, the number of entries the
// system reserves, and the system palette's entries (red, green, blue), of
// which `systemCount` were read (0 when they were not read, or when there
// were no more than the reserved ones).
struct DisplayPaletteInfo {
    uint32_t size;
    uint32_t reserved;
    uint32_t systemCount;
    uint8_t system[256][3];
};
// Reads the palette capabilities of `dc` (null: the screen, whose device
// context is taken for the call and released). False when the device has
// no palette, and on systems without GDI.
bool ReadDisplayPalette(HDC dc, DisplayPaletteInfo* info);
// A GDI logical palette (version 0x300, flags 0) of `count` entries given as
// red, green, blue triples; null with an error code on failure (and always
// on systems without GDI).
HPALETTE CreateLogicalPalette(const uint8_t* rgb, uint32_t count, uint32_t* error);

// ---- Monochrome bitmaps -------------------------------------------------------
// The size of a GDI bitmap as GetObjectW gives it: width, height, bits per
// pixel and bytes per row. False with the system's error (always on systems
// without GDI).
bool ReadBitmapSize(HBITMAP bitmap, uint32_t* width, uint32_t* height, uint32_t* bitsPerPixel, uint32_t* rowBytes,
                    uint32_t* error);
// The bitmap's rows, top row first, into `bytes` bytes at `out`
// (GetBitmapBits). False with the system's error.
bool ReadBitmapRows(HBITMAP bitmap, void* out, size_t bytes, uint32_t* error);

// ---- Pointer checks ----------------------------------------------------------
// Whether memory a caller passed can be read or written. Windows probes the
// memory; elsewhere only a null pointer (with a non-zero size) is refused.
bool IsReadableMemory(const void* pointer, size_t bytes);
bool IsWritableMemory(void* pointer, size_t bytes);
bool IsReadableString(const char* text);
bool IsReadableString(const char16_t* text);
bool IsCallable(const void* code);

// ---- User interface ----------------------------------------------------------
// Shows a message to the user: a message box on Windows, a line on standard
// error elsewhere.
void ShowMessage(const std::u16string& title, const std::u16string& text);
// True when `window` is a window (never on systems without the Win32 UI).
bool IsWindowHandle(HWND window);

// ---- Start-up services ----------------------------------------------------------
// What full initialisation asks of the system. Where a service has no meaning
// (no Win32 shell, no OLE, no GDI fonts) it succeeds without doing anything.
//
// Suppresses the system's critical-error boxes.
void SetQuietErrorMode();
// Loads one of the system's user-interface libraries ("shell32.dll",
// "comctl32.dll", "comdlg32.dll") and resolves its entry points by name. On
// systems without them the library's own stand-ins are returned.
ModuleHandleT LoadSystemLibrary(const std::u16string& name, uint32_t* error);
void* SystemLibrarySymbol(ModuleHandleT library, const char* name);
void FreeSystemLibrary(ModuleHandleT library);
// Reads the common-controls version and initialises the common controls.
uint32_t InitCommonControlsVersion();
// The operating system's version (major << 8 | minor) and platform id (2 = NT).
void OsVersion(uint16_t* versionWord, uint32_t* platformId);
void RegisterWheelMessage();
int32_t OleInit();  // an HRESULT
void OleUninit();
bool CreateUiFont(const std::u16string& faceName, uint32_t* error);
void DeleteUiFont();
bool LoadCursors(uint32_t* error);
bool RegisterProgressBarClass(uint32_t* error);
void UnregisterPrintWindowClass();
// The product name and version of the library's version resource.
void ReadVersionResource(std::u16string* productName, std::u16string* productVersion);

// ---- Locks ---------------------------------------------------------------------
// A recursive lock, like a critical section.
class RecursiveLock {
public:
    RecursiveLock();
    ~RecursiveLock();
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;
    void Lock();
    void Unlock();

private:
    alignas(16) unsigned char storage_[64];
};

class LockGuard {
public:
    explicit LockGuard(RecursiveLock* lock) : lock_(lock) {
        if (lock_ != nullptr) lock_->Lock();
    }
    ~LockGuard() {
        if (lock_ != nullptr) lock_->Unlock();
    }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    RecursiveLock* lock_;
};

}  // namespace velmora::platform

namespace velmora {

// ---- Module events -------------------------------------------------------------
// The module's entry points (the DLL entry on Windows, load and unload hooks
// elsewhere) report these; the library's frame implements them.
void ProcessAttach(void* moduleHandle);
void ProcessDetach();

}  // namespace velmora
