#include "frame/text.h"

#include <cstdarg>

#include "frame/formatter.h"
#include "frame/language.h"
#include "frame/resources.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint16_t kFirstIdentifierId = 10000;
constexpr uint16_t kUnableToLoadString = 67;
constexpr uint16_t kUnableToConvert = 260;
constexpr uint32_t kResourceNameNotFound = 1814;
constexpr char16_t kListSeparator = 0x01;

thread_local bool t_reportingFailure = false;

// The raw text of `id`, one byte per character, list separators included:
// the language module's text for translatable ids, else the library's own.
bool FindText(uint16_t id, ResourceBytes* text, ErrorRecord* record) {
    if (id < kFirstIdentifierId && LanguageModuleString(id, text) && text->size != 0) return true;
    ResourceBytes block;
    if (FindResourceBytes(kResourceTypeCompactString, static_cast<uint16_t>(id / 16 + 1), &block) &&
        CompactStringAt(block, id % 16, text)) {
        return true;
    }
    // The detail text is itself loaded from the table; a table without it
    // must not send us round in circles.
    platform::SetSystemError(kResourceNameNotFound);
    if (t_reportingFailure) {
        SetRecordError(record, kResourceNameNotFound, 0);
    } else {
        t_reportingFailure = true;
        SetRecordError(record, kResourceNameNotFound, kUnableToLoadString, static_cast<uint32_t>(id));
        t_reportingFailure = false;
    }
    return false;
}

}  // namespace

int LoadText(uint16_t id, char16_t* buffer, size_t size, ErrorRecord* record) {
    if (size == 0) return 1;
    buffer[0] = 0;
    ResourceBytes text;
    if (!FindText(id, &text, record)) return 0;
    size_t n = text.size < size - 1 ? text.size : size - 1;
    bool list = false;
    for (size_t i = 0; i < n; ++i) {
        buffer[i] = text.data[i];
        if (buffer[i] == kListSeparator) {
            buffer[i] = 0;
            list = true;
        }
    }
    buffer[n] = 0;
    return list ? 2 : 1;
}

int LoadTextNarrow(uint16_t id, char* buffer, size_t size, ErrorRecord* record) {
    if (size == 0) return 1;
    buffer[0] = 0;
    ResourceBytes text;
    if (!FindText(id, &text, record)) return 0;
    // Each member is converted on its own so that the terminators of a list
    // stay where they are.
    std::string out;
    std::u16string member;
    bool list = false;
    for (uint32_t i = 0; i <= text.size; ++i) {
        if (i == text.size || text.data[i] == kListSeparator) {
            out += platform::Utf8FromWide(member);
            if (i < text.size) {
                out.push_back('\0');
                list = true;
            }
            member.clear();
        } else {
            member.push_back(text.data[i]);
        }
    }
    if (out.size() + 1 > size) {
        SetRecordError(record, ERROR_INSUFFICIENT_BUFFER, kUnableToConvert);
        return 0;
    }
    for (size_t i = 0; i < out.size(); ++i) buffer[i] = out[i];
    buffer[out.size()] = 0;
    return list ? 2 : 1;
}

bool FormatText(uint16_t templateId, char16_t* buffer, size_t size, ErrorRecord* record, ...) {
    if (size == 0) return true;
    char16_t templ[1024];
    if (LoadText(templateId, templ, 1024, record) == 0) {
        buffer[0] = 0;
        return false;
    }
    va_list args;
    va_start(args, record);
    FormatWideV(buffer, size, templ, args);
    va_end(args);
    return true;
}

std::u16string TextString(uint16_t id) {
    char16_t buffer[1024];
    ErrorRecord ignored;
    if (LoadText(id, buffer, 1024, &ignored) == 0) return std::u16string();
    return std::u16string(buffer);
}

}  // namespace velmora
