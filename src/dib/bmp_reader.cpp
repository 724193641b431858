#include "dib/bmp_reader.h"

#include <bit>
#include <cstring>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "frame/checked_array.h"
#include "io/stream.h"

namespace velmora {
namespace {

constexpr uint32_t kFileHeaderBytes = 14;
constexpr uint32_t kCoreHeaderBytes = 12;
constexpr uint32_t kBitFieldBytes = 12;
constexpr uint32_t kRle8 = 1;
constexpr uint32_t kRle4 = 2;
constexpr uint32_t kBitFields = 3;
constexpr uint32_t kRunInputBytes = 4096;

uint16_t U16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint32_t U32(const uint8_t* p) { return uint32_t{U16(p)} | uint32_t{U16(p + 2)} << 16; }

bool Fail(ErrorRecord* record, uint32_t code) {
    SetRecordError(record, code, 0);
    return false;
}

// What the file and bitmap headers say, with the positions made absolute.
struct BmpLayout {
    uint64_t tableAt = 0;
    uint64_t pixelsAt = 0;
    uint64_t streamSize = 0;
    int32_t width = 0;
    uint32_t height = 0;
    bool topDown = false;
    uint16_t bitCount = 0;
    uint32_t compression = 0;
    int32_t xPelsPerMeter = 0;
    int32_t yPelsPerMeter = 0;
    uint32_t colorCount = 0;
    bool core = false;
    uint32_t masks[3] = {};
    bool shortByMasks = false;  // bit-field rows 12 bytes short, read as zeros
};

bool DepthTakes(uint16_t bitCount, uint32_t compression) {
    switch (compression) {
        case 0: return true;
        case kRle8: return bitCount == 8;
        case kRle4: return bitCount == 4;
        case kBitFields: return bitCount == 16 || bitCount == 32;
        default: return false;
    }
}

// A usable mask is 0 or one unbroken run of 1 bits.
bool Contiguous(uint32_t mask) {
    if (mask == 0) return true;
    const uint32_t run = mask >> std::countr_zero(mask);
    return (run & (run + 1)) == 0;
}

bool MasksUsable(const uint32_t masks[3], uint16_t bitCount) {
    if ((masks[0] & masks[1] & masks[2]) != 0) return false;
    for (int i = 0; i < 3; ++i) {
        if (!Contiguous(masks[i]) || (bitCount == 16 && masks[i] > 0xFFFFu)) return false;
    }
    return true;
}

// The channel `mask` selects in `pixel`, scaled from the mask's range to
// 0..top (truncating).
uint32_t Channel(uint32_t pixel, uint32_t mask, uint32_t top) {
    if (mask == 0) return 0;
    const int shift = std::countr_zero(mask);
    const uint64_t range = mask >> shift;
    return static_cast<uint32_t>(((pixel & mask) >> shift) * uint64_t{top} / range);
}

bool ReadHeaders(Stream* stream, BmpLayout* layout, bool* warning, ErrorRecord* record) {
    const uint64_t start = StreamTell(stream);
    uint8_t file[kFileHeaderBytes];
    if (StreamRead(stream, file, kFileHeaderBytes, kErrUnrecognizedFormat, record) != kFileHeaderBytes) return false;
    if (file[0] != 'B' || file[1] != 'M' || U16(file + 6) != 0 || U16(file + 8) != 0) {
        return Fail(record, kErrUnrecognizedFormat);
    }
    layout->streamSize = StreamSize64(stream, record);
    if (record->failed()) return false;
    if (layout->streamSize < start || U32(file + 2) != layout->streamSize - start) *warning = true;
    layout->pixelsAt = start + U32(file + 10);

    uint8_t info[40] = {};
    if (StreamRead(stream, info, 4, kErrBadFileData, record) != 4) return false;
    const uint32_t headerSize = U32(info);
    int64_t height = 0;
    if (headerSize == kCoreHeaderBytes) {
        if (StreamRead(stream, info + 4, 8, kErrBadFileData, record) != 8) return false;
        layout->core = true;
        layout->width = U16(info + 4);
        height = U16(info + 6);
        layout->bitCount = U16(info + 10);
        layout->tableAt = start + kFileHeaderBytes + kCoreHeaderBytes;
    } else if (headerSize >= kDibHeaderSize) {
        if (StreamRead(stream, info + 4, 36, kErrBadFileData, record) != 36) return false;
        layout->width = static_cast<int32_t>(U32(info + 4));
        height = static_cast<int32_t>(U32(info + 8));
        layout->bitCount = U16(info + 14);
        layout->compression = U32(info + 16);
        layout->xPelsPerMeter = static_cast<int32_t>(U32(info + 24));
        layout->yPelsPerMeter = static_cast<int32_t>(U32(info + 28));
        layout->colorCount = U32(info + 32) & 0xFFFFu;
        // The masks follow the first 40 bytes: inside a larger header they
        // are its own mask fields.
        uint64_t after = headerSize;
        if (layout->compression == kBitFields && after < kDibHeaderSize + kBitFieldBytes) {
            after = kDibHeaderSize + kBitFieldBytes;
        }
        layout->tableAt = start + kFileHeaderBytes + after;
    } else {
        return Fail(record, kErrUnsupportedImageType);
    }

    const uint16_t bits = layout->bitCount;
    if ((bits != 1 && bits != 4 && bits != 8 && bits != 16 && bits != 24 && bits != 32) ||
        !DepthTakes(bits, layout->compression)) {
        return Fail(record, kErrUnsupportedImageType);
    }
    layout->topDown = height < 0;
    if (layout->topDown) height = -height;
    if (layout->width < 1 || layout->width > kMaxImageDimension || height < 1 || height > kMaxImageDimension) {
        return Fail(record, kErrBadFileData);
    }
    layout->height = static_cast<uint32_t>(height);
    if (bits <= 8) {
        if (layout->core || layout->colorCount == 0) layout->colorCount = 1u << bits;
    } else {
        layout->colorCount = 0;
    }
    if (layout->compression == kBitFields) {
        uint8_t masks[kBitFieldBytes];
        if (StreamRead(stream, masks, kBitFieldBytes, kErrBadFileData, record) != kBitFieldBytes) return false;
        for (int i = 0; i < 3; ++i) layout->masks[i] = U32(masks + 4 * i);
        if (!MasksUsable(layout->masks, bits)) return Fail(record, kErrBadFileData);
    }
    return true;
}

// The colour table, straight into the DIB's (core entries widened to four
// bytes); the reserved bytes are written 0.
bool ReadTable(Stream* stream, const BmpLayout& layout, BITMAPINFOHEADER* header, ErrorRecord* record) {
    if (layout.colorCount == 0) return true;
    StreamSeek64(stream, layout.tableAt, record);
    RGBQUAD* table = ColorTable(header);
    if (layout.core) {
        uint8_t entries[3 * 256];
        const uint32_t bytes = 3 * layout.colorCount;
        if (StreamRead(stream, entries, bytes, kErrBadFileData, record) != bytes) return false;
        for (uint32_t i = 0; i < layout.colorCount; ++i) {
            table[i] = RGBQUAD{entries[3 * i], entries[3 * i + 1], entries[3 * i + 2], 0};
        }
        return true;
    }
    const uint32_t bytes = 4 * layout.colorCount;
    if (StreamRead(stream, table, bytes, kErrBadFileData, record) != bytes) return false;
    for (uint32_t i = 0; i < layout.colorCount; ++i) table[i].rgbReserved = 0;
    return true;
}

// One stored row of `source` (the file's pixels) as a DIB row: 32-bit pixels
// become blue-green-red triples, 16-bit bit fields 5-5-5 pixels.
void ConvertRow(const BmpLayout& layout, const uint8_t* source, uint8_t* target) {
    const uint32_t width = static_cast<uint32_t>(layout.width);
    const uint32_t* masks = layout.masks;
    if (layout.bitCount == 16) {
        for (uint32_t x = 0; x < width; ++x) {
            const uint32_t pixel = U16(source + 2 * x);
            const uint32_t value =
                Channel(pixel, masks[0], 31) << 10 | Channel(pixel, masks[1], 31) << 5 | Channel(pixel, masks[2], 31);
            target[2 * x] = static_cast<uint8_t>(value);
            target[2 * x + 1] = static_cast<uint8_t>(value >> 8);
        }
        return;
    }
    for (uint32_t x = 0; x < width; ++x, source += 4, target += 3) {
        if (layout.compression != kBitFields) {
            std::memcpy(target, source, 3);
            continue;
        }
        const uint32_t pixel = U32(source);
        target[0] = static_cast<uint8_t>(Channel(pixel, masks[2], 255));
        target[1] = static_cast<uint8_t>(Channel(pixel, masks[1], 255));
        target[2] = static_cast<uint8_t>(Channel(pixel, masks[0], 255));
    }
}

uint8_t* StoredRow(const BmpLayout& layout, uint8_t* bits, uint64_t stride, uint32_t fileRow) {
    const uint32_t row = layout.topDown ? layout.height - 1 - fileRow : fileRow;
    return bits + stride * row;
}

// Whether the file holds all uncompressed rows, checked before any memory
// is taken for them.
bool RowsPresent(BmpLayout* layout, bool* warning, ErrorRecord* record) {
    const uint64_t wanted = RowStride(layout->bitCount, static_cast<uint64_t>(layout->width)) * layout->height;
    const uint64_t present = layout->streamSize > layout->pixelsAt ? layout->streamSize - layout->pixelsAt : 0;
    // Some writers count the bit-field masks in the image size and so leave
    // the last 12 bytes out.
    layout->shortByMasks = layout->compression == kBitFields && present + kBitFieldBytes == wanted;
    if (present < wanted && !layout->shortByMasks) return Fail(record, kErrBadFileData);
    if (layout->shortByMasks) *warning = true;
    return true;
}

bool ReadRows(Stream* stream, const BmpLayout& layout, BITMAPINFOHEADER* header, uint8_t* bits,
              ProgressReporter* progress, ErrorRecord* record) {
    const uint64_t sourceStride = RowStride(layout.bitCount, static_cast<uint64_t>(layout.width));
    const uint64_t targetStride = RowStride(header);
    const bool convert = layout.bitCount == 32 || layout.compression == kBitFields;
    CheckedArray<uint8_t> scratch;
    if (convert && !scratch.Sized(sourceStride, record)) return false;
    StreamSeek64(stream, layout.pixelsAt, record);
    for (uint32_t row = 0; row < layout.height && record->ok(); ++row) {
        uint8_t* target = StoredRow(layout, bits, targetStride, row);
        uint8_t* into = convert ? scratch.data() : target;
        const uint32_t got = StreamRead(stream, into, static_cast<uint32_t>(sourceStride), 0, record);
        if (record->failed()) return false;
        if (got < sourceStride) {
            if (!layout.shortByMasks) return Fail(record, kErrBadFileData);
            std::memset(into + got, 0, static_cast<size_t>(sourceStride - got));
        }
        if (convert) ConvertRow(layout, into, target);
        if (progress != nullptr && !progress->Row(row, layout.height, record)) return false;
    }
    return record->ok();
}

// The run-length data, a byte at a time through a buffer.
class RunInput {
public:
    RunInput(Stream* stream, ErrorRecord* record) : stream_(stream), record_(record) {}
    // False at the end of the data (or on a read error, left in the record).
    bool Next(uint8_t* byte) {
        if (at_ == count_) {
            if (record_->failed()) return false;
            count_ = StreamRead(stream_, buffer_, kRunInputBytes, 0, record_);
            at_ = 0;
            if (count_ == 0) return false;
        }
        *byte = buffer_[at_++];
        return true;
    }

private:
    Stream* stream_;
    ErrorRecord* record_;
    uint8_t buffer_[kRunInputBytes];
    uint32_t at_ = 0;
    uint32_t count_ = 0;
};

// Decodes RLE8 or RLE4 data into the zeroed rows. Runs past the row's end or
// the image's last row are cut, and data that ends without the end-of-bitmap
// code stops the decoding; both only set the warning. Some writers code each
// row's padding too: pixels past the width that stay within the stored row
// are dropped without a warning.
bool DecodeRuns(Stream* stream, const BmpLayout& layout, BITMAPINFOHEADER* header, uint8_t* bits, bool* warning,
                ProgressReporter* progress, ErrorRecord* record) {
    const uint64_t stride = RowStride(header);
    const uint32_t width = static_cast<uint32_t>(layout.width);
    const uint32_t height = layout.height;
    const bool nibbles = layout.compression == kRle4;
    const uint64_t rowPixels = nibbles ? 2 * stride : stride;
    uint32_t x = 0, y = 0;
    auto put = [&](uint8_t value) {
        if (x < width && y < height) {
            uint8_t* row = StoredRow(layout, bits, stride, y);
            if (nibbles) {
                row[x / 2] |= (x & 1) ? value : static_cast<uint8_t>(value << 4);
            } else {
                row[x] = value;
            }
        } else if (x >= rowPixels || y >= height) {
            *warning = true;
        }
        if (x < rowPixels) ++x;
    };

    StreamSeek64(stream, layout.pixelsAt, record);
    if (record->failed()) return false;
    RunInput in(stream, record);
    for (;;) {
        uint8_t count, value;
        if (!in.Next(&count) || !in.Next(&value)) break;
        if (count != 0) {
            for (uint32_t i = 0; i < count; ++i) put(nibbles ? ((i & 1) ? value & 15 : value >> 4) : value);
            continue;
        }
        if (value == 0) {  // end of the row
            if (y < height && progress != nullptr && !progress->Row(y, height, record)) return false;
            x = 0;
            if (y < height) ++y;
            continue;
        }
        if (value == 1) return true;  // end of the bitmap
        if (value == 2) {             // move right and up
            uint8_t dx, dy;
            if (!in.Next(&dx) || !in.Next(&dy)) break;
            x += dx;
            y += dy;
            if (x > width || y > height) *warning = true;
            if (x > width) x = width;
            if (y > height) y = height;
            continue;
        }
        // An absolute stretch of `value` pixels, padded to a 16-bit boundary.
        const uint32_t bytes = nibbles ? (value + 1u) / 2 : value;
        bool complete = true;
        for (uint32_t i = 0; i < bytes + (bytes & 1) && complete; ++i) {
            uint8_t byte;
            complete = in.Next(&byte);
            if (!complete || i >= bytes) continue;
            if (!nibbles) {
                put(byte);
                continue;
            }
            put(byte >> 4);
            if (2 * i + 1 < value) put(byte & 15);
        }
        if (!complete) break;
    }
    if (record->failed()) return false;
    *warning = true;  // the data ended without the end-of-bitmap code
    return true;
}

}  // namespace

HGLOBAL ReadBmpDib(Stream* stream, ProgressReporter* progress, bool* warning, ErrorRecord* record) {
    bool tolerated = false;
    if (record->failed()) return nullptr;
    BmpLayout layout;
    if (!ReadHeaders(stream, &layout, &tolerated, record)) return nullptr;
    const bool runs = layout.compression == kRle8 || layout.compression == kRle4;
    if (!runs && !RowsPresent(&layout, &tolerated, record)) return nullptr;
    // 32-bit pixels are kept as 24-bit ones.
    const uint16_t bitCount = layout.bitCount == 32 ? 24 : layout.bitCount;
    // A DIB beyond the 32-bit sizes of the interface cannot be held.
    const uint64_t packed = kDibHeaderSize + uint64_t{layout.colorCount} * 4 +
                            RowStride(bitCount, static_cast<uint64_t>(layout.width)) * layout.height;
    if (packed > kMaxPackedDibBytes) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return nullptr;
    }
    HGLOBAL image = CreateImage(layout.width, static_cast<int32_t>(layout.height), bitCount, layout.xPelsPerMeter,
                                layout.yPelsPerMeter, layout.colorCount, kStorageZeroInit, record);
    if (image == nullptr) return nullptr;
    bool read = false;
    {
        ImageLock lock(image);
        BITMAPINFOHEADER* header = lock.header();
        if (ReadTable(stream, layout, header, record)) {
            read = runs ? DecodeRuns(stream, layout, header, lock.bits(), &tolerated, progress, record)
                        : ReadRows(stream, layout, header, lock.bits(), progress, record);
        }
    }
    if (!read || record->failed()) {
        FreeImage(&image);
        return nullptr;
    }
    if (warning != nullptr && tolerated) *warning = true;
    return image;
}

}  // namespace velmora
