// Annotation text through FreeType, with faces chosen by fontconfig.
#include "platform/text_raster.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_SYNTHESIS_H

#include <algorithm>
#include <new>
#include <string>

#include "platform/platform.h"

namespace velmora::platform {

class TextFace {
public:
    FT_Library library = nullptr;
    FT_Face face = nullptr;
    uint32_t style = 0;
    bool emboldenGlyphs = false;  // bold asked of a face that has none
    bool slantGlyphs = false;     // italic asked of a face that has none
    int32_t ascent = 0;
    int32_t lineHeight = 0;
    int32_t underlineOffset = 0;  // below the baseline
    int32_t underlineThickness = 1;

    ~TextFace() {
        if (face != nullptr) FT_Done_Face(face);
        if (library != nullptr) FT_Done_FreeType(library);
    }
};

namespace {

constexpr uint32_t kErrorNoMemory = 8;
constexpr uint32_t kErrorNoFace = 2;  // no face file could be found or opened

// The next code point of UTF-16 text; a lone surrogate stands for itself.
char32_t NextCodePoint(const char16_t* text, size_t length, size_t* at) {
    const char16_t unit = text[(*at)++];
    if (unit >= 0xD800 && unit < 0xDC00 && *at < length && text[*at] >= 0xDC00 && text[*at] < 0xE000) {
        return 0x10000 + ((char32_t{unit} - 0xD800) << 10) + (text[(*at)++] - 0xDC00);
    }
    return unit;
}

// The file and face index fontconfig gives for a family, or for its
// sans-serif face when the family is empty; with the style the file has.
bool MatchFace(const std::string& family, uint32_t style, std::string* file, int* index, bool* bold, bool* italic) {
    FcPattern* pattern = FcPatternCreate();
    if (pattern == nullptr) return false;
    const char* name = family.empty() ? "sans-serif" : family.c_str();
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(name));
    FcPatternAddInteger(pattern, FC_WEIGHT, (style & kTextBold) != 0 ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
    FcPatternAddInteger(pattern, FC_SLANT, (style & kTextItalic) != 0 ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(nullptr, pattern, &result);
    FcPatternDestroy(pattern);
    if (match == nullptr) return false;
    FcChar8* path = nullptr;
    int weight = FC_WEIGHT_REGULAR, slant = FC_SLANT_ROMAN;
    const bool found = FcPatternGetString(match, FC_FILE, 0, &path) == FcResultMatch && path != nullptr;
    if (found) {
        file->assign(reinterpret_cast<const char*>(path));
        if (FcPatternGetInteger(match, FC_INDEX, 0, index) != FcResultMatch) *index = 0;
        FcPatternGetInteger(match, FC_WEIGHT, 0, &weight);
        FcPatternGetInteger(match, FC_SLANT, 0, &slant);
        *bold = weight >= FC_WEIGHT_DEMIBOLD;
        *italic = slant != FC_SLANT_ROMAN;
    }
    FcPatternDestroy(match);
    return found;
}

int32_t Pixels26(FT_Pos value) { return static_cast<int32_t>((value + 63) >> 6); }

bool LoadGlyph(TextFace* face, char32_t code, bool render) {
    const FT_UInt glyph = FT_Get_Char_Index(face->face, code);
    if (FT_Load_Glyph(face->face, glyph, FT_LOAD_DEFAULT | FT_LOAD_NO_BITMAP) != 0) return false;
    if (face->emboldenGlyphs) FT_GlyphSlot_Embolden(face->face->glyph);
    if (face->slantGlyphs) FT_GlyphSlot_Oblique(face->face->glyph);
    return !render || FT_Render_Glyph(face->face->glyph, FT_RENDER_MODE_NORMAL) == 0;
}

// Puts coverage at layout pixel (x, y) into the target.
void Put(const TextTarget& target, int32_t x, int32_t y, uint8_t value) {
    const bool turned = target.rotation == 90 || target.rotation == 270;
    const int32_t layoutWidth = turned ? target.boxHeight : target.boxWidth;
    const int32_t layoutHeight = turned ? target.boxWidth : target.boxHeight;
    int32_t bx = x, by = y;
    switch (target.rotation) {
        case 90: bx = layoutHeight - 1 - y, by = x; break;
        case 180: bx = layoutWidth - 1 - x, by = layoutHeight - 1 - y; break;
        case 270: bx = y, by = layoutWidth - 1 - x; break;
        default: break;
    }
    bx -= target.windowLeft;
    by -= target.windowTop;
    if (bx < 0 || by < 0 || bx >= target.width || by >= target.height) return;
    uint8_t& cell = target.coverage[static_cast<size_t>(by) * target.stride + static_cast<size_t>(bx)];
    cell = std::max(cell, value);
}

}  // namespace

TextFace* OpenTextFace(const char16_t* name, int32_t pixels, uint32_t style, uint32_t* error) {
    // Loads the configuration once, and again after ReleaseTextFaces.
    FcInit();
    TextFace* face = new (std::nothrow) TextFace;
    if (face == nullptr || FT_Init_FreeType(&face->library) != 0) {
        delete face;
        *error = kErrorNoMemory;
        return nullptr;
    }
    face->style = style;
    const std::string family = Utf8FromWide(name != nullptr ? std::u16string(name) : std::u16string());
    // The named family first, then the sans-serif face.
    for (const std::string& candidate : {family, std::string()}) {
        std::string file;
        int index = 0;
        bool bold = false, italic = false;
        if (!MatchFace(candidate, style, &file, &index, &bold, &italic)) continue;
        if (FT_New_Face(face->library, file.c_str(), index, &face->face) != 0) {
            face->face = nullptr;
            continue;
        }
        face->emboldenGlyphs = (style & kTextBold) != 0 && !bold;
        face->slantGlyphs = (style & kTextItalic) != 0 && !italic;
        break;
    }
    if (face->face == nullptr ||
        FT_Set_Pixel_Sizes(face->face, 0, static_cast<FT_UInt>(std::clamp(pixels, 1, 0x7FFF))) != 0) {
        delete face;
        *error = kErrorNoFace;
        return nullptr;
    }
    const FT_Size_Metrics& metrics = face->face->size->metrics;
    face->ascent = Pixels26(metrics.ascender);
    face->lineHeight = std::max(1, Pixels26(metrics.height));
    if (FT_IS_SCALABLE(face->face)) {
        face->underlineOffset = Pixels26(-FT_MulFix(face->face->underline_position, metrics.y_scale));
        face->underlineThickness = std::max(1, Pixels26(FT_MulFix(face->face->underline_thickness, metrics.y_scale)));
    }
    return face;
}

void CloseTextFace(TextFace* face) { delete face; }

void ReleaseTextFaces() { FcFini(); }

int32_t TextAscent(const TextFace* face) { return face->ascent; }

int32_t TextLineHeight(const TextFace* face) { return face->lineHeight; }

int32_t MeasureText(TextFace* face, const char16_t* text, size_t length) {
    FT_Pos advance = 0;
    for (size_t at = 0; at < length;) {
        if (LoadGlyph(face, NextCodePoint(text, length, &at), false)) advance += face->face->glyph->advance.x;
    }
    return Pixels26(advance);
}

bool RenderTextLine(TextFace* face, const char16_t* text, size_t length, int32_t x, int32_t y, const TextTarget& target,
                    uint32_t* error) {
    (void)error;
    const int32_t baseline = y + face->ascent;
    FT_Pos pen = FT_Pos{x} * 64;
    for (size_t at = 0; at < length;) {
        if (!LoadGlyph(face, NextCodePoint(text, length, &at), true)) continue;
        const FT_GlyphSlot slot = face->face->glyph;
        const FT_Bitmap& bitmap = slot->bitmap;
        const int32_t left = static_cast<int32_t>((pen + 32) >> 6) + slot->bitmap_left;
        const int32_t top = baseline - slot->bitmap_top;
        for (unsigned row = 0; row < bitmap.rows; ++row) {
            const uint8_t* source = bitmap.buffer + static_cast<ptrdiff_t>(row) * bitmap.pitch;
            for (unsigned column = 0; column < bitmap.width; ++column) {
                if (source[column] != 0) Put(target, left + static_cast<int32_t>(column), top + row, source[column]);
            }
        }
        pen += slot->advance.x;
    }
    const int32_t end = static_cast<int32_t>((pen + 63) >> 6);
    auto rule = [&](int32_t ruleTop, int32_t thickness) {
        for (int32_t row = ruleTop; row < ruleTop + thickness; ++row) {
            for (int32_t column = x; column < end; ++column) Put(target, column, row, 255);
        }
    };
    if ((face->style & kTextUnderline) != 0) rule(baseline + face->underlineOffset, face->underlineThickness);
    if ((face->style & kTextStrikeOut) != 0) rule(baseline - face->ascent * 3 / 10, face->underlineThickness);
    return true;
}

}  // namespace velmora::platform
