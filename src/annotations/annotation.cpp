#include "annotations/annotation.h"

#include <cstring>
#include <new>
#include <string>

#include "dib/image.h"
#include "frame/memory_handle.h"
#include "platform/local_time.h"
#include "platform/platform.h"

namespace velmora {

namespace {

bool OutOfMemory(ErrorRecord* record) {
    SetRecordError(record, kErrNotEnoughMemory, 0);
    return false;
}

bool CopyPoints(const FreehandFields& from, FreehandFields* to, ErrorRecord* record) {
    if (!to->points.Sized(from.points.size(), record) || !to->strokeLengths.Sized(from.strokeLengths.size(), record)) {
        return false;
    }
    if (!from.points.empty())
        std::memcpy(to->points.data(), from.points.data(), from.points.size() * sizeof(AnnotationPoint));
    if (!from.strokeLengths.empty()) {
        std::memcpy(to->strokeLengths.data(), from.strokeLengths.data(), from.strokeLengths.size() * sizeof(uint32_t));
    }
    return true;
}

HGLOBAL CopyBlock(HGLOBAL source, ErrorRecord* record) {
    const size_t size = platform::MemSize(source);
    const void* from = platform::MemLock(source);
    if (from == nullptr) {
        SetRecordError(record, kErrInvalidHandle, 0);
        return nullptr;
    }
    HGLOBAL copy = AllocHandle(size, 0, record);
    if (copy != nullptr) {
        std::memcpy(platform::MemLock(copy), from, size);
        platform::MemUnlock(copy);
    }
    platform::MemUnlock(source);
    return copy;
}

// The days since 1601-01-01 of a proleptic Gregorian date.
int64_t DaysSince1601(int year, int month, int day) {
    const int y = month <= 2 ? year - 1 : year;
    const int era = y / 400;
    const int yearOfEra = y - era * 400;
    const int dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    // Days from 0000-03-01 to 1601-01-01: 584694.
    return int64_t{era} * 146097 + dayOfEra - 584694;
}

}  // namespace

// ---- Times -------------------------------------------------------------------

bool IsValidPackedTime(const PackedTime& time) {
    const unsigned second = time.words[0] & 63, minute = time.words[0] >> 6;
    const unsigned hour = time.words[1] & 31, day = time.words[1] >> 5;
    const unsigned month = time.words[2] & 15;
    return second <= 59 && minute <= 59 && (time.words[0] >> 12) == 0 && hour <= 23 && day >= 1 &&
           (time.words[1] >> 10) == 0 && month >= 1 && month <= 12;
}

PackedTime PackTime(const SYSTEMTIME& time) {
    PackedTime packed;
    packed.words[0] = static_cast<uint16_t>(time.wMinute * 64 + time.wSecond);
    packed.words[1] = static_cast<uint16_t>(time.wDay * 32 + time.wHour);
    packed.words[2] = static_cast<uint16_t>(time.wYear * 16 + time.wMonth);
    return packed;
}

PackedTime PackedNow() {
    SYSTEMTIME now;
    platform::UtcNow(&now);
    return PackTime(now);
}

bool PackedTimeToFileTime(const PackedTime& time, uint64_t* fileTime) {
    if (!IsValidPackedTime(time)) return false;
    const int year = time.words[2] >> 4, month = time.words[2] & 15, day = time.words[1] >> 5;
    const int64_t days = DaysSince1601(year, month, day);
    if (days < 0) return false;
    const uint64_t seconds = static_cast<uint64_t>(days) * 86400u + (time.words[1] & 31) * 3600u +
                             (time.words[0] >> 6) * 60u + (time.words[0] & 63);
    *fileTime = seconds * 10000000u;
    return true;
}

SYSTEMTIME UnpackTime(const PackedTime& time) {
    SYSTEMTIME out = {};
    uint64_t fileTime = 0;
    if (!PackedTimeToFileTime(time, &fileTime)) return out;
    out.wYear = static_cast<WORD>(time.words[2] >> 4);
    out.wMonth = static_cast<WORD>(time.words[2] & 15);
    out.wDay = static_cast<WORD>(time.words[1] >> 5);
    out.wHour = static_cast<WORD>(time.words[1] & 31);
    out.wMinute = static_cast<WORD>(time.words[0] >> 6);
    out.wSecond = static_cast<WORD>(time.words[0] & 63);
    // 1601-01-01 was a Monday (1).
    out.wDayOfWeek = static_cast<WORD>((fileTime / 864000000000u + 1) % 7);
    return out;
}

// ---- Texts -------------------------------------------------------------------

bool AnnotationText::Assign(const char16_t* text, size_t length, ErrorRecord* record) {
    if (record->failed()) return false;
    if (length == 0) {
        units_.Clear();
        return true;
    }
    CheckedArray<char16_t> units;
    if (!units.Sized(uint64_t{length} + 1, record)) return false;
    std::memcpy(units.data(), text, length * sizeof(char16_t));
    units[length] = 0;
    // The new text is complete: swap it in by copying (blocks cannot move).
    if (!units_.Sized(units.size(), record)) return false;
    std::memcpy(units_.data(), units.data(), units.size() * sizeof(char16_t));
    return true;
}

bool AnnotationText::AssignNarrow(const char* text, size_t length, ErrorRecord* record) {
    if (record->failed()) return false;
    std::string narrow(text, length);
    std::u16string wide;
    uint32_t error = 0;
    if (!platform::NarrowToWide(narrow.c_str(), &wide, &error)) {
        SetRecordError(record, error != 0 ? error : kUnexpectedError, 0);
        return false;
    }
    return Assign(wide.data(), wide.size(), record);
}

bool AnnotationText::Equals(const char16_t* text) const {
    const char16_t* own = c_str();
    size_t i = 0;
    for (; own[i] != 0 && text[i] != 0; ++i) {
        if (own[i] != text[i]) return false;
    }
    return own[i] == text[i];
}

int AttachedDataSubtype(const AttachedData& data) {
    if (!data.present) return 0;
    auto wide = [](const AnnotationText& text) {
        for (const char16_t* p = text.c_str(); *p != 0; ++p) {
            if (*p > 0x7F) return true;
        }
        return false;
    };
    if (!data.hasSecondText) return wide(data.text1) ? 2 : 1;
    return wide(data.text1) || wide(data.text2) ? 4 : 3;
}

// ---- Objects -----------------------------------------------------------------

Annotation::~Annotation() {
    DeleteAnnotation(image.attachedText);
    if (image.dib != nullptr) FreeHandle(&image.dib);
}

bool Annotation::known() const {
    const uint32_t f = static_cast<uint32_t>(family);
    return version == kAnnotationVersion && f >= 1 && f <= 5;
}

Annotation* NewAnnotation(AnnotationFamily family, const SYSTEMTIME* created, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    Annotation* annotation = new (std::nothrow) Annotation;
    if (annotation == nullptr) {
        OutOfMemory(record);
        return nullptr;
    }
    annotation->family = family;
    annotation->created = created != nullptr ? PackTime(*created) : PackedNow();
    annotation->changed = annotation->created;
    return annotation;
}

void DeleteAnnotation(Annotation* annotation) { delete annotation; }

Annotation* CopyAnnotation(const Annotation& source, ErrorRecord* record) {
    Annotation* copy = NewAnnotation(source.family, nullptr, record);
    if (copy == nullptr) return nullptr;
    copy->nodeFlags = source.nodeFlags;
    copy->created = source.created;
    copy->changed = source.changed;
    copy->objectFlags = source.objectFlags;
    copy->version = source.version;

    const AttachedData& a = source.attached;
    AttachedData& b = copy->attached;
    b.present = a.present;
    b.first = a.first;
    b.second = a.second;
    b.third = a.third;
    std::memcpy(b.guid, a.guid, sizeof b.guid);
    b.fourth = a.fourth;
    b.fifth = a.fifth;
    b.sixth = a.sixth;
    b.hasSecondText = a.hasSecondText;

    RectangleFields& r = copy->rectangle;
    const RectangleFields& sr = source.rectangle;
    r.borderColor = sr.borderColor;
    r.borderStyle = sr.borderStyle;
    r.borderWidth = sr.borderWidth;
    r.backColor = sr.backColor;
    r.option1 = sr.option1;
    r.option2 = sr.option2;
    r.textColor = sr.textColor;
    std::memcpy(r.fontFace, sr.fontFace, sizeof r.fontFace);
    r.textSize = sr.textSize;
    r.rect = sr.rect;
    r.optionByte = sr.optionByte;
    r.flagByte = sr.flagByte;
    r.textRotation = sr.textRotation;
    r.styleWord = sr.styleWord;
    r.backColor2 = sr.backColor2;
    r.thirdColor = sr.thirdColor;

    LineFields& l = copy->line;
    const LineFields& sl = source.line;
    l.color = sl.color;
    l.first = sl.first;
    l.second = sl.second;
    l.endSize1 = sl.endSize1;
    l.endSize2 = sl.endSize2;
    l.endWord = sl.endWord;
    l.width = sl.width;
    l.option = sl.option;
    l.subtype = sl.subtype;
    l.textWord = sl.textWord;
    l.measurement = sl.measurement;

    FreehandFields& f = copy->freehand;
    const FreehandFields& sf = source.freehand;
    f.fillColor = sf.fillColor;
    f.lineColor = sf.lineColor;
    f.bounds = sf.bounds;
    f.style = sf.style;
    f.width = sf.width;

    ImageFields& i = copy->image;
    const ImageFields& si = source.image;
    i.rect = si.rect;
    i.rotation = si.rotation;
    i.style = si.style;
    i.attachedTextRect = si.attachedTextRect;
    i.parameter = si.parameter;
    i.userValue = si.userValue;

    copy->ellipse = source.ellipse;

    bool ok = copy->linkText.CopyFrom(source.linkText, record) && b.text1.CopyFrom(a.text1, record) &&
              b.text2.CopyFrom(a.text2, record) && r.text.CopyFrom(sr.text, record) &&
              l.text.CopyFrom(sl.text, record) && CopyPoints(sf, &f, record) &&
              i.fileName.CopyFrom(si.fileName, record) && copy->groups.Sized(source.groups.size(), record);
    if (ok && !source.groups.empty()) {
        std::memcpy(copy->groups.data(), source.groups.data(), source.groups.size() * sizeof(char16_t));
    }
    if (ok && si.attachedText != nullptr) {
        i.attachedText = CopyAnnotation(*si.attachedText, record);
        ok = i.attachedText != nullptr;
    }
    if (ok && si.dib != nullptr) {
        i.dib = CopyBlock(si.dib, record);
        ok = i.dib != nullptr;
    }
    if (!ok) {
        DeleteAnnotation(copy);
        return nullptr;
    }
    return copy;
}

void ComputeFreehandBounds(FreehandFields* freehand) {
    freehand->bounds = {};
    for (size_t i = 0; i < freehand->points.size(); ++i) {
        const AnnotationPoint& p = freehand->points[i];
        AnnotationRect& b = freehand->bounds;
        // The edge after a point, wrapping like the stored 32-bit values.
        const int32_t right = static_cast<int32_t>(static_cast<uint32_t>(p.x) + 1u);
        const int32_t bottom = static_cast<int32_t>(static_cast<uint32_t>(p.y) + 1u);
        if (i == 0) {
            b = {p.x, p.y, right, bottom};
            continue;
        }
        if (p.x < b.left) b.left = p.x;
        if (p.y < b.top) b.top = p.y;
        if (p.x >= b.right) b.right = right;
        if (p.y >= b.bottom) b.bottom = bottom;
    }
}

bool IsPendingRedaction(const Annotation& annotation) {
    return IsRedaction(annotation) && (annotation.nodeFlags & (kNodeApplied | kNodeLabel)) == 0;
}

uint8_t AnnotationTypeCode(const Annotation& annotation) {
    switch (annotation.family) {
        case AnnotationFamily::Ellipse: return 0;
        case AnnotationFamily::Image: return 4;
        case AnnotationFamily::Freehand: return 5;
        case AnnotationFamily::Rectangle: return 6;
        case AnnotationFamily::Line: break;
    }
    const LineFields& line = annotation.line;
    if (line.subtype == 3) return 10;
    if (line.subtype == 2 && line.measurement != 0) return 8;
    if (line.subtype >= 1 && line.subtype <= 3 && (!line.text.empty() || line.textWord < 0xFFFF)) return 7;
    return 3;
}

uint16_t RotationFromOrientation(uint32_t orientation) {
    switch (orientation) {
        case 3:
        case 4: return 180;
        case 5:
        case 8: return 270;
        case 6:
        case 7: return 90;
        default: return 0;
    }
}

uint16_t OrientationFromRotation(uint32_t rotation) {
    switch (rotation) {
        case 90: return 6;
        case 180: return 3;
        case 270: return 8;
        default: return 1;
    }
}

bool AddAnnotationGroup(Annotation* annotation, const char16_t* name, size_t length, ErrorRecord* record) {
    for (size_t i = 0; i < length; ++i) {
        if (!annotation->groups.Append(name[i], record)) return false;
    }
    return annotation->groups.Append(0, record);
}

// ---- The list ----------------------------------------------------------------

Annotation* AnnotationList::at(ptrdiff_t index) const {
    if (index == -1) return items_.empty() ? nullptr : items_[items_.size() - 1];
    if (index < 0 || static_cast<size_t>(index) >= items_.size()) return nullptr;
    return items_[static_cast<size_t>(index)];
}

ptrdiff_t AnnotationList::IndexOf(const Annotation* annotation) const {
    for (size_t i = 0; i < items_.size(); ++i) {
        if (items_[i] == annotation) return static_cast<ptrdiff_t>(i);
    }
    return -1;
}

bool AnnotationList::Append(Annotation* annotation, ErrorRecord* record) {
    if (record->failed() || !items_.Append(annotation, record)) {
        DeleteAnnotation(annotation);
        return false;
    }
    return true;
}

bool AnnotationList::TakeAll(AnnotationList* other, ErrorRecord* record) {
    const size_t start = items_.size();
    for (Annotation* annotation : *other) {
        if (!items_.Append(annotation, record)) {
            // Drop what was moved so that both lists stay whole.
            ErrorRecord shrink;
            items_.Sized(start, &shrink);
            return false;
        }
    }
    other->items_.Clear();
    return true;
}

void AnnotationList::Delete(ptrdiff_t index) {
    size_t first = 0, last = items_.size();
    if (index != -2) {
        if (index == -1) index = static_cast<ptrdiff_t>(items_.size()) - 1;
        if (index < 0 || static_cast<size_t>(index) >= items_.size()) return;
        first = static_cast<size_t>(index);
        last = first + 1;
    }
    for (size_t i = first; i < last; ++i) {
        for (Annotation* other : items_) {
            if (other->owner == items_[i]) other->owner = nullptr;
        }
    }
    for (size_t i = first; i < last; ++i) DeleteAnnotation(items_[i]);
    const size_t removed = last - first;
    for (size_t i = last; i < items_.size(); ++i) items_[i - removed] = items_[i];
    ErrorRecord ignored;
    items_.Sized(items_.size() - removed, &ignored);
}

}  // namespace velmora
