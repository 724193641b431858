// Exported functions of the JPEG family: describing a JPEG stream, decoding
// it into a DIB, copying it or a rectangle of its MCUs, and closing its
// handle. See jpeg/jpeg_handle.h for what a JPEG handle is.
#include <cstring>

#include "jpeg/jpeg_copy.h"
#include "jpeg/jpeg_decoder.h"
#include "jpeg/jpeg_handle.h"
#include "frame/progress.h"
#include "frame/export_call.h"
#include "frame/memory_handle.h"
#include "io/stream.h"
#include "platform/platform.h"
#include "velmora/velmora.h"

using velmora::ExportCall;
using velmora::jpeg::JpegHandleAccess;

namespace {

constexpr WORD kInfoRequestBits = VELMORA_JPEG_INFO_THUMBNAIL | VELMORA_JPEG_INFO_WHOLE;

uint8_t Byte(uint32_t value) { return static_cast<uint8_t>(value > 255 ? 255 : value); }

void FillRecord(const velmora::jpeg::JpegInfo& parsed, WORD request, VelmoraJPEGInfo* out) {
    VelmoraJPEGInfo info = {};
    info.size = VELMORA_JPEG_INFO_SIZE_V1;
    info.request = request;
    info.width = static_cast<WORD>(parsed.width);
    info.height = static_cast<WORD>(parsed.height);
    info.xDensityNumerator = parsed.xDensityNumerator;
    info.xDensityDenominator = parsed.xDensityDenominator;
    info.yDensityNumerator = parsed.yDensityNumerator;
    info.yDensityDenominator = parsed.yDensityDenominator;
    info.densityUnit = parsed.densityUnit;
    info.components = parsed.components;
    info.precision = parsed.precision;
    info.process = parsed.process;
    info.adobeTransform = parsed.adobeTransform;
    info.restartInterval = parsed.restartInterval;
    info.mcuWidth = parsed.mcuWidth;
    info.mcuHeight = parsed.mcuHeight;
    info.thumbnailWidth = Byte(parsed.thumbnailWidth);
    info.thumbnailHeight = Byte(parsed.thumbnailHeight);
    info.flags = parsed.flags;
    *out = info;
}

// Reads (or takes from the handle's cache) the information record for
// `request`.
bool ReadRecord(JpegHandleAccess& access, WORD request, VelmoraJPEGInfo* info, velmora::ErrorRecord* record) {
    if (access.CachedInfo(request, info)) {
        info->request = request;
        return true;
    }
    velmora::jpeg::JpegInfo parsed;
    const velmora::jpeg::JpegSource source = access.Source(record);
    if (record->failed() || !velmora::jpeg::ReadJpegInfo(source, request, &parsed, record)) return false;
    FillRecord(parsed, request, info);
    access.CacheInfo(*info);
    return true;
}

// A copy of the handle's whole JPEG data in a new block.
HGLOBAL CopyWholeStream(JpegHandleAccess& access, DWORD* size, velmora::ErrorRecord* record) {
    const uint64_t length = access.Length();
    if (length > 0xFFFFFFFFu) {
        velmora::SetRecordError(record, velmora::kErrUnsupportedImageType, 0);
        return nullptr;
    }
    const velmora::jpeg::JpegSource source = access.Source(record);
    if (record->failed()) return nullptr;
    HGLOBAL block = velmora::AllocHandle(length != 0 ? length : 1, 0, record);
    if (block == nullptr) return nullptr;
    void* bytes = velmora::platform::MemLock(block);
    if (source.stream != nullptr) {
        velmora::StreamRead(source.stream, bytes, static_cast<uint32_t>(length), velmora::kErrBadFileData, record);
    } else {
        std::memcpy(bytes, source.data, length);
    }
    velmora::platform::MemUnlock(block);
    if (record->failed()) {
        velmora::FreeHandle(&block);
        return nullptr;
    }
    *size = static_cast<DWORD>(length);
    return block;
}

}  // namespace

