#include "tiff/page_numbering.h"

#include <bit>

namespace velmora {
namespace {

// PageNumber holds 16-bit values, so pages from the file are 1 to 65536.
constexpr uint32_t kMaxFilePage = 65536;

// A set of file page numbers with rank queries, small enough for the stack.
class PageSet {
public:
    bool Has(uint32_t page) const { return (words_[page / 64] >> (page % 64) & 1) != 0; }
    void Add(uint32_t page) { words_[page / 64] |= uint64_t{1} << (page % 64); }
    // Prepares Rank(); call after the last Add().
    void Seal() {
        uint32_t sum = 0;
        for (uint32_t i = 0; i < kWords; ++i) {
            before_[i] = sum;
            sum += static_cast<uint32_t>(std::popcount(words_[i]));
        }
        size_ = sum;
    }
    uint32_t size() const { return size_; }
    // How many members are at most `page`.
    uint32_t Rank(uint32_t page) const {
        // Bits 0 to page % 64; for bit 63 the shift wraps to 0 and the mask is all ones.
        uint64_t below = words_[page / 64] & ((uint64_t{2} << (page % 64)) - 1);
        return before_[page / 64] + static_cast<uint32_t>(std::popcount(below));
    }

private:
    static constexpr uint32_t kWords = kMaxFilePage / 64 + 1;
    uint64_t words_[kWords] = {};
    uint32_t before_[kWords] = {};
    uint32_t size_ = 0;
};

bool IsFullResolution(const TiffIfdRow& row) { return (row.subfileType & (kSubfileReduced | kSubfileMask)) == 0; }

// Counts each kind of image in file order.
uint32_t NumberInFileOrder(TiffIfdRow* rows, uint32_t count) {
    uint32_t counters[4] = {};
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t kind = (rows[i].subfileType & kSubfileReduced) | (rows[i].subfileType & kSubfileMask) >> 1;
        rows[i].page = ++counters[kind];
    }
    if (counters[0] == 1) {
        for (uint32_t i = 0; i < count; ++i) rows[i].page = 1;
        return 1;
    }
    uint32_t pages = 0;
    for (uint32_t c : counters) pages = c > pages ? c : pages;
    return pages;
}

}  // namespace

void PageNumberScan::Add(bool present, uint32_t pageTotal) {
    if (!present) {
        missing = true;
        return;
    }
    if (!any) {
        any = true;
        total = pageTotal;
    } else if (pageTotal != total) {
        consistent = false;
    }
}

uint32_t NumberPages(TiffIfdRow* rows, uint32_t count, const PageNumberScan& scan, bool* pageNumbersOk) {
    *pageNumbersOk = false;
    bool fromFile = scan.any && !scan.missing;
    if (fromFile) {
        PageSet full;
        for (uint32_t i = 0; i < count && fromFile; ++i) {
            const TiffIfdRow& row = rows[i];
            if (row.page == 0 || row.page > kMaxFilePage) return NumberInFileOrder(rows, count);
            if (!IsFullResolution(row)) continue;
            if (full.Has(row.page)) fromFile = false;
            full.Add(row.page);
        }
    }
    if (!fromFile) return NumberInFileOrder(rows, count);

    bool ok = scan.consistent;
    uint32_t largest = 0;
    PageSet present;
    for (uint32_t i = 0; i < count; ++i) {
        largest = rows[i].page > largest ? rows[i].page : largest;
        present.Add(rows[i].page);
    }
    uint32_t pages = scan.total;
    if (!ok || pages == 0) {
        pages = largest;
    } else if (pages < largest) {
        // A total below the pages the IFDs claim cannot be trusted.
        pages = largest;
        ok = false;
    }
    // Every page up to the count must be there: missing ones are closed up.
    present.Seal();
    if (present.size() != pages) {
        for (uint32_t i = 0; i < count; ++i) rows[i].page = present.Rank(rows[i].page);
        pages = present.size();
        ok = false;
    }
    *pageNumbersOk = ok;
    return pages;
}

}  // namespace velmora
