// Start-up services on Windows: the system's user-interface libraries, OLE,
// the interface font and cursors, the progress-bar class, and locks.
#include <windows.h>
#include <ole2.h>

#include <string>

#include "platform/platform.h"

namespace velmora::platform {
namespace {

const wchar_t* W(const std::u16string& text) { return reinterpret_cast<const wchar_t*>(text.c_str()); }

HFONT g_uiFont = nullptr;
HCURSOR g_arrowCursor = nullptr;
HCURSOR g_waitCursor = nullptr;
ATOM g_progressBarClass = 0;
constexpr UINT kLoadedNormally = 0;
constexpr UINT kQuietErrorMode = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;

HMODULE OwnModule() {
    HMODULE module = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<LPCWSTR>(&OwnModule), &module);
    return module;
}

struct DllVersion {
    DWORD size;
    DWORD major;
    DWORD minor;
    DWORD build;
    DWORD platform;
};

}  // namespace

void SetQuietErrorMode() { ::SetErrorMode(kQuietErrorMode); }

ModuleHandleT LoadSystemLibrary(const std::u16string& name, uint32_t* error) {
    HMODULE module = ::LoadLibraryExW(W(name), nullptr, kLoadedNormally);
    if (module == nullptr) *error = ::GetLastError();
    return module;
}

void* SystemLibrarySymbol(ModuleHandleT library, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(library), name));
}

void FreeSystemLibrary(ModuleHandleT library) { ::FreeLibrary(static_cast<HMODULE>(library)); }

uint32_t InitCommonControlsVersion() {
    HMODULE controls = ::LoadLibraryExW(L"comctl32.dll", nullptr, kLoadedNormally);
    if (controls == nullptr) return 0;
    uint32_t version = 0;
    using GetVersionProc = HRESULT(WINAPI*)(DllVersion*);
    auto getVersion =
        reinterpret_cast<GetVersionProc>(reinterpret_cast<void*>(::GetProcAddress(controls, "DllGetVersion")));
    DllVersion info = {sizeof(DllVersion), 0, 0, 0, 0};
    if (getVersion != nullptr && SUCCEEDED(getVersion(&info))) version = (info.major << 16) | (info.minor & 0xFFFF);
    using InitProc = void(WINAPI*)();
    auto init = reinterpret_cast<InitProc>(reinterpret_cast<void*>(::GetProcAddress(controls, "InitCommonControls")));
    if (init != nullptr) init();
    ::FreeLibrary(controls);
    return version;
}

void OsVersion(uint16_t* versionWord, uint32_t* platformId) {
    OSVERSIONINFOW info = {};
    info.dwOSVersionInfoSize = sizeof info;  // 276 bytes
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    ::GetVersionExW(&info);
#pragma GCC diagnostic pop
    *versionWord = static_cast<uint16_t>(((info.dwMajorVersion & 0xFF) << 8) | (info.dwMinorVersion & 0xFF));
    *platformId = info.dwPlatformId;
}

void RegisterWheelMessage() { ::RegisterWindowMessageW(L"MSWHEEL_ROLLMSG"); }

int32_t OleInit() { return ::OleInitialize(nullptr); }
void OleUninit() { ::OleUninitialize(); }

bool CreateUiFont(const std::u16string& faceName, uint32_t* error) {
    HDC screen = ::GetDC(nullptr);
    int height = -::MulDiv(8, ::GetDeviceCaps(screen, LOGPIXELSY), 72);
    g_uiFont = ::CreateFontW(height, 0, 0, 0, FW_NORMAL, 0, 0, 0, 0, 0, 0, 0, 0, W(faceName));
    if (g_uiFont == nullptr) *error = ::GetLastError();
    ::ReleaseDC(nullptr, screen);
    return g_uiFont != nullptr;
}

void DeleteUiFont() {
    if (g_uiFont != nullptr) ::DeleteObject(g_uiFont);
    g_uiFont = nullptr;
}

bool LoadCursors(uint32_t* error) {
    g_arrowCursor = ::LoadCursorW(nullptr, MAKEINTRESOURCEW(32512));
    if (g_arrowCursor != nullptr) g_waitCursor = ::LoadCursorW(nullptr, MAKEINTRESOURCEW(32514));
    if (g_arrowCursor == nullptr || g_waitCursor == nullptr) {
        *error = ::GetLastError();
        return false;
    }
    return true;
}

bool RegisterProgressBarClass(uint32_t* error) {
    if (g_progressBarClass != 0) return true;
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = ::DefWindowProcW;
    windowClass.hInstance = OwnModule();
    windowClass.hCursor = g_arrowCursor;
    windowClass.lpszClassName = L"ProgressBar";
    g_progressBarClass = ::RegisterClassW(&windowClass);
    if (g_progressBarClass == 0 && ::GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
        *error = ::GetLastError();
        return false;
    }
    return true;
}

void UnregisterPrintWindowClass() {}


void ReadVersionResource(std::u16string* productName, std::u16string* productVersion) {
    productName->clear();
    productVersion->clear();
    wchar_t path[MAX_PATH * 4];
    if (::GetModuleFileNameW(OwnModule(), path, MAX_PATH * 4) == 0) return;
    DWORD ignored = 0;
    DWORD size = ::GetFileVersionInfoSizeW(path, &ignored);
    if (size == 0) return;
    std::string block(size, '\0');
    if (!::GetFileVersionInfoW(path, 0, size, block.data())) return;
    struct Translation {
        WORD language;
        WORD codePage;
    }* translation = nullptr;
    UINT length = 0;
    if (!::VerQueryValueW(block.data(), L"\\VarFileInfo\\Translation", reinterpret_cast<void**>(&translation),
                          &length) ||
        length < sizeof(Translation)) {
        return;
    }
    auto read = [&](const wchar_t* name, std::u16string* out) {
        wchar_t query[128];
        ::wsprintfW(query, L"\\StringFileInfo\\%04X%04X\\%s", translation->language, translation->codePage, name);
        wchar_t* value = nullptr;
        UINT chars = 0;
        if (::VerQueryValueW(block.data(), query, reinterpret_cast<void**>(&value), &chars) && value != nullptr) {
            *out = reinterpret_cast<const char16_t*>(value);
        }
    };
    read(L"ProductName", productName);
    read(L"ProductVersion", productVersion);
}

static_assert(sizeof(CRITICAL_SECTION) <= 64, "lock storage too small");

RecursiveLock::RecursiveLock() { ::InitializeCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(storage_)); }
RecursiveLock::~RecursiveLock() { ::DeleteCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(storage_)); }
void RecursiveLock::Lock() { ::EnterCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(storage_)); }
void RecursiveLock::Unlock() { ::LeaveCriticalSection(reinterpret_cast<CRITICAL_SECTION*>(storage_)); }

}  // namespace velmora::platform
