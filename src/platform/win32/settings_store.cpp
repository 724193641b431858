// Windows keeps the user's settings in the registry below HKEY_CURRENT_USER.
#include <windows.h>

#include <string>

#include "platform/platform.h"

namespace velmora::platform {
namespace {

const wchar_t* W(const std::u16string& text) { return reinterpret_cast<const wchar_t*>(text.c_str()); }

}  // namespace

bool ReadUserSetting(const std::u16string& keyPath, const std::u16string& name, std::u16string* value) {
    HKEY key;
    if (::RegOpenKeyExW(HKEY_CURRENT_USER, W(keyPath), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
    wchar_t data[1024];
    DWORD type = 0;
    DWORD size = sizeof data - sizeof(wchar_t);
    LONG result = ::RegQueryValueExW(key, W(name), nullptr, &type, reinterpret_cast<BYTE*>(data), &size);
    ::RegCloseKey(key);
    if (result != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) return false;
    data[size / sizeof(wchar_t)] = 0;
    *value = reinterpret_cast<const char16_t*>(data);
    return true;
}

bool WriteUserSetting(const std::u16string& keyPath, const std::u16string& name, const std::u16string& value,
                      uint32_t* error) {
    HKEY key;
    LONG result = ::RegCreateKeyExW(HKEY_CURRENT_USER, W(keyPath), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr);
    if (result == ERROR_SUCCESS) {
        result = ::RegSetValueExW(key, W(name), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                                  static_cast<DWORD>((value.size() + 1) * sizeof(char16_t)));
        ::RegCloseKey(key);
    }
    if (result != ERROR_SUCCESS) {
        *error = static_cast<uint32_t>(result);
        return false;
    }
    return true;
}

}  // namespace velmora::platform
