// TIFF pages as PDF pages: one image XObject filling each page.
//
// A page whose stored data a PDF filter reads as it is (CCITT Group 3 and 4,
// LZW, JPEG, or no compression, in one strip, upright, most significant bit
// first) is copied byte for byte; JPEG strips that end on rows of MCUs are
// joined into one stream without decoding. Any other page is decoded and
// coded again:
// bi-level pages as CCITT Group 4 (run-length data when the bi-level
// compression asked for is PackBits), the others as run-length data (or LZW
// for colour palettes re-coded to be smaller). A page whose annotations are
// burned in is always decoded.
//
// A page with a reduced-resolution image stored beside it gets that image,
// decoded and coded again, as its thumbnail. Its text layer is LZW-coded when
// the document's content compression asks for it, outside PDF/A and
// encryption.
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "pdf/pdf_document.h"
#include "tiff/document.h"

namespace velmora {

// How a page is written: the choices of the conversion options.
struct ImagePageChoices {
    bool archive = false;             // PDF/A-1: LZW data is never copied
    bool forceBilevel = false;        // every page converted to bi-level
    bool dither = false;              // that conversion dithers instead of thresholding
    uint16_t bilevelCompression = 0;  // 0 keeps what a bi-level page has; another value re-codes it
    bool enhanced = false;            // re-code pages of 4-bit grey and 4- or 8-bit palettes
    bool burnAnnotations = false;     // draw the page's annotations into its image
    bool textLayer = false;           // the page's OCR text as an invisible text layer
};

// The IFD (1-based) that holds the full image of page `page`: the first of
// the page's IFDs that is neither reduced nor a mask, else its first IFD;
// 0 when the page has none.
uint32_t PageImageIfd(const TiffDocument* document, uint32_t page);

// Appends page `page` (1-based) of `tiff` to `pdf`: the image, its colour
// table, the content stream and the page, listed last in the page tree.
// 87 for a page beyond the document, 0x02000007 for a page whose directory
// is missing, 0x02000005 for an orientation or depth a page cannot have.
bool AppendTiffPage(PdfDocument* pdf, TiffDocument* tiff, uint32_t page, const ImagePageChoices& choices,
                    ErrorRecord* record);

}  // namespace velmora
