#include "annotations/wang_reader.h"

#include <cmath>
#include <cstring>
#include <string>

#include "annotations/little_endian_fields.h"
#include "dib/dib_layout.h"
#include "frame/memory_handle.h"
#include "frame/progress.h"
#include "frame/settings.h"
#include "frame/settings_store.h"
#include "platform/platform.h"
#include "tiff/image_file_reader.h"

namespace velmora {
namespace {

constexpr uint32_t kIntelFormat = 1;
constexpr uint32_t kDefaultBlock = 2;
constexpr uint32_t kMarkBlock = 5;
constexpr uint32_t kNamedBlock = 6;
constexpr size_t kMarkRecordSize = 164;
constexpr size_t kNamedHeaderSize = 12;
constexpr size_t kTextHeadSize = 16;
// Longer picture file names than the system's longest path are refused.
constexpr size_t kMaxPictureName = 32767;

// The mark record's fields.
constexpr size_t kTypeAt = 0;
constexpr size_t kBoundsAt = 4;
constexpr size_t kColorAt = 20;
constexpr size_t kSecondColorAt = 24;
constexpr size_t kHighlightAt = 28;
constexpr size_t kTransparentAt = 32;
constexpr size_t kLineSizeAt = 36;
constexpr size_t kFontHeightAt = 48;
constexpr size_t kFontWeightAt = 64;
constexpr size_t kFontItalicAt = 68;
constexpr size_t kFontFaceAt = 76;
constexpr size_t kFontFaceBytes = 32;
constexpr size_t kTimeAt = 112;
constexpr size_t kVisibleAt = 116;

// The named blocks the conversion uses; other names are passed over.
enum NamedIndex { kAnoDat, kAnText, kFileName, kDib, kGroup, kOrient, kWideGroup, kWideText, kNamedCount };

struct Bytes {
    const uint8_t* data = nullptr;
    size_t size = 0;
    bool present() const { return data != nullptr; }
};

struct NamedBlocks {
    Bytes block[kNamedCount];
};

// One mark with the named blocks that apply to it, its own before the
// defaults.
struct Mark {
    const uint8_t* record;
    uint32_t type;
    AnnotationRect bounds;  // right and bottom exclusive
    uint32_t color;         // with the highlighter bit when highlighting
    uint16_t lineSize;
    Bytes block[kNamedCount];
    Bytes group;  // the narrow group name, or none
    Bytes wideGroup;
};

int NamedIndexOf(const uint8_t* name) {
    static const char kNames[kNamedCount][9] = {"OiAnoDat", "OiAnText", "OiFilNam", "OiDIB",
                                                "OiGroup",  "IGOrient", "OiUGroup", "OiUText"};
    for (int i = 0; i < kNamedCount; ++i) {
        if (std::memcmp(name, kNames[i], 8) == 0) return i;
    }
    return -1;
}

// A wide string block: a u32 count of bytes to skip, those bytes, then a
// UTF-16 string whose terminator lies inside the block. Narrows `data` to the
// string's units; false when it is malformed.
bool TakeWideString(Bytes* data) {
    if (data->size < 4) return false;
    const uint32_t skip = LoadLittleEndian32(data->data);
    if (skip > data->size - 4) return false;
    const uint8_t* start = data->data + 4 + skip;
    const size_t units = (data->size - 4 - skip) / 2;
    for (size_t i = 0; i < units; ++i) {
        if (LoadLittleEndian16(start + 2 * i) == 0) {
            *data = Bytes{start, 2 * i};
            return true;
        }
    }
    return false;
}

// Checks a named block and keeps what the conversion needs of it; false when
// the block is malformed, which ends the reading.
bool KeepNamedBlock(const uint8_t* name, Bytes data, bool ownBlock, NamedBlocks* into) {
    const int index = NamedIndexOf(name);
    if (index < 0 || (index == kWideText && !ownBlock)) return true;
    switch (index) {
        case kAnText:
            if (data.size < kTextHeadSize || LoadLittleEndian32(data.data + 12) > data.size - kTextHeadSize) return false;
            break;
        case kFileName:
        case kGroup: {
            const void* end = data.size == 0 ? nullptr : std::memchr(data.data, 0, data.size);
            if (end == nullptr) return false;
            data.size = static_cast<size_t>(static_cast<const uint8_t*>(end) - data.data);
            break;
        }
        case kWideGroup:
        case kWideText:
            if (!TakeWideString(&data)) return false;
            break;
        default: break;
    }
    into->block[index] = data;
    return true;
}

uint32_t ColorAt(const uint8_t* quad) {
    return static_cast<uint32_t>(quad[2]) | static_cast<uint32_t>(quad[1]) << 8 | static_cast<uint32_t>(quad[0]) << 16;
}

uint16_t Clamp16(uint32_t value) { return value > 0xFFFF ? 0xFFFF : static_cast<uint16_t>(value); }

Mark MakeMark(const uint8_t* record, const NamedBlocks& own, const NamedBlocks& defaults) {
    Mark mark{};
    mark.record = record;
    mark.type = LoadLittleEndian32(record + kTypeAt);
    const uint8_t* bounds = record + kBoundsAt;
    mark.bounds = AnnotationRect{LittleI32(bounds), LittleI32(bounds + 4), OffsetCoordinate(LittleI32(bounds + 8), 1),
                                 OffsetCoordinate(LittleI32(bounds + 12), 1)};
    mark.color = ColorAt(record + kColorAt);
    if (LoadLittleEndian32(record + kHighlightAt) != 0) mark.color |= kColorHighlighter;
    mark.lineSize = Clamp16(LoadLittleEndian32(record + kLineSizeAt));
    for (int i = 0; i < kNamedCount; ++i) {
        mark.block[i] = own.block[i].present() ? own.block[i] : defaults.block[i];
    }
    // The mark's own group wins over a default one; a wide name over a narrow.
    const NamedBlocks& groups = own.block[kGroup].present() || own.block[kWideGroup].present() ? own : defaults;
    if (groups.block[kWideGroup].present()) {
        mark.wideGroup = groups.block[kWideGroup];
    } else {
        mark.group = groups.block[kGroup];
    }
    return mark;
}

// Narrow text in the system code page; text that is not valid there is taken
// byte for byte, as the format's writers were single-byte Windows programs.
bool AssignNarrowText(AnnotationText* text, const uint8_t* bytes, size_t size, ErrorRecord* record) {
    const void* end = size == 0 ? nullptr : std::memchr(bytes, 0, size);
    if (end != nullptr) size = static_cast<size_t>(static_cast<const uint8_t*>(end) - bytes);
    ErrorRecord local;
    if (text->AssignNarrow(reinterpret_cast<const char*>(bytes), size, &local)) return true;
    if (local.code == kErrNotEnoughMemory || local.code == kErrOutOfMemory) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return false;
    }
    CheckedArray<char16_t> units;
    if (!units.Sized(size, record)) return false;
    for (size_t i = 0; i < size; ++i) units[i] = bytes[i];
    return text->Assign(units.data(), size, record);
}

bool AssignWideText(AnnotationText* text, Bytes data, ErrorRecord* record) {
    CheckedArray<char16_t> units;
    const size_t count = data.size / 2;
    if (!units.Sized(count, record)) return false;
    for (size_t i = 0; i < count; ++i) units[i] = LoadLittleEndian16(data.data + 2 * i);
    return text->Assign(units.data(), count, record);
}

// The record's creation time (seconds since 1970, UTC) as a calendar time;
// null when the record carries none.
const SYSTEMTIME* CreationTime(const uint8_t* record, SYSTEMTIME* time) {
    const uint32_t seconds = LoadLittleEndian32(record + kTimeAt);
    if (seconds == 0) return nullptr;
    // Days since 1970-01-01 to a civil date, counting in 400-year eras that
    // start on 1 March so that the leap day ends each year.
    const uint32_t days = seconds / 86400 + 719468;
    const uint32_t era = days / 146097;
    const uint32_t dayOfEra = days - era * 146097;
    const uint32_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const uint32_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const uint32_t monthIndex = (5 * dayOfYear + 2) / 153;
    const uint32_t month = monthIndex < 10 ? monthIndex + 3 : monthIndex - 9;
    *time = SYSTEMTIME{};
    time->wYear = static_cast<WORD>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0));
    time->wMonth = static_cast<WORD>(month);
    time->wDay = static_cast<WORD>(dayOfYear - (153 * monthIndex + 2) / 5 + 1);
    time->wDayOfWeek = static_cast<WORD>((seconds / 86400 + 4) % 7);
    time->wHour = static_cast<WORD>(seconds % 86400 / 3600);
    time->wMinute = static_cast<WORD>(seconds % 3600 / 60);
    time->wSecond = static_cast<WORD>(seconds % 60);
    return time;
}

