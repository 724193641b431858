/*
 * Record layouts of the annotation, PDF, OCR text and printing records on a
 * 32-bit target: every field at its documented offset, every record of its
 * documented size, every accepted record size equal to its constant.
 * Compile with the i686 mingw-w64 compiler (-fsyntax-only is enough).
 */
#include <stddef.h>

#include "velmora/velmora.h"

#if defined(_WIN32) && !defined(_WIN64)

#define AT(T, f, n) _Static_assert(offsetof(T, f) == (n), #T "." #f)
#define FIELD(T, f, n, w) AT(T, f, n); _Static_assert(sizeof(((T *)0)->f) == (w), #T "." #f " width")
#define SIZE(T, n) _Static_assert(sizeof(T) == (n), "sizeof " #T)
#define EQ(c, n) _Static_assert((c) == (n), #c)

/* The 16-byte variant of the annotation properties. */
SIZE(VARIANT, 16);

/* Insert record, rectangle and text. */
FIELD(VelmoraInsertAnnotationInfo, size, 0, 2);
FIELD(VelmoraInsertAnnotationInfo, borderStyle, 2, 2);
FIELD(VelmoraInsertAnnotationInfo, borderWidth, 4, 2);
FIELD(VelmoraInsertAnnotationInfo, borderColor, 8, 4);
FIELD(VelmoraInsertAnnotationInfo, option1, 12, 1);
FIELD(VelmoraInsertAnnotationInfo, option2, 13, 1);
FIELD(VelmoraInsertAnnotationInfo, textSize, 14, 2);
FIELD(VelmoraInsertAnnotationInfo, textColor, 16, 4);
FIELD(VelmoraInsertAnnotationInfo, fontName, 20, 4);
FIELD(VelmoraInsertAnnotationInfo, rect, 24, 16);
AT(VelmoraInsertAnnotationInfo, rect.left, 24);
AT(VelmoraInsertAnnotationInfo, rect.top, 28);
AT(VelmoraInsertAnnotationInfo, rect.right, 32);
AT(VelmoraInsertAnnotationInfo, rect.bottom, 36);
FIELD(VelmoraInsertAnnotationInfo, backColor, 40, 4);
FIELD(VelmoraInsertAnnotationInfo, text, 44, 4);
FIELD(VelmoraInsertAnnotationInfo, redactionKind, 48, 1);
FIELD(VelmoraInsertAnnotationInfo, reserved49, 49, 3);
FIELD(VelmoraInsertAnnotationInfo, backStyle, 52, 4);
FIELD(VelmoraInsertAnnotationInfo, backColor2, 56, 4);
FIELD(VelmoraInsertAnnotationInfo, fitMode, 60, 4);
FIELD(VelmoraInsertAnnotationInfo, fitParameter, 64, 4);
FIELD(VelmoraInsertAnnotationInfo, thirdColor, 68, 4);
FIELD(VelmoraInsertAnnotationInfo, flagByte, 72, 1);
FIELD(VelmoraInsertAnnotationInfo, textRotation, 74, 2);
FIELD(VelmoraInsertAnnotationInfo, insertFlags, 76, 4);
FIELD(VelmoraInsertAnnotationInfo, exemptionCodes, 80, 4);
FIELD(VelmoraInsertAnnotationInfo, created, 84, 4);
FIELD(VelmoraInsertAnnotationInfo, pageWidth, 88, 4);
FIELD(VelmoraInsertAnnotationInfo, pageHeight, 92, 4);
FIELD(VelmoraInsertAnnotationInfo, measure, 96, 4);
FIELD(VelmoraInsertAnnotationInfo, reserved, 100, 4);
SIZE(VelmoraInsertAnnotationInfo, 104);
EQ(VELMORA_INSERT_ANNOTATION_INFO_SIZE_V1, 48);
EQ(VELMORA_INSERT_ANNOTATION_INFO_SIZE_V2, 52);
EQ(VELMORA_INSERT_ANNOTATION_INFO_SIZE_V3, 68);
EQ(VELMORA_INSERT_ANNOTATION_INFO_SIZE_V4, 76);
EQ(VELMORA_INSERT_ANNOTATION_INFO_SIZE_V5, 88);
EQ(VELMORA_INSERT_ANNOTATION_INFO_SIZE_V6, 100);
EQ(VELMORA_INSERT_ANNOTATION_INFO_SIZE_V7, 104);

