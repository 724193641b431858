#include "dib/color_conversion.h"

#include <cstring>
#include <new>
#include <utility>

#include "dib/color_quantizer.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/palette.h"
#include "frame/memory_handle.h"
#include "frame/scratch_block.h"
#include "platform/platform.h"

namespace velmora {
namespace {

// Grey weights in 24-bit fixed point: entry v = v x 2^24 x weight / 1000.
struct GreyWeights {
    uint32_t red[256], green[256], blue[256];
};
constexpr GreyWeights MakeGreyWeights() {
    GreyWeights weights{};
    for (uint64_t v = 0; v < 256; ++v) {
        weights.red[v] = static_cast<uint32_t>((v << 24) * 299 / 1000);
        weights.green[v] = static_cast<uint32_t>((v << 24) * 587 / 1000);
        weights.blue[v] = static_cast<uint32_t>((v << 24) * 114 / 1000);
    }
    return weights;
}
constexpr GreyWeights kGreyWeights = MakeGreyWeights();

bool PureBlackOrWhite(const RGBQUAD& entry) {
    return (entry.rgbRed == 0 && entry.rgbGreen == 0 && entry.rgbBlue == 0) ||
           (entry.rgbRed == 255 && entry.rgbGreen == 255 && entry.rgbBlue == 255);
}

// The source image, read row by row from the top as colours.
class SourceRows {
public:
    SourceRows(const BITMAPINFOHEADER* header, const void* bits)
        : header_(header),
          bits_(static_cast<const uint8_t*>(bits)),
          stride_(static_cast<size_t>(RowStride(header))),
          width_(static_cast<uint32_t>(header->biWidth)),
          height_(static_cast<uint32_t>(header->biHeight)),
          table_(ColorTable(header)),
          tableCount_(ColorCount(header)) {}

    bool Begin(ErrorRecord* record) {
        colors_ = reinterpret_cast<COLORREF*>(block_.Allocate(size_t{width_} * sizeof(COLORREF), false, record));
        return colors_ != nullptr;
    }
    uint32_t width() const { return width_; }
    uint32_t height() const { return height_; }
    // Row y (0 = top) as stored.
    const uint8_t* Stored(uint32_t y) const { return bits_ + stride_ * (height_ - 1 - y); }
    // The table index of pixel x of a 1-, 4- or 8-bit row.
    uint32_t Index(const uint8_t* row, uint32_t x) const {
        switch (header_->biBitCount) {
            case 1: return (row[x / 8] >> (7 - x % 8)) & 1;
            case 4: return x % 2 == 0 ? row[x / 2] >> 4 : row[x / 2] & 0x0F;
            default: return row[x];
        }
    }
    // Row y as colours (0x00BBGGRR). Indexes past the table are black; 16-bit
    // pixels are 5-5-5 fields widened by v x 255 / 31.
    const COLORREF* Colors(uint32_t y) {
        const uint8_t* row = Stored(y);
        switch (header_->biBitCount) {
            case 1:
            case 4:
            case 8:
                for (uint32_t x = 0; x < width_; ++x) {
                    uint32_t index = Index(row, x);
                    colors_[x] = index < tableCount_ ? ColorOf(table_[index]) : 0;
                }
                break;
            case 16:
                for (uint32_t x = 0; x < width_; ++x) {
                    uint32_t v = row[2 * size_t{x}] | row[2 * size_t{x} + 1] << 8;
                    colors_[x] =
                        ((v >> 10) & 31) * 255 / 31 | (((v >> 5) & 31) * 255 / 31) << 8 | ((v & 31) * 255 / 31) << 16;
                }
                break;
            default: {
                const size_t step = header_->biBitCount / 8;
                for (uint32_t x = 0; x < width_; ++x) {
                    const uint8_t* p = row + step * x;
                    colors_[x] = COLORREF{p[2]} | COLORREF{p[1]} << 8 | COLORREF{p[0]} << 16;
                }
                break;
            }
        }
        return colors_;
    }

