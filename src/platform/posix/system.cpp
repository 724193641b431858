// POSIX implementation of the system services: the thread's last error, time,
// UTF-8 as the system code page, the module's own path, directories and
// run-time loading.
#include <dlfcn.h>
#include <pwd.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "platform/platform.h"
#include "platform/system_messages.h"

namespace velmora::platform {
namespace {

thread_local uint32_t t_last_error = 0;

// Decodes one UTF-8 sequence at text[*i]; false on malformed input.
bool DecodeUtf8(const unsigned char* text, size_t length, size_t* i, uint32_t* cp) {
    unsigned char c = text[*i];
    int extra;
    uint32_t value;
    if (c < 0x80) {
        *cp = c;
        ++*i;
        return true;
    } else if ((c & 0xE0) == 0xC0) {
        extra = 1;
        value = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
        extra = 2;
        value = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
        extra = 3;
        value = c & 0x07;
    } else {
        return false;
    }
    if (*i + extra >= length) return false;
    for (int k = 1; k <= extra; ++k) {
        unsigned char n = text[*i + k];
        if ((n & 0xC0) != 0x80) return false;
        value = (value << 6) | (n & 0x3F);
    }
    static const uint32_t kMinimum[4] = {0, 0x80, 0x800, 0x10000};
    if (value < kMinimum[extra] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return false;
    *i += extra + 1;
    *cp = value;
    return true;
}

}  // namespace

uint32_t GetSystemError() { return t_last_error; }
void SetSystemError(uint32_t code) { t_last_error = code; }

uint32_t TickCount() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    uint64_t ms = static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_nsec) / 1000000u;
    return static_cast<uint32_t>(ms);
}

void MemoryStatus(uint64_t* available, uint64_t* total) {
    struct sysinfo info;
    if (sysinfo(&info) == 0) {
        *available = static_cast<uint64_t>(info.freeram) * info.mem_unit;
        *total = static_cast<uint64_t>(info.totalram) * info.mem_unit;
    } else {
        *available = 0;
        *total = 0;
    }
}

std::string Utf8FromWide(const std::u16string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        uint32_t cp = text[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (text[i + 1] - 0xDC00);
            ++i;
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            cp = 0xFFFD;  // a lone surrogate cannot be written in UTF-8
        }
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    return out;
}

bool NarrowToWide(const char* text, std::u16string* out, uint32_t* error) {
    out->clear();
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    size_t length = std::strlen(text);
    size_t i = 0;
    while (i < length) {
        uint32_t cp;
        if (!DecodeUtf8(bytes, length, &i, &cp)) {
            out->clear();
            *error = 1113;  // ERROR_NO_UNICODE_TRANSLATION
            return false;
        }
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out->push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            out->push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            out->push_back(static_cast<char16_t>(cp));
        }
    }
    return true;
}

std::u16string WideFromUtf8(const std::string& text) {
    std::u16string out;
    uint32_t error;
    if (!NarrowToWide(text.c_str(), &out, &error)) {
        for (unsigned char c : text) out.push_back(c < 0x80 ? c : u'\uFFFD');
    }
    return out;
}

bool WideToNarrow(const char16_t* text, char* out, size_t size, uint32_t* error) {
    std::u16string wide(text);
    std::string narrow = Utf8FromWide(wide);
    if (narrow.size() + 1 > size) {
        if (size > 0) out[0] = '\0';
        *error = ERROR_INSUFFICIENT_BUFFER;
        return false;
    }
    std::memcpy(out, narrow.c_str(), narrow.size() + 1);
    return true;
}

bool SystemErrorText(uint32_t code, char16_t* out, size_t size) { return SystemMessageText(code, out, size); }

