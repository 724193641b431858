/*
 * velmora.h — the Velmora document-imaging library.
 *
 * This header is the manual of the library's interface. It is accepted by a C
 * compiler on its own (C99 or later) and by C++.
 *
 * Conventions that hold for every function below unless its own comment says
 * otherwise:
 *
 *  - Calling convention: __stdcall on Windows (VELMORA_API); callbacks a host
 *    passes in are VELMORA_CALLBACK.
 *  - Every function first makes sure the library is initialised. When
 *    initialisation failed, it fails too, with the initialisation's error.
 *  - Arguments are checked in this order: handles (invalid: error 6), values
 *    (out of range, unknown flag bits, a record whose size field is not one
 *    of its accepted sizes: error 87), pointers (NULL where a buffer, record
 *    or string is required: error 998), windows (not a window: error 1400).
 *  - Out-parameters (pointers to which a function writes its results) are
 *    checked with the other pointers and then set to zero (NULL), so after a
 *    failure they hold zero; records passed in to be changed in place are
 *    left as they were when the function fails.
 *  - On failure a function returns 0 (or -1 for counts and indexes, or -2
 *    where stated) and sets the library's last error: its code through
 *    GetLastVelmoraErrorCode and the thread's GetLastError, its message
 *    through GetVelmoraErrorMessage. Successful calls leave the last error
 *    as it was.
 *  - Everything the library hands out (open TIFF files, documents, DIBs,
 *    annotation streams, text lists, PDFs, data blocks) is a movable
 *    global-memory handle that the caller owns and frees with GlobalFree
 *    (or the Close / Destroy function named for it). The library never frees
 *    a handle the caller passes in, except where a function says so.
 *  - Narrow strings are in the system code page (UTF-8 on Linux); wide
 *    strings are UTF-16. "W" functions take wide strings.
 *  - Records passed in begin with their own size; the accepted sizes are the
 *    VELMORA_..._SIZE_V* constants. Pixel data is a packed DIB: a 40-byte
 *    BITMAPINFOHEADER, the colour table, then bottom-up rows of 4-byte
 *    aligned stride.
 */
#ifndef VELMORA_H
#define VELMORA_H

#include "velmora/wintypes.h"

#if defined(_WIN32)
#if defined(VELMORA_BUILDING_LIBRARY)
#define VELMORA_EXPORT __declspec(dllexport)
#else
#define VELMORA_EXPORT __declspec(dllimport)
#endif
#define VELMORA_API __stdcall
#define VELMORA_CALLBACK __stdcall
#else
#define VELMORA_EXPORT __attribute__((visibility("default")))
#define VELMORA_API
#define VELMORA_CALLBACK
#endif

/* The number of bytes of a record up to and including one of its fields:
   the size of a record version that ends with that field. */
#define VELMORA_SIZE_THROUGH(type, field) \
    (offsetof(type, field) + sizeof(((type *)0)->field))

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================
 * Error codes
 *
 * Errors are Win32 error numbers (2 file not found, 6 invalid handle,
 * 8 and 14 out of memory, 87 invalid parameter, 120 not implemented,
 * 998 invalid pointer, 1223 cancelled, 1400 invalid window ...), socket
 * codes 10004 to 11004, OLE result codes, and the library's own codes
 * below, which have bit 25 set. GetVelmoraErrorMessage gives the text.
 * ====================================================================== */
/* The system's codes the functions below answer with most (the prose of
   each function names them by number, as a host's error tables do). */
#define VELMORA_ERROR_INVALID_HANDLE              6UL    /* a handle that is not one, or freed */
#define VELMORA_ERROR_NOT_ENOUGH_MEMORY           8UL    /* memory for the work could not be had */
#define VELMORA_ERROR_INVALID_PARAMETER           87UL   /* a value, flag or record size out of range */
#define VELMORA_ERROR_CALL_NOT_IMPLEMENTED        120UL  /* not available in this build or on this system */
#define VELMORA_ERROR_NO_ACCESS                   998UL  /* NULL or unreadable where memory is required */
#define VELMORA_ERROR_CANCELLED                   1223UL /* the progress callback said stop */

#define VELMORA_ERROR_UNKNOWN_IMAGE_TYPE          0x02000001UL /* "Unknown image type." */
#define VELMORA_ERROR_UNRECOGNIZED_FILE_FORMAT    0x02000002UL /* "Unrecognized file format." */
#define VELMORA_ERROR_IFD_NOT_FOUND               0x02000003UL /* "IFD not found." */
#define VELMORA_ERROR_BAD_FILE_DATA               0x02000004UL /* "Bad file data." */
#define VELMORA_ERROR_UNSUPPORTED_IMAGE_TYPE      0x02000005UL /* "Unsupported image type." */
#define VELMORA_ERROR_BAD_IMAGE_DATA              0x02000006UL /* "Bad image data." */
#define VELMORA_ERROR_NO_IMAGE                    0x02000007UL /* "No image present." */
#define VELMORA_ERROR_COMMON_DIALOG               0x02000008UL /* "Common dialog error." */
#define VELMORA_ERROR_GENERAL                     0x02000009UL /* "Error." */
#define VELMORA_ERROR_SENDMESSAGE_FAILED          0x0200000AUL /* "SendMessage failed." */
#define VELMORA_ERROR_BAD_BOOKMARK_DATA           0x0200000BUL /* "Bad bookmark data." */
#define VELMORA_ERROR_UNSUPPORTED_BOOKMARK_TYPE   0x0200000CUL /* "Unsupported bookmark type." */
#define VELMORA_ERROR_TOO_MANY_COLOR_LAYERS       0x0200000DUL /* "Too many color layers." */
#define VELMORA_ERROR_PRINTED_SIZE_TOO_LARGE      0x0200000EUL /* "Printed size too large for page." */
#define VELMORA_ERROR_SCALE_UNIT_NOT_FOUND        0x0200000FUL /* "Scale unit not found." */
#define VELMORA_ERROR_IMAGE_MISMATCH              0x02000010UL /* "Image mismatch." */
#define VELMORA_ERROR_NO_DOCUMENT_OPEN            0x02000011UL /* "No document open." */
#define VELMORA_ERROR_RATIONAL_OUT_OF_RANGE       0x02000012UL /* "Rational out of range." */
#define VELMORA_ERROR_INVALID_IMAGE_TYPE          0x02000013UL /* "Invalid image type." */
#define VELMORA_ERROR_NO_PHYSICAL_RESOLUTION      0x02000014UL /* "No physical resolution information." */
#define VELMORA_ERROR_NO_DEFAULT_PRINTER          0x02000015UL /* "There is no default printer." */
#define VELMORA_ERROR_NO_PHYSICAL_SCALE           0x02000016UL /* "No physical scale or resolution information." */
#define VELMORA_ERROR_INVALID_RESOLUTION          0x02000017UL /* "Invalid resolution." */
#define VELMORA_ERROR_INVALID_SCALE               0x02000018UL /* "Invalid scale or resolution." */
#define VELMORA_ERROR_FUNCTION_DISABLED           0x02000019UL /* "The function has been disabled." */
#define VELMORA_ERROR_BOOKMARK_PARENT_INVALID     0x0200001AUL /* "The bookmark parent is invalid." */
#define VELMORA_ERROR_UNSUPPORTED_FILE_TYPE       0x0200001BUL /* "Unsupported file type." */
#define VELMORA_ERROR_PRINTER_DRIVER_TOO_OLD      0x0200001CUL /* "Printer driver too old." */
#define VELMORA_ERROR_UNSUPPORTED_METAFILE        0x0200001EUL /* "Unsupported metafile picture." */
#define VELMORA_ERROR_HTTP                        0x0200001FUL /* "An HTTP error occurred." */
#define VELMORA_ERROR_INVALID_URL                 0x02000020UL /* "The URL is invalid." */
#define VELMORA_ERROR_ODMA                        0x02000021UL /* "An ODMA error occurred." */
#define VELMORA_ERROR_SCANNER_TWAIN               0x02000022UL /* "A scanner driver error occurred (TWAIN)." */
#define VELMORA_ERROR_SCANNER_MS61                0x02000023UL /* "A scanner driver error occurred (MS61)." */
#define VELMORA_ERROR_THUNKING                    0x02000024UL /* "A thunking error occurred." */
#define VELMORA_ERROR_BAD_ANNOTATION_DATA         0x02000025UL /* "Bad annotation data." */
#define VELMORA_ERROR_UNSUPPORTED_ANNOTATIONS     0x02000026UL /* "Unsupported annotations type." */
#define VELMORA_ERROR_ZEPX                        0x02000027UL /* "An ZEPX error occurred." */
#define VELMORA_ERROR_ENCRYPTION_NOT_AVAILABLE    0x0200002AUL /* "Encryption not available." */
#define VELMORA_ERROR_TYPEREADER                  0x0200002BUL /* "A TypeReader error occurred." */
#define VELMORA_ERROR_THUMBNAIL_TOO_LARGE         0x0200002CUL /* "Thumbnail too large." */
#define VELMORA_ERROR_IMAGE_TOO_LARGE             0x0200002DUL /* "Image too large." */
#define VELMORA_ERROR_HTTP2                       0x0200002EUL /* "An HTTP error occurred." */
#define VELMORA_ERROR_BAD_OCR_TEXT_DATA           0x0200002FUL /* "Bad OCR text data." */
#define VELMORA_ERROR_UNSUPPORTED_OCR_TEXT        0x02000030UL /* "Unsupported OCR text type." */
#define VELMORA_ERROR_OCR                         0x02000031UL /* "An OCR error occurred." */
#define VELMORA_ERROR_OLE_NOT_INITIALIZED         0x02000032UL /* "OleInitialize has not been called." */

/* The library's version number, as the digits of a hexadecimal number
   (8.748). GetVelmoraVersion returns it. */
#define VELMORA_VERSION 0x8748

/* InitVelmoraEx flags. */
#define VELMORA_INIT_HOST_MANAGES_OLE 0x1 /* the library does not call OleInitialize */
#define VELMORA_INIT_NO_SHELL         0x2 /* no shell, common controls or common dialogs */

/* ======================================================================
 * Start-up, version and product
 * ====================================================================== */

/* Sets initialisation flags (VELMORA_INIT_*). Call it before any other
   function: initialisation reads the flags once. Does not initialise.
   Returns 1; 0 with error 87 when flags is 4 or more (nothing changes). */
VELMORA_EXPORT DWORD VELMORA_API InitVelmoraEx(DWORD flags);

/* Undoes initialisation: frees the library's shared objects, unloads the
   language module and the system libraries it loaded. Does nothing when the
   library is not initialised. The next call of another function initialises
   the library again. Must not run while other threads call the library. */
VELMORA_EXPORT void VELMORA_API TerminateVelmoraDLL(void);

/* Writes the version text ("<product> 8.748 (Unicode)") into buffer of size
   bytes (only the low 16 bits of size count), truncated to fit with its
   terminator. Returns VELMORA_VERSION (as a 16-bit value); with a NULL buffer
   returns it without writing. 0 when initialisation failed. */
VELMORA_EXPORT SHORT VELMORA_API GetVelmoraVersion(LPSTR buffer, DWORD size);
/* The same with a wide buffer of size characters. */
VELMORA_EXPORT SHORT VELMORA_API GetVelmoraVersionW(LPWSTR buffer, DWORD size);

/* Shows the system-information dialog owned by parent (may be NULL).
   Returns 1; 0 with error 0x02000019 when the library was initialised with
   VELMORA_INIT_NO_SHELL, 1400 when parent is not a window. Without a Win32
   user interface (Linux) it answers 0 with error 120. */
VELMORA_EXPORT DWORD VELMORA_API VelmoraSystemInfo(HWND parent);

/* Sets the product name the library uses in its messages in place of its
   own ("Velmora"); NULL restores its own. The version text keeps the
   library's own name. Returns 1; 0 with error 998 for an unreadable name,
   or the conversion's error. */
VELMORA_EXPORT DWORD VELMORA_API SetVelmoraProductName(LPCSTR name);
VELMORA_EXPORT DWORD VELMORA_API SetVelmoraProductNameW(LPCWSTR name);

/* Stores value at target, for host languages without pointers. Returns
   value; when target cannot be written (NULL), returns a non-zero value and
   writes nothing. Does not initialise the library. */
VELMORA_EXPORT LONG VELMORA_API SetVelmoraPointer(DWORD *target, DWORD value);

/* ======================================================================
 * Errors
 * ====================================================================== */

/* Writes the message of code into buffer of size bytes (low 16 bits of
   size). Code 0 describes code 120. Returns 1; 0 with error 998 for a NULL
   buffer, or with the conversion's error (and an empty buffer) when the
   whole message does not fit. Does not change the last error on success. */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraErrorMessage(DWORD code, LPSTR buffer, DWORD size);
/* The same into a wide buffer of size characters; a message that does not
   fit is truncated to size - 1 characters. */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraErrorMessageW(DWORD code, LPWSTR buffer, WORD size);
/* The code of the last error the library reported (process-wide). 0 when
   initialisation failed. */
VELMORA_EXPORT DWORD VELMORA_API GetLastVelmoraErrorCode(void);
/* Sets the library's last error to code with no message, without changing
   the thread's system error. Returns code (0 when initialisation failed). */
VELMORA_EXPORT DWORD VELMORA_API SetLastVelmoraError(DWORD code);

/* Debug logging is not part of this edition; these check their arguments
   only. EnableVelmoraDebug: 1, or 0 with error 87 for flag bits above bit 4. */
VELMORA_EXPORT BOOL VELMORA_API EnableVelmoraDebug(LONG flags, DWORD reserved);
/* 1, or 0 with error 998 for a NULL path. */
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraDebugLogFile(LPCSTR path);
typedef void (VELMORA_CALLBACK *VelmoraDebugLogProc)(UINT_PTR context, LPCSTR text);
/* 1; 0 with error 87 when flags is not 0 or 1, 998 when procedure is not
   code. A NULL procedure is accepted. */
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraDebugLogProc(LONG flags, VelmoraDebugLogProc procedure, UINT_PTR context);

/* ======================================================================
 * Language and settings
 * ====================================================================== */

/* Selects the language of the library's texts (a Windows language id; 0 for
   the user's default). Before the first other call it becomes the language
   of initialisation. Languages other than US English (1033) need the
   language module "vlmr<id as 4 hex digits>.lang" (on Windows a resource
   library) beside the library. Returns 1; 0 with error 2 when the module is
   missing, with its error when it is unusable; the texts then stay as they
   were (US English at start-up). */
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraLanguage(DWORD language);
/* Checks the module of a language and, when showMessages is non-zero, shows
   each problem found (on Linux on standard error) or that the language is
   fine. Returns 1 when the module is usable; 0 with error 87 for language 0,
   2 when the module is missing, 13 when it is of another version or its texts
   differ from the library's in their format specifications or lists. */
VELMORA_EXPORT BOOL VELMORA_API CheckVelmoraLanguage(DWORD language, DWORD showMessages);

/* Names the defaults file: a text file whose "[Defaults]" section holds
   lines "HKCU\<section>\<value>=<default>". A path starting with ".\" (or
   "./") is taken relative to the library's directory. Returns 1; 0 with error
   998 for a NULL path, or the file system's error when the file does not
   exist (the previous file stays). */
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraIniFile(LPCSTR path);
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraIniFileW(LPCWSTR path);
/* Moves the user's settings from "Software\Solvenir\Velmora\3.0" to root
   (a backslash-separated key path below the user's hive; on Linux below the
   user's configuration directory, a leading "Software" dropped). A trailing
   backslash is ignored; an empty root restores the default. Returns 1; 0 with
   error 998 for NULL, 87 for a root that starts with a backslash or has two
   in a row. Settings read during initialisation see the root only when it
   was set before the first other call. */
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraWindowPrefsRoot(LPCSTR root);
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraWindowPrefsRootW(LPCWSTR root);

/* ======================================================================
 * Component-server entry points. No class is served: DllGetClassObject
 * sets *ppv to NULL and returns CLASS_E_CLASSNOTAVAILABLE; DllCanUnloadNow
 * returns S_OK when no object is alive; DllRegisterServer and
 * DllUnregisterServer initialise the library and return S_OK, or the
 * thread's last error when initialisation failed. They write nothing.
 * (On Windows they are declared by <objbase.h> and <olectl.h>.)
 * ====================================================================== */
#if !defined(_WIN32)
VELMORA_EXPORT HRESULT VELMORA_API DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID *ppv);
VELMORA_EXPORT HRESULT VELMORA_API DllCanUnloadNow(void);
VELMORA_EXPORT HRESULT VELMORA_API DllRegisterServer(void);
VELMORA_EXPORT HRESULT VELMORA_API DllUnregisterServer(void);
#endif


/* ======================================================================
 * Progress callbacks
 * ====================================================================== */

/*
 * The progress callback that every "...Progress" function and every record
 * with a callback field takes. The library calls it from the thread that
 * called the function, at most once per 50 milliseconds of a long loop, with
 * the percentage done (0 to 100) and the host's own value unchanged. Return
 * non-zero to go on; return 0 to cancel: the function then frees what it had
 * built and fails with error 1223 (ERROR_CANCELLED). A NULL callback means no
 * progress reports.
 */
typedef BOOL (VELMORA_CALLBACK *VelmoraProgressProc)(DWORD percent, UINT_PTR user);

/* ======================================================================
 * Shared values: units, colour types, document types
 * ====================================================================== */

/* Units of resolutions and scales. Resolutions use 1 to 3; scales also the
   physical units 4 to 17. */
#define VELMORA_UNIT_NONE        1   /* no absolute unit */
#define VELMORA_UNIT_INCH        2
#define VELMORA_UNIT_CENTIMETER  3
#define VELMORA_UNIT_YARD        4
#define VELMORA_UNIT_METER       5
#define VELMORA_UNIT_MILE        6
#define VELMORA_UNIT_KILOMETER   7
#define VELMORA_UNIT_MILLIMETER  8
#define VELMORA_UNIT_FOOT        9
#define VELMORA_UNIT_CHAIN       10
#define VELMORA_UNIT_ROD         11
#define VELMORA_UNIT_FURLONG     12
#define VELMORA_UNIT_LINK        13
#define VELMORA_UNIT_MICROMETER  14
#define VELMORA_UNIT_DECIMETER   15
#define VELMORA_UNIT_DEKAMETER   16
#define VELMORA_UNIT_POINT       17

/* Colour types, as returned by GetVelmoraDIBColorType and
   GetVelmoraTIFFColorType and taken as targets by ChangeVelmoraDIBColor. */
#define VELMORA_COLOR_BW           0   /* 1 bit, black and white */
#define VELMORA_COLOR_PALETTE2     1   /* 1 bit, two colours */
#define VELMORA_COLOR_GRAY16       2   /* 4 bits, 16 greys */
#define VELMORA_COLOR_PALETTE16    3   /* 4 bits, 16 colours */
#define VELMORA_COLOR_GRAY256      4   /* 8 bits, 256 greys */
#define VELMORA_COLOR_PALETTE256   5   /* 8 bits, 256 colours */
#define VELMORA_COLOR_RGB          6   /* 24 bits */
#define VELMORA_COLOR_YCBCR        7   /* TIFF pages only: YCbCr, 3 x 8 bits */
#define VELMORA_COLOR_OTHER        8   /* anything else */
#define VELMORA_COLOR_DITHERED_BW  (-2) /* ChangeVelmoraDIBColor only: dithered 1 bit */

/* Document types, as returned by GetVelmoraDocumentType. Types 3, 7, 10,
   18, 19 and 23 are known ids without support in this edition. */
#define VELMORA_DOCTYPE_BMP           0
#define VELMORA_DOCTYPE_GIF           1
#define VELMORA_DOCTYPE_JPEG          2
#define VELMORA_DOCTYPE_PCX           4
#define VELMORA_DOCTYPE_PNG           5
#define VELMORA_DOCTYPE_TIFF          6
#define VELMORA_DOCTYPE_UNKNOWN       8
#define VELMORA_DOCTYPE_PDF           9
#define VELMORA_DOCTYPE_ICON          11
#define VELMORA_DOCTYPE_CURSOR        12
#define VELMORA_DOCTYPE_CALS          13
#define VELMORA_DOCTYPE_PNM           14  /* portable bitmap, greymap, pixmap */
#define VELMORA_DOCTYPE_WORKING_TIFF  15  /* the library's own working TIFF ("BV") */
#define VELMORA_DOCTYPE_WORKING_PDF   17  /* the library's own working PDF ("BVPDF") */

