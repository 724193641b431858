// The per-user settings store on systems without a registry. A key path such
// as "Software\Solvenir\Velmora\3.0\General" becomes the section "General" of
// the file "Solvenir/Velmora/3.0/settings.ini" in the user's configuration
// directory (a leading "Software" component is dropped). Files are replaced
// whole through a temporary file, so a reader never sees half a file.
#include <string>
#include <vector>

#include "frame/ini_file.h"
#include "frame/settings_store.h"
#include "platform/platform.h"

namespace velmora {

using namespace platform;

namespace {

// Splits the key path into the settings file and the section; false for a
// path that cannot name a file ("..", empty components).
bool Locate(const std::u16string& keyPath, std::u16string* file, std::u16string* section) {
    std::vector<std::u16string> parts;
    std::u16string part;
    for (char16_t c : keyPath + u"\\") {
        if (c == u'\\') {
            if (part.empty() || part == u"." || part == u"..") return false;
            parts.push_back(part);
            part.clear();
        } else {
            part.push_back(c == u'/' ? u'_' : c);
        }
    }
    if (parts.size() < 2) return false;
    size_t first = NamesEqual(parts[0], u"Software") ? 1 : 0;
    std::u16string path = UserConfigDirectory();
    for (size_t i = first; i + 1 < parts.size(); ++i) path += u"/" + parts[i];
    *file = path + u"/settings.ini";
    *section = parts.back();
    return true;
}

bool ReadAll(const std::u16string& path, std::string* data) {
    uint32_t error = 0;
    FileHandle file = FileOpen(path, FileAccess::Read, &error);
    if (file == kNoFile) return false;
    uint64_t size = 0;
    bool ok = FileSize(file, &size, &error) && size < (1u << 24);
    if (ok) {
        data->resize(static_cast<size_t>(size));
        size_t done = 0;
        ok = FileRead(file, data->data(), data->size(), &done, &error);
        data->resize(done);
    }
    FileClose(file);
    return ok;
}

}  // namespace

bool ReadUserSetting(const std::u16string& keyPath, const std::u16string& name, std::u16string* value) {
    std::u16string file, section;
    std::string data;
    if (!Locate(keyPath, &file, &section) || !ReadAll(file, &data)) return false;
    return IniFile::Parse(data.data(), data.size()).Find(section, name, value);
}

bool WriteUserSetting(const std::u16string& keyPath, const std::u16string& name, const std::u16string& value,
                      uint32_t* error) {
    std::u16string file, section;
    if (!Locate(keyPath, &file, &section)) {
        *error = ERROR_INVALID_PARAMETER;
        return false;
    }
    std::string data;
    ReadAll(file, &data);
    IniFile ini = IniFile::Parse(data.data(), data.size());
    ini.Set(section, name, value);
    std::string text = ini.Serialize();

    std::u16string directory = file.substr(0, file.rfind(u'/'));
    if (!CreateDirectories(directory, error)) return false;
    std::u16string temp;
    if (!CreateTempFile(directory, u"settings", &temp, error)) return false;
    FileHandle out = FileOpen(temp, FileAccess::ReadWrite, error);
    bool ok = out != kNoFile && FileWrite(out, text.data(), text.size(), error);
    FileClose(out);
    if (ok) ok = FileReplace(temp, file, error);
    if (!ok) {
        uint32_t ignored;
        FileDelete(temp, &ignored);
    }
    return ok;
}

}  // namespace velmora
