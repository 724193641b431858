// What a TIFF page becomes as a DIB: whether it can be decoded at all, the
// DIB's depth and colour table, and how stored samples turn into DIB pixels.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"
#include "velmora/wintypes.h"

namespace velmora {

enum class SampleKind {
    kIndex,   // one grey or palette index per pixel, 1 to 8 bits, kept as an index
    kGrey16,  // one 16-bit grey sample, reduced to its most significant byte
    kRgb,     // red, green, blue (and extra samples), 8 bits each
    kCmyk,    // cyan, magenta, yellow, black (and extra samples), 8 bits each
    kYcbcr,   // subsampled luma and chroma units, 8 bits each
};

struct PageFormat {
    SampleKind kind = SampleKind::kIndex;
    uint16_t dibBits = 1;        // 1, 4, 8 or 24
    uint16_t sourceBits = 1;     // bits of one stored sample
    uint16_t pixelSamples = 1;   // samples of one stored pixel in one plane
    uint16_t planes = 1;         // planes read (3 for planar RGB)
    uint16_t subH = 1, subV = 1; // YCbCr subsampling
    bool bigEndian = false;      // 16-bit samples stored most significant byte first
    bool blueFirst = false;      // colour samples come blue, green, red (the private run-length code)
    RGBQUAD table[256] = {};
    uint32_t tableCount = 0;
    // Dot range of separated pages: sample values mapped onto 0 to 255.
    uint16_t dotLow = 0, dotHigh = 255;
    // YCbCr to RGB, per code.
    double lumaOf[256] = {};
    double redOfCr[256] = {}, blueOfCb[256] = {}, greenOfCb[256] = {}, greenOfCr[256] = {};
};

// Decides how the page decodes, with the page's errors: "Unknown image type."
// for an unknown compression and "Unsupported image type." (with the file
// name) for a combination the reader does not decode.
bool ChoosePageFormat(TiffFile* tiff, const TiffPageInfo& info, PageFormat* format, ErrorRecord* record);

// Converts one stored row of `width` pixels (one buffer per plane) into a
// row of DIB pixels at the format's depth, leftmost pixel first.
void ConvertRow(const PageFormat& format, const uint8_t* const* planes, uint32_t width, uint8_t* out);

// Converts one band of YCbCr data units (subV rows) into `rows` rows of
// 24-bit pixels (`rows` may be fewer than subV at the bottom edge).
void ConvertYcbcrBand(const PageFormat& format, const uint8_t* units, uint32_t width, uint32_t rows, uint8_t* const* out);

}  // namespace velmora
