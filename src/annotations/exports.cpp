// Exported functions on annotation streams: counting, copying, reading and
// changing properties, inserting rectangles and pictures, asking about
// redactions, burning in, freeing. Every call parses the host's stream, works
// on the list and, when it changed something, writes a new stream; the host's
// handle and size are replaced only once the new stream is complete.
//
// The TIFF page exports that involve a page's annotations live here too,
// above both the TIFF and the annotation code: collecting a page's
// annotations from all their sources, and reading a page with its
// annotations burned in.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "annotations/annotation.h"
#include "annotations/annotation_info.h"
#include "annotations/annotation_stream.h"
#include "annotations/burn_in.h"
#include "annotations/page_annotations.h"
#include "annotations/text_fit.h"
#include "annotations/variant_value.h"
#include "frame/export_call.h"
#include "dib/dib_layout.h"
#include "dib/dib_validation.h"
#include "dib/image.h"
#include "frame/memory_handle.h"
#include "frame/progress.h"
#include "platform/platform.h"
#include "tiff/image_file_reader.h"
#include "tiff/page_decoder.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"
#include "velmora/velmora.h"

using velmora::Annotation;
using velmora::AnnotationFamily;
using velmora::AnnotationList;
using velmora::ErrorRecord;
using velmora::ExportCall;
using velmora::TiffFile;

namespace {

bool Refuse(ErrorRecord* record, uint32_t code) {
    velmora::SetRecordError(record, code, 0);
    return false;
}

// A host's stream locked for reading for the length of one call.
class LockedBlock {
public:
    explicit LockedBlock(HGLOBAL handle)
        : handle_(handle), bytes_(static_cast<const uint8_t*>(velmora::platform::MemLock(handle))) {}
    ~LockedBlock() {
        if (bytes_ != nullptr) velmora::platform::MemUnlock(handle_);
    }
    LockedBlock(const LockedBlock&) = delete;
    LockedBlock& operator=(const LockedBlock&) = delete;
    const uint8_t* bytes() const { return bytes_; }
    size_t size() const { return velmora::platform::MemSize(handle_); }

private:
    HGLOBAL handle_;
    const uint8_t* bytes_;
};

// The stated size checked against the block, then `work` on the bytes.
template <typename Work>
bool WithStream(HGLOBAL handle, DWORD size, ErrorRecord* record, Work work) {
    if (record->failed()) return false;
    if (size < velmora::kStreamHeaderSize) return Refuse(record, velmora::kErrBadAnnotationData);
    LockedBlock block(handle);
    if (size > block.size()) return Refuse(record, velmora::kErrBadAnnotationData);
    if (block.bytes() == nullptr) return Refuse(record, velmora::kErrInvalidHandle);
    return work(block.bytes(), static_cast<size_t>(size));
}

bool Load(HGLOBAL handle, DWORD size, AnnotationList* list, ErrorRecord* record) {
    return WithStream(handle, size, record, [&](const uint8_t* bytes, size_t length) {
        return velmora::ReadAnnotationStream(bytes, length, list, nullptr, record);
    });
}

// Writes the list and replaces the host's stream with it.
bool Store(const AnnotationList& list, HGLOBAL* handle, DWORD* size, ErrorRecord* record) {
    uint32_t written = 0;
    HGLOBAL stream = velmora::WriteAnnotationStream(list, false, &written, record);
    if (stream == nullptr) return false;
    velmora::FreeHandle(handle);
    *handle = stream;
    *size = written;
    return true;
}

// Property names are compared without regard to case.
bool SameName(const char* name, const char* wanted) {
    for (; *name != 0 && *wanted != 0; ++name, ++wanted) {
        char a = *name, b = *wanted;
        if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
        if (b >= 'A' && b <= 'Z') b = static_cast<char>(b - 'A' + 'a');
        if (a != b) return false;
    }
    return *name == *wanted;
}

// A colour a host gives: none, or 0x00BBGGRR with the highlighter bit allowed
// when `highlighter` is.
bool IsColor(uint32_t color, bool highlighter) {
    return color == velmora::kColorNone || (color >> 24) == 0 || ((color >> 24) == 1 && highlighter);
}

constexpr uint16_t kMaxBorderStyle = VELMORA_BORDER_STYLE_MAX;

void SetBorderStyle(velmora::RectangleFields* r, uint16_t style) {
    if (style == 0) {
        r->borderWidth = 0;
        r->borderColor = velmora::kColorNone;
    } else if (r->borderStyle == 0) {
        r->borderWidth = 1;
        r->borderColor = 0;
    }
    r->borderStyle = style;
}

bool GetProperty(const Annotation& a, const char* name, VARIANT* value, ErrorRecord* record) {
    std::memset(value, 0, sizeof *value);
    if (SameName(name, VELMORA_PROPERTY_TYPE)) {
        value->vt = VT_UI1;
        value->bVal = velmora::AnnotationTypeCode(a);
        return true;
    }
    if (a.family != AnnotationFamily::Rectangle) return Refuse(record, velmora::kErrUnknownProperty);
    const velmora::RectangleFields& r = a.rectangle;
    const bool background = r.backColor != velmora::kColorNone;
    if (SameName(name, VELMORA_PROPERTY_BORDER_STYLE)) {
        value->vt = VT_UI1;
        value->bVal = static_cast<BYTE>(r.borderStyle);
    } else if (SameName(name, VELMORA_PROPERTY_HAS_BACKGROUND)) {
        value->vt = VT_BOOL;
        value->boolVal = background ? VARIANT_TRUE : VARIANT_FALSE;
    } else if (SameName(name, VELMORA_PROPERTY_BACK_COLOR_TRANSPARENT)) {
        if (!background) return Refuse(record, velmora::kErrInvalidParameter);
        value->vt = VT_BOOL;
        value->boolVal = (r.backColor & velmora::kColorHighlighter) != 0 ? VARIANT_TRUE : VARIANT_FALSE;
    } else {
        return Refuse(record, velmora::kErrUnknownProperty);
    }
    return true;
}

// The fields the properties other than "Text" change, to tell whether a
// change changed anything.
struct ChangeableFields {
    uint32_t numbers[9];
    char16_t fontFace[32];

