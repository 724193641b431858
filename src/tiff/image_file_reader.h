// Reading one page of an image file of any type the library reads, and
// saving a DIB as a file of a type it writes.
#pragma once

#include <cstdint>
#include <string>

#include "frame/error_record.h"
#include "frame/progress.h"
#include "velmora/wintypes.h"

namespace velmora {

// Document types (as DocumentTypeOfBytes tells them) that the dispatch and
// the saver know.
constexpr int32_t kDocumentBmp = 0;
constexpr int32_t kDocumentGif = 1;
constexpr int32_t kDocumentJpeg = 2;
constexpr int32_t kDocumentPcx = 4;
constexpr int32_t kDocumentPng = 5;
constexpr int32_t kDocumentTiff = 6;

// Options of ReadImageFileDib.
constexpr uint32_t kReadImageFast = 0x1;  // TIFF pages by the faster, reduced-quality decode

// Page `page` (from 1) of the image that starts `offset` bytes into the file
// at `path`, told by its content, as a new packed DIB:
//   BMP, JPEG, PCX, PNG: page 1 only (87 for another);
//   GIF: the page is the frame;
//   TIFF: the page's directory read upright (87 when there is no such page);
//   PCX, PNG and TIFF must start the file (87 for an offset);
//   an unrecognised file is 0x02000002, any other type 0x0200001B.
// `options` holds kReadImage... bits. `damaged` (may be null) tells whether
// the file was read despite a fault its reader tolerates: a BMP's wrong
// stored size, short bit-field pixels or bad run-length data, image data of
// a GIF, PCX or PNG that ends early or is damaged, a PNG's late bKGD.
// Null with the record set on failure.
HGLOBAL ReadImageFileDib(const std::u16string& path, uint32_t page, uint64_t offset, uint32_t options,
                         ProgressReporter* progress, bool* damaged, ErrorRecord* record);

// How SaveImageFile writes each type.
struct SaveFileOptions {
    bool bmpCore = false;       // BMP: the old-style 12-byte header
    bool bmpRunLength = false;  // BMP: RLE8 / RLE4 rows for 8- and 4-bit DIBs
    int32_t jpegQuality = 75;
    bool jpegJfif = true;         // JPEG: a JFIF segment with the DIB's resolution
    bool jpegResolution = false;  // JPEG: the library's resolution segment
    bool jpegScale = false;       // JPEG: the library's scale segment (1:1)
};

// Writes the checked DIB (`header`, rows at `bits`) as a new file of type
// kDocumentBmp, kDocumentJpeg or kDocumentTiff (one page) at `path`,
// replacing any file there only once the new one is complete. Another type
// is 87.
bool SaveImageFile(const std::u16string& path, const BITMAPINFOHEADER* header, const void* bits, int32_t type,
                   const SaveFileOptions& options, ErrorRecord* record);

}  // namespace velmora
