// Writing annotation lists as streams and redaction indexes.
//
// A stream is written in two passes over the list: the first only measures
// (each record's type and size follow from what the annotation holds, never
// from where its data lands), the second writes into one block of exactly the
// measured size. Every annotation is preceded by its group record; the data
// area receives each record's items in the order the record refers to them.
// Texts are stored narrow when every character is ASCII, so that a stream
// reads the same under every code page, and wide otherwise.
#include <cstring>

#include "annotations/annotation_record_layout.h"
#include "annotations/annotation_stream.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace velmora {

namespace {

// Offsets keep their two top bits free for the protection bits.
constexpr uint64_t kLargestStream = 0x3FFFFFFF;
constexpr char kSignature[20] = "VelmoraAnnotations";
constexpr char kIndexSignature[18] = "VelmoraRedactions";
constexpr uint32_t kMarkerBits = kNodeRedaction | kNodeApplied | kNodeSecondRedaction;

void Put(uint8_t* at, uint32_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) at[i] = static_cast<uint8_t>(value >> (8 * i));
}

bool IsAscii(const char16_t* text) {
    for (; *text != 0; ++text) {
        if (*text > 0x7F) return false;
    }
    return true;
}

size_t Length(const char16_t* text) {
    size_t n = 0;
    while (text[n] != 0) ++n;
    return n;
}

// The data area: measured in the first pass (no block), written in the second.
class DataSink {
public:
    DataSink(uint8_t* block, uint64_t start) : block_(block), end_(start) {}
    uint64_t end() const { return end_; }
    // Appends `size` bytes (zeros when `bytes` is null); the item's offset.
    uint32_t Append(const void* bytes, size_t size) {
        const uint64_t offset = end_;
        if (block_ != nullptr && bytes != nullptr) std::memcpy(block_ + end_, bytes, size);
        end_ += size;
        return static_cast<uint32_t>(offset);
    }
    // A text with its terminator: one byte a character, or UTF-16LE.
    uint32_t AppendText(const char16_t* text, bool wide) {
        const uint32_t offset = static_cast<uint32_t>(end_);
        const size_t length = Length(text);
        for (size_t i = 0; i <= length; ++i) {
            uint8_t unit[2] = {static_cast<uint8_t>(text[i]), static_cast<uint8_t>(text[i] >> 8)};
            Append(unit, wide ? 2 : 1);
        }
        return offset;
    }

private:
    uint8_t* block_;
    uint64_t end_;
};

struct Writer {
    DataSink* sink;
    bool clipboard;
};

uint32_t NodeFlags(const Annotation& a, const Writer& w) {
    return w.clipboard ? a.nodeFlags & ~kMarkerBits : a.nodeFlags;
}

bool HasTimes(const Annotation& a) { return a.created.words[2] != 0 || a.changed.words[2] != 0; }

bool NeedsInfo(const Annotation& a, const Writer& w) {
    return HasTimes(a) || (!w.clipboard && (a.objectFlags & (kObjectProtect0 | kObjectProtect1)) != 0);
}

// The info block reference: the time block's offset (0 for none) with the
// protection bits on top when writing for storage.
uint32_t InfoReference(const Annotation& a, const Writer& w) {
    uint32_t reference = 0;
    if (HasTimes(a)) {
        uint8_t block[12];
        for (int i = 0; i < 3; ++i) {
            Put(block + 2 * i, a.created.words[i], 2);
            Put(block + 6 + 2 * i, a.changed.words[i], 2);
        }
        reference = w.sink->Append(block, sizeof block);
    }
    if (!w.clipboard) {
        if ((a.objectFlags & kObjectProtect0) != 0) reference |= 0x80000000u;
        if ((a.objectFlags & kObjectProtect1) != 0) reference |= 0x40000000u;
    }
    return reference;
}

