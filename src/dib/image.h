// Image handles. Inside the library an image is a movable global block that
// is either the packed DIB itself (its first u32, biSize, is non-zero) or a
// storage descriptor (first u32 zero, the next byte its kind) standing for a
// DIB kept elsewhere:
//
//   kind 1  a paging-file-backed mapping; the header is the mapped view;
//   kind 2  memory reserved and committed in whole pages, starting with an
//           8-byte prefix (u32 rounded size, u32 asked size); the header
//           follows the prefix;
//   kind 3  the kind-2 layout over memory the image does not own;
//   kind 4  a spill store: rows in a temporary file, the header and colour
//           table copied into the descriptor after 64 bytes of bookkeeping.
//
// Every kind locks to its header (LockImage) and frees by kind (FreeImage).
// Kinds 0 to 3 keep their rows after the header as in a packed DIB; kind 4
// rows are reached only through ReadImageRow and WriteImageRow.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora {

enum class StorageKind : uint8_t { Packed = 0, PagedMapping = 1, Reserved = 2, Borrowed = 3, Spill = 4 };

// Storage flags of CreateImage.
constexpr uint32_t kStorageKindMask = 7;      // the kind (0, 1, 2 or 4)
constexpr uint32_t kStorageGreyRamp = 8;      // table entry i = i * 255 / (n - 1): entry 0 black
constexpr uint32_t kStorageInverseRamp = 16;  // 255 minus that: entry 0 white
constexpr uint32_t kStorageZeroInit = 32;     // a zero-filled packed block
constexpr uint32_t kStorageShare = 64;        // a shareable packed block

// Makes an image of width x height pixels (both 1 to kMaxImageDimension) at
// `bitCount` bits (1, 4, 8, 16, 24 or 32) with the resolution in pixels per
// metre and `colorCount` table entries (written to biClrUsed, as 0 when it is
// 2^bits at 1, 4 and 8 bits; at 16, 24 and 32 bits it counts palette-hint
// entries). The header is filled, the table zeroed or set to a ramp; the rows
// are zero except in a packed block made without kStorageZeroInit. Null on
// failure: 87 for a bad argument or an image too large for its kind, or the
// allocation error.
HGLOBAL CreateImage(int32_t width, int32_t height, uint16_t bitCount, int32_t xPelsPerMeter, int32_t yPelsPerMeter,
                    uint32_t colorCount, uint32_t storage, ErrorRecord* record);
// A zero-filled packed DIB with `table` (`tableCount` entries, the colour
// count) as its colour table: what decoders make a page in.
HGLOBAL CreatePackedDib(int32_t width, int32_t height, uint16_t bitCount, const RGBQUAD* table, uint32_t tableCount,
                        int32_t xPelsPerMeter, int32_t yPelsPerMeter, ErrorRecord* record);
// A kind-3 image over a DIB whose memory stays its owner's: `memory` must hold
// the 8-byte prefix followed by the packed DIB for as long as the image lives.
HGLOBAL WrapImageMemory(void* memory, ErrorRecord* record);

// Locks the image and returns its header (null for an invalid or unknown
// handle); every successful lock is paired with UnlockImage.
BITMAPINFOHEADER* LockImage(HGLOBAL image);
void UnlockImage(HGLOBAL image);
// The storage kind (Packed for a handle that is not a descriptor).
StorageKind ImageKind(HGLOBAL image);
// Frees by kind and sets *image to null.
void FreeImage(HGLOBAL* image);

// The first stored row of a locked image of kinds 0 to 3; null for kind 4.
uint8_t* ImageBits(HGLOBAL image, BITMAPINFOHEADER* header);
// Stored row `row` (0 = bottom) as stride bytes, for every kind.
bool ReadImageRow(HGLOBAL image, uint32_t row, void* out, ErrorRecord* record);
bool WriteImageRow(HGLOBAL image, uint32_t row, const void* in, ErrorRecord* record);
// A packed DIB with the image's header, table and rows, for any kind.
HGLOBAL PackImage(HGLOBAL image, ErrorRecord* record);

// Copies up to the DIB's colour count of entries (reserved bytes written 0).
void SetColorTable(BITMAPINFOHEADER* header, const RGBQUAD* table, uint32_t count);

// Locks an image for the lifetime of the guard.
class ImageLock {
public:
    explicit ImageLock(HGLOBAL image) : image_(image), header_(LockImage(image)) {}
    ~ImageLock() {
        if (header_ != nullptr) UnlockImage(image_);
    }
    ImageLock(const ImageLock&) = delete;
    ImageLock& operator=(const ImageLock&) = delete;
    BITMAPINFOHEADER* header() const { return header_; }
    uint8_t* bits() const { return header_ != nullptr ? ImageBits(image_, header_) : nullptr; }

private:
    HGLOBAL image_;
    BITMAPINFOHEADER* header_;
};

}  // namespace velmora
