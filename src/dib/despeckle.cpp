// One pass scans the rows from the top and turns each into runs of the speck
// colour. A run joins the components of the runs of the row above that it
// touches (overlapping or diagonally adjacent), merging them when it touches
// several; a run that touches none starts a component. A component that gets
// no run in a row can grow no more: it is judged then, and its bounding
// rectangle filled when its pixel count is small enough. Filling only
// changes rows above the current one, whose runs are already taken, so the
// components are those of the image as the pass began.
//
// Component records are recycled: at the end of each row every run of the
// row holds its component's root, and the records of the row above that were
// merged away or finished are released. At most the runs of two rows are
// alive at once, so the records number twice the largest run count.
#include "dib/despeckle.h"

#include <algorithm>

#include "dib/dib_layout.h"
#include "dib/pixel_operations.h"
#include "frame/checked_array.h"

namespace velmora {
namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;

struct RowRun {
    uint32_t start;  // first pixel
    uint32_t end;    // last pixel
    uint32_t component;
};

struct Speck {
    uint32_t left, top, right, bottom;  // inclusive
    uint32_t parent;                    // itself for a root
    uint32_t seen;                      // the last row a run of it was in
    uint8_t count;                      // pixels, saturating at 255
    bool live;
};

uint8_t SaturatingAdd(uint8_t count, uint64_t more) {
    return static_cast<uint8_t>(std::min<uint64_t>(uint64_t{count} + more, 255));
}

// The progress of one pass mapped into its share of the whole operation.
struct PassProgress {
    ProgressReporter* reporter;
    uint32_t base;  // 0 or 50
    bool half;      // both passes run
    bool Row(uint32_t row, uint32_t total, ErrorRecord* record) const {
        if (reporter == nullptr || !reporter->active()) return true;
        const uint32_t percent = static_cast<uint32_t>(uint64_t{row} * 100 / total);
        return reporter->Percent(half ? base + percent / 2 : percent, record);
    }
};

class SpeckPass {
public:
    SpeckPass(const DibRows& rows, uint32_t width, uint32_t maximum) : rows_(rows), width_(width), maximum_(maximum) {}

    bool Prepare(ErrorRecord* record) {
        // A row of w pixels holds at most (w + 1) / 2 runs of one colour.
        const uint64_t runs = uint64_t{width_} / 2 + 2;
        if (!runsA_.Sized(runs, record) || !runsB_.Sized(runs, record) || !specks_.Sized(2 * runs, record) ||
            !free_.Sized(2 * runs, record)) {
            return false;
        }
        above_ = runsA_.data();
        current_ = runsB_.data();
        return true;
    }

    // Removes the specks of index `speck` (0 or 1), filling with the other.
    bool Remove(uint32_t speck, const PassProgress& progress, ErrorRecord* record) {
        fill_ = speck == 0 ? BitFill::Set : BitFill::Clear;
        // Bytes are read so that speck pixels are 1 bits.
        flip_ = speck == 0 ? 0xFF : 0x00;
        freeCount_ = 0;
        for (size_t i = specks_.size(); i-- > 0;) {
            specks_[i].live = false;
            free_[freeCount_++] = static_cast<uint32_t>(i);
        }
        aboveCount_ = 0;
        for (uint32_t y = 0; y < rows_.height; ++y) {
            ScanRow(y);
            Settle(y);
            std::swap(above_, current_);
            aboveCount_ = currentCount_;
            if (!progress.Row(y, rows_.height, record)) return false;
        }
        for (uint32_t i = 0; i < aboveCount_; ++i) {
            const uint32_t id = above_[i].component;
            if (specks_[id].live) Finish(id);
        }
        return true;
    }

private:
    bool IsSpeck(const uint8_t* row, uint32_t x) const { return ((row[x / 8] ^ flip_) >> (7 - x % 8) & 1) != 0; }

    // The first pixel from x on that is (or is not) of the speck colour.
    uint32_t Next(const uint8_t* row, uint32_t x, bool speck) const {
        const uint8_t empty = speck ? 0x00 : 0xFF;
        while (x < width_) {
            if (x % 8 == 0 && width_ - x >= 8 && static_cast<uint8_t>(row[x / 8] ^ flip_) == empty) {
                x += 8;
                continue;
            }
            if (IsSpeck(row, x) == speck) return x;
            ++x;
        }
        return width_;
    }

    uint32_t Find(uint32_t id) {
        while (specks_[id].parent != id) {
            specks_[id].parent = specks_[specks_[id].parent].parent;
            id = specks_[id].parent;
        }
        return id;
    }