/* Capability bits returned by GetVelmoraDocumentTypeCaps. */
#define VELMORA_DOCCAPS_READ                 0x0001u
#define VELMORA_DOCCAPS_STORE_ANNOTATIONS    0x0002u
#define VELMORA_DOCCAPS_BURN_IN_ANNOTATIONS  0x0004u

/* ======================================================================
 * Resolution and scale
 * ====================================================================== */

/*
 * A horizontal and a vertical value as exact fractions, with their unit. For
 * a resolution a value is pixels per unit; for a scale it is pixels per unit
 * of the physical document. The denominator comes first. In an output record
 * a zero in the horizontal half means the value is absent.
 */
typedef struct VelmoraResolutionScale {
    DWORD xDenominator;
    DWORD xNumerator;
    DWORD yDenominator;
    DWORD yNumerator;
    WORD unit;          /* VELMORA_UNIT_... */
    WORD reserved;
} VelmoraResolutionScale;

/* ======================================================================
 * TIFF files
 * ====================================================================== */

/* Access bits of OpenVelmoraTIFF (the Windows GENERIC_READ and
   GENERIC_WRITE values). */
#define VELMORA_TIFF_READ   0x80000000u
#define VELMORA_TIFF_WRITE  0x40000000u

/* Compression codes returned by GetVelmoraTIFFCompression. */
#define VELMORA_COMPRESSION_NONE         0   /* TIFF 1 */
#define VELMORA_COMPRESSION_PACKBITS     1   /* TIFF 32773 */
#define VELMORA_COMPRESSION_GROUP4       2   /* TIFF 4, CCITT T.6 */
#define VELMORA_COMPRESSION_OTHER        3   /* anything not listed here */
#define VELMORA_COMPRESSION_GROUP3       4   /* TIFF 3, CCITT T.4 */
#define VELMORA_COMPRESSION_LZW          5   /* TIFF 5 */
#define VELMORA_COMPRESSION_OJPEG        6   /* TIFF 6, old-style JPEG */
#define VELMORA_COMPRESSION_JPEG         7   /* TIFF 7 */
#define VELMORA_COMPRESSION_CCITT_RLEW   8   /* TIFF 32771, word-aligned rows */
#define VELMORA_COMPRESSION_THUNDERSCAN  9   /* TIFF 32809 */
#define VELMORA_COMPRESSION_CCITT_RLE    10  /* TIFF 2, modified Huffman */
/* Two choices for writers only (VelmoraAppendTIFF.compression). */
#define VELMORA_COMPRESSION_GROUP3_2D    11  /* TIFF 3 with two-dimensional rows (T4Options bit 0) */
#define VELMORA_COMPRESSION_DEFLATE      12  /* TIFF 8, zlib streams (read as VELMORA_COMPRESSION_OTHER) */
#define VELMORA_COMPRESSION_DEFAULT      0xFFFF /* keep a copied page's coding; a DIB's colour type's default */

/*
 * Opens a TIFF file, or creates a TIFF in memory when name is NULL, and
 * returns its handle (free it with CloseVelmoraTIFF or, for a memory TIFF,
 * CloseMemoryVelmoraTIFF). access is VELMORA_TIFF_READ, VELMORA_TIFF_WRITE or
 * both; any other bit, or 0, is error 87. With write access the file is
 * opened read/write and others may read it meanwhile: create = 0 opens an
 * existing file to append pages to it; create != 0 creates the file, or
 * empties an existing one to a fresh TIFF header; write access without read
 * always creates the file anew. A memory TIFF is always read/write.
 * Returns NULL on failure: 998 for an unreadable name, the file's own error
 * (for example 2), 0x02000002 when the file is not a TIFF.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API OpenVelmoraTIFF(LPCSTR name, DWORD access, DWORD create);

/* OpenVelmoraTIFF with a wide file name. */
VELMORA_EXPORT HGLOBAL VELMORA_API OpenVelmoraTIFFW(LPCWSTR name, DWORD access, DWORD create);

/*
 * Finishes and closes a TIFF and frees its handle. The data of a memory TIFF
 * is discarded (use CloseMemoryVelmoraTIFF to keep it). Returns 1, or 0 with
 * error 6 for an invalid handle or the file's error when closing failed.
 */
VELMORA_EXPORT BOOL VELMORA_API CloseVelmoraTIFF(HGLOBAL tiff);

/*
 * Closes a memory TIFF and hands over its bytes: *memory receives a movable
 * block of exactly *size bytes holding the whole TIFF file (NULL and 0 when
 * no page was written). The caller owns the block and frees it with
 * GlobalFree. Both out pointers are required (998). Returns 1 or 0.
 */
VELMORA_EXPORT BOOL VELMORA_API CloseMemoryVelmoraTIFF(HGLOBAL tiff, HGLOBAL *memory, DWORD *size);

/*
 * Reserves room in a memory TIFF so that pages of a known total size are
 * written without repeated reallocation: the data block grows to capacity
 * bytes when it is smaller. reserve is stored with the TIFF unless it is -2.
 * Returns the current data size, or -1: error 87 when the TIFF is not a
 * memory TIFF, 6 for an invalid handle.
 */
VELMORA_EXPORT LONG VELMORA_API SetMemoryVelmoraTIFFSize(HGLOBAL tiff, LONG capacity, LONG reserve);

/*
 * Page queries. Pages are numbered from 1; page 0 is error 87. A page that
 * does not exist is error 0x02000003 ("IFD not found."), or 0x02000004 when
 * the file has no page at all; a tag of the wrong type or count is
 * 0x02000006. Out pointers are required (998).
 */

/* Writes the page's width and length in pixels. Returns 1 or 0. */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFSize(HGLOBAL tiff, DWORD page, DWORD *width, DWORD *length);

/* Sets *tiled to 0xFFFFFFFF when the page is stored in tiles, else 0.
   Returns 1 or 0. */
VELMORA_EXPORT BOOL VELMORA_API IsVelmoraTIFFTiled(HGLOBAL tiff, DWORD page, DWORD *tiled);

/* Writes the page's compression as a VELMORA_COMPRESSION_... code
   (VELMORA_COMPRESSION_OTHER when the call fails after the checks).
   Returns 1 or 0. */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFCompression(HGLOBAL tiff, DWORD page, WORD *code);

/* Returns the page's PhotometricInterpretation (0 to 6, or 8), -2 when the
   tag is absent or holds another value, -1 on error. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraTIFFPhotoInt(HGLOBAL tiff, DWORD page);

/* Returns the page's colour type (VELMORA_COLOR_BW ... VELMORA_COLOR_OTHER),
   judged from its photometric interpretation, samples and colour map; -1 on
   error. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraTIFFColorType(HGLOBAL tiff, DWORD page);

/*
 * Fills *resolution from the page's XResolution and YResolution; an absent
 * value gets a zero denominator. The unit is the page's ResolutionUnit when
 * either value is present, else VELMORA_UNIT_NONE. Returns 1 or 0.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFResolution(HGLOBAL tiff, DWORD page, VelmoraResolutionScale *resolution);

/*
 * Fills *scale with the page's physical scale: the library's scale tags when
 * the page has them (with their own unit), else its resolution. Returns 1
 * or 0.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFScale(HGLOBAL tiff, DWORD page, VelmoraResolutionScale *scale);

/* The page's DateTime, as GetVelmoraTIFFDateTime writes it. The field order
   is fixed. */
typedef struct VelmoraTIFFDateTime {
    BYTE day;           /* 1 to 31 */
    BYTE hour;
    BYTE minute;
    BYTE month;         /* 1 to 12 */
    BYTE second;
    BYTE reserved;
    WORD year;
} VelmoraTIFFDateTime;

/*
 * Reads the page's DateTime tag ("YYYY:MM:DD HH:MM:SS"). When the text parses,
 * *dateTime receives it and *text stays NULL. When it does not, *dateTime is
 * zeroed and *text receives a movable block holding the raw text, which the
 * caller frees with GlobalFree. *text is set to NULL first, even when the
 * call fails. Returns 1, or 0: error 1168 (ERROR_NOT_FOUND) when the page has
 * no DateTime.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFDateTime(HGLOBAL tiff, DWORD page, VelmoraTIFFDateTime *dateTime, HGLOBAL *text);

/* Returns the number of bytes the page occupies in the file (its directory,
   the directory's out-of-line values and its image data), or -1. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraTIFFIFDSize(HGLOBAL tiff, DWORD page);

/*
 * Collects the page's annotations into one annotation stream: *annotations
 * receives a movable block that the caller frees with GlobalFree, *size its
 * byte count; a page without annotations gives 1 with NULL and 0. The
 * sources, in this order: the library's own block (tag 33938), the Wang /
 * Eastman imaging block (tag 32932) and the sheet-chunk block (tag 33581,
 * whose coordinates are converted with the page's resolution), both converted
 * into the library's format, then, for the TIFF of a document opened with a
 * companion ".art" file, the companion's annotations of the page as the
 * document's companion mode says. A page whose own block is its only source
 * gets that block as stored. A companion is an annotation store of this
 * layout, little-endian: u32 total size; "VelmoraArt" in a 20-byte
 * zero-padded field; u32 version 1; u32 page count n; then n pairs of u32
 * offset and u32 size of each page's annotation stream within the store (0
 * and 0 for a page without). Returns 1 or 0: also
 * VELMORA_ERROR_INVALID_HANDLE, VELMORA_ERROR_INVALID_PARAMETER for page 0,
 * VELMORA_ERROR_NO_ACCESS for a NULL out-pointer, the reader's errors,
 * VELMORA_ERROR_BAD_ANNOTATION_DATA for a damaged own block, and
 * VELMORA_ERROR_IFD_NOT_FOUND for a page beyond the companion's pages.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFAnnotations(HGLOBAL tiff, DWORD page, HGLOBAL *annotations, DWORD *size);

/* Annotation sources of a page (GetVelmoraTIFFAnnotationsEx), in the order
   their annotations follow each other in the collected stream. */
#define VELMORA_ANNOTATION_SOURCE_OWN 0x1u          /* the library's own block (tag 33938) */
#define VELMORA_ANNOTATION_SOURCE_WANG 0x2u         /* the Wang / Eastman imaging block (tag 32932) */
#define VELMORA_ANNOTATION_SOURCE_SHEET_CHUNKS 0x4u /* the sheet-chunk block (tag 33581) */
#define VELMORA_ANNOTATION_SOURCE_COMPANION 0x8u    /* the document's companion ".art" file */
#define VELMORA_ANNOTATION_SOURCES_ALL 0xFu

/*
 * GetVelmoraTIFFAnnotationsEx — GetVelmoraTIFFAnnotations limited to the
 * sources whose VELMORA_ANNOTATION_SOURCE_... bits are set in `sources`.
 * Which sources a page uses is decided first, as GetVelmoraTIFFAnnotations
 * decides it (a companion's mode still says whether the page's own blocks
 * count); the bits then only leave sources out. With every bit set the
 * result is that of GetVelmoraTIFFAnnotations; a page whose own block is
 * the only source asked for and used gets that block as stored. Calling it
 * once per source gives the page's annotations source by source, in the
 * order of the collected stream. A page with no annotations in the sources
 * asked for gives 1 with NULL and 0. Returns 1 or 0: the errors of
 * GetVelmoraTIFFAnnotations, and VELMORA_ERROR_INVALID_PARAMETER for
 * sources 0 or with any bit beyond VELMORA_ANNOTATION_SOURCES_ALL.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFAnnotationsEx(HGLOBAL tiff, DWORD page, DWORD sources,
                                                            HGLOBAL *annotations, DWORD *size);

/*
 * Reading a page's OCR text is not available in this edition: after
 * checking the arguments and setting *text to NULL the call returns 0 with
 * error 120.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFOCRText(HGLOBAL tiff, DWORD page, HGLOBAL *text, DWORD *size);

/* Recognising the text of a TIFF is not available in this edition: always
   returns 0 with error 120. */
VELMORA_EXPORT BOOL VELMORA_API OCRVelmoraTIFF(UINT_PTR value1, UINT_PTR value2, UINT_PTR value3, UINT_PTR value4);

/* ----------------------------------------------------------------------
 * Reading TIFF pages as DIBs
 * ---------------------------------------------------------------------- */

/* Flags of VelmoraReadTIFFDIB. */
#define VELMORA_READ_TIFF_FAST              0x0001u  /* may trade quality for speed; in this edition
                                                        pages decode exactly as without it */
#define VELMORA_READ_TIFF_BURN_ANNOTATIONS  0x0002u  /* draw the page's own annotation block into
                                                        the DIB (needs the larger record) */

/* The parameters of ReadVelmoraOpenTIFFDIBEx. */
typedef struct VelmoraReadTIFFDIB {
    WORD size;                    /* VELMORA_READ_TIFF_DIB_SIZE_V1 or _V2 */
    WORD reserved;
    HGLOBAL tiff;                 /* the open TIFF */
    DWORD page;                   /* from 1 */
    VelmoraProgressProc progress; /* or NULL */
    UINT_PTR progressUser;
    DWORD flags;                  /* VELMORA_READ_TIFF_... */
    /* _V2 */
    DWORD burnInOptions;          /* below 16; with VELMORA_READ_TIFF_BURN_ANNOTATIONS */
} VelmoraReadTIFFDIB;

#define VELMORA_READ_TIFF_DIB_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraReadTIFFDIB, flags)
#define VELMORA_READ_TIFF_DIB_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraReadTIFFDIB, burnInOptions)

/*
 * Decodes a page of an open TIFF into a new packed DIB that the caller owns
 * (free it with GlobalFree). The DIB's resolution is the page's; a page
 * stored rotated (Orientation 5 to 8, or 3 and 4) comes out turned as it is
 * meant to be seen. With VELMORA_READ_TIFF_BURN_ANNOTATIONS the page's own
 * annotation block (tag 33938) is burned in before the page is turned, as
 * BurnInVelmoraAnnotations does with burnInOptions | VELMORA_BURN_IN_KEEP_IMAGE;
 * a burn-in that fails fails the read, so that a page whose redactions could
 * not be drawn is never handed out.
 * Returns NULL on failure: VELMORA_ERROR_NO_ACCESS (998) for an unreadable
 * record or a callback that is not code; VELMORA_ERROR_INVALID_PARAMETER (87)
 * for a wrong size, page 0, unknown flags, burning in with the short record,
 * or burn-in options of 16 or more; VELMORA_ERROR_INVALID_HANDLE (6) for an
 * invalid TIFF; the annotation errors of burning in;
 * VELMORA_ERROR_IFD_NOT_FOUND for a page that does not exist;
 * VELMORA_ERROR_UNSUPPORTED_IMAGE_TYPE for a page the library cannot decode,
 * VELMORA_ERROR_UNKNOWN_IMAGE_TYPE for an unknown compression; VELMORA_ERROR_CANCELLED (1223) when the callback
 * cancelled; VELMORA_ERROR_NOT_ENOUGH_MEMORY (8) when a page is too large for
 * the memory there is.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraOpenTIFFDIBEx(const VelmoraReadTIFFDIB *read);

/* ReadVelmoraOpenTIFFDIBEx with the given page, callback and value, flags 0. */
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraOpenTIFFDIBProgress(HGLOBAL tiff, DWORD page, VelmoraProgressProc progress, UINT_PTR user);

/* ReadVelmoraOpenTIFFDIBProgress without a callback. */
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraOpenTIFFDIB(HGLOBAL tiff, DWORD page);

/* Opens a TIFF file read-only, reads one page as ReadVelmoraOpenTIFFDIB
   does, and closes the file. Returns the new DIB or NULL. */
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraTIFFDIB(LPCSTR name, DWORD page);

/* ----------------------------------------------------------------------
 * Writing TIFF pages
 * ---------------------------------------------------------------------- */

/* Flags of VelmoraAppendTIFF. Bits above bit 24 are invalid. Bits 1, 3, 6,
   8, 11, 21 and 24 select the fields palette and pageValue; a writer that
   does not support them refuses them with reason VELMORA_APPEND_REASON_FLAGS. */
#define VELMORA_APPEND_ANNOTATIONS         0x00000001u /* store the annotations block */
#define VELMORA_APPEND_ANNOTATION_OPTIONS  0x00000004u /* annotationOptions holds a value below 8 */
#define VELMORA_APPEND_RESOLUTION          0x00000010u /* write the resolution record */
#define VELMORA_APPEND_SCALE               0x00000020u /* write the scale record */
#define VELMORA_APPEND_JPEG_QUALITY        0x00000080u /* extraData points to a WORD: the JPEG
                                                          quality, 1 to 100 (records of _V2 and up) */
#define VELMORA_APPEND_PROGRESS            0x00000200u /* call the progress callback */
#define VELMORA_APPEND_REASON              0x00000400u /* report a refused field in reason */
#define VELMORA_APPEND_OCR_TEXT            0x00001000u /* store the OCR text block */
#define VELMORA_APPEND_TEXT(i)             (0x00002000u << (i)) /* use texts[i], i = 0 to 7 */
#define VELMORA_APPEND_WIDE_NAME           0x00400000u /* sourceName is a wide string */
#define VELMORA_APPEND_DIB_POINTER         0x00800000u /* dib points to a packed DIB */
#define VELMORA_APPEND_VALID_FLAGS         0x01FFFFFFu

/* Reasons written to VelmoraAppendTIFF.reason when VELMORA_APPEND_REASON is
   set and the record is refused with error 87. */
#define VELMORA_APPEND_REASON_SOURCES             1  /* not exactly one source */
#define VELMORA_APPEND_REASON_FLAGS               2  /* unknown or unsupported flag bits */
#define VELMORA_APPEND_REASON_SOURCE_PAGE         3  /* a source TIFF without a page */
#define VELMORA_APPEND_REASON_ANNOTATION_OPTIONS  5  /* annotationOptions is 8 or more */
#define VELMORA_APPEND_REASON_COMPRESSION         6  /* the compression cannot be written */
#define VELMORA_APPEND_REASON_EXTRA_DATA          7  /* an unreadable or out-of-range JPEG quality */
#define VELMORA_APPEND_REASON_PALETTE             8
#define VELMORA_APPEND_REASON_MASK                9
#define VELMORA_APPEND_REASON_RESOLUTION_VALUE    11 /* a zero value */
#define VELMORA_APPEND_REASON_RESOLUTION_UNIT     12 /* a unit other than 1 to 3 */
#define VELMORA_APPEND_REASON_SCALE_VALUE         13 /* a zero value */
#define VELMORA_APPEND_REASON_SCALE_UNIT          14 /* a unit other than 1 to 17 */
#define VELMORA_APPEND_REASON_OCR_TEXT            15 /* an invalid OCR text handle */
#define VELMORA_APPEND_REASON_DIB                 16 /* an invalid DIB */
#define VELMORA_APPEND_REASON_TEXT                17 /* an unreadable text */
#define VELMORA_APPEND_REASON_ANNOTATIONS         18 /* an invalid annotations handle */

/*
 * The parameters of AppendVelmoraOpenTIFFEx: one page to append, taken from
 * exactly one source (a file, a page of an open TIFF, or a DIB), and what to
 * store with it. The record comes in seven sizes; later fields count only in
 * the larger ones.
 */
