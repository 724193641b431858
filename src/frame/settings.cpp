#include "frame/settings.h"

#include <string>

#include "frame/ini_file.h"
#include "frame/library.h"
#include "frame/settings_store.h"
#include "frame/text.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint16_t kSoftware = 10102;
constexpr uint16_t kMaker = 10101;
constexpr uint16_t kProduct = 16708;
constexpr uint16_t kSettingsVersion = 10100;
constexpr uint16_t kDefaultsSection = 10139;
constexpr size_t kMaxSettingsFile = 260;
constexpr size_t kMaxPrefsRoot = 255;
constexpr size_t kMaxDefaultsFileSize = 16u << 20;
constexpr uint32_t kFilenameTooLong = 206;

// Hosts set these at start-up; they are not locked.
std::u16string g_prefsRoot;
std::u16string g_settingsFile;

bool ReadDefaultsFile(std::string* text) {
    if (g_settingsFile.empty()) return false;
    uint32_t error = 0;
    platform::FileHandle file = platform::FileOpen(g_settingsFile, platform::FileAccess::Read, &error);
    if (file == platform::kNoFile) return false;
    uint64_t size = 0;
    bool ok = platform::FileSize(file, &size, &error) && size <= kMaxDefaultsFileSize;
    if (ok) {
        text->resize(static_cast<size_t>(size));
        size_t done = 0;
        ok = platform::FileRead(file, text->data(), text->size(), &done, &error);
        text->resize(done);
    }
    platform::FileClose(file);
    return ok;
}

void CopyOut(const std::u16string& value, char16_t* buffer, size_t size) {
    size_t n = value.size() < size - 1 ? value.size() : size - 1;
    value.copy(buffer, n);
    buffer[n] = 0;
}

}  // namespace

std::u16string SettingsKeyPath(const std::u16string& section) {
    if (!g_prefsRoot.empty()) return g_prefsRoot + u"\\" + section;
    return TextString(kSoftware) + u"\\" + TextString(kMaker) + u"\\" + TextString(kProduct) + u"\\" +
           TextString(kSettingsVersion) + u"\\" + section;
}

void ReadSetting(uint16_t sectionId, uint16_t valueId, bool useDefaults, char16_t* buffer, size_t size,
                 ErrorRecord* record) {
    if (size == 0 || record->failed()) return;
    buffer[0] = 0;
    std::u16string section = TextString(sectionId);
    std::u16string name = TextString(valueId);
    std::u16string value;
    if (ReadUserSetting(SettingsKeyPath(section), name, &value) && !value.empty()) {
        CopyOut(value, buffer, size);
        return;
    }
    if (!useDefaults) return;
    std::string text;
    if (!ReadDefaultsFile(&text)) return;
    IniFile defaults = IniFile::Parse(text.data(), text.size());
    if (defaults.Find(TextString(kDefaultsSection), u"HKCU\\" + section + u"\\" + name, &value)) {
        CopyOut(value, buffer, size);
    }
}

bool WriteSetting(uint16_t sectionId, uint16_t valueId, const std::u16string& value, ErrorRecord* record) {
    if (record->failed()) return false;
    uint32_t error = 0;
    if (!WriteUserSetting(SettingsKeyPath(TextString(sectionId)), TextString(valueId), value, &error)) {
        SetRecordError(record, error, 0);
        return false;
    }
    return true;
}

bool SetSettingsFile(const std::u16string& path, ErrorRecord* record) {
    if (record->failed()) return false;
    std::u16string full = path;
    if (path.size() >= 2 && path[0] == u'.' && (path[1] == u'\\' || platform::IsPathSeparator(path[1]))) {
        full = LibraryDirectory() + path.substr(2);
    }
    if (full.size() >= kMaxSettingsFile) {
        SetRecordError(record, kFilenameTooLong, 0);
        return false;
    }
    uint32_t error = 0;
    if (!platform::FileExists(full, &error)) {
        SetRecordError(record, error, 0);
        return false;
    }
    g_settingsFile = full;
    return true;
}

bool SetPrefsRoot(const std::u16string& root, ErrorRecord* record) {
    if (record->failed()) return false;
    for (size_t i = 0; i < root.size(); ++i) {
        if (root[i] == u'\\' && (i == 0 || root[i - 1] == u'\\')) {
            SetRecordError(record, kErrInvalidParameter, 0);
            return false;
        }
    }
    std::u16string stored = root.substr(0, kMaxPrefsRoot);
    if (!stored.empty() && stored.back() == u'\\') stored.pop_back();
    g_prefsRoot = stored;
    return true;
}

std::u16string SettingsFile() { return g_settingsFile; }
std::u16string PrefsRoot() { return g_prefsRoot; }

}  // namespace velmora
