// Small editing operations on DIBs: rectangle fills, colour reversal, masks,
// pixel copies between DIBs and copies of a rectangle into a new DIB.
//
// Rectangles are in image coordinates: x from the left, y from the top row,
// right and bottom exclusive. Every function here expects a DIB that passed
// the export check (CheckDib) and keeps to the pixels that check covers.
#pragma once

#include <cstdint>

#include "dib/dib_layout.h"
#include "frame/error_record.h"
#include "frame/progress.h"
#include "velmora/wintypes.h"

namespace velmora {

enum FillMode : uint32_t {
    kFillSet = 0,      // the pixel takes the colour
    kFillAnd = 1,      // each channel ANDed with the colour
    kFillAverage = 2,  // each channel (pixel + colour) / 2, truncating
};

// What a 1-bit fill does to the bits of its rectangle.
enum class BitFill { Clear, Set, Invert };

// Applies `fill` to bits [left, right) of rows [top, bottom) of a 1-bit DIB:
// whole bytes in the middle, masked bytes at the edges.
void FillBitRect(const DibRows& rows, uint32_t left, uint32_t top, uint32_t right, uint32_t bottom, BitFill fill);

// `rect` (null: the whole image) clipped to the image; may come out empty.
RECT ClipToImage(const BITMAPINFOHEADER* header, const RECT* rect);

// Fills `rect` (already clipped) by `mode`. Palette DIBs work through their
// table: each entry's result is mapped to the nearest entry. At 16 bits the
// result keeps the top 5 bits of each channel; at 32 bits the fourth byte of
// each pixel is left as it was. 0x02000005 for a compressed DIB or a depth
// other than 1, 4, 8, 16, 24 and 32.
bool FillDibRect(const BITMAPINFOHEADER* header, void* bits, const RECT& rect, COLORREF color, uint32_t mode,
                 ErrorRecord* record);

// Swaps table entries 0 and 1 of a two-entry DIB and flips every pixel
// between index 0 and index 1 (at 1 bit: every bit of every row inverted), so
// that the picture stays as it was.
void ReverseDibColors(BITMAPINFOHEADER* header, void* bits);

// A new 1-bit DIB of the same size and resolution whose bits are 0 where the
// pixel's colour is exactly `key` and 1 elsewhere, with the table {black,
// white}. A 1-bit source keeps its bits and gets a table in which the
// entries equal to `key` are black and the others white.
HGLOBAL CreateMaskDib(const BITMAPINFOHEADER* header, const void* bits, COLORREF key, ErrorRecord* record);

// Paints `color` into the DIB wherever the mask bit is 0, the mask's top-left
// corner at (x, y), which with the mask's size must lie inside the DIB. The
// mask's rows come top row first, `maskStride` bytes apart, leftmost pixel in
// bit 7. Palette DIBs take the nearest entry.
bool DrawDibMask(const BITMAPINFOHEADER* header, void* bits, int32_t x, int32_t y, COLORREF color, const uint8_t* mask,
                 uint32_t maskWidth, uint32_t maskHeight, size_t maskStride, ErrorRecord* record);

// Copies the source's pixels into the destination with the source's top-left
// corner at (x, y) of the destination, clipped to it. The destination needs
// at least the source's bits per pixel. Equal depths with equal tables (or
// without tables) copy the pixel values; palette destinations take the
// nearest entry to each source entry; others take the colour (16 bits keep
// the top 5 bits of each channel). Source and destination may share memory.
// 87 for a destination of fewer bits per pixel, 0x02000005 for compressed
// DIBs or unknown depths.
bool CopyDibPixels(const BITMAPINFOHEADER* source, const void* sourceBits, const BITMAPINFOHEADER* destination,
                   void* destinationBits, int32_t x, int32_t y, ErrorRecord* record);

// A new packed DIB holding `rect` (inside the image, not empty) of the DIB,
// turned clockwise by `degrees` (0, 90, 180 or 270), with the source's table,
// masks, palette hint and resolution. Progress (optional) per copied row.
HGLOBAL CopyDibRect(const BITMAPINFOHEADER* header, const void* bits, const RECT& rect, int degrees,
                    ProgressReporter* progress, ErrorRecord* record);

}  // namespace velmora