uint32_t AttachedReference(const AttachedData& data, const Writer& w) {
    if (!data.present) return 0;
    const int subtype = AttachedDataSubtype(data);
    const bool wide = subtype == 2 || subtype == 4;
    uint8_t head[31] = {};
    Put(head, data.first, 4);
    Put(head + 4, data.second, 4);
    Put(head + 8, data.third, 4);
    std::memcpy(head + 12, data.guid, 16);
    head[28] = data.fourth;
    head[29] = data.fifth;
    head[30] = data.sixth;
    const uint32_t offset = w.sink->Append(head, sizeof head);
    w.sink->AppendText(data.text1.c_str(), wide);
    if (data.hasSecondText) w.sink->AppendText(data.text2.c_str(), wide);
    return offset;
}

uint32_t RotationBits(uint16_t degrees) { return degrees == 90 ? 1 : degrees == 180 ? 2 : degrees == 270 ? 3 : 0; }

struct Tagged {
    RecordFields* fields;
    void Set(size_t field, uint32_t value, bool present) {
        fields->value[field] = value;
        if (present) fields->present |= 1u << field;
    }
};

// Turns the fields chosen as present into the mask and extension words.
void ComposeMask(RecordFields* fields, size_t extensionField) {
    if (!fields->info->tagged) return;
    size_t count;
    const RecordFieldDef* defs = FamilyFields(fields->info->family, &count);
    for (size_t f = 0; f < count; ++f) {
        if ((fields->present & (1u << f)) == 0) continue;
        if (defs[f].extensionBit != 0) fields->value[extensionField] |= defs[f].extensionBit;
    }
    if (extensionField < count && fields->value[extensionField] != 0) fields->present |= 1u << extensionField;
    for (size_t f = 0; f < count; ++f) {
        if ((fields->present & (1u << f)) != 0) fields->value[0] |= defs[f].maskBit;
    }
}

void EncodeRectangle(const Annotation& a, const Writer& w, RecordFields* out) {
    const RectangleFields& r = a.rectangle;
    const uint32_t flags = NodeFlags(a, w);
    const int subtype = AttachedDataSubtype(a.attached);
    const bool wideText = !IsAscii(r.text.c_str()), wideFont = !IsAscii(r.fontFace);
    const bool needsInfo = NeedsInfo(a, w);
    const uint32_t attributes = (a.hidden() ? 1u : 0u) | (r.flagByte != 0 ? 2u : 0u) |
                                RotationBits(r.textRotation) << 2 | (r.styleWord & 0x3F0);
    const bool tagged = subtype >= 2 || wideText || wideFont || (r.styleWord & 0x380) != 0;
    uint32_t type = 1;
    if (tagged) {
        type = subtype >= 3 ? 28 : 22;
    } else if (a.attached.present) {
        type = 19;
    } else if (r.thirdColor != kColorNone) {
        type = 18;
    } else if (r.backStyle() != 0 || needsInfo) {
        type = 12;
    } else if (attributes != 0) {
        type = 7;
    }
    out->info = FindRecordType(type);

    uint32_t font = r.fontFace[0] != 0 ? w.sink->AppendText(r.fontFace, wideFont) : 0;
    if ((flags & kNodeFontFlag) == 0) font |= 0x80000000u;
    uint32_t textField = 0;
    if (!r.text.empty()) {
        textField = w.sink->AppendText(r.text.c_str(), wideText);
    } else if ((flags & kNodeMarker) != 0) {
        textField = 2;
    } else if ((flags & kNodeSecondRedaction) != 0) {
        textField = 1;
    }
    if ((flags & kNodeRedaction) != 0) textField |= 0x80000000u;
    if ((flags & kNodeApplied) != 0) textField |= 0x40000000u;
    const uint32_t info = needsInfo ? InfoReference(a, w) : 0;
    const uint32_t attached = AttachedReference(a.attached, w);

    using namespace rect_field;
    const bool border = r.borderStyle != 0;
    Tagged t{out};
    t.Set(BorderStyle, border ? r.borderStyle : 0,
          border && (r.borderStyle != 1 || (r.borderWidth == 1 && r.borderColor == 0)));
    t.Set(BorderWidth, border ? r.borderWidth : 0, border && r.borderWidth != 1);
    t.Set(BorderColor, border ? r.borderColor : kColorNone, border && r.borderColor != 0);
    t.Set(Option1, r.option1, !r.text.empty() && r.option1 != 0);
    t.Set(Option2, r.option2, r.option2 != 0);
    t.Set(TextSize, r.textSize, r.textSize != 0);
    t.Set(TextColor, r.textColor, r.textColor != kColorNone);
    t.Set(FontOffset, font, r.fontFace[0] != 0 || (flags & kNodeFontFlag) != 0);
    t.Set(Left, static_cast<uint32_t>(r.rect.left), false);
    t.Set(Top, static_cast<uint32_t>(r.rect.top), false);
    t.Set(Right, static_cast<uint32_t>(r.rect.right), false);
    t.Set(Bottom, static_cast<uint32_t>(r.rect.bottom), false);
    t.Set(BackColor, r.backColor, r.backColor != kColorNone);
    t.Set(TextField, textField,
          !r.text.empty() || (flags & (kNodeRedaction | kNodeApplied | kNodeMarker | kNodeSecondRedaction)) != 0);
    t.Set(Attributes, attributes, attributes != 0);
    t.Set(BackColor2, r.backColor2, r.backColor2 != kColorNone);
    t.Set(InfoRef, info, needsInfo);
    t.Set(ThirdColor, r.thirdColor, r.thirdColor != kColorNone);
    t.Set(AttachedOffset, attached, a.attached.present);
    if (tagged) {
        if (wideFont && r.fontFace[0] != 0) out->value[Mask] |= 0x0100;
        if (wideText && !r.text.empty()) out->value[Mask] |= 0x0800;
        out->value[Extension] = subtype == 2 ? 0x08 : subtype == 3 ? 0x10 : subtype == 4 ? 0x20 : 0;
    }
    ComposeMask(out, Extension);
}

