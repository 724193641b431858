// Entry points that keep the interface complete in this edition: each sets
// the last error to 120 (not implemented) and returns its fixed value. Only
// DestroyVelmoraBookmarks and DestroyVelmoraScanInfo initialise the library
// first.
#include "frame/error_record.h"
#include "frame/library.h"
#include "velmora/velmora.h"

namespace {

constexpr uint32_t kNotImplemented = velmora::kErrCallNotImplemented;

template <typename T>
T NotImplemented(T result) {
    velmora::SetErrorCode(kNotImplemented);
    return result;
}

template <typename T>
T GatedNotImplemented(T result) {
    if (!velmora::EnsureLibraryInitialized()) return T();
    return NotImplemented(result);
}

}  // namespace

BOOL VELMORA_API AppendVelmoraOpenFileTIFF(HGLOBAL, HGLOBAL) { return NotImplemented(BOOL()); }

BOOL VELMORA_API AppendVelmoraOpenFileTIFFIFD(HGLOBAL, HGLOBAL, DWORD, DWORD, UINT_PTR, UINT_PTR) {
    return NotImplemented(BOOL());
}

BOOL VELMORA_API AppendVelmoraOpenFileTIFFIFDEx(HGLOBAL, HGLOBAL, DWORD, DWORD, UINT_PTR, UINT_PTR, VelmoraProgressProc,
                                                UINT_PTR) {
    return NotImplemented(BOOL());
}

BOOL VELMORA_API ChangeVelmoraBookmark(HGLOBAL, LONG, LPCWSTR, DWORD, UINT_PTR) { return NotImplemented(BOOL()); }

BOOL VELMORA_API CloseMemoryVelmoraFile(HGLOBAL, HGLOBAL *, DWORD *) { return NotImplemented(BOOL()); }

BOOL VELMORA_API CloseVelmoraDICOM(HGLOBAL) { return NotImplemented(BOOL()); }

BOOL VELMORA_API CloseVelmoraFile(HGLOBAL) { return NotImplemented(BOOL()); }

BOOL VELMORA_API CloseVelmoraScanner(HGLOBAL) { return NotImplemented(BOOL()); }

BOOL VELMORA_API CloseVelmoraZEPXConnection(HGLOBAL, DWORD) { return NotImplemented(BOOL()); }

BOOL VELMORA_API CompactVelmoraPDF(HGLOBAL) { return NotImplemented(BOOL()); }

HGLOBAL VELMORA_API CopyVelmoraJPEGProgress(HGLOBAL, LPCRECT, DWORD, VelmoraProgressProc, UINT_PTR) {
    return NotImplemented(static_cast<HGLOBAL>(nullptr));
}

BOOL VELMORA_API CreateMultilayerTIFF(LPCSTR, HGLOBAL, HGLOBAL, DWORD) { return NotImplemented(BOOL()); }

HGLOBAL VELMORA_API CreateVelmoraBookmarks(void) { return NotImplemented(static_cast<HGLOBAL>(nullptr)); }

HGLOBAL VELMORA_API CreateVelmoraFile(LPCSTR, DWORD) { return NotImplemented(static_cast<HGLOBAL>(nullptr)); }

HWND VELMORA_API CreateVelmoraPasteboard(HWND, DWORD, LONG, LONG, LONG, LONG, UINT_PTR, DWORD, UINT_PTR, UINT_PTR) {
    return NotImplemented(static_cast<HWND>(nullptr));
}

HGLOBAL VELMORA_API CreateVelmoraZEPXConnection(LPCSTR) { return NotImplemented(static_cast<HGLOBAL>(nullptr)); }

BOOL VELMORA_API DeleteVelmoraBookmark(HGLOBAL, LONG) { return NotImplemented(BOOL()); }

BOOL VELMORA_API DestroyVelmoraBarcodes(HGLOBAL) { return NotImplemented(BOOL()); }

BOOL VELMORA_API DestroyVelmoraBookmarks(HGLOBAL) { return GatedNotImplemented(BOOL()); }

BOOL VELMORA_API DestroyVelmoraScanInfo(HGLOBAL) { return GatedNotImplemented(BOOL()); }

HGLOBAL VELMORA_API FindVelmoraBarcodes(HGLOBAL, LPCRECT, DWORD, DWORD, DWORD, DWORD, DWORD, VelmoraProgressProc,
                                        UINT_PTR) {
    return NotImplemented(static_cast<HGLOBAL>(nullptr));
}

HGLOBAL VELMORA_API FindVelmoraBarcodesEx(HGLOBAL, const void *, DWORD) {
    return NotImplemented(static_cast<HGLOBAL>(nullptr));
}

BYTE VELMORA_API FindVelmoraJobSeparator(HGLOBAL, DWORD) { return NotImplemented(static_cast<BYTE>(2)); }

