#include "annotations/burn_in.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "annotations/annotation_drawing.h"
#include "dib/canvas.h"
#include "dib/color_conversion.h"
#include "dib/color_type.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/palette.h"
#include "dib/pixel_fetch.h"
#include "frame/memory_handle.h"

namespace velmora {
namespace {

constexpr COLORREF kWhite = 0xFFFFFF;
constexpr double kScreenDpi = 96;
constexpr double kInchesPerMetre = 0.0254;

bool IsGrey(COLORREF color) { return RedOf(color) == GreenOf(color) && GreenOf(color) == BlueOf(color); }

// The sorted colour set of a plan.
void AddColor(ColorPlan* plan, uint32_t color) {
    if (color == kColorNone) return;
    color &= 0xFFFFFFu;
    if (color == 0) return;
    plan->allGrey = plan->count == 0 ? IsGrey(color) : plan->allGrey && IsGrey(color);
    COLORREF* end = plan->colors + plan->count;
    COLORREF* at = std::lower_bound(plan->colors, end, color);
    if (at != end && *at == color) return;
    if (plan->count == kPlanColorLimit) return;
    std::copy_backward(at, end, end + 1);
    *at = color;
    ++plan->count;
}

void AddTableColors(ColorPlan* plan, const BITMAPINFOHEADER* header) {
    const RGBQUAD* table = ColorTable(header);
    const uint32_t count = std::min<uint32_t>(ColorCount(header), 256);
    for (uint32_t i = 0; i < count; ++i) AddColor(plan, ColorOf(table[i]));
}

// The colours an annotation draws.
void AddAnnotationColors(ColorPlan* plan, const Annotation& annotation) {
    switch (annotation.family) {
        case AnnotationFamily::Rectangle: {
            const RectangleFields& r = annotation.rectangle;
            if (r.borderStyle != 0 && r.borderWidth != 0) AddColor(plan, r.borderColor);
            AddColor(plan, r.backColor);
            if (r.backStyle() != 0 && r.backColor != kColorNone) AddColor(plan, r.backColor2);
            if (!r.text.empty()) AddColor(plan, r.textColor);
            break;
        }
        case AnnotationFamily::Line: AddColor(plan, annotation.line.color); break;
        case AnnotationFamily::Freehand:
            AddColor(plan, annotation.freehand.lineColor);
            if (annotation.freehand.fillColor != 0xFFFFFFFEu) AddColor(plan, annotation.freehand.fillColor);
            break;
        case AnnotationFamily::Ellipse:
            if (annotation.ellipse.outlineWidth != 0) AddColor(plan, annotation.ellipse.outlineColor);
            AddColor(plan, annotation.ellipse.fillColor);
            break;
        case AnnotationFamily::Image: {
            if (annotation.image.dib == nullptr) break;
            ImageLock picture(annotation.image.dib);
            const BITMAPINFOHEADER* header = picture.header();
            if (header == nullptr) break;
            if (header->biBitCount <= 8) {
                AddTableColors(plan, header);
            } else {
                // A picture of direct colours counts as more than any table holds.
                for (uint32_t i = 0; plan->count < kPlanColorLimit; ++i) AddColor(plan, 0x010000u + i);
            }
            break;
        }
    }
}

bool Drawn(const Annotation& annotation, uint32_t flags) {
    if (!annotation.known() || annotation.hidden()) return false;
    return (flags & kBurnInRedactionsOnly) == 0 || IsRedaction(annotation);
}

int32_t PlannedType(const ColorPlan& plan) {
    const uint32_t n = plan.count;
    if (plan.allGrey || n == 0) {
        if (n <= 2) {
            const bool plain = std::all_of(plan.colors, plan.colors + n, [](COLORREF c) { return c == kWhite; });
            return plain ? 0 : 1;
        }
        return n <= 16 ? 2 : 4;
    }
    if (n < 3) return 1;
    if (n <= 16) return 3;
    return n <= 256 ? 5 : 6;
}

// A copy of the caller's packed DIB in a new block.
HGLOBAL CopyPackedDib(const BITMAPINFOHEADER* header, ErrorRecord* record) {
    uint64_t size = 0;
    if (!PackedSize(header, &size)) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return nullptr;
    }
    HGLOBAL copy = AllocHandle(static_cast<size_t>(size), 0, record);
    if (copy == nullptr) return nullptr;
    ImageLock lock(copy);
    std::memcpy(lock.header(), header, static_cast<size_t>(size));
    return copy;
}

// The page converted to a palette type with the plan's colours as its table,
// then white and black while there is room; every pixel takes its nearest
// entry.
HGLOBAL ConvertToPlanPalette(const BITMAPINFOHEADER* header, const ColorPlan& plan, int32_t colorType,
                             ErrorRecord* record) {
    const uint16_t bitCount = colorType == 1 ? 1 : colorType == 3 ? 4 : 8;
    RGBQUAD table[256];
    uint32_t count = 0;
    for (uint32_t i = 0; i < plan.count && count < (1u << bitCount); ++i) table[count++] = QuadOf(plan.colors[i]);
    const bool hasWhite = std::binary_search(plan.colors, plan.colors + plan.count, kWhite);
    if (!hasWhite && count < (1u << bitCount)) table[count++] = QuadOf(kWhite);
    // Black, left out of the count, keeps its place when there is room.
    if (count < (1u << bitCount)) table[count++] = QuadOf(0);
    const int32_t height = header->biHeight < 0 ? -header->biHeight : header->biHeight;
    HGLOBAL converted = CreatePackedDib(header->biWidth, height, bitCount, table, count, header->biXPelsPerMeter,
                                        header->biYPelsPerMeter, record);
    if (converted == nullptr) return nullptr;
    ImageLock lock(converted);
    Canvas target;
    if (!target.Open(lock.header(), lock.bits(), record)) {
        FreeHandle(&converted);
        return nullptr;
    }
    const uint8_t* bits = PackedBits(header);
    for (int32_t y = 0; y < height; ++y) {
        for (int32_t x = 0; x < header->biWidth; ++x) target.SetColor(x, y, PixelColor(header, bits, x, y));
    }
    return converted;
}

// A palette page that cannot be drawn on as it is: a table that pixels
// cannot index, or two entries of one colour.
bool PaletteUnusable(const BITMAPINFOHEADER* header) {
    if (header->biBitCount > 8) return false;
    const uint32_t count = ColorCount(header);
    if (count == 0 || count > (1u << header->biBitCount)) return true;
    const RGBQUAD* table = ColorTable(header);
    return count == 2 && ColorOf(table[0]) == ColorOf(table[1]);
}

double Dpi(int32_t pelsPerMeter) { return pelsPerMeter * kInchesPerMetre; }

// The area of an annotation on the turned page, as its drawing would place it.
AnnotationRect TurnedArea(const Annotation& annotation, uint16_t rotation, const Canvas& canvas) {
    const uint16_t turn = annotation.family == AnnotationFamily::Image ? 0 : rotation;
    return TurnRect(AnnotationArea(annotation), turn, canvas.width(), canvas.height());
}

bool DrawList(const AnnotationList& list, const BurnInRequest& request, BITMAPINFOHEADER* header, void* bits,
              ErrorRecord* record) {
    Canvas canvas;
    if (!canvas.Open(header, bits, record)) return false;
    DrawingContext context;
    context.canvas = &canvas;
    if (header->biXPelsPerMeter > 0 && header->biYPelsPerMeter > 0) {
        context.dpiX = Dpi(header->biXPelsPerMeter);
        context.dpiY = Dpi(header->biYPelsPerMeter);
    } else {
        context.dpiX = context.dpiY = kScreenDpi;
    }
    for (const Annotation* annotation : list) {
        if (record->failed()) break;
        if (!Drawn(*annotation, request.flags)) continue;
        DrawingContext own = context;
        own.rotation = annotation->family == AnnotationFamily::Image ? 0 : request.rotation;
        AnnotationRect from = {}, to = {};
        const Annotation* owner = annotation->owner;
        if (annotation->family == AnnotationFamily::Line && (annotation->nodeFlags & kNodeLabel) != 0 &&
            owner != nullptr) {
            from = TurnedArea(*owner, request.rotation, canvas);
            for (const Annotation* other : list) {
                if (other != annotation && other->owner == owner && (other->nodeFlags & kNodeLabel) != 0) {
                    to = TurnedArea(*other, request.rotation, canvas);
                }
            }
            if (to.left < to.right && to.top < to.bottom) {
                own.connectFrom = &from;
                own.connectTo = &to;
            }
        }
        DrawAnnotation(*annotation, own, record);
    }
    return record->ok();
}

}  // namespace

