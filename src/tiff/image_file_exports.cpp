// Exported functions that read one page of an image file of any type as a
// DIB and save a DIB as a BMP, JPEG or TIFF file.
#include <string>

#include "dib/dib_validation.h"
#include "frame/export_call.h"
#include "frame/progress.h"
#include "frame/wide_text.h"
#include "tiff/image_file_reader.h"
#include "velmora/velmora.h"

using velmora::ExportCall;

namespace {

constexpr DWORD kReadFlags = VELMORA_READ_DIB_WIDE_PATH | VELMORA_READ_DIB_OPTIONS;
constexpr DWORD kReadOptionsLimit = 16;
constexpr DWORD kBmpOptions = VELMORA_SAVE_BMP_CORE | VELMORA_SAVE_BMP_RLE;
constexpr DWORD kJpegOptions = VELMORA_SAVE_JPEG_JFIF | VELMORA_SAVE_JPEG_RESOLUTION | VELMORA_SAVE_JPEG_SCALE;

// The records a SaveVelmoraDIB options record points to, each checked for
// its size (87) and readability (998); the choices may not have both values
// set (87).
bool AcceptSaveOptions(ExportCall* call, const VelmoraSaveDIBOptions* options, velmora::SaveFileOptions* out) {
    if (options == nullptr) return true;
    if (call->Sized(options, {WORD{VELMORA_SAVE_DIB_OPTIONS_SIZE_V1}}) == 0) return false;
    if (options->bmp != nullptr) {
        if (call->Sized(options->bmp, {WORD{VELMORA_SAVE_DIB_BMP_OPTIONS_SIZE_V1}}) == 0 ||
            !call->Value((options->bmp->options & ~kBmpOptions) == 0)) {
            return false;
        }
        out->bmpCore = (options->bmp->options & VELMORA_SAVE_BMP_CORE) != 0;
        out->bmpRunLength = (options->bmp->options & VELMORA_SAVE_BMP_RLE) != 0;
    }
    for (const VelmoraSaveDIBChoice* choice : {options->choice1, options->choice2}) {
        if (choice == nullptr) continue;
        if (call->Sized(choice, {WORD{VELMORA_SAVE_DIB_CHOICE_SIZE_V1}}) == 0 ||
            !call->Value(choice->first == 0 || choice->second == 0)) {
            return false;
        }
    }
    if (options->jpeg != nullptr) {
        const VelmoraSaveDIBJPEGOptions* jpeg = options->jpeg;
        if (call->Sized(jpeg, {WORD{VELMORA_SAVE_DIB_JPEG_OPTIONS_SIZE_V1}}) == 0 ||
            !call->Value(jpeg->quality <= 100 && (jpeg->options & ~kJpegOptions) == 0)) {
            return false;
        }
        if (jpeg->quality != 0) out->jpegQuality = jpeg->quality;
        out->jpegJfif = (jpeg->options & VELMORA_SAVE_JPEG_JFIF) != 0;
        out->jpegResolution = (jpeg->options & VELMORA_SAVE_JPEG_RESOLUTION) != 0;
        out->jpegScale = (jpeg->options & VELMORA_SAVE_JPEG_SCALE) != 0;
    }
    return true;
}

}  // namespace

HGLOBAL VELMORA_API ReadVelmoraDIBEx(const VelmoraReadDIB* read) {
    ExportCall call;
    if (!call.Gate()) return nullptr;
    const WORD size = call.Sized(
        read, {WORD{VELMORA_READ_DIB_SIZE_V1}, WORD{VELMORA_READ_DIB_SIZE_V2}, WORD{VELMORA_READ_DIB_SIZE_V3}});
    if (size == 0) return nullptr;
    const DWORD flags = size >= VELMORA_READ_DIB_SIZE_V2 ? read->flags : 0;
    std::u16string path;
    if (flags & VELMORA_READ_DIB_WIDE_PATH) {
        const char16_t* wide = velmora::FromHost(static_cast<const WCHAR*>(read->path));
        if (!call.String(wide)) return nullptr;
        path = wide;
    } else if (!call.Widen(static_cast<const char*>(read->path), &path)) {
        if (call.record.failed()) call.Finish();
        return nullptr;
    }
    // Every system this library runs on takes 63-bit offsets.
    if (!call.Value(read->page != 0) || !call.Value(read->offsetHigh < 0x80000000u) || !call.Progress(read->progress) ||
        !call.Value((flags & ~kReadFlags) == 0)) {
        return nullptr;
    }
    DWORD options = 0;
    if (flags & VELMORA_READ_DIB_OPTIONS) {
        if (!call.Value(size == VELMORA_READ_DIB_SIZE_V3 && read->options < kReadOptionsLimit)) return nullptr;
        options = read->options;
    }
    velmora::ProgressReporter progress(read->progress, read->progressUser);
    const uint64_t offset = uint64_t{read->offsetHigh} << 32 | read->offsetLow;
    bool damaged = false;
    HGLOBAL dib = velmora::ReadImageFileDib(path, read->page, offset,
                                            (options & VELMORA_READ_DIB_FAST) ? velmora::kReadImageFast : 0, &progress,
                                            &damaged, &call.record);
    if (!call.Finish()) return nullptr;
    if (options & VELMORA_READ_DIB_REPORT_DAMAGE) velmora::SetErrorCode(damaged ? VELMORA_ERROR_BAD_FILE_DATA : 0);
    return dib;
}

HGLOBAL VELMORA_API ReadVelmoraDIBOffsetProgress(LPCSTR path, DWORD page, DWORD offset, VelmoraProgressProc progress,
                                                 UINT_PTR user) {
    VelmoraReadDIB read = {};
    read.size = VELMORA_READ_DIB_SIZE_V3;
    read.path = path;
    read.page = page;
    read.offsetLow = offset;
    read.progress = progress;
    read.progressUser = user;
    return ReadVelmoraDIBEx(&read);
}

HGLOBAL VELMORA_API ReadVelmoraDIBOffset(LPCSTR path, DWORD page, DWORD offset) {
    return ReadVelmoraDIBOffsetProgress(path, page, offset, nullptr, 0);
}

HGLOBAL VELMORA_API ReadVelmoraDIBProgress(LPCSTR path, DWORD page, VelmoraProgressProc progress, UINT_PTR user) {
    return ReadVelmoraDIBOffsetProgress(path, page, 0, progress, user);
}

HGLOBAL VELMORA_API ReadVelmoraDIB(LPCSTR path, DWORD page) {
    return ReadVelmoraDIBOffsetProgress(path, page, 0, nullptr, 0);
}

BOOL VELMORA_API SaveVelmoraDIB(LPCSTR path, const void* bits, const BITMAPINFOHEADER* header, LONG type,
                                const VelmoraSaveDIBOptions* options) {
    ExportCall call;
    if (!call.Gate()) return FALSE;
    if (const uint32_t error = velmora::CheckDib(nullptr, bits, header)) return ExportCall::Fail(error);
    velmora::SaveFileOptions save;
    if (!call.String(path) ||
        !call.Value(type == velmora::kDocumentBmp || type == velmora::kDocumentJpeg ||
                    type == velmora::kDocumentTiff) ||
        !AcceptSaveOptions(&call, options, &save)) {
        return FALSE;
    }
    std::u16string widePath;
    if (call.Widen(path, &widePath)) velmora::SaveImageFile(widePath, header, bits, type, save, &call.record);
    return call.Finish() ? TRUE : FALSE;
}
