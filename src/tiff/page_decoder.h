// Decoding a page's image from its description: ReadPageInfo with
// kFieldImage and kReadCheckImage first, then DecodePage.
#pragma once

#include <cstdint>

#include "frame/progress.h"
#include "frame/error_record.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"

namespace velmora {

// Decodes the page `info` describes into a new packed DIB, owned by the
// caller; *rotation receives the clockwise turn still to apply to it (a page
// stored in one strip or tile is decoded as stored). `progress` may be null.
// Null with the record set on failure.
HGLOBAL DecodePage(TiffFile* tiff, const TiffPageInfo& info, ProgressReporter* progress, uint16_t* rotation,
                   ErrorRecord* record);

// A step a caller adds between decoding a page and turning it upright:
// `field` is read with the page's description (kFieldListEnd for none), then
// `apply` works on the decoded page as stored and may replace it (freeing
// the old one). A failed step leaves the record set.
struct PageStep {
    uint32_t field;
    void (*apply)(const TiffPageInfo& info, HGLOBAL* dib, void* context, ErrorRecord* record);
    void* context;
};

// Page `page` as a host sees it: its description read for decoding (with
// kReadFast among `readFlags` for the faster, reduced-quality decode), the
// image decoded, `step` applied when given, and turned upright. A new packed
// DIB owned by the caller, or null with the record set.
HGLOBAL ReadUprightPage(TiffFile* tiff, uint32_t page, uint32_t readFlags, ProgressReporter* progress,
                        ErrorRecord* record, const PageStep* step = nullptr);

}  // namespace velmora
