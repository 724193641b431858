// The check every DIB-taking export runs before its work.
#pragma once

#include <cstdint>

#include "velmora/wintypes.h"

namespace velmora {

enum class DibAccess { Read, ReadWrite };

// Checks a host's DIB, given as its header and its first pixel row, and an
// optional rectangle (null when the export takes none), in this order:
//   the rectangle readable (998);
//   4 header bytes readable (998); biSize 40 (87); 40 bytes readable (998);
//   biHeight not negative and biPlanes 1 (87); the colour table readable
//   (998); biWidth positive and biHeight non-zero (87);
//   the rectangle inside the image (87);
//   stride x height bytes readable (and writable, for ReadWrite) at bits
//   (998; also for an image too large to address).
// Returns 0 when the DIB may be used, else the error code.
uint32_t CheckDib(const RECT* rect, const void* bits, const BITMAPINFOHEADER* header,
                  DibAccess access = DibAccess::Read);

// The header checks alone, as the accessors of a packed DIB run them: the
// readable header (998), biSize (87), the readable colour table (998), and,
// with `checkSize`, biWidth positive and biHeight non-zero (87).
uint32_t CheckDibHeader(const BITMAPINFOHEADER* header, bool checkSize);

}  // namespace velmora
