#include "annotations/annotation_record_layout.h"

namespace velmora {

namespace {

constexpr uint16_t N = kNoField;

// Rectangle and text. The tagged head is the mask and the rectangle (18
// bytes); the extension word announces the info block reference, the third
// colour and the attached data block, stored after every masked field.
const RecordFieldDef kRectangleFields[rect_field::Count] = {
    {2, N, 0, 0, 0},        // Mask
    {2, 0, N, 0x0001, 0},   // BorderStyle
    {2, 2, N, 0x0002, 0},   // BorderWidth
    {4, 4, N, 0x0004, 0},   // BorderColor
    {1, 8, N, 0x0008, 0},   // Option1
    {1, 9, N, 0x0010, 0},   // Option2
    {2, 10, N, 0x0020, 0},  // TextSize
    {4, 12, N, 0x0040, 0},  // TextColor
    {4, 16, N, 0x0080, 0},  // FontOffset (0x0100 beside it: stored wide)
    {4, 20, 2, 0, 0},       // Left
    {4, 24, 6, 0, 0},       // Top
    {4, 28, 10, 0, 0},      // Right
    {4, 32, 14, 0, 0},      // Bottom
    {4, 36, N, 0x0200, 0},  // BackColor
    {4, 40, N, 0x0400, 0},  // TextField (0x0800 beside it: stored wide)
    {4, 44, N, 0x1000, 0},  // Attributes
    {4, 48, N, 0, 0},       // Reserved
    {4, 52, N, 0x4000, 0},  // BackColor2
    {4, 56, N, 0, 0x01},    // InfoRef
    {4, 60, N, 0, 0x02},    // ThirdColor
    {4, 64, N, 0, 0x04},    // AttachedOffset
    {2, N, N, 0x8000, 0},   // Extension
};

// Line. The fixed types hold plain lines only; the tagged ones begin with the
// mask and the end points, second point first. The optional fields after
// mask bit 0x0200 are the line's own choice of this library:
//   0x0020 u32 text offset (0x0400 beside it: stored wide), 0x0200 u8 line
//   subtype, 0x0800 u16 text word (when not 0xFFFF), 0x1000 u16 measurement
//   word, 0x2000 u8 option byte without its bit 0 (bit 0 is mask bit 0x0100),
//   0x4000 u32 hidden flag, 0x8000 u32 info block reference.
const RecordFieldDef kLineFields[line_field::Count] = {
    {2, N, 0, 0, 0},        // Mask
    {2, 0, N, 0x0001, 0},   // EndSize1
    {2, 2, N, 0x0002, 0},   // EndSize2
    {2, 4, N, 0x0004, 0},   // EndWord
    {2, 6, N, 0x0008, 0},   // Width
    {4, 8, N, 0x0010, 0},   // Color
    {4, 12, 2, 0, 0},       // X2
    {4, 16, 6, 0, 0},       // Y2
    {4, 20, 10, 0, 0},      // X1
    {4, 24, 14, 0, 0},      // Y1
    {4, N, N, 0x0020, 0},   // TextOffset
    {1, N, N, 0x0200, 0},   // Subtype
    {2, N, N, 0x0800, 0},   // TextWord
    {2, N, N, 0x1000, 0},   // Measurement
    {1, N, N, 0x2000, 0},   // Option
    {4, 28, N, 0x4000, 0},  // Hidden
    {4, 32, N, 0, 0},       // Reserved
    {4, 36, N, 0x8000, 0},  // InfoRef
};

const RecordFieldDef kFreehandFields[freehand_field::Count] = {
    {2, 0, N, 0, 0},  {2, 2, N, 0, 0},  {4, 4, N, 0, 0},  {4, 8, N, 0, 0},  {4, 12, N, 0, 0},
    {4, 16, N, 0, 0}, {4, 20, N, 0, 0}, {4, 24, N, 0, 0}, {4, 28, N, 0, 0},
};

// Image. The tagged head is the mask (its high byte carries the attached
// block's subtype), the rectangle and the picture's offset and size.
const RecordFieldDef kImageFields[image_field::Count] = {
    {2, N, 0, 0, 0},      // Mask
    {2, 0, N, 0x01, 0},   // Style
    {2, 2, N, 0x02, 0},   // Orientation
    {4, 4, 2, 0, 0},      // Left
    {4, 8, 6, 0, 0},      // Top
    {4, 12, 10, 0, 0},    // Right
    {4, 16, 14, 0, 0},    // Bottom
    {4, 20, 18, 0, 0},    // DibOffset
    {4, 24, 22, 0, 0},    // DibSize
    {4, 28, N, 0x04, 0},  // Hidden
    {4, 32, N, 0, 0},     // Reserved
    {4, 36, N, 0x10, 0},  // InfoRef
    {4, 40, N, 0x20, 0},  // TextOffset
    {4, 44, N, 0x40, 0},  // AttachedOffset
    {4, N, N, 0x80, 0},   // Parameter
};

const RecordFieldDef kEllipseFields[ellipse_field::Count] = {
    {2, 0, N, 0, 0},  {2, 2, N, 0, 0},  {4, 4, N, 0, 0},  {4, 8, N, 0, 0},  {4, 12, N, 0, 0}, {4, 16, N, 0, 0},
    {4, 20, N, 0, 0}, {4, 24, N, 0, 0}, {4, 28, N, 0, 0}, {4, 32, N, 0, 0}, {4, 36, N, 0, 0},
};

using F = AnnotationFamily;
const RecordTypeInfo kRecordTypes[] = {
    {1, F::Rectangle, false, 44},  {7, F::Rectangle, false, 52},  {12, F::Rectangle, false, 60},
    {18, F::Rectangle, false, 64}, {19, F::Rectangle, false, 68}, {22, F::Rectangle, true, 18},
    {28, F::Rectangle, true, 18},  {2, F::Line, false, 28},       {8, F::Line, false, 36},
    {13, F::Line, false, 40},      {25, F::Line, true, 18},       {26, F::Line, true, 18},
    {29, F::Line, true, 18},       {3, F::Freehand, false, 20},   {9, F::Freehand, false, 28},
    {14, F::Freehand, false, 32},  {4, F::Image, false, 28},      {10, F::Image, false, 36},
    {15, F::Image, false, 40},     {17, F::Image, false, 44},     {20, F::Image, false, 48},
    {21, F::Image, true, 26},      {24, F::Image, true, 26},      {27, F::Image, true, 26},
    {5, F::Ellipse, false, 28},    {11, F::Ellipse, false, 36},   {16, F::Ellipse, false, 40},
};

}  // namespace

const RecordTypeInfo* FindRecordType(uint32_t type) {
    for (const RecordTypeInfo& info : kRecordTypes) {
        if (info.type == type) return &info;
    }
    return nullptr;
}

const RecordFieldDef* FamilyFields(AnnotationFamily family, size_t* count) {
    switch (family) {
        case F::Rectangle: *count = rect_field::Count; return kRectangleFields;
        case F::Line: *count = line_field::Count; return kLineFields;
        case F::Freehand: *count = freehand_field::Count; return kFreehandFields;
        case F::Image: *count = image_field::Count; return kImageFields;
        case F::Ellipse: break;
    }
    *count = ellipse_field::Count;
    return kEllipseFields;
}

void PlaceRecordFields(RecordFields* fields, size_t maskField, size_t extensionField) {
    size_t count;
    const RecordFieldDef* defs = FamilyFields(fields->info->family, &count);
    size_t end = fields->info->bodySize;
    for (size_t f = 0; f < count; ++f) {
        const RecordFieldDef& def = defs[f];
        uint16_t offset = fields->info->tagged ? def.taggedOffset : def.fixedOffset;
        if (!fields->info->tagged && offset != kNoField && offset + def.width > fields->info->bodySize) {
            offset = kNoField;
        }
        fields->offset[f] = offset;
    }
    if (fields->info->tagged) {
        const uint32_t mask = fields->value[maskField];
        for (uint32_t bit = 1; bit <= 0x8000; bit <<= 1) {
            for (size_t f = 0; f < count; ++f) {
                if (defs[f].maskBit == bit && (mask & bit) != 0) {
                    fields->offset[f] = static_cast<uint16_t>(end);
                    end += defs[f].width;
                }
            }
        }
        const bool extended = extensionField < count && fields->has(extensionField);
        const uint32_t extension = extended ? fields->value[extensionField] : 0;
        for (uint32_t bit = 1; bit <= 0x80; bit <<= 1) {
            for (size_t f = 0; f < count; ++f) {
                if (defs[f].extensionBit == bit && (extension & bit) != 0) {
                    fields->offset[f] = static_cast<uint16_t>(end);
                    end += defs[f].width;
                }
            }
        }
    }
    fields->bodySize = end;
}

}  // namespace velmora
