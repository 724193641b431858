// Copying a rectangle of a JPEG image's MCUs into a new JPEG stream without
// decoding the pixels. The copy shows exactly the pixels of the same region
// of the whole image.
//
// Two ways of making it:
//  - splicing (the usual way for a sequential Huffman stream whose one scan
//    holds every component): the scan is entropy-decoded once to build an
//    MCU index over the rectangle's columns (jpeg/jpeg_mcu_index.h), then
//    the rectangle's MCUs are cut out bit for bit and joined under the
//    stream's own tables. Only the first DC difference of each component of
//    an MCU whose DC predictors differ in the copy (the first MCU of each
//    row, and MCUs after a restart marker) is coded anew;
//  - re-coding: the quantised coefficients of the rectangle are coded again
//    as one interleaved sequential scan. Used when asked for tables made for
//    the copy (smaller), for streams that cannot be spliced (progressive ones,
//    sequential ones with a scan per component) and when the stream's own DC
//    table has no code for a difference the copy needs. Its tables are the
//    example tables of T.81 Annex K for 8-bit images, and tables made for
//    the copy at other precisions.
#pragma once

#include <cstdint>

#include "jpeg/jpeg_decoder.h"
#include "frame/progress.h"
#include "frame/error_record.h"
#include "velmora/wintypes.h"

namespace velmora::jpeg {

struct CopyRequest {
    uint32_t left = 0, top = 0, right = 0, bottom = 0;  // pixels; right and bottom exclusive
    // True: re-code with Huffman tables made for the copy's own symbols.
    bool optimiseTables = false;
    ProgressReporter* progress = nullptr;
};

// Returns the new stream in a movable block and its size. The rectangle
// must lie inside the image with every edge on a multiple of the MCU size
// (else 87). Streams that hold no DCT image cannot be copied: lossless,
// arithmetic-coded and hierarchical ones fail with 0x02000005, as do
// streams that change a table after their first scan.
HGLOBAL CopyJpegMcus(const JpegSource& source, const CopyRequest& request, DWORD* size, ErrorRecord* record);

}  // namespace velmora::jpeg
