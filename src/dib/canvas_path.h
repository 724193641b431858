// Outlines to fill on a canvas: closed contours of points in continuous page
// coordinates, where pixel (i, j) covers [i, i + 1) x [j, j + 1). Contours
// are filled together by the non-zero rule, so overlapping pieces of one
// shape (a line's body and its round caps, an arrow head) merge into one area
// instead of being painted twice; a hole is a contour wound the other way.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"

namespace velmora {

struct PathPoint {
    double x;
    double y;
};

enum class LineCap { Flat, Square, Round };

class CanvasPath {
public:
    // Adds a closed contour through `points`, turned so that its signed area
    // (y downwards) is positive, or negative for a hole. Fewer than three
    // points add nothing.
    bool AddContour(const PathPoint* points, size_t count, bool hole, ErrorRecord* record);
    // An ellipse around (cx, cy) with radii rx and ry, as a polygon close
    // enough to the curve that no pixel sees the difference.
    bool AddEllipse(double cx, double cy, double rx, double ry, bool hole, ErrorRecord* record);
    // A line of `width` from a to b with the given caps. A zero-length line
    // with round or square caps is a dot.
    bool AddLine(PathPoint a, PathPoint b, double width, LineCap cap, ErrorRecord* record);
    // A triangular arrow head with its tip at `tip`, pointing away from
    // `from`, sized for a line of `width`. Returns where the line's body
    // should end so that it does not show through the tip.
    PathPoint AddArrowHead(PathPoint tip, PathPoint from, double width, ErrorRecord* record);

    bool empty() const { return points_.empty(); }
    const PathPoint* points() const { return points_.data(); }
    // Contour c holds points [ends[c - 1], ends[c]) (from 0 for the first).
    const uint32_t* ends() const { return ends_.data(); }
    size_t contours() const { return ends_.size(); }

private:
    CheckedArray<PathPoint> points_;
    CheckedArray<uint32_t> ends_;
};

}  // namespace velmora