    static ChangeableFields Of(const velmora::RectangleFields& r) {
        ChangeableFields f = {{r.borderColor, r.borderStyle, r.borderWidth, r.backColor, r.option2, r.textColor,
                               r.textSize, r.styleWord, r.backColor2},
                              {}};
        std::memcpy(f.fontFace, r.fontFace, sizeof f.fontFace);
        return f;
    }
    bool Same(const ChangeableFields& other) const {
        return std::memcmp(numbers, other.numbers, sizeof numbers) == 0 &&
               std::memcmp(fontFace, other.fontFace, sizeof fontFace) == 0;
    }
};

// Changes one property of a rectangle-and-text annotation; *changed tells
// whether anything is different afterwards.
bool SetProperty(Annotation* a, const char* name, const VARIANT& value, bool* changed, ErrorRecord* record) {
    using velmora::VariantNumber;
    *changed = false;
    if (a->family != AnnotationFamily::Rectangle) return Refuse(record, velmora::kErrUnknownProperty);
    velmora::RectangleFields& r = a->rectangle;
    const ChangeableFields before = ChangeableFields::Of(r);
    const bool background = r.backColor != velmora::kColorNone;
    int64_t n = 0;
    if (SameName(name, VELMORA_PROPERTY_BORDER_STYLE)) {
        if (!VariantNumber(value, VT_I4, &n, record)) return false;
        if (n < 0 || n > kMaxBorderStyle) return Refuse(record, velmora::kErrInvalidParameter);
        SetBorderStyle(&r, static_cast<uint16_t>(n));
    } else if (SameName(name, VELMORA_PROPERTY_HAS_BACKGROUND)) {
        if (!VariantNumber(value, VT_BOOL, &n, record)) return false;
        if (n == 0) r.backColor = velmora::kColorNone;
        if (n != 0 && !background) r.backColor = 0;
    } else if (SameName(name, VELMORA_PROPERTY_BACK_COLOR)) {
        if (!VariantNumber(value, VT_I4, &n, record)) return false;
        if (!IsColor(static_cast<uint32_t>(n), true) || static_cast<uint32_t>(n) == velmora::kColorNone) {
            return Refuse(record, velmora::kErrInvalidParameter);
        }
        r.backColor = static_cast<uint32_t>(n);
    } else if (SameName(name, VELMORA_PROPERTY_BACK_COLOR_TRANSPARENT)) {
        if (!VariantNumber(value, VT_BOOL, &n, record)) return false;
        if (!background) return Refuse(record, velmora::kErrInvalidParameter);
        r.backColor = n != 0 ? r.backColor | velmora::kColorHighlighter : r.backColor & ~velmora::kColorHighlighter;
    } else if (SameName(name, VELMORA_PROPERTY_BACK_STYLE)) {
        if (!VariantNumber(value, VT_I4, &n, record)) return false;
        if (n < 0 || n > VELMORA_BACK_STYLE_MAX || !background) return Refuse(record, velmora::kErrInvalidParameter);
        r.styleWord = (r.styleWord & ~0x70u) | static_cast<uint32_t>(n) << 4;
        if (r.backColor2 == velmora::kColorNone) r.backColor2 = 0xFFFFFF;
    } else if (SameName(name, VELMORA_PROPERTY_BACK_COLOR2)) {
        if (!VariantNumber(value, VT_I4, &n, record)) return false;
        if (r.backStyle() == 0 || !IsColor(static_cast<uint32_t>(n), true)) {
            return Refuse(record, velmora::kErrInvalidParameter);
        }
        r.backColor2 = static_cast<uint32_t>(n);
    } else if (SameName(name, VELMORA_PROPERTY_TEXT)) {
        velmora::AnnotationText text;
        if (!velmora::VariantText(value, &text, record)) return false;
        *changed = !r.text.Equals(text.c_str());
        return r.text.CopyFrom(text, record);
    } else if (SameName(name, VELMORA_PROPERTY_TEXT_COLOR)) {
        if (!VariantNumber(value, VT_I4, &n, record)) return false;
        if (!IsColor(static_cast<uint32_t>(n), true)) return Refuse(record, velmora::kErrInvalidParameter);
        r.textColor = static_cast<uint32_t>(n);
    } else if (SameName(name, VELMORA_PROPERTY_TEXT_STYLE)) {
        if (!VariantNumber(value, VT_I4, &n, record)) return false;
        if (n < 0 || n > 255) return Refuse(record, velmora::kErrInvalidParameter);
        r.option2 = static_cast<uint8_t>(n);
    } else if (SameName(name, VELMORA_PROPERTY_TEXT_SIZE)) {
        if (!VariantNumber(value, VT_I2, &n, record)) return false;
        r.textSize = static_cast<uint16_t>(n);
    } else if (SameName(name, VELMORA_PROPERTY_TEXT_FONT)) {
        velmora::AnnotationText text;
        if (!velmora::VariantText(value, &text, record)) return false;
        char16_t face[32] = {};
        std::memcpy(face, text.c_str(), (text.length() < 31 ? text.length() : 31) * sizeof(char16_t));
        std::memcpy(r.fontFace, face, sizeof face);
    } else {
        return Refuse(record, velmora::kErrUnknownProperty);
    }
    *changed = !before.Same(ChangeableFields::Of(r));
    return true;
}

// A host's text buffer of `capacity` units: none, or writable for all of
// them (998).
bool HostBuffer(ExportCall& call, WCHAR* buffer, DWORD capacity) {
    if (capacity == 0) return true;
    const uint64_t bytes = uint64_t{capacity} * sizeof(WCHAR);
    if (bytes != static_cast<size_t>(bytes)) return ExportCall::Fail(velmora::kErrNoAccess);
    return call.Writable(buffer, static_cast<size_t>(bytes));
}

// Copies `length` units and a terminator into a host's buffer of `capacity`
// units when they fit, else leaves it empty; returns `length`. A list of
// NUL-terminated names gets the empty name that ends it this way.
DWORD CopyToHost(const char16_t* units, size_t length, WCHAR* buffer, DWORD capacity) {
    if (capacity == 0) return static_cast<DWORD>(length);
    if (length >= capacity) {
        buffer[0] = 0;
    } else {
        if (length != 0) std::memcpy(buffer, units, length * sizeof(WCHAR));
        buffer[length] = 0;
    }
    return static_cast<DWORD>(length);
}

// The annotation at `index`, or null after refusing an index past the last
// with 2.
Annotation* AnnotationAt(const AnnotationList& list, DWORD index, ErrorRecord* record) {
    if (index < list.size()) return list.at(index);
    Refuse(record, velmora::kErrFileNotFound);
    return nullptr;
}

// The host's stream an insert extends: none (a new stream is made), or a
// live block stating at least a header. False after refusing it; the call
// is then finished.
bool StreamToExtend(ExportCall& call, HGLOBAL stream, DWORD size) {
    if (stream == nullptr) return true;
    if (!call.Handle(stream)) return false;
    if (size >= velmora::kStreamHeaderSize) return true;
    Refuse(&call.record, velmora::kErrBadAnnotationData);
    call.Finish();
    return false;
}

// Appends `a` (taken over, freed on failure) to the host's stream, which is
// replaced only once the new one is complete; the new annotation's index,
// or -1.
LONG AppendToStream(Annotation* a, HGLOBAL* annotations, LPDWORD size, ErrorRecord* record) {
    AnnotationList list;
    if (*annotations != nullptr && !Load(*annotations, *size, &list, record)) {
        velmora::DeleteAnnotation(a);
        return -1;
    }
    const LONG index = static_cast<LONG>(list.size());
    return list.Append(a, record) && Store(list, annotations, size, record) ? index : -1;
}

// ---- Inserting -------------------------------------------------------------------

bool Readable(const void* pointer, size_t bytes, ErrorRecord* record) {
    return velmora::platform::IsReadableMemory(pointer, bytes) || Refuse(record, velmora::kErrNoAccess);
}

// A host's string (narrow in the system code page, or UTF-16) of at most
// `limit` characters; null gives the empty text.
bool HostText(const void* text, bool wide, size_t limit, velmora::AnnotationText* out, ErrorRecord* record) {
    if (text == nullptr) return true;
    if (wide) {
        const char16_t* units = static_cast<const char16_t*>(text);
        if (!velmora::platform::IsReadableString(units)) return Refuse(record, velmora::kErrNoAccess);
        size_t length = 0;
        while (length < limit && units[length] != 0) ++length;
        return out->Assign(units, length, record);
    }
    const char* narrow = static_cast<const char*>(text);
    if (!velmora::platform::IsReadableString(narrow)) return Refuse(record, velmora::kErrNoAccess);
    if (!out->AssignNarrow(narrow, std::strlen(narrow), record)) return false;
    if (out->length() > limit) return out->Assign(out->c_str(), limit, record);
    return true;
}

// A double-NUL-terminated list of narrow strings that ends inside its block.
bool CheckStringList(HGLOBAL list, ErrorRecord* record) {
    if (!velmora::platform::IsValidHandle(list)) return Refuse(record, velmora::kErrInvalidHandle);
    LockedBlock block(list);
    const size_t size = block.size();
    for (size_t i = 0; i + 1 < size; ++i) {
        if (block.bytes()[i] == 0 && block.bytes()[i + 1] == 0) return true;
    }
    return Refuse(record, velmora::kErrInvalidParameter);
}

bool ReadSystemTime(const SYSTEMTIME* time, SYSTEMTIME* out, ErrorRecord* record) {
    if (!Readable(time, sizeof *time, record)) return false;
    *out = *time;
    return true;
}

constexpr uint32_t kUnset = 0xFFFFFFFFu;
constexpr uint16_t kRectangleSizes[] = {VELMORA_INSERT_ANNOTATION_INFO_SIZE_V1, VELMORA_INSERT_ANNOTATION_INFO_SIZE_V2,
                                        VELMORA_INSERT_ANNOTATION_INFO_SIZE_V3, VELMORA_INSERT_ANNOTATION_INFO_SIZE_V4,
                                        VELMORA_INSERT_ANNOTATION_INFO_SIZE_V5, VELMORA_INSERT_ANNOTATION_INFO_SIZE_V6,
                                        VELMORA_INSERT_ANNOTATION_INFO_SIZE_V7};
constexpr uint16_t kPictureSizes[] = {VELMORA_INSERT_PICTURE_INFO_SIZE_V1, VELMORA_INSERT_PICTURE_INFO_SIZE_V2,
                                      VELMORA_INSERT_PICTURE_INFO_SIZE_V3};
constexpr size_t kPictureStringListSize =
    offsetof(VelmoraInsertPictureInfo, stringList) + sizeof(VelmoraInsertPictureInfo::stringList);

template <size_t count>
bool CheckedSize(const void* host, const uint16_t (&sizes)[count], uint16_t* size, ErrorRecord* record) {
    if (!Readable(host, sizeof(WORD), record)) return false;
    std::memcpy(size, host, sizeof *size);
    bool listed = false;
    for (uint16_t s : sizes) listed = listed || s == *size;
    return (listed || Refuse(record, velmora::kErrInvalidParameter)) && Readable(host, *size, record);
}

velmora::AnnotationRect RectOf(const RECT& rect) {
    return {static_cast<int32_t>(rect.left), static_cast<int32_t>(rect.top), static_cast<int32_t>(rect.right),
            static_cast<int32_t>(rect.bottom)};
}

bool IsRightAngle(uint32_t degrees) { return degrees == 0 || degrees == 90 || degrees == 180 || degrees == 270; }

// The rectangle-and-text annotation an insert record describes.
Annotation* RectangleFromRecord(const void* host, ErrorRecord* record) {
    uint16_t size;
    if (!CheckedSize(host, kRectangleSizes, &size, record)) return nullptr;
    VelmoraInsertAnnotationInfo in{};
    std::memcpy(&in, host, size);
    if (size <= offsetof(VelmoraInsertAnnotationInfo, backColor2)) in.backColor2 = kUnset;
    if (size <= offsetof(VelmoraInsertAnnotationInfo, thirdColor)) in.thirdColor = kUnset;
    const bool loose = in.redactionKind == 2;  // the checks a second-kind redaction skips
    const bool wide = (in.insertFlags & VELMORA_INSERT_WIDE_TEXT) != 0;
    const bool fit = (in.insertFlags & VELMORA_INSERT_SIZE_TO_FIT) != 0;
    const uint32_t rect[4] = {static_cast<uint32_t>(in.rect.left), static_cast<uint32_t>(in.rect.top),
                              static_cast<uint32_t>(in.rect.right), static_cast<uint32_t>(in.rect.bottom)};
    bool valid = in.redactionKind <= 2 && (in.option2 & 0xA0) != 0xA0 && IsColor(in.backColor, !loose) &&
                 IsColor(in.thirdColor, !loose) && in.backStyle <= VELMORA_BACK_STYLE_MAX &&
                 (in.backStyle == 0 || (in.backColor2 >> 24) == 0) && in.fitMode <= VELMORA_FIT_MODE_MAX &&
                 (in.insertFlags & ~VELMORA_INSERT_FLAGS_VALID) == 0 && rect[0] != kUnset && rect[1] != kUnset;
    if (!loose) {
        valid = valid && in.borderStyle <= kMaxBorderStyle && in.option1 == 0 && IsColor(in.borderColor, true) &&
                IsColor(in.textColor, true) && IsRightAngle(in.textRotation);
    }
    if (!fit) valid = valid && in.fitMode == 0 && rect[2] != kUnset && rect[3] != kUnset;
    if (!valid) return Refuse(record, velmora::kErrInvalidParameter), nullptr;

    velmora::AnnotationText font, text;
    SYSTEMTIME created;
    const bool timed = (in.insertFlags & VELMORA_INSERT_CREATION_TIME) != 0;
    if ((!loose && !HostText(in.fontName, wide, 31, &font, record)) || !HostText(in.text, wide, 256, &text, record) ||
        ((in.insertFlags & VELMORA_INSERT_EXEMPTION_CODES) != 0 && !CheckStringList(in.exemptionCodes, record)) ||
        (timed && !ReadSystemTime(in.created, &created, record))) {
        return nullptr;
    }
    if (fit && (size < VELMORA_INSERT_ANNOTATION_INFO_SIZE_V6 || in.pageWidth <= 0 || in.pageHeight <= 0 ||
                !velmora::platform::IsReadableMemory(in.measure, sizeof *in.measure) || in.measure->values[0] == 0 ||
                in.measure->values[1] == 0 || in.measure->values[2] == 0 || in.measure->values[3] == 0)) {
        return Refuse(record, velmora::kErrInvalidParameter), nullptr;
    }
    // Redactions and exemption codes are not inserted through this call.
    if (in.redactionKind != 0 || (in.insertFlags & VELMORA_INSERT_EXEMPTION_CODES) != 0) {
        return Refuse(record, velmora::kErrInvalidParameter), nullptr;
    }

    Annotation* a = velmora::NewAnnotation(AnnotationFamily::Rectangle, timed ? &created : nullptr, record);
    if (a == nullptr) return nullptr;
    a->nodeFlags = velmora::kNodeFontFlag;
    velmora::RectangleFields& r = a->rectangle;
    if (in.borderColor != kUnset && in.borderStyle != 0 && in.borderWidth != 0) {
        r.borderStyle = in.borderStyle;
        r.borderWidth = in.borderWidth;
        r.borderColor = in.borderColor;
    }
    r.option1 = in.option1;
    r.option2 = in.option2;
    r.textSize = in.textSize;
    r.textColor = in.textColor;
    std::memcpy(r.fontFace, font.c_str(), font.length() * sizeof(char16_t));
    r.rect = RectOf(in.rect);
    r.backColor = in.backColor;
    r.styleWord = in.backStyle << 4;
    r.backColor2 = in.backColor2;
    r.thirdColor = in.thirdColor;
    r.flagByte = in.flagByte;
    r.textRotation = in.textRotation;
    const velmora::TextFit sizing{in.measure, static_cast<uint32_t>(in.fitMode), static_cast<uint32_t>(in.fitParameter),
                                  static_cast<int32_t>(in.pageWidth), static_cast<int32_t>(in.pageHeight)};
    if (!r.text.CopyFrom(text, record) ||
        (fit && !velmora::FitRectangleToText(r.text.c_str(), r.textSize, r.textRotation, sizing, &r.rect, record))) {
        velmora::DeleteAnnotation(a);
        return nullptr;
    }
    return a;
}

// A copy of the first `size` bytes of a host's block: the picture as a DIB.
HGLOBAL CopyPicture(HGLOBAL data, DWORD size, ErrorRecord* record) {
    HGLOBAL copy = velmora::AllocHandle(size, 0, record);
    if (copy == nullptr) return nullptr;
    LockedBlock from(data);
    std::memcpy(velmora::platform::MemLock(copy), from.bytes(), size);
    velmora::platform::MemUnlock(copy);
    return copy;
}

// The picture annotation an insert record describes.
Annotation* PictureFromRecord(const void* host, ErrorRecord* record) {
    uint16_t size;
    if (!CheckedSize(host, kPictureSizes, &size, record)) return nullptr;
    VelmoraInsertPictureInfo in{};
    std::memcpy(&in, host, size);
    const bool fromMemory = (in.flags & VELMORA_PICTURE_FROM_MEMORY) != 0;
    const bool timed = (in.flags & VELMORA_PICTURE_CREATION_TIME) != 0;
    const bool strings = (in.flags & VELMORA_PICTURE_STRING_LIST) != 0;
    const uint32_t o = in.orientation;
    bool valid =
        in.flags < 64 && static_cast<uint32_t>(in.rect.right) != kUnset &&
        static_cast<uint32_t>(in.rect.bottom) != kUnset && (fromMemory || o == 1 || o == 3 || o == 6 || o == 8) &&
        (!fromMemory || size >= VELMORA_INSERT_PICTURE_INFO_SIZE_V2) && (!strings || size >= kPictureStringListSize) &&
        (!timed || size >= VELMORA_INSERT_PICTURE_INFO_SIZE_V3);
    if (!valid) return Refuse(record, velmora::kErrInvalidParameter), nullptr;
    velmora::AnnotationText name;
    SYSTEMTIME created;
    if ((!fromMemory && !HostText(in.fileName, false, SIZE_MAX, &name, record)) ||
        (timed && !ReadSystemTime(in.created, &created, record))) {
        return nullptr;
    }
    if (fromMemory) {
        if (!velmora::platform::IsValidHandle(in.pictureData))
            return Refuse(record, velmora::kErrInvalidHandle), nullptr;
        if (velmora::platform::MemSize(in.pictureData) < in.pictureDataSize) {
            return Refuse(record, velmora::kErrInvalidParameter), nullptr;
        }
    }
    // String lists are checked, then refused: this call inserts none.
    if (strings) {
        if (CheckStringList(in.stringList, record)) Refuse(record, velmora::kErrInvalidParameter);
        return nullptr;
    }

    Annotation* a = velmora::NewAnnotation(AnnotationFamily::Image, timed ? &created : nullptr, record);
    if (a == nullptr) return nullptr;
    a->nodeFlags = velmora::kNodeFontFlag;
    velmora::ImageFields& m = a->image;
    m.rect = RectOf(in.rect);
    m.rotation = velmora::RotationFromOrientation(in.orientation);
    m.style = in.flags;
    m.userValue = in.userValue;
    bool ok = m.fileName.CopyFrom(name, record);
    if (ok && fromMemory && in.pictureDataSize != 0) {
        m.dib = CopyPicture(in.pictureData, in.pictureDataSize, record);
        ok = m.dib != nullptr;
    } else if (ok && !name.empty()) {
        m.dib =
            velmora::ReadImageFileDib(std::u16string(name.c_str(), name.length()), 1, 0, 0, nullptr, nullptr, record);
        ok = m.dib != nullptr;
    }
    if (!ok) {
        velmora::DeleteAnnotation(a);
        return nullptr;
    }
    return a;
}

// Burns `list` into the DIB; with redaction-only burning, writes what is left
// of the list over the start of the host's block and replaces *size (0 when
// nothing is left). The block is never resized: the rewritten stream is
// never larger than the old one.
HGLOBAL BurnIn(AnnotationList* list, HGLOBAL stream, DWORD* size, const velmora::BurnInRequest& request,
               ErrorRecord* record) {
    bool removed = false;
    HGLOBAL result = velmora::BurnInAnnotationList(list, request, &removed, record);
    if (result == nullptr || (request.flags & velmora::kBurnInRedactionsOnly) == 0 || !removed) return result;
    uint32_t written = 0;
    HGLOBAL rewritten = list->empty() ? nullptr : velmora::WriteAnnotationStream(*list, false, &written, record);
    if (!list->empty() && rewritten == nullptr) {
        if (result != velmora::BurnedInPlace()) velmora::FreeImage(&result);
        return nullptr;
    }
    if (rewritten != nullptr) {
        if (written <= *size) {
            std::memcpy(velmora::platform::MemLock(stream), velmora::platform::MemLock(rewritten), written);
            velmora::platform::MemUnlock(rewritten);
            velmora::platform::MemUnlock(stream);
        }
        velmora::FreeHandle(&rewritten);
    }
    *size = written;
    return result;
}

constexpr DWORD kReadFlagFast = 0x1;
constexpr DWORD kReadFlagBurnIn = 0x2;

// Burns the page's own annotation block into the page as stored, before it
// is turned upright; the context holds the burn-in flags. A burn-in that
// fails fails the read: a page whose redactions could not be burned is
// never handed out.
void BurnOwnAnnotations(const velmora::TiffPageInfo& info, HGLOBAL* dib, void* context, ErrorRecord* record) {
    if (info.annotations.handle == nullptr) return;
    const uint32_t flags = *static_cast<const uint32_t*>(context);
    AnnotationList list;
    DWORD size = info.annotations.size;
    HGLOBAL burned = nullptr;
    if (Load(info.annotations.handle, size, &list, record)) {
        velmora::ImageLock lock(*dib);
        const velmora::BurnInRequest request = {0, *dib, lock.header(), flags | velmora::kBurnInKeepImage};
        burned = BurnIn(&list, info.annotations.handle, &size, request, record);
    }
    if (burned != nullptr && burned != velmora::BurnedInPlace()) {
        velmora::FreeImage(dib);
        *dib = burned;
    }
}

}  // namespace

