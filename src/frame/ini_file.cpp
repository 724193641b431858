#include "frame/ini_file.h"

#include "platform/platform.h"

namespace velmora {
namespace {

char16_t FoldCase(char16_t c) { return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c; }

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

std::string Trim(const std::string& text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && IsBlank(text[begin])) ++begin;
    while (end > begin && IsBlank(text[end - 1])) --end;
    return text.substr(begin, end - begin);
}

}  // namespace

bool NamesEqual(const std::u16string& a, const std::u16string& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (FoldCase(a[i]) != FoldCase(b[i])) return false;
    }
    return true;
}

IniFile IniFile::Parse(const char* data, size_t size) {
    IniFile file;
    size_t pos = 0;
    if (size >= 3 && static_cast<unsigned char>(data[0]) == 0xEF && static_cast<unsigned char>(data[1]) == 0xBB &&
        static_cast<unsigned char>(data[2]) == 0xBF) {
        pos = 3;
    }
    Section* current = nullptr;
    while (pos < size) {
        size_t end = pos;
        while (end < size && data[end] != '\r' && data[end] != '\n') ++end;
        std::string line = Trim(std::string(data + pos, end - pos));
        pos = end;
        while (pos < size && (data[pos] == '\r' || data[pos] == '\n')) ++pos;

        if (line.empty() || line[0] == ';' || line[0] == '#') continue;
        if (line[0] == '[') {
            size_t close = line.find(']');
            if (close == std::string::npos) {
                current = nullptr;
                continue;
            }
            std::u16string name = platform::WideFromUtf8(Trim(line.substr(1, close - 1)));
            current = file.FindSection(name);
            if (current == nullptr) {
                file.sections_.push_back(Section{name, {}});
                current = &file.sections_.back();
            }
            continue;
        }
        size_t equals = line.find('=');
        if (current == nullptr || equals == std::string::npos) continue;
        std::u16string name = platform::WideFromUtf8(Trim(line.substr(0, equals)));
        std::u16string value = platform::WideFromUtf8(Trim(line.substr(equals + 1)));
        bool found = false;
        for (const Entry& entry : current->entries) found = found || NamesEqual(entry.name, name);
        if (!found) current->entries.push_back(Entry{name, value});  // the first line of a name counts
    }
    return file;
}

IniFile::Section* IniFile::FindSection(const std::u16string& name) {
    for (Section& section : sections_) {
        if (NamesEqual(section.name, name)) return &section;
    }
    return nullptr;
}

const IniFile::Section* IniFile::FindSection(const std::u16string& name) const {
    for (const Section& section : sections_) {
        if (NamesEqual(section.name, name)) return &section;
    }
    return nullptr;
}

bool IniFile::Find(const std::u16string& section, const std::u16string& name, std::u16string* value) const {
    const Section* found = FindSection(section);
    if (found == nullptr) return false;
    for (const Entry& entry : found->entries) {
        if (NamesEqual(entry.name, name)) {
            *value = entry.value;
            return true;
        }
    }
    return false;
}

void IniFile::Set(const std::u16string& section, const std::u16string& name, const std::u16string& value) {
    Section* found = FindSection(section);
    if (found == nullptr) {
        sections_.push_back(Section{section, {}});
        found = &sections_.back();
    }
    for (Entry& entry : found->entries) {
        if (NamesEqual(entry.name, name)) {
            entry.value = value;
            return;
        }
    }
    found->entries.push_back(Entry{name, value});
}

std::string IniFile::Serialize() const {
    std::string out;
    for (const Section& section : sections_) {
        out += '[';
        out += platform::Utf8FromWide(section.name);
        out += "]\n";
        for (const Entry& entry : section.entries) {
            out += platform::Utf8FromWide(entry.name);
            out += '=';
            out += platform::Utf8FromWide(entry.value);
            out += '\n';
        }
    }
    return out;
}

}  // namespace velmora