    // The smaller-numbered record takes the union.
    uint32_t Merge(uint32_t a, uint32_t b) {
        const uint32_t into = std::min(a, b), from = std::max(a, b);
        Speck& target = specks_[into];
        const Speck& other = specks_[from];
        target.left = std::min(target.left, other.left);
        target.top = std::min(target.top, other.top);
        target.right = std::max(target.right, other.right);
        target.bottom = std::max(target.bottom, other.bottom);
        target.count = SaturatingAdd(target.count, other.count);
        specks_[from].parent = into;
        return into;
    }

    void ScanRow(uint32_t y) {
        const uint8_t* row = rows_.top + rows_.stride * static_cast<ptrdiff_t>(y);
        currentCount_ = 0;
        uint32_t j = 0;  // the first run above that the next run may touch
        for (uint32_t x = Next(row, 0, true); x < width_;) {
            const uint32_t end = Next(row, x, false) - 1;
            while (j < aboveCount_ && above_[j].end + 1 < x) ++j;
            uint32_t component = kNone;
            for (uint32_t k = j; k < aboveCount_ && above_[k].start <= end + 1; ++k) {
                const uint32_t root = Find(above_[k].component);
                component = component == kNone ? root : root == component ? component : Merge(component, root);
            }
            const uint32_t length = end - x + 1;
            if (component == kNone) {
                component = free_[--freeCount_];
                specks_[component] = Speck{x, y, end, y, component, y, SaturatingAdd(0, length), true};
            } else {
                Speck& speck = specks_[component];
                speck.left = std::min(speck.left, x);
                speck.right = std::max(speck.right, end);
                speck.bottom = y;
                speck.count = SaturatingAdd(speck.count, length);
            }
            current_[currentCount_++] = RowRun{x, end, component};
            x = end + 1 < width_ ? Next(row, end + 1, true) : width_;
        }
    }

    // After row y: the row's runs point at roots; the records of the row
    // above that were merged away are released, those that got no run in
    // row y are finished.
    void Settle(uint32_t y) {
        for (uint32_t i = 0; i < currentCount_; ++i) {
            const uint32_t root = Find(current_[i].component);
            current_[i].component = root;
            specks_[root].seen = y;
        }
        for (uint32_t i = 0; i < aboveCount_; ++i) {
            const uint32_t id = above_[i].component;
            Speck& speck = specks_[id];
            if (!speck.live || (speck.parent == id && speck.seen == y)) continue;
            if (speck.parent == id) {
                Finish(id);
            } else {
                Release(id);
            }
        }
    }

    void Finish(uint32_t id) {
        const Speck& speck = specks_[id];
        if (speck.count <= maximum_)
            FillBitRect(rows_, speck.left, speck.top, speck.right + 1, speck.bottom + 1, fill_);
        Release(id);
    }

    void Release(uint32_t id) {
        specks_[id].live = false;
        free_[freeCount_++] = id;
    }

    DibRows rows_;
    uint32_t width_;
    uint32_t maximum_;
    BitFill fill_ = BitFill::Set;
    uint8_t flip_ = 0;
    CheckedArray<RowRun> runsA_, runsB_;
    RowRun* above_ = nullptr;
    RowRun* current_ = nullptr;
    uint32_t aboveCount_ = 0, currentCount_ = 0;
    CheckedArray<Speck> specks_;
    CheckedArray<uint32_t> free_;
    uint32_t freeCount_ = 0;
};

// The index of the lighter table entry.
uint32_t LighterEntry(const BITMAPINFOHEADER* header) {
    const uint32_t count = ColorCount(header);
    uint32_t distance[2];
    for (uint32_t i = 0; i < 2; ++i) {
        const COLORREF color = i < count ? ColorOf(ColorTable(header)[i]) : 0;
        distance[i] = 765u - RedOf(color) - GreenOf(color) - BlueOf(color);
    }
    return distance[1] <= distance[0] ? 1 : 0;
}

}  // namespace

bool DespeckleDib(const BITMAPINFOHEADER* header, void* bits, uint32_t maximum, uint32_t flags,
                  ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return false;
    maximum = std::min(maximum, kDespeckleMaximum);
    const bool black = (flags & kDespeckleBlack) != 0, white = (flags & kDespeckleWhite) != 0;
    if (maximum == 0 || (!black && !white)) return true;
    const DibRows rows = RowsFromTop(const_cast<BITMAPINFOHEADER*>(header), bits);
    SpeckPass pass(rows, static_cast<uint32_t>(header->biWidth), maximum);
    if (!pass.Prepare(record)) return false;
    const uint32_t lighter = LighterEntry(header);
    const bool both = black && white;
    if (black && !pass.Remove(1 - lighter, PassProgress{progress, 0, both}, record)) return false;
    if (both && progress != nullptr && progress->active() && !progress->Percent(50, record)) return false;
    if (white && !pass.Remove(lighter, PassProgress{progress, 50, both}, record)) return false;
    return true;
}

}  // namespace velmora
