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
#include "frame/error_record.h"
#include "frame/progress.h"

namespace {

using namespace velmora;

constexpr uint16_t kDepths[] = {1, 4, 8, 16, 24, 32};

class Bytes {
public:
    Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    uint8_t Next() { return at_ < size_ ? data_[at_++] : 0; }
    const uint8_t* rest() const { return data_ + at_; }
    size_t left() const { return size_ - at_; }

private:
    const uint8_t* data_;
    size_t size_;
    size_t at_ = 0;
};

// A header with its table (entries from the bytes) and rows from the rest.
struct FuzzDib {
    FuzzDib(Bytes* in, uint16_t depth, int32_t width, int32_t height) {
        BITMAPINFOHEADER h = {};
        h.biSize = 40, h.biWidth = width, h.biHeight = height, h.biPlanes = 1, h.biBitCount = depth;
        h.biClrUsed = depth <= 8 ? in->Next() % (1u << depth) : 0;  // 0: a full table
        head.resize((BitsOffset(&h) + 3) / 4);
        std::memcpy(head.data(), &h, sizeof h);
        auto* table = reinterpret_cast<uint8_t*>(head.data()) + 40;
        for (uint32_t i = 0; i < ColorCount(&h) * 4; ++i) table[i] = in->Next();
        rows.resize(static_cast<size_t>(RowStride(&h)) * height);
        for (uint8_t& byte : rows) byte = in->Next();
    }
    BITMAPINFOHEADER* header() { return reinterpret_cast<BITMAPINFOHEADER*>(head.data()); }
    std::vector<uint32_t> head;
    std::vector<uint8_t> rows;
};

void Free(HGLOBAL image) { FreeImage(&image); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes in(data, size);
    const int32_t width = 1 + in.Next() % 96, height = 1 + in.Next() % 64;
    const uint32_t limit = in.Next() * 2u, flags = in.Next() % 4;
    const uint16_t depth = kDepths[in.Next() % 6];
    RECT rect = {static_cast<int8_t>(in.Next()), static_cast<int8_t>(in.Next()), static_cast<int8_t>(in.Next()),
                 static_cast<int8_t>(in.Next())};
    const COLORREF color = in.Next() | in.Next() << 8 | in.Next() << 16;
    const uint32_t mode = in.Next() % 3, angle = 90 * (in.Next() % 4);

    FuzzDib page(&in, 1, width, height);
    ErrorRecord record;
    ProgressReporter none;
    DespeckleDib(page.header(), page.rows.data(), limit, flags, &none, &record);

    FuzzDib other(&in, depth, width, height);
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