LONG VELMORA_API GetVelmoraAnnotationsCount(HGLOBAL annotations, DWORD size) {
    ExportCall call;
    if (!call.Gate()) return -1;
    if (annotations == nullptr) return 0;
    if (!call.Handle(annotations)) return -1;
    if (size < velmora::kStreamHeaderSize) {
        Refuse(&call.record, velmora::kErrBadAnnotationData);
        call.Finish();
        return -1;
    }
    LockedBlock block(annotations);
    if (!call.Value(size <= block.size())) return -1;
    int64_t count = 0;
    velmora::WalkAnnotationRecords(
        block.bytes(), size,
        [&](uint32_t type, const uint8_t*, size_t) {
            // Narrow group records are not annotations; the wide ones are
            // counted, as hosts have always seen them counted.
            if (type == velmora::kGroupRecordAnsi) --count;
            return true;
        },
        &call.record);
    if (!call.Finish()) return -1;
    return static_cast<LONG>(count + velmora::LoadLittleEndian32(block.bytes() + 28));
}

HGLOBAL VELMORA_API GetVelmoraAnnotationData(HGLOBAL annotations, LPDWORD size, BYTE reserved) {
    ExportCall call;
    if (!call.Gate() || !call.Handle(annotations) || !call.Readable(size, sizeof *size) || !call.Value(reserved == 0)) {
        return nullptr;
    }
    LockedBlock block(annotations);
    const DWORD stated = *size;
    if (!call.Value(block.bytes() != nullptr && block.size() >= velmora::kStreamHeaderSize && stated <= block.size() &&
                    velmora::LoadLittleEndian32(block.bytes()) == stated)) {
        return nullptr;
    }
    HGLOBAL copy = velmora::AllocHandle(stated, 0, &call.record);
    if (copy != nullptr) {
        std::memcpy(velmora::platform::MemLock(copy), block.bytes(), stated);
        velmora::platform::MemUnlock(copy);
    }
    return call.Finish() ? copy : nullptr;
}