// The font of a text mark: face, height in points, style bits.
bool FillFont(const Mark& mark, RectangleFields* fields, ErrorRecord* record) {
    AnnotationText face;
    if (!AssignNarrowText(&face, mark.record + kFontFaceAt, kFontFaceBytes, record)) return false;
    const size_t length = face.length() < 31 ? face.length() : 31;
    std::memcpy(fields->fontFace, face.c_str(), length * sizeof(char16_t));
    fields->fontFace[length] = 0;
    const int32_t height = LittleI32(mark.record + kFontHeightAt);
    fields->textSize = Clamp16(height < 0 ? 0u - static_cast<uint32_t>(height) : static_cast<uint32_t>(height));
    const uint8_t* style = mark.record + kFontItalicAt;
    uint8_t bits = LittleI32(mark.record + kFontWeightAt) >= 600 ? kWangFontBold : 0;
    if (style[0] != 0) bits |= kWangFontItalic;
    if (style[1] != 0) bits |= kWangFontUnderline;
    if (style[2] != 0) bits |= kWangFontStrikeOut;
    fields->option1 = bits;
    return true;
}

// Font, text and rotation of text marks and notes.
bool FillText(const Mark& mark, RectangleFields* fields, ErrorRecord* record) {
    if (!FillFont(mark, fields, record)) return false;
    fields->flagByte = 1;
    const Bytes text = mark.block[kAnText];
    if (text.present()) {
        // Orientation in tenths of a degree counter-clockwise; the model turns
        // clockwise.
        switch (LoadLittleEndian32(text.data)) {
            case 900: fields->textRotation = 270; break;
            case 1800: fields->textRotation = 180; break;
            case 2700: fields->textRotation = 90; break;
            default: break;
        }
    }
    if (mark.block[kWideText].present()) return AssignWideText(&fields->text, mark.block[kWideText], record);
    if (!text.present()) return true;
    return AssignNarrowText(&fields->text, text.data + kTextHeadSize, LoadLittleEndian32(text.data + 12), record);
}

