// Reading annotation streams and redaction indexes.
//
// Everything a record names in the data area is checked against the stream
// before it is read: texts must end inside the stream, point lists must fit
// their stated counts, pictures and info blocks their sizes. A picture's
// attached text is a nested record that may only be of the rectangle family,
// which carries no nested records of its own, so nesting stops at one level.
#include <cstring>

#include "annotations/annotation_record_layout.h"
#include "annotations/annotation_stream.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace velmora {

namespace stream_detail {

bool CheckStreamHeader(const uint8_t* bytes, size_t size, ErrorRecord* record) {
    if (record->failed()) return false;
    static const char kSignature[20] = "VelmoraAnnotations";
    if (size < kStreamHeaderSize || LoadLittleEndian32(bytes) != size || std::memcmp(bytes + 4, kSignature, 20) != 0) {
        SetRecordError(record, kErrBadAnnotationData, 0);
        return false;
    }
    if (LoadLittleEndian32(bytes + 24) != kStreamVersion) {
        SetRecordError(record, kErrUnsupportedAnnotations, 0);
        return false;
    }
    return true;
}

}  // namespace stream_detail

namespace {


uint32_t Get(const uint8_t* at, size_t width) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i) value |= uint32_t{at[i]} << (8 * i);
    return value;
}

bool Bad(ErrorRecord* record) {
    SetRecordError(record, kErrBadAnnotationData, 0);
    return false;
}

// Reads the fields of a record body of the given type.
bool DecodeFields(const RecordTypeInfo* info, const uint8_t* body, size_t bodySize, RecordFields* fields,
                  ErrorRecord* record) {
    fields->info = info;
    const size_t extension =
        info->family == AnnotationFamily::Rectangle ? size_t{rect_field::Extension} : kMaxRecordFields;
    if (bodySize < info->bodySize) return Bad(record);
    if (info->tagged) {
        fields->value[0] = Get(body, 2);
        PlaceRecordFields(fields, 0, extension);
        if (extension < kMaxRecordFields && fields->has(extension)) {
            if (fields->offset[extension] + 2u > bodySize) return Bad(record);
            fields->value[extension] = Get(body + fields->offset[extension], 2);
        }
    }
    PlaceRecordFields(fields, 0, extension);
    if (fields->bodySize > bodySize) return Bad(record);
    size_t count;
    const RecordFieldDef* defs = FamilyFields(info->family, &count);
    for (size_t f = 0; f < count; ++f) {
        if (fields->has(f)) fields->value[f] = Get(body + fields->offset[f], defs[f].width);
    }
    return true;
}

class StreamReader {
public:
    StreamReader(const uint8_t* bytes, size_t size, ErrorRecord* record)
        : bytes_(bytes), size_(size), record_(record) {}

    // An item of `length` bytes at `offset` in the data area.
    const uint8_t* Item(uint64_t offset, uint64_t length) {
        if (offset < kStreamHeaderSize || offset > size_ || length > size_ - offset) {
            Bad(record_);
            return nullptr;
        }
        return bytes_ + offset;
    }

    // A NUL-terminated text at `offset`; *next receives the offset after it.
    bool Text(uint64_t offset, bool wide, AnnotationText* out, uint64_t* next = nullptr) {
        const size_t unit = wide ? 2 : 1;
        const uint8_t* at = Item(offset, 0);
        if (at == nullptr) return false;
        size_t length = 0;
        bool ascii = true;
        for (;; ++length) {
            if (offset + (length + 1) * unit > size_) return Bad(record_);
            const uint32_t c = Get(at + length * unit, unit);
            if (c == 0) break;
            ascii = ascii && c <= 0x7F;
        }
        if (next != nullptr) *next = offset + (length + 1) * unit;
        if (!wide && !ascii) return out->AssignNarrow(reinterpret_cast<const char*>(at), length, record_);
        CheckedArray<char16_t> units;
        if (!units.Sized(length, record_)) return false;
        for (size_t i = 0; i < length; ++i) units[i] = static_cast<char16_t>(Get(at + i * unit, unit));
        return out->Assign(units.data(), length, record_);
    }