BOOL VELMORA_API GetVelmoraJPEGInfoProgress(HGLOBAL jpeg, VelmoraProgressProc progress, UINT_PTR,
                                            VelmoraJPEGInfo* info) {
    ExportCall call;
    if (!call.Gate() || !call.Handle(jpeg) || !call.Sized(info, {WORD{VELMORA_JPEG_INFO_SIZE_V1}}) ||
        !call.Value((info->request & ~kInfoRequestBits) == 0) || !call.Writable(info, VELMORA_JPEG_INFO_SIZE_V1) ||
        !call.Progress(progress)) {
        return FALSE;
    }
    const WORD request = info->request;
    JpegHandleAccess access;
    VelmoraJPEGInfo filled;
    if (access.Open(jpeg, &call.record) && ReadRecord(access, request, &filled, &call.record)) *info = filled;
    return call.Finish() ? TRUE : FALSE;
}

HGLOBAL VELMORA_API GetVelmoraJPEGMCUData(HGLOBAL jpeg, const VelmoraJPEGMCURequest* request, DWORD* size) {
    ExportCall call;
    if (!call.Gate() || !call.Handle(jpeg) || !call.Sized(request, {WORD{VELMORA_JPEG_MCU_REQUEST_SIZE_V1}}) ||
        !call.Value(request->mode == VELMORA_JPEG_MCU_MODE1 || request->mode == VELMORA_JPEG_MCU_MODE2) ||
        !call.Writable(size, sizeof *size) ||
        (request->rect != nullptr && !call.Readable(request->rect, sizeof(RECT))) ||
        !call.Progress(request->progress)) {
        return nullptr;
    }
    const RECT* rect = request->rect;
    if (rect != nullptr &&
        !call.Value(rect->left >= 0 && rect->top >= 0 && rect->right > rect->left && rect->bottom > rect->top)) {
        return nullptr;
    }
    JpegHandleAccess access;
    HGLOBAL copy = nullptr;
    if (access.Open(jpeg, &call.record)) {
        if (rect == nullptr) {
            copy = CopyWholeStream(access, size, &call.record);
        } else {
            velmora::ProgressReporter progress(request->progress, request->progressUser);
            velmora::jpeg::CopyRequest copyRequest;
            copyRequest.left = static_cast<uint32_t>(rect->left);
            copyRequest.top = static_cast<uint32_t>(rect->top);
            copyRequest.right = static_cast<uint32_t>(rect->right);
            copyRequest.bottom = static_cast<uint32_t>(rect->bottom);
            copyRequest.optimiseTables = request->mode == VELMORA_JPEG_MCU_MODE2;
            copyRequest.progress = &progress;
            const velmora::jpeg::JpegSource source = access.Source(&call.record);
            if (!call.record.failed()) copy = velmora::jpeg::CopyJpegMcus(source, copyRequest, size, &call.record);
        }
    }
    if (!call.Finish()) {
        velmora::FreeHandle(&copy);
        return nullptr;
    }
    return copy;
}

HGLOBAL VELMORA_API GetVelmoraJPEGMCUDataProgress(HGLOBAL jpeg, const RECT* rect, VelmoraProgressProc progress,
                                                  UINT_PTR user, DWORD* size) {
    VelmoraJPEGMCURequest request = {};
    request.size = VELMORA_JPEG_MCU_REQUEST_SIZE_V1;
    request.mode = VELMORA_JPEG_MCU_MODE1;
    request.rect = rect;
    request.progressUser = user;
    request.progress = progress;
    return GetVelmoraJPEGMCUData(jpeg, &request, size);
}

HGLOBAL VELMORA_API ReadVelmoraJPEGDIBProgress(HGLOBAL jpeg, VelmoraProgressProc progress, UINT_PTR user) {
    ExportCall call;
    if (!call.Gate() || !call.Handle(jpeg) || !call.Progress(progress)) return nullptr;
    JpegHandleAccess access;
    HGLOBAL dib = nullptr;
    if (access.Open(jpeg, &call.record)) {
        velmora::ProgressReporter reporter(progress, user);
        const velmora::jpeg::JpegSource source = access.Source(&call.record);
        if (!call.record.failed()) dib = velmora::jpeg::DecodeJpegToDib(source, &reporter, &call.record);
    }
    if (!call.Finish()) {
        velmora::FreeHandle(&dib);
        return nullptr;
    }
    return dib;
}

BOOL VELMORA_API CloseVelmoraJPEG(HGLOBAL jpeg) {
    ExportCall call;
    if (!call.Gate() || !call.Handle(jpeg)) return FALSE;
    velmora::jpeg::CloseJpegHandle(jpeg, &call.record);
    return call.Finish() ? TRUE : FALSE;
}
