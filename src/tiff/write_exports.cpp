// Exported functions that append pages to TIFF files: one page from a file,
// an open TIFF or a DIB (AppendVelmoraOpenTIFFEx), every page of a file into
// an open TIFF, and every page of a file onto a TIFF file on disk through a
// temporary copy.
#include <cstring>
#include <string>

#include "dib/dib_layout.h"
#include "dib/dib_validation.h"
#include "dib/image.h"
#include "dib/resize.h"
#include "frame/export_call.h"
#include "frame/memory_handle.h"
#include "frame/progress.h"
#include "frame/wide_text.h"
#include "io/file_names.h"
#include "platform/platform.h"
#include "tiff/exact_fraction.h"
#include "tiff/page_decoder.h"
#include "tiff/page_info.h"
#include "tiff/page_writer.h"
#include "tiff/tiff_file.h"
#include "velmora/velmora.h"

using velmora::ErrorRecord;
using velmora::ExportCall;
using velmora::TiffFile;

namespace {

constexpr DWORD kAccessRead = 0x80000000u;
constexpr DWORD kAccessWrite = 0x40000000u;

// Flags this writer takes; the others up to bit 24 select fields it does not
// support and are refused like unknown bits.
constexpr DWORD kSupportedFlags = VELMORA_APPEND_ANNOTATIONS | VELMORA_APPEND_ANNOTATION_OPTIONS |
                                  VELMORA_APPEND_RESOLUTION | VELMORA_APPEND_SCALE | VELMORA_APPEND_JPEG_QUALITY |
                                  VELMORA_APPEND_PROGRESS | VELMORA_APPEND_REASON | VELMORA_APPEND_OCR_TEXT |
                                  0x001FE000u /* texts */ | VELMORA_APPEND_WIDE_NAME | VELMORA_APPEND_DIB_POINTER;
constexpr uint32_t kResolutionUnits = 3;
constexpr uint32_t kScaleUnits = 17;
constexpr uint32_t kMaxThumbnail = 512;

bool Writable(uint16_t compression) {
    switch (compression) {
        case VELMORA_COMPRESSION_NONE:
        case VELMORA_COMPRESSION_PACKBITS:
        case VELMORA_COMPRESSION_GROUP4:
        case VELMORA_COMPRESSION_GROUP3:
        case VELMORA_COMPRESSION_LZW:
        case VELMORA_COMPRESSION_JPEG:
        case VELMORA_COMPRESSION_CCITT_RLE:
        case VELMORA_COMPRESSION_GROUP3_2D:
        case VELMORA_COMPRESSION_DEFLATE:
        case VELMORA_COMPRESSION_DEFAULT: return true;
        default: return false;
    }
}

// A memory block handed in by the host: its bytes, locked while it lives.
class HostBlock {
public:
    HostBlock() = default;
    ~HostBlock() {
        if (bytes_ != nullptr) velmora::platform::MemUnlock(handle_);
    }
    HostBlock(const HostBlock&) = delete;
    HostBlock& operator=(const HostBlock&) = delete;
    bool Lock(HGLOBAL handle) {
        if (!velmora::platform::IsValidHandle(handle)) return false;
        size_t size = velmora::platform::MemSize(handle);
        if (size == 0 || size > 0xFFFFFFFFu) return false;
        bytes_ = static_cast<const uint8_t*>(velmora::platform::MemLock(handle));
        handle_ = handle;
        size_ = static_cast<uint32_t>(size);
        return bytes_ != nullptr;
    }
    const uint8_t* bytes() const { return bytes_; }
    uint32_t size() const { return size_; }

private:
    HGLOBAL handle_ = nullptr;
    const uint8_t* bytes_ = nullptr;
    uint32_t size_ = 0;
};

// The DIB source of a record: a handle of any image kind, or a pointer to a
// packed DIB.
class DibSource {
public:
    DibSource() = default;
    ~DibSource() {
        if (locked_) velmora::UnlockImage(image_);
    }
    DibSource(const DibSource&) = delete;
    DibSource& operator=(const DibSource&) = delete;
    // Whether the source is a DIB the writer can store.
    bool Take(const void* dib, bool pointer) {
        if (pointer) {
            header_ = static_cast<const BITMAPINFOHEADER*>(dib);
            if (velmora::CheckDibHeader(header_, true) != 0) return false;
            bits_ = reinterpret_cast<const uint8_t*>(header_) + velmora::BitsOffset(header_);
            if (velmora::CheckDib(nullptr, bits_, header_) != 0) return false;
        } else {
            image_ = const_cast<HGLOBAL>(dib);
            if (!velmora::platform::IsValidHandle(image_)) return false;
            header_ = velmora::LockImage(image_);
            if (header_ == nullptr) return false;
            locked_ = true;
        }
        velmora::PageKind kind;
        return velmora::DibPageKind(header_, &kind);
    }
    HGLOBAL image() const { return image_; }
    const BITMAPINFOHEADER* header() const { return header_; }
    const uint8_t* bits() const { return bits_; }

private:
    HGLOBAL image_ = nullptr;
    const BITMAPINFOHEADER* header_ = nullptr;
    const uint8_t* bits_ = nullptr;
    bool locked_ = false;
};

// Everything one AppendVelmoraOpenTIFFEx call needs, once the record has
// been checked.
struct AppendRequest {
    velmora::PageWriteOptions options;
    velmora::ProgressReporter progress;
    HostBlock annotations, ocrText;
    DibSource dib;
};

bool HasField(WORD size, WORD needed) { return size >= needed; }

// A resolution or scale record: four non-zero values (else `valueReason`)
// and a unit from 1 to `lastUnit` (else `unitReason`). Returns 0 when it is
// taken.
WORD TakeValues(const VelmoraResolutionScale* record, uint32_t lastUnit, WORD valueReason, WORD unitReason,
                uint32_t values[4], uint16_t* unit) {
    if (!velmora::platform::IsReadableMemory(record, sizeof *record) || record->xNumerator == 0 ||
        record->xDenominator == 0 || record->yNumerator == 0 || record->yDenominator == 0) {
        return valueReason;
    }
    if (record->unit < 1 || record->unit > lastUnit) return unitReason;
    values[0] = record->xNumerator;
    values[1] = record->xDenominator;
    values[2] = record->yNumerator;
    values[3] = record->yDenominator;
    *unit = record->unit;
    return 0;
}

// Checks the record's fields in their fixed order and fills the request.
// Returns 0 when the record is accepted, else the reason it is refused.
WORD CheckRecord(const VelmoraAppendTIFF& a, WORD size, AppendRequest* request) {
    const DWORD flags = a.flags;
    int sources = (a.sourceName != nullptr) + (a.sourceTIFF != nullptr) + (a.dib != nullptr);
    if (sources != 1) return VELMORA_APPEND_REASON_SOURCES;
    if ((flags & ~kSupportedFlags) != 0 ||
        ((flags & VELMORA_APPEND_JPEG_QUALITY) && !HasField(size, VELMORA_APPEND_TIFF_SIZE_V2)) ||
        ((flags & VELMORA_APPEND_PROGRESS) && !HasField(size, VELMORA_APPEND_TIFF_SIZE_V4)) ||
        ((flags & VELMORA_APPEND_OCR_TEXT) && !HasField(size, VELMORA_APPEND_TIFF_SIZE_V5)) ||
        ((flags & 0x001FE000u) && !HasField(size, VELMORA_APPEND_TIFF_SIZE_V6))) {
        return VELMORA_APPEND_REASON_FLAGS;
    }
    if (a.sourceTIFF != nullptr && a.sourcePage == 0) return VELMORA_APPEND_REASON_SOURCE_PAGE;
    if ((flags & VELMORA_APPEND_ANNOTATION_OPTIONS) && a.annotationOptions >= 8) {
        return VELMORA_APPEND_REASON_ANNOTATION_OPTIONS;
    }
    if (!Writable(a.compression)) return VELMORA_APPEND_REASON_COMPRESSION;
    if (flags & VELMORA_APPEND_JPEG_QUALITY) {
        const auto* quality = static_cast<const WORD*>(a.extraData);
        if (!velmora::platform::IsReadableMemory(quality, sizeof *quality) || *quality < 1 || *quality > 100) {
            return VELMORA_APPEND_REASON_EXTRA_DATA;
        }
        request->options.jpegQuality = *quality;
    }
    velmora::PageExtras& extras = request->options.extras;
    if (flags & VELMORA_APPEND_RESOLUTION) {
        if (WORD reason =
                TakeValues(a.resolution, kResolutionUnits, VELMORA_APPEND_REASON_RESOLUTION_VALUE,
                           VELMORA_APPEND_REASON_RESOLUTION_UNIT, extras.resolution, &extras.resolutionUnit)) {
            return reason;
        }
        extras.hasResolution = true;
    }
    if (flags & VELMORA_APPEND_SCALE) {
        if (WORD reason = TakeValues(a.scale, kScaleUnits, VELMORA_APPEND_REASON_SCALE_VALUE,
                                     VELMORA_APPEND_REASON_SCALE_UNIT, extras.scale, &extras.scaleUnit)) {
            return reason;
        }
        extras.hasScale = true;
    }
    if (flags & VELMORA_APPEND_OCR_TEXT) {
        if (!request->ocrText.Lock(a.ocrText)) return VELMORA_APPEND_REASON_OCR_TEXT;
        extras.ocrText = request->ocrText.bytes();
        extras.ocrTextSize = request->ocrText.size();
    }
    if (a.dib != nullptr) {
        if (!request->dib.Take(a.dib, (flags & VELMORA_APPEND_DIB_POINTER) != 0)) return VELMORA_APPEND_REASON_DIB;
        velmora::PageKind kind;
        velmora::DibPageKind(request->dib.header(), &kind);
        if (a.compression != VELMORA_COMPRESSION_DEFAULT && !velmora::CompressionWritable(a.compression, kind)) {
            return VELMORA_APPEND_REASON_COMPRESSION;
        }
    }
    for (int i = 0; i < 8; ++i) {
        if ((flags & VELMORA_APPEND_TEXT(i)) == 0) continue;
        const char* text = static_cast<const char*>(a.texts[i]);
        if (!velmora::platform::IsReadableString(text)) return VELMORA_APPEND_REASON_TEXT;
        extras.texts[i] = text;
    }
    if (flags & VELMORA_APPEND_ANNOTATIONS) {
        if (!request->annotations.Lock(a.annotations)) return VELMORA_APPEND_REASON_ANNOTATIONS;
        extras.annotations = request->annotations.bytes();
        extras.annotationsSize = request->annotations.size();
        // A stream states its own size first; a block rewritten in place by
        // removing annotations is larger than the stream it now holds.
        uint32_t stated = 0;
        if (extras.annotationsSize >= 32) std::memcpy(&stated, extras.annotations, sizeof stated);
        if (stated >= 32 && stated < extras.annotationsSize) extras.annotationsSize = stated;
    }
    request->options.compression = a.compression;
    return 0;
}

// Appends page `page` of the TIFF file `name`.
bool AppendFromFile(TiffFile* tiff, const char16_t* name, uint32_t page, const velmora::PageWriteOptions& options,
                    ErrorRecord* record) {
    TiffFile* source = velmora::OpenTiffFile(name, kAccessRead, false, record);
    if (source == nullptr) return false;
    bool done = velmora::AppendTiffPage(tiff, source, page, options, record);
    velmora::CloseTiff(source, nullptr);
    return done;
}

// Appends pages 1, 2, ... of `from` until it has no more ("IFD not found."
// after the first page ends the loop without an error), each kept as it is
// coded.
bool CopyAllPages(TiffFile* tiff, TiffFile* from, ErrorRecord* record) {
    velmora::PageWriteOptions options;
    for (uint32_t page = 1; record->ok(); ++page) {
        ErrorRecord append;
        if (velmora::AppendTiffPage(tiff, from, page, options, &append)) continue;
        if (page == 1 || append.code != velmora::kErrIfdNotFound) *record = append;
        break;
    }
    return record->ok();
}

// Appends every page of the TIFF file `name`.
bool AppendAllPages(TiffFile* tiff, const char16_t* name, ErrorRecord* record) {
    TiffFile* source = velmora::OpenTiffFile(name, kAccessRead, false, record);
    if (source == nullptr) return false;
    CopyAllPages(tiff, source, record);
    velmora::CloseTiff(source, nullptr);
    return record->ok();
}

// Rewrites the TIFF file `path` through a temporary file beside it: its own
// pages, then what `append` adds to them, replacing the file only when
// everything succeeded; on failure the temporary file goes.
template <typename Append>
bool RewriteThroughTemporary(const std::u16string& path, Append append, ErrorRecord* record) {
    std::u16string full, temporary;
    if (!velmora::FullPath(path.c_str(), &full, record)) return false;
    std::u16string directory = velmora::DirectoryOf(full);
    if (!velmora::MakeTempFile(directory.c_str(), velmora::kTempPrefixId, nullptr, &temporary, record)) return false;
    TiffFile* out = velmora::OpenTiffFile(temporary.c_str(), kAccessRead | kAccessWrite, true, record);
    if (out != nullptr) {
        TiffFile* old = velmora::OpenTiffFile(path.c_str(), kAccessRead, false, record);
        if (old != nullptr) {
            CopyAllPages(out, old, record);
            if (record->ok()) append(out, old);
            velmora::CloseTiff(old, nullptr);
        }
        velmora::CloseTiff(out, record);
    }
    if (record->ok()) velmora::ReplaceThroughTemp(path.c_str(), temporary.c_str(), false, nullptr, record);
    if (record->failed()) {
        ErrorRecord ignored;
        velmora::DeleteFileName(temporary.c_str(), &ignored);
    }
    return record->ok();
}

// AppendVelmoraTIFF's work: every page of `source` onto `destination`.
bool AppendFileToFile(const std::u16string& destination, const std::u16string& source, ErrorRecord* record) {
    if (!velmora::FileNameExists(destination.c_str())) {
        TiffFile* tiff = velmora::OpenTiffFile(destination.c_str(), kAccessRead | kAccessWrite, true, record);
        if (tiff == nullptr) return false;
        AppendAllPages(tiff, source.c_str(), record);
        velmora::CloseTiff(tiff, record);
        if (record->failed()) {
            ErrorRecord ignored;
            velmora::DeleteFileName(destination.c_str(), &ignored);
        }
        return record->ok();
    }
    return RewriteThroughTemporary(
        destination, [&](TiffFile* out, TiffFile*) { AppendAllPages(out, source.c_str(), record); }, record);
}

// The size a page of `width` x `height` is shown at within a box of
// `maxWidth` x `maxHeight`, keeping its aspect ratio; a page that fits keeps
// its size.
void FitInBox(uint32_t width, uint32_t height, uint32_t maxWidth, uint32_t maxHeight, uint32_t* fitWidth,
              uint32_t* fitHeight) {
    *fitWidth = width;
    *fitHeight = height;
    if (width <= maxWidth && height <= maxHeight) return;
    // maxWidth / maxHeight <= width / height, in integers.
    if (uint64_t{maxWidth} * height <= uint64_t{width} * maxHeight) {
        *fitWidth = maxWidth;
        *fitHeight = static_cast<uint32_t>(uint64_t{height} * maxWidth / width);
    } else {
        *fitHeight = maxHeight;
        *fitWidth = static_cast<uint32_t>(uint64_t{width} * maxHeight / height);
    }
    if (*fitWidth == 0) *fitWidth = 1;
    if (*fitHeight == 0) *fitHeight = 1;
}

// Appends to `out` a thumbnail of page 1 of `from`: reduced to fit the box,
// its resolution scaled with it, marked as a reduced-resolution image.
bool AppendThumbnail(TiffFile* out, TiffFile* from, uint32_t maxWidth, uint32_t maxHeight, bool nearest,
                     ErrorRecord* record) {
    velmora::TiffPageInfo info;
    velmora::SetWanted(&info, velmora::kFieldXResolution);
    velmora::SetWanted(&info, velmora::kFieldYResolution);
    if (!velmora::ReadPageInfo(from, 1, 0, &info, record)) return false;
    const bool hasResolution =
        velmora::IsPresent(&info, velmora::kFieldXResolution) && velmora::IsPresent(&info, velmora::kFieldYResolution);
    const velmora::Fraction x{info.xResolution.numerator, info.xResolution.denominator};
    const velmora::Fraction y{info.yResolution.numerator, info.yResolution.denominator};
    const uint16_t unit = info.resolutionUnit;
    velmora::FreePageInfo(&info);
    HGLOBAL page = velmora::ReadUprightPage(from, 1, 0, nullptr, record);
    if (page == nullptr) return false;
    HGLOBAL thumbnail = nullptr;
    {
        velmora::ImageLock lock(page);
        const BITMAPINFOHEADER* header = lock.header();
        const uint32_t pageWidth = static_cast<uint32_t>(header->biWidth);
        const uint32_t pageHeight = static_cast<uint32_t>(header->biHeight);
        uint32_t width = 0, height = 0;
        FitInBox(pageWidth, pageHeight, maxWidth, maxHeight, &width, &height);
        thumbnail = velmora::ResizeDib(header, lock.bits(), width, height,
                                       nearest ? velmora::ResizeQuality::Nearest : velmora::ResizeQuality::Smooth,
                                       velmora::ResizeColors::GreyLevels, nullptr, record);
        velmora::PageWriteOptions options;
        options.extras.hasSubfileType = true;
        options.extras.newSubfileType = 1;
        if (hasResolution) {
            // The resolution shrinks with the pixels, exactly; a result that
            // cannot be kept becomes 1/1 without a unit.
            ErrorRecord exact;
            velmora::Fraction tx = velmora::Multiply(x, velmora::Fraction{width, pageWidth}, &exact);
            velmora::Fraction ty = velmora::Multiply(y, velmora::Fraction{height, pageHeight}, &exact);
            const bool valid =
                exact.ok() && tx.numerator != 0 && tx.denominator != 0 && ty.numerator != 0 && ty.denominator != 0;
            options.extras.hasResolution = true;
            options.extras.resolution[0] = valid ? tx.numerator : 1;
            options.extras.resolution[1] = valid ? tx.denominator : 1;
            options.extras.resolution[2] = valid ? ty.numerator : 1;
            options.extras.resolution[3] = valid ? ty.denominator : 1;
            options.extras.resolutionUnit = valid ? unit : 1;
        }
        if (thumbnail != nullptr) {
            velmora::ImageLock small(thumbnail);
            velmora::AppendDibPage(out, thumbnail, small.header(), nullptr, options, record);
        }
    }
    velmora::FreeImage(&thumbnail);
    velmora::FreeImage(&page);
    return record->ok();
}

}  // namespace

