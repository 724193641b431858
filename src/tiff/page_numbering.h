// Page numbers of a TIFF document's IFDs: from the PageNumber tags when the
// file gives them, else counted in file order.
#pragma once

#include <cstdint>

#include "tiff/document.h"

namespace velmora {

// What the IFDs' PageNumber tags said, gathered while the IFDs are read.
struct PageNumberScan {
    bool any = false;        // some IFD had PageNumber
    bool missing = false;    // some IFD had none
    bool consistent = true;  // every total equals the first IFD's
    uint32_t total = 0;      // the first IFD's total (its second value)

    void Add(bool present, uint32_t pageTotal);
};

// Sets the page of every row and returns the page count. On entry a row's
// page is its PageNumber's first value + 1 (0 without PageNumber).
//
// The file's numbers are kept when every IFD has one and no two
// full-resolution images claim the same page; missing pages are then closed
// up. Otherwise the rows are counted afresh in file order, each kind of image
// (pages, thumbnails, masks, thumbnail masks) on its own; a file with a
// single full-resolution image has one page that all rows belong to.
// *pageNumbersOk tells whether the file's numbers were used unchanged, with
// one total throughout.
uint32_t NumberPages(TiffIfdRow* rows, uint32_t count, const PageNumberScan& scan, bool* pageNumbersOk);

}  // namespace velmora
