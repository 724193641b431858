// Sizing a text annotation's rectangle to its text, for inserting with "size
// to fit". The measurement is deliberately simple: every character is taken
// to be as wide as an average character of the font, every line as high as
// the font's line height, both from the text size in points at the page's
// resolution (VelmoraTextMeasure in the public header tells the values).
#pragma once

#include <cstdint>

#include "annotations/annotation.h"
#include "velmora/velmora.h"

namespace velmora {

struct TextFit {
    const VelmoraTextMeasure* measure;
    uint32_t mode;       // 0 to 8: the fixed point (3 x 3 grid); 9: only grow
    uint32_t parameter;  // characters after which a line wraps; 0 for no wrapping
    int32_t pageWidth;
    int32_t pageHeight;
};

// Sizes `rect` to `text` (right or bottom 0xFFFFFFFF: start from a 1 x 1
// rectangle at the left and top, moved back one pixel when it would leave
// the page). False with 87 when the result is empty or leaves the page.
bool FitRectangleToText(const char16_t* text, uint16_t textSize, uint16_t rotation, const TextFit& fit,
                        AnnotationRect* rect, ErrorRecord* record);

}  // namespace velmora