    // The time block and protection bits of an info block reference.
    bool Info(uint32_t reference, Annotation* a) {
        if ((reference & 0x80000000u) != 0) a->objectFlags |= kObjectProtect0;
        if ((reference & 0x40000000u) != 0) a->objectFlags |= kObjectProtect1;
        const uint32_t offset = reference & 0x3FFFFFFFu;
        if (offset == 0) return true;
        const uint8_t* block = Item(offset, 12);
        if (block == nullptr) return false;
        for (int i = 0; i < 3; ++i) {
            a->created.words[i] = static_cast<uint16_t>(Get(block + 2 * i, 2));
            a->changed.words[i] = static_cast<uint16_t>(Get(block + 6 + 2 * i, 2));
        }
        return true;
    }

    bool Attached(uint32_t offset, int subtype, AttachedData* data) {
        if (offset == 0) return true;
        const uint8_t* head = Item(offset, 31);
        if (head == nullptr) return false;
        data->present = true;
        data->first = LoadLittleEndian32(head);
        data->second = LoadLittleEndian32(head + 4);
        data->third = LoadLittleEndian32(head + 8);
        std::memcpy(data->guid, head + 12, 16);
        data->fourth = head[28];
        data->fifth = head[29];
        data->sixth = head[30];
        data->hasSecondText = subtype >= 3;
        const bool wide = subtype == 2 || subtype == 4;
        uint64_t next;
        return Text(offset + 31, wide, &data->text1, &next) && (!data->hasSecondText || Text(next, wide, &data->text2));
    }

    bool Points(uint32_t offset, uint32_t strokes, FreehandFields* f) {
        if (strokes == 0) return true;
        uint64_t at = offset, total = 0;
        for (uint32_t s = 0; s < strokes; ++s) {
            const uint8_t* count = Item(at, 4);
            if (count == nullptr || Item(at + 4, uint64_t{LoadLittleEndian32(count)} * 8) == nullptr) return false;
            total += LoadLittleEndian32(count);
            at += 4 + uint64_t{LoadLittleEndian32(count)} * 8;
        }
        if (!f->points.Sized(total, record_) || !f->strokeLengths.Sized(strokes, record_)) return false;
        at = offset;
        size_t next = 0;
        for (uint32_t s = 0; s < strokes; ++s) {
            const uint32_t n = LoadLittleEndian32(bytes_ + at);
            f->strokeLengths[s] = n;
            for (uint32_t i = 0; i < n; ++i, ++next) {
                f->points[next].x = static_cast<int32_t>(LoadLittleEndian32(bytes_ + at + 4 + 8 * i));
                f->points[next].y = static_cast<int32_t>(LoadLittleEndian32(bytes_ + at + 8 + 8 * i));
            }
            at += 4 + uint64_t{n} * 8;
        }
        return true;
    }

    bool Picture(uint32_t offset, uint32_t size, HGLOBAL* dib) {
        if (offset == 0 || size == 0) return true;
        const uint8_t* bits = Item(offset, size);
        if (bits == nullptr) return false;
        *dib = AllocHandle(size, 0, record_);
        if (*dib == nullptr) return false;
        std::memcpy(platform::MemLock(*dib), bits, size);
        platform::MemUnlock(*dib);
        return true;
    }

    // The group names of a group record's value, one after the other.
    bool Groups(uint32_t value, bool wide, CheckedArray<char16_t>* names) {
        names->Clear();
        value &= 0x7FFFFFFFu;
        if (value == 0) return true;
        if (value == 1) return names->Append(0, record_);
        uint64_t at = value;
        for (;;) {
            AnnotationText name;
            if (!Text(at, wide, &name, &at)) return false;
            if (name.empty()) return true;
            for (size_t i = 0; i <= name.length(); ++i) {
                if (!names->Append(name.c_str()[i], record_)) return false;
            }
        }
    }

    Annotation* Decode(const RecordTypeInfo* info, const uint8_t* body, size_t bodySize);

private:
    bool Rectangle(const RecordFields& f, Annotation* a);
    bool Line(const RecordFields& f, Annotation* a);
    bool Freehand(const RecordFields& f, Annotation* a);
    bool Image(const RecordFields& f, Annotation* a);
    bool Ellipse(const RecordFields& f, Annotation* a);

    const uint8_t* bytes_;
    size_t size_;
    ErrorRecord* record_;
};

uint16_t RotationOf(uint32_t bits) { return static_cast<uint16_t>((bits & 3) * 90); }

