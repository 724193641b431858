// Exported functions of the DIB model: the colour type, the bits and size of
// a packed DIB, display palettes, saving a DIB as a BMP file, colour changes
// and resizing.
#include <string>
#include <vector>

#include "dib/bmp_writer.h"
#include "dib/color_conversion.h"
#include "dib/color_type.h"
#include "dib/despeckle.h"
#include "dib/dib_layout.h"
#include "dib/dib_validation.h"
#include "dib/display_palette.h"
#include "dib/image.h"
#include "dib/pixel_operations.h"
#include "dib/resize.h"
#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "frame/export_call.h"
#include "frame/progress.h"
#include "platform/platform.h"
#include "velmora/velmora.h"

using velmora::ExportCall;

namespace {

#if defined(_WIN32)
constexpr uint32_t kErrNoPalette = 0x02000009;
#endif

// Runs the DIB check of every DIB-taking export; a refusal is published.
bool AcceptDib(const RECT* rect, const void* bits, const BITMAPINFOHEADER* header) {
    uint32_t error = velmora::CheckDib(rect, bits, header);
    return error == 0 || ExportCall::Fail(error);
}

}  // namespace

LONG VELMORA_API GetVelmoraDIBColorType(const void* bits, const BITMAPINFOHEADER* header) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, bits, header)) return -1;
    return velmora::DibColorType(header);
}

LPVOID VELMORA_API GetVelmoraDIBData(const BITMAPINFOHEADER* header) {
    ExportCall call;
    if (!call.Gate()) return nullptr;
    uint32_t error = velmora::CheckDibHeader(header, true);
    if (error != 0) {
        ExportCall::Fail(error);
        return nullptr;
    }
    return const_cast<uint8_t*>(velmora::PackedBits(header));
}

DWORD VELMORA_API GetVelmoraDIBSize(const BITMAPINFOHEADER* header) {
    ExportCall call;
    if (!call.Gate()) return 0;
    uint32_t error = velmora::CheckDibHeader(header, false);
    uint64_t size = 0;
    if (error == 0 && !velmora::PackedSize(header, &size)) error = velmora::kErrInvalidParameter;
    if (error != 0) {
        ExportCall::Fail(error);
        return 0;
    }
    return static_cast<DWORD>(size);
}

HPALETTE VELMORA_API CreateVelmoraDIBPalette(const void* bits, const BITMAPINFOHEADER* header, HDC hdc, BOOL optimise) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, bits, header)) return nullptr;
#if defined(_WIN32)
    velmora::platform::DisplayPaletteInfo device = {};
    if (!velmora::platform::ReadDisplayPalette(hdc, &device)) {
        ExportCall::Fail(kErrNoPalette);
        return nullptr;
    }
    std::vector<velmora::PaletteColor> entries = velmora::BuildDisplayPalette(device, header, bits, optimise != 0);
    uint32_t error = 0;
    HPALETTE palette = entries.empty() ? nullptr
                                       : velmora::platform::CreateLogicalPalette(
                                             entries.front().data(), static_cast<uint32_t>(entries.size()), &error);
    if (palette == nullptr) ExportCall::Fail(kErrNoPalette);
    return palette;
#else
    // No palette displays here until the viewer has a home on this system.
    ExportCall::Fail(velmora::kErrCallNotImplemented);
    return nullptr;
#endif
}

BOOL VELMORA_API SaveVelmoraBMPDIB(LPCSTR path, const void* bits, const BITMAPINFOHEADER* header) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, bits, header) || !call.String(path)) return FALSE;
    std::u16string widePath;
    if (call.Widen(path, &widePath)) velmora::WriteBmpFile(widePath, header, bits, &call.record);
    return call.Finish() ? TRUE : FALSE;
}

HGLOBAL VELMORA_API ChangeVelmoraDIBColorProgress(const void* bits, const BITMAPINFOHEADER* header, LONG target,
                                                  VelmoraProgressProc progress, UINT_PTR user) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, bits, header) || !call.Progress(progress)) return nullptr;
    velmora::ProgressReporter reporter(progress, user);
    HGLOBAL result = velmora::ChangeDibColor(header, bits, target, &reporter, &call.record);
    return call.Finish() ? result : nullptr;
}

HGLOBAL VELMORA_API ChangeVelmoraDIBColor(const void* bits, const BITMAPINFOHEADER* header, LONG target) {
    return ChangeVelmoraDIBColorProgress(bits, header, target, nullptr, 0);
}

HGLOBAL VELMORA_API ColorOptimizeVelmoraDIBProgress(const void* bits, const BITMAPINFOHEADER* header,
                                                    VelmoraProgressProc progress, UINT_PTR user) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, bits, header) || !call.Progress(progress)) return nullptr;
    velmora::ProgressReporter reporter(progress, user);
    // No smaller form leaves the last error as it was before the call.
    HGLOBAL result = velmora::OptimizeDibColors(header, bits, &reporter, &call.record);
    return call.Finish() ? result : nullptr;
}

