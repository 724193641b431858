#include "dib/resize.h"

#include <array>
#include <cstring>

#include "dib/color_conversion.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/palette.h"
#include "dib/resolution.h"
#include "frame/checked_array.h"

namespace velmora {
namespace {

// The source position that destination position `i` of `target` starts at.
inline uint32_t SourceOf(uint64_t i, uint32_t source, uint32_t target) {
    return static_cast<uint32_t>(i * source / target);
}

uint32_t Width(const BITMAPINFOHEADER* header) { return static_cast<uint32_t>(header->biWidth); }
uint32_t Height(const BITMAPINFOHEADER* header) { return static_cast<uint32_t>(header->biHeight); }

// A zeroed packed DIB of the new size with the source's depth, colour table
// and bit-field masks, its resolution scaled to the new size.
HGLOBAL NewLike(const BITMAPINFOHEADER* header, uint32_t width, uint32_t height, ErrorRecord* record) {
    const uint16_t bitCount = header->biBitCount;
    const bool masks = header->biCompression == BI_BITFIELDS && (bitCount == 16 || bitCount == 32);
    // The three masks take the room of a three-entry palette hint.
    const uint32_t count = bitCount <= 8 ? ColorCount(header) : (masks ? 3 : 0);
    HGLOBAL image = CreateImage(static_cast<int32_t>(width), static_cast<int32_t>(height), bitCount,
                                ScalePelsPerMeter(header->biXPelsPerMeter, width, Width(header)),
                                ScalePelsPerMeter(header->biYPelsPerMeter, height, Height(header)), count,
                                kStorageZeroInit, record);
    if (image == nullptr) return nullptr;
    ImageLock lock(image);
    BITMAPINFOHEADER* out = lock.header();
    if (masks) {
        out->biCompression = BI_BITFIELDS;
        out->biClrUsed = 0;
    }
    std::memcpy(ColorTable(out), ColorTable(header), size_t{count} * 4);
    return image;
}

// ---- Nearest pixel ---------------------------------------------------------

// Fills one destination row from `in`: destination pixel c takes source
// pixel columns[c] (a byte offset at 8 bits and more).
void SampleRow(uint16_t bitCount, const uint8_t* in, const uint32_t* columns, uint32_t width, uint8_t* out) {
    switch (bitCount) {
        case 1: {
            uint32_t byte = 0;
            for (uint32_t c = 0; c < width; ++c) {
                const uint32_t x = columns[c];
                byte = byte << 1 | ((in[x >> 3] >> (7 - (x & 7))) & 1u);
                if ((c & 7) == 7) {
                    out[c >> 3] = static_cast<uint8_t>(byte);
                    byte = 0;
                }
            }
            if (width & 7) out[width >> 3] = static_cast<uint8_t>(byte << (8 - (width & 7)));
            break;
        }
        case 4: {
            for (uint32_t c = 0; c + 1 < width; c += 2) {
                const uint32_t a = columns[c], b = columns[c + 1];
                const uint32_t high = (in[a >> 1] >> (a & 1 ? 0 : 4)) & 15u,
                               low = (in[b >> 1] >> (b & 1 ? 0 : 4)) & 15u;
                out[c >> 1] = static_cast<uint8_t>(high << 4 | low);
            }
            if (width & 1) {
                const uint32_t a = columns[width - 1];
                out[width >> 1] = static_cast<uint8_t>(((in[a >> 1] >> (a & 1 ? 0 : 4)) & 15u) << 4);
            }
            break;
        }
        case 8:
            for (uint32_t c = 0; c < width; ++c) out[c] = in[columns[c]];
            break;
        case 16:
            for (uint32_t c = 0; c < width; ++c, out += 2) std::memcpy(out, in + columns[c], 2);
            break;
        default:
            for (uint32_t c = 0; c < width; ++c, out += 3) std::memcpy(out, in + columns[c], 3);
            break;
    }
}

HGLOBAL Nearest(const BITMAPINFOHEADER* header, const void* bits, uint32_t width, uint32_t height,
                ProgressReporter* progress, ErrorRecord* record) {
    const uint16_t bitCount = header->biBitCount;
    if (bitCount != 1 && bitCount != 4 && bitCount != 8 && bitCount != 16 && bitCount != 24) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    const uint32_t sourceWidth = Width(header), sourceHeight = Height(header);
    const bool wholeRows = width == sourceWidth;
    CheckedArray<uint32_t> columns;
    if (!wholeRows && !columns.Sized(width, record)) return nullptr;
    const uint32_t bytesPerPixel = bitCount >= 8 ? bitCount / 8u : 1;
    for (uint32_t c = 0; c < columns.size(); ++c) {
        const uint32_t x = SourceOf(c, sourceWidth, width);
        columns[c] = bitCount >= 8 ? x * bytesPerPixel : x;
    }
    HGLOBAL result = NewLike(header, width, height, record);
    if (result == nullptr) return nullptr;
    ImageLock lock(result);
    const uint64_t inStride = RowStride(header), outStride = RowStride(lock.header());
    const auto* in = static_cast<const uint8_t*>(bits);
    uint8_t* out = PackedBits(lock.header());
    uint32_t previous = 0;
    for (uint32_t r = 0; r < height; ++r, out += outStride) {
        const uint32_t from = SourceOf(r, sourceHeight, height);
        if (r > 0 && from == previous) {
            std::memcpy(out, out - outStride, static_cast<size_t>(outStride));
        } else if (wholeRows) {
            std::memcpy(out, in + from * inStride, static_cast<size_t>(outStride));
        } else {
            SampleRow(bitCount, in + from * inStride, columns.data(), width, out);
        }
        previous = from;
        if (!progress->Row(r, height, record)) break;
    }
    if (record->failed()) FreeImage(&result);
    return result;
}

// ---- Smooth reduction ------------------------------------------------------

// floor(n * scale / area) for n up to `limit`, by table when the table is
// small enough to pay for itself, else by division.
class Quotient {
public:
    bool ready() const { return area_ != 0; }
    bool Set(uint64_t area, uint64_t scale, uint64_t limit, ErrorRecord* record) {
        area_ = area;
        scale_ = scale;
        if (limit >= kTableLimit) return true;
        if (!table_.Sized(limit + 1, record)) return false;
        uint64_t quotient = 0, remainder = 0;
        for (uint64_t n = 0; n <= limit; ++n) {
            table_[n] = static_cast<uint8_t>(quotient);
            for (remainder += scale; remainder >= area; remainder -= area) ++quotient;
        }
        return true;
    }
    uint8_t operator()(uint64_t n) const {
        return table_.empty() ? static_cast<uint8_t>(n * scale_ / area_) : table_[static_cast<size_t>(n)];
    }

private:
    static constexpr uint64_t kTableLimit = 1u << 16;
    uint64_t area_ = 0, scale_ = 0;
    CheckedArray<uint8_t> table_;
};

// Box geometry of a reduction: the source column each destination column
// starts at (width + 1 entries, the last one the source width). Spans are
// either the shortest span or one longer, so a box area is one of four.
struct Boxes {
    CheckedArray<uint32_t> starts;
    uint32_t shortWidth = 0, shortHeight = 0;
    uint32_t longWidth = 0, longHeight = 0;  // the largest span: ceil(w / W), ceil(h / H)
    bool uniform = false;
    Quotient quotients[4];

