#include "dib/canvas_path.h"

#include <algorithm>
#include <cmath>

namespace velmora {
namespace {

constexpr double kPi = 3.14159265358979323846;
// The largest gap allowed between a curve and its polygon, in pixels.
constexpr double kCurveTolerance = 0.05;
constexpr size_t kMaxCurvePoints = 4096;

double SignedArea(const PathPoint* points, size_t count) {
    double area = 0;
    for (size_t i = 0, j = count - 1; i < count; j = i++) {
        area += points[j].x * points[i].y - points[i].x * points[j].y;
    }
    return area / 2;
}

// Points enough for a circle of `radius` to stay within the tolerance.
size_t CurvePoints(double radius) {
    if (radius <= kCurveTolerance) return 8;
    const double step = 2 * std::acos(std::max(0.0, 1 - kCurveTolerance / radius));
    const double count = std::ceil(2 * kPi / std::max(step, 1e-6));
    return std::clamp(static_cast<size_t>(count), size_t{8}, kMaxCurvePoints);
}

}  // namespace

bool CanvasPath::AddContour(const PathPoint* points, size_t count, bool hole, ErrorRecord* record) {
    if (record->failed()) return false;
    if (count < 3) return true;
    const double area = SignedArea(points, count);
    const bool reverse = hole ? area > 0 : area < 0;
    for (size_t i = 0; i < count; ++i) {
        if (!points_.Append(points[reverse ? count - 1 - i : i], record)) return false;
    }
    return ends_.Append(static_cast<uint32_t>(points_.size()), record);
}

bool CanvasPath::AddEllipse(double cx, double cy, double rx, double ry, bool hole, ErrorRecord* record) {
    if (record->failed()) return false;
    if (rx <= 0 || ry <= 0) return true;
    PathPoint ring[kMaxCurvePoints];
    const size_t count = CurvePoints(std::max(rx, ry));
    for (size_t i = 0; i < count; ++i) {
        const double angle = 2 * kPi * static_cast<double>(i) / static_cast<double>(count);
        ring[i] = {cx + rx * std::cos(angle), cy + ry * std::sin(angle)};
    }
    return AddContour(ring, count, hole, record);
}

bool CanvasPath::AddLine(PathPoint a, PathPoint b, double width, LineCap cap, ErrorRecord* record) {
    if (record->failed() || width <= 0) return record->ok();
    const double half = width / 2;
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double length = std::hypot(dx, dy);
    if (length < 1e-9) {
        if (cap == LineCap::Round) return AddEllipse(a.x, a.y, half, half, false, record);
        if (cap == LineCap::Flat) return true;
        const PathPoint square[4] = {
            {a.x - half, a.y - half}, {a.x + half, a.y - half}, {a.x + half, a.y + half}, {a.x - half, a.y + half}};
        return AddContour(square, 4, false, record);
    }
    const double ux = dx / length, uy = dy / length;
    const double extend = cap == LineCap::Square ? half : 0;
    const PathPoint start = {a.x - ux * extend, a.y - uy * extend};
    const PathPoint end = {b.x + ux * extend, b.y + uy * extend};
    const double nx = -uy * half, ny = ux * half;
    const PathPoint body[4] = {
        {start.x + nx, start.y + ny}, {end.x + nx, end.y + ny}, {end.x - nx, end.y - ny}, {start.x - nx, start.y - ny}};
    if (!AddContour(body, 4, false, record)) return false;
    if (cap == LineCap::Round) {
        return AddEllipse(a.x, a.y, half, half, false, record) && AddEllipse(b.x, b.y, half, half, false, record);
    }
    return true;
}

PathPoint CanvasPath::AddArrowHead(PathPoint tip, PathPoint from, double width, ErrorRecord* record) {
    const double dx = tip.x - from.x, dy = tip.y - from.y;
    const double length = std::hypot(dx, dy);
    if (record->failed() || length < 1e-9) return tip;
    const double head = std::max(8.0, 4 * width);
    const double ux = dx / length, uy = dy / length;
    const PathPoint base = {tip.x - ux * head, tip.y - uy * head};
    const double spread = head / 2;
    const PathPoint triangle[3] = {
        tip, {base.x - uy * spread, base.y + ux * spread}, {base.x + uy * spread, base.y - ux * spread}};
    AddContour(triangle, 3, false, record);
    // The body stops inside the head, short of the tip.
    const double inset = std::min(head / 2, length);
    return {tip.x - ux * inset, tip.y - uy * inset};
}

}  // namespace velmora
