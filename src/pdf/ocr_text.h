// OCR text records: for each line or block of a page, its characters and a
// box for each character in page pixels.
//
// A record is one little-endian block: a header (28 bytes in format 1, 32 in
// format 2 with its option bits), a table of entries (text offset, box-data
// offset and, in format 2, the optional word-flag offset and value), then
// the NUL-terminated texts (UTF-16, or single bytes with the narrow option)
// and the coded boxes.
//
// The boxes of an entry are a bit stream, most significant bit first, with
// one prefix per character: "0" a boxed character followed by its left, top,
// right and bottom; "10" a word separator without a box; "11" a character
// without a box inside the current word. Each number is "0" + 5 bits,
// "10" + 8, "110" + 16 or "111" + 32 bits of a two's-complement value.
//
// Boxes are inclusive: a box covers the pixel columns left .. right and the
// rows top .. bottom.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"

namespace velmora {

enum : uint32_t {
    kErrBadOcrTextData = 0x0200002F,
    kErrUnsupportedOcrText = 0x02000030,
};

constexpr uint32_t kOcrTextHeaderSizeV1 = 28;
constexpr uint32_t kOcrTextHeaderSizeV2 = 32;
constexpr uint32_t kOcrTextNarrow = 0x1;
constexpr uint32_t kOcrTextWordFlags = 0x2;
constexpr uint32_t kOcrTextEntryValue = 0x4;

struct OcrBox {
    int32_t left, top, right, bottom;
};

enum class OcrCharKind : uint8_t { Boxed, Separator, Joined };

struct OcrChar {
    uint16_t code;  // a UTF-16 unit, or a code-page byte in narrow records
    OcrCharKind kind;
    OcrBox box;  // Boxed characters only
};

// The checked header and entry table of a record (the bytes stay the
// caller's).
struct OcrTextView {
    const uint8_t* bytes = nullptr;
    uint32_t size = 0;
    uint16_t format = 0;
    uint16_t rotation = 0;
    uint32_t count = 0;
    uint32_t options = 0;
    uint32_t entrySize = 0;
};

// One entry read in full.
struct OcrEntry {
    CheckedArray<OcrChar> chars;
    // One byte (0 or 1) per word, when the entry has a word-flag stream.
    bool hasWordFlags = false;
    CheckedArray<uint8_t> wordFlags;
    uint32_t value = 1;
};

// Checks a record of `size` bytes (its own size field must agree) and every
// entry's offsets. Bad data 0x0200002F, an unknown format or option 0x02000030.
bool OpenOcrText(const uint8_t* bytes, uint32_t size, OcrTextView* view, ErrorRecord* record);

// Decodes entry `index` (below view.count): characters, kinds, boxes, word
// flags and value.
bool ReadOcrEntry(const OcrTextView& view, uint32_t index, OcrEntry* entry, ErrorRecord* record);

// The number of words of a run of characters: runs of non-separators.
size_t CountOcrWords(const OcrChar* chars, size_t count);

// Merges the boxes of the boxed characters among `chars`, in text order,
// into as few rectangles as the reading direction of `rotation` allows, and
// appends them to `out`.
bool MergeOcrBoxes(const OcrChar* chars, size_t count, uint16_t rotation, CheckedArray<OcrBox>* out,
                   ErrorRecord* record);

// A box of a page `width` x `height` pixels as it lands when the page is
// turned clockwise by `degrees` (0, 90, 180, 270).
OcrBox RotateOcrBox(const OcrBox& box, uint16_t degrees, int32_t width, int32_t height);

// Builds a record: Begin with the header, Add each entry in order, then
// Finish hands back the whole record.
class OcrTextWriter {
public:
    void Begin(uint16_t format, uint16_t rotation, uint32_t options, uint32_t count);
    bool Add(const OcrEntry& entry, ErrorRecord* record);
    bool Finish(CheckedArray<uint8_t>* out, ErrorRecord* record);

private:
    uint16_t format_ = 1;
    uint16_t rotation_ = 0;
    uint32_t options_ = 0;
    uint32_t count_ = 0;
    CheckedArray<uint32_t> table_;
    CheckedArray<uint8_t> data_;
};

// The record turned with its page by `degrees` clockwise (the page being
// `width` x `height` pixels before the turn): every box moves, the texts,
// words and coding stay, and the text rotation turns with the page.
bool RotateOcrText(const OcrTextView& view, uint16_t degrees, int32_t width, int32_t height, CheckedArray<uint8_t>* out,
                   ErrorRecord* record);

}  // namespace velmora