void EncodeLine(const Annotation& a, const Writer& w, RecordFields* out) {
    const LineFields& l = a.line;
    const uint32_t flags = NodeFlags(a, w);
    const bool needsInfo = NeedsInfo(a, w);
    const bool wideText = !IsAscii(l.text.c_str());
    const bool plain = l.subtype == 0 && (l.endWord & 3) == 0 && l.text.empty() && l.textWord == 0xFFFF &&
                       l.measurement == 0 && l.option == 0;
    uint32_t type;
    if (plain) {
        type = needsInfo ? 13 : a.hidden() ? 8 : 2;
    } else {
        type = l.subtype == 2 && l.measurement != 0 ? 26 : l.subtype == 3 ? 29 : 25;
    }
    out->info = FindRecordType(type);
    const uint32_t width =
        l.width | ((flags & kNodeRedaction) != 0 ? 0x8000u : 0) | ((flags & kNodeApplied) != 0 ? 0x4000u : 0);
    const uint32_t endSize2 = l.endSize2 | ((flags & kNodeFontFlag) == 0 ? 0x8000u : 0);
    const uint32_t text = !plain && !l.text.empty() ? w.sink->AppendText(l.text.c_str(), wideText) : 0;
    const uint32_t info = needsInfo ? InfoReference(a, w) : 0;

    using namespace line_field;
    Tagged t{out};
    t.Set(EndSize1, l.endSize1, l.endSize1 != 0);
    t.Set(EndSize2, endSize2, endSize2 != 0);
    t.Set(EndWord, l.endWord, l.endWord != 0);
    t.Set(Width, width, width != 1);
    t.Set(Color, l.color, l.color != 0);
    t.Set(X2, static_cast<uint32_t>(l.second.x), false);
    t.Set(Y2, static_cast<uint32_t>(l.second.y), false);
    t.Set(X1, static_cast<uint32_t>(l.first.x), false);
    t.Set(Y1, static_cast<uint32_t>(l.first.y), false);
    t.Set(TextOffset, text, text != 0);
    t.Set(Subtype, l.subtype, l.subtype != 0);
    t.Set(TextWord, l.textWord, l.textWord != 0xFFFF);
    t.Set(Measurement, l.measurement, l.measurement != 0);
    t.Set(Option, l.option & 0xFEu, (l.option & 0xFE) != 0);
    t.Set(Hidden, a.hidden() ? 1 : 0, a.hidden());
    t.Set(InfoRef, info, needsInfo);
    if (!plain) {
        if (text != 0 && wideText) out->value[Mask] |= 0x0400;
        if ((l.option & 1) != 0) out->value[Mask] |= 0x0100;
    }
    ComposeMask(out, kMaxRecordFields);
}

