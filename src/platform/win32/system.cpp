// Windows implementation of the system services.
#include <windows.h>

#include <cstring>
#include <string>

#include "platform/platform.h"

namespace velmora::platform {
namespace {

const wchar_t* W(const std::u16string& text) { return reinterpret_cast<const wchar_t*>(text.c_str()); }

std::u16string FromWide(const wchar_t* text) { return std::u16string(reinterpret_cast<const char16_t*>(text)); }

HMODULE OwnModule() {
    HMODULE module = nullptr;
    ::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                         reinterpret_cast<LPCWSTR>(&OwnModule), &module);
    return module;
}

std::u16string Convert(UINT codePage, const char* text, uint32_t* error) {
    int length = ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text, -1, nullptr, 0);
    if (length <= 0) {
        *error = ::GetLastError();
        return std::u16string();
    }
    std::u16string out(static_cast<size_t>(length), u'\0');
    ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text, -1, reinterpret_cast<wchar_t*>(out.data()), length);
    out.resize(static_cast<size_t>(length - 1));
    return out;
}

}  // namespace

uint32_t GetSystemError() { return ::GetLastError(); }
void SetSystemError(uint32_t code) { ::SetLastError(code); }
uint32_t TickCount() { return ::GetTickCount(); }

bool WideToNarrow(const char16_t* text, char* out, size_t size, uint32_t* error) {
    int limit = size > 0x7FFFFFFF ? 0x7FFFFFFF : static_cast<int>(size);
    if (limit == 0 || ::WideCharToMultiByte(CP_ACP, 0, reinterpret_cast<const wchar_t*>(text), -1, out, limit, nullptr,
                                            nullptr) == 0) {
        *error = limit == 0 ? ERROR_INSUFFICIENT_BUFFER : ::GetLastError();
        if (size > 0) out[0] = '\0';
        return false;
    }
    return true;
}

bool NarrowToWide(const char* text, std::u16string* out, uint32_t* error) {
    uint32_t failure = 0;
    *out = Convert(CP_ACP, text, &failure);
    if (failure != 0) {
        *error = failure;
        return false;
    }
    return true;
}

std::u16string WideFromUtf8(const std::string& text) {
    uint32_t error = 0;
    return Convert(CP_UTF8, text.c_str(), &error);
}

std::string Utf8FromWide(const std::u16string& text) {
    const wchar_t* wide = W(text);
    int length = ::WideCharToMultiByte(CP_UTF8, 0, wide, -1, nullptr, 0, nullptr, nullptr);
    if (length <= 0) return std::string();
    std::string out(static_cast<size_t>(length), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, wide, -1, out.data(), length, nullptr, nullptr);
    out.resize(static_cast<size_t>(length - 1));
    return out;
}

bool SystemErrorText(uint32_t code, char16_t* out, size_t size) {
    DWORD length = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                                    MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<wchar_t*>(out),
                                    static_cast<DWORD>(size), nullptr);
    return length != 0;
}

uint16_t UserDefaultLanguage() { return ::GetUserDefaultLangID(); }

std::u16string LanguageDisplayName(uint16_t language) {
    wchar_t name[128];
    if (::GetLocaleInfoW(MAKELCID(language, SORT_DEFAULT), LOCALE_SLANGUAGE, name, 128) == 0) return std::u16string();
    return FromWide(name);
}

std::u16string ModulePath() {
    wchar_t path[MAX_PATH * 4];
    DWORD length = ::GetModuleFileNameW(OwnModule(), path, MAX_PATH * 4);
    if (length == 0 || length >= MAX_PATH * 4) return std::u16string();
    return FromWide(path);
}

std::u16string SystemTempDirectory() {
    wchar_t path[MAX_PATH + 1];
    DWORD length = ::GetTempPathW(MAX_PATH + 1, path);
    if (length == 0 || length > MAX_PATH) return u"C:\\";
    return FromWide(path);
}

char16_t PathSeparator() { return u'\\'; }
bool IsPathSeparator(char16_t c) { return c == u'\\' || c == u'/'; }
std::u16string UserConfigDirectory() { return std::u16string(); }

// The colour-management module is loaded on demand: systems without it have
// no colour folder.
bool SrgbProfilePath(std::u16string* path, uint32_t* error) {
    using ColorDirectoryFunction = BOOL(WINAPI*)(PCWSTR, PWSTR, PDWORD);
    HMODULE module = ::LoadLibraryExW(L"mscms.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    auto function = module == nullptr ? nullptr
                                      : reinterpret_cast<ColorDirectoryFunction>(
                                            reinterpret_cast<void*>(::GetProcAddress(module, "GetColorDirectoryW")));
    wchar_t folder[MAX_PATH + 1];
    DWORD size = sizeof folder;
    const bool found = function != nullptr && function(nullptr, folder, &size);
    if (!found) *error = function == nullptr ? ERROR_CALL_NOT_IMPLEMENTED : ::GetLastError();
    if (module != nullptr) ::FreeLibrary(module);
    if (!found) return false;
    *path = FromWide(folder) + u"\\sRGB Color Space Profile.icm";
    return true;
}

ModuleHandleT LoadModule(const std::u16string& path, uint32_t* error) {
    HMODULE module = ::LoadLibraryExW(W(path), nullptr, 0);
    if (module == nullptr) *error = ::GetLastError();
    return module;
}

void* ModuleSymbol(ModuleHandleT module, const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(static_cast<HMODULE>(module), name));
}

void UnloadModule(ModuleHandleT module) {
    if (module != nullptr) ::FreeLibrary(static_cast<HMODULE>(module));
}

std::u16string SharedLibraryName(const std::u16string& base) { return base + u".dll"; }

bool IsReadableMemory(const void* pointer, size_t bytes) {
    return bytes == 0 || (pointer != nullptr && !::IsBadReadPtr(pointer, bytes));
}
bool IsWritableMemory(void* pointer, size_t bytes) {
    return bytes == 0 || (pointer != nullptr && !::IsBadWritePtr(pointer, bytes));
}
bool IsReadableString(const char* text) { return text != nullptr && !::IsBadStringPtrA(text, ~UINT_PTR(0)); }
bool IsReadableString(const char16_t* text) {
    return text != nullptr && !::IsBadStringPtrW(reinterpret_cast<const wchar_t*>(text), ~UINT_PTR(0));
}
bool IsCallable(const void* code) {
    return code != nullptr && !::IsBadCodePtr(reinterpret_cast<FARPROC>(const_cast<void*>(code)));
}

void ShowMessage(const std::u16string& title, const std::u16string& text) {
    ::MessageBoxW(nullptr, W(text), W(title), MB_OK | MB_ICONINFORMATION | MB_TASKMODAL);
}

bool IsWindowHandle(HWND window) { return window != nullptr && ::IsWindow(window); }

}  // namespace velmora::platform