    bool Build(uint32_t sourceWidth, uint32_t sourceHeight, uint32_t width, uint32_t height, ErrorRecord* record) {
        if (!starts.Sized(uint64_t{width} + 1, record)) return false;
        for (uint32_t i = 0; i <= width; ++i) starts[i] = SourceOf(i, sourceWidth, width);
        shortWidth = sourceWidth / width;
        shortHeight = sourceHeight / height;
        longWidth = shortWidth + (sourceWidth % width != 0);
        longHeight = shortHeight + (sourceHeight % height != 0);
        uniform = sourceWidth % width == 0 && sourceHeight % height == 0;
        return true;
    }
    // The quotient for a box of `spanWidth` x `spanHeight`: n * scale / area
    // for n from 0 to perPixel x area, the largest sum such a box holds.
    const Quotient* For(uint32_t spanWidth, uint32_t spanHeight, uint64_t scale, uint64_t perPixel,
                        ErrorRecord* record) {
        Quotient& q = quotients[(spanWidth - shortWidth) + 2 * (spanHeight - shortHeight)];
        const uint64_t area = uint64_t{spanWidth} * spanHeight;
        if (!q.ready() && !q.Set(area, scale, perPixel * area, record)) return nullptr;
        return &q;
    }
};

// Where the pixels of one source byte of a 1-bit row go: the destination
// column of its first pixel, the table that splits its set bits by
// destination column, and how many columns it touches.
struct ByteTarget {
    uint32_t column;
    uint16_t table;
    uint8_t groups;
};

// Counting tables for 1-bit rows. A byte's layout says which of its pixels
// 1 to 7 start a new destination column (bit j for pixel j); each layout in
// use gets a 256-entry table whose entry for a byte holds, in byte g, the
// number of set pixels that fall into the byte's g-th destination column.
class BitCounter {
public:
    bool Build(const Boxes& boxes, uint32_t sourceWidth, ErrorRecord* record) {
        const uint32_t bytes = (sourceWidth + 7) / 8;
        if (!targets_.Sized(bytes, record)) return false;
        std::array<uint16_t, 128> slot;
        slot.fill(0xFFFF);
        uint16_t used = 0;
        uint32_t column = 0;
        for (uint32_t b = 0; b < bytes; ++b) {
            uint32_t layout = 0, groups = 1;
            for (uint32_t j = 0; j < 8 && 8 * b + j < sourceWidth; ++j) {
                const uint32_t x = 8 * b + j;
                const bool starts = boxes.starts[column + 1] <= x;
                if (starts) ++column;
                if (j == 0) {
                    targets_[b].column = column;
                } else if (starts) {
                    layout |= 1u << j;
                    ++groups;
                }
            }
            if (slot[layout >> 1] == 0xFFFF) slot[layout >> 1] = used++;
            targets_[b].table = slot[layout >> 1];
            targets_[b].groups = static_cast<uint8_t>(groups);
        }
        if (!tables_.Sized(uint64_t{used} * 256, record)) return false;
        for (uint32_t layout = 0; layout < 256; layout += 2) {
            if (slot[layout >> 1] == 0xFFFF) continue;
            uint64_t* table = tables_.data() + size_t{slot[layout >> 1]} * 256;
            for (uint32_t v = 0; v < 256; ++v) {
                uint64_t entry = 0;
                uint32_t group = 0;
                for (uint32_t j = 0; j < 8; ++j) {
                    if (layout & (1u << j)) ++group;
                    if (v & (0x80u >> j)) entry += uint64_t{1} << (8 * group);
                }
                table[v] = entry;
            }
        }
        lastMask_ = static_cast<uint8_t>(sourceWidth % 8 ? 0xFF00u >> (sourceWidth % 8) : 0xFFu);
        return true;
    }

