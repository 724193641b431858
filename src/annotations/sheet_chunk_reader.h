// Reading the "Sht2" sheet-chunk annotations of a TIFF page (private tag
// 33581) into the annotation model. The library reads this format only.
//
// The block, all integers little-endian, is a sequence of chunks:
//   0       "Sht2"
//   4       u32 chunk size, header included (the next chunk starts there)
//   8       u8 k, then k bytes (the sheet's name, not used)
//   9 + k   u8 m, then m bytes (the sheet's owner, not used)
//   10+k+m  items up to the chunk's end: a four-character tag, a u32 payload
//           size and the payload.
// Reading stops at a chunk that does not begin with "Sht2", does not fit the
// block or whose two named fields run past its end, and at an item whose
// header or payload runs past its chunk; what was read stays.
//
// Coordinates are i32 thousandths of the page's resolution unit, turned into
// pixels with the page's resolution (a resolution that is not positive counts
// as one pixel per unit). Colours are u32 0x00BBGGRR, 0xFFFFFFFF for none.
//
// "Txt1" text box, "Hlt1" highlighter, "Ntb1" note, "Ole1" embedded object
// (rectangle and text family), payload of at least 36 bytes:
//   0  i32 left, top, right, bottom (right and bottom exclusive)
//   16 u32 border colour   20 u32 background colour   24 u32 text colour
//   28 u16 border width in pixels   30 u16 text size in points
//   32 u32 text length n, then n UTF-16 units of text
// A highlighter's background carries the highlighter bit; a note has the
// note border (style 4); a text box and a note hold a text (flag byte 1).
//
// "Arw1" arrow (line family), 24 bytes: i32 x1, y1, x2, y2; u32 colour;
// u16 width in pixels; u16 arrow ends (bit 0 at the first point, bit 1 at
// the second).
//
// "Scr1" scribble (freehand family), at least 12 bytes: u32 colour; u16 width
// in pixels; u16 reserved; u32 point count n; n points of i32 x, y.
//
// Items of other tags, and items too short for their layout, add nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "annotations/annotation.h"
#include "frame/error_record.h"

namespace velmora {

// Appends the converted items to `list`. False only with the record set
// (memory); the annotations converted before stay in the list.
bool ReadSheetChunkAnnotations(const uint8_t* bytes, size_t size, double xResolution, double yResolution,
                               AnnotationList* list, ErrorRecord* record);

}  // namespace velmora
