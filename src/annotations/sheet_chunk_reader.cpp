#include "annotations/sheet_chunk_reader.h"

#include <cmath>
#include <cstring>

#include "annotations/little_endian_fields.h"

namespace velmora {
namespace {

constexpr size_t kMinimumBlock = 10;
constexpr size_t kRectangleItem = 36;
constexpr size_t kArrowItem = 24;
constexpr size_t kScribbleItem = 12;
constexpr double kUnitsPerResolutionUnit = 1000.0;

// Turns thousandths of the resolution unit into pixels.
struct Scale {
    double x;
    double y;

    static double Of(double resolution) {
        return std::isfinite(resolution) && resolution > 0 ? resolution / kUnitsPerResolutionUnit
                                                           : 1 / kUnitsPerResolutionUnit;
    }
    static int32_t Pixels(int32_t value, double scale) {
        const double pixels = std::round(value * scale);
        if (pixels <= INT32_MIN) return INT32_MIN;
        if (pixels >= INT32_MAX) return INT32_MAX;
        return static_cast<int32_t>(pixels);
    }
    AnnotationPoint Point(const uint8_t* p) const {
        return AnnotationPoint{Pixels(LittleI32(p), x), Pixels(LittleI32(p + 4), y)};
    }
};

enum class ItemKind { TextBox, Highlighter, Note, Object, Arrow, Scribble, Other };

ItemKind KindOf(const uint8_t* tag) {
    static const struct {
        char tag[5];
        ItemKind kind;
    } kKinds[] = {{"Txt1", ItemKind::TextBox}, {"Hlt1", ItemKind::Highlighter}, {"Ntb1", ItemKind::Note},
                  {"Ole1", ItemKind::Object},  {"Arw1", ItemKind::Arrow},       {"Scr1", ItemKind::Scribble}};
    for (const auto& entry : kKinds) {
        if (std::memcmp(tag, entry.tag, 4) == 0) return entry.kind;
    }
    return ItemKind::Other;
}

bool FillRectangle(ItemKind kind, const uint8_t* item, size_t size, const Scale& scale, Annotation* annotation,
                   ErrorRecord* record) {
    if (size < kRectangleItem) return false;
    const uint32_t length = LoadLittleEndian32(item + 32);
    if (length > (size - kRectangleItem) / 2) return false;
    RectangleFields& fields = annotation->rectangle;
    const AnnotationPoint topLeft = scale.Point(item);
    const AnnotationPoint bottomRight = scale.Point(item + 8);
    fields.rect = AnnotationRect{topLeft.x, topLeft.y, bottomRight.x, bottomRight.y};
    fields.borderColor = LoadLittleEndian32(item + 16);
    fields.backColor = LoadLittleEndian32(item + 20);
    fields.textColor = LoadLittleEndian32(item + 24);
    fields.borderWidth = LoadLittleEndian16(item + 28);
    fields.textSize = LoadLittleEndian16(item + 30);
    if (fields.borderColor != kColorNone) fields.borderStyle = kind == ItemKind::Note ? 4 : 1;
    if (kind == ItemKind::Highlighter && fields.backColor != kColorNone) fields.backColor |= kColorHighlighter;
    if (kind == ItemKind::TextBox || kind == ItemKind::Note) fields.flagByte = 1;
    CheckedArray<char16_t> text;
    if (!text.Sized(length, record)) return false;
    for (uint32_t i = 0; i < length; ++i) text[i] = LoadLittleEndian16(item + kRectangleItem + 2 * size_t{i});
    return fields.text.Assign(text.data(), length, record);
}

bool FillArrow(const uint8_t* item, size_t size, const Scale& scale, Annotation* annotation) {
    if (size < kArrowItem) return false;
    LineFields& fields = annotation->line;
    fields.first = scale.Point(item);
    fields.second = scale.Point(item + 8);
    fields.color = LoadLittleEndian32(item + 16);
    fields.width = LoadLittleEndian16(item + 20);
    fields.endWord = LoadLittleEndian16(item + 22) & 3;
    return true;
}

bool FillScribble(const uint8_t* item, size_t size, const Scale& scale, Annotation* annotation, ErrorRecord* record) {
    if (size < kScribbleItem) return false;
    const uint32_t count = LoadLittleEndian32(item + 8);
    if (count == 0 || count > (size - kScribbleItem) / 8) return false;
    FreehandFields& fields = annotation->freehand;
    fields.lineColor = LoadLittleEndian32(item);
    fields.fillColor = kColorNone;
    fields.width = LoadLittleEndian16(item + 4);
    if (!fields.points.Sized(count, record) || !fields.strokeLengths.Sized(1, record)) return false;
    fields.strokeLengths[0] = count;
    AnnotationRect bounds{INT32_MAX, INT32_MAX, INT32_MIN, INT32_MIN};
    for (uint32_t i = 0; i < count; ++i) {
        const AnnotationPoint point = scale.Point(item + kScribbleItem + 8 * size_t{i});
        fields.points[i] = point;
        if (point.x < bounds.left) bounds.left = point.x;
        if (point.y < bounds.top) bounds.top = point.y;
        if (point.x >= bounds.right) bounds.right = OffsetCoordinate(point.x, 1);
        if (point.y >= bounds.bottom) bounds.bottom = OffsetCoordinate(point.y, 1);
    }
    fields.bounds = bounds;
    return true;
}

// Converts one item and appends it; items that convert to nothing are passed
// over. False only with the record set.
bool ConvertItem(const uint8_t* tag, const uint8_t* item, size_t size, const Scale& scale, AnnotationList* list,
                 ErrorRecord* record) {
    const ItemKind kind = KindOf(tag);
    if (kind == ItemKind::Other) return true;
    const AnnotationFamily family = kind == ItemKind::Arrow      ? AnnotationFamily::Line
                                    : kind == ItemKind::Scribble ? AnnotationFamily::Freehand
                                                                 : AnnotationFamily::Rectangle;
    Annotation* annotation = NewAnnotation(family, nullptr, record);
    if (annotation == nullptr) return false;
    annotation->nodeFlags = kNodeFontFlag;
    bool converted = false;
    switch (family) {
        case AnnotationFamily::Line: converted = FillArrow(item, size, scale, annotation); break;
        case AnnotationFamily::Freehand: converted = FillScribble(item, size, scale, annotation, record); break;
        default: converted = FillRectangle(kind, item, size, scale, annotation, record); break;
    }
    if (!converted) {
        DeleteAnnotation(annotation);
        return record->ok();
    }
    return list->Append(annotation, record);
}

}  // namespace

bool ReadSheetChunkAnnotations(const uint8_t* bytes, size_t size, double xResolution, double yResolution,
                               AnnotationList* list, ErrorRecord* record) {
    if (record->failed()) return false;
    if (size < kMinimumBlock) return true;
    const Scale scale{Scale::Of(xResolution), Scale::Of(yResolution)};
    size_t chunk = 0;
    while (size - chunk >= kMinimumBlock && std::memcmp(bytes + chunk, "Sht2", 4) == 0) {
        const uint32_t chunkSize = LoadLittleEndian32(bytes + chunk + 4);
        if (chunkSize < kMinimumBlock || chunkSize > size - chunk) break;
        const uint8_t* base = bytes + chunk;
        const size_t nameLength = base[8];
        if (9 + nameLength >= chunkSize) break;
        const size_t ownerLength = base[9 + nameLength];
        size_t at = 10 + nameLength + ownerLength;
        if (at > chunkSize) break;
        while (chunkSize - at >= 8) {
            const uint32_t payload = LoadLittleEndian32(base + at + 4);
            if (payload > chunkSize - at - 8) return true;
            if (!ConvertItem(base + at, base + at + 8, payload, scale, list, record)) return false;
            at += 8 + size_t{payload};
        }
        if (at != chunkSize) return true;
        chunk += chunkSize;
    }
    return true;
}

}  // namespace velmora
