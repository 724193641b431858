// Annotation text through GDI: antialiased text drawn white on black into a
// DIB section, whose green channel becomes the coverage. Turned text uses the
// font's escapement, which GDI counts anticlockwise in tenths of a degree.
#include <windows.h>

#include <algorithm>
#include <new>

#include "platform/text_raster.h"

namespace velmora::platform {

class TextFace {
public:
    LOGFONTW font = {};
    HDC dc = nullptr;
    HFONT upright = nullptr;
    int32_t ascent = 0;
    int32_t lineHeight = 1;

    ~TextFace() {
        if (dc != nullptr) ::DeleteDC(dc);
        if (upright != nullptr) ::DeleteObject(upright);
    }
};

namespace {

uint32_t LastErrorOr(uint32_t fallback) {
    const DWORD error = ::GetLastError();
    return error != 0 ? error : fallback;
}

// A DIB section and its device context, freed together.
class Surface {
public:
    ~Surface() {
        if (dc_ != nullptr) {
            if (previous_ != nullptr) ::SelectObject(dc_, previous_);
            ::DeleteDC(dc_);
        }
        if (bitmap_ != nullptr) ::DeleteObject(bitmap_);
    }
    bool Make(int32_t width, int32_t height) {
        BITMAPINFO info = {};
        info.bmiHeader.biSize = sizeof info.bmiHeader;
        info.bmiHeader.biWidth = width;
        info.bmiHeader.biHeight = -height;  // top row first
        info.bmiHeader.biPlanes = 1;
        info.bmiHeader.biBitCount = 32;
        info.bmiHeader.biCompression = BI_RGB;
        dc_ = ::CreateCompatibleDC(nullptr);
        if (dc_ == nullptr) return false;
        bitmap_ = ::CreateDIBSection(dc_, &info, DIB_RGB_COLORS, reinterpret_cast<void**>(&pixels_), nullptr, 0);
        if (bitmap_ == nullptr || pixels_ == nullptr) return false;
        previous_ = ::SelectObject(dc_, bitmap_);
        return true;
    }
    HDC dc() const { return dc_; }
    const uint8_t* pixels() const { return pixels_; }

private:
    HDC dc_ = nullptr;
    HBITMAP bitmap_ = nullptr;
    HGDIOBJ previous_ = nullptr;
    uint8_t* pixels_ = nullptr;
};

}  // namespace

TextFace* OpenTextFace(const char16_t* name, int32_t pixels, uint32_t style, uint32_t* error) {
    TextFace* face = new (std::nothrow) TextFace;
    if (face == nullptr) {
        *error = ERROR_NOT_ENOUGH_MEMORY;
        return nullptr;
    }
    LOGFONTW& font = face->font;
    font.lfHeight = -std::clamp(pixels, 1, 0x7FFF);
    font.lfWeight = (style & kTextBold) != 0 ? FW_BOLD : FW_NORMAL;
    font.lfItalic = (style & kTextItalic) != 0;
    font.lfUnderline = (style & kTextUnderline) != 0;
    font.lfStrikeOut = (style & kTextStrikeOut) != 0;
    font.lfCharSet = DEFAULT_CHARSET;
    font.lfOutPrecision = OUT_TT_PRECIS;
    font.lfClipPrecision = CLIP_DEFAULT_PRECIS | CLIP_LH_ANGLES;
    font.lfQuality = ANTIALIASED_QUALITY;
    // A face the system lacks is mapped to its sans-serif face.
    font.lfPitchAndFamily = VARIABLE_PITCH | FF_SWISS;
    size_t length = 0;
    while (name != nullptr && length < LF_FACESIZE - 1 && name[length] != 0) {
        font.lfFaceName[length] = static_cast<WCHAR>(name[length]);
        ++length;
    }
    face->dc = ::CreateCompatibleDC(nullptr);
    face->upright = ::CreateFontIndirectW(&font);
    TEXTMETRICW metrics = {};
    if (face->dc == nullptr || face->upright == nullptr || ::SelectObject(face->dc, face->upright) == nullptr ||
        !::GetTextMetricsW(face->dc, &metrics)) {
        *error = LastErrorOr(ERROR_INVALID_HANDLE);
        delete face;
        return nullptr;
    }
    face->ascent = metrics.tmAscent;
    face->lineHeight = std::max<int32_t>(1, metrics.tmHeight + metrics.tmExternalLeading);
    return face;
}

void CloseTextFace(TextFace* face) { delete face; }

// GDI keeps nothing for the process beyond the faces themselves.
void ReleaseTextFaces() {}

int32_t TextAscent(const TextFace* face) { return face->ascent; }

int32_t TextLineHeight(const TextFace* face) { return face->lineHeight; }

int32_t MeasureText(TextFace* face, const char16_t* text, size_t length) {
    SIZE size = {};
    if (length == 0 || length > 0x7FFFFFFF ||
        !::GetTextExtentPoint32W(face->dc, reinterpret_cast<LPCWSTR>(text), static_cast<int>(length), &size)) {
        return 0;
    }
    return size.cx;
}

bool RenderTextLine(TextFace* face, const char16_t* text, size_t length, int32_t x, int32_t y, const TextTarget& target,
                    uint32_t* error) {
    if (length == 0 || target.width <= 0 || target.height <= 0) return true;
    if (length > 0x7FFFFFFF) {
        *error = ERROR_INVALID_PARAMETER;
        return false;
    }
    Surface surface;
    if (!surface.Make(target.width, target.height)) {
        *error = LastErrorOr(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    LOGFONTW turned = face->font;
    turned.lfEscapement = turned.lfOrientation = (3600 - target.rotation * 10) % 3600;
    HFONT font = ::CreateFontIndirectW(&turned);
    if (font == nullptr) {
        *error = LastErrorOr(ERROR_INVALID_HANDLE);
        return false;
    }
    // The line's top-left corner, turned into the box, relative to the window.
    const bool sideways = target.rotation == 90 || target.rotation == 270;
    const int32_t layoutWidth = sideways ? target.boxHeight : target.boxWidth;
    const int32_t layoutHeight = sideways ? target.boxWidth : target.boxHeight;
    int32_t bx = x, by = y;
    switch (target.rotation) {
        case 90: bx = layoutHeight - y, by = x; break;
        case 180: bx = layoutWidth - x, by = layoutHeight - y; break;
        case 270: bx = y, by = layoutWidth - x; break;
        default: break;
    }
    HDC dc = surface.dc();
    HGDIOBJ previous = ::SelectObject(dc, font);
    ::SetTextColor(dc, RGB(255, 255, 255));
    ::SetBkMode(dc, TRANSPARENT);
    ::SetTextAlign(dc, TA_TOP | TA_LEFT | TA_NOUPDATECP);
    const BOOL drawn = ::ExtTextOutW(dc, bx - target.windowLeft, by - target.windowTop, 0, nullptr,
                                     reinterpret_cast<LPCWSTR>(text), static_cast<UINT>(length), nullptr);
    ::GdiFlush();
    ::SelectObject(dc, previous);
    ::DeleteObject(font);
    if (!drawn) {
        *error = LastErrorOr(ERROR_INVALID_HANDLE);
        return false;
    }
    const uint8_t* pixels = surface.pixels();
    for (int32_t row = 0; row < target.height; ++row) {
        uint8_t* out = target.coverage + static_cast<size_t>(row) * target.stride;
        const uint8_t* in = pixels + static_cast<size_t>(row) * static_cast<size_t>(target.width) * 4;
        for (int32_t column = 0; column < target.width; ++column) {
            out[column] = std::max(out[column], in[4 * column + 1]);
        }
    }
    return true;
}

}  // namespace velmora::platform