void EncodeFreehand(const Annotation& a, const Writer& w, RecordFields* out) {
    const FreehandFields& f = a.freehand;
    const uint32_t flags = NodeFlags(a, w);
    const bool needsInfo = NeedsInfo(a, w);
    out->info = FindRecordType(needsInfo ? 14 : a.hidden() ? 9 : 3);
    uint32_t points = 0;
    size_t next = 0;
    for (size_t s = 0; s < f.strokeLengths.size(); ++s) {
        uint8_t count[4];
        Put(count, f.strokeLengths[s], 4);
        const uint32_t offset = w.sink->Append(count, 4);
        if (s == 0) points = offset;
        for (uint32_t i = 0; i < f.strokeLengths[s] && next < f.points.size(); ++i, ++next) {
            uint8_t point[8];
            Put(point, static_cast<uint32_t>(f.points[next].x), 4);
            Put(point + 4, static_cast<uint32_t>(f.points[next].y), 4);
            w.sink->Append(point, 8);
        }
    }
    using namespace freehand_field;
    out->value[Style] = f.style;
    out->value[Width] =
        f.width | ((flags & kNodeRedaction) != 0 ? 0x8000u : 0) | ((flags & kNodeApplied) != 0 ? 0x4000u : 0);
    out->value[Fill] = (flags & kNodeSecondRedaction) != 0 ? 0xFFFFFFFEu : f.fillColor;
    out->value[LineColor] = f.lineColor;
    out->value[PointsOffset] = points;
    out->value[StrokeCount] = static_cast<uint32_t>(f.strokeLengths.size());
    out->value[Hidden] = a.hidden() ? 1 : 0;
    out->value[InfoRef] = needsInfo ? InfoReference(a, w) : 0;
}

void EmitRecord(const RecordFields& fields, uint8_t* at);
bool EncodeAnnotation(const Annotation& a, const Writer& w, RecordFields* out);

void EncodeImage(const Annotation& a, const Writer& w, RecordFields* out) {
    const ImageFields& m = a.image;
    const uint32_t flags = NodeFlags(a, w);
    const int subtype = AttachedDataSubtype(a.attached);
    const bool needsInfo = NeedsInfo(a, w);
    const bool hasText =
        m.attachedText != nullptr && m.attachedText->known() && m.attachedText->family == AnnotationFamily::Rectangle;
    const bool tagged = m.style > 32767 || subtype >= 2 ||
                        ((m.style & 2) != 0 && (m.style & 0x300) != 0x300 && m.parameter != kImageDefaultParameter);
    uint32_t type;
    if (tagged) {
        type = subtype >= 3 ? 27 : m.style > 32767 || subtype == 2 ? 24 : 21;
    } else {
        type = a.attached.present ? 20 : hasText ? 17 : needsInfo ? 15 : a.hidden() ? 10 : 4;
    }
    out->info = FindRecordType(type);

    uint32_t dib = 0, dibSize = 0;
    if (m.dib != nullptr) {
        dibSize = static_cast<uint32_t>(platform::MemSize(m.dib));
        const void* bits = dibSize != 0 ? platform::MemLock(m.dib) : nullptr;
        if (bits != nullptr) {
            dib = w.sink->Append(bits, dibSize);
            platform::MemUnlock(m.dib);
        } else {
            dibSize = 0;
        }
    }
    const uint32_t info = needsInfo ? InfoReference(a, w) : 0;
    uint32_t text = 0;
    if (hasText) {
        RecordFields nested;
        EncodeAnnotation(*m.attachedText, w, &nested);
        uint8_t bytes[8 + 8 + 96] = {};
        Put(bytes, static_cast<uint32_t>(m.attachedTextRect.left), 2);
        Put(bytes + 2, static_cast<uint32_t>(m.attachedTextRect.top), 2);
        Put(bytes + 4, static_cast<uint32_t>(m.attachedTextRect.right), 2);
        Put(bytes + 6, static_cast<uint32_t>(m.attachedTextRect.bottom), 2);
        EmitRecord(nested, bytes + 8);
        text = w.sink->Append(bytes, 16 + nested.bodySize);
    }
    const uint32_t attached = AttachedReference(a.attached, w);

    using namespace image_field;
    const uint32_t orientation = OrientationFromRotation(m.rotation) | ((flags & kNodeRedaction) != 0 ? 0x8000u : 0) |
                                 ((flags & kNodeApplied) != 0 ? 0x4000u : 0);
    Tagged t{out};
    t.Set(Style, m.style, m.style != 0);
    t.Set(Orientation, orientation, orientation != 1);
    t.Set(Left, static_cast<uint32_t>(m.rect.left), false);
    t.Set(Top, static_cast<uint32_t>(m.rect.top), false);
    t.Set(Right, static_cast<uint32_t>(m.rect.right), false);
    t.Set(Bottom, static_cast<uint32_t>(m.rect.bottom), false);
    t.Set(DibOffset, dib, false);
    t.Set(DibSize, dibSize, false);
    t.Set(Hidden, a.hidden() ? 1 : 0, a.hidden());
    t.Set(InfoRef, info, needsInfo);
    t.Set(TextOffset, text, hasText);
    t.Set(AttachedOffset, attached, a.attached.present);
    t.Set(Parameter, m.parameter, m.parameter != kImageDefaultParameter);
    if (tagged) out->value[Mask] = subtype == 2 ? 0x0100 : subtype == 3 ? 0x0200 : subtype == 4 ? 0x0400 : 0;
    ComposeMask(out, kMaxRecordFields);
}