    // Adds the set pixels of one source row to the destination counters.
    template <typename Counter>
    void Add(const uint8_t* row, Counter* counters) const {
        const size_t last = targets_.size() - 1;
        for (size_t b = 0; b < last; ++b) {
            if (row[b] != 0) AddByte(b, row[b], counters);
        }
        // Pixels past the width in the last byte are padding.
        const uint32_t v = row[last] & lastMask_;
        if (v != 0) AddByte(last, v, counters);
    }

private:
    template <typename Counter>
    void AddByte(size_t b, uint32_t v, Counter* counters) const {
        const ByteTarget& target = targets_[b];
        uint64_t entry = tables_[size_t{target.table} * 256 + v];
        Counter* counter = counters + target.column;
        for (uint32_t g = 0; g < target.groups; ++g, entry >>= 8) counter[g] += static_cast<Counter>(entry & 0xFF);
    }

    CheckedArray<ByteTarget> targets_;
    CheckedArray<uint64_t> tables_;
    uint8_t lastMask_ = 0xFF;
};

struct Geometry {
    uint32_t sourceWidth, sourceHeight, width, height;
};

// Reduces a 1-bit DIB into `out` (8 bits): each value counts the set pixels
// of its box, directly when `direct`, else scaled to 0..255 by the box area.
template <typename Counter>
bool CountBits(const Geometry& g, const uint8_t* in, uint64_t inStride, Boxes* boxes, bool direct, uint8_t* out,
               uint64_t outStride, ProgressReporter* progress, ErrorRecord* record) {
    BitCounter counter;
    CheckedArray<Counter> counters;
    if (!counter.Build(*boxes, g.sourceWidth, record) || !counters.Sized(g.width, record)) return false;
    for (uint32_t j = 0; j < g.height; ++j, out += outStride) {
        const uint32_t y0 = SourceOf(j, g.sourceHeight, g.height),
                       y1 = SourceOf(uint64_t{j} + 1, g.sourceHeight, g.height);
        std::memset(counters.data(), 0, counters.size() * sizeof(Counter));
        for (uint32_t y = y0; y < y1; ++y) counter.Add(in + y * inStride, counters.data());
        if (direct) {
            for (uint32_t i = 0; i < g.width; ++i) out[i] = static_cast<uint8_t>(counters[i]);
        } else {
            const Quotient* spans[2] = {boxes->For(boxes->shortWidth, y1 - y0, 255, 1, record),
                                        boxes->For(boxes->longWidth, y1 - y0, 255, 1, record)};
            if (spans[0] == nullptr || spans[1] == nullptr) return false;
            for (uint32_t i = 0; i < g.width; ++i) {
                const uint32_t span = boxes->starts[i + 1] - boxes->starts[i];
                out[i] = (*spans[span - boxes->shortWidth])(counters[i]);
            }
        }
        if (!progress->Row(j, g.height, record)) return false;
    }
    return true;
}

// Per-pixel channel values of a table or 16-bit source row: grey levels
// (one byte a pixel) or blue, green, red.
class Expander {
public:
    Expander(const BITMAPINFOHEADER* header, uint32_t channels) : bitCount_(header->biBitCount), channels_(channels) {
        for (auto& entry : lookup_) entry = {0, 0, 0};
        if (bitCount_ <= 8) {
            const uint32_t count = ColorCount(header) < 256 ? ColorCount(header) : 256;
            const RGBQUAD* table = ColorTable(header);
            for (uint32_t i = 0; i < count; ++i) lookup_[i] = {table[i].rgbBlue, table[i].rgbGreen, table[i].rgbRed};
        }
        for (uint32_t v = 0; v < 32; ++v) fives_[v] = static_cast<uint8_t>(v * 255 / 31);
    }