LONG VELMORA_API FindVelmoraJobSeparatorBarcodes(HGLOBAL, LPCRECT, DWORD, VelmoraProgressProc, UINT_PTR) {
    return NotImplemented(static_cast<LONG>(2));
}

BOOL VELMORA_API GetLastVelmoraErrorMessage(LPSTR, DWORD) { return NotImplemented(BOOL()); }

LONG VELMORA_API GetNextVelmoraBookmark(HGLOBAL, LONG) { return NotImplemented(static_cast<LONG>(-2)); }

BOOL VELMORA_API GetVelmoraAnnotationGroups(HGLOBAL, LONG, LPWSTR, DWORD) { return NotImplemented(BOOL()); }

LONG VELMORA_API GetVelmoraAnnotationText(HGLOBAL, LONG, DWORD, LPWSTR, DWORD) {
    return NotImplemented(static_cast<LONG>(-1));
}

LONG VELMORA_API GetVelmoraBarcodeCount(HGLOBAL) { return NotImplemented(static_cast<LONG>(-1)); }

DWORD VELMORA_API GetVelmoraBarcodeDirection(HGLOBAL, LONG) { return NotImplemented(DWORD()); }

BOOL VELMORA_API GetVelmoraBarcodeRect(HGLOBAL, LONG, LPRECT) { return NotImplemented(BOOL()); }

LONG VELMORA_API GetVelmoraBarcodeText(HGLOBAL, LONG, LPSTR, DWORD) { return NotImplemented(static_cast<LONG>(-1)); }

DWORD VELMORA_API GetVelmoraBarcodeType(HGLOBAL, LONG) { return NotImplemented(DWORD()); }

LONG VELMORA_API GetVelmoraBookmarkChild(HGLOBAL, LONG) { return NotImplemented(static_cast<LONG>(-2)); }

LONG VELMORA_API GetVelmoraBookmarkCount(HGLOBAL) { return NotImplemented(static_cast<LONG>(-1)); }

UINT_PTR VELMORA_API GetVelmoraBookmarkData(HGLOBAL, LONG) { return NotImplemented(UINT_PTR()); }

LONG VELMORA_API GetVelmoraBookmarkPageNo(HGLOBAL, LONG) { return NotImplemented(static_cast<LONG>(-1)); }

LONG VELMORA_API GetVelmoraBookmarkParent(HGLOBAL, LONG) { return NotImplemented(static_cast<LONG>(-2)); }

LONG VELMORA_API GetVelmoraBookmarkText(HGLOBAL, LONG, DWORD, LPWSTR, DWORD) {
    return NotImplemented(static_cast<LONG>(-1));
}

BOOL VELMORA_API GetVelmoraDICOMData(HGLOBAL, DWORD, DWORD, DWORD, LPVOID, DWORD, DWORD *) {
    return NotImplemented(BOOL());
}

BOOL VELMORA_API GetVelmoraDICOMInfo(HGLOBAL, DWORD, LPVOID, DWORD) { return NotImplemented(BOOL()); }

HGLOBAL VELMORA_API GetVelmoraExifInfo(HGLOBAL) { return NotImplemented(static_cast<HGLOBAL>(nullptr)); }

BOOL VELMORA_API GetVelmoraExtensionFromID(DWORD, LPSTR, DWORD) { return NotImplemented(BOOL()); }

BOOL VELMORA_API GetVelmoraImageSize(LPCSTR, DWORD, LONG *, LONG *) { return NotImplemented(BOOL()); }

BOOL VELMORA_API GetVelmoraNoLocalOpenFileName(LPVOID) { return NotImplemented(BOOL()); }

BOOL VELMORA_API GetVelmoraNoLocalSaveFileName(LPVOID) { return NotImplemented(BOOL()); }

LONG VELMORA_API GetVelmoraOCRTextText(HGLOBAL, LONG, DWORD, LPWSTR, DWORD) {
    return NotImplemented(static_cast<LONG>(-1));
}

HGLOBAL VELMORA_API GetVelmoraTIFFDocumentBookmarks(HGLOBAL) { return NotImplemented(static_cast<HGLOBAL>(nullptr)); }

HGLOBAL VELMORA_API GetVelmoraTIFFOCRTextEx(const void *) { return NotImplemented(static_cast<HGLOBAL>(nullptr)); }

HGLOBAL VELMORA_API GetVelmoraZEPXFullImage(HGLOBAL, LPCSTR, DWORD, VelmoraProgressProc, UINT_PTR) {
    return NotImplemented(static_cast<HGLOBAL>(nullptr));
}

BOOL VELMORA_API InsertVelmoraBookmark(HGLOBAL, LONG, LPCWSTR, DWORD, UINT_PTR) { return NotImplemented(BOOL()); }

