// Decoding a page's image: the step ReadPageInfo runs when the caller wants
// the image (kFieldImage), after the directory has been interpreted and its
// structure checked.
#pragma once

#include <cstdint>

#include "frame/progress.h"
#include "frame/error_record.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"

namespace velmora {

// Decodes the page described by `info` into info->dib (and info->rotation).
// `progress` may be null. False with the record set on failure.
bool DecodePageImage(TiffFile* tiff, TiffPageInfo* info, uint32_t readFlags, ProgressReporter* progress,
                     ErrorRecord* record);

}  // namespace velmora