bool FillRectangle(const Mark& mark, Annotation* annotation, ErrorRecord* record) {
    RectangleFields& fields = annotation->rectangle;
    fields.rect = mark.bounds;
    switch (mark.type) {
        case 5:
            fields.borderStyle = 1;
            fields.borderColor = mark.color;
            fields.borderWidth = mark.lineSize;
            return true;
        case 6: fields.backColor = mark.color; return true;
        case 508:
            fields.backColor = mark.color;
            annotation->nodeFlags |= kNodeRedaction;
            return true;
        case 514: fields.backColor = mark.color | kColorHighlighter; return true;
        case 10:
            fields.borderStyle = 4;
            fields.borderWidth = 1;
            fields.borderColor = 0;
            fields.backColor = mark.color;
            fields.textColor = ColorAt(mark.record + kSecondColorAt);
            return FillText(mark, &fields, record);
        default: fields.textColor = mark.color; return FillText(mark, &fields, record);
    }
}

// The arrow block in front of an arrow's points: head style, the angle
// between the line and the head's sides in degrees, the sides' length and
// the end that carries the head. The two line-end size words are the head's
// length along the line and its half width across it.
void FillArrowEnds(const uint8_t* arrow, LineFields* fields) {
    const uint32_t angle = LoadLittleEndian32(arrow + 4) > 90 ? 90 : LoadLittleEndian32(arrow + 4);
    const uint32_t side = Clamp16(LoadLittleEndian32(arrow + 8));
    const double radians = angle * 3.14159265358979323846 / 180.0;
    fields->endSize1 = static_cast<uint16_t>(std::lround(side * std::cos(radians)));
    fields->endSize2 = static_cast<uint16_t>(std::lround(side * std::sin(radians)));
    fields->endWord = static_cast<uint16_t>((LoadLittleEndian32(arrow + 12) == 1 ? 2 : 1) | (LoadLittleEndian32(arrow) & 3) << 2);
}