    void Row(const uint8_t* in, uint32_t width, uint8_t* out) const {
        for (uint32_t x = 0; x < width; ++x, out += channels_) {
            if (bitCount_ == 16) {
                const uint32_t v = in[2 * x] | uint32_t{in[2 * x + 1]} << 8;
                out[0] = fives_[v & 31];
                out[1] = fives_[(v >> 5) & 31];
                out[2] = fives_[(v >> 10) & 31];
                continue;
            }
            const uint32_t index = bitCount_ == 8 ? in[x] : (in[x >> 1] >> (x & 1 ? 0 : 4)) & 15u;
            // Grey entries have equal channels; green stands for the level.
            if (channels_ == 1) {
                out[0] = lookup_[index][1];
            } else {
                std::memcpy(out, lookup_[index].data(), 3);
            }
        }
    }

private:
    uint16_t bitCount_;
    uint32_t channels_;
    std::array<std::array<uint8_t, 3>, 256> lookup_;
    std::array<uint8_t, 32> fives_;
};

// Reduces a source of 4 bits and more into `out` (8-bit grey or 24 bits) by
// the truncated average of each channel over each box.
bool AverageChannels(const BITMAPINFOHEADER* header, const Geometry& g, const uint8_t* in, uint64_t inStride,
                     Boxes* boxes, uint32_t channels, uint8_t* out, uint64_t outStride, ProgressReporter* progress,
                     ErrorRecord* record) {
    const bool direct = header->biBitCount == 24;
    const Expander expander(header, channels);
    CheckedArray<uint8_t> expanded;
    CheckedArray<uint64_t> sums;
    if ((!direct && !expanded.Sized(uint64_t{g.sourceWidth} * channels, record)) ||
        !sums.Sized(uint64_t{g.width} * channels, record)) {
        return false;
    }
    for (uint32_t j = 0; j < g.height; ++j, out += outStride) {
        const uint32_t y0 = SourceOf(j, g.sourceHeight, g.height),
                       y1 = SourceOf(uint64_t{j} + 1, g.sourceHeight, g.height);
        std::memset(sums.data(), 0, sums.size() * sizeof(uint64_t));
        for (uint32_t y = y0; y < y1; ++y) {
            const uint8_t* row = in + y * inStride;
            if (!direct) {
                expander.Row(row, g.sourceWidth, expanded.data());
                row = expanded.data();
            }
            uint64_t* sum = sums.data();
            for (uint32_t i = 0; i < g.width; ++i, sum += channels) {
                const uint8_t* p = row + size_t{boxes->starts[i]} * channels;
                const uint8_t* end = row + size_t{boxes->starts[i + 1]} * channels;
                if (channels == 1) {
                    uint64_t s = 0;
                    for (; p < end; ++p) s += *p;
                    sum[0] += s;
                } else {
                    uint64_t b = 0, gr = 0, r = 0;
                    for (; p < end; p += 3) {
                        b += p[0];
                        gr += p[1];
                        r += p[2];
                    }
                    sum[0] += b;
                    sum[1] += gr;
                    sum[2] += r;
                }
            }
        }
        const Quotient* spans[2] = {boxes->For(boxes->shortWidth, y1 - y0, 1, 255, record),
                                    boxes->For(boxes->longWidth, y1 - y0, 1, 255, record)};
        if (spans[0] == nullptr || spans[1] == nullptr) return false;
        for (uint32_t i = 0; i < g.width; ++i) {
            const Quotient& q = *spans[boxes->starts[i + 1] - boxes->starts[i] - boxes->shortWidth];
            for (uint32_t c = 0; c < channels; ++c) out[i * channels + c] = q(sums[i * channels + c]);
        }
        if (!progress->Row(j, g.height, record)) return false;
    }
    return true;
}

// The table of a reduced 1-bit image: `levels` entries running from the
// colour of source entry 0 to that of entry 1 (black for a missing entry).
void TwoColorRamp(const BITMAPINFOHEADER* header, uint32_t levels, RGBQUAD* ramp) {
    const uint32_t count = ColorCount(header);
    const RGBQUAD* table = ColorTable(header);
    const RGBQUAD none = {0, 0, 0, 0};
    const RGBQUAD from = count > 0 ? table[0] : none, to = count > 1 ? table[1] : none;
    const int32_t steps = static_cast<int32_t>(levels) - 1;
    for (int32_t i = 0; i <= steps; ++i) {
        auto level = [&](BYTE a, BYTE b) { return static_cast<BYTE>(a + i * (int32_t{b} - a) / steps); };
        ramp[i] = RGBQUAD{level(from.rgbBlue, to.rgbBlue), level(from.rgbGreen, to.rgbGreen),
                          level(from.rgbRed, to.rgbRed), 0};
    }
}

HGLOBAL Smooth(const BITMAPINFOHEADER* header, const void* bits, uint32_t width, uint32_t height, ResizeColors colors,
               ProgressReporter* progress, ErrorRecord* record) {
    const uint16_t bitCount = header->biBitCount;
    if (bitCount != 1 && bitCount != 4 && bitCount != 8 && bitCount != 16 && bitCount != 24) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return nullptr;
    }
    const Geometry g{Width(header), Height(header), width, height};
    Boxes boxes;
    if (!boxes.Build(g.sourceWidth, g.sourceHeight, width, height, record)) return nullptr;
    const uint64_t largestBox = uint64_t{boxes.longWidth} * boxes.longHeight;
    const bool grey = bitCount == 1 || (bitCount <= 8 && IsGreyTable(header));
    // A uniform 1-bit reduction stores the counts themselves when they fit.
    const bool direct = bitCount == 1 && boxes.uniform && largestBox + 1 <= 255;
    const uint32_t levels = bitCount == 1 ? (direct ? static_cast<uint32_t>(largestBox) + 1 : 256) : 256;
    std::array<RGBQUAD, 256> ramp{};
    if (bitCount == 1) TwoColorRamp(header, levels, ramp.data());
    // Counts whose ramp is grey may be stored as the grey levels themselves.
    const bool asLevels = bitCount == 1 && colors == ResizeColors::GreyLevels &&
                          ClassifyGrey(ramp.data(), levels, 8) != GreyKind::NotGrey;
    HGLOBAL result = CreateImage(static_cast<int32_t>(width), static_cast<int32_t>(height), grey ? 8 : 24,
                                 ScalePelsPerMeter(header->biXPelsPerMeter, width, g.sourceWidth),
                                 ScalePelsPerMeter(header->biYPelsPerMeter, height, g.sourceHeight),
                                 grey ? (asLevels ? 256 : levels) : 0, kStorageZeroInit | kStorageGreyRamp, record);
    if (result == nullptr) return nullptr;
    ImageLock lock(result);
    BITMAPINFOHEADER* out = lock.header();
    const auto* in = static_cast<const uint8_t*>(bits);
    const uint64_t inStride = RowStride(header), outStride = RowStride(out);
    bool done = false;
    if (bitCount == 1) {
        if (!asLevels) std::memcpy(ColorTable(out), ramp.data(), size_t{levels} * 4);
        uint8_t* rows = PackedBits(out);
        if (largestBox <= 0xFF) {
            done = CountBits<uint8_t>(g, in, inStride, &boxes, direct, rows, outStride, progress, record);
        } else if (largestBox <= 0xFFFF) {
            done = CountBits<uint16_t>(g, in, inStride, &boxes, direct, rows, outStride, progress, record);
        } else if (largestBox <= 0xFFFFFFFFu) {
            done = CountBits<uint32_t>(g, in, inStride, &boxes, direct, rows, outStride, progress, record);
        } else {
            done = CountBits<uint64_t>(g, in, inStride, &boxes, direct, rows, outStride, progress, record);
        }
        for (uint32_t r = 0; done && asLevels && r < height; ++r, rows += outStride) {
            for (uint32_t x = 0; x < width; ++x) rows[x] = ramp[rows[x]].rgbGreen;
        }
    } else {
        done = AverageChannels(header, g, in, inStride, &boxes, grey ? 1 : 3, PackedBits(out), outStride, progress,
                               record);
    }
    if (!done) FreeImage(&result);
    return result;
}

// A copy of the DIB with its rows (masks and table kept).
HGLOBAL Copy(const BITMAPINFOHEADER* header, const void* bits, ErrorRecord* record) {
    HGLOBAL result = NewLike(header, Width(header), Height(header), record);
    if (result == nullptr) return nullptr;
    ImageLock lock(result);
    std::memcpy(PackedBits(lock.header()), bits, static_cast<size_t>(RowStride(header) * Height(header)));
    return result;
}

}  // namespace

