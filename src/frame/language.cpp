#include "frame/language.h"

#include <memory>
#include <string>
#include <vector>

#include "frame/formatter.h"
#include "frame/language_file.h"
#include "frame/library.h"
#include "frame/text.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint16_t kModuleNameTemplate = 19904;  // "vlmr%04x.dll"
constexpr uint16_t kLanguageNotFound = 9950;     // "Language not found: %.*s"
constexpr uint16_t kVersionMismatch = 9911;
constexpr uint16_t kBadFormat = 9926;
constexpr uint16_t kBadList = 9927;
constexpr uint16_t kBadListCount = 9928;
constexpr uint16_t kLanguageOk = 9929;  // "%s\nThis language is ok"
constexpr uint16_t kFirstIdentifierId = 10000;
constexpr uint32_t kInvalidData = 13;
constexpr size_t kMaxModuleSize = 64u << 20;

struct LoadedModule {
    std::vector<uint8_t> bytes;
    LanguageFile file;
};

// Language selection is expected at start-up or from the host's main thread
// and is not locked.
uint16_t g_currentLanguage = 0;
std::unique_ptr<LoadedModule> g_module;

std::u16string ModuleFilePath(uint16_t language) {
    char16_t name[64];
    std::u16string templ = TextString(kModuleNameTemplate);
    FormatWide(name, 64, templ.c_str(), static_cast<uint32_t>(language));
    std::u16string file(name);
    // Language modules are data files here, not libraries.
    if (file.size() > 4 && file.compare(file.size() - 4, 4, u".dll") == 0) file.replace(file.size() - 4, 4, u".lang");
    return LibraryDirectory() + file;
}

enum class LoadResult { kLoaded, kMissing, kBad };

LoadResult LoadModuleFile(const std::u16string& path, std::unique_ptr<LoadedModule>* out) {
    uint32_t error = 0;
    platform::FileHandle file = platform::FileOpen(path, platform::FileAccess::Read, &error);
    if (file == platform::kNoFile) return LoadResult::kMissing;
    auto module = std::make_unique<LoadedModule>();
    uint64_t size = 0;
    bool ok = platform::FileSize(file, &size, &error) && size <= kMaxModuleSize;
    if (ok) {
        module->bytes.resize(static_cast<size_t>(size));
        size_t done = 0;
        ok = platform::FileRead(file, module->bytes.data(), module->bytes.size(), &done, &error) && done == size;
    }
    platform::FileClose(file);
    if (!ok || !ParseLanguageFile(module->bytes.data(), module->bytes.size(), &module->file)) return LoadResult::kBad;
    *out = std::move(module);
    return LoadResult::kLoaded;
}

// The printf conversions of a text, in order ("%s", "%lu", "%.*s" ...).
std::vector<std::string> Conversions(const ResourceBytes& text) {
    std::vector<std::string> found;
    for (uint32_t i = 0; i < text.size; ++i) {
        if (text.data[i] != '%') continue;
        if (i + 1 < text.size && text.data[i + 1] == '%') {
            ++i;
            continue;
        }
        std::string conversion = "%";
        uint32_t j = i + 1;
        while (j < text.size) {
            char c = static_cast<char>(text.data[j]);
            conversion += c;
            ++j;
            bool modifier = c == '-' || c == '+' || c == ' ' || c == '#' || c == '.' || c == '*' ||
                            (c >= '0' && c <= '9') || c == 'h' || c == 'l' || c == 'I' || c == 'z';
            if (!modifier) break;
        }
        found.push_back(conversion);
        i = j - 1;
    }
    return found;
}

int ListMembers(const ResourceBytes& text) {
    int members = 0;
    for (uint32_t i = 0; i < text.size; ++i) members += text.data[i] == 0x01;
    return members;
}

bool BuiltInString(uint16_t id, ResourceBytes* text) {
    ResourceBytes block;
    return FindResourceBytes(kResourceTypeCompactString, static_cast<uint16_t>(id / 16 + 1), &block) &&
           CompactStringAt(block, id % 16, text) && text->size != 0;
}

