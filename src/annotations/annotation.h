// The annotation layer of a page in memory: an ordered list of annotations,
// each one object of five families (rectangle and text, line, freehand,
// image, ellipse) with its node flags, groups, redaction link and times.
//
// Coordinates are page pixels of the full-resolution image, origin top left,
// y downwards; rectangles are left, top, right, bottom with right and bottom
// exclusive. Colours are 0x00BBGGRR; kColorNone means none and
// kColorHighlighter on a colour marks a transparent (highlighter) colour.
//
// The list's order is the drawing order (later annotations lie on top) and
// the order of the stored stream. Every annotation is its own heap object,
// owned by the list that holds it; texts, strokes and pictures are sized by
// input and live in checked blocks, so building a list from a hostile stream
// fails with "Not enough memory." (8) instead of aborting.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

constexpr uint32_t kColorNone = 0xFFFFFFFFu;
constexpr uint32_t kColorHighlighter = 0x01000000u;

// Errors of the annotation formats.
constexpr uint32_t kErrBadAnnotationData = 0x02000025;  // "Bad annotation data."
constexpr uint32_t kErrUnknownProperty = 1608;

enum class AnnotationFamily : uint32_t { Rectangle = 1, Line = 2, Freehand = 3, Image = 4, Ellipse = 5 };

// Node flags.
constexpr uint32_t kNodeRedaction = 0x01;        // a redaction
constexpr uint32_t kNodeLabel = 0x02;            // a label owned by the redaction `owner`
constexpr uint32_t kNodeApplied = 0x04;          // kept, but no longer a pending redaction
constexpr uint32_t kNodeMarker = 0x10;           // the viewer's text-less marker (text field value 2)
constexpr uint32_t kNodeSecondRedaction = 0x20;  // redaction of the second kind
constexpr uint32_t kNodeFontFlag = 0x40;         // set on reading unless the record says otherwise; stored inverted
constexpr uint32_t kNodeSelected = 0x80;

// Object flags (the low four bits are cleared when an object is made).
constexpr uint32_t kObjectProtect0 = 0x01;
constexpr uint32_t kObjectProtect1 = 0x02;
constexpr uint32_t kObjectHidden = 0x04;

// Load result bits of reading a stream or a foreign block.
constexpr uint32_t kLoadUnknownRecords = 0x01;  // records of unknown types were dropped
constexpr uint32_t kLoadUnknownMarks = 0x10;    // a Wang block held marks of unknown types

// The structure version every object carries; any other makes the object
// unknown to every operation.
constexpr uint32_t kAnnotationVersion = 1;
constexpr uint32_t kImageDefaultParameter = 100000;
// The name of the group an annotation is in when no group is named.
constexpr char16_t kDefaultGroupName[] = u"[Untitled]";

struct AnnotationPoint {
    int32_t x;
    int32_t y;
};

struct AnnotationRect {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
};

// A UTC time packed in three words: (minute * 64 + second),
// (day * 32 + hour), (year * 16 + month). All zero for none.
struct PackedTime {
    uint16_t words[3];
};

bool IsValidPackedTime(const PackedTime& time);
PackedTime PackTime(const SYSTEMTIME& time);
// The current UTC time, packed.
PackedTime PackedNow();
// The time as a file time (100 ns since 1601, milliseconds 0); false for an
// invalid time.
bool PackedTimeToFileTime(const PackedTime& time, uint64_t* fileTime);
// The time as a calendar time with its day of the week; all zero for a time
// that is not valid.
SYSTEMTIME UnpackTime(const PackedTime& time);

// A NUL-terminated UTF-16 text in a checked block. An empty text holds no
// block at all.
class AnnotationText {
public:
    // Replaces the text with `length` units of `text` (no terminator needed).
    bool Assign(const char16_t* text, size_t length, ErrorRecord* record);
    // Replaces the text with a narrow text in the system code page.
    bool AssignNarrow(const char* text, size_t length, ErrorRecord* record);
    bool CopyFrom(const AnnotationText& other, ErrorRecord* record) {
        return Assign(other.c_str(), other.length(), record);
    }
    void Clear() { units_.Clear(); }
    // Never null: an empty text gives u"".
    const char16_t* c_str() const { return units_.empty() ? u"" : units_.data(); }
    size_t length() const { return units_.empty() ? 0 : units_.size() - 1; }
    bool empty() const { return length() == 0; }
    bool Equals(const char16_t* text) const;

private:
    CheckedArray<char16_t> units_;  // the text and its terminator, or nothing
};

