// Drawing annotations into a page image.
//
// Annotation coordinates belong to the page as stored; the image drawn on may
// be that page turned clockwise by 90, 180 or 270 degrees, and every
// annotation is moved and turned with it (pictures are drawn as given, with
// only their own rotation). Sizes in points (text) follow the page's
// resolution; widths are in pixels.
//
// How each family looks:
//   rectangle  background (solid, or a blend into the second background
//              colour by back style 1 to 4: left to right, top to bottom,
//              and the two diagonals), highlighter backgrounds ANDed into
//              the page, a border inside the rectangle (style 1 solid,
//              2 dashes, 3 dots, 4 dash-dot, 5 dash-dot-dot, wider styles
//              solid), then the text word-wrapped inside the border and
//              clipped to it, turned by its own rotation and the page's;
//   line       a stroke of its width with round ends and arrow heads where
//              the line-end word asks (bit 0 at the second point, bit 1 at
//              the first); a redaction's label line connects the
//              redaction's rectangle with its other label;
//   freehand   each stroke as a polyline with round joins and ends, closed
//              strokes filled first when a fill colour is set;
//   image      the picture scaled into its rectangle, turned by its own
//              rotation, with its attached text on top;
//   ellipse    filled, then outlined inside its rectangle.
// A redaction always covers its whole area: a redaction rectangle or ellipse
// without a fill (or with a highlighter fill) is filled opaque, in black when
// it has no colour, and a scribble redaction fills its closed strokes.
#pragma once

#include <cstdint>

#include "annotations/annotation.h"
#include "dib/canvas.h"
#include "frame/error_record.h"

namespace velmora {

// Text style bits in a rectangle's second option byte.
constexpr uint8_t kTextStyleBold = 0x01;
constexpr uint8_t kTextStyleItalic = 0x02;
constexpr uint8_t kTextStyleUnderline = 0x04;
constexpr uint8_t kTextStyleStrikeOut = 0x08;
// The size of text whose size is 0, in points.
constexpr uint16_t kDefaultTextPoints = 12;

struct DrawingContext {
    Canvas* canvas = nullptr;
    uint16_t rotation = 0;  // clockwise turn of the page image: 0, 90, 180, 270
    double dpiX = 96;
    double dpiY = 96;
    // For a redaction's label line: the rectangles (already on the turned
    // page) of its redaction and of the redaction's other label; the line
    // runs between them. Null, or an empty redaction rectangle, draws the
    // line where it lies.
    const AnnotationRect* connectFrom = nullptr;
    const AnnotationRect* connectTo = nullptr;
};

// The area an annotation covers as stored: the rectangle of rectangles,
// pictures and ellipses, the bounds of freehand strokes; empty for lines.
AnnotationRect AnnotationArea(const Annotation& annotation);

// A point or rectangle of the stored page on the page image turned by
// `rotation`, whose size is width x height.
AnnotationRect TurnRect(const AnnotationRect& rect, uint16_t rotation, int32_t width, int32_t height);

// Draws one annotation (of a known family and version) on the canvas.
bool DrawAnnotation(const Annotation& annotation, const DrawingContext& context, ErrorRecord* record);

}  // namespace velmora
