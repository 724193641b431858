// A parser and writer of settings files: "[section]" lines and "name=value"
// lines, ended by CR and/or LF. Section and value names compare without
// regard to ASCII case; leading and trailing blanks around names and values
// are not significant; lines starting with ";" or "#" are comments. Text is
// UTF-8 (a leading byte-order mark is skipped).
#pragma once

#include <string>
#include <vector>

namespace velmora {

class IniFile {
public:
    // Parses `size` bytes; never fails: lines it cannot read are skipped.
    static IniFile Parse(const char* data, size_t size);

    // True and the value when the section holds the name.
    bool Find(const std::u16string& section, const std::u16string& name, std::u16string* value) const;
    // Sets (adds or replaces) a value, creating the section when needed.
    void Set(const std::u16string& section, const std::u16string& name, const std::u16string& value);
    // The file's text, one "name=value" per line, LF line ends.
    std::string Serialize() const;

private:
    struct Entry {
        std::u16string name;
        std::u16string value;
    };
    struct Section {
        std::u16string name;
        std::vector<Entry> entries;
    };
    Section* FindSection(const std::u16string& name);
    const Section* FindSection(const std::u16string& name) const;

    std::vector<Section> sections_;
};

// Compares two names without regard to ASCII case.
bool NamesEqual(const std::u16string& a, const std::u16string& b);

}  // namespace velmora
