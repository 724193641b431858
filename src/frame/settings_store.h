// Where user settings persist. Settings live under a key path such as
// "Software\Solvenir\Velmora\3.0\General" (components separated by
// backslashes): Windows keeps them in the registry below HKEY_CURRENT_USER;
// elsewhere each key becomes a section of a per-user settings file.
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

namespace velmora {

#ifdef _WIN32
inline bool ReadUserSetting(const std::u16string& keyPath, const std::u16string& name, std::u16string* value) {
    return platform::ReadUserSetting(keyPath, name, value);
}
inline bool WriteUserSetting(const std::u16string& keyPath, const std::u16string& name,
                             const std::u16string& value, uint32_t* error) {
    return platform::WriteUserSetting(keyPath, name, value, error);
}
#else
bool ReadUserSetting(const std::u16string& keyPath, const std::u16string& name, std::u16string* value);
bool WriteUserSetting(const std::u16string& keyPath, const std::u16string& name, const std::u16string& value,
                      uint32_t* error);
#endif

}  // namespace velmora
