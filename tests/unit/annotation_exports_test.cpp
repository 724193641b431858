// The annotation exports: one table of refusals with their error codes (the
// host's stream stays as it was), then the calls that succeed.
#include <cstring>
#include <functional>

#include <gtest/gtest.h>

#include "annotations/annotation.h"
#include "annotations/annotation_stream.h"
#include "frame/error_record.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"
#include "velmora/velmora.h"

namespace velmora {
namespace {

VelmoraInsertAnnotationInfo Rectangle(const char* text) {
    VelmoraInsertAnnotationInfo info{};
    info.size = VELMORA_INSERT_ANNOTATION_INFO_SIZE_V4, info.borderStyle = 1, info.borderWidth = 2;
    info.borderColor = 0xFF, info.fontName = "Sans", info.rect = {10, 20, 110, 70}, info.text = text;
    info.backColor = info.thirdColor = VELMORA_COLOR_NONE;
    return info;
}

VARIANT Number(VARTYPE type, LONG value) {
    VARIANT v{};
    v.vt = type;
    v.lVal = value;
    return v;
}

// A stream of the given annotations, written by the library.
HGLOBAL Stream(std::initializer_list<Annotation*> annotations, DWORD* size) {
    ErrorRecord record;
    AnnotationList list;
    for (Annotation* a : annotations) list.Append(a, &record);
    uint32_t written = 0;
    HGLOBAL stream = WriteAnnotationStream(list, false, &written, &record);
    *size = written;
    return stream;
}

Annotation* Make(AnnotationFamily family, uint32_t flags) {
    ErrorRecord record;
    Annotation* a = NewAnnotation(family, nullptr, &record);
    a->nodeFlags = flags;
    return a;
}

TEST(AnnotationExports, RefusalsReportTheirErrorsAndLeaveTheStream) {
    HGLOBAL stream = nullptr;
    DWORD size = 0;
    VelmoraInsertAnnotationInfo plain = Rectangle("note");
    ASSERT_EQ(InsertVelmoraAnnotation(&stream, &size, VELMORA_INSERT_RECTANGLE, &plain), 0);
    const HGLOBAL kept = stream;
    const DWORD keptSize = size;
    HGLOBAL wrongVersion = GetVelmoraAnnotationData(stream, &size, 0);
    static_cast<uint8_t*>(platform::MemLock(wrongVersion))[24] = 2;
    platform::MemUnlock(wrongVersion);

    VARIANT value{};
    const VARIANT transparent = Number(VT_BOOL, VARIANT_TRUE), style9 = Number(VT_I4, 9);
    char16_t word[] = u"thick";
    VARIANT thick{};
    thick.vt = VT_BSTR, thick.bstrVal = reinterpret_cast<BSTR>(word);
    VelmoraInsertAnnotationInfo oddSize = plain, redaction = plain, unsetEdge = plain, badColor = plain;
    oddSize.size = 50;
    redaction.size = VELMORA_INSERT_ANNOTATION_INFO_SIZE_V2;
    redaction.redactionKind = 1;
    unsetEdge.rect.right = -1;
    badColor.textColor = 0x02000000;
    VelmoraInsertPictureInfo picture{};
    picture.size = VELMORA_INSERT_PICTURE_INFO_SIZE_V1;
    picture.orientation = 2;
    picture.rect = {0, 0, 10, 10};
    DWORD tooSmall = 31;
    const RECT area = {5, 5, 50, 40}, empty = {5, 5, 5, 40};
    HGLOBAL none = nullptr;
    VelmoraAnnotationInfo info{}, oddInfo{}, noBuffer{};
    info.size = noBuffer.size = VELMORA_ANNOTATION_INFO_SIZE_V1;
    oddInfo.size = VELMORA_ANNOTATION_INFO_SIZE_V1 - 4;
    noBuffer.textCapacity = 8;
    DWORD pageSize = 0;

    constexpr uint32_t kBad = kErrBadAnnotationData;
    struct Row {
        const char* what;
        std::function<long()> call;
        long result;
        uint32_t error;
    };
    // Freed last, so that no block made since holds its value.
    HGLOBAL dead = platform::MemAlloc(GMEM_MOVEABLE, 32);
    platform::MemFree(dead);
    const Row rows[] = {
        {"count dead", [&] { return GetVelmoraAnnotationsCount(dead, 32); }, -1, 6},
        {"count 31", [&] { return GetVelmoraAnnotationsCount(stream, 31); }, -1, kBad},
        {"count long", [&] { return GetVelmoraAnnotationsCount(stream, size + 4); }, -1, 87},
        {"count v2", [&] { return GetVelmoraAnnotationsCount(wrongVersion, size); }, -1, kErrUnsupportedAnnotations},
        {"reserved", [&] { return GetVelmoraAnnotationData(stream, &size, 1) != nullptr; }, 0, 87},
        {"no size", [&] { return GetVelmoraAnnotationData(stream, nullptr, 0) != nullptr; }, 0, 998},
        {"other size", [&] { return GetVelmoraAnnotationData(stream, &tooSmall, 0) != nullptr; }, 0, 87},
        {"get index", [&] { return GetVelmoraAnnotationProperty(stream, size, 1, "Type", &value); }, 0, 2},
        {"get name", [&] { return GetVelmoraAnnotationProperty(stream, size, 0, "Shade", &value); }, 0, 1608},
        {"no name", [&] { return GetVelmoraAnnotationProperty(stream, size, 0, nullptr, &value); }, 0, 998},
        {"transparent",
         [&] { return SetVelmoraAnnotationProperty(&stream, &size, 0, "BackColorTransparent", &transparent); }, 0, 87},
        {"border 9", [&] { return SetVelmoraAnnotationProperty(&stream, &size, 0, "BorderStyle", &style9); }, 0, 87},
        {"not a number", [&] { return SetVelmoraAnnotationProperty(&stream, &size, 0, "BorderStyle", &thick); }, 0,
         0x80020005},
        {"set index", [&] { return SetVelmoraAnnotationProperty(&stream, &size, 5, "BorderStyle", &style9); }, 0, 2},
        {"mode 2", [&] { return InsertVelmoraAnnotation(&stream, &size, 2, &plain); }, -1, 87},
        {"size 50", [&] { return InsertVelmoraAnnotation(&stream, &size, 0, &oddSize); }, -1, 87},
        {"redaction", [&] { return InsertVelmoraAnnotation(&stream, &size, 0, &redaction); }, -1, 87},
        {"unset edge", [&] { return InsertVelmoraAnnotation(&stream, &size, 0, &unsetEdge); }, -1, 87},
        {"bad colour", [&] { return InsertVelmoraAnnotation(&stream, &size, 0, &badColor); }, -1, 87},
        {"orientation", [&] { return InsertVelmoraAnnotation(&stream, &size, 1, &picture); }, -1, 87},
        {"no record", [&] { return InsertVelmoraAnnotation(&stream, &size, 0, nullptr); }, -1, 998},
        {"insert 31", [&] { return InsertVelmoraAnnotation(&stream, &tooSmall, 0, &plain); }, -1, kBad},
        {"insert dead", [&] { return InsertVelmoraAnnotation(&dead, &size, 0, &plain); }, -1, 6},
        {"redact flags", [&] { return InsertVelmoraRedaction(&stream, &size, &area, 1); }, -1, 87},
        {"redact empty", [&] { return InsertVelmoraRedaction(&stream, &size, &empty, 0); }, -1, 87},
        {"redact no rect", [&] { return InsertVelmoraRedaction(&stream, &size, nullptr, 0); }, -1, 998},
        {"redact 31", [&] { return InsertVelmoraRedaction(&stream, &tooSmall, &area, 0); }, -1, kBad},
        {"redact dead", [&] { return InsertVelmoraRedaction(&dead, &size, &area, 0); }, -1, 6},
        {"selector 4", [&] { return VelmoraAnnotationsFlags(stream, size, 4); }, -1, 87},
        {"redactions long", [&] { return VelmoraAnnotationsHaveRedactions(stream, size + 4); }, 0, kBad},
        {"destroy dead", [&] { return DestroyVelmoraAnnotations(dead); }, 0, 6},
        {"count none", [&] { return GetVelmoraAnnotationsCount(none, 0); }, 0, 0},
        {"info dead", [&] { return GetVelmoraAnnotationInfo(dead, 32, 0, &info); }, 0, 6},
        {"info index", [&] { return GetVelmoraAnnotationInfo(stream, size, 1, &info); }, 0, 2},
        {"info size", [&] { return GetVelmoraAnnotationInfo(stream, size, 0, &oddInfo); }, 0, 87},
        {"info no record", [&] { return GetVelmoraAnnotationInfo(stream, size, 0, nullptr); }, 0, 998},
        {"info no buffer", [&] { return GetVelmoraAnnotationInfo(stream, size, 0, &noBuffer); }, 0, 998},
        {"info 31", [&] { return GetVelmoraAnnotationInfo(stream, 31, 0, &info); }, 0, kBad},
        {"page dead", [&] { return GetVelmoraTIFFAnnotationsEx(dead, 1, 1, &none, &pageSize); }, 0, 6},
    };
    for (const Row& row : rows) {
        SetErrorCode(0);
        EXPECT_EQ(row.call(), row.result) << row.what;
        EXPECT_EQ(LastErrorCode(), row.error) << row.what;
        EXPECT_EQ(stream, kept) << row.what;
        EXPECT_EQ(size, keptSize) << row.what;
    }
    EXPECT_EQ(GetVelmoraAnnotationsCount(stream, size), 1);
    EXPECT_EQ(info.family, 0u);  // a failed call leaves the record alone

    // A buffer too small for the text stays empty; the length tells what
    // would fit.
    WCHAR small[4] = {u'x'};
    info.text = small, info.textCapacity = 4;
    ASSERT_EQ(GetVelmoraAnnotationInfo(stream, size, 0, &info), 1);
    EXPECT_EQ(info.textLength, 4u);
    EXPECT_EQ(small[0], 0);
    DestroyVelmoraAnnotations(stream);
    DestroyVelmoraAnnotations(wrongVersion);
}

TEST(AnnotationExports, InsertedAnnotationsAnswerAndChangeTheirProperties) {
    HGLOBAL stream = nullptr;
    DWORD size = 0;
    VelmoraInsertAnnotationInfo note = Rectangle("two\nlines");
    note.size = VELMORA_INSERT_ANNOTATION_INFO_SIZE_V6;
    note.backColor = 0xFFFFFF;
    note.insertFlags = VELMORA_INSERT_SIZE_TO_FIT;
    note.rect.right = note.rect.bottom = -1;
    note.textSize = 12;
    note.fitMode = 0;
    note.pageWidth = 1000;
    note.pageHeight = 1000;
    const VelmoraTextMeasure measure = {{96, 96, 500, 1200}, 2, 0};
    note.measure = &measure;
    ASSERT_EQ(InsertVelmoraAnnotation(&stream, &size, VELMORA_INSERT_RECTANGLE, &note), 0);

    HGLOBAL bits = platform::MemAlloc(GMEM_MOVEABLE, 48);
    VelmoraInsertPictureInfo picture{};
    picture.size = VELMORA_INSERT_PICTURE_INFO_SIZE_V2;
    picture.flags = VELMORA_PICTURE_FROM_MEMORY;
    picture.orientation = 6;
    picture.rect = {0, 0, 40, 40};
    picture.pictureData = bits;
    picture.pictureDataSize = 48;
    ASSERT_EQ(InsertVelmoraAnnotation(&stream, &size, VELMORA_INSERT_PICTURE, &picture), 1);
    platform::MemFree(bits);

    // The text is 5 characters of 8 pixels by 2 lines of 19, with 2 pixels
    // around: the rectangle grows from its top left corner.
    ErrorRecord record;
    AnnotationList list;
    ASSERT_TRUE(
        ReadAnnotationStream(static_cast<const uint8_t*>(platform::MemLock(stream)), size, &list, nullptr, &record));
    platform::MemUnlock(stream);
    const AnnotationRect& rect = list.at(0)->rectangle.rect;
    EXPECT_EQ(rect.left, 10);
    EXPECT_EQ(rect.top, 20);
    EXPECT_EQ(rect.right, 10 + 5 * 8 + 4);
    EXPECT_EQ(rect.bottom, 20 + 2 * 19 + 4);
    EXPECT_EQ(list.at(1)->image.rotation, 90);

    VARIANT value{};
    ASSERT_TRUE(GetVelmoraAnnotationProperty(stream, size, 1, "Type", &value));
    EXPECT_EQ(value.vt, VT_UI1);
    EXPECT_EQ(value.bVal, VELMORA_ANNOTATION_TYPE_IMAGE);
    ASSERT_TRUE(GetVelmoraAnnotationProperty(stream, size, 0, "HasBackground", &value));
    EXPECT_EQ(value.boolVal, VARIANT_TRUE);

    // The same value keeps the stream; a new one replaces it.
    const HGLOBAL first = stream;
    const VARIANT style = Number(VT_I4, 1), text = Number(VT_I4, 42), transparent = Number(VT_BOOL, VARIANT_TRUE);
    ASSERT_TRUE(SetVelmoraAnnotationProperty(&stream, &size, 0, "BorderStyle", &style));
    EXPECT_EQ(stream, first);
    ASSERT_TRUE(SetVelmoraAnnotationProperty(&stream, &size, 0, "BackColorTransparent", &transparent));
    EXPECT_NE(stream, first);
    EXPECT_FALSE(platform::IsValidHandle(first));
    ASSERT_TRUE(SetVelmoraAnnotationProperty(&stream, &size, 0, "Text", &text));
    ASSERT_TRUE(GetVelmoraAnnotationProperty(stream, size, 0, "BackColorTransparent", &value));
    EXPECT_EQ(value.boolVal, VARIANT_TRUE);
    list.Clear();
    ASSERT_TRUE(
        ReadAnnotationStream(static_cast<const uint8_t*>(platform::MemLock(stream)), size, &list, nullptr, &record));
    platform::MemUnlock(stream);
    EXPECT_TRUE(list.at(0)->rectangle.text.Equals(u"42"));
    EXPECT_EQ(GetVelmoraAnnotationsCount(stream, size), 2);
    DestroyVelmoraAnnotations(stream);
}

TEST(AnnotationExports, CountsAndRedactionQuestionsReadTheStoredRecords) {
    ErrorRecord record;
    DWORD size = 0;
    // A wide group record counts as an annotation; a narrow one does not.
    Annotation* grouped = Make(AnnotationFamily::Ellipse, 0);
    AddAnnotationGroup(grouped, u"\u00e9t\u00e9", 3, &record);
    HGLOBAL stream = Stream({grouped, Make(AnnotationFamily::Line, 0)}, &size);
    EXPECT_EQ(GetVelmoraAnnotationsCount(stream, size), 3);
    EXPECT_EQ(VelmoraAnnotationsHaveRedactions(stream, size), 0);
    EXPECT_EQ(VelmoraAnnotationsFlags(stream, size, 3), 0);
    DestroyVelmoraAnnotations(stream);

    stream = Stream({Make(AnnotationFamily::Rectangle, kNodeMarker), Make(AnnotationFamily::Freehand, kNodeRedaction)},
                    &size);
    EXPECT_EQ(VelmoraAnnotationsHaveRedactions(stream, size), 1);
    EXPECT_EQ(VelmoraAnnotationsFlags(stream, size, 3), 3);
    EXPECT_EQ(VelmoraAnnotationsFlags(stream, size, 2), 2);
    DestroyVelmoraAnnotations(stream);

    stream = Stream({Make(AnnotationFamily::Rectangle, kNodeMarker),
                     Make(AnnotationFamily::Ellipse, kNodeRedaction | kNodeApplied)},
                    &size);
    EXPECT_EQ(VelmoraAnnotationsHaveRedactions(stream, size), 0);
    EXPECT_EQ(VelmoraAnnotationsFlags(stream, size, 3), 0);
    // A redaction inserted by the host is pending until it is burned.
    const RECT area = {5, 5, 50, 40};
    EXPECT_EQ(InsertVelmoraRedaction(&stream, &size, &area, 0), 2);
    EXPECT_EQ(VelmoraAnnotationsHaveRedactions(stream, size), 1);
    EXPECT_EQ(VelmoraAnnotationsFlags(nullptr, 0, 3), 0);
    EXPECT_EQ(DestroyVelmoraAnnotations(nullptr), 1);
    EXPECT_EQ(DestroyVelmoraAnnotations(stream), 1);
}

}  // namespace
}  // namespace velmora