BOOL VELMORA_API GetVelmoraAnnotationProperty(HGLOBAL annotations, DWORD size, DWORD index, LPCSTR name,
                                              VARIANT* value) {
    ExportCall call;
    if (!call.Gate() || !call.Handle(annotations) || !call.String(name) || !call.Writable(value, sizeof *value)) {
        return 0;
    }
    AnnotationList list;
    if (Load(annotations, size, &list, &call.record)) {
        const Annotation* a = AnnotationAt(list, index, &call.record);
        if (a != nullptr) {
            GetProperty(*a, name, value, &call.record);
        }
    }
    return call.Finish();
}

BOOL VELMORA_API GetVelmoraAnnotationInfo(HGLOBAL annotations, DWORD size, DWORD index, VelmoraAnnotationInfo* info) {
    ExportCall call;
    if (!call.Gate() || !call.Handle(annotations) || call.Sized(info, {DWORD{VELMORA_ANNOTATION_INFO_SIZE_V1}}) == 0 ||
        !call.Writable(info, VELMORA_ANNOTATION_INFO_SIZE_V1) || !HostBuffer(call, info->text, info->textCapacity) ||
        !HostBuffer(call, info->groups, info->groupsCapacity)) {
        return 0;
    }
    AnnotationList list;
    if (Load(annotations, size, &list, &call.record)) {
        const Annotation* a = AnnotationAt(list, index, &call.record);
        if (a != nullptr) {
            VelmoraAnnotationInfo described = *info;
            velmora::DescribeAnnotation(*a, &described);
            const velmora::AnnotationText* text = velmora::AnnotationShownText(*a);
            described.textLength = CopyToHost(text != nullptr ? text->c_str() : u"",
                                              text != nullptr ? text->length() : 0, info->text, info->textCapacity);
            described.groupsLength = CopyToHost(a->groups.data(), a->groups.size(), info->groups, info->groupsCapacity);
            *info = described;
        }
    }
    return call.Finish();
}