bool StreamReader::Rectangle(const RecordFields& f, Annotation* a) {
    using namespace rect_field;
    RectangleFields& r = a->rectangle;
    const uint32_t mask = f.value[Mask];
    const bool tagged = f.info->tagged;
    if (tagged && (mask & 0x0007) != 0) {
        r.borderStyle = static_cast<uint16_t>(f.get(BorderStyle, 1));
        r.borderWidth = static_cast<uint16_t>(f.get(BorderWidth, 1));
        r.borderColor = f.get(BorderColor, 0);
    } else if (!tagged) {
        r.borderStyle = static_cast<uint16_t>(f.value[BorderStyle]);
        r.borderWidth = static_cast<uint16_t>(f.value[BorderWidth]);
        r.borderColor = f.value[BorderColor];
    }
    r.option1 = static_cast<uint8_t>(f.get(Option1, 0));
    r.option2 = static_cast<uint8_t>(f.get(Option2, 0));
    r.textSize = static_cast<uint16_t>(f.get(TextSize, 0));
    r.textColor = f.get(TextColor, kColorNone);
    const uint32_t font = f.get(FontOffset, 0x80000000u);
    if ((font & 0x80000000u) == 0) a->nodeFlags |= kNodeFontFlag;
    if ((font & 0x7FFFFFFFu) != 0) {
        AnnotationText face;
        if (!Text(font & 0x7FFFFFFFu, (mask & 0x0100) != 0, &face)) return false;
        const size_t length = face.length() < 31 ? face.length() : 31;
        std::memcpy(r.fontFace, face.c_str(), length * sizeof(char16_t));
    }
    r.rect = {static_cast<int32_t>(f.value[Left]), static_cast<int32_t>(f.value[Top]),
              static_cast<int32_t>(f.value[Right]), static_cast<int32_t>(f.value[Bottom])};
    r.backColor = f.get(BackColor, kColorNone);
    const uint32_t text = f.get(TextField, 0);
    if ((text & 0x80000000u) != 0) a->nodeFlags |= kNodeRedaction;
    if ((text & 0x40000000u) != 0) a->nodeFlags |= kNodeApplied;
    const uint32_t value = text & 0x3FFFFFFFu;
    if (value == 1) {
        a->nodeFlags |= kNodeSecondRedaction;
    } else if (value == 2) {
        a->nodeFlags |= kNodeMarker;
    } else if (value != 0 && !Text(value, (mask & 0x0800) != 0, &r.text)) {
        return false;
    }
    const uint32_t attributes = f.get(Attributes, 0);
    if ((attributes & 1) != 0) a->objectFlags |= kObjectHidden;
    r.flagByte = (attributes & 2) != 0 ? 1 : 0;
    r.textRotation = RotationOf(attributes >> 2);
    r.styleWord = attributes & 0x3F0;
    r.backColor2 = f.get(BackColor2, kColorNone);
    r.thirdColor = f.get(ThirdColor, kColorNone);
    const uint32_t extension = f.get(Extension, 0);
    const int subtype = (extension & 0x20) != 0 ? 4 : (extension & 0x10) != 0 ? 3 : (extension & 0x08) != 0 ? 2 : 1;
    return Info(f.get(InfoRef, 0), a) && Attached(f.get(AttachedOffset, 0), subtype, &a->attached);
}

bool StreamReader::Line(const RecordFields& f, Annotation* a) {
    using namespace line_field;
    LineFields& l = a->line;
    const uint32_t mask = f.value[Mask];
    l.endSize1 = static_cast<uint16_t>(f.get(EndSize1, 0));
    const uint32_t endSize2 = f.get(EndSize2, 0);
    if ((endSize2 & 0x8000) == 0) a->nodeFlags |= kNodeFontFlag;
    l.endSize2 = static_cast<uint16_t>(endSize2 & 0x7FFF);
    l.endWord = static_cast<uint16_t>(f.get(EndWord, 0));
    const uint32_t width = f.get(Width, 1);
    if ((width & 0x8000) != 0) a->nodeFlags |= kNodeRedaction;
    if ((width & 0x4000) != 0) a->nodeFlags |= kNodeApplied;
    l.width = static_cast<uint16_t>(width & 0x3FFF);
    l.color = f.get(Color, 0);
    l.second = {static_cast<int32_t>(f.value[X2]), static_cast<int32_t>(f.value[Y2])};
    l.first = {static_cast<int32_t>(f.value[X1]), static_cast<int32_t>(f.value[Y1])};
    l.subtype = static_cast<uint8_t>(f.get(Subtype, 0));
    l.textWord = static_cast<uint16_t>(f.get(TextWord, 0xFFFF));
    l.measurement = static_cast<uint16_t>(f.get(Measurement, 0));
    l.option = static_cast<uint8_t>((f.get(Option, 0) & 0xFE) | ((mask & 0x0100) != 0 ? 1 : 0));
    if (f.get(Hidden, 0) != 0) a->objectFlags |= kObjectHidden;
    const uint32_t text = f.get(TextOffset, 0);
    return (text == 0 || Text(text, (mask & 0x0400) != 0, &l.text)) && Info(f.get(InfoRef, 0), a);
}

