// Exported functions of new image PDFs: creating a document, appending TIFF
// pages to it, saving and closing it, and converting a whole TIFF file.
#include <cstring>
#include <new>
#include <string>

#include "frame/export_call.h"
#include "frame/library.h"
#include "frame/memory_handle.h"
#include "frame/settings.h"
#include "frame/wide_text.h"
#include "io/stream.h"
#include "pdf/cross_reference.h"
#include "pdf/image_page.h"
#include "pdf/jbig2_converter.h"
#include "pdf/pdf_document.h"
#include "pdf/pdfa.h"
#include "platform/platform.h"
#include "tiff/document.h"
#include "tiff/document_type.h"
#include "tiff/tiff_file.h"
#include "velmora/velmora.h"

using velmora::ErrorRecord;
using velmora::ExportCall;
using velmora::PdfDocument;

namespace {

constexpr uint32_t kPdfHandleSignature = 0x46445056u;  // "VPDF"
// Bits of the conversion defaults' flag word.
constexpr uint32_t kOptionBurnIn = 0x0400;
constexpr uint32_t kOptionTextLayer = 0x1000;
constexpr uint32_t kOptionArchive = 0x2000;

constexpr WORD kInfoKnownFlags = 0x801F;
constexpr DWORD kInfoKnownMask = 0x60;

// What a document handle's block holds.
struct PdfHandleBlock {
    uint32_t signature;
    PdfDocument* document;
};

HGLOBAL MakePdfHandle(PdfDocument* document, ErrorRecord* record) {
    HGLOBAL handle = velmora::AllocHandle(sizeof(PdfHandleBlock), 0, record);
    if (handle == nullptr) {
        velmora::ClosePdfDocument(document);
        return nullptr;
    }
    auto* block = static_cast<PdfHandleBlock*>(velmora::platform::MemLock(handle));
    block->signature = kPdfHandleSignature;
    block->document = document;
    velmora::platform::MemUnlock(handle);
    return handle;
}

PdfDocument* PdfFromHandle(HGLOBAL handle) {
    if (velmora::platform::MemSize(handle) < sizeof(PdfHandleBlock)) return nullptr;
    auto* block = static_cast<PdfHandleBlock*>(velmora::platform::MemLock(handle));
    if (block == nullptr) return nullptr;
    PdfDocument* document = block->signature == kPdfHandleSignature ? block->document : nullptr;
    velmora::platform::MemUnlock(handle);
    return document;
}

// Settings of image pages, in the section "PDF".
constexpr uint16_t kSectionPdf = 10302;
constexpr uint16_t kValueBilevelCompression = 10303;
constexpr uint16_t kValueToBilevel = 10304;
constexpr uint16_t kValueEnhancedCompress = 10305;
constexpr uint16_t kValueBlackZeroToWhiteZero = 10306;
constexpr uint16_t kValueJbig2CheckColor = 10307;
// "BW Compression" of the route through the outside JBIG2 converter.
constexpr int32_t kBilevelCompressionJbig2 = 34715;

// An integer setting; a missing or unreadable one is 0.
int32_t IntegerSetting(uint16_t valueId) {
    char16_t text[32] = {};
    ErrorRecord ignored;
    velmora::ReadSetting(kSectionPdf, valueId, true, text, sizeof text / sizeof text[0], &ignored);
    int64_t value = 0;
    const bool negative = text[0] == u'-';
    for (const char16_t* at = text + (negative ? 1 : 0); *at >= u'0' && *at <= u'9' && value < 0x7FFFFFFF; ++at) {
        value = value * 10 + (*at - u'0');
    }
    return static_cast<int32_t>(negative ? -value : value);
}

// The choices for pages, read afresh for every page.
velmora::ImagePageChoices PageChoices(bool archive, bool burnIn, bool textLayer) {
    velmora::ImagePageChoices choices;
    choices.archive = archive;
    choices.burnAnnotations = burnIn;
    choices.textLayer = textLayer;
    const int32_t compression = IntegerSetting(kValueBilevelCompression);
    const bool known = (compression >= 0 && compression <= 5) || compression == 32773;
    choices.bilevelCompression = static_cast<uint16_t>(known ? compression : 0);
    const int32_t toBilevel = IntegerSetting(kValueToBilevel);
    choices.forceBilevel = toBilevel != 0;
    choices.dither = toBilevel == 2;
    choices.enhanced = !choices.forceBilevel && IntegerSetting(kValueEnhancedCompress) != 0;
    return choices;
}

// The outside converter's choices when the settings ask for its route.
bool Jbig2Route(velmora::Jbig2Choices* choices) {
    const int32_t toBilevel = IntegerSetting(kValueToBilevel);
    if (toBilevel == 0 || IntegerSetting(kValueBilevelCompression) != kBilevelCompressionJbig2) return false;
    choices->dither = toBilevel == 2;
    choices->whiteIsZero = IntegerSetting(kValueBlackZeroToWhiteZero) != 0;
    choices->checkColor = IntegerSetting(kValueJbig2CheckColor) != 0;
    return true;
}

bool DefaultBurnIn() { return (velmora::DefaultConversionOptions()->flags & kOptionBurnIn) != 0; }
bool DefaultTextLayer() { return (velmora::DefaultConversionOptions()->flags & kOptionTextLayer) != 0; }

// Opens the TIFF at `path` as a document: 0x02000002 for a file of no known
// type and 0x0200001B for another known type.
velmora::TiffDocument* OpenTiffSource(const std::u16string& path, ErrorRecord* record) {
    velmora::Stream* stream = velmora::OpenFileStream(path.c_str(), velmora::kStreamRead, true, false, record);
    if (stream == nullptr) return nullptr;
    uint8_t bytes[velmora::kDocumentProbeBytes];
    const uint32_t got = velmora::StreamRead(stream, bytes, sizeof bytes, 0, record);
    velmora::CloseStream(stream, nullptr);
    if (record->failed()) return nullptr;
    const int32_t type = velmora::DocumentTypeOfBytes(bytes, got);
    if (type != VELMORA_DOCTYPE_TIFF) {
        const uint32_t code =
            type == velmora::kDocumentUnknown ? velmora::kErrUnrecognizedFormat : velmora::kErrUnsupportedFileType;
        velmora::SetRecordError(record, code, 0);
        return nullptr;
    }
    return velmora::OpenTiffDocumentFile(path.c_str(), velmora::kCompanionWhereMissing, record);
}

bool AppendPage(HGLOBAL pdf, const std::u16string& path, DWORD page, ExportCall* call) {
    PdfDocument* document = PdfFromHandle(pdf);
    velmora::TiffDocument* tiff = OpenTiffSource(path, &call->record);
    if (tiff != nullptr) {
        velmora::AppendTiffPage(
            document, tiff, page,
            PageChoices(document->pdfaMode != velmora::kPdfaPlain, DefaultBurnIn(), DefaultTextLayer()), &call->record);
        velmora::CloseTiffDocument(tiff, nullptr);
    }
    return call->Finish() != 0;
}

HGLOBAL CreatePdf(const std::u16string& path, bool hasTemplate, ExportCall* call) {
    // Starting from a template needs the reader of existing files.
    if (hasTemplate) velmora::SetRecordError(&call->record, velmora::kErrUnsupportedFileType, 0);
    PdfDocument* document = velmora::CreatePdfDocument(path.c_str(), false, &call->record);
    HGLOBAL handle = document == nullptr ? nullptr : MakePdfHandle(document, &call->record);
    if (!call->Finish()) return nullptr;
    return handle;
}

// Creates the conversion's PDF; an archive file gets its profile and
// metadata at once.
PdfDocument* CreateConverted(const std::u16string& path, bool archive, uint32_t padding, bool extraMetadata,
                             ErrorRecord* record) {
    PdfDocument* document = velmora::CreatePdfDocument(path.c_str(), archive, record);
    if (document == nullptr || !archive) return document;
    velmora::AddPdfaObjects(document, padding, extraMetadata, record);
    if (record->ok()) return document;
    velmora::ClosePdfDocument(document);
    return nullptr;
}

// The host's path in UTF-16: code-page text, or wide text with `wide`.
bool HostPath(const void* text, bool wide, std::u16string* path, ExportCall* call) {
    if (!wide) return call->Widen(static_cast<const char*>(text), path);
    const char16_t* name = velmora::FromHost(static_cast<const WCHAR*>(text));
    if (!call->String(name)) return false;
    *path = name;
    return true;
}

}  // namespace

