/*
 * velmora/wintypes.h — the Win32 vocabulary of the Velmora interface.
 *
 * On Windows this simply includes <windows.h>. Elsewhere it defines the
 * handful of Win32 types, constants and memory functions that the Velmora
 * interface uses, so that host code written for Windows compiles unchanged:
 *
 *   - every handle, window and pointer-carrying value is pointer-sized;
 *   - WCHAR is a 16-bit UTF-16 code unit (char16_t in C++), never wchar_t;
 *   - narrow strings are UTF-8;
 *   - memory blocks handed across the interface are "global memory" handles.
 *     The library keeps them in a handle table with the Windows contract:
 *     GlobalAlloc / GlobalReAlloc / GlobalLock / GlobalUnlock / GlobalSize /
 *     GlobalFlags / GlobalFree, lock counts, GMEM_MOVEABLE, GMEM_ZEROINIT.
 *     A handle is an opaque 32-bit value; a freed or never-issued handle is
 *     always reported invalid (error 6), never dereferenced. Every block is
 *     moveable: use GlobalLock to reach its bytes, also for GMEM_FIXED.
 *
 * The memory and last-error functions are exported by the library as
 * VelmoraGlobalAlloc ... VelmoraSetLastError. Unless VELMORA_NO_WIN32_NAMES is
 * defined, inline functions with the Win32 names forward to them.
 */
#ifndef VELMORA_WINTYPES_H
#define VELMORA_WINTYPES_H

#if defined(_WIN32)

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#include <objidl.h>
#include <objbase.h>
#include <olectl.h>

#else /* not Windows */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef __stdcall
#define __stdcall
#endif
#ifndef WINAPI
#define WINAPI
#endif
#ifndef CALLBACK
#define CALLBACK
#endif

typedef int BOOL;
typedef unsigned char BYTE;
typedef unsigned short WORD;
typedef uint32_t DWORD;
typedef unsigned int UINT;
typedef int INT;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef short SHORT;
typedef unsigned short USHORT;
typedef char CHAR;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef uint64_t DWORD64;
typedef float FLOAT;
typedef void VOID;
typedef int32_t HRESULT;
typedef uint16_t LANGID;
typedef uint16_t ATOM;
typedef DWORD COLORREF;

#ifdef __cplusplus
typedef char16_t WCHAR;
#else
typedef uint16_t WCHAR;
#endif

typedef intptr_t INT_PTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t ULONG_PTR;
typedef uintptr_t DWORD_PTR;
typedef size_t SIZE_T;

typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;

typedef BYTE *LPBYTE;
typedef WORD *LPWORD;
typedef DWORD *LPDWORD;
typedef LONG *LPLONG;
typedef BOOL *LPBOOL;
typedef INT *LPINT;
typedef UINT *LPUINT;
typedef void *LPVOID;
typedef const void *LPCVOID;
typedef CHAR *LPSTR;
typedef const CHAR *LPCSTR;
typedef WCHAR *LPWSTR;
typedef const WCHAR *LPCWSTR;

/* Handles: opaque, pointer-sized. */
typedef void *HANDLE;
typedef HANDLE HGLOBAL;
typedef HANDLE HLOCAL;
#define VELMORA_DECLARE_HANDLE(name) struct name##__ { int unused; }; typedef struct name##__ *name
VELMORA_DECLARE_HANDLE(HWND);
VELMORA_DECLARE_HANDLE(HINSTANCE);
VELMORA_DECLARE_HANDLE(HDC);
VELMORA_DECLARE_HANDLE(HPALETTE);
VELMORA_DECLARE_HANDLE(HBITMAP);
VELMORA_DECLARE_HANDLE(HMENU);
VELMORA_DECLARE_HANDLE(HICON);
VELMORA_DECLARE_HANDLE(HFONT);
VELMORA_DECLARE_HANDLE(HKEY);
typedef HINSTANCE HMODULE;
typedef INT_PTR (*FARPROC)(void);
typedef LRESULT (*WNDPROC)(HWND, UINT, WPARAM, LPARAM);

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#ifndef MAX_PATH
#define MAX_PATH 260
#endif

typedef struct tagPOINT { LONG x; LONG y; } POINT, *LPPOINT;
typedef struct tagSIZE { LONG cx; LONG cy; } SIZE, *LPSIZE;
typedef struct tagRECT { LONG left; LONG top; LONG right; LONG bottom; } RECT, *LPRECT;
typedef const RECT *LPCRECT;