typedef struct VelmoraAppendTIFF {
    WORD size;                    /* VELMORA_APPEND_TIFF_SIZE_V1 ... _V7 */
    WORD reserved1;
    const void *sourceName;       /* source file (narrow, or wide with VELMORA_APPEND_WIDE_NAME), or NULL */
    HGLOBAL sourceTIFF;           /* source TIFF, or NULL */
    DWORD sourcePage;             /* the page of sourceTIFF, from 1 */
    DWORD flags;                  /* VELMORA_APPEND_... */
    HGLOBAL annotations;          /* annotation stream (VELMORA_APPEND_ANNOTATIONS) */
    DWORD annotationOptions;
    const VelmoraResolutionScale *resolution; /* VELMORA_APPEND_RESOLUTION */
    DWORD reserved2[5];
    const VelmoraResolutionScale *scale;      /* VELMORA_APPEND_SCALE */
    WORD compression;             /* the compression to write the page with */
    WORD reserved3;
    const void *dib;              /* source DIB: a packed-DIB handle, or with
                                     VELMORA_APPEND_DIB_POINTER a pointer to one; or NULL */
    /* _V2 */
    const void *extraData;        /* VELMORA_APPEND_JPEG_QUALITY: a WORD, 1 to 100 */
    /* _V3 */
    HGLOBAL palette;              /* flag bits 6 and 8: palette or mask */
    /* _V4 */
    VelmoraProgressProc progress; /* VELMORA_APPEND_PROGRESS */
    UINT_PTR progressUser;
    WORD reason;                  /* out: VELMORA_APPEND_REASON_... (VELMORA_APPEND_REASON) */
    WORD reserved4;
    /* _V5 */
    HGLOBAL ocrText;              /* OCR text block (VELMORA_APPEND_OCR_TEXT) */
    DWORD reserved5;
    /* _V6 */
    const void *texts[8];         /* descriptive tag texts, texts[i] with VELMORA_APPEND_TEXT(i) */
    /* _V7 */
    WORD pageValue;               /* 1 to 8, with flag bit 24 */
    WORD reserved6;
} VelmoraAppendTIFF;

#define VELMORA_APPEND_TIFF_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraAppendTIFF, dib)
#define VELMORA_APPEND_TIFF_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraAppendTIFF, extraData)
#define VELMORA_APPEND_TIFF_SIZE_V3 VELMORA_SIZE_THROUGH(VelmoraAppendTIFF, palette)
#define VELMORA_APPEND_TIFF_SIZE_V4 VELMORA_SIZE_THROUGH(VelmoraAppendTIFF, reserved4)
#define VELMORA_APPEND_TIFF_SIZE_V5 VELMORA_SIZE_THROUGH(VelmoraAppendTIFF, reserved5)
#define VELMORA_APPEND_TIFF_SIZE_V6 VELMORA_SIZE_THROUGH(VelmoraAppendTIFF, texts)
#define VELMORA_APPEND_TIFF_SIZE_V7 VELMORA_SIZE_THROUGH(VelmoraAppendTIFF, reserved6)

/*
 * Appends one page to the end of an open TIFF, built from the record's
 * source. The new page is linked into the file only once it is completely
 * written; a failed append leaves the file exactly as it was, and a process
 * killed during an append leaves every older page readable. New files are
 * little-endian classic TIFF; pages appended to a big-endian file are written
 * big-endian.
 *
 * Sources: page sourcePage of the open TIFF sourceTIFF; page sourcePage (0:
 * page 1) of the TIFF file sourceName; or the DIB dib (1, 4, 8, 16, 24 or 32
 * bits, rows uncompressed or, at 16 and 32 bits, in bit fields).
 *
 * compression is one of the VELMORA_COMPRESSION_... codes NONE, PACKBITS,
 * LZW, DEFLATE (every page), GROUP4, GROUP3, GROUP3_2D, CCITT_RLE (bi-level pages:
 * 1-bit DIBs with a grey table), JPEG (grey and colour pages; baseline,
 * quality 75 unless VELMORA_APPEND_JPEG_QUALITY gives another, colour as
 * YCbCr with 2 x 2 chroma, tables in JPEGTables), or
 * VELMORA_COMPRESSION_DEFAULT: a TIFF page keeps its coding, a DIB gets Group
 * 4 when bi-level and LZW otherwise. A TIFF page whose coding is kept has its
 * strips or tiles copied byte for byte with its image tags; otherwise it is
 * decoded, turned upright and coded again, keeping the tags that describe
 * the page (texts, resolution, position, page number, subfile type and the
 * library's private blocks). Tags of unknown meaning and sub-directories are
 * not copied. DIB pages are grey (BlackIsZero or WhiteIsZero after their
 * table), bi-level WhiteIsZero, palette (ColorMap) or RGB, in strips of about
 * 64 KB (1 MB for the fax codings), with the DIB's resolution.
 *
 * Flags taken: VELMORA_APPEND_ANNOTATIONS (the block's bytes are stored in
 * tag 33938), _ANNOTATION_OPTIONS, _RESOLUTION, _SCALE (tags 33940 to 33942),
 * _JPEG_QUALITY, _PROGRESS, _REASON, _OCR_TEXT (tag 33944), _TEXT(0) to _TEXT(7)
 * (DocumentName, ImageDescription, Make, Model, PageName, Software, Artist,
 * HostComputer, replacing a copied page's), _WIDE_NAME, _DIB_POINTER; the
 * others are refused with reason VELMORA_APPEND_REASON_FLAGS, as are flags
 * whose fields lie beyond the record's size.
 *
 * Returns 1 or 0: VELMORA_ERROR_INVALID_HANDLE for an invalid TIFF
 * (destination or source); VELMORA_ERROR_NO_ACCESS for an unreadable record;
 * VELMORA_ERROR_INVALID_PARAMETER for a size that is not one of
 * VELMORA_APPEND_TIFF_SIZE_V*, or a refused field (its reason in reason with
 * VELMORA_APPEND_REASON; reason is set to 0 first);
 * VELMORA_ERROR_UNSUPPORTED_FILE_TYPE when the destination is a BigTIFF; the
 * source's own errors (VELMORA_ERROR_IFD_NOT_FOUND for a missing source
 * page, VELMORA_ERROR_BAD_IMAGE_DATA for a strip outside the source file);
 * VELMORA_ERROR_CANCELLED when the progress callback cancelled; the
 * system's error when writing fails. The file is unchanged after any of
 * them.
 */
VELMORA_EXPORT BOOL VELMORA_API AppendVelmoraOpenTIFFEx(HGLOBAL tiff, VelmoraAppendTIFF *append);

/* Appends every page of the TIFF file source, in order and each keeping its
   coding, to an open TIFF: pages 1, 2, ... until the source has no more.
   Each page is appended all or nothing; on a failure the pages appended
   before it stay. Returns 1 or 0 (998 for an unreadable name; the source's
   and the writer's errors as AppendVelmoraOpenTIFFEx gives them). */
VELMORA_EXPORT BOOL VELMORA_API AppendVelmoraOpenTIFF(HGLOBAL tiff, LPCSTR source);

/*
 * Appends every page of the TIFF file source to the TIFF file destination,
 * each keeping its coding. A missing destination is created (and removed
 * again when the append fails). An existing one is rewritten with its own
 * pages and then the source's into a temporary file ("vlm...") in its
 * directory, which replaces it only when everything succeeded: on failure
 * the destination is unchanged and no temporary file remains. Returns 1 or
 * 0 (998 for an unreadable name).
 */
VELMORA_EXPORT BOOL VELMORA_API AppendVelmoraTIFF(LPCSTR destination, LPCSTR source);

/*
 * Adds a thumbnail of page 1 as the last image of the TIFF file name: page 1
 * (upright) is scaled down to fit maxWidth x maxHeight (1 to 512 each, the
 * low 16 bits), keeping its aspect ratio (a page that fits keeps its size),
 * and appended as a reduced-resolution image (NewSubfileType 1) whose
 * resolution is the page's scaled exactly with its pixels, so that its
 * physical size stays. option 0 averages the pixels: grey and black and
 * white pages give 8-bit grey thumbnails (LZW), colour pages 24-bit ones;
 * option 1 picks pixels and keeps the page's colour type (a black and white
 * page gives a Group 4 thumbnail). The file is rewritten through a temporary
 * file and left unchanged on failure. Returns 1 or 0: 87 for sizes or an
 * option out of range, 998 for an unreadable name, the reader's and
 * writer's errors.
 */
VELMORA_EXPORT BOOL VELMORA_API AppendVelmoraThumbnail(DWORD maxWidth, DWORD maxHeight, DWORD option, LPCSTR name);

/* ----------------------------------------------------------------------
 * Exact resolution and scale arithmetic
 * ---------------------------------------------------------------------- */

/*
 * Converts a complete resolution or scale record (all four values non-zero)
 * to another unit, exactly: each value becomes pixels per newUnit, reduced to
 * lowest terms. A record in VELMORA_UNIT_NONE converts only to itself; a
 * conversion to VELMORA_UNIT_NONE only changes the unit. Returns 1 or 0: 998
 * for a NULL record, 87 for an incomplete record or an invalid unit,
 * 0x02000012 ("Rational out of range.") when a value does not fit.
 */
VELMORA_EXPORT BOOL VELMORA_API ConvertVelmoraTIFFResolutionScale(VelmoraResolutionScale *value, LONG newUnit);

/* Multiplies both values of a complete record by numerator / denominator,
   exactly. Returns 1 or 0: 87 for a zero anywhere, 0x02000012 on overflow. */
VELMORA_EXPORT BOOL VELMORA_API MultiplyVelmoraTIFFResolutionScale(VelmoraResolutionScale *value, DWORD numerator, DWORD denominator);

/* Fills a record with the two values, each reduced to lowest terms, and the
   unit (1 to 17). Returns 1 or 0: 87 for a zero value or an invalid unit. */
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraTIFFResolutionScale(VelmoraResolutionScale *value, DWORD xNumerator, DWORD xDenominator, DWORD yNumerator, DWORD yDenominator, DWORD unit);

/*
 * Converts a non-negative number to a fraction with a power-of-ten
 * denominator (at most nine significant digits), reduced to lowest terms.
 * Returns 1 or 0: 87 for a negative value, 998 for a NULL out pointer,
 * 0x02000012 when the integer part exceeds 4294967295.
 */
VELMORA_EXPORT BOOL VELMORA_API VelmoraDoubleToURational(double value, DWORD *numerator, DWORD *denominator);

/* ----------------------------------------------------------------------
 * Document types
 * ---------------------------------------------------------------------- */

/* Returns the type of a file judged by its first bytes (VELMORA_DOCTYPE_...,
   VELMORA_DOCTYPE_UNKNOWN when nothing matches), or -1 with the file's
   error when it cannot be read. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraDocumentType(LPCSTR name);

/* GetVelmoraDocumentType with a wide file name. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraDocumentTypeW(LPCWSTR name);

/* Returns the type implied by the extension of name (case does not matter),
   VELMORA_DOCTYPE_UNKNOWN for an unknown extension, or -1: 87 when the name
   has no ".". */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraDocumentTypeFromExtension(LPCSTR name);

/*
 * Returns the VELMORA_DOCCAPS_... bits of a document type: 1 for BMP, GIF,
 * JPEG, PCX, PNG, PDF and CALS, 7 for TIFF, 0 for the known types this
 * edition does not support (3, 7, 10, 18, 19, 23). Every other value,
 * including the recognised types 8, 11, 12, 14, 15 and 17, gives -1 with
 * error 87.
 */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraDocumentTypeCaps(LONG type);

/* ----------------------------------------------------------------------
 * TIFF documents
 * ---------------------------------------------------------------------- */

/*
 * A TIFF document reads every image of a TIFF once and groups them into
 * pages: full-resolution images, reduced-resolution images (thumbnails) and
 * masks, numbered by their PageNumber tags when those are consistent, else
 * in file order. A companion annotation file (the file's name with the
 * extension ".art") is loaded with it when present.
 */

/* Flags of VelmoraOpenTIFFDocument. */
#define VELMORA_TIFF_DOCUMENT_WIDE_NAME          0x0001u /* name is a wide string */
#define VELMORA_TIFF_DOCUMENT_COMPANION_REPLACE  0x0002u /* the ".art" annotations replace the pages' own */
#define VELMORA_TIFF_DOCUMENT_COMPANION_ADD      0x0004u /* the ".art" annotations are added to the pages' own */

/* Flag of OpenVelmoraTIFFDocumentTIFF. */
#define VELMORA_TIFF_DOCUMENT_OWN_TIFF           0x0001  /* the document closes the TIFF */

/* The parameters of OpenVelmoraTIFFDocumentEx. */
typedef struct VelmoraOpenTIFFDocument {
    WORD size;          /* VELMORA_OPEN_TIFF_DOCUMENT_SIZE_V1 */
    WORD flags;         /* VELMORA_TIFF_DOCUMENT_... */
    const void *name;   /* narrow, or wide with VELMORA_TIFF_DOCUMENT_WIDE_NAME */
} VelmoraOpenTIFFDocument;

#define VELMORA_OPEN_TIFF_DOCUMENT_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraOpenTIFFDocument, name)

/*
 * Opens a TIFF file read-only as a document and returns the document
 * handle. Without a companion flag the ".art" annotations are used only for
 * pages that have none of their own. Returns NULL on failure: 998 for an
 * unreadable record or name; 87 for a wrong size, both companion flags, or
 * an unknown flag; the TIFF reader's errors.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API OpenVelmoraTIFFDocumentEx(const VelmoraOpenTIFFDocument *open);

/* OpenVelmoraTIFFDocumentEx with a narrow name and no flags. */
VELMORA_EXPORT HGLOBAL VELMORA_API OpenVelmoraTIFFDocument(LPCSTR name);

/* Builds a document on a TIFF that is already open. With
   VELMORA_TIFF_DOCUMENT_OWN_TIFF the document takes the TIFF over and closes
   it with itself. Returns the document or NULL. */
VELMORA_EXPORT HGLOBAL VELMORA_API OpenVelmoraTIFFDocumentTIFF(HGLOBAL tiff, LONG flags);

/* Closes a document, and its TIFF and file when it owns them. Returns 1,
   or 0 with error 6. */
VELMORA_EXPORT BOOL VELMORA_API CloseVelmoraTIFFDocument(HGLOBAL document);

/* Returns the document's TIFF handle (still owned by the document when it
   opened the file itself), or NULL. */
VELMORA_EXPORT HGLOBAL VELMORA_API GetVelmoraTIFFDocumentTIFF(HGLOBAL document);

/* Returns the number of images (IFDs) in the file, or 0 on error. */
VELMORA_EXPORT DWORD VELMORA_API GetVelmoraTIFFDocumentIFDCount(HGLOBAL document);

/* Returns the number of pages, or -1 on error. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraTIFFDocumentPageCount(HGLOBAL document);

/*
 * Returns -1 (all bits set) when the file's PageNumber tags are present,
 * consistent and without gaps or duplicates, else 0 (also on error). Once
 * the handle is accepted, the library's last error is set to the thread's
 * last error as it was before the call, so that a host can still read an
 * earlier failure through GetLastVelmoraErrorCode.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFDocumentPageNumbersOK(HGLOBAL document);

/* One image of a TIFF document, as GetVelmoraTIFFDocumentIFDInfo writes it.
   Width and height are as displayed: exchanged for Orientation 5 to 8. */
typedef struct VelmoraTIFFDocumentIFDInfo {
    DWORD size;         /* VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V1 ... _V3 */
    DWORD page;         /* the page the image belongs to, from 1 */
    DWORD width;
    DWORD height;
    DWORD subfileType;  /* NewSubfileType: bit 0 reduced resolution, bit 2 mask */
    DWORD photometric;  /* PhotometricInterpretation */
    /* _V2 */
    LONG exchanged;     /* -1 when rows and columns are exchanged, else 0 */
    /* _V3 */
    DWORD orientation;  /* Orientation, 1 when absent */
} VelmoraTIFFDocumentIFDInfo;

#define VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraTIFFDocumentIFDInfo, photometric)
#define VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraTIFFDocumentIFDInfo, exchanged)
#define VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V3 VELMORA_SIZE_THROUGH(VelmoraTIFFDocumentIFDInfo, orientation)

/*
 * Describes image number ifd (from 1, in file order). Set info->size first;
 * the fields up to that size are filled. Returns 1 or 0: 998 for an
 * unreadable record, 87 for a size that is not one of the three or an image
 * number beyond the file.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFDocumentIFDInfo(HGLOBAL document, DWORD ifd, VelmoraTIFFDocumentIFDInfo *info);

/*
 * Writes image number ifd, with its image data, as a complete single-page
 * TIFF into memory: *memory receives a movable block that the caller frees
 * with GlobalFree, *size its byte count. Returns 1 or 0: 998 for a NULL out
 * pointer, 87 for an image that does not exist.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraTIFFDocumentIFDTIFF(HGLOBAL document, DWORD ifd, HGLOBAL *memory, DWORD *size);

/*
 * Appends every image of a page (the page itself, its thumbnails and masks,
 * in file order) to the open TIFF destination with AppendVelmoraOpenTIFFEx.
 * append may be NULL to copy the images unchanged; otherwise its fields are
 * used for each image, with the source set to that image. The first failure
 * stops the copy. Returns 1 or 0: 6 for an invalid document or destination,
 * 87 for a page outside 1 to the page count.
 */
VELMORA_EXPORT BOOL VELMORA_API CopyVelmoraTIFFDocumentPage(HGLOBAL document, DWORD page, HGLOBAL destination, VelmoraAppendTIFF *append);

/* ======================================================================
 * JPEG
 * ====================================================================== */

/* Process codes, from the stream's frame marker. */
#define VELMORA_JPEG_BASELINE                 0  /* SOF0 */
#define VELMORA_JPEG_EXTENDED                 1  /* SOF1 */
#define VELMORA_JPEG_PROGRESSIVE              2  /* SOF2 */
#define VELMORA_JPEG_LOSSLESS                 3  /* SOF3 */
#define VELMORA_JPEG_HIERARCHICAL             4  /* any stream with a DHP marker */
#define VELMORA_JPEG_ARITHMETIC_EXTENDED      5  /* SOF9 */
#define VELMORA_JPEG_ARITHMETIC_PROGRESSIVE   6  /* SOF10 */
#define VELMORA_JPEG_ARITHMETIC_LOSSLESS      7  /* SOF11 */

/* Request bits of VelmoraJPEGInfo.request. */
#define VELMORA_JPEG_INFO_THUMBNAIL   0x0001u /* also describe the JFIF thumbnail */
#define VELMORA_JPEG_INFO_WHOLE       0x0002u /* read every segment to the end, so that
                                                 the flags describe the whole stream */

/* Bits of VelmoraJPEGInfo.flags. */
#define VELMORA_JPEG_HAS_JFIF         0x0001u
#define VELMORA_JPEG_HAS_ADOBE        0x0002u /* adobeTransform is meaningful */
#define VELMORA_JPEG_HAS_THUMBNAIL    0x0004u
#define VELMORA_JPEG_DAMAGED          0x0008u /* a known writer fault was repaired */
#define VELMORA_JPEG_SINGLE_TABLES    0x0010u /* no table is redefined after the first scan */
#define VELMORA_JPEG_HAS_RESOLUTION   0x0020u /* resolution from the library's own segment */

/* What GetVelmoraJPEGInfoProgress tells about a JPEG stream. */
typedef struct VelmoraJPEGInfo {
    WORD size;                  /* VELMORA_JPEG_INFO_SIZE_V1 */
    WORD request;               /* VELMORA_JPEG_INFO_... */
    WORD width;
    WORD height;
    DWORD xDensityNumerator;    /* pixels per densityUnit */
    DWORD xDensityDenominator;
    DWORD yDensityNumerator;
    DWORD yDensityDenominator;
    WORD densityUnit;           /* VELMORA_UNIT_NONE, _INCH or _CENTIMETER */
    BYTE components;            /* 1 grey, 3 colour */
    BYTE precision;             /* bits per sample */
    BYTE process;               /* VELMORA_JPEG_BASELINE ... */
    BYTE adobeTransform;        /* 0 RGB, 1 YCbCr (with VELMORA_JPEG_HAS_ADOBE) */
    WORD restartInterval;       /* MCUs per restart interval, 0 for none */
    BYTE mcuWidth;              /* pixels */
    BYTE mcuHeight;
    BYTE thumbnailWidth;        /* with VELMORA_JPEG_HAS_THUMBNAIL */
    BYTE thumbnailHeight;
    DWORD flags;                /* VELMORA_JPEG_HAS_... */
    DWORD reserved;
} VelmoraJPEGInfo;

#define VELMORA_JPEG_INFO_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraJPEGInfo, reserved)