HGLOBAL VELMORA_API CreateVelmoraPDF(LPCSTR path, LPCSTR templatePath) {
    ExportCall call;
    std::u16string wide;
    std::u16string from;
    if (!call.Gate() || !call.Widen(path, &wide) || (templatePath != nullptr && !call.Widen(templatePath, &from))) {
        call.Finish();
        return nullptr;
    }
    return CreatePdf(wide, templatePath != nullptr, &call);
}

HGLOBAL VELMORA_API CreateVelmoraPDFW(LPCWSTR path, LPCWSTR templatePath) {
    ExportCall call;
    const char16_t* name = velmora::FromHost(path);
    const char16_t* from = velmora::FromHost(templatePath);
    if (!call.Gate() || !call.String(name) || (from != nullptr && !call.String(from))) return nullptr;
    return CreatePdf(name, from != nullptr, &call);
}

BOOL VELMORA_API AppendVelmoraPDFPage(HGLOBAL pdf, LPCSTR tiffPath, DWORD page) {
    ExportCall call;
    std::u16string wide;
    if (!call.Gate() || call.Object(pdf, PdfFromHandle) == nullptr || !call.Value(page != 0)) return FALSE;
    if (!call.Widen(tiffPath, &wide)) {
        call.Finish();
        return FALSE;
    }
    return AppendPage(pdf, wide, page, &call);
}

BOOL VELMORA_API AppendVelmoraPDFPageW(HGLOBAL pdf, LPCWSTR tiffPath, DWORD page) {
    ExportCall call;
    const char16_t* name = velmora::FromHost(tiffPath);
    if (!call.Gate() || call.Object(pdf, PdfFromHandle) == nullptr || !call.Value(page != 0) || !call.String(name)) {
        return FALSE;
    }
    return AppendPage(pdf, name, page, &call);
}

