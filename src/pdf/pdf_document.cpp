#include "pdf/pdf_document.h"

#include <cstring>
#include <new>

#include "frame/library.h"
#include "frame/text.h"
#include "pdf/document_info.h"
#include "platform/platform.h"

namespace velmora {
namespace {

// "%PDF-1.4", then a comment of four bytes from 0x80 up that marks the file
// as binary.
const uint8_t kNewFileHeader[17] = {'%',  'P', 'D',  'F',  '-',  '1',  '.',  '4', '\r',
                                    '\n', '%', 0xA2, 0xA3, 0xA9, 0xB5, '\r', '\n'};

void AddEntry(PdfDocument* document, ErrorRecord* record) {
    PdfXrefEntry entry = {static_cast<uint32_t>(document->xref.size()), 0, 0, 0, 0, nullptr};
    if (entry.number == 0) {
        entry.generation = 65535;
        entry.flags = kXrefFree;
    }
    document->xref.Append(entry, record);
}

PdfObject* MakeCatalog(bool archive, ErrorRecord* record) {
    PdfObject* catalog = PdfMakeDictionary(record);
    if (catalog == nullptr) return nullptr;
    PdfDictionarySetName(catalog, "Type", "Catalog", record);
    PdfDictionarySetReference(catalog, "Pages", kPdfPagesNumber, 0, record);
    if (archive) {
        static const char kCondition[] = "sRGB IEC61966-2.1";
        PdfObject* intent = PdfMakeDictionary(record);
        if (intent != nullptr) {
            PdfDictionarySetName(intent, "S", "GTS_PDFA1", record);
            PdfDictionarySetString(intent, "OutputConditionIdentifier", kCondition, -1, false, record);
            PdfDictionarySetString(intent, "Info", kCondition, -1, false, record);
            PdfDictionarySetReference(intent, "DestOutputProfile", kPdfOutputProfileNumber, 0, record);
        }
        PdfObject* intents = PdfMakeArray(record);
        PdfArrayAppend(intents, intent, record);
        PdfDictionarySet(catalog, "OutputIntents", intents, record);
        PdfDictionarySetReference(catalog, "Metadata", kPdfMetadataNumber, 0, record);
    }
    return catalog;
}

PdfObject* MakePageTree(ErrorRecord* record) {
    PdfObject* pages = PdfMakeDictionary(record);
    if (pages == nullptr) return nullptr;
    PdfDictionarySetName(pages, "Type", "Pages", record);
    PdfDictionarySet(pages, "Kids", PdfMakeArray(record), record);
    PdfDictionarySetInteger(pages, "Count", 0, record);
    return pages;
}

}  // namespace

PdfDocument* CreatePdfDocument(const char16_t* path, bool archive, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    PdfDocument* document = new (std::nothrow) PdfDocument;
    if (document == nullptr) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return nullptr;
    }
    size_t length = 0;
    while (path[length] != 0 && length + 1 < sizeof document->path / sizeof document->path[0]) ++length;
    std::memcpy(document->path, path, length * sizeof(char16_t));
    document->flags = kPdfNewFile | (archive ? kPdfArchiveFile : 0);
    document->pdfaMode = archive ? kPdfaPart1 : kPdfaPlain;
    document->pdfVersion = 0x0104;
    document->file = OpenFileStream(path, kStreamRead | kStreamWrite, false, true, record);
    if (document->file != nullptr) StreamSetSize(document->file, 0, record);
    document->out.AttachStream(document->file, 0);
    document->out.Write(kNewFileHeader, sizeof kNewFileHeader, record);

    uint32_t last = archive ? kPdfMetadataNumber : kPdfPagesNumber;
    for (uint32_t number = 0; number <= last; ++number) AddEntry(document, record);
    document->maxObjectNumber = last;
    SetPdfObject(document, kPdfInfoNumber, MakeDocumentInformation(record), record);
    SetPdfObject(document, kPdfCatalogNumber, MakeCatalog(archive, record), record);
    SetPdfObject(document, kPdfPagesNumber, MakePageTree(record), record);
    document->info = {kPdfInfoNumber, 0};
    document->root = {kPdfCatalogNumber, 0};
    SetPendingComment(document, kCommentCreatedBy, record);
    if (record->failed()) {
        ClosePdfDocument(document);
        return nullptr;
    }
    return document;
}

void ClosePdfDocument(PdfDocument* document) {
    if (document == nullptr) return;
    if (document->file != nullptr) {
        ErrorRecord ignored;
        document->out.Flush(&ignored);
        CloseStream(document->file, nullptr);
    }
    for (PdfXrefEntry& entry : document->xref) PdfFreeObject(entry.object);
    delete document;
}

uint32_t NewPdfObjectNumber(PdfDocument* document, ErrorRecord* record) {
    if (record->failed()) return 0;
    while (document->xref.size() <= uint64_t{document->maxObjectNumber} + 1 && record->ok()) {
        AddEntry(document, record);
    }
    if (record->failed()) return 0;
    return ++document->maxObjectNumber;
}

PdfXrefEntry* PdfEntry(PdfDocument* document, uint32_t number) {
    return number < document->xref.size() ? &document->xref[number] : nullptr;
}

PdfObject* PdfLoadedObject(PdfDocument* document, uint32_t number) {
    PdfXrefEntry* entry = PdfEntry(document, number);
    return entry == nullptr ? nullptr : entry->object;
}

void SetPdfObject(PdfDocument* document, uint32_t number, PdfObject* object, ErrorRecord* record) {
    PdfXrefEntry* entry = PdfEntry(document, number);
    if (record->failed() || object == nullptr || entry == nullptr || number == 0) {
        if (record->ok() && object != nullptr) SetRecordError(record, kErrInvalidParameter, 0);
        PdfFreeObject(object);
        return;
    }
    if (entry->object != object) PdfFreeObject(entry->object);
    object->state &= static_cast<uint8_t>(~kPdfObjectWritten);
    entry->object = object;
}

void MarkPdfObjectChanged(PdfDocument* document, uint32_t number) {
    PdfObject* object = PdfLoadedObject(document, number);
    if (object != nullptr) object->state &= static_cast<uint8_t>(~kPdfObjectWritten);
}

void FreePdfObjectNumber(PdfDocument* document, uint32_t number) {
    PdfXrefEntry* entry = PdfEntry(document, number);
    if (entry == nullptr || number == 0) return;
    PdfFreeObject(entry->object);
    entry->object = nullptr;
    entry->offset = 0;
    entry->flags = static_cast<uint8_t>((entry->flags & ~kXrefOffsetKnown) | kXrefFree | kXrefInNextSection);
    if (entry->generation < 65535) ++entry->generation;
}

void SetPendingComment(PdfDocument* document, uint16_t templateId, ErrorRecord* record) {
    if (record->failed()) return;
    char product[128];
    uint32_t error = 0;
    if (!platform::WideToNarrow(ProductName().c_str(), product, sizeof product, &error)) product[0] = 0;
    char16_t wide[256];
    if (!FormatText(templateId, wide, 256, record, product)) return;
    char text[512];
    if (!platform::WideToNarrow(wide, text, sizeof text, &error)) text[0] = 0;
    size_t length = std::strlen(text);
    if (document->pendingComment.Sized(length, record)) std::memcpy(document->pendingComment.data(), text, length);
}

}  // namespace velmora