typedef struct tagRGBQUAD {
    BYTE rgbBlue;
    BYTE rgbGreen;
    BYTE rgbRed;
    BYTE rgbReserved;
} RGBQUAD;

typedef struct tagBITMAPINFOHEADER {
    DWORD biSize;
    LONG biWidth;
    LONG biHeight;
    WORD biPlanes;
    WORD biBitCount;
    DWORD biCompression;
    DWORD biSizeImage;
    LONG biXPelsPerMeter;
    LONG biYPelsPerMeter;
    DWORD biClrUsed;
    DWORD biClrImportant;
} BITMAPINFOHEADER, *LPBITMAPINFOHEADER;

typedef struct tagBITMAPINFO {
    BITMAPINFOHEADER bmiHeader;
    RGBQUAD bmiColors[1];
} BITMAPINFO, *LPBITMAPINFO;

#pragma pack(push, 2)
typedef struct tagBITMAPFILEHEADER {
    WORD bfType;
    DWORD bfSize;
    WORD bfReserved1;
    WORD bfReserved2;
    DWORD bfOffBits;
} BITMAPFILEHEADER;
#pragma pack(pop)

#define BI_RGB 0
#define BI_RLE8 1
#define BI_RLE4 2
#define BI_BITFIELDS 3

typedef struct _SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME, *LPSYSTEMTIME;

typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *LPFILETIME;

typedef struct _GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
} GUID, IID, CLSID;
#ifdef __cplusplus
#define REFGUID const GUID &
#define REFIID const IID &
#define REFCLSID const CLSID &
#else
#define REFGUID const GUID *
#define REFIID const IID *
#define REFCLSID const CLSID *
#endif

#ifndef VELMORA_HAVE_VARIANT
#define VELMORA_HAVE_VARIANT
#if defined(__GNUC__)
#define VELMORA_NAMELESS __extension__
#else
#define VELMORA_NAMELESS
#endif
typedef unsigned short VARTYPE;
typedef short VARIANT_BOOL;
/* On Linux a BSTR is a NUL-terminated UTF-16 string; the library never
   reads a length prefix in front of it. */
typedef WCHAR *BSTR;
/* The automation variant with its Windows layout: 16 bytes on a 32-bit
   target, 24 on a 64-bit one. */
typedef struct tagVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    VELMORA_NAMELESS union {
        LONGLONG llVal;
        LONG lVal;
        BYTE bVal;
        SHORT iVal;
        FLOAT fltVal;
        double dblVal;
        VARIANT_BOOL boolVal;
        BSTR bstrVal;
        CHAR cVal;
        USHORT uiVal;
        ULONG ulVal;
        INT intVal;
        UINT uintVal;
        struct {
            void *pvRecord;
            void *pRecInfo;
        } brecVal;
    };
} VARIANT;
#define VT_EMPTY 0
#define VT_I2 2
#define VT_I4 3
#define VT_BSTR 8
#define VT_BOOL 11
#define VT_UI1 17
#define VARIANT_TRUE ((VARIANT_BOOL)-1)
#define VARIANT_FALSE ((VARIANT_BOOL)0)
#endif /* VELMORA_HAVE_VARIANT */
#ifndef GENERIC_READ
#define GENERIC_READ 0x80000000u
#endif
#ifndef GENERIC_WRITE
#define GENERIC_WRITE 0x40000000u
#endif
#ifndef WS_CHILD
#define WS_CHILD 0x40000000L
#endif
#ifndef WS_VISIBLE
#define WS_VISIBLE 0x10000000L
#endif

/* A component-object-model stream exists only on Windows; elsewhere the type
   is opaque and the functions that take one refuse it. */
typedef struct IStream IStream;
typedef IStream *LPSTREAM;

/* Result codes of the component-server entry points. */
#define S_OK ((HRESULT)0)
#define S_FALSE ((HRESULT)1)
#define E_UNEXPECTED ((HRESULT)0x8000FFFFL)
#define CLASS_E_CLASSNOTAVAILABLE ((HRESULT)0x80040111L)

