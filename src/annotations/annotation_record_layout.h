// Where each field of an annotation record lies. Every family has one list of
// fields; a record type places them either at fixed body offsets (the fixed
// types, each a longer version of the one before) or, in a tagged body, at
// the head offsets followed by the optional fields its presence mask (and,
// for rectangles, its extension word) announces, one after the other in
// increasing order of their bit. A field that a type does not hold has the
// offset kNoField: reads give its default and writes are skipped.
#pragma once

#include <cstddef>
#include <cstdint>

#include "annotations/annotation.h"

namespace velmora {

constexpr uint16_t kNoField = 0xFFFF;
constexpr size_t kMaxRecordFields = 24;

struct RecordFieldDef {
    uint8_t width;          // 1, 2 or 4 bytes
    uint16_t fixedOffset;   // in the fixed types, or kNoField
    uint16_t taggedOffset;  // a head field of the tagged types, or kNoField
    uint16_t maskBit;       // an optional field of the tagged types, or 0
    uint8_t extensionBit;   // a field the extension word announces, or 0
};

struct RecordTypeInfo {
    uint32_t type;
    AnnotationFamily family;
    bool tagged;
    uint16_t bodySize;  // the fixed body, or the tagged head
};

// Rectangle and text (types 1, 7, 12, 18, 19; tagged 22, 28).
namespace rect_field {
enum : uint8_t {
    Mask,
    BorderStyle,
    BorderWidth,
    BorderColor,
    Option1,
    Option2,
    TextSize,
    TextColor,
    FontOffset,
    Left,
    Top,
    Right,
    Bottom,
    BackColor,
    TextField,
    Attributes,
    Reserved,
    BackColor2,
    InfoRef,
    ThirdColor,
    AttachedOffset,
    Extension,
    Count
};
}
// Line (types 2, 8, 13; tagged 25, 26, 29).
namespace line_field {
enum : uint8_t {
    Mask,
    EndSize1,
    EndSize2,
    EndWord,
    Width,
    Color,
    X2,
    Y2,
    X1,
    Y1,
    TextOffset,
    Subtype,
    TextWord,
    Measurement,
    Option,
    Hidden,
    Reserved,
    InfoRef,
    Count
};
}
// Freehand (types 3, 9, 14).
namespace freehand_field {
enum : uint8_t { Style, Width, Fill, LineColor, PointsOffset, StrokeCount, Hidden, Reserved, InfoRef, Count };
}
// Image (types 4, 10, 15, 17, 20; tagged 21, 24, 27).
namespace image_field {
enum : uint8_t {
    Mask,
    Style,
    Orientation,
    Left,
    Top,
    Right,
    Bottom,
    DibOffset,
    DibSize,
    Hidden,
    Reserved,
    InfoRef,
    TextOffset,
    AttachedOffset,
    Parameter,
    Count
};
}
// Ellipse (types 5, 11, 16).
namespace ellipse_field {
enum : uint8_t { Style, Width, Outline, Left, Top, Right, Bottom, Fill, Flags, Reserved, InfoRef, Count };
}

// The type's description, or null for a type no family knows.
const RecordTypeInfo* FindRecordType(uint32_t type);
// The field list of a family (`count` receives its length).
const RecordFieldDef* FamilyFields(AnnotationFamily family, size_t* count);

// The fields of one record as numbers, with the body offset of each.
struct RecordFields {
    const RecordTypeInfo* info = nullptr;
    uint32_t value[kMaxRecordFields] = {};
    uint16_t offset[kMaxRecordFields] = {};
    uint32_t present = 0;  // writing a tagged body: the optional fields to store (bit per field)
    size_t bodySize = 0;

    bool has(size_t field) const { return offset[field] != kNoField; }
    uint32_t get(size_t field, uint32_t fallback) const { return has(field) ? value[field] : fallback; }
};

// Places the fields of `fields->info`'s type: for a tagged type, the optional
// fields named by the mask and extension values already in `fields->value`.
// Sets the offsets and the body size.
void PlaceRecordFields(RecordFields* fields, size_t maskField, size_t extensionField);

}  // namespace velmora