BOOL VELMORA_API SetVelmoraAnnotationProperty(HGLOBAL* annotations, LPDWORD size, DWORD index, LPCSTR name,
                                              const VARIANT* value) {
    ExportCall call;
    if (!call.Gate() || !call.Writable(annotations, sizeof *annotations) || !call.Handle(*annotations) ||
        !call.Writable(size, sizeof *size) || !call.String(name) || !call.Readable(value, sizeof *value)) {
        return 0;
    }
    AnnotationList list;
    if (Load(*annotations, *size, &list, &call.record)) {
        Annotation* a = AnnotationAt(list, index, &call.record);
        bool changed = false;
        if (a != nullptr && SetProperty(a, name, *value, &changed, &call.record) && changed) {
            Store(list, annotations, size, &call.record);
        }
    }
    return call.Finish();
}

LONG VELMORA_API InsertVelmoraAnnotation(HGLOBAL* annotations, LPDWORD size, DWORD mode, const void* record) {
    ExportCall call;
    if (!call.Gate() || !call.Writable(annotations, sizeof *annotations) || !call.Writable(size, sizeof *size) ||
        !call.Readable(record, sizeof(WORD))) {
        return -1;
    }
    if (!StreamToExtend(call, *annotations, *size)) return -1;
    if (!call.Value(mode == VELMORA_INSERT_RECTANGLE || mode == VELMORA_INSERT_PICTURE)) return -1;
    Annotation* a = mode == VELMORA_INSERT_RECTANGLE ? RectangleFromRecord(record, &call.record)
                                                     : PictureFromRecord(record, &call.record);
    const LONG index = a != nullptr ? AppendToStream(a, annotations, size, &call.record) : -1;
    return call.Finish() ? index : -1;
}

