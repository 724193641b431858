// Drawing on a DIB in memory: inks, exact rectangle fills and frames, filled
// outlines with antialiased edges, and blending of coverage masks such as
// rendered text.
//
// Pixel (x, y) is counted from the top row whatever the row order of the DIB
// (bottom-up, or top-down when biHeight is negative), and covers the square
// [x, x + 1) x [y, y + 1) of continuous coordinates. Rectangles are left,
// top, right, bottom with right and bottom exclusive, and everything drawn is
// clipped to the image.
//
// Antialiasing follows the page depth: coverage blends the ink into the
// pixel on 8-bit grey, 16-, 24- and 32-bit pages; bi-level and palette pages
// get no intermediate shades, a pixel takes the ink when at least half of it
// is covered.
#pragma once

#include <cstddef>
#include <cstdint>

#include "dib/canvas_path.h"
#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

// The colour bit that makes an ink a highlighter: the page's pixel is ANDed
// with the colour, channel by channel, instead of replaced.
constexpr uint32_t kInkHighlighter = 0x01000000u;

// Border patterns of rectangle frames.
enum class FramePattern { Solid, Dash, Dot, DashDot, DashDotDot };

// A colour prepared for one canvas.
struct Ink {
    COLORREF color = 0;
    bool highlighter = false;
    uint32_t pixel = 0;  // the pixel value that shows the colour
};

class Canvas {
public:
    // Opens the canvas on an uncompressed (or bit-field) DIB of 1, 4, 8, 16,
    // 24 or 32 bits whose rows start at `bits`. False with 0x02000005 for
    // other DIBs, or 8 when the working rows cannot be had.
    bool Open(BITMAPINFOHEADER* header, void* bits, ErrorRecord* record);

    int32_t width() const { return width_; }
    int32_t height() const { return height_; }
    // Whether coverage between 0 and 255 shades the ink into the page.
    bool antialiased() const { return antialiased_; }

    // The ink for a colour 0x00BBGGRR, kInkHighlighter allowed.
    Ink MakeInk(uint32_t color) const;

    // Fills the pixels of `rect`, clipped to the image.
    void FillRect(RECT rect, const Ink& ink);
    // A border of `thickness` pixels drawn inside `rect`, in `pattern`.
    void FrameRect(RECT rect, uint32_t thickness, FramePattern pattern, const Ink& ink);
    // Fills the area of `path` by the non-zero rule, with antialiased edges.
    bool FillPath(const CanvasPath& path, const Ink& ink, ErrorRecord* record);
    // Blends `coverage` (rows of `stride` bytes, top row first, 0 none to
    // 255 full) in the ink with its top-left pixel at (x, y).
    void BlendCoverage(int32_t x, int32_t y, const uint8_t* coverage, uint32_t maskWidth, uint32_t maskHeight,
                       size_t stride, const Ink& ink);

    // Pixel access for copying pictures: the colour of (x, y), and setting
    // it to a colour (the nearest entry on palette pages). Both expect a
    // pixel inside the image.
    COLORREF GetColor(int32_t x, int32_t y) const;
    void SetColor(int32_t x, int32_t y, COLORREF color);

private:
    struct Channel {
        uint32_t mask;
        uint32_t shift;
        uint32_t max;
    };

    uint8_t* Row(int32_t y) const { return top_ + stride_ * static_cast<ptrdiff_t>(y); }
    uint32_t ReadPixel(const uint8_t* row, int32_t x) const;
    void WritePixel(uint8_t* row, int32_t x, uint32_t value) const;
    COLORREF PixelToColor(uint32_t value) const;
    uint32_t ColorToPixel(COLORREF color) const;
    // The pixel value the ink leaves on a pixel of value `value` at
    // coverage `alpha`.
    uint32_t Paint(uint32_t value, const Ink& ink, uint32_t alpha) const;
    void PaintSpan(int32_t y, int32_t left, int32_t right, const Ink& ink);

    uint8_t* top_ = nullptr;
    ptrdiff_t stride_ = 0;
    int32_t width_ = 0;
    int32_t height_ = 0;
    uint32_t bitCount_ = 0;
    bool antialiased_ = false;
    const RGBQUAD* table_ = nullptr;
    uint32_t tableCount_ = 0;   // entries a pixel can index
    Channel channels_[3] = {};  // red, green, blue of 16- and 32-bit pages
    bool greyTable_ = false;
    uint8_t greyIndex_[256] = {};  // grey level -> nearest entry on 8-bit grey pages
    // Row buffers of FillPath: coverage started by each span (deltas of
    // whole pixels) and partly covered pixels.
    CheckedArray<int32_t> cover_;
    CheckedArray<float> area_;
    bool cached_ = false;
    COLORREF cachedColor_ = 0;
    uint32_t cachedPixel_ = 0;
};

}  // namespace velmora