/*
 * Describes a JPEG stream without decoding its pixels. Set info->size and
 * info->request first. Returns 1 or 0: 6 for an invalid handle; 87 for a
 * wrong size or unknown request bits; 998 for an unwritable record;
 * 0x02000002 when the stream is not JPEG, 0x02000004 for a malformed one;
 * 1223 when the callback cancelled.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraJPEGInfoProgress(HGLOBAL jpeg, VelmoraProgressProc progress, UINT_PTR user, VelmoraJPEGInfo *info);

/* Modes of VelmoraJPEGMCURequest. */
#define VELMORA_JPEG_MCU_MODE1  1
#define VELMORA_JPEG_MCU_MODE2  2

/* The parameters of GetVelmoraJPEGMCUData. */
typedef struct VelmoraJPEGMCURequest {
    WORD size;                    /* VELMORA_JPEG_MCU_REQUEST_SIZE_V1 */
    WORD mode;                    /* VELMORA_JPEG_MCU_MODE1 or _MODE2 */
    const RECT *rect;             /* the MCUs to extract, or NULL for the whole stream */
    UINT_PTR progressUser;
    VelmoraProgressProc progress; /* or NULL */
} VelmoraJPEGMCURequest;

#define VELMORA_JPEG_MCU_REQUEST_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraJPEGMCURequest, progress)

/*
 * Without a rectangle, returns a copy of the whole JPEG stream. With one,
 * returns a new JPEG stream holding only the MCUs inside it, cut out
 * losslessly without decoding. The rectangle's edges must be multiples of
 * the MCU size and lie inside the image. *size receives the byte count; the
 * caller frees the block with GlobalFree.
 * Mode 1 keeps the stream's own entropy-coded data and Huffman tables where
 * it can: the MCUs are cut out of a sequential stream bit for bit, and only
 * the first DC difference of a component in some MCUs (the first of each
 * row, those after a restart marker) is coded again. Progressive streams,
 * and sequential ones whose tables cannot code a difference the copy needs,
 * are coded again with the standard tables of T.81 Annex K. Mode 2 always
 * codes the MCUs again, with Huffman tables made for the copy, which gives
 * the smallest stream. Either way the copy decodes to exactly the pixels of
 * the same region of the whole image.
 * Returns NULL on failure: 6, 87 for a wrong size or mode or a rectangle
 * that is empty, unaligned or outside, 998, 0x02000004 for malformed data,
 * 0x02000005 for a stream that cannot be cut (lossless, arithmetic coding,
 * hierarchical, tables changing between scans), 1223 when cancelled.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API GetVelmoraJPEGMCUData(HGLOBAL jpeg, const VelmoraJPEGMCURequest *request, DWORD *size);

/* GetVelmoraJPEGMCUData in mode 1 with the given rectangle, callback and
   value. */
VELMORA_EXPORT HGLOBAL VELMORA_API GetVelmoraJPEGMCUDataProgress(HGLOBAL jpeg, const RECT *rect, VelmoraProgressProc progress, UINT_PTR user, DWORD *size);

/*
 * Decodes the whole image into a new packed DIB (8-bit grey for one
 * component, 24-bit for three) that the caller frees with GlobalFree.
 * Returns NULL on failure: 6, 0x02000004 for malformed data, 0x02000005 for
 * an arithmetic-coded or hierarchical stream, 1223 when cancelled.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraJPEGDIBProgress(HGLOBAL jpeg, VelmoraProgressProc progress, UINT_PTR user);

/* Closes a JPEG handle and frees it. Returns 1, or 0 with error 6. */
VELMORA_EXPORT BOOL VELMORA_API CloseVelmoraJPEG(HGLOBAL jpeg);

/* ======================================================================
 * DIBs
 *
 * Functions that take an existing DIB take two pointers: bits (the first
 * pixel row) and header (the BITMAPINFOHEADER with the colour table after
 * it). For a packed-DIB handle, lock it and pass the locked pointer as the
 * header and GetVelmoraDIBData(header) as the bits. Every such function
 * first checks the DIB: biSize must be 40, biPlanes 1, biWidth non-zero and
 * biHeight positive (87 otherwise); a NULL or unreadable header, table or
 * bits is 998. Functions that return a DIB return a new packed-DIB handle
 * the caller owns, or NULL; the DIB passed in is never freed.
 * ====================================================================== */

/* Returns the colour type of a DIB (VELMORA_COLOR_...; 7 is never
   returned), or -1 when the DIB is refused. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraDIBColorType(const void *bits, const BITMAPINFOHEADER *header);

/* Returns the address of the first pixel row of a packed DIB (the header
   address plus the header, colour table and masks), or NULL: 998 for an
   unreadable header, 87 for a wrong biSize or a zero width or height. */
VELMORA_EXPORT LPVOID VELMORA_API GetVelmoraDIBData(const BITMAPINFOHEADER *header);

/* Returns the byte size of a packed DIB (header, colour table, masks and
   rows; biSizeImage is ignored), or 0: 998, or 87 for a wrong biSize. */
VELMORA_EXPORT DWORD VELMORA_API GetVelmoraDIBSize(const BITMAPINFOHEADER *header);

/*
 * Makes a GDI palette for showing the DIB on the palette device hdc (NULL
 * for the screen): the DIB's own colours when they fit beside the system's
 * reserved colours, else a standing grey or colour palette, or with optimise
 * non-zero a palette fitted to the colours the pixels use. The caller
 * deletes it with DeleteObject. Returns NULL with error 0x02000009 when no
 * palette could be made (for example on a device without a palette).
 */
VELMORA_EXPORT HPALETTE VELMORA_API CreateVelmoraDIBPalette(const void *bits, const BITMAPINFOHEADER *header, HDC hdc, BOOL optimise);

/* ----------------------------------------------------------------------
 * Resizing
 * ---------------------------------------------------------------------- */

/* Flag of VelmoraResizeDIB. */
#define VELMORA_RESIZE_SMOOTH  0x0001u /* average the pixels when reducing */

/* The parameters of ResizeVelmoraDIBEx. */
typedef struct VelmoraResizeDIB {
    WORD size;                        /* VELMORA_RESIZE_DIB_SIZE_V1 */
    WORD flags;                       /* VELMORA_RESIZE_SMOOTH or 0 */
    DWORD width;                      /* the new size, non-zero */
    DWORD height;
    const void *bits;                 /* the source DIB */
    const BITMAPINFOHEADER *header;
    VelmoraProgressProc progress;     /* or NULL */
    UINT_PTR progressUser;
} VelmoraResizeDIB;

#define VELMORA_RESIZE_DIB_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraResizeDIB, progressUser)

/*
 * Returns a copy of a DIB resized to width x height, keeping its physical
 * size (biXPelsPerMeter and biYPelsPerMeter are scaled by the new width and
 * height over the old, truncating). The same size gives a plain copy.
 *
 * Without VELMORA_RESIZE_SMOOTH, and whenever a dimension grows, each pixel
 * takes the nearest source pixel: row r of the result (counted in stored
 * order, bottom row first) is source row r * height / new height, column c
 * source column c * width / new width, truncating. The result keeps the
 * depth, colour table and bit-field masks; 1, 4, 8, 16 and 24 bits are
 * taken.
 *
 * With VELMORA_RESIZE_SMOOTH a reduction averages every source pixel of a
 * result pixel's box, columns i * width / new width up to (i + 1) * width /
 * new width, rows alike:
 *   - 1 bit: an 8-bit result whose value counts the box's pixels of index 1.
 *     When the sizes divide evenly and a box holds at most 254 pixels the
 *     table has box + 1 entries and the value is the count; otherwise the
 *     table has 256 entries and the value is count * 255 / box area. The
 *     table runs from the colour of source entry 0 to that of entry 1, so an
 *     inverted page stays inverted.
 *   - 4 and 8 bits with a grey table: 8-bit grey, the average level.
 *   - other 4 and 8 bits, 16 and 24 bits: 24 bits, the average of each
 *     channel. Averages are truncated.
 * The smooth result is then made as small as its colours allow (a palette
 * image when at most 256 colours are used). When one dimension grows and
 * the other shrinks, the shrinking one is reduced first and the result then
 * enlarged.
 *
 * The callback, if any, is called as for every ...Progress function, by
 * result rows, once for each pass. The caller frees the result with
 * GlobalFree; the DIB passed in is left as it is.
 * Returns NULL on failure: 998 for a NULL or unreadable record, DIB or
 * callback; 87 for a size other than VELMORA_RESIZE_DIB_SIZE_V1, flags
 * other than 0 or VELMORA_RESIZE_SMOOTH, a zero width or height, a new
 * width or height above 16777216, a refused DIB or a depth nearest
 * resizing cannot take (32 bits); 0x02000005 for a depth smooth reduction
 * cannot average (32 bits); 8 when memory is short; 1223 when the callback
 * cancels.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API ResizeVelmoraDIBEx(const VelmoraResizeDIB *resize);

/* ResizeVelmoraDIBEx with VELMORA_RESIZE_SMOOTH and the given callback
   (NULL for none); the same results and errors. */
VELMORA_EXPORT HGLOBAL VELMORA_API ResizeVelmoraDIBProgress(DWORD width, DWORD height, const void *bits, const BITMAPINFOHEADER *header, VelmoraProgressProc progress, UINT_PTR user);

/* ResizeVelmoraDIBEx with VELMORA_RESIZE_SMOOTH and no callback; the same
   results and errors. */
VELMORA_EXPORT HGLOBAL VELMORA_API ResizeVelmoraDIB(DWORD width, DWORD height, const void *bits, const BITMAPINFOHEADER *header);

/*
 * Draws the source rectangle of a DIB (NULL: the whole DIB) into the
 * destination rectangle of a device context, turned clockwise by angle (0,
 * 90, 180 or 270), averaging as ResizeVelmoraDIBEx does when it reduces and
 * smooth is 1. The reserved values are passed on to the drawing; pass 0.
 * Returns non-zero, or 0: 998 for a NULL or unreadable destination
 * rectangle, DIB or source rectangle; 87 for a refused DIB, a source
 * rectangle outside the DIB, smooth other than 0 or 1 or another angle;
 * 0x02000005 for a DIB that cannot be drawn. In this edition the arguments
 * are checked and the call then fails with 120 (not implemented).
 */
VELMORA_EXPORT BOOL VELMORA_API StretchVelmoraDIB(HDC hdc, const RECT *destination, const RECT *source, const void *bits, const BITMAPINFOHEADER *header, DWORD smooth, DWORD reserved1, DWORD angle, DWORD reserved2);

/* ----------------------------------------------------------------------
 * Colour
 * ---------------------------------------------------------------------- */

/*
 * Returns a copy of a DIB converted to the colour type target
 * (VELMORA_COLOR_BW ... VELMORA_COLOR_RGB, or VELMORA_COLOR_DITHERED_BW for
 * error-diffused black and white). Grey levels use the weights 0.299 red,
 * 0.587 green, 0.114 blue; black and white thresholds at grey 128; palette
 * targets get a palette fitted to the image. A DIB already of that type is
 * copied. Returns NULL on failure: 87 for another target, 998, 1223.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API ChangeVelmoraDIBColorProgress(const void *bits, const BITMAPINFOHEADER *header, LONG target, VelmoraProgressProc progress, UINT_PTR user);

/* ChangeVelmoraDIBColorProgress without a callback. */
VELMORA_EXPORT HGLOBAL VELMORA_API ChangeVelmoraDIBColor(const void *bits, const BITMAPINFOHEADER *header, LONG target);

/*
 * Returns the DIB in the smallest form that keeps every colour: a 1-, 4- or
 * 8-bit palette DIB for a 16- or 24-bit DIB with at most 256 colours, or a
 * palette DIB whose table holds only the colours its pixels use. Returns
 * NULL with the last error unchanged when no smaller form exists (more than
 * 256 colours); NULL with an error on failure.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API ColorOptimizeVelmoraDIBProgress(const void *bits, const BITMAPINFOHEADER *header, VelmoraProgressProc progress, UINT_PTR user);

/* ColorOptimizeVelmoraDIBProgress without a callback. */
VELMORA_EXPORT HGLOBAL VELMORA_API ColorOptimizeVelmoraDIB(const void *bits, const BITMAPINFOHEADER *header);

/* ----------------------------------------------------------------------
 * Pixel operations
 * ---------------------------------------------------------------------- */

/* Flags of DespeckleVelmoraDIB. */
#define VELMORA_DESPECKLE_WHITE     0x0001u /* fill small areas of the lighter colour (holes) */
#define VELMORA_DESPECKLE_BLACK     0x0002u /* remove small areas of the darker colour (dots) */
#define VELMORA_DESPECKLE_IN_PLACE  0x0004u /* change the pixels passed in */
#define VELMORA_DESPECKLE_MAXIMUM   254     /* the largest speck size; larger values count as this */

/*
 * Removes specks of at most maximum pixels from a 1-bit DIB: each speck's
 * bounding rectangle is filled with the other colour. A speck is an area of
 * one colour whose pixels touch, diagonally too; the lighter colour is the
 * table entry nearer to white. Dots are removed before holes are filled.
 * Without VELMORA_DESPECKLE_IN_PLACE returns a new DIB; with it changes the
 * pixels passed in (they must be writable) and returns (HGLOBAL)1. With
 * neither VELMORA_DESPECKLE_WHITE nor _BLACK, or maximum 0, nothing changes.
 * Returns NULL on failure: 87 for a DIB that is not 1-bit or flags of 8 or
 * more, 998 for an unreadable DIB, unwritable pixels or a bad callback, 8
 * when memory is short, 1223 when cancelled (in place, the pixels are then
 * partly despeckled).
 */
VELMORA_EXPORT HGLOBAL VELMORA_API DespeckleVelmoraDIB(void *bits, const BITMAPINFOHEADER *header, DWORD maximum, DWORD flags, VelmoraProgressProc progress, UINT_PTR user);

/* Modes of FillVelmoraDIBRect. */
#define VELMORA_FILL_SET      0  /* the pixels take the colour */
#define VELMORA_FILL_AND      1  /* each channel is ANDed with the colour (highlighter) */
#define VELMORA_FILL_AVERAGE  2  /* each channel becomes the average of pixel and colour */

/*
 * Fills a rectangle of a DIB in place (rect NULL: the whole DIB; clipped to
 * the image). Palette DIBs take the nearest table entry to each entry's
 * result; 16-bit pixels keep the top 5 bits of each channel; the fourth
 * byte of 32-bit pixels is left as it was. Returns 1, or 0: 87 for another
 * mode, 0x02000005 for a compressed DIB or another depth, 998 for an
 * unreadable DIB or rectangle or pixels that are not writable.
 */
VELMORA_EXPORT BOOL VELMORA_API FillVelmoraDIBRect(void *bits, const BITMAPINFOHEADER *header, const RECT *rect, COLORREF color, DWORD mode);

/*
 * Swaps the two colours of a two-colour DIB's table and flips every pixel
 * between index 0 and index 1 (at 1 bit: inverts every bit), in place: the
 * picture looks the same, but index 0 and index 1 exchange meanings. Returns
 * 1, or 0: 87 when the DIB does not have exactly two table entries, 998 for
 * an unreadable DIB or when the table or pixels are not writable.
 */
VELMORA_EXPORT BOOL VELMORA_API ReverseVelmoraDIBColors(void *bits, BITMAPINFOHEADER *header);

/*
 * Returns a new 1-bit DIB (entry 0 black, entry 1 white) with the DIB's size
 * and resolution whose pixels are 0 where the DIB has exactly the colour key
 * and 1 elsewhere; from a 1-bit DIB the bits are kept and the entries equal
 * to key made black, the others white. Returns NULL on failure: 998 or 87
 * for a bad DIB, 0x02000005 for a compressed DIB or another depth, 8 when
 * memory is short.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API CreateVelmoraMaskDIB(const void *bits, const BITMAPINFOHEADER *header, COLORREF key);

/*
 * Paints color into the DIB, in place, wherever the monochrome bitmap's bits
 * are 0, with the bitmap's top-left corner at (x, y); palette DIBs take the
 * nearest entry. Returns 1 (also at once when x and y both lie beyond the
 * DIB), or 0: 998 for an unreadable DIB or unwritable pixels, 87 when the
 * bitmap does not fit in the DIB or is not monochrome, the system's error
 * when the bitmap cannot be read, 120 on systems without GDI bitmaps.
 */
VELMORA_EXPORT BOOL VELMORA_API DrawVelmoraDIBMask(void *bits, const BITMAPINFOHEADER *header, LONG x, LONG y, COLORREF color, HBITMAP bitmap);

/*
 * Copies the pixels of the source DIB into the destination DIB with their
 * top-left corner at (x, y), clipped to the destination; the two may be the
 * same DIB. Pixel values are copied between equal depths with equal tables;
 * otherwise palette destinations take the nearest entry to each colour.
 * Returns 1, or 0: 87 when the destination has fewer bits per pixel than the
 * source, 998 for an unreadable DIB or unwritable pixels, 0x02000005 for a
 * compressed DIB or another depth.
 */
VELMORA_EXPORT BOOL VELMORA_API CopyVelmoraDIBPixels(const void *sourceBits, const BITMAPINFOHEADER *sourceHeader, void *destinationBits, const BITMAPINFOHEADER *destinationHeader, LONG x, LONG y);

/*
 * Returns a new DIB holding a rectangle of a DIB (NULL: all of it), turned
 * clockwise by angle (0, 90, 180 or 270), with the DIB's table and
 * resolution. flags is reserved: pass 0. Returns NULL on failure: 87 for
 * another angle or an empty rectangle or one outside the DIB, 998 for an
 * unreadable DIB or rectangle or a bad callback, 0x02000005 for another
 * depth, 8 when memory is short, 1223 when cancelled.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API CopyVelmoraDIBToDIBProgress(const RECT *rect, const void *bits, const BITMAPINFOHEADER *header, DWORD angle, DWORD flags, VelmoraProgressProc progress, UINT_PTR user);

/* CopyVelmoraDIBToDIBProgress without a callback. */
VELMORA_EXPORT HGLOBAL VELMORA_API CopyVelmoraDIBToDIB(const RECT *rect, const void *bits, const BITMAPINFOHEADER *header, DWORD angle, DWORD flags);

/* ----------------------------------------------------------------------
 * Reading and saving image files
 * ---------------------------------------------------------------------- */

/* Flags of VelmoraReadDIB. */
#define VELMORA_READ_DIB_WIDE_PATH  0x0001u /* path is a wide string */
#define VELMORA_READ_DIB_OPTIONS    0x0002u /* options is valid (needs the largest record) */

/* Options of VelmoraReadDIB (with VELMORA_READ_DIB_OPTIONS); 0x0004 and
   0x0008 are accepted and change nothing. */
#define VELMORA_READ_DIB_FAST           0x0001u /* TIFF pages as with VELMORA_READ_TIFF_FAST */
#define VELMORA_READ_DIB_REPORT_DAMAGE  0x0002u /* a successful read sets the last error: 0 for a
                                                   sound file, VELMORA_ERROR_BAD_FILE_DATA for a
                                                   damaged one read all the same (see below) */

/* The parameters of ReadVelmoraDIBEx. */
typedef struct VelmoraReadDIB {
    WORD size;                    /* VELMORA_READ_DIB_SIZE_V1 ... _V3 */
    WORD reserved;
    const void *path;             /* narrow, or wide with VELMORA_READ_DIB_WIDE_PATH */
    DWORD page;                   /* from 1; the frame of a GIF */
    DWORD offsetLow;              /* where the image starts inside the file */
    DWORD offsetHigh;             /* below 0x80000000 */
    VelmoraProgressProc progress; /* or NULL */
    UINT_PTR progressUser;
    /* _V2 */
    DWORD flags;                  /* VELMORA_READ_DIB_... */
    /* _V3 */
    DWORD options;                /* VELMORA_READ_DIB_FAST ... (below 16) */
} VelmoraReadDIB;

#define VELMORA_READ_DIB_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraReadDIB, progressUser)
#define VELMORA_READ_DIB_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraReadDIB, flags)
#define VELMORA_READ_DIB_SIZE_V3 VELMORA_SIZE_THROUGH(VelmoraReadDIB, options)