bool StreamReader::Freehand(const RecordFields& f, Annotation* a) {
    using namespace freehand_field;
    FreehandFields& h = a->freehand;
    a->nodeFlags |= kNodeFontFlag;
    h.style = static_cast<uint16_t>(f.value[Style]);
    const uint32_t width = f.value[Width];
    if ((width & 0x8000) != 0) a->nodeFlags |= kNodeRedaction;
    if ((width & 0x4000) != 0) a->nodeFlags |= kNodeApplied;
    h.width = static_cast<uint16_t>(width & 0x3FFF);
    h.fillColor = f.value[Fill];
    if (h.fillColor == 0xFFFFFFFEu) {
        a->nodeFlags |= kNodeSecondRedaction;
        h.fillColor = kColorNone;
    }
    h.lineColor = f.value[LineColor];
    if (f.get(Hidden, 0) != 0) a->objectFlags |= kObjectHidden;
    if (!Points(f.value[PointsOffset], f.value[StrokeCount], &h)) return false;
    ComputeFreehandBounds(&h);
    return Info(f.get(InfoRef, 0), a);
}

bool StreamReader::Image(const RecordFields& f, Annotation* a) {
    using namespace image_field;
    ImageFields& m = a->image;
    const uint32_t mask = f.value[Mask];
    a->nodeFlags |= kNodeFontFlag;
    m.style = static_cast<uint16_t>(f.get(Style, 0));
    const uint32_t orientation = f.get(Orientation, 1);
    if ((orientation & 0x8000) != 0) a->nodeFlags |= kNodeRedaction;
    if ((orientation & 0x4000) != 0) a->nodeFlags |= kNodeApplied;
    m.rotation = RotationFromOrientation(orientation & 0x3FFF);
    m.rect = {static_cast<int32_t>(f.value[Left]), static_cast<int32_t>(f.value[Top]),
              static_cast<int32_t>(f.value[Right]), static_cast<int32_t>(f.value[Bottom])};
    m.parameter = f.get(Parameter, kImageDefaultParameter);
    if (f.get(Hidden, 0) != 0) a->objectFlags |= kObjectHidden;
    const int subtype = (mask & 0x0400) != 0 ? 4 : (mask & 0x0200) != 0 ? 3 : (mask & 0x0100) != 0 ? 2 : 1;
    if (!Picture(f.value[DibOffset], f.value[DibSize], &m.dib) || !Info(f.get(InfoRef, 0), a) ||
        !Attached(f.get(AttachedOffset, 0), subtype, &a->attached)) {
        return false;
    }
    const uint32_t text = f.get(TextOffset, 0);
    if (text == 0) return true;
    const uint8_t* head = Item(text, 16);
    if (head == nullptr) return false;
    const uint32_t recordSize = LoadLittleEndian32(head + 8);
    const RecordTypeInfo* info = FindRecordType(LoadLittleEndian32(head + 12));
    if (recordSize < 8 || Item(text + 8, recordSize) == nullptr || info == nullptr ||
        info->family != AnnotationFamily::Rectangle) {
        return Bad(record_);
    }
    m.attachedTextRect = {static_cast<int32_t>(Get(head, 2)), static_cast<int32_t>(Get(head + 2, 2)),
                          static_cast<int32_t>(Get(head + 4, 2)), static_cast<int32_t>(Get(head + 6, 2))};
    m.attachedText = Decode(info, head + 16, recordSize - 8);
    return m.attachedText != nullptr;
}