LONG VELMORA_API InsertVelmoraRedaction(HGLOBAL* annotations, LPDWORD size, const RECT* rect, DWORD flags) {
    ExportCall call;
    if (!call.Gate() || !call.Writable(annotations, sizeof *annotations) || !call.Writable(size, sizeof *size) ||
        !call.Readable(rect, sizeof *rect)) {
        return -1;
    }
    if (!StreamToExtend(call, *annotations, *size)) return -1;
    if (!call.Value(flags == 0 && rect->left >= 0 && rect->top >= 0 && rect->left < rect->right &&
                    rect->top < rect->bottom)) {
        return -1;
    }
    LONG index = -1;
    if (Annotation* a = velmora::NewAnnotation(AnnotationFamily::Rectangle, nullptr, &call.record)) {
        a->nodeFlags = velmora::kNodeFontFlag | velmora::kNodeRedaction;
        a->rectangle.rect = RectOf(*rect);
        a->rectangle.backColor = 0;
        index = AppendToStream(a, annotations, size, &call.record);
    }
    return call.Finish() ? index : -1;
}

LONG VELMORA_API VelmoraAnnotationsFlags(HGLOBAL annotations, DWORD size, DWORD selector) {
    ExportCall call;
    if (!call.Gate() || !call.Value(selector <= 3)) return -1;
    if (annotations == nullptr || selector == 0) return 0;
    if (!call.Handle(annotations)) return -1;
    LONG result = 0;
    WithStream(annotations, size, &call.record, [&](const uint8_t* bytes, size_t length) {
        bool redaction = false, marker = false;
        if (!velmora::StreamHasPendingRedaction(bytes, length, &redaction, &call.record)) return false;
        // The second question is asked only of streams holding redactions.
        if (!redaction) return true;
        if ((selector & VELMORA_ANNOTATIONS_HAS_REDACTIONS) != 0) result |= VELMORA_ANNOTATIONS_HAS_REDACTIONS;
        if ((selector & VELMORA_ANNOTATIONS_HAS_TEXTLESS_MARKS) != 0 &&
            velmora::StreamHasMarkerRectangle(bytes, length, &marker, &call.record) && marker) {
            result |= VELMORA_ANNOTATIONS_HAS_TEXTLESS_MARKS;
        }
        return call.record.ok();
    });
    return call.Finish() ? result : -1;
}