// An attached data block: a GUID made at its creation, six small values and
// one or two texts. Its subtype (1 to 4) follows from the texts.
struct AttachedData {
    bool present = false;
    uint32_t first = 5;
    uint32_t second = 9;
    uint32_t third = 0;
    uint8_t guid[16] = {};
    uint8_t fourth = 1;
    uint8_t fifth = 0;
    uint8_t sixth = 0;
    bool hasSecondText = false;
    AnnotationText text1;
    AnnotationText text2;
};

// 1 one text storable in the ANSI code page, 2 one text needing wide
// characters, 3 two ANSI texts, 4 two texts stored wide; 0 when absent.
int AttachedDataSubtype(const AttachedData& data);

// Family 1: rectangles filled or hollow, text boxes, notes, text stamps and
// redaction rectangles.
struct RectangleFields {
    uint32_t borderColor = kColorNone;
    uint16_t borderStyle = 0;  // 0 none
    uint16_t borderWidth = 0;
    uint32_t backColor = kColorNone;
    uint8_t option1 = 0;
    uint8_t option2 = 0;
    uint32_t textColor = kColorNone;
    char16_t fontFace[32] = {};  // at most 31 units and the terminator
    uint16_t textSize = 0;       // points
    AnnotationRect rect = {};
    uint8_t optionByte = 16;
    uint8_t flagByte = 0;
    uint16_t textRotation = 0;  // clockwise degrees: 0, 90, 180, 270
    uint32_t styleWord = 0;     // bits 4 to 6 the back style (0 to 4)
    uint32_t backColor2 = kColorNone;
    uint32_t thirdColor = kColorNone;
    AnnotationText text;

    uint32_t backStyle() const { return (styleWord >> 4) & 7; }
};

// Family 2: straight lines, arrows, lines with a text, measurement lines.
struct LineFields {
    uint32_t color = 0;
    AnnotationPoint first = {};
    AnnotationPoint second = {};
    uint16_t endSize1 = 0;
    uint16_t endSize2 = 0;
    uint16_t endWord = 0;  // low two bits: which ends carry a line end (arrow)
    uint16_t width = 1;
    uint8_t option = 0;
    uint8_t subtype = 0;  // 0 plain, 1 to 3 special
    // Subtypes 1 to 3: the line's text and its text word (0xFFFF unused).
    AnnotationText text;
    uint16_t textWord = 0xFFFF;
    uint16_t measurement = 0;  // subtype 2
};

// Family 3: freehand lines, polylines and scribble redactions. The strokes
// lie one after the other in `points`; `strokeLengths` gives each stroke's
// number of points. Points are absolute page coordinates.
struct FreehandFields {
    uint32_t fillColor = kColorNone;
    uint32_t lineColor = 0;
    AnnotationRect bounds = {};  // computed from the points
    uint16_t style = 0;          // 0 plain; 3 and 7 the two shape variants
    uint16_t width = 1;
    CheckedArray<AnnotationPoint> points;
    CheckedArray<uint32_t> strokeLengths;
};

// Sets `bounds` to the smallest rectangle holding every point (right and
// bottom exclusive); all zero without points.
void ComputeFreehandBounds(FreehandFields* freehand);

struct Annotation;

// Family 4: pictures embedded in or referenced by the page.
struct ImageFields {
    AnnotationRect rect = {};
    uint16_t rotation = 0;  // clockwise degrees: 0, 90, 180, 270
    uint16_t style = 0;
    Annotation* attachedText = nullptr;  // a rectangle-and-text object drawn in the picture, owned
    AnnotationRect attachedTextRect = {};
    HGLOBAL dib = nullptr;  // the picture as a packed DIB, owned; null for none
    uint32_t parameter = kImageDefaultParameter;
    uint32_t userValue = 0;
    AnnotationText fileName;  // a referenced picture's file, or empty
};

// Family 5: ellipses filled or hollow, ellipse redactions.
struct EllipseFields {
    uint32_t outlineColor = kColorNone;
    uint16_t outlineStyle = 0;
    uint16_t outlineWidth = 0;
    uint32_t fillColor = kColorNone;
    AnnotationRect rect = {};
    uint16_t option = 0;
    uint16_t rotation = 0;
};