bool StreamReader::Ellipse(const RecordFields& f, Annotation* a) {
    using namespace ellipse_field;
    EllipseFields& e = a->ellipse;
    a->nodeFlags |= kNodeFontFlag;
    e.outlineStyle = static_cast<uint16_t>(f.value[Style]);
    const uint32_t width = f.value[Width];
    if (width == 0xFFFF) {
        a->nodeFlags |= kNodeSecondRedaction;
        e.outlineWidth = 0;
    } else {
        if ((width & 0x8000) != 0) a->nodeFlags |= kNodeRedaction;
        e.outlineWidth = static_cast<uint16_t>(width & 0x7FFF);
    }
    e.outlineColor = f.value[Outline];
    if ((f.value[Left] & 0x80000000u) != 0) a->nodeFlags |= kNodeApplied;
    e.rect = {static_cast<int32_t>(f.value[Left] & 0x7FFFFFFFu), static_cast<int32_t>(f.value[Top]),
              static_cast<int32_t>(f.value[Right]), static_cast<int32_t>(f.value[Bottom])};
    e.fillColor = f.value[Fill];
    const uint32_t bits = f.get(Flags, 0);
    if ((bits & 1) != 0) a->objectFlags |= kObjectHidden;
    e.option = (bits & 2) != 0 ? 1 : 0;
    e.rotation = RotationOf(bits >> 2);
    return Info(f.get(InfoRef, 0), a);
}

Annotation* StreamReader::Decode(const RecordTypeInfo* info, const uint8_t* body, size_t bodySize) {
    RecordFields fields;
    if (!DecodeFields(info, body, bodySize, &fields, record_)) return nullptr;
    Annotation* a = NewAnnotation(info->family, nullptr, record_);
    if (a == nullptr) return nullptr;
    a->created = a->changed = PackedTime{};
    bool ok = false;
    switch (info->family) {
        case AnnotationFamily::Rectangle: ok = Rectangle(fields, a); break;
        case AnnotationFamily::Line: ok = Line(fields, a); break;
        case AnnotationFamily::Freehand: ok = Freehand(fields, a); break;
        case AnnotationFamily::Image: ok = Image(fields, a); break;
        case AnnotationFamily::Ellipse: ok = Ellipse(fields, a); break;
    }
    if (!ok) {
        DeleteAnnotation(a);
        return nullptr;
    }
    return a;
}

// The redaction test of the stored fields of one record.
bool IsPendingMarker(const RecordFields& f) {
    switch (f.info->family) {
        case AnnotationFamily::Rectangle: {
            const uint32_t v = f.get(rect_field::TextField, 0);
            return (v & 0x40000000u) == 0 && (v == 1 || (v & 0x80000000u) != 0);
        }
        case AnnotationFamily::Freehand: {
            const uint32_t w = f.value[freehand_field::Width];
            return (w & 0x4000) == 0 && (f.value[freehand_field::Fill] == 0xFFFFFFFEu || (w & 0x8000) != 0);
        }
        case AnnotationFamily::Ellipse: {
            const uint32_t w = f.value[ellipse_field::Width];
            return (f.value[ellipse_field::Left] & 0x80000000u) == 0 && (w == 0xFFFF || (w & 0x8000) != 0);
        }
        case AnnotationFamily::Line: {
            const uint32_t w = f.get(line_field::Width, 1);
            return (w & 0x8000) != 0 && (w & 0x4000) == 0;
        }
        case AnnotationFamily::Image: break;
    }
    const uint32_t o = f.get(image_field::Orientation, 1);
    return (o & 0x8000) != 0 && (o & 0x4000) == 0;
}

bool IsMarkerRectangle(const RecordFields& f) {
    return f.info->family == AnnotationFamily::Rectangle && (f.get(rect_field::TextField, 0) & 0x3FFFFFFFu) == 2;
}

bool ScanRecords(const uint8_t* bytes, size_t size, bool (*test)(const RecordFields&), bool* found,
                 ErrorRecord* record) {
    *found = false;
    return WalkAnnotationRecords(
        bytes, size,
        [&](uint32_t type, const uint8_t* body, size_t bodySize) {
            const RecordTypeInfo* info = FindRecordType(type);
            if (info == nullptr || *found) return true;
            RecordFields fields;
            if (!DecodeFields(info, body, bodySize, &fields, record)) return false;
            *found = test(fields);
            return true;
        },
        record);
}

}  // namespace