/* Measuring record for size to fit. */
FIELD(VelmoraTextMeasure, values, 0, 16);
FIELD(VelmoraTextMeasure, option, 16, 2);
FIELD(VelmoraTextMeasure, reserved, 18, 2);
SIZE(VelmoraTextMeasure, 20);

/* Insert record, picture. */
FIELD(VelmoraInsertPictureInfo, size, 0, 2);
FIELD(VelmoraInsertPictureInfo, flags, 2, 2);
FIELD(VelmoraInsertPictureInfo, orientation, 4, 4);
FIELD(VelmoraInsertPictureInfo, rect, 8, 16);
AT(VelmoraInsertPictureInfo, rect.right, 16);
AT(VelmoraInsertPictureInfo, rect.bottom, 20);
FIELD(VelmoraInsertPictureInfo, fileName, 24, 4);
FIELD(VelmoraInsertPictureInfo, userValue, 28, 4);
FIELD(VelmoraInsertPictureInfo, pictureData, 32, 4);
FIELD(VelmoraInsertPictureInfo, pictureDataSize, 36, 4);
FIELD(VelmoraInsertPictureInfo, stringList, 40, 4);
FIELD(VelmoraInsertPictureInfo, created, 44, 4);
SIZE(VelmoraInsertPictureInfo, 48);
EQ(VELMORA_INSERT_PICTURE_INFO_SIZE_V1, 32);
EQ(VELMORA_INSERT_PICTURE_INFO_SIZE_V2, 40);
EQ(VELMORA_INSERT_PICTURE_INFO_SIZE_V3, 48);

/* Burn-in record. */
FIELD(VelmoraBurnInInfo, size, 0, 2);
FIELD(VelmoraBurnInInfo, rotation, 2, 2);
FIELD(VelmoraBurnInInfo, annotations, 4, 4);
FIELD(VelmoraBurnInInfo, annotationsSize, 8, 4);
FIELD(VelmoraBurnInInfo, dib, 12, 4);
FIELD(VelmoraBurnInInfo, header, 16, 4);
FIELD(VelmoraBurnInInfo, flags, 20, 4);
SIZE(VelmoraBurnInInfo, 24);
EQ(VELMORA_BURN_IN_INFO_SIZE_V1, 24);

/* OCR text record: header and entries (byte formats, the same everywhere). */
FIELD(VelmoraOCRText, size, 0, 4);
FIELD(VelmoraOCRText, signature, 4, 16);
FIELD(VelmoraOCRText, format, 20, 2);
FIELD(VelmoraOCRText, rotation, 22, 2);
FIELD(VelmoraOCRText, count, 24, 4);
FIELD(VelmoraOCRText, options, 28, 4);
SIZE(VelmoraOCRText, 32);
EQ(VELMORA_OCR_TEXT_SIZE_V1, 28);
EQ(VELMORA_OCR_TEXT_SIZE_V2, 32);
FIELD(VelmoraOCRTextEntry, textOffset, 0, 4);
FIELD(VelmoraOCRTextEntry, boxOffset, 4, 4);
FIELD(VelmoraOCRTextEntry, wordFlagsOffset, 8, 4);
FIELD(VelmoraOCRTextEntry, value, 12, 4);
SIZE(VelmoraOCRTextEntry, 16);
EQ(VELMORA_OCR_TEXT_ENTRY_SIZE_V1, 8);
EQ(VELMORA_OCR_TEXT_ENTRY_SIZE_V2, 12);
EQ(VELMORA_OCR_TEXT_ENTRY_SIZE_V3, 16);
EQ(sizeof(VELMORA_OCR_TEXT_SIGNATURE) - 1, 14);