/*
 * Reads one page of an image file into a new packed DIB (40-byte header,
 * bottom-up rows), recognising the file by its content, not its name: BMP,
 * GIF (page = frame), JPEG, PCX and PNG (page 1 only) and TIFF (the page's
 * directory, turned upright). offsetLow and offsetHigh place the image inside
 * a larger file (BMP, GIF and JPEG only). The host owns the DIB and frees it
 * with GlobalFree.
 *
 * BMP files: core (12-byte), info (40-byte) and larger headers; 1, 4, 8, 16,
 * 24 and 32 bits; RLE8, RLE4 and bit fields; top-down files come back
 * bottom-up. 16-bit bit-field pixels come back as 5-5-5 pixels (each field
 * scaled to 5 bits, truncating) and 32-bit pixels as 24-bit ones (without
 * masks the fourth byte is dropped; with masks each field is scaled to 8
 * bits, truncating). A wrong stored file size, bit-field pixels exactly 12
 * bytes short (read as 0) and damaged run-length data (cut or left at index
 * 0) do not fail the read.
 *
 * Damage read all the same, which VELMORA_READ_DIB_REPORT_DAMAGE reports:
 * those BMP faults; GIF, PCX and PNG image data that ends early or breaks
 * its coding (the pixels decoded before it are kept, the rest are zero); a
 * PNG background chunk after the image data. JPEG and TIFF files always
 * report 0.
 *
 * Returns NULL on failure: 998 for an unreadable record, path (NULL
 * included) or callback; 87 for a wrong size, page 0, an offsetHigh of
 * 0x80000000 or more, unknown flags, options without the largest record or
 * of 16 or more, a page other than 1 of a single-page type, a missing TIFF
 * page, or an offset with PCX, PNG or TIFF; the file's own errors (2 for a
 * missing file); 0x02000002 for an unrecognised file or a BMP without its
 * "BM" header (or with non-zero reserved words); 0x02000005 for a BMP header
 * size, depth or compression that is not read; 0x02000004 for a truncated or
 * inconsistent BMP; 0x0200001B for a type that is not read here (PDF,
 * icons, CALS); the other readers' own errors; 8 when the image is too large
 * for memory; 1223 when cancelled.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraDIBEx(const VelmoraReadDIB *read);

/* ReadVelmoraDIBEx with a narrow path, the given page, offset (high part
   0), callback and value. */
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraDIBOffsetProgress(LPCSTR path, DWORD page, DWORD offset, VelmoraProgressProc progress, UINT_PTR user);

/* ReadVelmoraDIBOffsetProgress without a callback. */
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraDIBOffset(LPCSTR path, DWORD page, DWORD offset);

/* ReadVelmoraDIBOffsetProgress with offset 0. */
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraDIBProgress(LPCSTR path, DWORD page, VelmoraProgressProc progress, UINT_PTR user);

/* ReadVelmoraDIBOffsetProgress with offset 0 and no callback. */
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraDIB(LPCSTR path, DWORD page);

/*
 * Writes a DIB as a plain Windows bitmap file (overwriting path): file
 * header, the 40-byte header, the colour table and the rows. A partly written
 * file is deleted. Returns non-zero, or 0: 998, the file's own errors.
 */
VELMORA_EXPORT BOOL VELMORA_API SaveVelmoraBMPDIB(LPCSTR path, const void *bits, const BITMAPINFOHEADER *header);

/* Options of a BMP file written by SaveVelmoraDIB. */
#define VELMORA_SAVE_BMP_CORE  0x0001u /* old-style 12-byte header (width and height below 65536) */
#define VELMORA_SAVE_BMP_RLE   0x0002u /* run-length coded rows for 4- and 8-bit DIBs */

typedef struct VelmoraSaveDIBBMPOptions {
    WORD size;          /* VELMORA_SAVE_DIB_BMP_OPTIONS_SIZE_V1 */
    WORD reserved;
    DWORD options;      /* VELMORA_SAVE_BMP_... */
} VelmoraSaveDIBBMPOptions;

#define VELMORA_SAVE_DIB_BMP_OPTIONS_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraSaveDIBBMPOptions, options)

/* A choice between two values, of which at most one may be non-zero. */
typedef struct VelmoraSaveDIBChoice {
    WORD size;          /* VELMORA_SAVE_DIB_CHOICE_SIZE_V1 */
    WORD reserved;
    DWORD first;
    DWORD second;
} VelmoraSaveDIBChoice;

#define VELMORA_SAVE_DIB_CHOICE_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraSaveDIBChoice, second)

/* Options of a JPEG file written by SaveVelmoraDIB. */
#define VELMORA_SAVE_JPEG_JFIF        0x0001u /* write a JFIF segment */
#define VELMORA_SAVE_JPEG_RESOLUTION  0x0002u /* write the library's resolution segment */
#define VELMORA_SAVE_JPEG_SCALE       0x0004u /* write the library's scale segment */

typedef struct VelmoraSaveDIBJPEGOptions {
    WORD size;          /* VELMORA_SAVE_DIB_JPEG_OPTIONS_SIZE_V1 */
    WORD quality;       /* 1 to 100 */
    DWORD options;      /* VELMORA_SAVE_JPEG_... */
} VelmoraSaveDIBJPEGOptions;

#define VELMORA_SAVE_DIB_JPEG_OPTIONS_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraSaveDIBJPEGOptions, options)

/* The options of SaveVelmoraDIB; every pointer may be NULL. */
typedef struct VelmoraSaveDIBOptions {
    WORD size;                                /* VELMORA_SAVE_DIB_OPTIONS_SIZE_V1 */
    WORD reserved;
    const VelmoraSaveDIBBMPOptions *bmp;
    const VelmoraSaveDIBChoice *choice1;
    const VelmoraSaveDIBChoice *choice2;
    const VelmoraSaveDIBJPEGOptions *jpeg;
} VelmoraSaveDIBOptions;

#define VELMORA_SAVE_DIB_OPTIONS_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraSaveDIBOptions, jpeg)

/*
 * Writes a DIB as a new file of the document type VELMORA_DOCTYPE_BMP, _JPEG
 * or _TIFF at path (narrow), replacing a file there only once the new one is
 * complete. options, and each record it points to, may be NULL for the
 * defaults; choice1 and choice2 are checked but change nothing.
 *
 * BMP: a plain file as SaveVelmoraBMPDIB writes it; VELMORA_SAVE_BMP_CORE
 * writes the old-style 12-byte header with 3-byte table entries (2^bits of
 * them at 1, 4 and 8 bits); VELMORA_SAVE_BMP_RLE codes 8-bit DIBs as RLE8
 * and 4-bit DIBs as RLE4 (other depths are written plain, and the core form
 * wins when both are set). JPEG: baseline at the quality given (0: 75),
 * with a JFIF segment carrying the DIB's resolution in dots per inch unless
 * a JPEG record leaves VELMORA_SAVE_JPEG_JFIF out; _RESOLUTION adds the
 * library's resolution segment (pixels per centimetre), _SCALE a scale
 * segment of 1:1; 1-, 4- and 8-bit and 24-bit DIBs only. TIFF: one page, as
 * AppendVelmoraOpenTIFFEx appends a DIB with the default compression.
 *
 * Returns non-zero, or 0: the DIB check's 998 and 87; 998 for an unreadable
 * path or record; 87 for another type, a record of the wrong size, unknown
 * option bits, a JPEG quality above 100 or a choice with both values set;
 * 0x0200002D for the core form of a DIB 65536 pixels wide or high or more;
 * 0x02000013 for a DIB the JPEG encoder cannot take; the file's own errors.
 */
VELMORA_EXPORT BOOL VELMORA_API SaveVelmoraDIB(LPCSTR path, const void *bits, const BITMAPINFOHEADER *header, LONG type, const VelmoraSaveDIBOptions *options);


/* ======================================================================== */
/* Annotations                                                              */
/* ======================================================================== */

/*
 * An annotation layer travels as an annotation stream: one movable global
 * memory block in the library's own byte format (at least 32 bytes: a
 * header with the signature "VelmoraAnnotations", then the records). A
 * host holds the stream's handle together with its byte size and passes
 * both in. The functions that change a stream parse it, change it, write a
 * new stream, free the old handle and hand back the new handle and size;
 * on failure the host's handle and size are left exactly as they were.
 *
 * Errors common to these functions: 6 for a handle that is not a live
 * memory block, 87 for a bad argument, 998 for a NULL or unusable pointer,
 * 0x02000025 "Bad annotation data." (stated size below 32, size field or
 * signature wrong, a record that does not fit), 0x02000026 "Unsupported
 * annotations type." (format version other than 1).
 *
 * Coordinates are page pixels of the full-resolution image, origin top
 * left, right and bottom edges exclusive. Colours are 0x00BBGGRR.
 */

/* Colour values used by annotations. */
#define VELMORA_COLOR_NONE 0xFFFFFFFFu        /* no outline, no fill */
#define VELMORA_COLOR_HIGHLIGHTER 0x01000000u /* added to a colour: transparent highlighter */

/* The smallest annotation stream: the header alone, no annotations. */
#define VELMORA_ANNOTATIONS_MIN_SIZE 32u

/* Annotation type codes answered by the "Type" property. */
#define VELMORA_ANNOTATION_TYPE_ELLIPSE 0
#define VELMORA_ANNOTATION_TYPE_LINE 3           /* plain line */
#define VELMORA_ANNOTATION_TYPE_IMAGE 4
#define VELMORA_ANNOTATION_TYPE_FREEHAND 5
#define VELMORA_ANNOTATION_TYPE_RECTANGLE 6      /* rectangle and text */
#define VELMORA_ANNOTATION_TYPE_TEXT_LINE 7      /* line with a text */
#define VELMORA_ANNOTATION_TYPE_MEASURE_LINE 8   /* line of subtype 2 with its measurement set */
#define VELMORA_ANNOTATION_TYPE_LINE_SUBTYPE3 10 /* line of subtype 3 */

/* Property names of Get/SetVelmoraAnnotationProperty, with the variant type
   each one uses. Only "Type" is answered for every annotation; the others
   belong to rectangle-and-text annotations. */
#define VELMORA_PROPERTY_TYPE "Type"                                   /* get: VT_UI1 */
#define VELMORA_PROPERTY_BORDER_STYLE "BorderStyle"                    /* get: VT_UI1, set: VT_I4 */
#define VELMORA_PROPERTY_HAS_BACKGROUND "HasBackground"                /* VT_BOOL */
#define VELMORA_PROPERTY_BACK_COLOR_TRANSPARENT "BackColorTransparent" /* VT_BOOL */
#define VELMORA_PROPERTY_BACK_COLOR "BackColor"                        /* set: VT_I4 */
#define VELMORA_PROPERTY_BACK_STYLE "BackStyle"                        /* set: VT_I4, 0 to 4 */
#define VELMORA_PROPERTY_BACK_COLOR2 "BackColor2"                      /* set: VT_I4 */
#define VELMORA_PROPERTY_TEXT "Text"                                   /* set: VT_BSTR */
#define VELMORA_PROPERTY_TEXT_COLOR "TextColor"                        /* set: VT_I4 */
#define VELMORA_PROPERTY_TEXT_STYLE "TextStyle"                        /* set: VT_I4, 0 to 255 */
#define VELMORA_PROPERTY_TEXT_SIZE "TextSize"                          /* set: VT_I2 */
#define VELMORA_PROPERTY_TEXT_FONT "TextFont"                          /* set: VT_BSTR, 31 characters kept */

/* Insert modes of InsertVelmoraAnnotation. */
#define VELMORA_INSERT_RECTANGLE 0 /* record: VelmoraInsertAnnotationInfo */
#define VELMORA_INSERT_PICTURE 1   /* record: VelmoraInsertPictureInfo */

/* Border styles run from 0 (none) to 5; back styles from 0 to 4; fit modes
   from 0 to 9; text rotations are 0, 90, 180 or 270 degrees (clockwise). */
#define VELMORA_BORDER_NONE 0
#define VELMORA_BORDER_STYLE_MAX 5
#define VELMORA_BACK_STYLE_MAX 4
#define VELMORA_FIT_MODE_MAX 9

/* Insert flags (VelmoraInsertAnnotationInfo.insertFlags). */
#define VELMORA_INSERT_EXEMPTION_CODES 0x01u /* exemptionCodes is valid (refused with 87 in this edition) */
#define VELMORA_INSERT_CREATION_TIME 0x02u   /* created is valid */
#define VELMORA_INSERT_SIZE_TO_FIT 0x04u     /* size the rectangle to the text */
#define VELMORA_INSERT_WIDE_TEXT 0x08u       /* fontName and text are UTF-16 strings */
#define VELMORA_INSERT_FLAGS_VALID 0x3Fu     /* every other bit is refused with 87 */

/* Measuring record for size to fit (VelmoraInsertAnnotationInfo.measure).
   The text is measured simply: the text size in points (12 when 0) at the
   page's resolution gives the size of the font in pixels, every character
   is taken to be values[2] thousandths of it wide and every line values[3]
   thousandths of it high (a line ends at a line feed, and after fitParameter
   characters when that is not 0); the rectangle is the text's width and
   height (swapped for a rotation of 90 or 270) plus `option` pixels on every
   side. The four values must not be 0:
     values[0]  horizontal resolution, pixels per inch
     values[1]  vertical resolution, pixels per inch
     values[2]  average character width, thousandths of the font size (e.g. 500)
     values[3]  line height, thousandths of the font size (e.g. 1200)
   The fit mode says which point of the starting rectangle stays where it
   is: 0 top left, 1 top centre, 2 top right, 3 to 5 the same along the
   middle, 6 to 8 along the bottom; 9 keeps the top left corner and never
   makes the rectangle smaller than it was given. */
typedef struct VelmoraTextMeasure {
    DWORD values[4];
    WORD option;
    WORD reserved;
} VelmoraTextMeasure;

/* Insert record of mode VELMORA_INSERT_RECTANGLE: a rectangle-and-text
   annotation. Accepted sizes: the seven VELMORA_INSERT_ANNOTATION_INFO_SIZE_V*
   constants; a field is read only when the size covers it. Colours carry
   only 0 or VELMORA_COLOR_HIGHLIGHTER in their top byte. */
typedef struct VelmoraInsertAnnotationInfo {
    WORD size;
    WORD borderStyle;          /* 0 (none) to 5 */
    WORD borderWidth;
    COLORREF borderColor;      /* VELMORA_COLOR_NONE: no border (colour, style or width unset drops it) */
    BYTE option1;              /* must be 0 */
    BYTE option2;              /* bits 5 and 7 must not both be set */
    WORD textSize;
    COLORREF textColor;        /* VELMORA_COLOR_NONE: none */
    LPCVOID fontName;          /* NUL-terminated; narrow, or UTF-16 with VELMORA_INSERT_WIDE_TEXT; may be NULL; 31 characters kept */
    RECT rect;                 /* right and bottom may be 0xFFFFFFFF only with size to fit */
    COLORREF backColor;        /* VELMORA_COLOR_NONE: no background */
    LPCVOID text;              /* as fontName; 256 characters kept */
    /* -- end of version 1 (48 bytes) */
    BYTE redactionKind;        /* 0 annotation; 1 or 2 redaction (refused with 87 in this edition) */
    BYTE reserved49[3];
    /* -- end of version 2 (52 bytes) */
    DWORD backStyle;           /* 0 to 4 */
    COLORREF backColor2;       /* top byte 0 when backStyle is not 0 */
    DWORD fitMode;             /* 0 to 9; must be 0 without size to fit */
    DWORD fitParameter;        /* size to fit: characters after which a line wraps, 0 never */
    /* -- end of version 3 (68 bytes) */
    COLORREF thirdColor;       /* VELMORA_COLOR_NONE: none */
    BYTE flagByte;             /* stored as set (1) or not (0) */
    WORD textRotation;         /* 0, 90, 180 or 270 */
    /* -- end of version 4 (76 bytes) */
    DWORD insertFlags;         /* VELMORA_INSERT_... */
    HGLOBAL exemptionCodes;    /* double-NUL-terminated string list in a global block */
    const SYSTEMTIME *created; /* creation time (UTC) with VELMORA_INSERT_CREATION_TIME */
    /* -- end of version 5 (88 bytes) */
    LONG pageWidth;            /* size to fit: the page size in pixels, non-zero */
    LONG pageHeight;
    const VelmoraTextMeasure *measure; /* size to fit: readable measuring record */
    /* -- end of version 6 (100 bytes) */
    DWORD reserved;
    /* -- end of version 7 (104 bytes) */
} VelmoraInsertAnnotationInfo;

#define VELMORA_INSERT_ANNOTATION_INFO_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraInsertAnnotationInfo, text)
#define VELMORA_INSERT_ANNOTATION_INFO_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraInsertAnnotationInfo, reserved49)
#define VELMORA_INSERT_ANNOTATION_INFO_SIZE_V3 VELMORA_SIZE_THROUGH(VelmoraInsertAnnotationInfo, fitParameter)
#define VELMORA_INSERT_ANNOTATION_INFO_SIZE_V4 VELMORA_SIZE_THROUGH(VelmoraInsertAnnotationInfo, textRotation)
#define VELMORA_INSERT_ANNOTATION_INFO_SIZE_V5 VELMORA_SIZE_THROUGH(VelmoraInsertAnnotationInfo, created)
#define VELMORA_INSERT_ANNOTATION_INFO_SIZE_V6 VELMORA_SIZE_THROUGH(VelmoraInsertAnnotationInfo, measure)
#define VELMORA_INSERT_ANNOTATION_INFO_SIZE_V7 VELMORA_SIZE_THROUGH(VelmoraInsertAnnotationInfo, reserved)

/* Picture flags (VelmoraInsertPictureInfo.flags); the value, below 64, is
   also the picture's image style word. */
#define VELMORA_PICTURE_FROM_MEMORY 0x0008u   /* pictureData/pictureDataSize are valid (size 40 or more) */
#define VELMORA_PICTURE_STRING_LIST 0x0010u   /* stringList is valid (size 44 or more; refused with 87 in this edition) */
#define VELMORA_PICTURE_CREATION_TIME 0x0020u /* created is valid (size 48) */

/* Insert record of mode VELMORA_INSERT_PICTURE: a picture (image
   annotation). Accepted sizes: VELMORA_INSERT_PICTURE_INFO_SIZE_V1 to V3. */
typedef struct VelmoraInsertPictureInfo {
    WORD size;
    WORD flags;                /* below 64: VELMORA_PICTURE_... and style bits */
    DWORD orientation;         /* TIFF Orientation 1, 3, 6 or 8 */
    RECT rect;                 /* right and bottom must not be 0xFFFFFFFF */
    LPCSTR fileName;           /* picture file, page 1 read by content; NULL: no picture yet */
    DWORD userValue;           /* kept with the picture */
    /* -- end of version 1 (32 bytes) */
    HGLOBAL pictureData;       /* with VELMORA_PICTURE_FROM_MEMORY: a live block whose first ... */
    DWORD pictureDataSize;     /* ... this many bytes are the picture as a packed DIB (copied) */
    /* -- end of version 2 (40 bytes) */
    HGLOBAL stringList;        /* with VELMORA_PICTURE_STRING_LIST: double-NUL-terminated list */
    const SYSTEMTIME *created; /* with VELMORA_PICTURE_CREATION_TIME: creation time (UTC) */
    /* -- end of version 3 (48 bytes) */
} VelmoraInsertPictureInfo;

#define VELMORA_INSERT_PICTURE_INFO_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraInsertPictureInfo, userValue)
#define VELMORA_INSERT_PICTURE_INFO_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraInsertPictureInfo, pictureDataSize)
#define VELMORA_INSERT_PICTURE_INFO_SIZE_V3 VELMORA_SIZE_THROUGH(VelmoraInsertPictureInfo, created)

/* Burn-in flags. */
#define VELMORA_BURN_IN_CHOOSE_FORMAT 0x1u   /* convert the image to a format that shows the annotations' colours */
#define VELMORA_BURN_IN_KEEP_IMAGE 0x2u      /* draw into the given DIB when its format allows */
#define VELMORA_BURN_IN_REDACTIONS_ONLY 0x4u /* draw only pending redactions and remove them from the stream */
#define VELMORA_BURN_IN_HIDDEN 0x8u          /* draw hidden annotations too */

