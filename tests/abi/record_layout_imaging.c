/*
 * Compile-time proof that the records of the TIFF, codec and
 * DIB interface have their documented 32-bit layout.
 *
 * Every field is checked for its offset and its width. Records that carry
 * pointers, handles or callbacks are checked byte for byte on 32-bit targets
 * (the i686 build); on every target their pointer-carrying fields must be
 * pointer-sized. Records without pointers have one layout everywhere.
 *
 * Build: i686-w64-mingw32-gcc -std=c11 -fsyntax-only -Iinclude record_layout_imaging.c
 */
#include <stddef.h>
#include <stdint.h>
#include "velmora/velmora.h"

/* Field f of record T starts at byte off and is width bytes wide. */
#define FIELD(T, f, off, width)                                          \
    _Static_assert(offsetof(T, f) == (off), #T "." #f " offset");        \
    _Static_assert(sizeof(((T *)0)->f) == (width), #T "." #f " width")

/* Field f of record T carries a pointer, handle or callback. */
#define POINTER(T, f) \
    _Static_assert(sizeof(((T *)0)->f) == sizeof(void *), #T "." #f " is pointer-sized")

#define SIZE(T, n) _Static_assert(sizeof(T) == (n), "sizeof " #T)
#define VERSION(c, n) _Static_assert((c) == (n), #c)

/* ---- records without pointers: the same on every target ---------------- */

FIELD(VelmoraResolutionScale, xDenominator, 0, 4);
FIELD(VelmoraResolutionScale, xNumerator, 4, 4);
FIELD(VelmoraResolutionScale, yDenominator, 8, 4);
FIELD(VelmoraResolutionScale, yNumerator, 12, 4);
FIELD(VelmoraResolutionScale, unit, 16, 2);
FIELD(VelmoraResolutionScale, reserved, 18, 2);
SIZE(VelmoraResolutionScale, 20);

FIELD(VelmoraTIFFDateTime, day, 0, 1);
FIELD(VelmoraTIFFDateTime, hour, 1, 1);
FIELD(VelmoraTIFFDateTime, minute, 2, 1);
FIELD(VelmoraTIFFDateTime, month, 3, 1);
FIELD(VelmoraTIFFDateTime, second, 4, 1);
FIELD(VelmoraTIFFDateTime, reserved, 5, 1);
FIELD(VelmoraTIFFDateTime, year, 6, 2);
SIZE(VelmoraTIFFDateTime, 8);

FIELD(VelmoraTIFFDocumentIFDInfo, size, 0, 4);
FIELD(VelmoraTIFFDocumentIFDInfo, page, 4, 4);
FIELD(VelmoraTIFFDocumentIFDInfo, width, 8, 4);
FIELD(VelmoraTIFFDocumentIFDInfo, height, 12, 4);
FIELD(VelmoraTIFFDocumentIFDInfo, subfileType, 16, 4);
FIELD(VelmoraTIFFDocumentIFDInfo, photometric, 20, 4);
FIELD(VelmoraTIFFDocumentIFDInfo, exchanged, 24, 4);
FIELD(VelmoraTIFFDocumentIFDInfo, orientation, 28, 4);
SIZE(VelmoraTIFFDocumentIFDInfo, 32);
VERSION(VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V1, 24);
VERSION(VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V2, 28);
VERSION(VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V3, 32);

FIELD(VelmoraJPEGInfo, size, 0, 2);
FIELD(VelmoraJPEGInfo, request, 2, 2);
FIELD(VelmoraJPEGInfo, width, 4, 2);
FIELD(VelmoraJPEGInfo, height, 6, 2);
FIELD(VelmoraJPEGInfo, xDensityNumerator, 8, 4);
FIELD(VelmoraJPEGInfo, xDensityDenominator, 12, 4);
FIELD(VelmoraJPEGInfo, yDensityNumerator, 16, 4);
FIELD(VelmoraJPEGInfo, yDensityDenominator, 20, 4);
FIELD(VelmoraJPEGInfo, densityUnit, 24, 2);
FIELD(VelmoraJPEGInfo, components, 26, 1);
FIELD(VelmoraJPEGInfo, precision, 27, 1);
FIELD(VelmoraJPEGInfo, process, 28, 1);
FIELD(VelmoraJPEGInfo, adobeTransform, 29, 1);
FIELD(VelmoraJPEGInfo, restartInterval, 30, 2);
FIELD(VelmoraJPEGInfo, mcuWidth, 32, 1);
FIELD(VelmoraJPEGInfo, mcuHeight, 33, 1);
FIELD(VelmoraJPEGInfo, thumbnailWidth, 34, 1);
FIELD(VelmoraJPEGInfo, thumbnailHeight, 35, 1);
FIELD(VelmoraJPEGInfo, flags, 36, 4);
FIELD(VelmoraJPEGInfo, reserved, 40, 4);
SIZE(VelmoraJPEGInfo, 44);
VERSION(VELMORA_JPEG_INFO_SIZE_V1, 44);

FIELD(VelmoraSaveDIBBMPOptions, size, 0, 2);
FIELD(VelmoraSaveDIBBMPOptions, reserved, 2, 2);
FIELD(VelmoraSaveDIBBMPOptions, options, 4, 4);
SIZE(VelmoraSaveDIBBMPOptions, 8);
VERSION(VELMORA_SAVE_DIB_BMP_OPTIONS_SIZE_V1, 8);

FIELD(VelmoraSaveDIBChoice, size, 0, 2);
FIELD(VelmoraSaveDIBChoice, reserved, 2, 2);
FIELD(VelmoraSaveDIBChoice, first, 4, 4);
FIELD(VelmoraSaveDIBChoice, second, 8, 4);
SIZE(VelmoraSaveDIBChoice, 12);
VERSION(VELMORA_SAVE_DIB_CHOICE_SIZE_V1, 12);

FIELD(VelmoraSaveDIBJPEGOptions, size, 0, 2);
FIELD(VelmoraSaveDIBJPEGOptions, quality, 2, 2);
FIELD(VelmoraSaveDIBJPEGOptions, options, 4, 4);
SIZE(VelmoraSaveDIBJPEGOptions, 8);
VERSION(VELMORA_SAVE_DIB_JPEG_OPTIONS_SIZE_V1, 8);

/* ---- pointer-carrying fields are pointer-sized on every target ---------- */

POINTER(VelmoraReadTIFFDIB, tiff);
POINTER(VelmoraReadTIFFDIB, progress);
POINTER(VelmoraReadTIFFDIB, progressUser);

POINTER(VelmoraAppendTIFF, sourceName);
POINTER(VelmoraAppendTIFF, sourceTIFF);
POINTER(VelmoraAppendTIFF, annotations);
POINTER(VelmoraAppendTIFF, resolution);
POINTER(VelmoraAppendTIFF, scale);
POINTER(VelmoraAppendTIFF, dib);
POINTER(VelmoraAppendTIFF, extraData);
POINTER(VelmoraAppendTIFF, palette);
POINTER(VelmoraAppendTIFF, progress);
POINTER(VelmoraAppendTIFF, progressUser);
POINTER(VelmoraAppendTIFF, ocrText);
POINTER(VelmoraAppendTIFF, texts[0]);

POINTER(VelmoraOpenTIFFDocument, name);

POINTER(VelmoraJPEGMCURequest, rect);
POINTER(VelmoraJPEGMCURequest, progressUser);
POINTER(VelmoraJPEGMCURequest, progress);

POINTER(VelmoraResizeDIB, bits);
POINTER(VelmoraResizeDIB, header);
POINTER(VelmoraResizeDIB, progress);
POINTER(VelmoraResizeDIB, progressUser);

POINTER(VelmoraReadDIB, path);
POINTER(VelmoraReadDIB, progress);
POINTER(VelmoraReadDIB, progressUser);

POINTER(VelmoraSaveDIBOptions, bmp);
POINTER(VelmoraSaveDIBOptions, choice1);
POINTER(VelmoraSaveDIBOptions, choice2);
POINTER(VelmoraSaveDIBOptions, jpeg);

/* ---- pointer-carrying records: the documented 32-bit layout ------------- */

#if UINTPTR_MAX == 0xFFFFFFFFu

FIELD(VelmoraReadTIFFDIB, size, 0, 2);
FIELD(VelmoraReadTIFFDIB, reserved, 2, 2);
FIELD(VelmoraReadTIFFDIB, tiff, 4, 4);
FIELD(VelmoraReadTIFFDIB, page, 8, 4);
FIELD(VelmoraReadTIFFDIB, progress, 12, 4);
FIELD(VelmoraReadTIFFDIB, progressUser, 16, 4);
FIELD(VelmoraReadTIFFDIB, flags, 20, 4);
FIELD(VelmoraReadTIFFDIB, burnInOptions, 24, 4);
SIZE(VelmoraReadTIFFDIB, 28);
VERSION(VELMORA_READ_TIFF_DIB_SIZE_V1, 24);
VERSION(VELMORA_READ_TIFF_DIB_SIZE_V2, 28);

FIELD(VelmoraAppendTIFF, size, 0, 2);
FIELD(VelmoraAppendTIFF, reserved1, 2, 2);
FIELD(VelmoraAppendTIFF, sourceName, 4, 4);
FIELD(VelmoraAppendTIFF, sourceTIFF, 8, 4);
FIELD(VelmoraAppendTIFF, sourcePage, 12, 4);
FIELD(VelmoraAppendTIFF, flags, 16, 4);
FIELD(VelmoraAppendTIFF, annotations, 20, 4);
FIELD(VelmoraAppendTIFF, annotationOptions, 24, 4);
FIELD(VelmoraAppendTIFF, resolution, 28, 4);
FIELD(VelmoraAppendTIFF, reserved2, 32, 20);
FIELD(VelmoraAppendTIFF, scale, 52, 4);
FIELD(VelmoraAppendTIFF, compression, 56, 2);
FIELD(VelmoraAppendTIFF, reserved3, 58, 2);
FIELD(VelmoraAppendTIFF, dib, 60, 4);
FIELD(VelmoraAppendTIFF, extraData, 64, 4);
FIELD(VelmoraAppendTIFF, palette, 68, 4);
FIELD(VelmoraAppendTIFF, progress, 72, 4);
FIELD(VelmoraAppendTIFF, progressUser, 76, 4);
FIELD(VelmoraAppendTIFF, reason, 80, 2);
FIELD(VelmoraAppendTIFF, reserved4, 82, 2);
FIELD(VelmoraAppendTIFF, ocrText, 84, 4);
FIELD(VelmoraAppendTIFF, reserved5, 88, 4);
FIELD(VelmoraAppendTIFF, texts, 92, 32);
FIELD(VelmoraAppendTIFF, texts[7], 120, 4);
FIELD(VelmoraAppendTIFF, pageValue, 124, 2);
FIELD(VelmoraAppendTIFF, reserved6, 126, 2);
SIZE(VelmoraAppendTIFF, 128);
VERSION(VELMORA_APPEND_TIFF_SIZE_V1, 64);
VERSION(VELMORA_APPEND_TIFF_SIZE_V2, 68);
VERSION(VELMORA_APPEND_TIFF_SIZE_V3, 72);
VERSION(VELMORA_APPEND_TIFF_SIZE_V4, 84);
VERSION(VELMORA_APPEND_TIFF_SIZE_V5, 92);
VERSION(VELMORA_APPEND_TIFF_SIZE_V6, 124);
VERSION(VELMORA_APPEND_TIFF_SIZE_V7, 128);

FIELD(VelmoraOpenTIFFDocument, size, 0, 2);
FIELD(VelmoraOpenTIFFDocument, flags, 2, 2);
FIELD(VelmoraOpenTIFFDocument, name, 4, 4);
SIZE(VelmoraOpenTIFFDocument, 8);
VERSION(VELMORA_OPEN_TIFF_DOCUMENT_SIZE_V1, 8);

FIELD(VelmoraJPEGMCURequest, size, 0, 2);
FIELD(VelmoraJPEGMCURequest, mode, 2, 2);
FIELD(VelmoraJPEGMCURequest, rect, 4, 4);
FIELD(VelmoraJPEGMCURequest, progressUser, 8, 4);
FIELD(VelmoraJPEGMCURequest, progress, 12, 4);
SIZE(VelmoraJPEGMCURequest, 16);
VERSION(VELMORA_JPEG_MCU_REQUEST_SIZE_V1, 16);

FIELD(VelmoraResizeDIB, size, 0, 2);
FIELD(VelmoraResizeDIB, flags, 2, 2);
FIELD(VelmoraResizeDIB, width, 4, 4);
FIELD(VelmoraResizeDIB, height, 8, 4);
FIELD(VelmoraResizeDIB, bits, 12, 4);
FIELD(VelmoraResizeDIB, header, 16, 4);
FIELD(VelmoraResizeDIB, progress, 20, 4);
FIELD(VelmoraResizeDIB, progressUser, 24, 4);
SIZE(VelmoraResizeDIB, 28);
VERSION(VELMORA_RESIZE_DIB_SIZE_V1, 28);

FIELD(VelmoraReadDIB, size, 0, 2);
FIELD(VelmoraReadDIB, reserved, 2, 2);
FIELD(VelmoraReadDIB, path, 4, 4);
FIELD(VelmoraReadDIB, page, 8, 4);
FIELD(VelmoraReadDIB, offsetLow, 12, 4);
FIELD(VelmoraReadDIB, offsetHigh, 16, 4);
FIELD(VelmoraReadDIB, progress, 20, 4);
FIELD(VelmoraReadDIB, progressUser, 24, 4);
FIELD(VelmoraReadDIB, flags, 28, 4);
FIELD(VelmoraReadDIB, options, 32, 4);
SIZE(VelmoraReadDIB, 36);
VERSION(VELMORA_READ_DIB_SIZE_V1, 28);
VERSION(VELMORA_READ_DIB_SIZE_V2, 32);
VERSION(VELMORA_READ_DIB_SIZE_V3, 36);

FIELD(VelmoraSaveDIBOptions, size, 0, 2);
FIELD(VelmoraSaveDIBOptions, reserved, 2, 2);
FIELD(VelmoraSaveDIBOptions, bmp, 4, 4);
FIELD(VelmoraSaveDIBOptions, choice1, 8, 4);
FIELD(VelmoraSaveDIBOptions, choice2, 12, 4);
FIELD(VelmoraSaveDIBOptions, jpeg, 16, 4);
SIZE(VelmoraSaveDIBOptions, 20);
VERSION(VELMORA_SAVE_DIB_OPTIONS_SIZE_V1, 20);

#endif /* 32-bit */
