// Exported functions of TIFF documents: opening a TIFF file or an open TIFF
// as a document, its page and IFD queries, and closing it.
#include <cstring>
#include <string>

#include "frame/export_call.h"
#include "frame/memory_handle.h"
#include "io/stream.h"
#include "frame/wide_text.h"
#include "platform/platform.h"
#include "tiff/document.h"
#include "tiff/page_writer.h"
#include "tiff/tiff_file.h"
#include "velmora/velmora.h"

using velmora::ExportCall;
using velmora::TiffDocument;
using velmora::TiffFile;

namespace {

constexpr WORD kOpenFlags =
    VELMORA_TIFF_DOCUMENT_WIDE_NAME | VELMORA_TIFF_DOCUMENT_COMPANION_REPLACE | VELMORA_TIFF_DOCUMENT_COMPANION_ADD;
constexpr WORD kCompanionFlags = VELMORA_TIFF_DOCUMENT_COMPANION_REPLACE | VELMORA_TIFF_DOCUMENT_COMPANION_ADD;

uint8_t CompanionMode(WORD flags) {
    if (flags & VELMORA_TIFF_DOCUMENT_COMPANION_REPLACE) return velmora::kCompanionReplace;
    if (flags & VELMORA_TIFF_DOCUMENT_COMPANION_ADD) return velmora::kCompanionAdd;
    return velmora::kCompanionWhereMissing;
}

}  // namespace

HGLOBAL VELMORA_API OpenVelmoraTIFFDocumentEx(const VelmoraOpenTIFFDocument* open) {
    ExportCall call;
    if (!call.Gate() || !call.Sized(open, {WORD{VELMORA_OPEN_TIFF_DOCUMENT_SIZE_V1}})) return nullptr;
    const WORD flags = open->flags;
    if (!call.Value((flags & ~kOpenFlags) == 0 && (flags & kCompanionFlags) != kCompanionFlags)) return nullptr;
    std::u16string wide;
    if (flags & VELMORA_TIFF_DOCUMENT_WIDE_NAME) {
        const char16_t* name = velmora::FromHost(static_cast<const WCHAR*>(open->name));
        if (!call.String(name)) return nullptr;
        wide = name;
    } else {
        if (!call.Widen(static_cast<const char*>(open->name), &wide)) {
            call.Finish();
            return nullptr;
        }
    }
    TiffDocument* document = velmora::OpenTiffDocumentFile(wide.c_str(), CompanionMode(flags), &call.record);
    if (!call.Finish()) return nullptr;
    return velmora::TiffDocumentHandle(document);
}

HGLOBAL VELMORA_API OpenVelmoraTIFFDocument(LPCSTR name) {
    VelmoraOpenTIFFDocument open = {};
    open.size = VELMORA_OPEN_TIFF_DOCUMENT_SIZE_V1;
    open.name = name;
    return OpenVelmoraTIFFDocumentEx(&open);
}

HGLOBAL VELMORA_API OpenVelmoraTIFFDocumentTIFF(HGLOBAL handle, LONG flags) {
    ExportCall call;
    TiffFile* tiff;
    if (!call.Gate() || (tiff = call.Object(handle, velmora::TiffFromHandle)) == nullptr) return nullptr;
    const bool own = (flags & VELMORA_TIFF_DOCUMENT_OWN_TIFF) != 0;
    TiffDocument* document = velmora::BuildTiffDocument(tiff, own, nullptr, &call.record);
    if (!call.Finish()) return nullptr;
    return velmora::TiffDocumentHandle(document);
}

BOOL VELMORA_API CloseVelmoraTIFFDocument(HGLOBAL handle) {
    ExportCall call;
    TiffDocument* document;
    if (!call.Gate() || (document = call.Object(handle, velmora::TiffDocumentFromHandle)) == nullptr) return 0;
    velmora::CloseTiffDocument(document, &call.record);
    return call.Finish();
}

HGLOBAL VELMORA_API GetVelmoraTIFFDocumentTIFF(HGLOBAL handle) {
    ExportCall call;
    TiffDocument* document;
    if (!call.Gate() || (document = call.Object(handle, velmora::TiffDocumentFromHandle)) == nullptr) return nullptr;
    return velmora::TiffHandle(document->tiff);
}

DWORD VELMORA_API GetVelmoraTIFFDocumentIFDCount(HGLOBAL handle) {
    ExportCall call;
    TiffDocument* document;
    if (!call.Gate() || (document = call.Object(handle, velmora::TiffDocumentFromHandle)) == nullptr) return 0;
    return document->rowCount;
}

LONG VELMORA_API GetVelmoraTIFFDocumentPageCount(HGLOBAL handle) {
    ExportCall call;
    TiffDocument* document;
    if (!call.Gate() || (document = call.Object(handle, velmora::TiffDocumentFromHandle)) == nullptr) return -1;
    return static_cast<LONG>(document->pageCount);
}