BOOL VELMORA_API IsVelmoraODMAAvailable(void) { return NotImplemented(BOOL()); }

BOOL VELMORA_API IsVelmoraTRIMAvailable(DWORD) { return NotImplemented(BOOL()); }

HGLOBAL VELMORA_API LoadVelmoraAnnotations(LPCSTR, DWORD, DWORD, UINT_PTR) {
    return NotImplemented(static_cast<HGLOBAL>(nullptr));
}

HGLOBAL VELMORA_API LoadVelmoraBookmarks(LPCSTR) { return NotImplemented(static_cast<HGLOBAL>(nullptr)); }

HGLOBAL VELMORA_API OCRVelmoraDIB(HGLOBAL, LPCRECT, DWORD, DWORD, VelmoraProgressProc, UINT_PTR, UINT_PTR) {
    return NotImplemented(static_cast<HGLOBAL>(nullptr));
}

HGLOBAL VELMORA_API OCRVelmoraTIFFEx(const void *) { return NotImplemented(static_cast<HGLOBAL>(nullptr)); }

HGLOBAL VELMORA_API OpenVelmoraBriskVeilFile(LPCSTR, LPCSTR, DWORD) {
    return NotImplemented(static_cast<HGLOBAL>(nullptr));
}

HGLOBAL VELMORA_API OpenVelmoraDICOM(LPCSTR) { return NotImplemented(static_cast<HGLOBAL>(nullptr)); }

HGLOBAL VELMORA_API OpenVelmoraJPEG(LPCSTR) { return NotImplemented(static_cast<HGLOBAL>(nullptr)); }

LONG VELMORA_API OpenVelmoraZEPXConnection(HGLOBAL, LPCSTR, LPCSTR, DWORD, UINT_PTR) {
    return NotImplemented(static_cast<LONG>(-1));
}

HGLOBAL VELMORA_API ReadVelmoraDICOMDIB(HGLOBAL, DWORD, VelmoraProgressProc, UINT_PTR) {
    return NotImplemented(static_cast<HGLOBAL>(nullptr));
}

BOOL VELMORA_API ReadVelmoraExifData(HGLOBAL, LPVOID, DWORD) { return NotImplemented(BOOL()); }

LONG VELMORA_API ReadVelmoraOpenTIFFASCIITag(HGLOBAL, DWORD, DWORD, LPSTR, DWORD) {
    return NotImplemented(static_cast<LONG>(-1));
}

BOOL VELMORA_API SaveRestoreVelmoraScan(HWND, DWORD, LPVOID, DWORD) { return NotImplemented(BOOL()); }

BOOL VELMORA_API SaveVelmoraAnnotations(LPCSTR, DWORD, HGLOBAL, DWORD) { return NotImplemented(BOOL()); }

BOOL VELMORA_API SaveVelmoraBookmarks(HGLOBAL, LPCSTR) { return NotImplemented(BOOL()); }

BOOL VELMORA_API SaveVelmoraBookmarksFile(HGLOBAL, LPCSTR) { return NotImplemented(BOOL()); }

BOOL VELMORA_API SaveVelmoraFileBookmarks(HGLOBAL, HGLOBAL) { return NotImplemented(BOOL()); }

BOOL VELMORA_API SaveVelmoraTIFFDIB(LPCSTR, HGLOBAL, DWORD) { return NotImplemented(BOOL()); }

DWORD VELMORA_API SetVelmoraAnnotationGroups(HGLOBAL, LONG, LPCWSTR, DWORD) {
    return NotImplemented(static_cast<DWORD>(120));
}

BOOL VELMORA_API SetVelmoraExemptionCodes(LPCSTR) { return NotImplemented(BOOL()); }

BOOL VELMORA_API SetVelmoraOCREngine(DWORD) { return NotImplemented(BOOL()); }

BOOL VELMORA_API SetVelmoraPDFOptions(const void *) { return NotImplemented(BOOL()); }

BOOL VELMORA_API SetVelmoraPDFPageAnnotations(HGLOBAL, DWORD, HGLOBAL, DWORD) { return NotImplemented(BOOL()); }

BOOL VELMORA_API SetVelmoraTempPath(LPCSTR) { return NotImplemented(BOOL()); }

HGLOBAL VELMORA_API VelmoraScan(HWND, DWORD, DWORD, DWORD, DWORD, VelmoraProgressProc, UINT_PTR, UINT_PTR) {
    return NotImplemented(static_cast<HGLOBAL>(nullptr));
}

BOOL VELMORA_API VelmoraStampAdmin(HWND) { return NotImplemented(BOOL()); }

BOOL VELMORA_API VelmoraViewCertificate(HWND, HGLOBAL) { return NotImplemented(BOOL()); }