bool ReadAnnotationStream(const uint8_t* bytes, size_t size, AnnotationList* list, uint32_t* loadResult,
                          ErrorRecord* record) {
    if (loadResult != nullptr) *loadResult = 0;
    StreamReader reader(bytes, size, record);
    CheckedArray<char16_t> groups;
    AnnotationList read;
    uint32_t result = 0;
    const bool ok = WalkAnnotationRecords(
        bytes, size,
        [&](uint32_t type, const uint8_t* body, size_t bodySize) {
            if (type == kGroupRecordAnsi || type == kGroupRecordWide) {
                return bodySize >= 4 ? reader.Groups(LoadLittleEndian32(body), type == kGroupRecordWide, &groups) : Bad(record);
            }
            const RecordTypeInfo* info = FindRecordType(type);
            if (info == nullptr) {
                result |= kLoadUnknownRecords;
                groups.Clear();
                return true;
            }
            Annotation* a = reader.Decode(info, body, bodySize);
            if (a == nullptr || !a->groups.Sized(groups.size(), record)) {
                DeleteAnnotation(a);
                return false;
            }
            if (!groups.empty()) std::memcpy(a->groups.data(), groups.data(), groups.size() * sizeof(char16_t));
            groups.Clear();
            return read.Append(a, record);
        },
        record);
    if (!ok || !list->TakeAll(&read, record)) return false;
    if (loadResult != nullptr) *loadResult = result;
    return true;
}

bool StreamHasPendingRedaction(const uint8_t* bytes, size_t size, bool* found, ErrorRecord* record) {
    return ScanRecords(bytes, size, IsPendingMarker, found, record);
}

bool StreamHasMarkerRectangle(const uint8_t* bytes, size_t size, bool* found, ErrorRecord* record) {
    return ScanRecords(bytes, size, IsMarkerRectangle, found, record);
}

bool ReadRedactionIndex(const uint8_t* bytes, size_t size, AnnotationList* list, ErrorRecord* record) {
    if (record->failed()) return false;
    static const char kSignature[18] = "VelmoraRedactions";
    if (size < 32 || LoadLittleEndian32(bytes) != size || std::memcmp(bytes + 4, kSignature, 18) != 0) return Bad(record);
    if (LoadLittleEndian32(bytes + 24) != 1) {
        SetRecordError(record, kErrUnsupportedAnnotations, 0);
        return false;
    }
    const uint32_t count = LoadLittleEndian32(bytes + 28);
    if (size < 32 + 20 * uint64_t{count}) return Bad(record);
    auto annotation = [&](uint32_t index) { return index < list->size() ? list->at(index) : nullptr; };
    for (uint32_t e = 0; e < count; ++e) {
        const uint8_t* entry = bytes + 32 + 20 * size_t{e};
        Annotation* redaction = annotation(LoadLittleEndian32(entry + 4));
        if (redaction == nullptr) return Bad(record);
        redaction->nodeFlags |= LoadLittleEndian32(entry) != 0 ? kNodeRedaction : kNodeSecondRedaction;
        for (int slot = 0; slot < 2; ++slot) {
            const uint32_t index = LoadLittleEndian32(entry + 8 + 4 * slot);
            if (index == 0xFFFFFFFFu) continue;
            Annotation* label = annotation(index);
            if (label == nullptr || label == redaction) return Bad(record);
            label->nodeFlags |= kNodeLabel;
            label->owner = redaction;
        }
        const uint32_t text = LoadLittleEndian32(entry + 16);
        if (text == 0) continue;
        size_t length = 0;
        for (;; ++length) {
            if (uint64_t{text} + 2 * length + 2 > size) return Bad(record);
            if (bytes[text + 2 * length] == 0 && bytes[text + 2 * length + 1] == 0) break;
        }
        CheckedArray<char16_t> units;
        if (!units.Sized(length, record)) return false;
        for (size_t i = 0; i < length; ++i) {
            units[i] = static_cast<char16_t>(bytes[text + 2 * i] | bytes[text + 2 * i + 1] << 8);
        }
        if (!redaction->linkText.Assign(units.data(), length, record)) return false;
    }
    return true;
}

}  // namespace velmora
