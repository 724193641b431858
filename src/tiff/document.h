// A TIFF document: every image file directory (IFD) of a TIFF read once,
// classified and grouped into pages.
//
// One page may be stored as several IFDs (the full-resolution image,
// reduced-resolution thumbnails, transparency masks), and PageNumber tags
// may put the IFDs in another order than the file. The document keeps one
// row per IFD, in file order, and answers how many pages there are, which
// IFDs make page n and whether the file's page numbers can be trusted. It
// does not follow later changes to the file.
#pragma once

#include <cstdint>
#include <string>

#include "frame/progress.h"
#include "frame/error_record.h"
#include "tiff/tiff_file.h"
#include "velmora/wintypes.h"

namespace velmora {

// TiffIfdRow::flags.
constexpr uint32_t kIfdHasAnnotations = 0x01;
constexpr uint32_t kIfdHasOcrText = 0x02;
constexpr uint32_t kIfdHasScale = 0x04;            // the library's scale tags
constexpr uint32_t kIfdHasPageInformation = 0x08;  // the page-information block
constexpr uint32_t kIfdExchanged = 0x10;           // Orientation 5 to 8: rows and columns exchanged

// NewSubfileType bits.
constexpr uint32_t kSubfileReduced = 0x1;
constexpr uint32_t kSubfileMask = 0x4;

// One IFD of the document: eight u32, the layout hosts and viewers share.
struct TiffIfdRow {
    uint32_t flags;
    uint32_t ifd;     // 1-based position in the chain
    uint32_t page;    // 1-based page the IFD belongs to
    uint32_t height;  // as displayed: ImageWidth when exchanged
    uint32_t subfileType;
    uint32_t orientation;  // 1 when absent
    uint32_t photometric;  // 0xFFFF when absent
    uint32_t width;        // as displayed: ImageLength when exchanged
};
static_assert(sizeof(TiffIfdRow) == 32, "an IFD row is eight u32");

// TiffDocument::flags.
constexpr uint32_t kDocumentOwnsStream = 0x01;  // the document opened the file (through its TIFF)
constexpr uint32_t kDocumentOwnsTiff = 0x02;
constexpr uint32_t kDocumentDamagedChain = 0x04;  // the IFD chain ended in a damaged directory
constexpr uint32_t kDocumentPageNumbersOk = 0x08;
constexpr uint32_t kDocumentHasFullImage = 0x10;  // some IFD is not a reduced-resolution image

// How annotations of a companion ".art" file combine with the pages' own.
enum : uint8_t {
    kCompanionWhereMissing = 0,  // only for pages without annotations of their own
    kCompanionReplace = 1,
    kCompanionAdd = 2,
};

struct TiffDocument {
    uint32_t signature;
    uint32_t flags;
    uint8_t companionMode;
    HGLOBAL rowsHandle;
    TiffIfdRow* rows;  // rowCount rows, in file order
    uint32_t rowCount;
    uint32_t rowCapacity;
    uint32_t pageCount;
    HGLOBAL companion;  // the bytes of the ".art" file, or null
    TiffFile* tiff;
    HGLOBAL self;
};

// Builds a document over `tiff`: reads every IFD (reporting each IFD number
// to `progress`, which may be null; a cancel is 1223), then numbers the
// pages. With `ownsTiff` the document closes the TIFF (and a memory stream
// under it) with itself, but only once it exists: on failure the caller
// still owns the TIFF.
TiffDocument* BuildTiffDocument(TiffFile* tiff, bool ownsTiff, ProgressReporter* progress, ErrorRecord* record);
// Opens a TIFF file read-only as a document that owns it, and attaches the
// companion annotation file when one loads.
TiffDocument* OpenTiffDocumentFile(const char16_t* path, uint8_t companionMode, ErrorRecord* record);
// Frees the document, closing what it owns. `record` may be null.
void CloseTiffDocument(TiffDocument* document, ErrorRecord* record);

HGLOBAL TiffDocumentHandle(const TiffDocument* document);
// The document behind a host's handle; null when it is not one.
TiffDocument* TiffDocumentFromHandle(HGLOBAL handle);
// Row `ifd` (1-based), or null beyond the list.
const TiffIfdRow* TiffDocumentRow(const TiffDocument* document, uint32_t ifd);

// The companion annotation file of a TIFF: the name with its extension (the
// text after the last "." of the last path component) replaced by ".art",
// or ".art" appended when there is none.
std::u16string CompanionPath(const std::u16string& path);

}  // namespace velmora