/* TIFF to PDF conversion record. */
FIELD(VelmoraTIFFToPDFInfo, size, 0, 2);
FIELD(VelmoraTIFFToPDFInfo, flags, 2, 2);
FIELD(VelmoraTIFFToPDFInfo, options, 4, 4);
FIELD(VelmoraTIFFToPDFInfo, source, 8, 4);
FIELD(VelmoraTIFFToPDFInfo, destination, 12, 4);
FIELD(VelmoraTIFFToPDFInfo, metadata, 16, 4);
FIELD(VelmoraTIFFToPDFInfo, valueMask, 20, 4);
FIELD(VelmoraTIFFToPDFInfo, values, 24, 4);
FIELD(VelmoraTIFFToPDFInfo, xmpPadding, 28, 4);
SIZE(VelmoraTIFFToPDFInfo, 32);
EQ(VELMORA_TIFF_TO_PDF_INFO_SIZE_V1, 20);
EQ(VELMORA_TIFF_TO_PDF_INFO_SIZE_V2, 28);
EQ(VELMORA_TIFF_TO_PDF_INFO_SIZE_V3, 32);

/* PDF to TIFF conversion record. */
FIELD(VelmoraPDFToTIFFInfo, size, 0, 2);
FIELD(VelmoraPDFToTIFFInfo, flags, 2, 2);
FIELD(VelmoraPDFToTIFFInfo, options, 4, 2);
FIELD(VelmoraPDFToTIFFInfo, colorType, 6, 1);
FIELD(VelmoraPDFToTIFFInfo, resolutionUnit, 7, 1);
FIELD(VelmoraPDFToTIFFInfo, resolution, 8, 4);
FIELD(VelmoraPDFToTIFFInfo, bilevelCompression, 12, 1);
FIELD(VelmoraPDFToTIFFInfo, compression, 13, 1);
FIELD(VelmoraPDFToTIFFInfo, compression2, 14, 1);
FIELD(VelmoraPDFToTIFFInfo, text, 16, 4);
FIELD(VelmoraPDFToTIFFInfo, source, 20, 4);
FIELD(VelmoraPDFToTIFFInfo, page, 24, 4);
FIELD(VelmoraPDFToTIFFInfo, destination, 28, 4);
FIELD(VelmoraPDFToTIFFInfo, progress, 32, 4);
FIELD(VelmoraPDFToTIFFInfo, progressValue, 36, 4);
FIELD(VelmoraPDFToTIFFInfo, value40, 40, 4);
FIELD(VelmoraPDFToTIFFInfo, extendedFlags, 44, 4);
FIELD(VelmoraPDFToTIFFInfo, bilevelCompression2, 48, 1);
FIELD(VelmoraPDFToTIFFInfo, choice49, 49, 1);
FIELD(VelmoraPDFToTIFFInfo, choice50, 50, 1);
FIELD(VelmoraPDFToTIFFInfo, choice51, 51, 1);
FIELD(VelmoraPDFToTIFFInfo, subRecord, 52, 4);
FIELD(VelmoraPDFToTIFFInfo, optionWord, 56, 4);
FIELD(VelmoraPDFToTIFFInfo, firstPage, 60, 4);
FIELD(VelmoraPDFToTIFFInfo, lastPage, 64, 4);
FIELD(VelmoraPDFToTIFFInfo, pageListCount, 68, 4);
FIELD(VelmoraPDFToTIFFInfo, pageList, 72, 4);
SIZE(VelmoraPDFToTIFFInfo, 76);
EQ(VELMORA_PDF_TO_TIFF_INFO_SIZE_V1, 40);
EQ(VELMORA_PDF_TO_TIFF_INFO_SIZE_V2, 44);
EQ(VELMORA_PDF_TO_TIFF_INFO_SIZE_V3, 52);
EQ(VELMORA_PDF_TO_TIFF_INFO_SIZE_V4, 56);
EQ(VELMORA_PDF_TO_TIFF_INFO_SIZE_V5, 60);
EQ(VELMORA_PDF_TO_TIFF_INFO_SIZE_V6, 76);
/* No field flag overlaps the bits that must be clear; the extended flags
   and their reserved bits cover all 32 bits. */
EQ((VELMORA_PDF_TO_TIFF_RESOLUTION | VELMORA_PDF_TO_TIFF_COLOR_TYPE | VELMORA_PDF_TO_TIFF_OPTION_3 |
    VELMORA_PDF_TO_TIFF_COMPRESSION_2 | VELMORA_PDF_TO_TIFF_COMPRESSION |
    VELMORA_PDF_TO_TIFF_BILEVEL_COMPRESSION | VELMORA_PDF_TO_TIFF_OPTION_7 | VELMORA_PDF_TO_TIFF_TEXT |
    VELMORA_PDF_TO_TIFF_VALUE_40 | VELMORA_PDF_TO_TIFF_OPTION_13 | VELMORA_PDF_TO_TIFF_EXTENDED) &
       VELMORA_PDF_TO_TIFF_FLAGS_RESERVED,
   0);
