// Language module data files.
//
// A language module replaces the library's user-visible texts (string ids
// below 10000) for one language. On Linux it is a data file named
// vlmr%04x.lang (the language id in four lower-case hexadecimal digits)
// beside the library. This file parses such a file from memory; reading it
// from disk and keeping the bytes alive is the caller's business.
//
// Layout, all numbers little-endian:
//
//   offset  size  field
//   0       8     magic "VLMRLANG"
//   8       2     format version, 1
//   10      2     language id (for example 0x0407)
//   12      4     language version; the library accepts only its own (187)
//   16      4     resource count n
//   20      12n   resource table, one row per resource:
//                   u16 type, u16 id, u32 offset, u32 size
//   20+12n        resource bytes
//
// Rules a file must keep (anything else is rejected as a whole):
//   - the rows are sorted by (type, id), strictly ascending, so no resource
//     appears twice;
//   - every resource lies after the table and inside the file, and each one
//     begins at or after the end of the one in the row before it, so no two
//     resources share bytes;
//   - bytes after the last resource are allowed and ignored.
//
// Strings are carried as compact string blocks (type 262) in the same format
// as the library's own (resources.h). Parsing checks the structure only; a
// block's contents are checked when a string is taken from it
// (CompactStringAt).

#ifndef VELMORA_FRAME_LANGUAGE_FILE_H
#define VELMORA_FRAME_LANGUAGE_FILE_H

#include <cstddef>
#include <cstdint>

#include "frame/resources.h"

namespace velmora {

inline constexpr uint16_t kLanguageFileFormatVersion = 1;
inline constexpr uint32_t kLanguageFileHeaderSize = 20;
inline constexpr uint32_t kLanguageFileEntrySize = 12;

struct LanguageResource {
    uint16_t type;
    uint16_t id;
    ResourceBytes bytes;
};

class LanguageFile {
public:
    uint16_t language() const { return language_; }
    uint32_t languageVersion() const { return languageVersion_; }
    uint32_t resourceCount() const { return count_; }

    // The resource in row `index` of the table (0 to resourceCount() - 1).
    bool ResourceAt(uint32_t index, LanguageResource* out) const;

    // Looks up a resource by type and id. False when the file has none.
    bool FindResourceBytes(uint16_t type, uint16_t id, ResourceBytes* out) const;

private:
    friend bool ParseLanguageFile(const uint8_t* data, size_t size, LanguageFile* out);

    const uint8_t* data_ = nullptr;  // the whole file, owned by the caller
    uint16_t language_ = 0;
    uint32_t languageVersion_ = 0;
    uint32_t count_ = 0;
};

// Validates a language file held in memory and makes it readable through
// `out`, which then points into `data`. False (and `out` untouched) for
// anything that breaks the layout above.
bool ParseLanguageFile(const uint8_t* data, size_t size, LanguageFile* out);

}  // namespace velmora

#endif  // VELMORA_FRAME_LANGUAGE_FILE_H
