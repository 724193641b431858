// The settings store: per-user settings under a key the host may move, with a
// fallback to a defaults file the host names.
//
// Settings are addressed by section and value name, both string ids. They are
// read first from the user's settings (the key
// "Software\Solvenir\Velmora\3.0\<section>", or "<root>\<section>" once the
// host set a root), then, when empty and asked to, from the "[Defaults]"
// section of the defaults file, where the line "HKCU\<section>\<value>=..."
// holds the default.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "frame/error_record.h"

namespace velmora {

// The buffer receives the value or an empty string; a missing key, value, file
// or section is not an error.
void ReadSetting(uint16_t sectionId, uint16_t valueId, bool useDefaults, char16_t* buffer, size_t size,
                 ErrorRecord* record);
bool WriteSetting(uint16_t sectionId, uint16_t valueId, const std::u16string& value, ErrorRecord* record);

// The key path of a section in the user's settings.
std::u16string SettingsKeyPath(const std::u16string& section);

// Host configuration. SetSettingsFile fails with the file system's error when
// the file does not exist; a path starting with "." and a separator is taken
// relative to the library's directory. SetPrefsRoot fails with 87 for a root
// that starts with a backslash or holds an empty component; an empty root
// restores the default location.
bool SetSettingsFile(const std::u16string& path, ErrorRecord* record);
bool SetPrefsRoot(const std::u16string& root, ErrorRecord* record);
std::u16string SettingsFile();
std::u16string PrefsRoot();

}  // namespace velmora