BOOL VELMORA_API VelmoraAnnotationsHaveRedactions(HGLOBAL annotations, DWORD size) {
    ExportCall call;
    if (!call.Gate()) return 0;
    if (annotations == nullptr) return 0;
    if (!call.Handle(annotations)) return 0;
    bool found = false;
    WithStream(annotations, size, &call.record, [&](const uint8_t* bytes, size_t length) {
        return velmora::StreamHasPendingRedaction(bytes, length, &found, &call.record);
    });
    return call.Finish() && found ? 1 : 0;
}

BOOL VELMORA_API DestroyVelmoraAnnotations(HGLOBAL annotations) {
    ExportCall call;
    if (!call.Gate()) return 0;
    if (annotations == nullptr) return 1;
    if (!call.Handle(annotations)) return 0;
    velmora::FreeHandle(&annotations);
    return 1;
}

HGLOBAL VELMORA_API BurnInVelmoraAnnotationsEx(VelmoraBurnInInfo* info) {
    ExportCall call;
    if (!call.Gate() || !call.Writable(info, sizeof(WORD))) return nullptr;
    if (!call.Value(info->size == VELMORA_BURN_IN_INFO_SIZE_V1) || !call.Writable(info, VELMORA_BURN_IN_INFO_SIZE_V1) ||
        !call.Value(IsRightAngle(info->rotation)) || !call.Handle(info->annotations) || !call.Handle(info->dib) ||
        !call.Value((info->flags & ~0xFu) == 0)) {
        return nullptr;
    }
    // The header is checked before the rows that follow it are found.
    const BITMAPINFOHEADER* header = info->header;
    uint32_t dibError = velmora::CheckDibHeader(header, true);
    if (dibError == 0) {
        dibError = velmora::CheckDib(nullptr, velmora::PackedBits(header), header, velmora::DibAccess::ReadWrite);
    }
    if (dibError != 0) {
        ExportCall::Fail(dibError);
        return nullptr;
    }
    AnnotationList list;
    HGLOBAL result = nullptr;
    DWORD size = info->annotationsSize;
    if (Load(info->annotations, size, &list, &call.record)) {
        const velmora::BurnInRequest request = {info->rotation, info->dib, info->header, info->flags};
        result = BurnIn(&list, info->annotations, &size, request, &call.record);
    }
    if (!call.Finish()) return nullptr;
    info->annotationsSize = size;
    return result;
}

