// Bytes as a small image and the arguments of the pixel operations: a 1-bit
// page to despeckle (limit and flags from the bytes), then fills, masks and
// copies of a rectangle at a depth the bytes choose. Pixel rows live in a
// buffer of exactly their size, so any access past them is caught.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "dib/despeckle.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/pixel_operations.h"

namespace {

using namespace velmora;

// A header with its table, then rows, each byte taken from `next`.
template <typename Next>
struct FuzzDib {
    FuzzDib(Next& next, uint16_t depth, int32_t width, int32_t height) {
        BITMAPINFOHEADER h = {40, width, height, 1, depth, BI_RGB, 0, 0, 0, 0, 0};
        h.biClrUsed = depth <= 8 ? next() % (1u << depth) : 0;  // 0: a full table
        head.resize((BitsOffset(&h) + 3) / 4);
        std::memcpy(head.data(), &h, sizeof h);
        auto* table = reinterpret_cast<uint8_t*>(head.data()) + 40;
        for (uint32_t i = 0; i < ColorCount(&h) * 4; ++i) table[i] = next();
        rows.resize(static_cast<size_t>(RowStride(&h)) * height);
        for (uint8_t& byte : rows) byte = next();
    }
    BITMAPINFOHEADER* header() { return reinterpret_cast<BITMAPINFOHEADER*>(head.data()); }
    std::vector<uint32_t> head;
    std::vector<uint8_t> rows;
};

void Free(HGLOBAL image) { FreeImage(&image); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    size_t at = 0;
    auto next = [&]() -> uint8_t { return at < size ? data[at++] : 0; };
    const int32_t width = 1 + next() % 96, height = 1 + next() % 64;
    const uint32_t limit = next() * 2u, flags = next() % 4;
    const uint16_t depths[] = {1, 4, 8, 16, 24, 32};
    const uint16_t depth = depths[next() % 6];
    RECT rect = {static_cast<int8_t>(next()), static_cast<int8_t>(next()), static_cast<int8_t>(next()),
                 static_cast<int8_t>(next())};
    const COLORREF color = next() | next() << 8 | next() << 16;
    const uint32_t mode = next() % 3, angle = 90 * (next() % 4);

    FuzzDib page(next, 1, width, height);
    ErrorRecord record;
    ProgressReporter none;
    DespeckleDib(page.header(), page.rows.data(), limit, flags, &none, &record);

    FuzzDib other(next, depth, width, height);
    const RECT clipped = ClipToImage(other.header(), &rect);
    FillDibRect(other.header(), other.rows.data(), clipped, color, mode, &record);
    Free(CreateMaskDib(other.header(), other.rows.data(), color, &record));
    if (clipped.left < clipped.right && clipped.top < clipped.bottom) {
        Free(CopyDibRect(other.header(), other.rows.data(), clipped, static_cast<int>(angle), &none, &record));
    }
    CopyDibPixels(page.header(), page.rows.data(), other.header(), other.rows.data(), rect.left, rect.top, &record);
    CopyDibPixels(other.header(), other.rows.data(), other.header(), other.rows.data(), rect.right, rect.bottom,
                  &record);
    return 0;
}