HGLOBAL ResizeDib(const BITMAPINFOHEADER* header, const void* bits, uint32_t width, uint32_t height,
                  ResizeQuality quality, ResizeColors colors, ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    ProgressReporter silent;
    if (progress == nullptr) progress = &silent;
    const uint32_t sourceWidth = Width(header), sourceHeight = Height(header);
    const uint32_t limit = static_cast<uint32_t>(kMaxImageDimension);
    if (width == 0 || height == 0 || width > limit || height > limit) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    if (header->biPlanes != 1) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return nullptr;
    }
    if (width == sourceWidth && height == sourceHeight) return Copy(header, bits, record);
    if ((width < sourceWidth && height > sourceHeight) || (width > sourceWidth && height < sourceHeight)) {
        // Reduce the shrinking dimension first, then enlarge the other.
        HGLOBAL reduced = width < sourceWidth
                              ? ResizeDib(header, bits, width, sourceHeight, quality, colors, progress, record)
                              : ResizeDib(header, bits, sourceWidth, height, quality, colors, progress, record);
        if (reduced == nullptr) return nullptr;
        HGLOBAL result = nullptr;
        {
            ImageLock lock(reduced);
            result = Nearest(lock.header(), lock.bits(), width, height, progress, record);
        }
        FreeImage(&reduced);
        return result;
    }
    const bool enlarging = width >= sourceWidth && height >= sourceHeight;
    if (enlarging || quality == ResizeQuality::Nearest) return Nearest(header, bits, width, height, progress, record);

    HGLOBAL result = Smooth(header, bits, width, height, colors, progress, record);
    if (result == nullptr || colors != ResizeColors::Optimize) return result;
    HGLOBAL smaller = nullptr;
    {
        ImageLock lock(result);
        smaller = OptimizeDibColors(lock.header(), lock.bits(), progress, record);
    }
    if (smaller != nullptr || record->failed()) FreeImage(&result);
    if (record->failed()) FreeImage(&smaller);
    return smaller != nullptr ? smaller : result;
}

}  // namespace velmora