BOOL VELMORA_API GetVelmoraTIFFDocumentPageNumbersOK(HGLOBAL handle) {
    // Hosts call this right after a failed call and still expect to read
    // that failure: the thread's error from before the call becomes the
    // library's last error once the handle is accepted.
    const uint32_t earlier = velmora::platform::GetSystemError();
    ExportCall call;
    TiffDocument* document;
    if (!call.Gate() || (document = call.Object(handle, velmora::TiffDocumentFromHandle)) == nullptr) return 0;
    velmora::SetErrorCode(earlier);
    return (document->flags & velmora::kDocumentPageNumbersOk) != 0 ? -1 : 0;
}

BOOL VELMORA_API GetVelmoraTIFFDocumentIFDInfo(HGLOBAL handle, DWORD ifd, VelmoraTIFFDocumentIFDInfo* info) {
    ExportCall call;
    TiffDocument* document;
    DWORD size = 0;
    if (!call.Gate() || (document = call.Object(handle, velmora::TiffDocumentFromHandle)) == nullptr ||
        (size = call.Sized(info, {DWORD{VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V1},
                                  DWORD{VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V2},
                                  DWORD{VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V3}})) == 0 ||
        !call.Writable(info, size)) {
        return 0;
    }
    const velmora::TiffIfdRow* row = velmora::TiffDocumentRow(document, ifd);
    if (!call.Value(row != nullptr)) return 0;
    info->page = row->page;
    info->width = row->width;
    info->height = row->height;
    info->subfileType = row->subfileType;
    info->photometric = row->photometric;
    if (size >= VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V2)
        info->exchanged = (row->flags & velmora::kIfdExchanged) ? -1 : 0;
    if (size >= VELMORA_TIFF_DOCUMENT_IFD_INFO_SIZE_V3) info->orientation = row->orientation;
    return 1;
}

BOOL VELMORA_API GetVelmoraTIFFDocumentIFDTIFF(HGLOBAL handle, DWORD ifd, HGLOBAL* memory, DWORD* size) {
    ExportCall call;
    TiffDocument* document;
    if (!call.Gate() || (document = call.Object(handle, velmora::TiffDocumentFromHandle)) == nullptr ||
        !call.Out(memory) || !call.Out(size)) {
        return 0;
    }
    if (!call.Value(velmora::TiffDocumentRow(document, ifd) != nullptr)) return 0;
    // The IFD, copied as it is coded, as the only page of a new memory TIFF.
    TiffFile* single = velmora::OpenMemoryTiff(&call.record);
    if (single == nullptr) return call.Finish();
    velmora::PageWriteOptions options;
    velmora::AppendTiffPage(single, document->tiff, ifd, options, &call.record);
    velmora::Stream* stream = velmora::CloseTiff(single, &call.record);
    const uint32_t length = velmora::StreamSize(stream, &call.record);
    HGLOBAL data = velmora::CloseStream(stream, &call.record);
    if (!call.Finish()) {
        velmora::FreeHandle(&data);
        return 0;
    }
    *memory = data;
    *size = length;
    return 1;
}

BOOL VELMORA_API CopyVelmoraTIFFDocumentPage(HGLOBAL handle, DWORD page, HGLOBAL destination,
                                             VelmoraAppendTIFF* append) {
    ExportCall call;
    TiffDocument* document;
    if (!call.Gate() || (document = call.Object(handle, velmora::TiffDocumentFromHandle)) == nullptr ||
        call.Object(destination, velmora::TiffFromHandle) == nullptr ||
        !call.Value(page != 0 && page <= document->pageCount)) {
        return 0;
    }
    // The host's record, when it gives one, says how each IFD is appended;
    // its source fields are replaced by the document's IFD.
    VelmoraAppendTIFF request = {};
    request.size = VELMORA_APPEND_TIFF_SIZE_V1;
    request.compression = VELMORA_COMPRESSION_DEFAULT;
    if (append != nullptr) {
        const WORD size = call.Sized(append, velmora::kAppendRecordSizes);
        if (size == 0) return 0;
        std::memcpy(&request, append, size);
    }
    request.sourceName = nullptr;
    request.dib = nullptr;
    request.sourceTIFF = velmora::TiffHandle(document->tiff);
    for (uint32_t i = 0; i < document->rowCount; ++i) {
        if (document->rows[i].page != page) continue;
        request.sourcePage = document->rows[i].ifd;
        const BOOL done = AppendVelmoraOpenTIFFEx(destination, &request);
        if (append != nullptr && append->size >= VELMORA_APPEND_TIFF_SIZE_V4) append->reason = request.reason;
        if (!done) return 0;
    }
    return 1;
}
