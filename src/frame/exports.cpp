// Exported functions of the library frame: start-up, version, product name,
// errors, debug-log validators, language and settings.
#include <cstring>
#include <string>

#include "frame/error_record.h"
#include "frame/export_call.h"
#include "frame/language.h"
#include "frame/library.h"
#include "frame/memory_handle.h"
#include "frame/settings.h"
#include "frame/wide_text.h"
#include "velmora/velmora.h"

using velmora::ErrorRecord;
using velmora::ExportCall;
using velmora::FromHost;

namespace {

constexpr LONG kDebugFlagsMask = 0x1F;

size_t LowWord(DWORD size) { return size & 0xFFFFu; }

}  // namespace

DWORD VELMORA_API InitVelmoraEx(DWORD flags) {
    if (!velmora::SetInitFlags(flags)) {
        velmora::SetErrorCode(velmora::kErrInvalidParameter);
        return 0;
    }
    return 1;
}

void VELMORA_API TerminateVelmoraDLL(void) { velmora::TerminateLibrary(); }

SHORT VELMORA_API GetVelmoraVersion(LPSTR buffer, DWORD size) {
    ExportCall call;
    if (!call.Gate()) return 0;
    if (buffer == nullptr) return static_cast<SHORT>(VELMORA_VERSION);
    size_t bytes = LowWord(size);
    if (!call.Writable(buffer, bytes)) return 0;
    if (bytes == 0) return static_cast<SHORT>(VELMORA_VERSION);
    buffer[0] = '\0';
    // Truncated to the buffer, never cutting a character in two.
    std::string text = velmora::platform::Utf8FromWide(velmora::VersionText());
    size_t n = text.size() < bytes - 1 ? text.size() : bytes - 1;
    while (n > 0 && n < text.size() && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) --n;
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
    return static_cast<SHORT>(VELMORA_VERSION);
}

SHORT VELMORA_API GetVelmoraVersionW(LPWSTR buffer, DWORD size) {
    ExportCall call;
    if (!call.Gate()) return 0;
    if (buffer == nullptr) return static_cast<SHORT>(VELMORA_VERSION);
    if (!call.Writable(buffer, 2 * static_cast<size_t>(size))) return 0;
    if (size == 0) return static_cast<SHORT>(VELMORA_VERSION);
    std::u16string text = velmora::VersionText();
    size_t n = text.size() < size - 1 ? text.size() : size - 1;
    text.copy(FromHost(buffer), n);
    buffer[n] = 0;
    return static_cast<SHORT>(VELMORA_VERSION);
}

DWORD VELMORA_API VelmoraSystemInfo(HWND parent) {
    if (velmora::InitFlags() & velmora::kInitNoShell) {
        velmora::SetErrorCode(velmora::kErrFunctionDisabled);
        return 0;
    }
    ExportCall call;
    if (!call.Gate() || (parent != nullptr && !call.Window(parent))) return 0;
    // The system-information dialog belongs to the Win32 user interface.
    velmora::SetRecordError(&call.record, velmora::kErrCallNotImplemented, 0);
    return static_cast<DWORD>(call.Finish());
}

DWORD VELMORA_API SetVelmoraProductName(LPCSTR name) {
    ExportCall call;
    if (!call.Gate() || (name != nullptr && !call.String(name))) return 0;
    if (name == nullptr) {
        velmora::SetProductNameOverride(nullptr);
        return 1;
    }
    std::u16string wide;
    if (call.Widen(name, &wide)) velmora::SetProductNameOverride(wide.c_str());
    return static_cast<DWORD>(call.Finish());
}

DWORD VELMORA_API SetVelmoraProductNameW(LPCWSTR name) {
    ExportCall call;
    if (!call.Gate() || (name != nullptr && !call.String(FromHost(name)))) return 0;
    velmora::SetProductNameOverride(FromHost(name));
    return 1;
}

LONG VELMORA_API SetVelmoraPointer(DWORD* target, DWORD value) {
    if (!velmora::platform::IsWritableMemory(target, sizeof *target)) return 1;
    *target = value;
    return static_cast<LONG>(value);
}

BOOL VELMORA_API GetVelmoraErrorMessage(DWORD code, LPSTR buffer, DWORD size) {
    ExportCall call;
    size_t bytes = LowWord(size);
    if (!call.Gate() || !call.Writable(buffer, bytes)) return 0;
    char16_t message[velmora::kMessageLength];
    velmora::BuildErrorMessage(code == 0 ? static_cast<DWORD>(velmora::kErrCallNotImplemented) : code, message,
                               velmora::kMessageLength);
    velmora::CopyToNarrowOutput(message, buffer, bytes, &call.record);
    return call.Finish();
}