void EncodeEllipse(const Annotation& a, const Writer& w, RecordFields* out) {
    const EllipseFields& e = a.ellipse;
    const uint32_t flags = NodeFlags(a, w);
    const bool needsInfo = NeedsInfo(a, w);
    const uint32_t bits = (a.hidden() ? 1u : 0u) | (e.option != 0 ? 2u : 0u) | RotationBits(e.rotation) << 2;
    out->info = FindRecordType(needsInfo ? 16 : bits != 0 ? 11 : 5);
    using namespace ellipse_field;
    out->value[Style] = e.outlineStyle;
    out->value[Width] =
        (flags & kNodeSecondRedaction) != 0 ? 0xFFFFu : e.outlineWidth | ((flags & kNodeRedaction) != 0 ? 0x8000u : 0);
    out->value[Outline] = e.outlineColor;
    out->value[Left] = static_cast<uint32_t>(e.rect.left) | ((flags & kNodeApplied) != 0 ? 0x80000000u : 0);
    out->value[Top] = static_cast<uint32_t>(e.rect.top);
    out->value[Right] = static_cast<uint32_t>(e.rect.right);
    out->value[Bottom] = static_cast<uint32_t>(e.rect.bottom);
    out->value[Fill] = e.fillColor;
    out->value[Flags] = bits;
    out->value[InfoRef] = needsInfo ? InfoReference(a, w) : 0;
}

// Chooses the record type of an annotation, appends its data items and
// places its fields.
bool EncodeAnnotation(const Annotation& a, const Writer& w, RecordFields* out) {
    switch (a.family) {
        case AnnotationFamily::Rectangle: EncodeRectangle(a, w, out); break;
        case AnnotationFamily::Line: EncodeLine(a, w, out); break;
        case AnnotationFamily::Freehand: EncodeFreehand(a, w, out); break;
        case AnnotationFamily::Image: EncodeImage(a, w, out); break;
        case AnnotationFamily::Ellipse: EncodeEllipse(a, w, out); break;
    }
    PlaceRecordFields(out, 0,
                      a.family == AnnotationFamily::Rectangle ? size_t{rect_field::Extension} : kMaxRecordFields);
    return true;
}