bool FillLine(const Mark& mark, Annotation* annotation) {
    LineFields& fields = annotation->line;
    fields.color = mark.color;
    fields.width = mark.lineSize;
    const Bytes data = mark.block[kAnoDat];
    if (!data.present()) return false;
    if (mark.type == 510) {
        if (data.size < 60) return false;
        fields.first = AnnotationPoint{LittleI32(data.data + 44), LittleI32(data.data + 48)};
        fields.second = AnnotationPoint{LittleI32(data.data + 52), LittleI32(data.data + 56)};
        return true;
    }
    const size_t prefix = mark.type == 506 ? 32 : 0;
    if (data.size < prefix + 24) return false;
    const uint8_t* points = data.data + prefix;
    if (LoadLittleEndian32(points + 4) != 2) return false;
    const int32_t left = mark.bounds.left;
    const int32_t top = mark.bounds.top;
    fields.first =
        AnnotationPoint{OffsetCoordinate(LittleI32(points + 8), left), OffsetCoordinate(LittleI32(points + 12), top)};
    fields.second =
        AnnotationPoint{OffsetCoordinate(LittleI32(points + 16), left), OffsetCoordinate(LittleI32(points + 20), top)};
    if (mark.type == 506) FillArrowEnds(data.data, &fields);
    return true;
}

bool FillFreehand(const Mark& mark, Annotation* annotation, ErrorRecord* record) {
    const Bytes data = mark.block[kAnoDat];
    if (!data.present() || data.size < 24) return false;
    const uint32_t count = LoadLittleEndian32(data.data + 4);
    if (count == 0 || 8 + 8 * uint64_t{count} > data.size) return false;
    FreehandFields& fields = annotation->freehand;
    fields.lineColor = mark.color;
    fields.fillColor = kColorNone;
    fields.width = mark.lineSize;
    fields.style = mark.type == 501 ? 3 : mark.type == 500 ? 7 : 0;
    fields.bounds = mark.bounds;
    auto pointAt = [&](uint32_t i) {
        const uint8_t* p = data.data + 8 + 8 * size_t{i};
        return AnnotationPoint{OffsetCoordinate(LittleI32(p), mark.bounds.left),
                               OffsetCoordinate(LittleI32(p + 4), mark.bounds.top)};
    };
    auto repeats = [&](uint32_t i) {
        if (i == 0) return false;
        const AnnotationPoint a = pointAt(i - 1), b = pointAt(i);
        return a.x == b.x && a.y == b.y;
    };
    uint32_t kept = 0;
    for (uint32_t i = 0; i < count; ++i) kept += repeats(i) ? 0 : 1;
    if (!fields.points.Sized(kept, record) || !fields.strokeLengths.Sized(1, record)) return false;
    fields.strokeLengths[0] = kept;
    size_t out = 0;
    for (uint32_t i = 0; i < count; ++i) {
        if (!repeats(i)) fields.points[out++] = pointAt(i);
    }
    return true;
}

void FillEllipse(const Mark& mark, Annotation* annotation) {
    EllipseFields& fields = annotation->ellipse;
    fields.rect = mark.bounds;
    if (mark.type == 504) {
        fields.fillColor = mark.color;
        return;
    }
    fields.outlineColor = mark.color;
    fields.outlineStyle = 1;
    fields.outlineWidth = mark.lineSize;
}

// Copies an embedded packed DIB that is whole, uncompressed and bottom-up;
// false (record untouched) when it is not.
bool CopyEmbeddedDib(Bytes dib, HGLOBAL* copy, ErrorRecord* record) {
    if (dib.size < 4) return false;
    const uint32_t headerSize = LoadLittleEndian32(dib.data);
    if (headerSize < kDibHeaderSize || headerSize > dib.size) return false;
    BITMAPINFOHEADER header;
    std::memcpy(&header, dib.data, sizeof header);
    const uint16_t bits = header.biBitCount;
    if (header.biCompression != BI_RGB && header.biCompression != BI_BITFIELDS) return false;
    if (header.biWidth <= 0 || header.biHeight <= 0 || header.biPlanes != 1) return false;
    if (bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) return false;
    uint64_t size = 0;
    if (!PackedSize(&header, &size) || size > dib.size) return false;
    *copy = AllocHandle(static_cast<size_t>(size), 0, record);
    if (*copy == nullptr) return false;
    std::memcpy(platform::MemLock(*copy), dib.data, static_cast<size_t>(size));
    platform::MemUnlock(*copy);
    return true;
}

