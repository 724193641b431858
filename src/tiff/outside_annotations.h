// Annotations of other imaging systems on a page being copied.
//
// A page may carry annotations in two outside formats (the Wang/Eastman
// block, tag 32932, and the sheet-chunk block, tag 33581). The writer never
// writes those tags; a copied page keeps their annotations by storing them,
// converted, in the library's own block (tag 33938). The conversion belongs
// to the annotation module, which sits above the TIFF engine: it provides the
// function below, and the one library archive resolves it.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "tiff/tiff_file.h"

namespace velmora {

// The annotations of page `page` (1-based) of `tiff` from its own block, its
// Wang block and its sheet-chunk block (converted with the page's
// resolution), written as one annotation stream; a companion file of the
// document the TIFF belongs to is left aside. *merged is null and *size 0
// when the page has neither outside block (its own block, if any, is right
// as stored) or has no annotations at all. The caller frees *merged.
bool MergeOutsideAnnotations(TiffFile* tiff, uint32_t page, HGLOBAL* merged, uint32_t* size, ErrorRecord* record);

}  // namespace velmora
