#include "annotations/text_fit.h"

namespace velmora {

namespace {

constexpr uint32_t kDefaultPoints = 12;

// Lines and the longest line in characters, lines wrapping after `wrap`
// characters (0: never).
void CountLines(const char16_t* text, uint32_t wrap, int64_t* lines, int64_t* longest) {
    *lines = 1;
    *longest = 0;
    int64_t column = 0;
    for (; *text != 0; ++text) {
        if (*text == u'\r') continue;
        if (*text == u'\n' || (wrap != 0 && column == wrap)) {
            ++*lines;
            column = 0;
            if (*text == u'\n') continue;
        }
        ++column;
        if (column > *longest) *longest = column;
    }
}

}  // namespace

bool FitRectangleToText(const char16_t* text, uint16_t textSize, uint16_t rotation, const TextFit& fit,
                        AnnotationRect* rect, ErrorRecord* record) {
    if (record->failed()) return false;
    const VelmoraTextMeasure& m = *fit.measure;
    const int64_t points = textSize != 0 ? textSize : kDefaultPoints;
    // The text size in pixels across and down, then a character's width and
    // a line's height in thousandths of it.
    const int64_t emAcross = points * m.values[0] / 72, emDown = points * m.values[1] / 72;
    int64_t charWidth = emAcross * m.values[2] / 1000, lineHeight = emDown * m.values[3] / 1000;
    if (charWidth < 1) charWidth = 1;
    if (lineHeight < 1) lineHeight = 1;
    int64_t lines, longest;
    CountLines(text, fit.parameter, &lines, &longest);
    int64_t width = longest * charWidth + 2 * int64_t{m.option};
    int64_t height = lines * lineHeight + 2 * int64_t{m.option};
    if (rotation == 90 || rotation == 270) {
        const int64_t swap = width;
        width = height;
        height = swap;
    }

    int64_t left = rect->left, top = rect->top, right = rect->right, bottom = rect->bottom;
    if (static_cast<uint32_t>(rect->right) == 0xFFFFFFFFu || static_cast<uint32_t>(rect->bottom) == 0xFFFFFFFFu) {
        if (left + 1 > fit.pageWidth) --left;
        if (top + 1 > fit.pageHeight) --top;
        right = left + 1;
        bottom = top + 1;
    }
    if (fit.mode == 9) {
        if (width < right - left) width = right - left;
        if (height < bottom - top) height = bottom - top;
    }
    // The fixed point: left, centre or right edge; top, middle or bottom.
    const uint32_t column = fit.mode == 9 ? 0 : fit.mode % 3, row = fit.mode == 9 ? 0 : fit.mode / 3;
    left = column == 0 ? left : column == 1 ? (left + right - width) / 2 : right - width;
    top = row == 0 ? top : row == 1 ? (top + bottom - height) / 2 : bottom - height;
    right = left + width;
    bottom = top + height;
    if (width <= 0 || height <= 0 || left < 0 || top < 0 || right > fit.pageWidth || bottom > fit.pageHeight) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    *rect = {static_cast<int32_t>(left), static_cast<int32_t>(top), static_cast<int32_t>(right),
             static_cast<int32_t>(bottom)};
    return true;
}

}  // namespace velmora