// A picture file name; one that starts with a drive letter and a colon takes
// the letter's folder from the user's "O/i ImagePath" settings. The names
// were written on Windows: their backslashes become the system's separator.
std::u16string PicturePath(const AnnotationText& name) {
    std::u16string path(name.c_str(), name.length());
    for (char16_t& unit : path) {
        if (unit == u'\\') unit = platform::PathSeparator();
    }
    const char16_t letter = path.size() >= 2 && path[1] == u':' ? path[0] : 0;
    const bool isLetter = (letter >= u'A' && letter <= u'Z') || (letter >= u'a' && letter <= u'z');
    if (!isLetter) return path;
    std::u16string folder;
    const std::u16string key(1, static_cast<char16_t>(letter >= u'a' ? letter - (u'a' - u'A') : letter));
    if (ReadUserSetting(SettingsKeyPath(u"O/i ImagePath"), key, &folder) && !folder.empty()) {
        return folder + path.substr(2);
    }
    return path;
}

// The picture of a mark stored by reference; false when the file cannot be
// read, with the record set only when memory ran out.
bool ReadPicture(const Mark& mark, ImageFields* fields, ErrorRecord* record) {
    const Bytes name = mark.block[kFileName];
    if (name.size > kMaxPictureName) return false;
    if (!AssignNarrowText(&fields->fileName, name.data, name.size, record)) return false;
    const std::u16string path = PicturePath(fields->fileName);
    if (!fields->fileName.Assign(path.data(), path.size(), record)) return false;
    ErrorRecord local;
    ProgressReporter progress;
    fields->dib = ReadImageFileDib(path, 1, 0, 0, &progress, nullptr, &local);
    if (local.code == kErrNotEnoughMemory || local.code == kErrOutOfMemory) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
    }
    return fields->dib != nullptr;
}

// The image style word from the mark's transparency and placement data.
uint16_t ImageStyle(const Mark& mark, const uint8_t* placement) {
    uint16_t style = LoadLittleEndian32(mark.record + kTransparentAt) != 0 ? 0x4000 : 0;
    if (mark.block[kOrient].present()) {
        style |= 0x0002;
        const uint32_t align = LoadLittleEndian32(placement + 28);
        const uint32_t across = align & 3, down = (align >> 4) & 3;
        if (across == 2) style |= 0x0800;
        if (across == 0 || across == 3) style |= 0x0400;
        if (down == 2) style |= 0x2000;
        if (down == 0 || down == 3) style |= 0x1000;
    }
    style |= static_cast<uint16_t>((LoadLittleEndian32(placement + 24) & 3) << 8);
    return style;
}

bool FillImage(const Mark& mark, Annotation* annotation, ErrorRecord* record) {
    const Bytes placement = mark.block[kAnoDat];
    const bool byReference = mark.type == 2 && mark.block[kFileName].present();
    if (!placement.present() || placement.size < 56) return false;
    if (!byReference && !mark.block[kDib].present()) return false;
    ImageFields& fields = annotation->image;
    fields.rect = mark.bounds;
    switch (LoadLittleEndian32(placement.data)) {
        case 2:
        case 6: fields.rotation = 90; break;
        case 3:
        case 7: fields.rotation = 180; break;
        case 4:
        case 8: fields.rotation = 270; break;
        default: break;
    }
    fields.style = ImageStyle(mark, placement.data);
    const uint32_t scale = LoadLittleEndian32(placement.data + 32);
    if ((fields.style & 0x0300) != 0x0300 && scale != 0) fields.parameter = scale;
    if (byReference) return ReadPicture(mark, &fields, record);
    return CopyEmbeddedDib(mark.block[kDib], &fields.dib, record);
}

bool AddMarkGroup(const Mark& mark, Annotation* annotation, ErrorRecord* record) {
    AnnotationText name;
    if (mark.wideGroup.present()) {
        if (!AssignWideText(&name, mark.wideGroup, record)) return false;
    } else if (mark.group.present()) {
        if (!AssignNarrowText(&name, mark.group.data, mark.group.size, record)) return false;
    }
    return name.empty() || AddAnnotationGroup(annotation, name.c_str(), name.length(), record);
}