/* Result of a burn-in that drew into the caller's DIB (no new image). */
#define VELMORA_BURNED_IN_PLACE ((HGLOBAL)(INT_PTR)-1)

/* Burn-in record of BurnInVelmoraAnnotationsEx. */
typedef struct VelmoraBurnInInfo {
    WORD size;                 /* VELMORA_BURN_IN_INFO_SIZE_V1 */
    WORD rotation;             /* page rotation: 0, 90, 180 or 270 degrees */
    HGLOBAL annotations;       /* annotation stream (live handle) */
    DWORD annotationsSize;     /* its size, at least 32; replaced with VELMORA_BURN_IN_REDACTIONS_ONLY */
    HGLOBAL dib;               /* the packed DIB to draw on */
    LPBITMAPINFOHEADER header; /* its locked header; the resolution fields give the drawing resolution */
    DWORD flags;               /* VELMORA_BURN_IN_... */
} VelmoraBurnInInfo;

#define VELMORA_BURN_IN_INFO_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraBurnInInfo, flags)

/* Selector bits of VelmoraAnnotationsFlags, also the bits of its result. */
#define VELMORA_ANNOTATIONS_HAS_REDACTIONS 0x1u       /* holds a pending redaction */
#define VELMORA_ANNOTATIONS_HAS_TEXTLESS_MARKS 0x2u   /* holds a text-less rectangle mark of the viewer's marker kind */

/*
 * GetVelmoraAnnotationsCount — number of annotations in a stream.
 * A NULL stream holds none and returns 0. The stated size must be at least
 * 32 (0x02000025) and not exceed the block (87). Group records of the
 * narrow kind are not counted; those of the wide kind are.
 * Returns the count, or -1 on failure.
 */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraAnnotationsCount(HGLOBAL annotations, DWORD size);

/*
 * GetVelmoraAnnotationData — a copy of an annotation stream.
 * *size states the stream's size: the block must be at least 32 bytes and
 * begin with that size (else 87). reserved must be 0 (87).
 * Returns a new handle the caller owns, or NULL on failure (6, 87, 998).
 */
VELMORA_EXPORT HGLOBAL VELMORA_API GetVelmoraAnnotationData(HGLOBAL annotations, LPDWORD size, BYTE reserved);

/*
 * GetVelmoraAnnotationProperty — reads one property of annotation `index`
 * (0-based) into *value (VELMORA_PROPERTY_... names, compared without
 * regard to case; the variant is overwritten). Annotations are counted as
 * the stream is read: records of unknown types are not counted. "Type"
 * works for every annotation; "BorderStyle",
 * "HasBackground" and "BackColorTransparent" for rectangle-and-text ones.
 * Returns 1, or 0 on failure: 2 index out of range, 87 transparency asked
 * of an annotation without background, 998 NULL name or value, 1608
 * unknown property or not supported by this annotation.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraAnnotationProperty(HGLOBAL annotations, DWORD size, DWORD index,
                                                             LPCSTR name, VARIANT *value);

/* Annotation families (VelmoraAnnotationInfo.family). */
#define VELMORA_ANNOTATION_FAMILY_RECTANGLE 1 /* rectangles, text boxes, notes, redaction rectangles */
#define VELMORA_ANNOTATION_FAMILY_LINE 2      /* straight lines, arrows, lines with a text */
#define VELMORA_ANNOTATION_FAMILY_FREEHAND 3  /* freehand lines and polylines */
#define VELMORA_ANNOTATION_FAMILY_IMAGE 4     /* pictures */
#define VELMORA_ANNOTATION_FAMILY_ELLIPSE 5

/* Annotation flags (VelmoraAnnotationInfo.flags). An annotation is a pending
   redaction, one that burning in blacks out, when it has
   VELMORA_ANNOTATION_REDACTION or _REDACTION2 and neither _APPLIED nor
   _LABEL. Other bits are kept for the viewer. */
#define VELMORA_ANNOTATION_REDACTION 0x01u  /* a redaction */
#define VELMORA_ANNOTATION_LABEL 0x02u      /* the label (exemption code) of a redaction */
#define VELMORA_ANNOTATION_APPLIED 0x04u    /* a redaction already burned in, kept as a mark */
#define VELMORA_ANNOTATION_MARKER 0x10u     /* the viewer's text-less marker */
#define VELMORA_ANNOTATION_REDACTION2 0x20u /* a redaction of the second kind */
#define VELMORA_ANNOTATION_SELECTED 0x80u

/* Object flags (VelmoraAnnotationInfo.objectFlags). */
#define VELMORA_ANNOTATION_PROTECTED1 0x1u /* the first protection bit */
#define VELMORA_ANNOTATION_PROTECTED2 0x2u /* the second protection bit */
#define VELMORA_ANNOTATION_HIDDEN 0x4u     /* not drawn unless asked for */

/* What GetVelmoraAnnotationInfo tells of one annotation. The host sets
   `size` and the two buffers (text, groups with their capacities); the call
   fills the rest. Fields that a family does not have hold 0, or
   VELMORA_COLOR_NONE for colours. */
typedef struct VelmoraAnnotationInfo {
    DWORD size;            /* VELMORA_ANNOTATION_INFO_SIZE_V1 */
    DWORD family;          /* VELMORA_ANNOTATION_FAMILY_... */
    DWORD type;            /* the "Type" code: VELMORA_ANNOTATION_TYPE_... */
    DWORD flags;           /* VELMORA_ANNOTATION_REDACTION ... */
    DWORD objectFlags;     /* VELMORA_ANNOTATION_PROTECTED1 ... */
    RECT rect;             /* bounds in page pixels, right and bottom exclusive (a line's: its end points') */
    POINT lineStart;       /* a line's first end point */
    POINT lineEnd;         /* a line's second end point */
    COLORREF borderColor;  /* border, outline, line or stroke colour */
    WORD borderStyle;      /* rectangle border or ellipse outline style, 0 none */
    WORD borderWidth;      /* border, outline, line or stroke width in pixels */
    COLORREF fillColor;    /* background (rectangle) or fill (freehand, ellipse) */
    COLORREF fillColor2;   /* a rectangle's second background colour */
    COLORREF textColor;    /* a rectangle's (or a picture's attached text's) text colour */
    WORD textSize;         /* the text's font size in points */
    WORD rotation;         /* clockwise degrees: a rectangle's text, a picture, an ellipse */
    WCHAR fontFace[32];    /* the text's font face, NUL-terminated */
    WORD backStyle;        /* a rectangle's back style, 0 to 4 */
    WORD lineEnds;         /* a line's line ends: bit 0 and bit 1, one for each end */
    SYSTEMTIME created;    /* creation time (UTC); all zero when the annotation carries none */
    SYSTEMTIME changed;    /* time of the last change (UTC); all zero when none */
    LPWSTR text;           /* in: buffer for the text, or NULL */
    DWORD textCapacity;    /* in: its size in WCHARs */
    DWORD textLength;      /* out: the text's length in WCHARs, without the terminator */
    LPWSTR groups;         /* in: buffer for the group names, or NULL */
    DWORD groupsCapacity;  /* in: its size in WCHARs */
    DWORD groupsLength;    /* out: the names' length in WCHARs, each terminator counted, not the last */
    /* -- end of version 1 */
} VelmoraAnnotationInfo;

#define VELMORA_ANNOTATION_INFO_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraAnnotationInfo, groupsLength)

/*
 * GetVelmoraAnnotationInfo — describes annotation `index` (0-based, counted
 * as GetVelmoraAnnotationProperty counts) of a stream: family, type code,
 * rectangle, colours, font, flags, times, and copies its text and group
 * names into the host's buffers. The text is a rectangle's text, a line's
 * text or the text attached to a picture. The group names follow each other,
 * each NUL-terminated, and an empty name ends the list. A buffer receives its
 * whole text when it holds textLength + 1 (groupsLength + 1) WCHARs, and
 * otherwise an empty text (no groups), its first WCHAR 0 when its capacity is
 * not 0; the length is written in either case, so that a call with NULL and 0
 * asks for the size. info->size must be VELMORA_ANNOTATION_INFO_SIZE_V1.
 * Returns 1, or 0 on failure: 6 a dead stream handle, 87 another record
 * size, 998 a NULL or unreadable record, a record that is not writable or a
 * buffer not writable for its capacity (a NULL buffer with a non-zero
 * capacity), 2 an index beyond the last annotation, and the stream errors
 * (0x02000025, 0x02000026). On failure the record is left as it was.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraAnnotationInfo(HGLOBAL annotations, DWORD size, DWORD index,
                                                         VelmoraAnnotationInfo *info);

/*
 * SetVelmoraAnnotationProperty — changes one property of rectangle-and-text
 * annotation `index` and replaces the stream: the old handle in *annotations
 * is freed and the new handle and size are stored. Setting the value a
 * property already has changes nothing (the handle stays). The value is
 * converted to the property's variant type first: numbers of any width,
 * booleans and decimal texts become numbers, numbers become decimal texts;
 * anything else fails with DISP_E_TYPEMISMATCH (0x80020005), a number out
 * of range with DISP_E_OVERFLOW (0x8002000A). Colours are 0x00BBGGRR, with
 * VELMORA_COLOR_HIGHLIGHTER allowed; "TextStyle" is the annotation's text
 * style byte (the record's option2); "BorderStyle" 0 removes the border, and
 * a border style given to an annotation without border brings width 1 and
 * black.
 * Returns 1, or 0 on failure: 2 index out of range, 87 invalid value
 * (colour, style, a background property without background), 998 NULL
 * pointer, 1608 unknown property or an annotation of another family.
 */
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraAnnotationProperty(HGLOBAL *annotations, LPDWORD size, DWORD index,
                                                             LPCSTR name, const VARIANT *value);

/*
 * InsertVelmoraAnnotation — appends a new annotation to a stream.
 * *annotations may be NULL: a new stream is made. mode is
 * VELMORA_INSERT_RECTANGLE (record: VelmoraInsertAnnotationInfo) or
 * VELMORA_INSERT_PICTURE (record: VelmoraInsertPictureInfo). On success the
 * old handle is freed and *annotations and *size receive the new stream.
 * This edition inserts no redactions: a non-zero redaction kind, an
 * exemption code list or a picture string list passes the checks and is
 * then refused with 87.
 * The index is the number of annotations the stream held before. The
 * picture's file name is kept with the annotation while it is in memory;
 * the stream stores the picture itself.
 * Returns the index of the new annotation, or -1 on failure (6, 87, 998,
 * 0x02000025, errors of reading the picture file).
 */
VELMORA_EXPORT LONG VELMORA_API InsertVelmoraAnnotation(HGLOBAL *annotations, LPDWORD size, DWORD mode,
                                                        const void *record);

/*
 * InsertVelmoraRedaction — appends a pending redaction over a rectangle.
 * InsertVelmoraAnnotation inserts no redactions; this call is the way a host
 * marks an area to be blacked out. The redaction is a rectangle without
 * border or text, filled black. Burning in (BurnInVelmoraAnnotations)
 * blackens every pixel of the rectangle, right and bottom edges exclusive;
 * with VELMORA_BURN_IN_REDACTIONS_ONLY the burned redaction also leaves the
 * stream. *annotations may be NULL: a new
 * stream is made. flags must be 0. On success the old handle is freed and
 * *annotations and *size receive the new stream; on failure both are left
 * as they were.
 * Returns the index of the new annotation, or -1 on failure: 6 a dead
 * handle, 87 an empty rectangle, a negative left or top, or non-zero flags,
 * 998 a NULL or unreadable pointer, 0x02000025 a damaged stream.
 */
VELMORA_EXPORT LONG VELMORA_API InsertVelmoraRedaction(HGLOBAL *annotations, LPDWORD size, const RECT *rect,
                                                       DWORD flags);

/*
 * VelmoraAnnotationsFlags — asks questions about a stream. selector is a
 * combination of VELMORA_ANNOTATIONS_HAS_... (0 to 3, else 87); the result
 * has a bit set for each question answered yes. The second question is
 * asked only of streams that hold redactions. A NULL stream holds nothing.
 * Returns the bits, or -1 on failure.
 */
VELMORA_EXPORT LONG VELMORA_API VelmoraAnnotationsFlags(HGLOBAL annotations, DWORD size, DWORD selector);

/*
 * VelmoraAnnotationsHaveRedactions — 1 when the stream holds at least one
 * pending redaction (applied ones do not count), else 0. A NULL stream
 * holds none. Errors also return 0, with the last error set (6, and
 * 0x02000025 for a stated size below 32 or beyond the block).
 */
VELMORA_EXPORT BOOL VELMORA_API VelmoraAnnotationsHaveRedactions(HGLOBAL annotations, DWORD size);

/*
 * DestroyVelmoraAnnotations — frees an annotation stream. NULL is accepted.
 * Returns 1, or 0 with error 6 for a handle that is not a live block.
 */
VELMORA_EXPORT BOOL VELMORA_API DestroyVelmoraAnnotations(HGLOBAL annotations);

/*
 * BurnInVelmoraAnnotations — draws a stream's annotations into a DIB (page
 * rotation 0). `size` is the stream size, or, with
 * VELMORA_BURN_IN_REDACTIONS_ONLY, a pointer to it (LPDWORD cast to
 * UINT_PTR; it must be writable, and receives the new size: 0 when no
 * annotation is left). See BurnInVelmoraAnnotationsEx for the result.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API BurnInVelmoraAnnotations(HGLOBAL annotations, UINT_PTR size, HGLOBAL dib,
                                                            LPBITMAPINFOHEADER header, DWORD flags);

/*
 * BurnInVelmoraAnnotationsEx — draws annotations into a page image, in
 * stream order, with the page rotation given (image annotations keep their
 * own orientation). The record must be readable and writable (998), of
 * size VELMORA_BURN_IN_INFO_SIZE_V1, rotation 0/90/180/270 and only the
 * four flag bits (87). With VELMORA_BURN_IN_REDACTIONS_ONLY the burned
 * redactions are removed from the stream, which is rewritten at the start
 * of the caller's block (never larger), and annotationsSize is replaced.
 * Returns NULL on failure; VELMORA_BURNED_IN_PLACE when the annotations
 * were drawn into the given DIB; otherwise a new DIB that the caller owns
 * (the given DIB is then unchanged).
 */
VELMORA_EXPORT HGLOBAL VELMORA_API BurnInVelmoraAnnotationsEx(VelmoraBurnInInfo *info);


/* ======================================================================== */
/* Recognised text (OCR text records)                                       */
/* ======================================================================== */

/*
 * An OCR text record holds, for each line or block of a page, its text and
 * a box for each character. It is one movable global memory block that
 * begins with the header below, followed by the entry table, the texts and
 * the coded boxes. The same bytes are stored in TIFF pages.
 */
#define VELMORA_OCR_TEXT_SIGNATURE "VelmoraOCRText" /* 14 characters, zero-padded to 16 */
#define VELMORA_OCR_TEXT_FORMAT_1 1
#define VELMORA_OCR_TEXT_FORMAT_2 2
/* Format 2 option bits (VelmoraOCRText.options). */
#define VELMORA_OCR_TEXT_NARROW 0x1u      /* texts are code-page strings, not UTF-16 */
#define VELMORA_OCR_TEXT_WORD_FLAGS 0x2u  /* entries carry wordFlagsOffset */
#define VELMORA_OCR_TEXT_ENTRY_VALUE 0x4u /* entries carry value (default 1) */

typedef struct VelmoraOCRText {
    DWORD size;           /* total size of the record */
    CHAR signature[16];   /* VELMORA_OCR_TEXT_SIGNATURE */
    WORD format;          /* 1 or 2 */
    WORD rotation;        /* text rotation: 0, 90, 180 or 270 */
    DWORD count;          /* number of entries */
    /* -- end of the format 1 header (28 bytes) */
    DWORD options;        /* format 2: VELMORA_OCR_TEXT_... */
    /* -- end of the format 2 header (32 bytes) */
} VelmoraOCRText;

#define VELMORA_OCR_TEXT_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraOCRText, count)
#define VELMORA_OCR_TEXT_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraOCRText, options)

/* One entry of the table that follows the header. Offsets count from the
   start of the record. Format 2 entries carry the optional fields that its
   option bits announce, in this order; with VELMORA_OCR_TEXT_ENTRY_VALUE
   alone, `value` follows boxOffset directly (a 12-byte entry). */
typedef struct VelmoraOCRTextEntry {
    DWORD textOffset;      /* NUL-terminated text */
    DWORD boxOffset;       /* coded character boxes */
    DWORD wordFlagsOffset; /* VELMORA_OCR_TEXT_WORD_FLAGS: one bit per word, 0 for none */
    DWORD value;           /* VELMORA_OCR_TEXT_ENTRY_VALUE */
} VelmoraOCRTextEntry;

#define VELMORA_OCR_TEXT_ENTRY_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraOCRTextEntry, boxOffset)
#define VELMORA_OCR_TEXT_ENTRY_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraOCRTextEntry, wordFlagsOffset)
#define VELMORA_OCR_TEXT_ENTRY_SIZE_V3 VELMORA_SIZE_THROUGH(VelmoraOCRTextEntry, value)

/*
 * GetVelmoraOCRTextCount — number of entries (lines or blocks) of an OCR
 * text record. A NULL record returns 0. size must equal the record's own
 * size field and be at least 28 (0x0200002F "Bad OCR text data.") and not
 * exceed the block (87); an unknown format is 0x02000030.
 * Returns the count, or -1 on failure.
 */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraOCRTextCount(HGLOBAL text, DWORD size);

/*
 * GetVelmoraOCRTextRects — the boxes of characters first .. first+count-1
 * of entry `index`, merged into as few rectangles as the reading direction
 * allows. With rects NULL only the number is returned; otherwise rects
 * must hold that many RECTs (998). Errors: 2 index not below the count, 87
 * characters outside the text, 0x0200002F bad data.
 * Returns the number of rectangles, or -1 on failure.
 */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraOCRTextRects(HGLOBAL text, DWORD size, DWORD index, DWORD first,
                                                       DWORD count, LPRECT rects);

/*
 * DestroyVelmoraOCRText — frees an OCR text record. NULL is accepted.
 * Returns 1, or 0 with error 6 for a handle that is not a live block.
 */
VELMORA_EXPORT BOOL VELMORA_API DestroyVelmoraOCRText(HGLOBAL text);



/* ======================================================================== */
/* PDF                                                                      */
/* ======================================================================== */

/*
 * A PDF document is reached through a handle (a movable global memory
 * block) from OpenVelmoraPDF or CreateVelmoraPDF(W) and released with
 * CloseVelmoraPDF. New documents are image PDFs (PDF 1.4, optionally
 * PDF/A-1b), one TIFF page per PDF page. Errors common to these functions:
 * 6 bad handle, 87 bad value or record, 998 NULL pointer, 0x02000002
 * "Unrecognized file format.", 0x02000004 "Bad file data.", 0x02000005
 * "Unsupported image type." (also unsupported encryption), file errors.
 */

/* Flags of VelmoraTIFFToPDFInfo. */
#define VELMORA_TIFF_TO_PDF_PDFA_VALID 0x0001u       /* options bit VELMORA_TIFF_TO_PDF_PDFA counts */
#define VELMORA_TIFF_TO_PDF_TEXT_LAYER_VALID 0x0002u /* options bit VELMORA_TIFF_TO_PDF_TEXT_LAYER counts */
#define VELMORA_TIFF_TO_PDF_METADATA 0x0004u         /* metadata is present */
#define VELMORA_TIFF_TO_PDF_WIDE 0x0008u             /* the three strings are UTF-16 */
#define VELMORA_TIFF_TO_PDF_XMP_PADDING 0x0010u      /* xmpPadding is present (size 32) */
#define VELMORA_TIFF_TO_PDF_MASKED_VALUES 0x8000u    /* valueMask and values are present (size 28 or more) */
/* Options of VelmoraTIFFToPDFInfo. */
#define VELMORA_TIFF_TO_PDF_PDFA 0x1u                /* PDF/A-1b output */
#define VELMORA_TIFF_TO_PDF_TEXT_LAYER 0x2u          /* invisible text layer from the pages' OCR text */
/* Bits of valueMask / values (only these two may be in the mask). */
#define VELMORA_TIFF_TO_PDF_VALUE_20 0x20u
#define VELMORA_TIFF_TO_PDF_VALUE_BURN_IN 0x40u      /* burn annotations into the page images */