HGLOBAL VELMORA_API BurnInVelmoraAnnotations(HGLOBAL annotations, UINT_PTR size, HGLOBAL dib, LPBITMAPINFOHEADER header,
                                             DWORD flags) {
    ExportCall call;
    if (!call.Gate()) return nullptr;
    DWORD* sizeOut = nullptr;
    VelmoraBurnInInfo info = {};
    info.size = VELMORA_BURN_IN_INFO_SIZE_V1;
    info.annotations = annotations;
    if ((flags & VELMORA_BURN_IN_REDACTIONS_ONLY) != 0) {
        sizeOut = reinterpret_cast<DWORD*>(size);
        if (!call.Writable(sizeOut, sizeof *sizeOut)) return nullptr;
        info.annotationsSize = *sizeOut;
    } else {
        info.annotationsSize = static_cast<DWORD>(size);
    }
    info.dib = dib;
    info.header = header;
    info.flags = flags;
    HGLOBAL result = BurnInVelmoraAnnotationsEx(&info);
    if (result != nullptr && sizeOut != nullptr) *sizeOut = info.annotationsSize;
    return result;
}

BOOL VELMORA_API GetVelmoraTIFFAnnotationsEx(HGLOBAL handle, DWORD page, DWORD sources, HGLOBAL* annotations,
                                             DWORD* size) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr || !call.Value(page != 0) ||
        !call.Value(sources != 0 && (sources & ~DWORD{VELMORA_ANNOTATION_SOURCES_ALL}) == 0) ||
        !call.Out(annotations) || !call.Out(size)) {
        return 0;
    }
    HGLOBAL stream = nullptr;
    uint32_t streamSize = 0;
    if (velmora::PageAnnotationStream(tiff, page, sources, &stream, &streamSize, &call.record)) {
        *annotations = stream;
        *size = streamSize;
    }
    return call.Finish();
}

BOOL VELMORA_API GetVelmoraTIFFAnnotations(HGLOBAL handle, DWORD page, HGLOBAL* annotations, DWORD* size) {
    return GetVelmoraTIFFAnnotationsEx(handle, page, VELMORA_ANNOTATION_SOURCES_ALL, annotations, size);
}

HGLOBAL VELMORA_API ReadVelmoraOpenTIFFDIBEx(const VelmoraReadTIFFDIB* request) {
    ExportCall call;
    if (!call.Gate()) return nullptr;
    const WORD size = call.Sized(request, {WORD{VELMORA_READ_TIFF_DIB_SIZE_V1}, WORD{VELMORA_READ_TIFF_DIB_SIZE_V2}});
    if (size == 0) return nullptr;
    TiffFile* tiff = call.Object(request->tiff, velmora::TiffFromHandle);
    if (tiff == nullptr || !call.Value(request->page != 0)) return nullptr;
    if (!call.Progress(request->progress)) return nullptr;
    const DWORD flags = request->flags;
    if (!call.Value(flags <= (kReadFlagFast | kReadFlagBurnIn))) return nullptr;
    const bool burn = (flags & kReadFlagBurnIn) != 0;
    if (burn && !call.Value(size == VELMORA_READ_TIFF_DIB_SIZE_V2 && request->burnInOptions < 16)) return nullptr;
    velmora::ProgressReporter progress(request->progress, request->progressUser);
    uint32_t burnOptions = request->burnInOptions;
    const velmora::PageStep step = {velmora::kFieldAnnotations, BurnOwnAnnotations, &burnOptions};
    HGLOBAL dib = velmora::ReadUprightPage(tiff, request->page, (flags & kReadFlagFast) ? velmora::kReadFast : 0,
                                           &progress, &call.record, burn ? &step : nullptr);
    if (!call.Finish()) {
        velmora::FreeImage(&dib);
        return nullptr;
    }
    return dib;
}