BOOL VELMORA_API GetVelmoraErrorMessageW(DWORD code, LPWSTR buffer, WORD size) {
    ExportCall call;
    if (!call.Gate() || !call.Writable(buffer, 2 * static_cast<size_t>(size))) return 0;
    if (size == 0) return 1;
    char16_t message[velmora::kMessageLength];
    velmora::BuildErrorMessage(code == 0 ? static_cast<DWORD>(velmora::kErrCallNotImplemented) : code, message,
                               velmora::kMessageLength);
    size_t n = 0;
    while (message[n] != 0 && n + 1 < size) {
        buffer[n] = message[n];
        ++n;
    }
    buffer[n] = 0;
    return 1;
}

DWORD VELMORA_API GetLastVelmoraErrorCode(void) {
    if (!velmora::EnsureLibraryInitialized()) return 0;
    return velmora::LastErrorCode();
}

DWORD VELMORA_API SetLastVelmoraError(DWORD code) {
    if (!velmora::EnsureLibraryInitialized()) return 0;
    velmora::SetLastErrorCodeOnly(code);
    return code;
}

BOOL VELMORA_API EnableVelmoraDebug(LONG flags, DWORD) {
    ExportCall call;
    if (!call.Gate() || !call.Value((flags & ~kDebugFlagsMask) == 0)) return 0;
    return 1;
}

BOOL VELMORA_API SetVelmoraDebugLogFile(LPCSTR path) {
    ExportCall call;
    if (!call.Gate() || !call.String(path)) return 0;
    return 1;
}

BOOL VELMORA_API SetVelmoraDebugLogProc(LONG flags, VelmoraDebugLogProc procedure, UINT_PTR) {
    ExportCall call;
    if (!call.Gate() || !call.Value(flags == 0 || flags == 1)) return 0;
    if (procedure == nullptr) return 1;
    if (!call.Callable(reinterpret_cast<const void*>(procedure))) return 0;
    return 1;
}

BOOL VELMORA_API SetVelmoraLanguage(DWORD language) {
    uint16_t wanted = static_cast<uint16_t>(language & 0xFFFFu);
    if (!velmora::IsLibraryInitialized()) {
        velmora::SetStartupLanguage(wanted);
        if (!velmora::EnsureLibraryInitialized()) return 0;
        if (wanted != 0 && wanted != velmora::kEnglishUs && velmora::GetCurrentLanguage() != wanted) {
            velmora::SetErrorCode(velmora::kErrFileNotFound);
            return 0;
        }
        return 1;
    }
    ExportCall call;
    if (!call.Gate()) return 0;
    bool selected;
    if (wanted == 0) {
        selected = velmora::SelectLanguage(velmora::platform::UserDefaultLanguage(), &call.record);
        if (!selected) {
            call.record = ErrorRecord();
            selected = velmora::SelectLanguage(velmora::kEnglishUs, &call.record);
        }
    } else {
        selected = velmora::SelectLanguage(wanted, &call.record);
    }
    if (!selected && call.record.ok()) velmora::SetRecordError(&call.record, velmora::kErrFileNotFound, 0);
    if (!call.Finish()) return 0;
    // The host's choice also holds when the library is initialised again.
    velmora::SetStartupLanguage(velmora::GetCurrentLanguage());
    return 1;
}

BOOL VELMORA_API CheckVelmoraLanguage(DWORD language, DWORD showMessages) {
    ExportCall call;
    if (!call.Gate() || !call.Value((language & 0xFFFFu) != 0)) return 0;
    velmora::CheckLanguage(static_cast<uint16_t>(language & 0xFFFFu), showMessages != 0, &call.record);
    return call.Finish();
}

BOOL VELMORA_API SetVelmoraIniFile(LPCSTR path) {
    ExportCall call;
    if (!call.Gate() || !call.String(path)) return 0;
    std::u16string wide;
    if (call.Widen(path, &wide)) velmora::SetSettingsFile(wide, &call.record);
    return call.Finish();
}

BOOL VELMORA_API SetVelmoraIniFileW(LPCWSTR path) {
    ExportCall call;
    if (!call.Gate() || !call.String(FromHost(path))) return 0;
    velmora::SetSettingsFile(FromHost(path), &call.record);
    return call.Finish();
}

BOOL VELMORA_API SetVelmoraWindowPrefsRoot(LPCSTR root) {
    ExportCall call;
    if (!call.Gate() || !call.String(root)) return 0;
    std::u16string wide;
    if (call.Widen(root, &wide)) velmora::SetPrefsRoot(wide, &call.record);
    return call.Finish();
}

BOOL VELMORA_API SetVelmoraWindowPrefsRootW(LPCWSTR root) {
    ExportCall call;
    if (!call.Gate() || !call.String(FromHost(root))) return 0;
    velmora::SetPrefsRoot(FromHost(root), &call.record);
    return call.Finish();
}