/* Global memory flags, with their Windows values. */
#define GMEM_FIXED 0x0000u
#define GMEM_MOVEABLE 0x0002u
#define GMEM_NOCOMPACT 0x0010u
#define GMEM_NODISCARD 0x0020u
#define GMEM_ZEROINIT 0x0040u
#define GMEM_MODIFY 0x0080u
#define GMEM_DISCARDABLE 0x0100u
#define GMEM_NOT_BANKED 0x1000u
#define GMEM_SHARE 0x2000u
#define GMEM_DDESHARE 0x2000u
#define GMEM_DISCARDED 0x4000u
#define GMEM_INVALID_HANDLE 0x8000u
#define GMEM_LOCKCOUNT 0x00FFu
#define GHND (GMEM_MOVEABLE | GMEM_ZEROINIT)
#define GPTR (GMEM_FIXED | GMEM_ZEROINIT)

/* The Win32 error codes the interface documents most often. */
#define ERROR_SUCCESS 0L
#define NO_ERROR 0L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_PATH_NOT_FOUND 3L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_INVALID_HANDLE 6L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_OUTOFMEMORY 14L
#define ERROR_SHARING_VIOLATION 32L
#define ERROR_HANDLE_EOF 38L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_CALL_NOT_IMPLEMENTED 120L
#define ERROR_INSUFFICIENT_BUFFER 122L
#define ERROR_MOD_NOT_FOUND 126L
#define ERROR_PROC_NOT_FOUND 127L
#define ERROR_NOT_LOCKED 158L
#define ERROR_BAD_ARGUMENTS 160L
#define ERROR_ALREADY_EXISTS 183L
#define ERROR_NOACCESS 998L
#define ERROR_DLL_NOT_FOUND 1157L
#define ERROR_CANCELLED 1223L
#define ERROR_INVALID_WINDOW_HANDLE 1400L

#if defined(__GNUC__)
#define VELMORA_WINTYPES_IMPORT __attribute__((visibility("default")))
#else
#define VELMORA_WINTYPES_IMPORT
#endif

/* The library's global-memory handle table. */
VELMORA_WINTYPES_IMPORT HGLOBAL VelmoraGlobalAlloc(UINT flags, SIZE_T bytes);
VELMORA_WINTYPES_IMPORT HGLOBAL VelmoraGlobalReAlloc(HGLOBAL mem, SIZE_T bytes, UINT flags);
VELMORA_WINTYPES_IMPORT LPVOID VelmoraGlobalLock(HGLOBAL mem);
VELMORA_WINTYPES_IMPORT BOOL VelmoraGlobalUnlock(HGLOBAL mem);
VELMORA_WINTYPES_IMPORT SIZE_T VelmoraGlobalSize(HGLOBAL mem);
VELMORA_WINTYPES_IMPORT UINT VelmoraGlobalFlags(HGLOBAL mem);
VELMORA_WINTYPES_IMPORT HGLOBAL VelmoraGlobalFree(HGLOBAL mem);
/* The calling thread's system last error. */
VELMORA_WINTYPES_IMPORT DWORD VelmoraGetLastError(void);
VELMORA_WINTYPES_IMPORT void VelmoraSetLastError(DWORD code);

#ifndef VELMORA_NO_WIN32_NAMES
static inline HGLOBAL GlobalAlloc(UINT flags, SIZE_T bytes) { return VelmoraGlobalAlloc(flags, bytes); }
static inline HGLOBAL GlobalReAlloc(HGLOBAL mem, SIZE_T bytes, UINT flags) { return VelmoraGlobalReAlloc(mem, bytes, flags); }
static inline LPVOID GlobalLock(HGLOBAL mem) { return VelmoraGlobalLock(mem); }
static inline BOOL GlobalUnlock(HGLOBAL mem) { return VelmoraGlobalUnlock(mem); }
static inline SIZE_T GlobalSize(HGLOBAL mem) { return VelmoraGlobalSize(mem); }
static inline UINT GlobalFlags(HGLOBAL mem) { return VelmoraGlobalFlags(mem); }
static inline HGLOBAL GlobalFree(HGLOBAL mem) { return VelmoraGlobalFree(mem); }
static inline DWORD GetLastError(void) { return VelmoraGetLastError(); }
static inline void SetLastError(DWORD code) { VelmoraSetLastError(code); }
#endif

#ifdef __cplusplus
}
#endif

#endif /* not Windows */
#endif /* VELMORA_WINTYPES_H */