    const BITMAPINFOHEADER* header_;
    const uint8_t* bits_;
    size_t stride_;
    uint32_t width_, height_;
    const RGBQUAD* table_;
    uint32_t tableCount_;

private:
    ScratchBlock block_;
    COLORREF* colors_ = nullptr;
};

// A new image being written row by row from the top.
class TargetImage {
public:
    bool Create(const SourceRows& source, uint16_t bitCount, const RGBQUAD* table, uint32_t count, bool greyRamp,
                ErrorRecord* record) {
        const BITMAPINFOHEADER* h = source.header_;
        image_ = greyRamp ? CreateImage(h->biWidth, h->biHeight, bitCount, h->biXPelsPerMeter, h->biYPelsPerMeter,
                                        count, kStorageGreyRamp | kStorageZeroInit, record)
                          : CreatePackedDib(h->biWidth, h->biHeight, bitCount, table, count, h->biXPelsPerMeter,
                                            h->biYPelsPerMeter, record);
        if (image_ == nullptr) return false;
        header_ = LockImage(image_);
        rows_ = RowsFromTop(header_, ImageBits(image_, header_));
        return true;
    }
    ~TargetImage() {
        if (header_ != nullptr) UnlockImage(image_);
        if (image_ != nullptr) FreeImage(&image_);
    }
    uint8_t* Row(uint32_t y) const { return rows_.top + rows_.stride * static_cast<ptrdiff_t>(y); }
    HGLOBAL Release() {
        UnlockImage(image_);
        header_ = nullptr;
        HGLOBAL image = image_;
        image_ = nullptr;
        return image;
    }

private:
    HGLOBAL image_ = nullptr;
    BITMAPINFOHEADER* header_ = nullptr;
    DibRows rows_{};
};

// Stores value `v` as pixel x of a zeroed 1-, 4- or 8-bit row.
inline void PutPixel(uint8_t* row, uint32_t x, uint16_t bitCount, uint32_t v) {
    switch (bitCount) {
        case 1: row[x / 8] |= static_cast<uint8_t>(v << (7 - x % 8)); break;
        case 4: row[x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? v << 4 : v); break;
        default: row[x] = static_cast<uint8_t>(v); break;
    }
}

// A plain copy: the same header, table and rows in a new block.
HGLOBAL CopyDib(const BITMAPINFOHEADER* header, const void* bits, ErrorRecord* record) {
    uint64_t offset = BitsOffset(header), rows = 0;
    if (!ImageBytes(header, &rows) || offset + rows > kMaxPackedDibBytes) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return nullptr;
    }
    HGLOBAL copy = AllocHandle(static_cast<size_t>(offset + rows), 0, record);
    if (copy == nullptr) return nullptr;
    auto* out = static_cast<uint8_t*>(platform::MemLock(copy));
    std::memcpy(out, header, static_cast<size_t>(offset));
    std::memcpy(out + offset, bits, static_cast<size_t>(rows));
    platform::MemUnlock(copy);
    return copy;
}

// Every pixel through `level(colour)` into a grey or bi-level image with an
// ascending ramp of 2^bitCount entries.
template <typename Level>
HGLOBAL ToLevels(SourceRows& source, uint16_t bitCount, Level level, ProgressReporter* progress, ErrorRecord* record) {
    TargetImage target;
    if (!source.Begin(record) || !target.Create(source, bitCount, nullptr, 1u << bitCount, true, record)) {
        return nullptr;
    }
    for (uint32_t y = 0; y < source.height(); ++y) {
        const COLORREF* colors = source.Colors(y);
        uint8_t* row = target.Row(y);
        for (uint32_t x = 0; x < source.width(); ++x) PutPixel(row, x, bitCount, level(colors[x]));
        if (progress != nullptr && !progress->Row(y, source.height(), record)) return nullptr;
    }
    return target.Release();
}

// 1- and 4-bit indices widened to 8 bits: through the grey levels of a grey
// table into a ramp image, or keeping the table.
HGLOBAL WidenIndices(SourceRows& source, bool throughGrey, ProgressReporter* progress, ErrorRecord* record) {
    TargetImage target;
    if (!target.Create(source, 8, source.table_, throughGrey ? 256 : source.tableCount_, throughGrey, record)) {
        return nullptr;
    }
    for (uint32_t y = 0; y < source.height(); ++y) {
        const uint8_t* in = source.Stored(y);
        uint8_t* row = target.Row(y);
        for (uint32_t x = 0; x < source.width(); ++x) {
            uint32_t index = source.Index(in, x);
            row[x] = !throughGrey                 ? static_cast<uint8_t>(index)
                     : index < source.tableCount_ ? source.table_[index].rgbRed
                                                  : 0;
        }
        if (progress != nullptr && !progress->Row(y, source.height(), record)) return nullptr;
    }
    return target.Release();
}

// Every pixel as blue, green, red.
HGLOBAL ToRgb(SourceRows& source, ProgressReporter* progress, ErrorRecord* record) {
    TargetImage target;
    if (!source.Begin(record) || !target.Create(source, 24, nullptr, 0, false, record)) return nullptr;
    for (uint32_t y = 0; y < source.height(); ++y) {
        const COLORREF* colors = source.Colors(y);
        uint8_t* row = target.Row(y);
        for (uint32_t x = 0; x < source.width(); ++x) {
            row[3 * size_t{x}] = BlueOf(colors[x]);
            row[3 * size_t{x} + 1] = GreenOf(colors[x]);
            row[3 * size_t{x} + 2] = RedOf(colors[x]);
        }
        if (progress != nullptr && !progress->Row(y, source.height(), record)) return nullptr;
    }
    return target.Release();
}

// Maps colours to their nearest palette entry, remembering recent answers.
class NearestCache {
public:
    NearestCache(const RGBQUAD* table, uint32_t count) : table_(table), count_(count) {
        for (Slot& slot : slots_) slot.color = kEmpty;
    }
    uint32_t Find(COLORREF color) {
        Slot& slot = slots_[(color * 0x9E3779B1u) >> (32 - kBits)];
        if (slot.color != color) {
            slot.color = color;
            slot.index = static_cast<uint32_t>(NearestColor(table_, count_, color, nullptr));
        }
        return slot.index;
    }

private:
    static constexpr unsigned kBits = 12;
    static constexpr COLORREF kEmpty = 0xFFFFFFFF;  // no colour has a high byte
    struct Slot {
        COLORREF color;
        uint32_t index;
    };
    const RGBQUAD* table_;
    uint32_t count_;
    Slot slots_[1u << kBits];
};

// Reduces to the `wanted` best colours of an octree and maps every pixel to
// the nearest of them. Progress counts both passes.
HGLOBAL Quantize(SourceRows& source, uint32_t wanted, uint16_t bitCount, ProgressReporter* progress,
                 ErrorRecord* record) {
    ColorQuantizer quantizer;
    if (!source.Begin(record) || !quantizer.Begin(wanted, record)) return nullptr;
    const uint32_t height = source.height();
    for (uint32_t y = 0; y < height; ++y) {
        const COLORREF* colors = source.Colors(y);
        for (uint32_t x = 0; x < source.width(); ++x) quantizer.Add(colors[x]);
        if (progress != nullptr && !progress->Row(y, 2 * height, record)) return nullptr;
    }
    RGBQUAD palette[256];
    const uint32_t count = quantizer.Palette(palette);
    TargetImage target;
    ScratchBlock cacheBlock;
    auto* cache = reinterpret_cast<NearestCache*>(cacheBlock.Allocate(sizeof(NearestCache), false, record));
    if (cache == nullptr || !target.Create(source, bitCount, palette, count, false, record)) return nullptr;
    new (cache) NearestCache(palette, count);
    for (uint32_t y = 0; y < height; ++y) {
        const COLORREF* colors = source.Colors(y);
        uint8_t* row = target.Row(y);
        for (uint32_t x = 0; x < source.width(); ++x) PutPixel(row, x, bitCount, cache->Find(colors[x]));
        if (progress != nullptr && !progress->Row(height + y, 2 * height, record)) return nullptr;
    }
    return target.Release();
}

// Floyd-Steinberg error diffusion to bi-level, left to right on every row
// from the top. Errors are kept times 16 in two rows with a spare entry at
// both ends; 7/16 of a pixel's error goes right, 3/16, 5/16 and 1/16 to the
// pixels below left, below and below right.
HGLOBAL Dither(SourceRows& source, ProgressReporter* progress, ErrorRecord* record) {
    TargetImage target;
    ScratchBlock errorBlock;
    const size_t entries = size_t{source.width()} + 2;
    auto* errors = reinterpret_cast<int16_t*>(errorBlock.Allocate(2 * entries * sizeof(int16_t), true, record));
    if (errors == nullptr || !source.Begin(record) || !target.Create(source, 1, nullptr, 2, true, record)) {
        return nullptr;
    }
    int16_t* current = errors + 1;
    int16_t* next = errors + entries + 1;
    for (uint32_t y = 0; y < source.height(); ++y) {
        const COLORREF* colors = source.Colors(y);
        uint8_t* row = target.Row(y);
        for (uint32_t x = 0; x < source.width(); ++x) {
            int32_t v = GreyLevel(colors[x]) + current[x] / 16;
            v = v < 0 ? 0 : v > 255 ? 255 : v;
            const bool white = v >= 128;
            if (white) row[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
            const int32_t e = v - (white ? 255 : 0);
            current[x + 1] = static_cast<int16_t>(current[x + 1] + 7 * e);
            next[static_cast<ptrdiff_t>(x) - 1] = static_cast<int16_t>(next[static_cast<ptrdiff_t>(x) - 1] + 3 * e);
            next[x] = static_cast<int16_t>(next[x] + 5 * e);
            next[x + 1] = static_cast<int16_t>(next[x + 1] + e);
        }
        std::swap(current, next);
        std::memset(next - 1, 0, entries * sizeof(int16_t));
        if (progress != nullptr && !progress->Row(y, source.height(), record)) return nullptr;
    }
    return target.Release();
}

// The distinct colours of an image in the order they first appear, up to
// 256 of them, each with its index in that order.
class ColorCounter {
public:
    static constexpr uint32_t kLimit = 256;
    ColorCounter() {
        for (Slot& slot : slots_) slot.color = kEmpty;
    }
    // The colour's index, adding it while there are fewer than kLimit; kLimit
    // for a colour beyond them (the 257th: too many for a palette).
    uint32_t Index(COLORREF color) {
        uint32_t h = (color * 0x9E3779B1u) >> (32 - kBits);
        while (slots_[h].color != color) {
            if (slots_[h].color == kEmpty) {
                if (count_ == kLimit) return kLimit;
                slots_[h].color = color;
                slots_[h].index = count_;
                colors_[count_++] = color;
                return slots_[h].index;
            }
            h = (h + 1) & (kSlots - 1);
        }
        return slots_[h].index;
    }
    uint32_t count() const { return count_; }
    COLORREF color(uint32_t i) const { return colors_[i]; }

private:
    static constexpr unsigned kBits = 10;
    static constexpr uint32_t kSlots = 1u << kBits;
    static constexpr COLORREF kEmpty = 0xFFFFFFFF;
    struct Slot {
        COLORREF color;
        uint32_t index;
    };
    Slot slots_[kSlots];
    COLORREF colors_[kLimit];
    uint32_t count_ = 0;
};

uint16_t PaletteDepth(uint32_t colors) { return colors <= 2 ? 1 : colors <= 16 ? 4 : 8; }

// 16-, 24- and 32-bit sources: count the colours (the first half of the
// progress), then map every pixel to its entry (the second half).
HGLOBAL OptimizeTrueColor(SourceRows& source, ProgressReporter* progress, ErrorRecord* record) {
    ScratchBlock counterBlock;
    auto* counter = reinterpret_cast<ColorCounter*>(counterBlock.Allocate(sizeof(ColorCounter), false, record));
    if (counter == nullptr || !source.Begin(record)) return nullptr;
    new (counter) ColorCounter;
    const uint32_t height = source.height();
    for (uint32_t y = 0; y < height; ++y) {
        const COLORREF* colors = source.Colors(y);
        for (uint32_t x = 0; x < source.width(); ++x) {
            if (counter->Index(colors[x]) == ColorCounter::kLimit) return nullptr;  // no smaller form
        }
        if (progress != nullptr && !progress->Row(y, 2 * height, record)) return nullptr;
    }
    const uint32_t count = counter->count();
    const uint16_t bitCount = PaletteDepth(count);
    bool allGrey = source.header_->biBitCount == 24 && bitCount == 8;
    RGBQUAD table[ColorCounter::kLimit];
    for (uint32_t i = 0; i < count; ++i) {
        table[i] = QuadOf(counter->color(i));
        allGrey = allGrey && table[i].rgbRed == table[i].rgbGreen && table[i].rgbGreen == table[i].rgbBlue;
    }
    TargetImage target;
    if (!target.Create(source, bitCount, table, allGrey ? 256 : count, allGrey, record)) return nullptr;
    for (uint32_t y = 0; y < height; ++y) {
        const COLORREF* colors = source.Colors(y);
        uint8_t* row = target.Row(y);
        for (uint32_t x = 0; x < source.width(); ++x) {
            PutPixel(row, x, bitCount, allGrey ? RedOf(colors[x]) : counter->Index(colors[x]));
        }
        if (progress != nullptr && !progress->Row(height + y, 2 * height, record)) return nullptr;
    }
    return target.Release();
}

// 4- and 8-bit sources: keep the distinct colours of the entries the pixels
// use, in the order of their first entries, and remap every pixel.
HGLOBAL CompactPalette(SourceRows& source, ProgressReporter* progress, ErrorRecord* record) {
    bool used[256] = {};
    bool outside = false;  // an index past the table: it shows black
    const uint32_t height = source.height();
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* row = source.Stored(y);
        for (uint32_t x = 0; x < source.width(); ++x) used[source.Index(row, x)] = true;
    }
    RGBQUAD table[256];
    uint8_t remap[256] = {};
    uint32_t count = 0;
    for (uint32_t i = 0; i < 256; ++i) {
        if (!used[i]) continue;
        if (i >= source.tableCount_) {
            outside = true;
            continue;
        }
        const COLORREF color = ColorOf(source.table_[i]);
        uint32_t at = 0;
        while (at < count && ColorOf(table[at]) != color) ++at;
        if (at == count) table[count++] = QuadOf(color);
        remap[i] = static_cast<uint8_t>(at);
    }
    if (outside) {
        uint32_t at = 0;
        while (at < count && ColorOf(table[at]) != 0) ++at;
        if (at == count) table[count++] = QuadOf(0);
        for (uint32_t i = source.tableCount_; i < 256; ++i) remap[i] = static_cast<uint8_t>(at);
    }
    const uint16_t sourceBits = source.header_->biBitCount;
    const uint16_t bitCount = count <= 2 ? 1 : count <= 16 && sourceBits == 8 ? 4 : sourceBits;
    TargetImage target;
    if (!target.Create(source, bitCount, table, count, false, record)) return nullptr;
    for (uint32_t y = 0; y < height; ++y) {
        const uint8_t* in = source.Stored(y);
        uint8_t* row = target.Row(y);
        for (uint32_t x = 0; x < source.width(); ++x) PutPixel(row, x, bitCount, remap[source.Index(in, x)]);
        if (progress != nullptr && !progress->Row(y, height, record)) return nullptr;
    }
    return target.Release();
}

}  // namespace