bool ModuleString(const LanguageFile& file, uint16_t id, ResourceBytes* text) {
    ResourceBytes block;
    return file.FindResourceBytes(kResourceTypeCompactString, static_cast<uint16_t>(id / 16 + 1), &block) &&
           CompactStringAt(block, id % 16, text) && text->size != 0;
}

void Report(bool show, uint16_t templateId, uint32_t value) {
    if (!show) return;
    char16_t text[512];
    ErrorRecord ignored;
    FormatText(templateId, text, 512, &ignored, value);
    platform::ShowMessage(ProductName(), text);
}

// Compares every translated text with the library's own: the same printf
// conversions, and string lists ending with their separator and holding as
// many members. Returns the number of differences.
int ValidateModule(const LanguageFile& file, bool show) {
    int differences = 0;
    for (uint32_t id = 1; id < kFirstIdentifierId; ++id) {
        ResourceBytes own, translated;
        if (!BuiltInString(static_cast<uint16_t>(id), &own) ||
            !ModuleString(file, static_cast<uint16_t>(id), &translated)) {
            continue;
        }
        if (Conversions(own) != Conversions(translated)) {
            Report(show, kBadFormat, id);
            ++differences;
        }
        int ownMembers = ListMembers(own);
        if (ownMembers == 0) continue;
        if (translated.data[translated.size - 1] != 0x01) {
            Report(show, kBadList, id);
            ++differences;
        } else if (ListMembers(translated) != ownMembers) {
            Report(show, kBadListCount, id);
            ++differences;
        }
    }
    return differences;
}

std::u16string DisplayName(uint16_t language) {
    std::u16string name = platform::LanguageDisplayName(language);
    if (!name.empty()) return name;
    char16_t hex[8];
    FormatWide(hex, 8, u"%04x", static_cast<uint32_t>(language));
    return hex;
}

}  // namespace

uint16_t GetCurrentLanguage() { return g_currentLanguage == 0 ? kEnglishUs : g_currentLanguage; }

bool LanguageModuleString(uint16_t id, ResourceBytes* text) {
    return g_module != nullptr && ModuleString(g_module->file, id, text);
}

void UnloadLanguageModule() {
    g_module.reset();
    g_currentLanguage = 0;
}

bool SelectLanguage(uint16_t language, ErrorRecord* record) {
    if (language == g_currentLanguage) return language != 0;
    if (language == kEnglishUs) {
        g_module.reset();
        g_currentLanguage = kEnglishUs;
        return true;
    }
    std::unique_ptr<LoadedModule> module;
    LoadResult result = LoadModuleFile(ModuleFilePath(language), &module);
    if (result == LoadResult::kMissing) return false;
    if (result == LoadResult::kBad || module->file.languageVersion() != kLanguageVersion ||
        ValidateModule(module->file, false) != 0) {
        SetRecordError(record, kInvalidData, 0);
        return false;
    }
    g_module = std::move(module);
    g_currentLanguage = language;
    return true;
}

bool CheckLanguage(uint16_t language, bool showMessages, ErrorRecord* record) {
    std::unique_ptr<LoadedModule> module;
    LoadResult result = LoadModuleFile(ModuleFilePath(language), &module);
    if (result == LoadResult::kMissing) {
        if (showMessages) {
            std::u16string name = DisplayName(language);
            char16_t text[512];
            ErrorRecord ignored;
            FormatText(kLanguageNotFound, text, 512, &ignored, static_cast<int>(name.size()), name.c_str());
            platform::ShowMessage(ProductName(), text);
        }
        SetRecordError(record, kErrFileNotFound, 0);
        return false;
    }
    if (result == LoadResult::kBad || module->file.languageVersion() != kLanguageVersion) {
        if (showMessages) platform::ShowMessage(ProductName(), TextString(kVersionMismatch));
        SetRecordError(record, kInvalidData, 0);
        return false;
    }
    if (ValidateModule(module->file, showMessages) != 0) {
        SetRecordError(record, kInvalidData, 0);
        return false;
    }
    if (showMessages) {
        char16_t text[512];
        ErrorRecord ignored;
        FormatText(kLanguageOk, text, 512, &ignored, DisplayName(language).c_str());
        platform::ShowMessage(ProductName(), text);
    }
    return true;
}

}  // namespace velmora