void PlanColors(const AnnotationList& list, const BITMAPINFOHEADER* header, uint32_t flags, ColorPlan* plan) {
    *plan = ColorPlan();
    if (header->biBitCount > 8) return;
    AddTableColors(plan, header);
    for (const Annotation* annotation : list) {
        if (Drawn(*annotation, flags)) AddAnnotationColors(plan, *annotation);
    }
    plan->colorType = PlannedType(*plan);
}

HGLOBAL BurnInAnnotationList(AnnotationList* list, const BurnInRequest& request, bool* removed, ErrorRecord* record) {
    if (removed != nullptr) *removed = false;
    if (record->failed()) return nullptr;
    const BITMAPINFOHEADER* source = request.header;
    if ((request.flags & kBurnInHidden) != 0) {
        for (Annotation* annotation : *list) annotation->objectFlags &= ~kObjectHidden;
    }

    HGLOBAL result = nullptr;
    bool copyWanted = false;
    if ((request.flags & kBurnInChooseFormat) != 0) {
        ColorPlan plan;
        PlanColors(*list, source, request.flags, &plan);
        if (plan.colorType != 0 && plan.colorType != DibColorType(source)) {
            if (plan.colorType == 1 || plan.colorType == 3 || plan.colorType == 5) {
                result = ConvertToPlanPalette(source, plan, plan.colorType, record);
            } else {
                ProgressReporter progress;
                result = ChangeDibColor(source, PackedBits(source), plan.colorType, &progress, record);
            }
            if (result == nullptr) return nullptr;
        } else if (plan.colorType != 0) {
            copyWanted = (request.flags & kBurnInKeepImage) != 0;
        }
    }
    if (result == nullptr) {
        copyWanted = copyWanted || (request.flags & kBurnInKeepImage) == 0 || PaletteUnusable(source);
        if (copyWanted && (result = CopyPackedDib(source, record)) == nullptr) return nullptr;
    }

    bool drawn;
    if (result != nullptr) {
        ImageLock lock(result);
        drawn = lock.header() != nullptr && DrawList(*list, request, lock.header(), PackedBits(lock.header()), record);
    } else {
        drawn = DrawList(*list, request, request.header, PackedBits(request.header), record);
    }
    if (!drawn) {
        if (record->ok()) SetRecordError(record, kErrGeneral, 0);
        FreeHandle(&result);
        return nullptr;
    }

    if ((request.flags & kBurnInRedactionsOnly) != 0) {
        for (ptrdiff_t i = static_cast<ptrdiff_t>(list->size()) - 1; i >= 0; --i) {
            if (!IsRedaction(*list->at(i))) continue;
            list->Delete(i);
            if (removed != nullptr) *removed = true;
        }
    }
    return result != nullptr ? result : BurnedInPlace();
}

}  // namespace velmora
