// Text rendering for annotations: a font face at a pixel size renders lines of
// UTF-16 text into 8-bit coverage (0 none, 255 full), turned clockwise by 0,
// 90, 180 or 270 degrees, and measures them for line breaking.
//
// A face the system does not have is replaced by its sans-serif face, so text
// is always drawn. Linux renders through FreeType with faces found by
// fontconfig; Windows through GDI.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora::platform {

// Style bits of a text face.
constexpr uint32_t kTextBold = 0x01;
constexpr uint32_t kTextItalic = 0x02;
constexpr uint32_t kTextUnderline = 0x04;
constexpr uint32_t kTextStrikeOut = 0x08;

// Where a text block lands: a coverage buffer standing for the window
// (windowLeft, windowTop, width x height) of a box of boxWidth x boxHeight
// pixels. Text is laid out upright in the box turned back by `rotation`
// (its layout box is boxHeight x boxWidth at 90 and 270 degrees), then
// turned clockwise into the box. Ink is never written outside the buffer.
struct TextTarget {
    uint8_t* coverage;
    int32_t width;
    int32_t height;
    size_t stride;
    int32_t windowLeft;
    int32_t windowTop;
    int32_t boxWidth;
    int32_t boxHeight;
    uint16_t rotation;
};

class TextFace;

// Opens `face` (a NUL-terminated name; empty for the default) at an em size
// of `pixels` with the style bits. Null with a system error code only when no
// face at all can be had.
TextFace* OpenTextFace(const char16_t* face, int32_t pixels, uint32_t style, uint32_t* error);
void CloseTextFace(TextFace* face);
// Lets go of what the font system keeps for the process (at unload).
void ReleaseTextFaces();

// The distance from a line's top to its baseline, and from one line's top to
// the next, in pixels.
int32_t TextAscent(const TextFace* face);
int32_t TextLineHeight(const TextFace* face);
// The advance width of `length` units of `text`, in pixels.
int32_t MeasureText(TextFace* face, const char16_t* text, size_t length);
// Renders one line with its top-left corner at (x, y) of the layout box,
// adding to the coverage already in the target (the larger value stays).
bool RenderTextLine(TextFace* face, const char16_t* text, size_t length, int32_t x, int32_t y, const TextTarget& target,
                    uint32_t* error);

// Closes a face when it goes out of scope.
class TextFaceHolder {
public:
    explicit TextFaceHolder(TextFace* face) : face_(face) {}
    ~TextFaceHolder() {
        if (face_ != nullptr) CloseTextFace(face_);
    }
    TextFaceHolder(const TextFaceHolder&) = delete;
    TextFaceHolder& operator=(const TextFaceHolder&) = delete;
    TextFace* get() const { return face_; }

private:
    TextFace* face_;
};

}  // namespace velmora::platform
