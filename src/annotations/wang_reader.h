// Reading the Wang/Eastman imaging annotations of a TIFF page (private tag
// 32932) into the annotation model. The library reads this format only; the
// marks it knows are converted, and from then on they live in the library's
// own annotation stream.
//
// The block, all integers little-endian: 4 reserved bytes, a u32 integer
// format (only 1, the 32-bit Intel layout, is read; anything else holds no
// annotations), then data blocks of a u32 type and a u32 size:
//   2  a default named block, applying to every later mark that lacks its own;
//   5  a 164-byte mark record (size 0 means 164) starting a new mark;
//   6  a named block of the mark read last.
// A named block (types 2 and 6, size 12 or 0) is an 8-byte zero-padded name,
// a u32 length and that many bytes. Any other type, a block running past the
// end, a named block of a mark before the first mark and a string without its
// terminator inside its block end the reading; the marks read so far stay.
//
// The mark record: type at 0, inclusive bounds at 4 (left, top, right,
// bottom), colour at 20 and a second colour at 24 (blue, green, red,
// reserved), highlighting at 28, transparency at 32, line size at 36, the
// font (a narrow LOGFONT: height at 48, weight at 64, italic, underline and
// strike-out bytes at 68 to 70, face at 76) at 48, the creation time (seconds
// since 1970) at 112 and the visible flag at 116.
//
// Text marks keep their font style in the rectangle's first option byte:
// kWangFontBold, kWangFontItalic, kWangFontUnderline, kWangFontStrikeOut.
#pragma once

#include <cstddef>
#include <cstdint>

#include "annotations/annotation.h"
#include "frame/error_record.h"

namespace velmora {

constexpr uint8_t kWangFontBold = 0x01;
constexpr uint8_t kWangFontItalic = 0x02;
constexpr uint8_t kWangFontUnderline = 0x04;
constexpr uint8_t kWangFontStrikeOut = 0x08;

// Appends the converted marks of the block to `list`; marks of unknown types
// set kLoadUnknownMarks in *loadResult. A block too short for its header or
// of another integer format adds nothing and is not an error. False only
// with the record set (memory, or a picture file that fails to read for want
// of memory); the marks converted before stay in the list.
bool ReadWangAnnotations(const uint8_t* bytes, size_t size, AnnotationList* list, uint32_t* loadResult,
                         ErrorRecord* record);

}  // namespace velmora