uint8_t GreyLevel(COLORREF color) {
    return static_cast<uint8_t>((kGreyWeights.red[RedOf(color)] + kGreyWeights.green[GreenOf(color)] +
                                 kGreyWeights.blue[BlueOf(color)] + 0x800000u) >>
                                24);
}

HGLOBAL ChangeDibColor(const BITMAPINFOHEADER* header, const void* bits, int32_t target, ProgressReporter* progress,
                       ErrorRecord* record) {
    if (record->failed()) return nullptr;
    const uint16_t bitCount = header->biBitCount;
    const bool paletted = bitCount <= 8;
    if (header->biPlanes != 1 || (target < 0 && target != kTargetDitheredBilevel) || target > 6 ||
        (bitCount != 1 && bitCount != 4 && bitCount != 8 && bitCount != 16 && bitCount != 24 && bitCount != 32)) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    SourceRows source(header, bits);
    const bool grey = paletted && IsGreyTable(header);
    const bool blackAndWhite = bitCount == 1 && source.tableCount_ >= 2 && PureBlackOrWhite(source.table_[0]) &&
                               PureBlackOrWhite(source.table_[1]);
    auto bilevel = [](COLORREF c) { return GreyLevel(c) >= 128 ? 1u : 0u; };
    auto grey4 = [](COLORREF c) { return static_cast<uint32_t>(GreyLevel(c) >> 4); };
    auto grey8 = [](COLORREF c) { return static_cast<uint32_t>(GreyLevel(c)); };
    switch (target) {
        case 0: return blackAndWhite ? CopyDib(header, bits, record) : ToLevels(source, 1, bilevel, progress, record);
        case 1: return bitCount == 1 ? CopyDib(header, bits, record) : Quantize(source, 2, 1, progress, record);
        case 2:
            return bitCount == 4 && grey ? CopyDib(header, bits, record) : ToLevels(source, 4, grey4, progress, record);
        case 3: return bitCount == 4 ? CopyDib(header, bits, record) : Quantize(source, 16, 4, progress, record);
        case 4:
            if (bitCount == 8 && grey) return CopyDib(header, bits, record);
            if (bitCount < 8 && grey) return WidenIndices(source, true, progress, record);
            return ToLevels(source, 8, grey8, progress, record);
        case 5:
            if (bitCount == 8) return CopyDib(header, bits, record);
            if (bitCount < 8) return WidenIndices(source, false, progress, record);
            return Quantize(source, 256, 8, progress, record);
        case 6: return bitCount == 24 ? CopyDib(header, bits, record) : ToRgb(source, progress, record);
        default: return blackAndWhite ? CopyDib(header, bits, record) : Dither(source, progress, record);
    }
}

HGLOBAL OptimizeDibColors(const BITMAPINFOHEADER* header, const void* bits, ProgressReporter* progress,
                          ErrorRecord* record) {
    if (record->failed()) return nullptr;
    SourceRows source(header, bits);
    switch (header->biBitCount) {
        case 4:
        case 8: return CompactPalette(source, progress, record);
        case 16:
        case 24:
        case 32: return OptimizeTrueColor(source, progress, record);
        default: return nullptr;
    }
}

BITMAPINFOHEADER* ReplaceWithBilevel(HGLOBAL* dib, BITMAPINFOHEADER* header, bool dither, ErrorRecord* record) {
    HGLOBAL bilevel = ChangeDibColor(header, PackedBits(header), dither ? kTargetDitheredBilevel : 0, nullptr, record);
    UnlockImage(*dib);
    FreeImage(dib);
    if (bilevel == nullptr) return nullptr;
    *dib = bilevel;
    return LockImage(*dib);
}

}  // namespace velmora
