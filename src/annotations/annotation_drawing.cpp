#include "annotations/annotation_drawing.h"

#include <algorithm>
#include <cmath>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/pixel_fetch.h"
#include "platform/text_raster.h"

namespace velmora {
namespace {

constexpr uint32_t kColorFilledRedaction = 0xFFFFFFFEu;  // a scribble redaction's fill
constexpr uint32_t kBlack = 0x000000;

bool HasColor(uint32_t color) { return color != kColorNone && color != kColorFilledRedaction; }

bool IsEmpty(const AnnotationRect& rect) { return rect.left >= rect.right || rect.top >= rect.bottom; }

RECT ToRect(const AnnotationRect& rect) { return RECT{rect.left, rect.top, rect.right, rect.bottom}; }

// Coordinates far outside any page are held at this distance, so that sizes
// and turned coordinates stay within 32 bits.
constexpr int32_t kFarAway = 1 << 29;

AnnotationRect Normalised(const AnnotationRect& rect) {
    const auto hold = [](int32_t v) { return std::clamp(v, -kFarAway, kFarAway); };
    return {hold(std::min(rect.left, rect.right)), hold(std::min(rect.top, rect.bottom)),
            hold(std::max(rect.left, rect.right)), hold(std::max(rect.top, rect.bottom))};
}

PathPoint TurnPoint(PathPoint point, uint16_t rotation, int32_t width, int32_t height) {
    switch (rotation) {
        case 90: return {width - point.y, point.x};
        case 180: return {width - point.x, height - point.y};
        case 270: return {point.y, height - point.x};
        default: return point;
    }
}

// The middle of a pixel given by integer coordinates.
PathPoint PixelCentre(const AnnotationPoint& point) { return {point.x + 0.5, point.y + 0.5}; }

// The point of `rect` nearest to `point`.
PathPoint Clamp(PathPoint point, const AnnotationRect& rect) {
    return {std::clamp<double>(point.x, rect.left, rect.right), std::clamp<double>(point.y, rect.top, rect.bottom)};
}

PathPoint Centre(const AnnotationRect& rect) {
    return {(rect.left + rect.right) / 2.0, (rect.top + rect.bottom) / 2.0};
}

// Fills `rect` with a blend from `from` to `to`: across (style 1), down
// (2), or along either diagonal (3, 4). The blend is cut into at most 256
// steps, each drawn with its own ink.
void FillBlend(Canvas* canvas, const AnnotationRect& rect, uint32_t from, uint32_t to, uint32_t style) {
    const uint32_t highlighter = from & kColorHighlighter;
    const int64_t width = int64_t{rect.right} - rect.left, height = int64_t{rect.bottom} - rect.top;
    const int64_t span = style == 1 ? width : style == 2 ? height : width + height;
    Ink inks[256];
    bool made[256] = {};
    auto inkAt = [&](int64_t position) -> const Ink& {
        const int level = span <= 1 ? 0 : static_cast<int>(position * 255 / (span - 1));
        if (!made[level]) {
            const auto mix = [&](int shift) {
                const int a = (from >> shift) & 0xFF, b = (to >> shift) & 0xFF;
                return static_cast<uint32_t>(a + (b - a) * level / 255) << shift;
            };
            inks[level] = canvas->MakeInk(mix(0) | mix(8) | mix(16) | highlighter);
            made[level] = true;
        }
        return inks[level];
    };
    const int32_t top = std::max(rect.top, 0), bottom = std::min(rect.bottom, canvas->height());
    const int32_t left = std::max(rect.left, 0), right = std::min(rect.right, canvas->width());
    for (int32_t y = top; y < bottom; ++y) {
        if (style == 2) {
            canvas->FillRect({left, y, right, y + 1}, inkAt(y - rect.top));
            continue;
        }
        for (int32_t x = left; x < right;) {
            auto position = [&](int32_t at) -> int64_t {
                if (style == 1) return at - rect.left;
                if (style == 3) return int64_t{at - rect.left} + (y - rect.top);
                return int64_t{rect.right - 1 - at} + (y - rect.top);
            };
            const Ink& ink = inkAt(position(x));
            int32_t end = x + 1;
            while (end < right && inkAt(position(end)).color == ink.color) ++end;
            canvas->FillRect({x, y, end, y + 1}, ink);
            x = end;
        }
    }
}

struct TextLine {
    uint32_t start;
    uint32_t length;
};

bool IsBreak(char16_t c) { return c == u'\n' || c == u'\r'; }

// Breaks `text` into lines no wider than `width`: at line breaks, between
// words where a line is full, and inside a word that is wider than a line.
// Stops after `most` lines.
bool WrapText(platform::TextFace* face, const char16_t* text, uint32_t length, int32_t width, size_t most,
              CheckedArray<TextLine>* lines, ErrorRecord* record) {
    uint32_t at = 0;
    while (at <= length && lines->size() < most && record->ok()) {
        uint32_t end = at;
        while (end < length && !IsBreak(text[end])) ++end;
        // One paragraph: [at, end).
        uint32_t start = at;
        do {
            uint32_t fit = start, scan = start;
            while (scan < end) {
                uint32_t wordEnd = scan;
                while (wordEnd < end && text[wordEnd] == u' ') ++wordEnd;
                while (wordEnd < end && text[wordEnd] != u' ') ++wordEnd;
                if (fit > start && platform::MeasureText(face, text + start, wordEnd - start) > width) break;
                if (fit == start && platform::MeasureText(face, text + start, wordEnd - start) > width) {
                    // The first word alone is too wide: as many characters as fit, at least one.
                    uint32_t cut = start + 1;
                    while (cut < wordEnd && platform::MeasureText(face, text + start, cut + 1 - start) <= width) ++cut;
                    fit = cut;
                    break;
                }
                fit = scan = wordEnd;
            }
            if (!lines->Append({start, fit - start}, record)) return false;
            start = fit;
            while (start < end && text[start] == u' ') ++start;
        } while (start < end && lines->size() < most);
        if (end >= length) break;
        at = end + (text[end] == u'\r' && end + 1 < length && text[end + 1] == u'\n' ? 2 : 1);
    }
    return record->ok();
}

// Draws `text` in the colour, word-wrapped in `box` (on the page image) and
// clipped to it, turned clockwise by `rotation`.
bool DrawTextBox(const RectangleFields& fields, const AnnotationRect& box, uint16_t rotation,
                 const DrawingContext& context, ErrorRecord* record) {
    Canvas* canvas = context.canvas;
    if (IsEmpty(box) || fields.text.empty() || fields.textColor == kColorNone) return true;
    const AnnotationRect window = {std::max(box.left, 0), std::max(box.top, 0), std::min(box.right, canvas->width()),
                                   std::min(box.bottom, canvas->height())};
    if (IsEmpty(window)) return true;
    const bool turned = rotation == 90 || rotation == 270;
    const double dpi = turned ? context.dpiX : context.dpiY;
    const int32_t boxWidth = box.right - box.left, boxHeight = box.bottom - box.top;
    const int32_t layoutWidth = turned ? boxHeight : boxWidth, layoutHeight = turned ? boxWidth : boxHeight;
    // Text far taller than its box shows nothing more than the box holds.
    const uint16_t points = fields.textSize != 0 ? fields.textSize : kDefaultTextPoints;
    const double wanted = std::min<double>(points * dpi / 72, std::min(2.0 * layoutHeight + 16, 4096.0));
    const int32_t pixels = std::max(1, static_cast<int32_t>(std::lround(wanted)));
    uint32_t style = 0;
    if ((fields.option2 & kTextStyleBold) != 0) style |= platform::kTextBold;
    if ((fields.option2 & kTextStyleItalic) != 0) style |= platform::kTextItalic;
    if ((fields.option2 & kTextStyleUnderline) != 0) style |= platform::kTextUnderline;
    if ((fields.option2 & kTextStyleStrikeOut) != 0) style |= platform::kTextStrikeOut;
    uint32_t error = 0;
    platform::TextFaceHolder face(platform::OpenTextFace(fields.fontFace, pixels, style, &error));
    if (face.get() == nullptr) {
        SetRecordError(record, error != 0 ? error : kErrGeneral, 0);
        return false;
    }
    const int32_t lineHeight = platform::TextLineHeight(face.get());
    CheckedArray<TextLine> lines;
    if (!WrapText(face.get(), fields.text.c_str(), static_cast<uint32_t>(fields.text.length()), layoutWidth,
                  static_cast<size_t>(layoutHeight / lineHeight) + 1, &lines, record)) {
        return false;
    }
    platform::TextTarget target;
    target.width = window.right - window.left;
    target.height = window.bottom - window.top;
    target.stride = static_cast<size_t>(target.width);
    target.windowLeft = window.left - box.left;
    target.windowTop = window.top - box.top;
    target.boxWidth = boxWidth;
    target.boxHeight = boxHeight;
    target.rotation = rotation;
    CheckedArray<uint8_t> coverage;
    if (!coverage.Zeroed(uint64_t(target.stride) * static_cast<uint64_t>(target.height), record)) return false;
    target.coverage = coverage.data();
    int32_t y = 0;
    for (const TextLine& line : lines) {
        if (y >= layoutHeight) break;
        if (!platform::RenderTextLine(face.get(), fields.text.c_str() + line.start, line.length, 0, y, target,
                                      &error)) {
            SetRecordError(record, error != 0 ? error : kErrGeneral, 0);
            return false;
        }
        y += lineHeight;
    }
    canvas->BlendCoverage(window.left, window.top, coverage.data(), static_cast<uint32_t>(target.width),
                          static_cast<uint32_t>(target.height), target.stride, canvas->MakeInk(fields.textColor));
    return true;
}

bool DrawRectangleFamily(const RectangleFields& fields, bool redaction, const DrawingContext& context,
                         ErrorRecord* record) {
    Canvas* canvas = context.canvas;
    const AnnotationRect rect = TurnRect(Normalised(fields.rect), context.rotation, canvas->width(), canvas->height());
    if (IsEmpty(rect)) return true;
    uint32_t back = fields.backColor;
    if (redaction) back = back == kColorNone ? kBlack : back & ~kColorHighlighter;
    if (back != kColorNone) {
        const uint32_t style = fields.backStyle();
        if (style == 0 || fields.backColor2 == kColorNone || redaction) {
            canvas->FillRect(ToRect(rect), canvas->MakeInk(back));
        } else {
            FillBlend(canvas, rect, back, fields.backColor2 & 0xFFFFFFu, style);
        }
    }
    uint32_t border = 0;
    if (fields.borderStyle != 0 && fields.borderWidth != 0 && fields.borderColor != kColorNone) {
        static const FramePattern kPatterns[] = {FramePattern::Solid, FramePattern::Dash, FramePattern::Dot,
                                                 FramePattern::DashDot, FramePattern::DashDotDot};
        const FramePattern pattern = fields.borderStyle <= 5 ? kPatterns[fields.borderStyle - 1] : FramePattern::Solid;
        border = fields.borderWidth;
        canvas->FrameRect(ToRect(rect), border, pattern, canvas->MakeInk(fields.borderColor));
    }
    const int32_t inset = static_cast<int32_t>(std::min<uint32_t>(border, 0x10000));
    const AnnotationRect box = {rect.left + inset, rect.top + inset, rect.right - inset, rect.bottom - inset};
    const uint16_t rotation = static_cast<uint16_t>((fields.textRotation / 90 * 90 + context.rotation) % 360);
    return DrawTextBox(fields, box, rotation, context, record);
}

bool DrawLineFamily(const LineFields& fields, const DrawingContext& context, ErrorRecord* record) {
    Canvas* canvas = context.canvas;
    PathPoint a = TurnPoint(PixelCentre(fields.first), context.rotation, canvas->width(), canvas->height());
    PathPoint b = TurnPoint(PixelCentre(fields.second), context.rotation, canvas->width(), canvas->height());
    if (context.connectFrom != nullptr && context.connectTo != nullptr && !IsEmpty(*context.connectFrom)) {
        a = Clamp(Centre(*context.connectTo), *context.connectFrom);
        b = Clamp(Centre(*context.connectFrom), *context.connectTo);
    }
    const double width = std::max<uint16_t>(fields.width & 0x3FFF, 1);
    CanvasPath path;
    PathPoint start = a, end = b;
    if ((fields.endWord & 1) != 0) end = path.AddArrowHead(b, a, width, record);
    if ((fields.endWord & 2) != 0) start = path.AddArrowHead(a, b, width, record);
    path.AddLine(start, end, width, LineCap::Round, record);
    return canvas->FillPath(path, canvas->MakeInk(fields.color), record);
}

bool DrawFreehandFamily(const FreehandFields& fields, bool redaction, const DrawingContext& context,
                        ErrorRecord* record) {
    Canvas* canvas = context.canvas;
    const int32_t width = canvas->width(), height = canvas->height();
    uint32_t fill = fields.fillColor;
    if (fill == kColorFilledRedaction || (redaction && !HasColor(fill))) fill = fields.lineColor;
    const double lineWidth = std::max<uint16_t>(fields.width & 0x3FFF, 1);
    CanvasPath strokes;
    size_t first = 0;
    for (uint32_t strokeLength : fields.strokeLengths) {
        const size_t count = std::min<size_t>(strokeLength, fields.points.size() - first);
        const AnnotationPoint* points = fields.points.data() + first;
        first += count;
        if (count == 0) continue;
        const bool closed = count > 2 && ((points[0].x == points[count - 1].x && points[0].y == points[count - 1].y) ||
                                          fields.style == 3 || fields.style == 7 || redaction);
        if (HasColor(fill) && closed) {
            CanvasPath area;
            CheckedArray<PathPoint> turned;
            if (!turned.Sized(count, record)) return false;
            for (size_t i = 0; i < count; ++i)
                turned[i] = TurnPoint(PixelCentre(points[i]), context.rotation, width, height);
            area.AddContour(turned.data(), count, false, record);
            if (!canvas->FillPath(area, canvas->MakeInk(fill), record)) return false;
        }
        PathPoint previous = TurnPoint(PixelCentre(points[0]), context.rotation, width, height);
        strokes.AddLine(previous, previous, lineWidth, LineCap::Round, record);
        for (size_t i = 1; i < count; ++i) {
            const PathPoint next = TurnPoint(PixelCentre(points[i]), context.rotation, width, height);
            strokes.AddLine(previous, next, lineWidth, LineCap::Round, record);
            previous = next;
        }
        if (record->failed()) return false;
    }
    if (fields.lineColor == kColorNone) return true;
    return canvas->FillPath(strokes, canvas->MakeInk(fields.lineColor), record);
}

bool DrawImageFamily(const ImageFields& fields, const DrawingContext& context, ErrorRecord* record) {
    Canvas* canvas = context.canvas;
    const AnnotationRect rect = Normalised(fields.rect);
    if (IsEmpty(rect)) return true;
    if (fields.dib != nullptr) {
        ImageLock picture(fields.dib);
        const BITMAPINFOHEADER* header = picture.header();
        if (header == nullptr || header->biSize != kDibHeaderSize || header->biWidth <= 0 || header->biHeight <= 0) {
            SetRecordError(record, kErrBadImageData, 0);
            return false;
        }
        const uint8_t* bits = PackedBits(header);
        const int64_t sourceWidth = header->biWidth, sourceHeight = header->biHeight;
        const bool turned = fields.rotation == 90 || fields.rotation == 270;
        // The picture turned by its rotation is shownWidth x shownHeight.
        const int64_t shownWidth = turned ? sourceHeight : sourceWidth;
        const int64_t shownHeight = turned ? sourceWidth : sourceHeight;
        const int64_t boxWidth = int64_t{rect.right} - rect.left, boxHeight = int64_t{rect.bottom} - rect.top;
        const int32_t top = std::max(rect.top, 0), bottom = std::min(rect.bottom, canvas->height());
        const int32_t left = std::max(rect.left, 0), right = std::min(rect.right, canvas->width());
        for (int32_t y = top; y < bottom; ++y) {
            const int64_t py = (int64_t{y - rect.top} * shownHeight) / boxHeight;
            for (int32_t x = left; x < right; ++x) {
                const int64_t px = (int64_t{x - rect.left} * shownWidth) / boxWidth;
                int64_t sx = px, sy = py;
                switch (fields.rotation) {
                    case 90: sx = py, sy = sourceHeight - 1 - px; break;
                    case 180: sx = sourceWidth - 1 - px, sy = sourceHeight - 1 - py; break;
                    case 270: sx = sourceWidth - 1 - py, sy = px; break;
                    default: break;
                }
                canvas->SetColor(x, y, PixelColor(header, bits, static_cast<int32_t>(sx), static_cast<int32_t>(sy)));
            }
        }
    }
    const Annotation* text = fields.attachedText;
    if (text != nullptr && text->family == AnnotationFamily::Rectangle && !IsEmpty(fields.attachedTextRect)) {
        const RectangleFields& attached = text->rectangle;
        RectangleFields placed;
        placed.textColor = attached.textColor;
        std::copy(attached.fontFace, attached.fontFace + 32, placed.fontFace);
        placed.textSize = attached.textSize;
        placed.option2 = attached.option2;
        placed.rect = fields.attachedTextRect;
        placed.textRotation = attached.textRotation;
        if (!placed.text.CopyFrom(attached.text, record)) return false;
        return DrawRectangleFamily(placed, false, context, record);
    }
    return true;
}

bool DrawEllipseFamily(const EllipseFields& fields, bool redaction, const DrawingContext& context,
                       ErrorRecord* record) {
    Canvas* canvas = context.canvas;
    const AnnotationRect rect = TurnRect(Normalised(fields.rect), context.rotation, canvas->width(), canvas->height());
    if (IsEmpty(rect)) return true;
    const PathPoint centre = Centre(rect);
    const double rx = (rect.right - rect.left) / 2.0, ry = (rect.bottom - rect.top) / 2.0;
    uint32_t fill = fields.fillColor;
    if (redaction)
        fill = fill == kColorNone ? (HasColor(fields.outlineColor) ? fields.outlineColor : kBlack)
                                  : fill & ~kColorHighlighter;
    if (fill != kColorNone) {
        CanvasPath area;
        area.AddEllipse(centre.x, centre.y, rx, ry, false, record);
        if (!canvas->FillPath(area, canvas->MakeInk(fill), record)) return false;
    }
    if (fields.outlineColor == kColorNone || fields.outlineWidth == 0) return true;
    const double w = fields.outlineWidth;
    CanvasPath ring;
    ring.AddEllipse(centre.x, centre.y, rx, ry, false, record);
    ring.AddEllipse(centre.x, centre.y, rx - w, ry - w, true, record);
    return canvas->FillPath(ring, canvas->MakeInk(fields.outlineColor), record);
}

}  // namespace

AnnotationRect AnnotationArea(const Annotation& annotation) {
    switch (annotation.family) {
        case AnnotationFamily::Rectangle: return Normalised(annotation.rectangle.rect);
        case AnnotationFamily::Freehand: return Normalised(annotation.freehand.bounds);
        case AnnotationFamily::Image: return Normalised(annotation.image.rect);
        case AnnotationFamily::Ellipse: return Normalised(annotation.ellipse.rect);
        default: return {};
    }
}

AnnotationRect TurnRect(const AnnotationRect& rect, uint16_t rotation, int32_t width, int32_t height) {
    const PathPoint a = TurnPoint({double(rect.left), double(rect.top)}, rotation, width, height);
    const PathPoint b = TurnPoint({double(rect.right), double(rect.bottom)}, rotation, width, height);
    return Normalised(
        {static_cast<int32_t>(a.x), static_cast<int32_t>(a.y), static_cast<int32_t>(b.x), static_cast<int32_t>(b.y)});
}

bool DrawAnnotation(const Annotation& annotation, const DrawingContext& context, ErrorRecord* record) {
    if (record->failed()) return false;
    if (!annotation.known()) return true;
    const bool redaction = IsRedaction(annotation);
    switch (annotation.family) {
        case AnnotationFamily::Rectangle: return DrawRectangleFamily(annotation.rectangle, redaction, context, record);
        case AnnotationFamily::Line: return DrawLineFamily(annotation.line, context, record);
        case AnnotationFamily::Freehand: return DrawFreehandFamily(annotation.freehand, redaction, context, record);
        case AnnotationFamily::Image: return DrawImageFamily(annotation.image, context, record);
        case AnnotationFamily::Ellipse: return DrawEllipseFamily(annotation.ellipse, redaction, context, record);
    }
    return true;
}

}  // namespace velmora
