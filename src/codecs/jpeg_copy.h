// Copying a rectangle of a JPEG image's MCUs into a new JPEG stream without
// decoding the pixels: the quantised coefficients of the MCUs inside the
// rectangle are taken as they are and coded again as one interleaved
// sequential scan, so the copy shows exactly the pixels of the same region
// of the whole image.
#pragma once

#include <cstdint>

#include "codecs/jpeg_decoder.h"
#include "dib/progress.h"
#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora::jpeg {

struct CopyRequest {
    uint32_t left = 0, top = 0, right = 0, bottom = 0;  // pixels; right and bottom exclusive
    // False: the example Huffman tables of T.81 Annex K for 8-bit images
    // (tables made for the copy at other precisions). True: tables made for
    // the copy's own symbols, which gives a smaller stream.
    bool optimiseTables = false;
    ProgressReporter* progress = nullptr;
};

// Returns the new stream in a movable block and its size. The rectangle
// must lie inside the image with every edge on a multiple of the MCU size
// (else 87). Streams that hold no DCT image cannot be copied: lossless,
// arithmetic-coded and hierarchical ones fail with 0x02000005.
HGLOBAL CopyJpegMcus(const JpegSource& source, const CopyRequest& request, DWORD* size, ErrorRecord* record);

}  // namespace velmora::jpeg