BOOL VELMORA_API SaveVelmoraPDF(HGLOBAL pdf) {
    ExportCall call;
    PdfDocument* document = call.Gate() ? call.Object(pdf, PdfFromHandle) : nullptr;
    if (document == nullptr) return FALSE;
    velmora::SaveDocument(document, &call.record);
    return call.Finish();
}

BOOL VELMORA_API CloseVelmoraPDF(HGLOBAL pdf) {
    ExportCall call;
    PdfDocument* document = call.Gate() ? call.Object(pdf, PdfFromHandle) : nullptr;
    if (document == nullptr) return FALSE;
    velmora::ClosePdfDocument(document);
    velmora::FreeHandle(&pdf);
    return call.Finish();
}

BOOL VELMORA_API ConvertVelmoraTIFFToPDFEx(const VelmoraTIFFToPDFInfo* info) {
    ExportCall call;
    const WORD size =
        call.Gate() ? call.Sized(info, {WORD{VELMORA_TIFF_TO_PDF_INFO_SIZE_V1}, WORD{VELMORA_TIFF_TO_PDF_INFO_SIZE_V2},
                                        WORD{VELMORA_TIFF_TO_PDF_INFO_SIZE_V3}})
                    : 0;
    if (size == 0) return FALSE;
    const WORD flags = info->flags;
    const bool masked = (flags & VELMORA_TIFF_TO_PDF_MASKED_VALUES) != 0;
    if (!call.Value((flags & ~kInfoKnownFlags) == 0) ||
        !call.Value(!masked || size >= VELMORA_TIFF_TO_PDF_INFO_SIZE_V2) ||
        !call.Value((flags & VELMORA_TIFF_TO_PDF_XMP_PADDING) == 0 || size >= VELMORA_TIFF_TO_PDF_INFO_SIZE_V3) ||
        !call.Value(!masked || (info->valueMask & ~kInfoKnownMask) == 0)) {
        return FALSE;
    }
    const bool wide = (flags & VELMORA_TIFF_TO_PDF_WIDE) != 0;
    std::u16string source;
    std::u16string destination;
    if (!HostPath(info->source, wide, &source, &call) || !HostPath(info->destination, wide, &destination, &call)) {
        call.Finish();
        return FALSE;
    }
    bool archive = (velmora::DefaultConversionOptions()->flags & kOptionArchive) != 0;
    if (flags & VELMORA_TIFF_TO_PDF_PDFA_VALID) archive = (info->options & VELMORA_TIFF_TO_PDF_PDFA) != 0;
    bool textLayer = DefaultTextLayer();
    if (flags & VELMORA_TIFF_TO_PDF_TEXT_LAYER_VALID) textLayer = (info->options & VELMORA_TIFF_TO_PDF_TEXT_LAYER) != 0;
    bool burnIn = DefaultBurnIn();
    if (masked && (info->valueMask & VELMORA_TIFF_TO_PDF_VALUE_BURN_IN)) {
        burnIn = (info->values & VELMORA_TIFF_TO_PDF_VALUE_BURN_IN) != 0;
    }
    const uint32_t padding = (flags & VELMORA_TIFF_TO_PDF_XMP_PADDING) ? info->xmpPadding : 0;
    const bool extraMetadata = (flags & VELMORA_TIFF_TO_PDF_METADATA) != 0 && info->metadata != nullptr;
    velmora::Jbig2Choices jbig2;
    if (Jbig2Route(&jbig2)) {
        void* module = nullptr;
        velmora::Jbig2Entry entry = velmora::LoadJbig2Converter(&module, &call.record);
        velmora::TiffDocument* tiff = entry == nullptr ? nullptr : OpenTiffSource(source, &call.record);
        if (tiff != nullptr) {
            velmora::ConvertThroughJbig2(entry, tiff, destination, jbig2, &call.record);
            velmora::CloseTiffDocument(tiff, nullptr);
        }
        velmora::platform::UnloadModule(module);
        return call.Finish();
    }
    velmora::TiffDocument* tiff = OpenTiffSource(source, &call.record);
    PdfDocument* document =
        tiff == nullptr ? nullptr : CreateConverted(destination, archive, padding, extraMetadata, &call.record);
    if (document != nullptr) {
        for (uint32_t page = 1; page <= tiff->pageCount && call.record.ok(); ++page) {
            velmora::AppendTiffPage(document, tiff, page, PageChoices(archive, burnIn, textLayer), &call.record);
        }
        velmora::SaveDocument(document, &call.record);
        velmora::ClosePdfDocument(document);
    }
    if (tiff != nullptr) velmora::CloseTiffDocument(tiff, nullptr);
    return call.Finish();
}

BOOL VELMORA_API ConvertVelmoraTIFFToPDF(LPCSTR source, LPCSTR destination) {
    VelmoraTIFFToPDFInfo info = {};
    info.size = VELMORA_TIFF_TO_PDF_INFO_SIZE_V3;
    info.source = source;
    info.destination = destination;
    return ConvertVelmoraTIFFToPDFEx(&info);
}