// One annotation: the node (flags, link, groups) and its object. Only the
// fields of `family` are in use.
struct Annotation {
    Annotation() = default;
    ~Annotation();
    Annotation(const Annotation&) = delete;
    Annotation& operator=(const Annotation&) = delete;

    // Node.
    uint32_t nodeFlags = 0;
    // A label's owning redaction (kNodeLabel), in the same list; not owned.
    const Annotation* owner = nullptr;
    // A redaction's exemption code text (not used by labels).
    AnnotationText linkText;
    // The group names, each NUL-terminated, one after the other; empty for
    // none. The stored form ends the list with an empty name.
    CheckedArray<char16_t> groups;

    // Object head.
    PackedTime created = {};
    PackedTime changed = {};
    uint32_t objectFlags = 0;
    AttachedData attached;
    AnnotationFamily family = AnnotationFamily::Rectangle;
    uint32_t version = kAnnotationVersion;

    RectangleFields rectangle;
    LineFields line;
    FreehandFields freehand;
    ImageFields image;
    EllipseFields ellipse;

    bool hidden() const { return (objectFlags & kObjectHidden) != 0; }
    // Known to every operation: version 1 and a family from 1 to 5.
    bool known() const;
};

// A new annotation of `family` with the defaults of a new object, both times
// stamped with `created` (now when null). Null with 8 in the record when
// memory is short.
Annotation* NewAnnotation(AnnotationFamily family, const SYSTEMTIME* created, ErrorRecord* record);
// A deep copy: texts, strokes, the attached text object and the picture are
// copied. The copy's owner pointer is left null.
Annotation* CopyAnnotation(const Annotation& source, ErrorRecord* record);
void DeleteAnnotation(Annotation* annotation);

// Pending redaction: node flag 0 or 5, neither applied nor a label.
bool IsPendingRedaction(const Annotation& annotation);
// Any redaction, applied or pending, labels excluded: node flag 0 or 5.
inline bool IsRedaction(const Annotation& annotation) {
    return (annotation.nodeFlags & (kNodeRedaction | kNodeSecondRedaction)) != 0;
}

// The "Type" code of the annotation: 0 ellipse, 3 plain line, 4 image,
// 5 freehand, 6 rectangle and text, 7 line with a text, 8 measurement line,
// 10 line of subtype 3.
uint8_t AnnotationTypeCode(const Annotation& annotation);

// Image rotation and TIFF Orientation codes.
uint16_t RotationFromOrientation(uint32_t orientation);  // 3,4 -> 180; 5,8 -> 270; 6,7 -> 90; else 0
uint16_t OrientationFromRotation(uint32_t rotation);     // 90 -> 6; 180 -> 3; 270 -> 8; else 1

// Appends a group name to the annotation's group list.
bool AddAnnotationGroup(Annotation* annotation, const char16_t* name, size_t length, ErrorRecord* record);

// The ordered annotation list; owns its annotations.
class AnnotationList {
public:
    AnnotationList() = default;
    ~AnnotationList() { Clear(); }
    AnnotationList(const AnnotationList&) = delete;
    AnnotationList& operator=(const AnnotationList&) = delete;

    size_t size() const { return items_.size(); }
    bool empty() const { return items_.empty(); }
    // Index -1 is the last annotation; null when out of range.
    Annotation* at(ptrdiff_t index) const;
    Annotation* const* begin() const { return items_.begin(); }
    Annotation* const* end() const { return items_.end(); }
    // Index of `annotation` in the list, -1 when not in it.
    ptrdiff_t IndexOf(const Annotation* annotation) const;

    // Takes ownership; on failure the annotation is deleted and the list is
    // unchanged.
    bool Append(Annotation* annotation, ErrorRecord* record);
    // Moves every annotation of `other` to the end of this list.
    bool TakeAll(AnnotationList* other, ErrorRecord* record);
    // Deletes the annotation at `index` (-1 the last, -2 all). Labels whose
    // owner goes lose their owner.
    void Delete(ptrdiff_t index);
    void Clear() { Delete(-2); }

private:
    CheckedArray<Annotation*> items_;
};

}  // namespace velmora
