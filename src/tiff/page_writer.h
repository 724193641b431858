// Appending pages to a TIFF: a page of another TIFF copied (its strips or
// tiles byte for byte when its coding is kept, else decoded and coded again),
// or a DIB coded as a new page.
//
// Every append is all or nothing. The page is laid out past the end of the
// file (the directory at an even offset, its long values after it, the image
// data after those); the image data, the values and the directory are written
// first and the directory is linked into the chain last, by one 4-byte write
// into the previous directory (or the header). Any failure truncates the
// stream back to its size before the append, so a failed append leaves the
// file as it was, and a process killed during one leaves every old page
// readable.
//
// New pages are classic TIFF in the file's byte order; BigTIFF files are not
// appended to ("Unsupported file type.").
#pragma once

#include <cstdint>

#include "frame/error_record.h"
#include "frame/progress.h"
#include "tiff/tiff_file.h"
#include "velmora/velmora.h"

namespace velmora {

// The compression a page is written with: a VELMORA_COMPRESSION_... code of
// the interface, including the two only writers choose.
constexpr uint16_t kWriteGroup3TwoD = VELMORA_COMPRESSION_GROUP3_2D;
constexpr uint16_t kWriteDefault = VELMORA_COMPRESSION_DEFAULT;

// How a DIB is stored as a TIFF page.
enum class PageKind : uint8_t {
    BiLevel,  // 1 bit, two grey entries: WhiteIsZero, 1 = black
    Grey,     // 4 or 8 bits, a grey ramp: BlackIsZero or WhiteIsZero
    Palette,  // 1, 4 or 8 bits with a colour table: a ColorMap page
    Rgb,      // 16, 24 or 32 bits: 8-bit red, green, blue
};

// The kind a DIB header is written as; false for a DIB that cannot be
// written (a depth other than 1, 4, 8, 16, 24, 32, or compressed rows).
bool DibPageKind(const BITMAPINFOHEADER* header, PageKind* kind);
// Whether `compression` can code pages of `kind`: none, PackBits and LZW code
// every kind; the fax codings bi-level pages; JPEG 8-bit grey and colour.
bool CompressionWritable(uint16_t compression, PageKind kind);
// The compression a DIB page gets by default: Group 4 for bi-level pages,
// LZW for the others.
uint16_t DefaultCompression(PageKind kind);

// What is stored with a page besides its image. Texts are NUL-terminated
// and null when absent; they replace those of a copied page.
// The sizes a host's VelmoraAppendTIFF record may have, one for each of its
// versions.
inline constexpr WORD kAppendRecordSizes[] = {VELMORA_APPEND_TIFF_SIZE_V1, VELMORA_APPEND_TIFF_SIZE_V2,
                                              VELMORA_APPEND_TIFF_SIZE_V3, VELMORA_APPEND_TIFF_SIZE_V4,
                                              VELMORA_APPEND_TIFF_SIZE_V5, VELMORA_APPEND_TIFF_SIZE_V6,
                                              VELMORA_APPEND_TIFF_SIZE_V7};

struct PageExtras {
    // DocumentName, ImageDescription, Make, Model, PageName, Software,
    // Artist, HostComputer.
    const char* texts[8] = {};
    bool hasSubfileType = false;
    uint32_t newSubfileType = 0;  // NewSubfileType: bit 0 reduced resolution
    bool hasResolution = false;
    uint32_t resolution[4] = {};  // x numerator, x denominator, y numerator, y denominator
    uint16_t resolutionUnit = 2;
    bool hasScale = false;
    uint32_t scale[4] = {};
    uint16_t scaleUnit = 2;
    const uint8_t* annotations = nullptr;  // the library's annotation block
    uint32_t annotationsSize = 0;
    const uint8_t* ocrText = nullptr;  // an OCR text block
    uint32_t ocrTextSize = 0;
    const uint8_t* pageInformation = nullptr;  // a page-information block (BuildPageInformation)
    uint32_t pageInformationSize = 0;
};

struct PageWriteOptions {
    uint16_t compression = kWriteDefault;
    int32_t jpegQuality = 75;
    PageExtras extras;
    ProgressReporter* progress = nullptr;  // may be null
};

// The tags the texts of PageExtras become, in the same order.
extern const uint16_t kExtraTextTags[8];

// Appends the DIB (`image`: a DIB handle of any storage kind, or null with
// `header` locked and its rows at `bits`) as a new page. 87 for a DIB or a
// compression that cannot be written.
bool AppendDibPage(TiffFile* tiff, HGLOBAL image, const BITMAPINFOHEADER* header, const uint8_t* bits,
                   const PageWriteOptions& options, ErrorRecord* record);

// Appends page `page` (1-based) of `source`. Its strips or tiles are copied
// byte for byte when its coding is kept (kWriteDefault, or the source's own
// compression) and that is possible (byte counts known; samples of more than
// 8 bits only within one byte order); otherwise the page is decoded and coded
// again, with the colour type's default for kWriteDefault. A strip that lies
// outside the source is "Bad image data.".
bool AppendTiffPage(TiffFile* tiff, TiffFile* source, uint32_t page, const PageWriteOptions& options,
                    ErrorRecord* record);

}  // namespace velmora