/* Conversion record of ConvertVelmoraTIFFToPDFEx. Accepted sizes:
   VELMORA_TIFF_TO_PDF_INFO_SIZE_V1 to V3. Choices not made here come from
   the library's conversion defaults. */
typedef struct VelmoraTIFFToPDFInfo {
    WORD size;
    WORD flags;                /* VELMORA_TIFF_TO_PDF_...; bits 0x7FE0 must be clear */
    DWORD options;             /* VELMORA_TIFF_TO_PDF_PDFA, VELMORA_TIFF_TO_PDF_TEXT_LAYER */
    LPCVOID source;            /* source TIFF path: narrow, or UTF-16 with VELMORA_TIFF_TO_PDF_WIDE */
    LPCVOID destination;       /* destination PDF path, likewise */
    LPCVOID metadata;          /* additional metadata text (refused in PDF/A mode) */
    /* -- end of version 1 (20 bytes) */
    DWORD valueMask;           /* which bits of values count: 0x20, 0x40 */
    DWORD values;
    /* -- end of version 2 (28 bytes) */
    DWORD xmpPadding;          /* padding bytes of the PDF/A metadata packet */
    /* -- end of version 3 (32 bytes) */
} VelmoraTIFFToPDFInfo;

#define VELMORA_TIFF_TO_PDF_INFO_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraTIFFToPDFInfo, metadata)
#define VELMORA_TIFF_TO_PDF_INFO_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraTIFFToPDFInfo, values)
#define VELMORA_TIFF_TO_PDF_INFO_SIZE_V3 VELMORA_SIZE_THROUGH(VelmoraTIFFToPDFInfo, xmpPadding)

/* Flags of VelmoraPDFToTIFFInfo: which fields are present. */
#define VELMORA_PDF_TO_TIFF_RESOLUTION 0x0001u          /* resolutionUnit, resolution */
#define VELMORA_PDF_TO_TIFF_COLOR_TYPE 0x0002u          /* colorType */
#define VELMORA_PDF_TO_TIFF_OPTION_3 0x0008u            /* option bit 3 */
#define VELMORA_PDF_TO_TIFF_COMPRESSION_2 0x0010u       /* compression2 */
#define VELMORA_PDF_TO_TIFF_COMPRESSION 0x0020u         /* compression */
#define VELMORA_PDF_TO_TIFF_BILEVEL_COMPRESSION 0x0040u /* bilevelCompression */
#define VELMORA_PDF_TO_TIFF_OPTION_7 0x0080u            /* option bit 7 */
#define VELMORA_PDF_TO_TIFF_TEXT 0x0100u                /* text */
#define VELMORA_PDF_TO_TIFF_VALUE_40 0x0200u            /* value40 (size 44 or more) */
#define VELMORA_PDF_TO_TIFF_OPTION_13 0x2000u           /* option bit 13 */
#define VELMORA_PDF_TO_TIFF_EXTENDED 0x8000u            /* extendedFlags (size 48 or more) */
#define VELMORA_PDF_TO_TIFF_FLAGS_RESERVED 0x5004u      /* must be clear */
/* Extended flags (VelmoraPDFToTIFFInfo.extendedFlags). */
#define VELMORA_PDF_TO_TIFF_EX_CHOICE_48 0x0001u        /* bilevelCompression2 */
#define VELMORA_PDF_TO_TIFF_EX_CHOICE_49 0x0002u        /* choice49 */
#define VELMORA_PDF_TO_TIFF_EX_CHOICE_50 0x0004u        /* choice50 */
#define VELMORA_PDF_TO_TIFF_EX_CHOICE_51 0x0008u        /* choice51 */
#define VELMORA_PDF_TO_TIFF_EX_SUB_RECORD 0x0010u       /* subRecord (size 56 or more) */
#define VELMORA_PDF_TO_TIFF_EX_PAGE_RANGE 0x0100u       /* firstPage, lastPage (size 76) */
#define VELMORA_PDF_TO_TIFF_EX_PAGE_LIST 0x0200u        /* pageListCount, pageList (size 76) */
#define VELMORA_PDF_TO_TIFF_EX_WIDE 0x0800u             /* the strings are UTF-16 */
#define VELMORA_PDF_TO_TIFF_EX_OPTION_WORD 0x7480u      /* any of these makes optionWord count (size 60 or more) */
#define VELMORA_PDF_TO_TIFF_EX_RESERVED 0xFFFF8060u     /* must be clear */
/* Output colour types (VelmoraPDFToTIFFInfo.colorType). */
#define VELMORA_PDF_TO_TIFF_BILEVEL 0
#define VELMORA_PDF_TO_TIFF_GRAY16 3
#define VELMORA_PDF_TO_TIFF_GRAY256 4
#define VELMORA_PDF_TO_TIFF_RGB 6
#define VELMORA_PDF_TO_TIFF_PAGE_TYPE 8
/* Resolution units (VelmoraPDFToTIFFInfo.resolutionUnit). */
#define VELMORA_PDF_TO_TIFF_HUNDREDTHS 0        /* resolution / 100 (halves up) in the library's metric unit */
#define VELMORA_PDF_TO_TIFF_MILLI_DPI 1         /* thousandths of a dot per inch: 300000 = 300 dpi */

/* Conversion record of ConvertVelmoraPDFToTIFFEx. Accepted sizes:
   VELMORA_PDF_TO_TIFF_INFO_SIZE_V1 to V6. A field counts only when its
   flag is set; otherwise the library's conversion defaults apply. */
typedef struct VelmoraPDFToTIFFInfo {
    WORD size;
    WORD flags;                 /* VELMORA_PDF_TO_TIFF_... */
    WORD options;               /* option bits 3, 7 and 13, each as flagged */
    BYTE colorType;             /* 0, 3, 4, 6, 8, 254 or 255 */
    BYTE resolutionUnit;        /* VELMORA_PDF_TO_TIFF_HUNDREDTHS or _MILLI_DPI */
    DWORD resolution;           /* not 0 when flagged */
    BYTE bilevelCompression;    /* 0, 1, 2, 4, 5 or 10 */
    BYTE compression;           /* 0, 1, 5, 6 or 7 */
    BYTE compression2;          /* 0, 1, 5, 6 or 7 */
    LPCVOID text;               /* a further text, narrow or wide like the paths */
    LPCVOID source;             /* source PDF path */
    DWORD page;                 /* 0: every page; else this page only */
    LPCVOID destination;        /* destination TIFF path (created, or pages appended) */
    VelmoraProgressProc progress; /* may be NULL */
    UINT_PTR progressValue;     /* passed to progress */
    /* -- end of version 1 (40 bytes) */
    DWORD value40;              /* 0 or 1 */
    /* -- end of version 2 (44 bytes) */
    DWORD extendedFlags;        /* VELMORA_PDF_TO_TIFF_EX_... */
    BYTE bilevelCompression2;   /* 0, 1, 2, 4, 5 or 10 */
    BYTE choice49;              /* 0, 1 or 5 */
    BYTE choice50;              /* 0, 1 or 5 */
    BYTE choice51;              /* 0, 1 or 5 */
    /* -- end of version 3 (52 bytes) */
    LPCVOID subRecord;          /* 32-byte record whose first DWORD is 32 */
    /* -- end of version 4 (56 bytes) */
    DWORD optionWord;           /* bits 10, 12, 13 and 14 as flagged */
    /* -- end of version 5 (60 bytes) */
    DWORD firstPage;            /* page range: first not 0 ... */
    DWORD lastPage;             /* ... last from first to the page count */
    DWORD pageListCount;        /* page list: not 0 ... */
    const DWORD *pageList;      /* ... that many page numbers */
    /* -- end of version 6 (76 bytes) */
} VelmoraPDFToTIFFInfo;

#define VELMORA_PDF_TO_TIFF_INFO_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraPDFToTIFFInfo, progressValue)
#define VELMORA_PDF_TO_TIFF_INFO_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraPDFToTIFFInfo, value40)
#define VELMORA_PDF_TO_TIFF_INFO_SIZE_V3 VELMORA_SIZE_THROUGH(VelmoraPDFToTIFFInfo, choice51)
#define VELMORA_PDF_TO_TIFF_INFO_SIZE_V4 VELMORA_SIZE_THROUGH(VelmoraPDFToTIFFInfo, subRecord)
#define VELMORA_PDF_TO_TIFF_INFO_SIZE_V5 VELMORA_SIZE_THROUGH(VelmoraPDFToTIFFInfo, optionWord)
#define VELMORA_PDF_TO_TIFF_INFO_SIZE_V6 VELMORA_SIZE_THROUGH(VelmoraPDFToTIFFInfo, pageList)

/* Modes of GetVelmoraPDFPageData. Accepted: 0, 1, 2, 4, 12, 16, 32, 68, 76. */
#define VELMORA_PDF_PAGE_FRAGMENT 0     /* 0 to 2: the page as a self-contained PDF fragment */
#define VELMORA_PDF_PAGE_DIB 4          /* the page as a DIB */
#define VELMORA_PDF_PAGE_KEEP_JPEG 0x08 /* with DIB: a JPEG page image comes back as its JPEG data */
#define VELMORA_PDF_PAGE_THUMBNAIL 16   /* the page's stored thumbnail as a DIB */
#define VELMORA_PDF_PAGE_TEXT 32        /* the page's text as an OCR text record */
#define VELMORA_PDF_PAGE_WITH_INFO 0x40 /* with DIB: `out` is a VelmoraPDFPageImage */

/* Marked-content tag of the annotation layer that the viewer draws into PDF
   pages; page extraction tells this layer apart from the page's content. */
#define VELMORA_PDF_ANNOTATION_LAYER_TAG "XXSolvenirVelmoraAnnotations"

/* Result of GetVelmoraPDFPageData in the modes with VELMORA_PDF_PAGE_WITH_INFO. */
typedef struct VelmoraPDFPageImage {
    HGLOBAL image;          /* the page image (DIB, or JPEG data) */
    DWORD xResolution;      /* the page image's resolution and pixel size */
    DWORD yResolution;
    DWORD width;
    DWORD height;
    WORD rotation;          /* the page rotation in degrees */
    WORD reserved;
} VelmoraPDFPageImage;

#define VELMORA_PDF_PAGE_IMAGE_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraPDFPageImage, reserved)

/*
 * ConvertVelmoraTIFFToPDF — writes every page of a TIFF file as a new image
 * PDF, with the library's conversion defaults (text layer and burned-in
 * annotations as configured); a page stored with a reduced-resolution image
 * gets that image as its thumbnail. Paths are code-page strings.
 * Returns 1, or 0 on failure (998 NULL path, 0x02000007 a page directory
 * missing, 0x02000005 an unsupported page, file errors).
 */
VELMORA_EXPORT BOOL VELMORA_API ConvertVelmoraTIFFToPDF(LPCSTR source, LPCSTR destination);

/*
 * ConvertVelmoraTIFFToPDFEx — as ConvertVelmoraTIFFToPDF with the choices
 * of a VelmoraTIFFToPDFInfo record (PDF/A, text layer, burn-in, wide paths,
 * metadata packet padding). A record of another size or with unknown flag
 * or mask bits is 87. PDF/A output embeds the system's sRGB profile (file
 * errors when it is missing, 120 where the system has no colour folder) and
 * refuses additional metadata with 0x02000005. After a failure the destination holds what was
 * written so far and is not a valid PDF; the source is unchanged.
 * With the settings "PDF\To BW" non-zero and "PDF\BW Compression" 34715 the
 * file is made by the outside JBIG2 converter library instead (i2pocrsdk.dll;
 * libi2pocrsdk.so on Linux, on the library search path; its entry
 * int i2pdfocr(const char *command)): every page is made black and white
 * (dithered for "To BW" 2; black-is-zero pages inverted with
 * "PDF\BlackZero To WhiteZero") in a temporary TIFF, and the converter is
 * run as [-chkbwcolor ]-bwimg 2 "<tiff>" "<pdf>" ("-chkbwcolor " with
 * "PDF\JBIG2 ChkBWColor") into a temporary PDF that is copied to the
 * destination. A missing library is 0x02000019 before anything is written;
 * a failing converter or a PDF with another page count is 0x02000009, and
 * the destination is left alone.
 * Returns 1, or 0 on failure.
 */
VELMORA_EXPORT BOOL VELMORA_API ConvertVelmoraTIFFToPDFEx(const VelmoraTIFFToPDFInfo *info);

/*
 * CreateVelmoraPDF — creates a new PDF document at `path`. With `templatePath`
 * (may be NULL) the new file starts as a copy of that PDF, and pages are
 * appended behind its pages. Returns the document handle, or NULL.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API CreateVelmoraPDF(LPCSTR path, LPCSTR templatePath);

/* CreateVelmoraPDFW — CreateVelmoraPDF with UTF-16 paths. */
VELMORA_EXPORT HGLOBAL VELMORA_API CreateVelmoraPDFW(LPCWSTR path, LPCWSTR templatePath);

/*
 * OpenVelmoraPDF — opens an existing PDF. access is GENERIC_READ,
 * GENERIC_WRITE or both (0 or any other bit: 87). A document opened with
 * read access only can be read but never saved.
 * Returns the document handle, or NULL (998 NULL path, 0x02000002 not a
 * PDF, 0x02000004 damaged, 0x02000005 unsupported security, file errors).
 */
VELMORA_EXPORT HGLOBAL VELMORA_API OpenVelmoraPDF(LPCSTR path, DWORD access);

/*
 * AppendVelmoraPDFPage — appends page `page` (1-based; 0 or past the end:
 * 87) of the TIFF file `tiffPath` to the document, with the library's
 * conversion defaults. A file that is not a TIFF is 0x02000002, or
 * 0x0200001B when it is another known file type. Returns 1, or 0.
 */
VELMORA_EXPORT BOOL VELMORA_API AppendVelmoraPDFPage(HGLOBAL pdf, LPCSTR tiffPath, DWORD page);

/* AppendVelmoraPDFPageW — AppendVelmoraPDFPage with a UTF-16 path. */
VELMORA_EXPORT BOOL VELMORA_API AppendVelmoraPDFPageW(HGLOBAL pdf, LPCWSTR tiffPath, DWORD page);

/*
 * SaveVelmoraPDF — writes the document's changes to its file as an update;
 * the document stays open. A document opened for reading fails with 120.
 * Returns 1, or 0.
 */
VELMORA_EXPORT BOOL VELMORA_API SaveVelmoraPDF(HGLOBAL pdf);

/*
 * CloseVelmoraPDF — closes the document without saving and frees the
 * handle. Returns 1, or 0 with error 6 for a bad handle.
 */
VELMORA_EXPORT BOOL VELMORA_API CloseVelmoraPDF(HGLOBAL pdf);

/* GetVelmoraPDFPageCount — the number of pages, or -1 on failure. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraPDFPageCount(HGLOBAL pdf);

/*
 * SetVelmoraPDFPageSent — records the transfer state (0 to 3) of page
 * `page` (1-based) of a document opened for reading. Other documents,
 * states or pages are 87. Returns 1, or 0.
 */
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraPDFPageSent(HGLOBAL pdf, DWORD page, DWORD state);

/*
 * GetVelmoraPDFDocumentData — the document's trailer as a small data block
 * ("%ZEPXPDF-1.0", the trailer dictionary, "%%EOF"); *size receives its
 * size. Only for documents opened for reading (else 87).
 * Returns a block the caller owns, or NULL.
 */
VELMORA_EXPORT HGLOBAL VELMORA_API GetVelmoraPDFDocumentData(HGLOBAL pdf, LPDWORD size);

/*
 * GetVelmoraPDFPageData — one page (1-based) in the form `mode` asks for
 * (VELMORA_PDF_PAGE_...). `out` receives the handle of the result
 * (HGLOBAL *), or, with VELMORA_PDF_PAGE_WITH_INFO, points to a
 * VelmoraPDFPageImage that receives the handle and the page information.
 * Fragment modes need a document opened for reading (87). A page without
 * a thumbnail is error 2 in thumbnail mode. The caller owns the result.
 * Returns 1, or 0 on failure (87 unknown mode or page out of range, 998).
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraPDFPageData(HGLOBAL pdf, DWORD page, DWORD mode, LPVOID out);

/*
 * ConvertVelmoraPDFToTIFF — converts every page of a PDF into pages of a
 * TIFF file with the library's conversion defaults. Paths are code-page
 * strings; `options` is carried into the conversion record, in which no
 * field is flagged, so every choice comes from the defaults.
 * Returns 1, or 0 on failure (see ConvertVelmoraPDFToTIFFEx).
 */
VELMORA_EXPORT BOOL VELMORA_API ConvertVelmoraPDFToTIFF(LPCSTR source, LPCSTR destination, DWORD options);

/*
 * ConvertVelmoraPDFToTIFFEx — converts the chosen pages of a PDF into pages
 * of a TIFF file. Image-only pages are taken out of the PDF directly;
 * other pages are rendered by the PDF rasteriser (on Linux, poppler). The
 * progress callback may cancel (1223; the TIFF keeps the pages written).
 * Returns 1, or 0 on failure: 87 bad record, 998 NULL pointer,
 * 0x02000005 a page that can be neither extracted nor rendered (also a
 * missing rasteriser), 0x02000009 the rasteriser produced nothing.
 */
VELMORA_EXPORT BOOL VELMORA_API ConvertVelmoraPDFToTIFFEx(const VelmoraPDFToTIFFInfo *info);

/* ======================================================================== */
/* Viewer window                                                            */
/* ======================================================================== */

/*
 * The viewer is a child window that shows a document with its toolbar,
 * thumbnails, status bar and annotation tools. It is Win32 code: on Linux
 * the window functions below check their arguments as described and then
 * fail with error 120 until the Linux viewer exists.
 * Every window function fails with 0x02000019 "The function has been
 * disabled." when InitVelmoraEx disabled the user-interface support.
 */

#define VELMORA_WINDOW_CLASS "VelmoraWindow"
#define VELMORA_STATUS_BAR_CLASS "VelmoraStatusBar"

/* Library bits in the low word of the viewer's window style. The style
   must contain WS_CHILD, and bits 0xF000 must be clear (else error 2002). */
#define VELMORA_WS_CHILD 0x40000000L
#define VELMORA_WS_SET_LANGUAGE 0x0001L  /* take the interface language from the settings */
#define VELMORA_WS_OWN_THREAD 0x0002L    /* run the viewer on a user-interface thread of its own */
#define VELMORA_WS_APPLICATION 0x0004L   /* the viewer is the host's main document window */
#define VELMORA_WS_RESERVED 0xF000L

/* Message that asks a viewer to close; it answers with a handle of its
   thread. DestroyVelmoraWindow sends it to viewers of other threads. */
#define VELMORA_WM_CLOSE_VIEWER 0x04CF /* WM_USER + 207 */

/* Toolbar selectors of GetVelmoraToolbarBitmap. */
#define VELMORA_TOOLBAR_MAIN 0  /* 11 images of 16 x 16, bitmap 1 */
#define VELMORA_TOOLBAR_TOOLS 1 /* 36 images of 16 x 16, bitmap 19 */

/*
 * CreateVelmoraWindow — a viewer with no document: CreateVelmoraWindowEx
 * with extended style 0, no document and no second window.
 */
VELMORA_EXPORT HWND VELMORA_API CreateVelmoraWindow(DWORD style, INT x, INT y, INT width, INT height,
                                                    HWND parent, UINT id);

/*
 * CreateVelmoraWindowEx — creates a viewer as child `id` of `parent` at the
 * given place and size, and opens `document` in it (NULL: none). style
 * holds the window style with the VELMORA_WS_... bits; with
 * VELMORA_WS_OWN_THREAD the viewer runs on a thread of its own while this
 * call pumps the caller's messages until the window exists. secondWindow
 * (may be NULL) is a further host window the viewer reports to.
 * Returns the window, or NULL: 998 unreadable document name, 2002 bad
 * style, 1400 parent or second window not a window, errors of opening the
 * document (no window is left behind). Linux: 120 after the checks.
 */
