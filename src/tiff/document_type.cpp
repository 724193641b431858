#include "tiff/document_type.h"

#include <cstring>

#include "frame/ini_file.h"
#include "frame/resources.h"
#include "frame/text.h"

namespace velmora {
namespace {

constexpr uint16_t kExtensionTableId = 42;

uint16_t U16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t U32(const uint8_t* p) { return uint32_t{U16(p)} | uint32_t{U16(p + 2)} << 16; }

bool Begins(const uint8_t* bytes, size_t size, const char* text, size_t length) {
    return size >= length && std::memcmp(bytes, text, length) == 0;
}

// An icon or cursor directory: reserved 0, the kind, a non-zero count, a
// zero reserved byte in the first entry, and a first image placed after the
// directory with a header of at least 40 bytes.
bool IsIconDirectory(const uint8_t* b, size_t size, uint16_t kind) {
    if (size < 22 || U16(b) != 0 || U16(b + 2) != kind || U16(b + 4) == 0 || b[9] != 0) return false;
    uint32_t count = U16(b + 4);
    uint32_t offset = U32(b + 18);
    uint32_t headerSize = U32(b + 14);
    return offset >= 16 * count + 6 && headerSize >= 40;
}

bool IsPdf(const uint8_t* bytes, size_t size) {
    static const char kHeader[] = "%PDF-";
    for (size_t i = 0; i + 5 <= size; ++i) {
        if (std::memcmp(bytes + i, kHeader, 5) == 0) return true;
    }
    return false;
}

}  // namespace

int32_t DocumentTypeOfBytes(const uint8_t* b, size_t size) {
    if (size >= 4 && ((b[0] == 'I' && b[1] == 'I' && (U16(b + 2) == 42 || U16(b + 2) == 43)) ||
                      (b[0] == 'M' && b[1] == 'M' && b[2] == 0 && (b[3] == 42 || b[3] == 43)))) {
        return 6;
    }
    if (Begins(b, size, "BVPDF\x1A", 6)) return 17;
    if (size >= 4 && b[0] == 'B' && b[1] == 'V' && (U16(b + 2) == 42 || (b[2] == 0 && b[3] == 42))) return 15;
    if (Begins(b, size, "srcdocid:", 9)) return 13;
    if (Begins(b, size, "BM", 2)) return 0;
    if (Begins(b, size, "GIF", 3)) return 1;
    if (IsIconDirectory(b, size, 1)) return 11;
    if (IsIconDirectory(b, size, 2)) return 12;
    if (size >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF) return 2;
    if (size >= 3 && b[0] == 0x0A && (b[1] == 0 || b[1] == 2 || b[1] == 3 || b[1] == 5) && b[2] == 1) return 4;
    if (IsPdf(b, size)) return 9;
    if (Begins(b, size, "\x89PNG\r\n\x1A\n", 8)) return 5;
    if (size >= 3 && b[0] == 'P' && b[1] >= '1' && b[1] <= '6' &&
        (b[2] == ' ' || b[2] == '\t' || b[2] == '\r' || b[2] == '\n' || b[2] == '#')) {
        return 14;
    }
    return kDocumentUnknown;
}

int32_t DocumentTypeOfExtension(const std::u16string& extension) {
    ResourceBytes table;
    if (!FindResourceBytes(kResourceTypeRawData, kExtensionTableId, &table)) return kDocumentUnknown;
    for (uint32_t at = 0; at + 4 <= table.size; at += 4) {
        uint16_t listId = U16(table.data + at);
        if (listId == 0) break;
        char16_t list[256];
        ErrorRecord ignored;
        int loaded = LoadText(listId, list, 256, &ignored);
        if (loaded == 0) continue;
        // A list of terminated names (one name when the text is no list).
        for (const char16_t* name = list; *name != 0 && name < list + 256; name += std::char_traits<char16_t>::length(name) + 1) {
            if (NamesEqual(name, extension)) return U16(table.data + at + 2);
            if (loaded == 1) break;
        }
    }
    return kDocumentUnknown;
}

int32_t DocumentTypeCapabilities(int32_t type) {
    switch (type) {
        case 0: case 1: case 2: case 4: case 5: case 9: case 13: return 1;
        case 6: return 7;
        case 3: case 7: case 10: case 18: case 19: case 23: return 0;
        default: return -1;  // the recognised types 8, 11, 12, 14, 15 and 17 included
    }
}

}  // namespace velmora
