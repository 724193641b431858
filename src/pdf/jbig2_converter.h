// Converting a TIFF document to PDF through the outside image-to-PDF
// converter library, which codes bi-level pages as JBIG2.
//
// The library is "i2pocrsdk.dll" on Windows and "libi2pocrsdk.so" elsewhere,
// loaded at run time from the system's library search path. Its one entry
// used here is
//
//     int WINAPI i2pdfocr(const char* command);
//
// which takes a command line in the system code page (UTF-8 outside
// Windows) and returns 0 when it wrote the PDF. The command is
//
//     [-chkbwcolor ]-bwimg 2 "<input TIFF>" "<output PDF>"
//
// with "-chkbwcolor " asking the converter to check pages for colour.
//
// Every page becomes bi-level in one temporary TIFF: bi-level pages are
// copied as they are stored (black-is-zero ones decoded and written with
// white as zero when asked), the others decoded and thresholded or dithered
// to black and white, coded as CCITT Group 4. The converter writes a
// temporary PDF, whose pages are counted before its bytes are copied to the
// destination. Both temporary files are deleted afterwards.
#pragma once

#include <string>

#include "frame/error_record.h"
#include "tiff/document.h"
#include "velmora/wintypes.h"

namespace velmora {

struct Jbig2Choices {
    bool dither = false;       // colour and grey pages dithered instead of thresholded
    bool whiteIsZero = false;  // black-is-zero bi-level pages written with white as zero
    bool checkColor = false;   // "-chkbwcolor "
};

// The converter's entry, or null with 0x02000019 ("The function has been
// disabled.", naming the library) when the library or its entry is missing.
// The caller unloads `*module` with platform::UnloadModule.
using Jbig2Entry = int(WINAPI*)(const char* command);
Jbig2Entry LoadJbig2Converter(void** module, ErrorRecord* record);

// Converts every page of `tiff` to the PDF at `destination` with `entry`.
// A non-zero result of the converter, or a PDF whose page count is not the
// document's, is 0x02000009 "Error." and leaves the destination untouched.
bool ConvertThroughJbig2(Jbig2Entry entry, TiffDocument* tiff, const std::u16string& destination,
                         const Jbig2Choices& choices, ErrorRecord* record);

// The file the converter is loaded from: a full path, or empty for the
// library's own name on the search path. For tests.
void SetJbig2ConverterPath(const std::u16string& path);

// The number of page objects in the bytes of a PDF file whose page
// dictionaries are not inside compressed object streams.
uint32_t CountPdfPageObjects(const uint8_t* bytes, size_t size);

}  // namespace velmora