// Writes the record (head, body, padding to a multiple of four) at `at`.
void EmitRecord(const RecordFields& fields, uint8_t* at) {
    Put(at, static_cast<uint32_t>(fields.bodySize + 8), 4);
    Put(at + 4, fields.info->type, 4);
    size_t count;
    const RecordFieldDef* defs = FamilyFields(fields.info->family, &count);
    for (size_t f = 0; f < count; ++f) {
        if (fields.has(f)) Put(at + 8 + fields.offset[f], fields.value[f], defs[f].width);
    }
}

size_t Rounded(size_t size) { return (size + 3) & ~size_t{3}; }

// The group record's type and value: no list for no group, the default group
// alone (0) or one empty name (1); otherwise the names, ended by an empty one.
uint32_t GroupValue(const Annotation& a, const Writer& w, uint32_t* type) {
    *type = kGroupRecordAnsi;
    const size_t units = a.groups.size();
    if (units == 0) return 0;
    const char16_t* names = a.groups.data();
    if (units == 1) return 1;
    if (units == Length(kDefaultGroupName) + 1 && std::memcmp(names, kDefaultGroupName, units * 2) == 0) return 0;
    bool wide = false;
    for (size_t i = 0; i < units; ++i) wide = wide || names[i] > 0x7F;
    if (wide) *type = kGroupRecordWide;
    const uint32_t offset = static_cast<uint32_t>(w.sink->end());
    for (size_t i = 0; i < units; i += Length(names + i) + 1) w.sink->AppendText(names + i, wide);
    w.sink->AppendText(u"", wide);
    return offset;
}

// One pass over the list: records at `records` (null when measuring), data
// through the sink. Returns the records' total size and count.
void WriteRecords(const AnnotationList& list, const Writer& w, uint8_t* records, uint64_t* size, uint32_t* count) {
    *size = 0;
    *count = 0;
    for (const Annotation* a : list) {
        if (!a->known() || !IsLinkedToSelection(*a, w.clipboard, list)) continue;
        uint32_t groupType;
        const uint32_t groups = GroupValue(*a, w, &groupType);
        if (records != nullptr) {
            Put(records + *size, 12, 4);
            Put(records + *size + 4, groupType, 4);
            Put(records + *size + 8, groups, 4);
        }
        RecordFields fields;
        EncodeAnnotation(*a, w, &fields);
        if (records != nullptr) EmitRecord(fields, records + *size + 12);
        *size += 12 + Rounded(fields.bodySize + 8);
        *count += 2;
    }
}

bool TooLarge(uint64_t size, ErrorRecord* record) {
    if (size <= kLargestStream) return false;
    SetRecordError(record, kErrNotEnoughMemory, 0);
    return true;
}

// The annotations written in the given mode, in stream order.
template <typename Visit>
void ForWritten(const AnnotationList& list, bool clipboard, Visit visit) {
    uint32_t index = 0;
    for (const Annotation* a : list) {
        if (a->known() && IsLinkedToSelection(*a, clipboard, list)) visit(*a, index++);
    }
}

}  // namespace

bool IsLinkedToSelection(const Annotation& annotation, bool clipboard, const AnnotationList& list) {
    auto selected = [](const Annotation& a) { return (a.nodeFlags & kNodeSelected) != 0; };
    auto label = [](const Annotation& a) { return (a.nodeFlags & kNodeLabel) != 0; };
    if (!clipboard || selected(annotation)) return true;
    const Annotation* owner = label(annotation) ? annotation.owner : nullptr;
    if (owner != nullptr && selected(*owner)) return true;
    for (const Annotation* other : list) {
        if (!label(*other) || !selected(*other)) continue;
        if (other->owner == &annotation || (owner != nullptr && other->owner == owner)) return true;
    }
    return false;
}

