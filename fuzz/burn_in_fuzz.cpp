// Bytes choose a small page (depth, table, size, resolution), the page
// rotation and burn-in flags, then annotations of every family with
// coordinates near the page or far off it, colours, widths, styles, short
// texts and strokes: burning them in must stay inside the page and either
// succeed or say why.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "annotations/annotation.h"
#include "annotations/burn_in.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "frame/error_record.h"

// Fontconfig keeps pieces of its configuration without a pointer the leak
// checker can see.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }

namespace {

using namespace velmora;

class Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    bool empty() const { return at_ >= size_; }
    uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
    uint16_t Word() { return static_cast<uint16_t>(Byte() | Byte() << 8); }
    // Mostly near a page of 64 pixels, sometimes anywhere.
    int32_t Coordinate() {
        const uint8_t kind = Byte();
        if (kind < 240) return static_cast<int32_t>(Byte()) - 64;
        return static_cast<int32_t>(static_cast<uint32_t>(Word()) << 16 | Word());
    }
    uint32_t Color() {
        static const uint32_t kColors[] = {0x000000,   0xFFFFFF,   0x0000FF,   0x808080,
                                           kColorNone, 0x01FFFF00, 0xFFFFFFFE, 0x00FF00};
        const uint8_t pick = Byte();
        return pick < 248 ? kColors[pick % 8] : static_cast<uint32_t>(Word()) << 16 | Word();
    }

private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
};

Annotation* MakeAnnotation(Bytes* in, ErrorRecord* record) {
    const uint8_t head = in->Byte();
    Annotation* a = NewAnnotation(static_cast<AnnotationFamily>(1 + head % 5), nullptr, record);
    if (a == nullptr) return nullptr;
    a->nodeFlags = in->Byte() & 0x27;
    a->objectFlags = in->Byte() & kObjectHidden;
    const AnnotationRect rect = {in->Coordinate(), in->Coordinate(), in->Coordinate(), in->Coordinate()};
    switch (a->family) {
        case AnnotationFamily::Rectangle: {
            RectangleFields& r = a->rectangle;
            r.rect = rect;
            r.backColor = in->Color();
            r.backColor2 = in->Color();
            r.borderColor = in->Color();
            r.textColor = in->Color();
            r.borderStyle = in->Byte() % 8;
            r.borderWidth = in->Byte() % 12;
            r.styleWord = static_cast<uint32_t>(in->Byte() % 8) << 4;
            r.textRotation = static_cast<uint16_t>(in->Byte() % 4 * 90);
            r.textSize = in->Byte() % 40;
            r.option2 = in->Byte();
            if (in->Byte() % 2 != 0) std::memcpy(r.fontFace, u"No Such Face", sizeof u"No Such Face");
            char16_t text[24];
            const size_t length = in->Byte() % 24;
            for (size_t i = 0; i < length; ++i) text[i] = static_cast<char16_t>(u' ' + in->Byte() % 96);
            r.text.Assign(text, length, record);
            break;
        }
        case AnnotationFamily::Line:
            a->line.first = {rect.left, rect.top};
            a->line.second = {rect.right, rect.bottom};
            a->line.color = in->Color();
            a->line.width = in->Byte() % 20;
            a->line.endWord = in->Byte() % 4;
            break;
        case AnnotationFamily::Freehand: {
            FreehandFields& f = a->freehand;
            f.lineColor = in->Color();
            f.fillColor = in->Color();
            f.width = in->Byte() % 16;
            f.style = in->Byte() % 8;
            f.bounds = rect;
            for (uint8_t strokes = in->Byte() % 4; strokes > 0; --strokes) {
                const uint32_t points = in->Byte() % 12;
                for (uint32_t p = 0; p < points; ++p) f.points.Append({in->Coordinate(), in->Coordinate()}, record);
                f.strokeLengths.Append(points + in->Byte() % 2, record);  // sometimes one more than there is
            }
            break;
        }
        case AnnotationFamily::Image: {
            a->image.rect = rect;
            a->image.rotation = static_cast<uint16_t>(in->Byte() % 4 * 90);
            static const RGBQUAD kTable[2] = {{0, 0, 0, 0}, {0, 0, 255, 0}};
            const uint16_t depth = in->Byte() % 2 != 0 ? 24 : 1;
            a->image.dib = CreatePackedDib(1 + in->Byte() % 9, 1 + in->Byte() % 9, depth, depth == 1 ? kTable : nullptr,
                                           depth == 1 ? 2 : 0, 0, 0, record);
            break;
        }
        case AnnotationFamily::Ellipse:
            a->ellipse.rect = rect;
            a->ellipse.fillColor = in->Color();
            a->ellipse.outlineColor = in->Color();
            a->ellipse.outlineWidth = in->Byte() % 30;
            break;
    }
    return a;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    Bytes in(data, size);
    static const uint16_t kDepths[] = {1, 4, 8, 16, 24, 32, 1, 8};
    const uint16_t depth = kDepths[in.Byte() % 8];
    const int32_t width = 1 + in.Byte() % 80, height = 1 + in.Byte() % 80;
    const int32_t resolution = in.Byte() % 2 != 0 ? 0 : 1 + in.Word() * 4;
    const uint16_t rotation = static_cast<uint16_t>(in.Byte() % 4 * 90);
    const uint32_t flags = in.Byte() % 16;
    RGBQUAD table[256];
    const uint32_t entries = depth <= 8 ? 1 + in.Byte() % (1u << depth) : 0;
    for (uint32_t i = 0; i < entries; ++i) table[i] = RGBQUAD{in.Byte(), in.Byte(), in.Byte(), 0};

    ErrorRecord record;
    HGLOBAL page = CreatePackedDib(width, height, depth, table, entries, resolution, resolution, &record);
    if (page == nullptr) return 0;
    AnnotationList list;
    for (int count = 0; count < 12 && !in.empty() && record.ok(); ++count) {
        Annotation* annotation = MakeAnnotation(&in, &record);
        if (annotation != nullptr) list.Append(annotation, &record);
    }
    if (record.ok()) {
        ImageLock lock(page);
        HGLOBAL result = BurnInAnnotationList(&list, {rotation, page, lock.header(), flags}, nullptr, &record);
        if (result == nullptr && record.ok()) std::abort();
        if (result != nullptr && result != BurnedInPlace()) FreeImage(&result);
    }
    FreeImage(&page);
    return 0;
}