HGLOBAL VELMORA_API ColorOptimizeVelmoraDIB(const void* bits, const BITMAPINFOHEADER* header) {
    return ColorOptimizeVelmoraDIBProgress(bits, header, nullptr, 0);
}

// ---- Resizing ----------------------------------------------------------------

HGLOBAL VELMORA_API ResizeVelmoraDIBEx(const VelmoraResizeDIB* resize) {
    ExportCall call;
    if (!call.Gate() || call.Sized(resize, {WORD{VELMORA_RESIZE_DIB_SIZE_V1}}) == 0) return nullptr;
    if (!call.Value(resize->flags <= VELMORA_RESIZE_SMOOTH && resize->width != 0 && resize->height != 0) ||
        !AcceptDib(nullptr, resize->bits, resize->header) || !call.Progress(resize->progress)) {
        return nullptr;
    }
    velmora::ProgressReporter reporter(resize->progress, resize->progressUser);
    const auto quality =
        resize->flags & VELMORA_RESIZE_SMOOTH ? velmora::ResizeQuality::Smooth : velmora::ResizeQuality::Nearest;
    HGLOBAL result = velmora::ResizeDib(resize->header, resize->bits, resize->width, resize->height, quality,
                                        velmora::ResizeColors::Optimize, &reporter, &call.record);
    return call.Finish() ? result : nullptr;
}

HGLOBAL VELMORA_API ResizeVelmoraDIBProgress(DWORD width, DWORD height, const void* bits,
                                             const BITMAPINFOHEADER* header, VelmoraProgressProc progress,
                                             UINT_PTR user) {
    VelmoraResizeDIB resize = {};
    resize.size = VELMORA_RESIZE_DIB_SIZE_V1;
    resize.flags = VELMORA_RESIZE_SMOOTH;
    resize.width = width;
    resize.height = height;
    resize.bits = bits;
    resize.header = header;
    resize.progress = progress;
    resize.progressUser = user;
    return ResizeVelmoraDIBEx(&resize);
}

HGLOBAL VELMORA_API ResizeVelmoraDIB(DWORD width, DWORD height, const void* bits, const BITMAPINFOHEADER* header) {
    return ResizeVelmoraDIBProgress(width, height, bits, header, nullptr, 0);
}

BOOL VELMORA_API StretchVelmoraDIB(HDC hdc, const RECT* destination, const RECT* source, const void* bits,
                                   const BITMAPINFOHEADER* header, DWORD smooth, DWORD reserved1, DWORD angle,
                                   DWORD reserved2) {
    (void)hdc;
    (void)reserved1;
    (void)reserved2;
    ExportCall call;
    if (!call.Gate() || !call.Readable(destination, sizeof *destination) || !AcceptDib(source, bits, header) ||
        !call.Value(smooth <= 1 && (angle == 0 || angle == 90 || angle == 180 || angle == 270))) {
        return FALSE;
    }
    // Drawing into a device context comes with the viewer; until then the
    // checked call answers 120.
    ExportCall::Fail(velmora::kErrCallNotImplemented);
    return FALSE;
}

// ---- Pixel operations: despeckling, fills, colour reversal, masks and copies ----

namespace {

// The check of an export that writes into the host's pixels (998).
bool AcceptWritableDib(const void* bits, const BITMAPINFOHEADER* header) {
    uint32_t error = velmora::CheckDib(nullptr, bits, header, velmora::DibAccess::ReadWrite);
    return error == 0 || ExportCall::Fail(error);
}

}  // namespace

HGLOBAL VELMORA_API DespeckleVelmoraDIB(void* bits, const BITMAPINFOHEADER* header, DWORD maximum, DWORD flags,
                                        VelmoraProgressProc progress, UINT_PTR user) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, bits, header) || !call.Value(header->biBitCount == 1) ||
        !call.Value(flags < 8)) {
        return nullptr;
    }
    const bool inPlace = (flags & VELMORA_DESPECKLE_IN_PLACE) != 0;
    if ((inPlace && !AcceptWritableDib(bits, header)) || !call.Progress(progress)) return nullptr;
    velmora::ProgressReporter reporter(progress, user);
    if (inPlace) {
        velmora::DespeckleDib(header, bits, maximum, flags, &reporter, &call.record);
        return call.Finish() ? reinterpret_cast<HGLOBAL>(1) : nullptr;
    }
    HGLOBAL copy = velmora::CopyDibRect(header, bits, velmora::ClipToImage(header, nullptr), 0, nullptr, &call.record);
    if (copy != nullptr) {
        velmora::ImageLock lock(copy);
        velmora::DespeckleDib(lock.header(), lock.bits(), maximum, flags, &reporter, &call.record);
    }
    if (call.record.failed()) velmora::FreeImage(&copy);
    return call.Finish() ? copy : nullptr;
}