BOOL VELMORA_API AppendVelmoraOpenTIFFEx(HGLOBAL tiff, VelmoraAppendTIFF* append) {
    ExportCall call;
    TiffFile* destination;
    WORD size = 0;
    if (!call.Gate() || (destination = call.Object(tiff, velmora::TiffFromHandle)) == nullptr ||
        (size = call.Sized(append, velmora::kAppendRecordSizes)) == 0) {
        return 0;
    }
    const bool wantsReason = (append->flags & VELMORA_APPEND_REASON) != 0 && size >= VELMORA_APPEND_TIFF_SIZE_V4;
    if (wantsReason && !call.Writable(&append->reason, sizeof append->reason)) return 0;
    if (wantsReason) append->reason = 0;
    AppendRequest request;
    if (WORD reason = CheckRecord(*append, size, &request)) {
        if (wantsReason) append->reason = reason;
        ExportCall::Fail(velmora::kErrInvalidParameter);
        return 0;
    }
    if (append->sourceTIFF != nullptr && call.Object(append->sourceTIFF, velmora::TiffFromHandle) == nullptr) return 0;
    if (size >= VELMORA_APPEND_TIFF_SIZE_V4 && (append->flags & VELMORA_APPEND_PROGRESS) &&
        append->progress != nullptr) {
        if (!call.Callable(reinterpret_cast<const void*>(append->progress))) return 0;
        request.progress = velmora::ProgressReporter(append->progress, append->progressUser);
        request.options.progress = &request.progress;
    }
    if (append->sourceTIFF != nullptr) {
        velmora::AppendTiffPage(destination, velmora::TiffFromHandle(append->sourceTIFF), append->sourcePage,
                                request.options, &call.record);
    } else if (append->dib != nullptr) {
        velmora::AppendDibPage(destination, request.dib.image(), request.dib.header(), request.dib.bits(),
                               request.options, &call.record);
    } else {
        std::u16string name;
        if (append->flags & VELMORA_APPEND_WIDE_NAME) {
            const char16_t* wide = velmora::FromHost(static_cast<const WCHAR*>(append->sourceName));
            if (!call.String(wide)) return 0;
            name = wide;
        } else if (!call.Widen(static_cast<const char*>(append->sourceName), &name)) {
            return call.record.failed() ? call.Finish() : 0;
        }
        AppendFromFile(destination, name.c_str(), append->sourcePage != 0 ? append->sourcePage : 1, request.options,
                       &call.record);
    }
    return call.Finish();
}