EQ(VELMORA_PDF_TO_TIFF_EX_CHOICE_48 | VELMORA_PDF_TO_TIFF_EX_CHOICE_49 | VELMORA_PDF_TO_TIFF_EX_CHOICE_50 |
   VELMORA_PDF_TO_TIFF_EX_CHOICE_51 | VELMORA_PDF_TO_TIFF_EX_SUB_RECORD | VELMORA_PDF_TO_TIFF_EX_PAGE_RANGE |
   VELMORA_PDF_TO_TIFF_EX_PAGE_LIST | VELMORA_PDF_TO_TIFF_EX_WIDE | VELMORA_PDF_TO_TIFF_EX_OPTION_WORD |
   VELMORA_PDF_TO_TIFF_EX_RESERVED, 0xFFFFFFFFu);

/* Page image with information, from GetVelmoraPDFPageData. */
FIELD(VelmoraPDFPageImage, image, 0, 4);
FIELD(VelmoraPDFPageImage, xResolution, 4, 4);
FIELD(VelmoraPDFPageImage, yResolution, 8, 4);
FIELD(VelmoraPDFPageImage, width, 12, 4);
FIELD(VelmoraPDFPageImage, height, 16, 4);
FIELD(VelmoraPDFPageImage, rotation, 20, 2);
FIELD(VelmoraPDFPageImage, reserved, 22, 2);
SIZE(VelmoraPDFPageImage, 24);
EQ(VELMORA_PDF_PAGE_IMAGE_SIZE_V1, 24);

/* Print record. */
FIELD(VelmoraPageRange, first, 0, 4);
FIELD(VelmoraPageRange, last, 4, 4);
SIZE(VelmoraPageRange, 8);
FIELD(VelmoraPrintInfo, size, 0, 2);
FIELD(VelmoraPrintInfo, reserved, 2, 2);
FIELD(VelmoraPrintInfo, owner, 4, 4);
FIELD(VelmoraPrintInfo, document, 8, 4);
FIELD(VelmoraPrintInfo, rangeCount, 12, 4);
FIELD(VelmoraPrintInfo, ranges, 16, 4);
FIELD(VelmoraPrintInfo, progressWindow, 20, 4);
FIELD(VelmoraPrintInfo, flags, 24, 4);
FIELD(VelmoraPrintInfo, value28, 28, 4);
FIELD(VelmoraPrintInfo, value32, 32, 2);
FIELD(VelmoraPrintInfo, rotation, 34, 2);
FIELD(VelmoraPrintInfo, viewerOptions, 36, 4);
FIELD(VelmoraPrintInfo, handle40, 40, 4);
FIELD(VelmoraPrintInfo, handle44, 44, 4);
FIELD(VelmoraPrintInfo, value48, 48, 4);
FIELD(VelmoraPrintInfo, value52, 52, 4);
FIELD(VelmoraPrintInfo, value56, 56, 4);
FIELD(VelmoraPrintInfo, progress, 60, 4);
FIELD(VelmoraPrintInfo, progressValue, 64, 4);
SIZE(VelmoraPrintInfo, 68);
EQ(VELMORA_PRINT_INFO_SIZE_V1, 24);
EQ(VELMORA_PRINT_INFO_SIZE_V2, 28);
EQ(VELMORA_PRINT_INFO_SIZE_V3, 60);
EQ(VELMORA_PRINT_INFO_SIZE_V4, 68);

/* Page-setup record. */
FIELD(VelmoraPageSetupInfo, size, 0, 2);
FIELD(VelmoraPageSetupInfo, reserved, 2, 2);
FIELD(VelmoraPageSetupInfo, unit, 4, 4);
FIELD(VelmoraPageSetupInfo, values, 8, 24);
AT(VelmoraPageSetupInfo, values[5], 28);
SIZE(VelmoraPageSetupInfo, 32);
EQ(VELMORA_PAGE_SETUP_INFO_SIZE_V1, 32);

#else
#error "compile the layout check for a 32-bit Windows target (i686-w64-mingw32-gcc)"
#endif