BOOL VELMORA_API FillVelmoraDIBRect(void* bits, const BITMAPINFOHEADER* header, const RECT* rect, COLORREF color,
                                    DWORD mode) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, bits, header) || !call.Value(mode <= velmora::kFillAverage) ||
        (rect != nullptr && !call.Readable(rect, sizeof *rect)) || !AcceptWritableDib(bits, header)) {
        return FALSE;
    }
    velmora::FillDibRect(header, bits, velmora::ClipToImage(header, rect), color, mode, &call.record);
    return call.Finish() ? TRUE : FALSE;
}

BOOL VELMORA_API ReverseVelmoraDIBColors(void* bits, BITMAPINFOHEADER* header) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, bits, header) || !call.Value(velmora::ColorCount(header) == 2) ||
        !call.Writable(velmora::ColorTable(header), 2 * sizeof(RGBQUAD)) || !AcceptWritableDib(bits, header)) {
        return FALSE;
    }
    velmora::ReverseDibColors(header, bits);
    return TRUE;
}

HGLOBAL VELMORA_API CreateVelmoraMaskDIB(const void* bits, const BITMAPINFOHEADER* header, COLORREF key) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, bits, header)) return nullptr;
    HGLOBAL mask = velmora::CreateMaskDib(header, bits, key, &call.record);
    return call.Finish() ? mask : nullptr;
}

BOOL VELMORA_API DrawVelmoraDIBMask(void* bits, const BITMAPINFOHEADER* header, LONG x, LONG y, COLORREF color,
                                    HBITMAP bitmap) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, bits, header)) return FALSE;
    if (x >= header->biWidth && y >= header->biHeight) return TRUE;
    if (!AcceptWritableDib(bits, header)) return FALSE;
#if defined(_WIN32)
    uint32_t width = 0, height = 0, depth = 0, rowBytes = 0, error = 0;
    if (!velmora::platform::ReadBitmapSize(bitmap, &width, &height, &depth, &rowBytes, &error)) {
        ExportCall::Fail(error);
        return FALSE;
    }
    if (!call.Value(depth == 1 && x >= 0 && y >= 0 && int64_t{x} + width <= header->biWidth &&
                    int64_t{y} + height <= header->biHeight)) {
        return FALSE;
    }
    velmora::CheckedArray<uint8_t> rows;
    if (rows.Sized(uint64_t{rowBytes} * height, &call.record)) {
        if (velmora::platform::ReadBitmapRows(bitmap, rows.data(), rows.size(), &error)) {
            velmora::DrawDibMask(header, bits, x, y, color, rows.data(), width, height, rowBytes, &call.record);
        } else {
            velmora::SetRecordError(&call.record, error, 0);
        }
    }
    return call.Finish() ? TRUE : FALSE;
#else
    // GDI bitmaps exist only on Windows.
    (void)color, (void)bitmap;
    ExportCall::Fail(velmora::kErrCallNotImplemented);
    return FALSE;
#endif
}

BOOL VELMORA_API CopyVelmoraDIBPixels(const void* sourceBits, const BITMAPINFOHEADER* sourceHeader,
                                      void* destinationBits, const BITMAPINFOHEADER* destinationHeader, LONG x,
                                      LONG y) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(nullptr, sourceBits, sourceHeader) ||
        !AcceptDib(nullptr, destinationBits, destinationHeader) ||
        !call.Value(destinationHeader->biBitCount >= sourceHeader->biBitCount) ||
        !AcceptWritableDib(destinationBits, destinationHeader)) {
        return FALSE;
    }
    velmora::CopyDibPixels(sourceHeader, sourceBits, destinationHeader, destinationBits, x, y, &call.record);
    return call.Finish() ? TRUE : FALSE;
}

HGLOBAL VELMORA_API CopyVelmoraDIBToDIBProgress(const RECT* rect, const void* bits, const BITMAPINFOHEADER* header,
                                                DWORD angle, DWORD flags, VelmoraProgressProc progress, UINT_PTR user) {
    ExportCall call;
    if (!call.Gate() || !AcceptDib(rect, bits, header) ||
        !call.Value(angle == 0 || angle == 90 || angle == 180 || angle == 270) || !call.Progress(progress)) {
        return nullptr;
    }
    (void)flags;  // reserved: no flag changes the copy yet
    velmora::ProgressReporter reporter(progress, user);
    HGLOBAL copy = velmora::CopyDibRect(header, bits, velmora::ClipToImage(header, rect), static_cast<int>(angle),
                                        &reporter, &call.record);
    return call.Finish() ? copy : nullptr;
}

HGLOBAL VELMORA_API CopyVelmoraDIBToDIB(const RECT* rect, const void* bits, const BITMAPINFOHEADER* header, DWORD angle,
                                        DWORD flags) {
    return CopyVelmoraDIBToDIBProgress(rect, bits, header, angle, flags, nullptr, 0);
}
