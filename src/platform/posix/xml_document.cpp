// XML walking on libexpat. Expat hands over UTF-8; names and values are
// turned into UTF-16 in buffers that grow with realloc, so that a document
// too large for memory fails with 8 instead of aborting.
#include "platform/xml_document.h"

#include <expat.h>
#include <strings.h>

#include <cstring>

#include "platform/growing_buffer.h"
#include "platform/platform.h"

namespace velmora::platform {
namespace {

constexpr uint32_t kNotEnoughMemory = 8;
constexpr size_t kReadChunk = 64 * 1024;

struct WalkState {
    XML_Parser parser;
    XmlVisitor* visitor;
    uint32_t error = 0;
    GrowingBuffer<char16_t> text;
    GrowingBuffer<size_t> offsets;
    GrowingBuffer<XmlAttribute> attributes;
};

// Appends the UTF-8 text (well-formed, as expat checked it) and its
// terminator to the buffer at `*used` units.
bool AppendUtf16(const char* utf8, GrowingBuffer<char16_t>* out, size_t* used) {
    const size_t length = std::strlen(utf8);
    if (length > SIZE_MAX / 2 - *used - 1 || !out->Reserve(*used + length + 1)) return false;
    char16_t* units = out->data();
    const auto* bytes = reinterpret_cast<const unsigned char*>(utf8);
    for (size_t i = 0; i < length;) {
        uint32_t cp = bytes[i];
        size_t extra = cp >= 0xF0 ? 3 : cp >= 0xE0 ? 2 : cp >= 0xC0 ? 1 : 0;
        if (extra > 0) cp &= 0x3F >> extra;
        for (++i; extra > 0 && i < length; --extra, ++i) cp = cp << 6 | (bytes[i] & 0x3F);
        if (cp >= 0x10000) {
            cp -= 0x10000;
            units[(*used)++] = static_cast<char16_t>(0xD800 + (cp >> 10));
            units[(*used)++] = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            units[(*used)++] = static_cast<char16_t>(cp);
        }
    }
    units[(*used)++] = 0;
    return true;
}

void Stop(WalkState* state, uint32_t error) {
    if (state->error == 0) state->error = error;
    XML_StopParser(state->parser, XML_FALSE);
}

void XMLCALL OnStart(void* user, const XML_Char* name, const XML_Char** attributes) {
    auto* state = static_cast<WalkState*>(user);
    size_t count = 0;
    while (attributes[2 * count] != nullptr) ++count;
    // The element's strings lie one after the other in `text`; the offsets
    // stay valid while it grows, the pointers are made once it is complete.
    size_t used = 0;
    bool ok = state->offsets.Reserve(2 * count + 1) && state->attributes.Reserve(count + 1) &&
              AppendUtf16(name, &state->text, &used);
    for (size_t i = 0; ok && i < 2 * count; ++i) {
        state->offsets.data()[i] = used;
        ok = AppendUtf16(attributes[i], &state->text, &used);
    }
    if (!ok) {
        Stop(state, kNotEnoughMemory);
        return;
    }
    const char16_t* text = state->text.data();
    for (size_t i = 0; i < count; ++i) {
        state->attributes.data()[i] =
            XmlAttribute{text + state->offsets.data()[2 * i], text + state->offsets.data()[2 * i + 1]};
    }
    if (!state->visitor->StartElement(text, state->attributes.data(), count)) Stop(state, kXmlStopped);
}

void XMLCALL OnEnd(void* user, const XML_Char*) { static_cast<WalkState*>(user)->visitor->EndElement(); }

// Document type declarations could define entities that expand without
// bound; the documents read here never need one.
void XMLCALL OnDoctype(void* user, const XML_Char*, const XML_Char*, const XML_Char*, int) {
    Stop(static_cast<WalkState*>(user), kXmlMalformed);
}

// Documents written on Windows often declare its Western code page, which
// expat does not know: Latin-1 apart from the 32 characters at 0x80 to 0x9F.
// The five codes the code page leaves unassigned stand for themselves, as
// Windows converts them.
int XMLCALL OnUnknownEncoding(void*, const XML_Char* name, XML_Encoding* info) {
    static const uint16_t kWindows1252High[32] = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                  0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                                  0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                  0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};
    if (strcasecmp(name, "windows-1252") != 0 && strcasecmp(name, "cp1252") != 0) return XML_STATUS_ERROR;
    for (int i = 0; i < 256; ++i) info->map[i] = i >= 0x80 && i < 0xA0 ? kWindows1252High[i - 0x80] : i;
    info->data = nullptr;
    info->convert = nullptr;
    info->release = nullptr;
    return XML_STATUS_OK;
}

class Walk {
public:
    explicit Walk(XmlVisitor* visitor) {
        state_.visitor = visitor;
        state_.parser = XML_ParserCreate(nullptr);
        if (state_.parser == nullptr) return;
        XML_SetUserData(state_.parser, &state_);
        XML_SetElementHandler(state_.parser, OnStart, OnEnd);
        XML_SetStartDoctypeDeclHandler(state_.parser, OnDoctype);
        XML_SetUnknownEncodingHandler(state_.parser, OnUnknownEncoding, nullptr);
    }
    ~Walk() {
        if (state_.parser != nullptr) XML_ParserFree(state_.parser);
    }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

    // Feeds one piece of the document; false with *error once it failed.
    bool Feed(const void* bytes, size_t size, bool last, uint32_t* error) {
        if (state_.parser == nullptr) {
            *error = kNotEnoughMemory;
            return false;
        }
        const auto* piece = static_cast<const char*>(bytes);
        do {
            const int length = size > INT32_MAX ? INT32_MAX : static_cast<int>(size);
            const bool isFinal = last && static_cast<size_t>(length) == size;
            if (XML_Parse(state_.parser, piece, length, isFinal ? XML_TRUE : XML_FALSE) != XML_STATUS_OK) {
                *error = state_.error != 0                                        ? state_.error
                         : XML_GetErrorCode(state_.parser) == XML_ERROR_NO_MEMORY ? kNotEnoughMemory
                                                                                  : kXmlMalformed;
                return false;
            }
            piece += length;
            size -= static_cast<size_t>(length);
        } while (size > 0);
        return true;
    }

private:
    WalkState state_;
};

}  // namespace

bool WalkXmlBuffer(const void* bytes, size_t size, XmlVisitor* visitor, uint32_t* error) {
    Walk walk(visitor);
    return walk.Feed(bytes, size, true, error);
}

bool WalkXmlFile(const std::u16string& path, XmlVisitor* visitor, uint32_t* error) {
    FileHandle file = FileOpen(path, FileAccess::Read, error);
    if (file == kNoFile) return false;
    Walk walk(visitor);
    GrowingBuffer<char> chunk;
    bool ok = chunk.Reserve(kReadChunk);
    if (!ok) *error = kNotEnoughMemory;
    while (ok) {
        size_t done = 0;
        ok = FileRead(file, chunk.data(), kReadChunk, &done, error) &&
             walk.Feed(chunk.data(), done, done < kReadChunk, error);
        if (done < kReadChunk) break;
    }
    FileClose(file);
    return ok;
}

}  // namespace velmora::platform