HGLOBAL WriteAnnotationStream(const AnnotationList& list, bool clipboard, uint32_t* size, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    // Measured offsets are not where the data will land, but like them never 0.
    DataSink measure(nullptr, kStreamHeaderSize);
    uint64_t recordBytes;
    uint32_t count;
    WriteRecords(list, Writer{&measure, clipboard}, nullptr, &recordBytes, &count);
    const uint64_t total = recordBytes + measure.end();
    if (TooLarge(total, record)) return nullptr;
    HGLOBAL block = AllocHandle(static_cast<size_t>(total), GMEM_ZEROINIT | (clipboard ? GMEM_DDESHARE : 0), record);
    if (block == nullptr) return nullptr;
    uint8_t* bytes = static_cast<uint8_t*>(platform::MemLock(block));
    Put(bytes, static_cast<uint32_t>(total), 4);
    std::memcpy(bytes + 4, kSignature, sizeof kSignature);
    Put(bytes + 24, kStreamVersion, 4);
    Put(bytes + 28, count, 4);
    DataSink data(bytes, kStreamHeaderSize + recordBytes);
    WriteRecords(list, Writer{&data, clipboard}, bytes + kStreamHeaderSize, &recordBytes, &count);
    platform::MemUnlock(block);
    *size = static_cast<uint32_t>(total);
    return block;
}

HGLOBAL BuildRedactionIndex(const AnnotationList& list, bool clipboard, uint32_t* size, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    auto listed = [](const Annotation& a) { return IsRedaction(a) && (a.nodeFlags & kNodeLabel) == 0; };
    uint64_t entries = 0, texts = 0;
    ForWritten(list, clipboard, [&](const Annotation& a, uint32_t) {
        if (!listed(a)) return;
        ++entries;
        if (!a.linkText.empty()) texts += 2 * (uint64_t{a.linkText.length()} + 1);
    });
    if (entries == 0) return nullptr;
    const uint64_t total = 32 + 20 * entries + texts;
    if (TooLarge(total, record)) return nullptr;
    HGLOBAL block = AllocHandle(static_cast<size_t>(total), GMEM_ZEROINIT | (clipboard ? GMEM_DDESHARE : 0), record);
    if (block == nullptr) return nullptr;
    uint8_t* bytes = static_cast<uint8_t*>(platform::MemLock(block));
    Put(bytes, static_cast<uint32_t>(total), 4);
    std::memcpy(bytes + 4, kIndexSignature, sizeof kIndexSignature);
    Put(bytes + 24, 1, 4);
    Put(bytes + 28, static_cast<uint32_t>(entries), 4);
    DataSink data(bytes, 32 + 20 * entries);
    uint8_t* entry = bytes + 32;
    ForWritten(list, clipboard, [&](const Annotation& a, uint32_t index) {
        if (!listed(a)) return;
        uint32_t labels[2] = {0xFFFFFFFFu, 0xFFFFFFFFu};
        ForWritten(list, clipboard, [&](const Annotation& label, uint32_t labelIndex) {
            if ((label.nodeFlags & kNodeLabel) == 0 || label.owner != &a) return;
            uint32_t& slot = labels[label.family == AnnotationFamily::Line ? 1 : 0];
            if (slot == 0xFFFFFFFFu) slot = labelIndex;
        });
        Put(entry, (a.nodeFlags & kNodeRedaction) != 0 ? 0xFFFFFFFFu : 0, 4);
        Put(entry + 4, index, 4);
        Put(entry + 8, labels[0], 4);
        Put(entry + 12, labels[1], 4);
        Put(entry + 16, a.linkText.empty() ? 0 : data.AppendText(a.linkText.c_str(), true), 4);
        entry += 20;
    });
    platform::MemUnlock(block);
    *size = static_cast<uint32_t>(total);
    return block;
}

void RemoveAppliedAnnotations(AnnotationList* list, AnnotationCrossReference* table, size_t* count) {
    for (size_t i = list->size(); i-- > 0;) {
        if ((list->at(static_cast<ptrdiff_t>(i))->nodeFlags & kNodeApplied) == 0) continue;
        list->Delete(static_cast<ptrdiff_t>(i));
        size_t kept = 0;
        for (size_t e = 0; e < *count; ++e) {
            AnnotationCrossReference entry = table[e];
            bool named = false;
            for (uint32_t& index : entry.index) {
                if (index == 0xFFFFFFFFu) continue;
                named = named || index == i;
                if (index > i) --index;
            }
            if (!named) table[kept++] = entry;
        }
        *count = kept;
    }
}

}  // namespace velmora