uint16_t UserDefaultLanguage() {
    // The POSIX locale name ("de_DE.UTF-8") mapped onto the Windows language
    // ids of the languages a translation may exist for.
    struct Entry {
        const char* prefix;
        uint16_t language;
    };
    static const Entry kLanguages[] = {
        {"en_US", 0x0409}, {"en_GB", 0x0809}, {"en", 0x0409}, {"de_CH", 0x0807}, {"de_AT", 0x0C07}, {"de", 0x0407},
        {"fr_CA", 0x0C0C}, {"fr_BE", 0x080C}, {"fr", 0x040C}, {"nl_BE", 0x0813}, {"nl", 0x0413},    {"it", 0x0410},
        {"es", 0x0C0A},    {"pt_BR", 0x0416}, {"pt", 0x0816}, {"sv", 0x041D},    {"da", 0x0406},    {"nb", 0x0414},
        {"fi", 0x040B},    {"pl", 0x0415},    {"cs", 0x0405}, {"hu", 0x040E},    {"ru", 0x0419},    {"ja", 0x0411},
        {"zh_TW", 0x0404}, {"zh", 0x0804},    {"ko", 0x0412}, {"tr", 0x041F},    {"el", 0x0408},
    };
    const char* names[] = {"LC_ALL", "LC_MESSAGES", "LANG"};
    for (const char* name : names) {
        const char* value = std::getenv(name);
        if (value == nullptr || *value == '\0') continue;
        for (const Entry& entry : kLanguages) {
            if (std::strncmp(value, entry.prefix, std::strlen(entry.prefix)) == 0) return entry.language;
        }
        return 0x0409;
    }
    return 0x0409;
}

std::u16string LanguageDisplayName(uint16_t) { return std::u16string(); }

std::u16string ModulePath() {
    Dl_info info;
    if (dladdr(reinterpret_cast<void*>(&ModulePath), &info) != 0 && info.dli_fname != nullptr) {
        char resolved[4096];
        if (realpath(info.dli_fname, resolved) != nullptr) return WideFromUtf8(resolved);
        return WideFromUtf8(info.dli_fname);
    }
    return std::u16string();
}

std::u16string SystemTempDirectory() {
    const char* dir = std::getenv("TMPDIR");
    std::string path = (dir != nullptr && *dir != '\0') ? dir : "/tmp";
    if (path.back() != '/') path += '/';
    return WideFromUtf8(path);
}

char16_t PathSeparator() { return u'/'; }
bool IsPathSeparator(char16_t c) { return c == u'/'; }

std::u16string UserConfigDirectory() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    if (xdg != nullptr && xdg[0] == '/') return WideFromUtf8(xdg);
    const char* home = std::getenv("HOME");
    if (home == nullptr || *home == '\0') {
        struct passwd* pw = getpwuid(getuid());
        home = pw != nullptr ? pw->pw_dir : "/tmp";
    }
    return WideFromUtf8(std::string(home) + "/.config");
}

bool SrgbProfilePath(std::u16string* path, uint32_t* /*error*/) {
    static const char* const kCandidates[] = {"/usr/share/color/icc/sRGB.icc", "/usr/share/color/icc/colord/sRGB.icc"};
    const char* chosen = kCandidates[0];
    for (const char* candidate : kCandidates) {
        if (access(candidate, R_OK) == 0) {
            chosen = candidate;
            break;
        }
    }
    *path = WideFromUtf8(chosen);
    return true;
}

ModuleHandleT LoadModule(const std::u16string& path, uint32_t* error) {
    void* module = dlopen(Utf8FromWide(path).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr) *error = ERROR_MOD_NOT_FOUND;
    return module;
}

void* ModuleSymbol(ModuleHandleT module, const char* name) { return dlsym(module, name); }

void UnloadModule(ModuleHandleT module) {
    if (module != nullptr) dlclose(module);
}

std::u16string SharedLibraryName(const std::u16string& base) { return u"lib" + base + u".so"; }

void SetQuietErrorMode() {}

}  // namespace velmora::platform

namespace velmora::platform {

void ShowMessage(const std::u16string& title, const std::u16string& text) {
    std::string line = Utf8FromWide(title.empty() ? text : title + u": " + text);
    for (char& c : line) {
        if (c == '\r' || c == '\n') c = ' ';
    }
    line += '\n';
    ssize_t ignored = ::write(2, line.data(), line.size());
    (void)ignored;
}

bool IsWindowHandle(HWND) { return false; }

}  // namespace velmora::platform

namespace velmora::platform {

bool IsReadableMemory(const void* pointer, size_t bytes) { return bytes == 0 || pointer != nullptr; }
bool IsWritableMemory(void* pointer, size_t bytes) { return bytes == 0 || pointer != nullptr; }
bool IsReadableString(const char* text) { return text != nullptr; }
bool IsReadableString(const char16_t* text) { return text != nullptr; }
bool IsCallable(const void* code) { return code != nullptr; }

}  // namespace velmora::platform
