#include "annotations/annotation_info.h"

#include <algorithm>
#include <cstring>

namespace velmora {

namespace {

RECT HostRect(const AnnotationRect& rect) { return RECT{rect.left, rect.top, rect.right, rect.bottom}; }

// The rectangle whose top left and bottom right pixels are the line's ends.
RECT LineBounds(const LineFields& line) {
    const int64_t right = std::max(line.first.x, line.second.x) + int64_t{1};
    const int64_t bottom = std::max(line.first.y, line.second.y) + int64_t{1};
    return RECT{std::min(line.first.x, line.second.x), std::min(line.first.y, line.second.y),
                static_cast<LONG>(std::min<int64_t>(right, INT32_MAX)),
                static_cast<LONG>(std::min<int64_t>(bottom, INT32_MAX))};
}

// The font and text colour of a rectangle-and-text object.
void DescribeText(const RectangleFields& r, VelmoraAnnotationInfo* info) {
    info->textColor = r.textColor;
    info->textSize = r.textSize;
    static_assert(sizeof info->fontFace == sizeof r.fontFace, "font faces of 32 units");
    std::memcpy(info->fontFace, r.fontFace, sizeof r.fontFace);
    info->fontFace[31] = 0;
}

}  // namespace

const AnnotationText* AnnotationShownText(const Annotation& annotation) {
    switch (annotation.family) {
        case AnnotationFamily::Rectangle: return &annotation.rectangle.text;
        case AnnotationFamily::Line: return &annotation.line.text;
        case AnnotationFamily::Image:
            return annotation.image.attachedText != nullptr ? &annotation.image.attachedText->rectangle.text : nullptr;
        default: return nullptr;
    }
}

void DescribeAnnotation(const Annotation& a, VelmoraAnnotationInfo* info) {
    info->family = static_cast<DWORD>(a.family);
    info->type = AnnotationTypeCode(a);
    info->flags = a.nodeFlags;
    info->objectFlags = a.objectFlags & (kObjectProtect0 | kObjectProtect1 | kObjectHidden);
    info->rect = RECT{};
    info->lineStart = info->lineEnd = POINT{};
    info->borderColor = info->fillColor = info->fillColor2 = info->textColor = kColorNone;
    info->borderStyle = info->borderWidth = info->textSize = info->rotation = info->backStyle = info->lineEnds = 0;
    std::memset(info->fontFace, 0, sizeof info->fontFace);
    info->created = UnpackTime(a.created);
    info->changed = UnpackTime(a.changed);
    switch (a.family) {
        case AnnotationFamily::Rectangle: {
            const RectangleFields& r = a.rectangle;
            info->rect = HostRect(r.rect);
            info->borderColor = r.borderColor;
            info->borderStyle = r.borderStyle;
            info->borderWidth = r.borderWidth;
            info->fillColor = r.backColor;
            info->fillColor2 = r.backColor2;
            info->rotation = r.textRotation;
            info->backStyle = static_cast<WORD>(r.backStyle());
            DescribeText(r, info);
            break;
        }
        case AnnotationFamily::Line:
            info->rect = LineBounds(a.line);
            info->lineStart = POINT{a.line.first.x, a.line.first.y};
            info->lineEnd = POINT{a.line.second.x, a.line.second.y};
            info->borderColor = a.line.color;
            info->borderWidth = a.line.width;
            info->lineEnds = a.line.endWord & 3;
            break;
        case AnnotationFamily::Freehand:
            info->rect = HostRect(a.freehand.bounds);
            info->borderColor = a.freehand.lineColor;
            info->borderWidth = a.freehand.width;
            info->fillColor = a.freehand.fillColor;
            break;
        case AnnotationFamily::Image:
            info->rect = HostRect(a.image.rect);
            info->rotation = a.image.rotation;
            if (a.image.attachedText != nullptr) DescribeText(a.image.attachedText->rectangle, info);
            break;
        case AnnotationFamily::Ellipse:
            info->rect = HostRect(a.ellipse.rect);
            info->borderColor = a.ellipse.outlineColor;
            info->borderStyle = a.ellipse.outlineStyle;
            info->borderWidth = a.ellipse.outlineWidth;
            info->fillColor = a.ellipse.fillColor;
            info->rotation = a.ellipse.rotation;
            break;
    }
}

}  // namespace velmora