VELMORA_EXPORT HWND VELMORA_API CreateVelmoraWindowEx(DWORD exStyle, LPCSTR document, DWORD style, INT x, INT y,
                                                      INT width, INT height, HWND parent, UINT id,
                                                      HWND secondWindow);

/* CreateVelmoraWindowExW — CreateVelmoraWindowEx with a UTF-16 document name. */
VELMORA_EXPORT HWND VELMORA_API CreateVelmoraWindowExW(DWORD exStyle, LPCWSTR document, DWORD style, INT x, INT y,
                                                       INT width, INT height, HWND parent, UINT id,
                                                       HWND secondWindow);

/*
 * DestroyVelmoraWindow — destroys a viewer; a viewer of another thread is
 * asked to close and waited for. May be called from any thread.
 * Returns 1, or 0 with error 1400 when `window` is not a viewer.
 * Linux: 120 after the check.
 */
VELMORA_EXPORT BOOL VELMORA_API DestroyVelmoraWindow(HWND window);

/*
 * CreateVelmoraStatusBar — a free-standing status bar like the viewer's,
 * child `id` of `parent`. style must contain WS_CHILD (else 2002).
 * Returns the window, or NULL. Linux: 120 after the checks.
 */
VELMORA_EXPORT HWND VELMORA_API CreateVelmoraStatusBar(DWORD style, HWND parent, UINT id);

/*
 * GetVelmoraToolbarBitmap — the library's toolbar images, so that a host
 * toolbar can match the viewer's: *buttonCount receives the number of
 * 16 x 16 images, *module the library's module and *bitmapId the bitmap's
 * resource id in it. selector is VELMORA_TOOLBAR_MAIN or _TOOLS (else 87);
 * NULL pointers are 998. Returns 1, or 0. Linux: 120 after the checks.
 */
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraToolbarBitmap(WORD selector, LPWORD buttonCount, HINSTANCE *module,
                                                        LPUINT bitmapId);

/*
 * SubclassVelmoraColorButton — turns a push button into a colour button
 * drawn by the library. Errors: 1400 not a window, 87 not a push button.
 * Returns non-zero on success, 0 on failure. Linux: 120 after the checks.
 */
VELMORA_EXPORT BOOL VELMORA_API SubclassVelmoraColorButton(HWND button);

/*
 * RegisterVelmoraEditDropTarget — makes an edit window accept dropped
 * files and text through OLE drag and drop; a registration failure is
 * reported with its OLE code. Returns non-zero on success, 0 on failure.
 * Linux: 120 after the checks.
 */
VELMORA_EXPORT BOOL VELMORA_API RegisterVelmoraEditDropTarget(HWND edit);

/* ======================================================================== */
/* Printing                                                                 */
/* ======================================================================== */

/*
 * Documents are printed by a hidden viewer, with the viewer's own print
 * dialog, page layout and annotation rendering. On Linux the printing
 * functions check their arguments and records as described and then fail
 * with error 120 until the Linux viewer exists. All of them fail with
 * 0x02000019 when InitVelmoraEx disabled the user-interface support.
 */

/* A range of pages, both 1-based and inclusive. */
typedef struct VelmoraPageRange {
    DWORD first;
    DWORD last;
} VelmoraPageRange;

/* Flags of VelmoraPrintInfo. A flag whose field lies beyond the record's
   size is 87; bits 24 to 31 must be clear. */
#define VELMORA_PRINT_NO_RANGES 0x00000001u       /* rangeCount must be 0 */
#define VELMORA_PRINT_TIFF_DOCUMENT 0x00000008u   /* document is an open TIFF document handle */
#define VELMORA_PRINT_VALUE_28 0x00000010u        /* value28 counts */
#define VELMORA_PRINT_VALUE_32 0x00000020u        /* value32 counts (not 0) */
#define VELMORA_PRINT_ROTATION 0x00000100u        /* rotation counts */
#define VELMORA_PRINT_VIEWER_OPTIONS 0x0063FEC0u  /* flags that make viewerOptions count */
#define VELMORA_PRINT_HANDLE_40 0x00040000u       /* handle40 counts */
#define VELMORA_PRINT_HANDLE_44 0x00080000u       /* handle44 counts */
#define VELMORA_PRINT_VALUE_48 0x00100000u        /* value48, value52, value56 count */
#define VELMORA_PRINT_PROGRESS 0x00800000u        /* progress, progressValue count */
#define VELMORA_PRINT_FLAGS_RESERVED 0xFF000000u

/* Print record of PrintVelmoraDocumentEx. Accepted sizes:
   VELMORA_PRINT_INFO_SIZE_V1 to V4. */
typedef struct VelmoraPrintInfo {
    WORD size;
    WORD reserved;
    HWND owner;                 /* owner of any dialog, or NULL */
    LPCVOID document;           /* code-page path, or with VELMORA_PRINT_TIFF_DOCUMENT an open TIFF document */
    DWORD rangeCount;           /* 0: the whole document */
    const VelmoraPageRange *ranges; /* rangeCount ranges; 0 in any is 87 */
    HWND progressWindow;        /* receives progress messages while printing, or NULL */
    /* -- end of version 1 (24 bytes) */
    DWORD flags;                /* VELMORA_PRINT_... */
    /* -- end of version 2 (28 bytes) */
    DWORD value28;              /* print options of the viewer (fit, scale, ...) */
    WORD value32;
    WORD rotation;              /* 0, 90, 180 or 270 */
    DWORD viewerOptions;
    HANDLE handle40;
    HANDLE handle44;
    DWORD value48;              /* 4 or 8 */
    DWORD value52;
    DWORD value56;
    /* -- end of version 3 (60 bytes) */
    VelmoraProgressProc progress; /* may be NULL */
    UINT_PTR progressValue;     /* passed to progress */
    /* -- end of version 4 (68 bytes) */
} VelmoraPrintInfo;

#define VELMORA_PRINT_INFO_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraPrintInfo, progressWindow)
#define VELMORA_PRINT_INFO_SIZE_V2 VELMORA_SIZE_THROUGH(VelmoraPrintInfo, flags)
#define VELMORA_PRINT_INFO_SIZE_V3 VELMORA_SIZE_THROUGH(VelmoraPrintInfo, value56)
#define VELMORA_PRINT_INFO_SIZE_V4 VELMORA_SIZE_THROUGH(VelmoraPrintInfo, progressValue)

/* Page-setup record of VelmoraPageSetup. */
typedef struct VelmoraPageSetupInfo {
    WORD size;                  /* VELMORA_PAGE_SETUP_INFO_SIZE_V1 */
    WORD reserved;
    DWORD unit;                 /* 4 or 8 */
    DWORD values[6];            /* page and margin values in that unit */
} VelmoraPageSetupInfo;

#define VELMORA_PAGE_SETUP_INFO_SIZE_V1 VELMORA_SIZE_THROUGH(VelmoraPageSetupInfo, values)

/*
 * PrintVelmoraDocument — prints pages of a TIFF document (a code-page path)
 * with the viewer's print dialog owned by `window` (may be NULL).
 * rangeCount 0 prints the whole document; ranges may then be NULL.
 * Returns 1 when printed, or 0 (see PrintVelmoraDocumentEx).
 */
VELMORA_EXPORT BOOL VELMORA_API PrintVelmoraDocument(HWND window, LPCSTR document, DWORD rangeCount,
                                                     const VelmoraPageRange *ranges);

/*
 * PrintVelmoraDocumentEx — prints a document as the VelmoraPrintInfo record
 * describes. Checks, in field order: 87 bad size, flags or values (a 0 in a
 * page range, a rotation that is not a multiple of 90 up to 270), 1400 an
 * owner that is not a window, 6 a document handle that is not one, 998 an
 * unreadable path, range list or callback. Errors of loading and printing
 * pass through. Returns 1 when printed, or 0. Linux: 120 after the checks.
 */
VELMORA_EXPORT BOOL VELMORA_API PrintVelmoraDocumentEx(const VelmoraPrintInfo *info);

/*
 * VelmoraPageSetup — shows the viewer's page-setup dialog owned by `window`
 * with the record's values. The record must be writable (998), its size
 * VELMORA_PAGE_SETUP_INFO_SIZE_V1 and its unit 4 or 8 (87): these checks
 * return 0. After them the result is always 1: when the user confirms, the
 * unit and the six values are written back; when the dialog is cancelled
 * or fails, the record is unchanged. Linux: 120 after the checks.
 */
VELMORA_EXPORT BOOL VELMORA_API VelmoraPageSetup(HWND window, VelmoraPageSetupInfo *setup);

/* ======================================================================
 * Entry points present for completeness only. Each sets the last error to
 * 120 (not implemented) without initialising the library and returns the
 * value noted: 0 unless said otherwise. DestroyVelmoraBookmarks and
 * DestroyVelmoraScanInfo initialise the library first.
 * ====================================================================== */
VELMORA_EXPORT BOOL VELMORA_API AppendVelmoraOpenFileTIFF(HGLOBAL file, HGLOBAL dib);
VELMORA_EXPORT BOOL VELMORA_API AppendVelmoraOpenFileTIFFIFD(HGLOBAL file, HGLOBAL tiff, DWORD ifd, DWORD flags, UINT_PTR reserved1, UINT_PTR reserved2);
VELMORA_EXPORT BOOL VELMORA_API AppendVelmoraOpenFileTIFFIFDEx(HGLOBAL file, HGLOBAL tiff, DWORD ifd, DWORD flags, UINT_PTR reserved1, UINT_PTR reserved2, VelmoraProgressProc progress, UINT_PTR user);
VELMORA_EXPORT BOOL VELMORA_API ChangeVelmoraBookmark(HGLOBAL bookmarks, LONG index, LPCWSTR text, DWORD page, UINT_PTR data);
VELMORA_EXPORT BOOL VELMORA_API CloseMemoryVelmoraFile(HGLOBAL file, HGLOBAL *memory, DWORD *size);
VELMORA_EXPORT BOOL VELMORA_API CloseVelmoraDICOM(HGLOBAL dicom);
VELMORA_EXPORT BOOL VELMORA_API CloseVelmoraFile(HGLOBAL file);
VELMORA_EXPORT BOOL VELMORA_API CloseVelmoraScanner(HGLOBAL scanner);
VELMORA_EXPORT BOOL VELMORA_API CloseVelmoraZEPXConnection(HGLOBAL connection, DWORD flags);
VELMORA_EXPORT BOOL VELMORA_API CompactVelmoraPDF(HGLOBAL pdf);
VELMORA_EXPORT HGLOBAL VELMORA_API CopyVelmoraJPEGProgress(HGLOBAL jpeg, LPCRECT rect, DWORD flags, VelmoraProgressProc progress, UINT_PTR user);
VELMORA_EXPORT BOOL VELMORA_API CreateMultilayerTIFF(LPCSTR path, HGLOBAL dib, HGLOBAL layers, DWORD flags);
VELMORA_EXPORT HGLOBAL VELMORA_API CreateVelmoraBookmarks(void);
VELMORA_EXPORT HGLOBAL VELMORA_API CreateVelmoraFile(LPCSTR path, DWORD flags);
VELMORA_EXPORT HWND VELMORA_API CreateVelmoraPasteboard(HWND parent, DWORD style, LONG x, LONG y, LONG width, LONG height, UINT_PTR id, DWORD flags, UINT_PTR reserved1, UINT_PTR reserved2);
VELMORA_EXPORT HGLOBAL VELMORA_API CreateVelmoraZEPXConnection(LPCSTR address);
VELMORA_EXPORT BOOL VELMORA_API DeleteVelmoraBookmark(HGLOBAL bookmarks, LONG index);
VELMORA_EXPORT BOOL VELMORA_API DestroyVelmoraBarcodes(HGLOBAL barcodes);
VELMORA_EXPORT BOOL VELMORA_API DestroyVelmoraBookmarks(HGLOBAL bookmarks);
VELMORA_EXPORT BOOL VELMORA_API DestroyVelmoraScanInfo(HGLOBAL scanInfo);
VELMORA_EXPORT HGLOBAL VELMORA_API FindVelmoraBarcodes(HGLOBAL dib, LPCRECT rect, DWORD types, DWORD directions, DWORD flags, DWORD minLength, DWORD maxLength, VelmoraProgressProc progress, UINT_PTR user);
VELMORA_EXPORT HGLOBAL VELMORA_API FindVelmoraBarcodesEx(HGLOBAL dib, const void *options, DWORD flags);
/* Returns the 8-bit value 2. */
VELMORA_EXPORT BYTE VELMORA_API FindVelmoraJobSeparator(HGLOBAL dib, DWORD flags);
/* Returns 2. */
VELMORA_EXPORT LONG VELMORA_API FindVelmoraJobSeparatorBarcodes(HGLOBAL dib, LPCRECT rect, DWORD flags, VelmoraProgressProc progress, UINT_PTR user);
VELMORA_EXPORT BOOL VELMORA_API GetLastVelmoraErrorMessage(LPSTR buffer, DWORD size);
/* Returns -2. */
VELMORA_EXPORT LONG VELMORA_API GetNextVelmoraBookmark(HGLOBAL bookmarks, LONG index);
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraAnnotationGroups(HGLOBAL annotations, LONG index, LPWSTR buffer, DWORD size);
/* Returns -1. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraAnnotationText(HGLOBAL annotations, LONG index, DWORD flags, LPWSTR buffer, DWORD size);
/* Returns -1. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraBarcodeCount(HGLOBAL barcodes);
VELMORA_EXPORT DWORD VELMORA_API GetVelmoraBarcodeDirection(HGLOBAL barcodes, LONG index);
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraBarcodeRect(HGLOBAL barcodes, LONG index, LPRECT rect);
/* Returns -1. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraBarcodeText(HGLOBAL barcodes, LONG index, LPSTR buffer, DWORD size);
VELMORA_EXPORT DWORD VELMORA_API GetVelmoraBarcodeType(HGLOBAL barcodes, LONG index);
/* Returns -2. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraBookmarkChild(HGLOBAL bookmarks, LONG index);
/* Returns -1. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraBookmarkCount(HGLOBAL bookmarks);
VELMORA_EXPORT UINT_PTR VELMORA_API GetVelmoraBookmarkData(HGLOBAL bookmarks, LONG index);
/* Returns -1. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraBookmarkPageNo(HGLOBAL bookmarks, LONG index);
/* Returns -2. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraBookmarkParent(HGLOBAL bookmarks, LONG index);
/* Returns -1. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraBookmarkText(HGLOBAL bookmarks, LONG index, DWORD flags, LPWSTR buffer, DWORD size);
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraDICOMData(HGLOBAL dicom, DWORD group, DWORD element, DWORD index, LPVOID buffer, DWORD size, DWORD *needed);
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraDICOMInfo(HGLOBAL dicom, DWORD frame, LPVOID info, DWORD size);
VELMORA_EXPORT HGLOBAL VELMORA_API GetVelmoraExifInfo(HGLOBAL file);
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraExtensionFromID(DWORD documentType, LPSTR buffer, DWORD size);
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraImageSize(LPCSTR path, DWORD page, LONG *width, LONG *height);
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraNoLocalOpenFileName(LPVOID openFileName);
VELMORA_EXPORT BOOL VELMORA_API GetVelmoraNoLocalSaveFileName(LPVOID openFileName);
/* Returns -1. */
VELMORA_EXPORT LONG VELMORA_API GetVelmoraOCRTextText(HGLOBAL text, LONG index, DWORD flags, LPWSTR buffer, DWORD size);
VELMORA_EXPORT HGLOBAL VELMORA_API GetVelmoraTIFFDocumentBookmarks(HGLOBAL document);
VELMORA_EXPORT HGLOBAL VELMORA_API GetVelmoraTIFFOCRTextEx(const void *request);
VELMORA_EXPORT HGLOBAL VELMORA_API GetVelmoraZEPXFullImage(HGLOBAL connection, LPCSTR name, DWORD page, VelmoraProgressProc progress, UINT_PTR user);
VELMORA_EXPORT BOOL VELMORA_API InsertVelmoraBookmark(HGLOBAL bookmarks, LONG parent, LPCWSTR text, DWORD page, UINT_PTR data);
VELMORA_EXPORT BOOL VELMORA_API IsVelmoraODMAAvailable(void);
VELMORA_EXPORT BOOL VELMORA_API IsVelmoraTRIMAvailable(DWORD flags);
VELMORA_EXPORT HGLOBAL VELMORA_API LoadVelmoraAnnotations(LPCSTR path, DWORD page, DWORD flags, UINT_PTR reserved);
VELMORA_EXPORT HGLOBAL VELMORA_API LoadVelmoraBookmarks(LPCSTR path);
VELMORA_EXPORT HGLOBAL VELMORA_API OCRVelmoraDIB(HGLOBAL dib, LPCRECT rect, DWORD language, DWORD flags, VelmoraProgressProc progress, UINT_PTR user, UINT_PTR reserved);
VELMORA_EXPORT HGLOBAL VELMORA_API OCRVelmoraTIFFEx(const void *request);
VELMORA_EXPORT HGLOBAL VELMORA_API OpenVelmoraBriskVeilFile(LPCSTR path, LPCSTR password, DWORD flags);
VELMORA_EXPORT HGLOBAL VELMORA_API OpenVelmoraDICOM(LPCSTR path);
VELMORA_EXPORT HGLOBAL VELMORA_API OpenVelmoraJPEG(LPCSTR path);
/* Returns -1. */
VELMORA_EXPORT LONG VELMORA_API OpenVelmoraZEPXConnection(HGLOBAL connection, LPCSTR user, LPCSTR password, DWORD flags, UINT_PTR reserved);
VELMORA_EXPORT HGLOBAL VELMORA_API ReadVelmoraDICOMDIB(HGLOBAL dicom, DWORD frame, VelmoraProgressProc progress, UINT_PTR user);
VELMORA_EXPORT BOOL VELMORA_API ReadVelmoraExifData(HGLOBAL exif, LPVOID buffer, DWORD size);
/* Returns -1. */
VELMORA_EXPORT LONG VELMORA_API ReadVelmoraOpenTIFFASCIITag(HGLOBAL tiff, DWORD page, DWORD tag, LPSTR buffer, DWORD size);
VELMORA_EXPORT BOOL VELMORA_API SaveRestoreVelmoraScan(HWND window, DWORD flags, LPVOID data, DWORD size);
VELMORA_EXPORT BOOL VELMORA_API SaveVelmoraAnnotations(LPCSTR path, DWORD page, HGLOBAL annotations, DWORD flags);
VELMORA_EXPORT BOOL VELMORA_API SaveVelmoraBookmarks(HGLOBAL bookmarks, LPCSTR path);
VELMORA_EXPORT BOOL VELMORA_API SaveVelmoraBookmarksFile(HGLOBAL bookmarks, LPCSTR path);
VELMORA_EXPORT BOOL VELMORA_API SaveVelmoraFileBookmarks(HGLOBAL file, HGLOBAL bookmarks);
VELMORA_EXPORT BOOL VELMORA_API SaveVelmoraTIFFDIB(LPCSTR path, HGLOBAL dib, DWORD flags);
/* Returns 120, the error code itself. */
VELMORA_EXPORT DWORD VELMORA_API SetVelmoraAnnotationGroups(HGLOBAL annotations, LONG index, LPCWSTR groups, DWORD flags);
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraExemptionCodes(LPCSTR path);
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraOCREngine(DWORD engine);
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraPDFOptions(const void *options);
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraPDFPageAnnotations(HGLOBAL pdf, DWORD page, HGLOBAL annotations, DWORD flags);
VELMORA_EXPORT BOOL VELMORA_API SetVelmoraTempPath(LPCSTR path);
VELMORA_EXPORT HGLOBAL VELMORA_API VelmoraScan(HWND window, DWORD source, DWORD flags, DWORD resolution, DWORD colorType, VelmoraProgressProc progress, UINT_PTR user, UINT_PTR reserved);
VELMORA_EXPORT BOOL VELMORA_API VelmoraStampAdmin(HWND window);
VELMORA_EXPORT BOOL VELMORA_API VelmoraViewCertificate(HWND window, HGLOBAL pdf);


#ifdef __cplusplus
}
#endif

#endif /* VELMORA_H */
