// The invisible text layer of a page: a content stream that sets every
// recognised word in Courier with text rendering mode 3 (neither filled nor
// stroked) over its picture, sized and stretched to cover the word's box, so
// that the page's text can be searched and selected.
//
// The caller adds the font object "<</Type /Font /Subtype /Type1 /BaseFont
// /Courier>>" as /F1 of the page's resources, stores the bytes as the page's
// second content stream (after the image) and codes or encrypts them as the
// document requires.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "pdf/ocr_text.h"

namespace velmora {

// The page image as the record's boxes know it, and how it is placed.
struct TextLayerPage {
    int32_t width = 0;  // pixels of the image the boxes refer to
    int32_t height = 0;
    double xResolution = 0;  // pixels per inch of that image
    double yResolution = 0;
    uint16_t rotation = 0;  // clockwise turn (0, 90, 180, 270) of the image on the page
};

// Appends to `out` the content-stream bytes of the text layer of one page
// from the OCR text record `text` of `size` bytes. Words whose box touches
// one of the `redactionCount` rectangles of `redactions` (in the same pixels
// as the boxes, before the turn) are left out. A bad record leaves its error
// (0x0200002F or 0x02000030) in the record and nothing in `out`.
bool BuildTextLayer(const uint8_t* text, uint32_t size, const TextLayerPage& page, const OcrBox* redactions,
                    size_t redactionCount, CheckedArray<uint8_t>* out, ErrorRecord* record);

}  // namespace velmora
