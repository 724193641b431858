#include "dib/canvas.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "dib/dib_layout.h"
#include "dib/palette.h"
#include "dib/pixel_operations.h"

namespace velmora {
namespace {

// Each pixel row is sampled on this many lines; every line crosses the
// outline at exact horizontal positions and adds up to kLineWeight.
constexpr int kSubLines = 5;
constexpr int kLineWeight = 255 / kSubLines;

// Dash patterns in units of the border's thickness (at least 2 pixels):
// drawn, skipped, drawn, ...
struct DashPattern {
    uint8_t count;
    uint8_t lengths[6];
};
static const DashPattern kDashPatterns[] = {
    {0, {}},                  // solid
    {2, {4, 2}},              // dash
    {2, {1, 1}},              // dot
    {4, {4, 2, 1, 2}},        // dash dot
    {6, {4, 2, 1, 2, 1, 2}},  // dash dot dot
};

uint32_t ChannelShift(uint32_t mask) {
    uint32_t shift = 0;
    while (mask != 0 && (mask & 1) == 0) mask >>= 1, ++shift;
    return shift;
}

uint8_t Mix(uint32_t from, uint32_t to, uint32_t alpha) {
    return static_cast<uint8_t>((from * (255 - alpha) + to * alpha + 127) / 255);
}

COLORREF MixColor(COLORREF from, COLORREF to, uint32_t alpha) {
    return COLORREF{Mix(RedOf(from), RedOf(to), alpha)} | COLORREF{Mix(GreenOf(from), GreenOf(to), alpha)} << 8 |
           COLORREF{Mix(BlueOf(from), BlueOf(to), alpha)} << 16;
}

struct Edge {
    double top;     // y where the edge starts (upper end)
    double bottom;  // y where it ends
    double x;       // x at `top`
    double slope;   // dx per dy
    int winding;    // +1 going down, -1 going up
};

struct Crossing {
    double x;
    int winding;
};

}  // namespace

bool Canvas::Open(BITMAPINFOHEADER* header, void* bits, ErrorRecord* record) {
    if (record->failed()) return false;
    const uint32_t depth = header->biBitCount;
    const bool fields = header->biCompression == BI_BITFIELDS && (depth == 16 || depth == 32);
    const bool known = depth == 1 || depth == 4 || depth == 8 || depth == 16 || depth == 24 || depth == 32;
    if (!known || (header->biCompression != BI_RGB && !fields) || header->biWidth <= 0 || header->biHeight == 0) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    width_ = header->biWidth;
    height_ = header->biHeight < 0 ? -header->biHeight : header->biHeight;
    bitCount_ = depth;
    const uint64_t rowBytes = RowStride(header);
    if (header->biHeight < 0) {
        top_ = static_cast<uint8_t*>(bits);
        stride_ = static_cast<ptrdiff_t>(rowBytes);
    } else {
        top_ = static_cast<uint8_t*>(bits) + static_cast<size_t>(rowBytes) * static_cast<size_t>(height_ - 1);
        stride_ = -static_cast<ptrdiff_t>(rowBytes);
    }
    table_ = ColorTable(header);
    tableCount_ = depth <= 8 ? std::min(ColorCount(header), uint32_t{1} << depth) : 0;
    if (depth == 16 || depth == 32) {
        static const uint32_t kMasks16[3] = {0x7C00, 0x03E0, 0x001F};
        static const uint32_t kMasks32[3] = {0xFF0000, 0x00FF00, 0x0000FF};
        uint32_t masks[3];
        if (fields) {
            std::memcpy(masks, table_, sizeof masks);
        } else {
            std::memcpy(masks, depth == 16 ? kMasks16 : kMasks32, sizeof masks);
        }
        for (int c = 0; c < 3; ++c) {
            const uint32_t shift = ChannelShift(masks[c]);
            channels_[c] = {masks[c], shift, masks[c] >> shift};
        }
    }
    greyTable_ = depth <= 8 && tableCount_ > 0 && ClassifyGrey(table_, tableCount_, depth) != GreyKind::NotGrey;
    antialiased_ = depth >= 16 || (depth == 8 && greyTable_);
    if (depth == 8 && greyTable_) {
        for (uint32_t level = 0; level < 256; ++level) {
            const int32_t index = NearestColor(table_, tableCount_, level * 0x010101u, nullptr);
            greyIndex_[level] = static_cast<uint8_t>(index < 0 ? 0 : index);
        }
    }
    return cover_.Zeroed(uint64_t(width_) + 2, record) && area_.Zeroed(uint64_t(width_) + 2, record);
}

uint32_t Canvas::ReadPixel(const uint8_t* row, int32_t x) const {
    const size_t at = static_cast<size_t>(x);
    switch (bitCount_) {
        case 1: return row[at / 8] >> (7 - at % 8) & 1;
        case 4: return at % 2 == 0 ? row[at / 2] >> 4 : row[at / 2] & 0x0F;
        case 8: return row[at];
        case 16: return row[2 * at] | uint32_t{row[2 * at + 1]} << 8;
        case 24: return row[3 * at] | uint32_t{row[3 * at + 1]} << 8 | uint32_t{row[3 * at + 2]} << 16;
        default: {
            uint32_t value;
            std::memcpy(&value, row + 4 * at, 4);
            return value;
        }
    }
}

void Canvas::WritePixel(uint8_t* row, int32_t x, uint32_t value) const {
    const size_t at = static_cast<size_t>(x);
    switch (bitCount_) {
        case 1: {
            const uint8_t bit = static_cast<uint8_t>(0x80 >> at % 8);
            row[at / 8] = static_cast<uint8_t>(value != 0 ? row[at / 8] | bit : row[at / 8] & ~bit);
            break;
        }
        case 4:
            row[at / 2] = static_cast<uint8_t>(at % 2 == 0 ? (row[at / 2] & 0x0F) | value << 4
                                                           : (row[at / 2] & 0xF0) | (value & 0x0F));
            break;
        case 8: row[at] = static_cast<uint8_t>(value); break;
        case 24:
            row[3 * at] = static_cast<uint8_t>(value);
            row[3 * at + 1] = static_cast<uint8_t>(value >> 8);
            row[3 * at + 2] = static_cast<uint8_t>(value >> 16);
            break;
        default: {
            // Bits outside the three colour fields (the fourth byte) stay.
            const uint32_t used = channels_[0].mask | channels_[1].mask | channels_[2].mask;
            const uint32_t merged = (ReadPixel(row, x) & ~used) | (value & used);
            if (bitCount_ == 16) {
                row[2 * at] = static_cast<uint8_t>(merged);
                row[2 * at + 1] = static_cast<uint8_t>(merged >> 8);
            } else {
                std::memcpy(row + 4 * at, &merged, 4);
            }
            break;
        }
    }
}

COLORREF Canvas::PixelToColor(uint32_t value) const {
    if (bitCount_ <= 8) return value < tableCount_ ? ColorOf(table_[value]) : 0;
    if (bitCount_ == 24) return (value >> 16 & 0xFF) | (value & 0xFF00) | (value & 0xFF) << 16;
    COLORREF color = 0;
    for (int c = 0; c < 3; ++c) {
        const Channel& channel = channels_[c];
        const uint32_t level = channel.max == 0 ? 0 : ((value & channel.mask) >> channel.shift) * 255 / channel.max;
        color |= level << (8 * c);
    }
    return color;
}

uint32_t Canvas::ColorToPixel(COLORREF color) const {
    if (bitCount_ <= 8) {
        const int32_t index = NearestColor(table_, tableCount_, color, nullptr);
        return index < 0 ? 0 : static_cast<uint32_t>(index);
    }
    if (bitCount_ == 24) return BlueOf(color) | uint32_t{GreenOf(color)} << 8 | uint32_t{RedOf(color)} << 16;
    uint32_t value = 0;
    for (int c = 0; c < 3; ++c) {
        const Channel& channel = channels_[c];
        const uint32_t level = (color >> (8 * c)) & 0xFF;
        value |= ((level * channel.max + 127) / 255) << channel.shift & channel.mask;
    }
    return value;
}

Ink Canvas::MakeInk(uint32_t color) const {
    Ink ink;
    ink.color = color & 0xFFFFFFu;
    ink.highlighter = (color & kInkHighlighter) != 0;
    ink.pixel = ColorToPixel(ink.color);
    return ink;
}

uint32_t Canvas::Paint(uint32_t value, const Ink& ink, uint32_t alpha) const {
    if (!ink.highlighter && alpha >= 255) return ink.pixel;
    const COLORREF page = PixelToColor(value);
    const COLORREF target = ink.highlighter ? (page & ink.color) : ink.color;
    if (!antialiased_) return alpha >= 128 ? ColorToPixel(target) : value;
    if (bitCount_ == 8) {
        const uint32_t targetIndex = ink.highlighter ? ColorToPixel(target) : ink.pixel;
        return greyIndex_[Mix(RedOf(page), RedOf(PixelToColor(targetIndex)), alpha)];
    }
    return ColorToPixel(alpha >= 255 ? target : MixColor(page, target, alpha));
}

void Canvas::PaintSpan(int32_t y, int32_t left, int32_t right, const Ink& ink) {
    uint8_t* row = Row(y);
    if (bitCount_ == 1) {
        // Bi-level pages work on the two entries: each maps to some entry.
        const uint32_t zero = Paint(0, ink, 255), one = Paint(1, ink, 255);
        if (zero == 0 && one == 1) return;
        const DibRows rows = {top_, stride_, 0, static_cast<uint32_t>(height_)};
        const BitFill fill = zero == one ? (zero != 0 ? BitFill::Set : BitFill::Clear) : BitFill::Invert;
        FillBitRect(rows, static_cast<uint32_t>(left), static_cast<uint32_t>(y), static_cast<uint32_t>(right),
                    static_cast<uint32_t>(y) + 1, fill);
        return;
    }
    if (!ink.highlighter) {
        for (int32_t x = left; x < right; ++x) WritePixel(row, x, ink.pixel);
        return;
    }
    uint32_t last = ReadPixel(row, left), painted = Paint(last, ink, 255);
    for (int32_t x = left; x < right; ++x) {
        const uint32_t value = ReadPixel(row, x);
        if (value != last) last = value, painted = Paint(value, ink, 255);
        WritePixel(row, x, painted);
    }
}

void Canvas::FillRect(RECT rect, const Ink& ink) {
    const int32_t left = std::max<int32_t>(rect.left, 0), right = std::min<int32_t>(rect.right, width_);
    const int32_t top = std::max<int32_t>(rect.top, 0), bottom = std::min<int32_t>(rect.bottom, height_);
    if (left >= right || top >= bottom) return;
    for (int32_t y = top; y < bottom; ++y) PaintSpan(y, left, right, ink);
}

void Canvas::FrameRect(RECT rect, uint32_t thickness, FramePattern pattern, const Ink& ink) {
    if (thickness == 0 || rect.left >= rect.right || rect.top >= rect.bottom) return;
    const int32_t w = static_cast<int32_t>(std::min<uint32_t>(thickness, 0x10000));
    const int64_t width = int64_t{rect.right} - rect.left, height = int64_t{rect.bottom} - rect.top;
    if (pattern == FramePattern::Solid || 2 * w >= width || 2 * w >= height) {
        const int32_t band = static_cast<int32_t>(std::min<int64_t>({w, width, height}));
        FillRect({rect.left, rect.top, rect.right, rect.top + band}, ink);
        FillRect({rect.left, rect.bottom - band, rect.right, rect.bottom}, ink);
        FillRect({rect.left, rect.top + band, rect.left + band, rect.bottom - band}, ink);
        FillRect({rect.right - band, rect.top + band, rect.right, rect.bottom - band}, ink);
        return;
    }
    // The pattern runs clockwise round the frame from the top-left corner,
    // continuing from one side to the next. Only the pieces that can reach
    // the image are visited, however long the sides.
    const DashPattern& dashes = kDashPatterns[static_cast<int>(pattern)];
    const int64_t unit = std::max(w, 2);
    int64_t period = 0;
    for (uint8_t i = 0; i < dashes.count; ++i) period += dashes.lengths[i] * unit;
    int64_t offset = 0;  // where the current side starts along the frame
    auto side = [&](int64_t length, int64_t from, int64_t to, auto&& draw) {
        from = std::clamp<int64_t>(from, 0, length);
        to = std::clamp<int64_t>(to, 0, length);
        for (int64_t at = (offset + from) / period * period - offset; at < to;) {
            for (uint8_t i = 0; i < dashes.count && at < to; ++i) {
                const int64_t end = at + dashes.lengths[i] * unit;
                if (i % 2 == 0 && std::max<int64_t>(at, 0) < std::min(end, length)) {
                    draw(static_cast<int32_t>(std::max<int64_t>(at, 0)), static_cast<int32_t>(std::min(end, length)));
                }
                at = end;
            }
        }
        offset += length;
    };
    side(width, -int64_t{rect.left}, int64_t{width_} - rect.left, [&](int32_t a, int32_t b) {
        FillRect({rect.left + a, rect.top, rect.left + b, rect.top + w}, ink);
    });
    side(height, -int64_t{rect.top}, int64_t{height_} - rect.top, [&](int32_t a, int32_t b) {
        FillRect({rect.right - w, rect.top + a, rect.right, rect.top + b}, ink);
    });
    side(width, int64_t{rect.right} - width_, rect.right, [&](int32_t a, int32_t b) {
        FillRect({rect.right - b, rect.bottom - w, rect.right - a, rect.bottom}, ink);
    });
    side(height, int64_t{rect.bottom} - height_, rect.bottom, [&](int32_t a, int32_t b) {
        FillRect({rect.left, rect.bottom - b, rect.left + w, rect.bottom - a}, ink);
    });
}

bool Canvas::FillPath(const CanvasPath& path, const Ink& ink, ErrorRecord* record) {
    if (record->failed() || path.empty()) return record->ok();
    CheckedArray<Edge> edges;
    uint64_t pointCount = 0;
    for (size_t c = 0; c < path.contours(); ++c) pointCount = path.ends()[c];
    if (!edges.Sized(pointCount, record)) return false;
    size_t edgeCount = 0;
    double minY = 1e300, maxY = -1e300;
    for (size_t c = 0, first = 0; c < path.contours(); first = path.ends()[c++]) {
        const size_t last = path.ends()[c];
        for (size_t i = first; i < last; ++i) {
            const PathPoint a = path.points()[i];
            const PathPoint b = path.points()[i + 1 < last ? i + 1 : first];
            if (a.y == b.y || !std::isfinite(a.x + a.y + b.x + b.y)) continue;
            const bool down = b.y > a.y;
            const PathPoint upper = down ? a : b, lower = down ? b : a;
            edges[edgeCount++] = {upper.y, lower.y, upper.x, (lower.x - upper.x) / (lower.y - upper.y), down ? 1 : -1};
            minY = std::min(minY, upper.y);
            maxY = std::max(maxY, lower.y);
        }
    }
    if (edgeCount == 0) return true;
    std::sort(edges.begin(), edges.begin() + edgeCount, [](const Edge& a, const Edge& b) { return a.top < b.top; });
    CheckedArray<uint32_t> active;
    CheckedArray<Crossing> crossings;
    if (!active.Sized(edgeCount, record) || !crossings.Sized(edgeCount, record)) return false;

    const int32_t firstRow = static_cast<int32_t>(std::max(0.0, std::floor(minY)));
    const int32_t lastRow = static_cast<int32_t>(std::min<double>(height_, std::ceil(maxY)));
    size_t nextEdge = 0, activeCount = 0;
    int32_t* cover = cover_.data();
    float* area = area_.data();
    for (int32_t y = firstRow; y < lastRow; ++y) {
        int32_t spanLeft = width_, spanRight = 0;
        for (int line = 0; line < kSubLines; ++line) {
            const double sampleY = y + (line + 0.5) / kSubLines;
            while (nextEdge < edgeCount && edges[nextEdge].top <= sampleY) active[activeCount++] = nextEdge++;
            size_t crossingCount = 0;
            for (size_t i = 0; i < activeCount;) {
                const Edge& edge = edges[active[i]];
                if (edge.bottom <= sampleY) {
                    active[i] = active[--activeCount];
                    continue;
                }
                crossings[crossingCount++] = {edge.x + (sampleY - edge.top) * edge.slope, edge.winding};
                ++i;
            }
            std::sort(crossings.begin(), crossings.begin() + crossingCount,
                      [](const Crossing& a, const Crossing& b) { return a.x < b.x; });
            int winding = 0;
            for (size_t i = 0; i + 1 < crossingCount; ++i) {
                winding += crossings[i].winding;
                if (winding == 0) continue;
                const double from = std::clamp(crossings[i].x, 0.0, double(width_));
                const double to = std::clamp(crossings[i + 1].x, 0.0, double(width_));
                if (to <= from) continue;
                const int32_t a = static_cast<int32_t>(from), b = static_cast<int32_t>(to);
                spanLeft = std::min(spanLeft, a);
                spanRight = std::max(spanRight, std::min(b + 1, width_));
                if (a == b) {
                    area[a] += static_cast<float>((to - from) * kLineWeight);
                    continue;
                }
                area[a] += static_cast<float>((a + 1 - from) * kLineWeight);
                cover[a + 1] += kLineWeight;
                cover[b] -= kLineWeight;
                area[b] += static_cast<float>((to - b) * kLineWeight);
            }
        }
        uint8_t* row = Row(y);
        int32_t running = 0;
        for (int32_t x = spanLeft; x < spanRight; ++x) {
            running += cover[x];
            const int32_t alpha = std::min(255, static_cast<int32_t>(running + area[x] + 0.5f));
            cover[x] = 0;
            area[x] = 0;
            if (alpha > 0) WritePixel(row, x, Paint(ReadPixel(row, x), ink, alpha >= 254 ? 255 : alpha));
        }
    }
    return true;
}

void Canvas::BlendCoverage(int32_t x, int32_t y, const uint8_t* coverage, uint32_t maskWidth, uint32_t maskHeight,
                           size_t stride, const Ink& ink) {
    const int64_t left = std::max<int64_t>(x, 0), right = std::min<int64_t>(int64_t{x} + maskWidth, width_);
    const int64_t top = std::max<int64_t>(y, 0), bottom = std::min<int64_t>(int64_t{y} + maskHeight, height_);
    for (int64_t py = top; py < bottom; ++py) {
        const uint8_t* source = coverage + static_cast<size_t>(py - y) * stride;
        uint8_t* row = Row(static_cast<int32_t>(py));
        for (int64_t px = left; px < right; ++px) {
            const uint32_t alpha = source[px - x];
            if (alpha == 0) continue;
            const int32_t at = static_cast<int32_t>(px);
            WritePixel(row, at, Paint(ReadPixel(row, at), ink, alpha));
        }
    }
}

COLORREF Canvas::GetColor(int32_t x, int32_t y) const { return PixelToColor(ReadPixel(Row(y), x)); }

void Canvas::SetColor(int32_t x, int32_t y, COLORREF color) {
    // Pictures and pages repeat colours: the last one's pixel value is kept.
    if (!cached_ || color != cachedColor_) {
        cachedColor_ = color;
        cachedPixel_ = ColorToPixel(color);
        cached_ = true;
    }
    WritePixel(Row(y), x, cachedPixel_);
}

}  // namespace velmora