bool FamilyOfMark(uint32_t type, AnnotationFamily* family) {
    using F = AnnotationFamily;
    static const struct {
        uint32_t type;
        AnnotationFamily family;
    } kFamilies[] = {{1, F::Image},       {2, F::Image},      {3, F::Line},       {4, F::Freehand},
                     {5, F::Rectangle},   {6, F::Rectangle},  {7, F::Rectangle},  {8, F::Rectangle},
                     {9, F::Rectangle},   {10, F::Rectangle}, {500, F::Freehand}, {501, F::Freehand},
                     {502, F::Freehand},  {504, F::Ellipse},  {505, F::Ellipse},  {506, F::Line},
                     {508, F::Rectangle}, {510, F::Line},     {514, F::Rectangle}};
    for (const auto& entry : kFamilies) {
        if (entry.type == type) {
            *family = entry.family;
            return true;
        }
    }
    return false;
}

// Converts one mark and appends it. A mark whose data does not allow the
// conversion is passed over; false only with the record set.
bool ConvertMark(const Mark& mark, AnnotationList* list, uint32_t* loadResult, ErrorRecord* record) {
    AnnotationFamily family;
    if (!FamilyOfMark(mark.type, &family)) {
        *loadResult |= kLoadUnknownMarks;
        return true;
    }
    SYSTEMTIME time;
    Annotation* annotation = NewAnnotation(family, CreationTime(mark.record, &time), record);
    if (annotation == nullptr) return false;
    annotation->nodeFlags = kNodeFontFlag;
    if (LoadLittleEndian32(mark.record + kVisibleAt) == 0) annotation->objectFlags |= kObjectHidden;
    bool converted = false;
    switch (family) {
        case AnnotationFamily::Rectangle: converted = FillRectangle(mark, annotation, record); break;
        case AnnotationFamily::Line: converted = FillLine(mark, annotation); break;
        case AnnotationFamily::Freehand: converted = FillFreehand(mark, annotation, record); break;
        case AnnotationFamily::Image: converted = FillImage(mark, annotation, record); break;
        case AnnotationFamily::Ellipse:
            FillEllipse(mark, annotation);
            converted = true;
            break;
    }
    if (!converted || !AddMarkGroup(mark, annotation, record)) {
        DeleteAnnotation(annotation);
        return record->ok();
    }
    return list->Append(annotation, record);
}

}  // namespace

bool ReadWangAnnotations(const uint8_t* bytes, size_t size, AnnotationList* list, uint32_t* loadResult,
                         ErrorRecord* record) {
    if (record->failed()) return false;
    if (size < 8 || LoadLittleEndian32(bytes + 4) != kIntelFormat) return true;
    NamedBlocks defaults;
    // The defaults as they stood when the current mark began, and its own.
    NamedBlocks markDefaults;
    NamedBlocks own;
    const uint8_t* markRecord = nullptr;
    size_t at = 8;
    while (size - at >= 8) {
        const uint32_t type = LoadLittleEndian32(bytes + at);
        const uint32_t blockSize = LoadLittleEndian32(bytes + at + 4);
        at += 8;
        if (type == kMarkBlock) {
            const size_t recordSize = blockSize == 0 ? kMarkRecordSize : blockSize;
            if (recordSize < kMarkRecordSize || recordSize > size - at) break;
            if (markRecord != nullptr &&
                !ConvertMark(MakeMark(markRecord, own, markDefaults), list, loadResult, record)) {
                return false;
            }
            markRecord = bytes + at;
            markDefaults = defaults;
            own = NamedBlocks{};
            at += recordSize;
            continue;
        }
        const bool named = type == kDefaultBlock || (type == kNamedBlock && markRecord != nullptr);
        if (!named || (blockSize != kNamedHeaderSize && blockSize != 0)) break;
        if (size - at < kNamedHeaderSize) break;
        const uint8_t* name = bytes + at;
        const uint32_t length = LoadLittleEndian32(bytes + at + 8);
        at += kNamedHeaderSize;
        if (length > size - at) break;
        const Bytes data{bytes + at, length};
        at += length;
        if (!KeepNamedBlock(name, data, type == kNamedBlock, type == kNamedBlock ? &own : &defaults)) break;
    }
    if (markRecord != nullptr) return ConvertMark(MakeMark(markRecord, own, markDefaults), list, loadResult, record);
    return true;
}

}  // namespace velmora