BOOL VELMORA_API AppendVelmoraOpenTIFF(HGLOBAL tiff, LPCSTR source) {
    ExportCall call;
    TiffFile* destination;
    if (!call.Gate() || (destination = call.Object(tiff, velmora::TiffFromHandle)) == nullptr) return 0;
    std::u16string name;
    if (!call.Widen(source, &name)) return call.record.failed() ? call.Finish() : 0;
    AppendAllPages(destination, name.c_str(), &call.record);
    return call.Finish();
}

BOOL VELMORA_API AppendVelmoraTIFF(LPCSTR destination, LPCSTR source) {
    ExportCall call;
    if (!call.Gate() || !call.String(destination) || !call.String(source)) return 0;
    std::u16string to, from;
    if (call.Widen(destination, &to) && call.Widen(source, &from)) AppendFileToFile(to, from, &call.record);
    return call.Finish();
}

BOOL VELMORA_API AppendVelmoraThumbnail(DWORD maxWidth, DWORD maxHeight, DWORD option, LPCSTR name) {
    ExportCall call;
    const uint32_t width = maxWidth & 0xFFFF, height = maxHeight & 0xFFFF, nearest = option & 0xFFFF;
    if (!call.Gate() ||
        !call.Value(width >= 1 && width <= kMaxThumbnail && height >= 1 && height <= kMaxThumbnail && nearest <= 1)) {
        return 0;
    }
    std::u16string path;
    if (!call.Widen(name, &path)) return call.record.failed() ? call.Finish() : 0;
    RewriteThroughTemporary(
        path,
        [&](TiffFile* out, TiffFile* old) { AppendThumbnail(out, old, width, height, nearest != 0, &call.record); },
        &call.record);
    return call.Finish();
}
