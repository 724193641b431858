#include "pdf/cross_reference.h"

#include "frame/formatter.h"
#include "pdf/document_id.h"
#include "pdf/document_info.h"
#include "pdf/indirect_object.h"
#include "pdf/object_writer.h"
#include "platform/local_time.h"
#include "platform/platform.h"

namespace velmora {
namespace {

bool HasChanges(PdfDocument* document) {
    if ((document->flags & (kPdfUpdateBegun | kPdfPageTreeChanged)) != 0) return true;
    for (const PdfXrefEntry& entry : document->xref) {
        if ((entry.flags & kXrefInNextSection) != 0) return true;
        if (entry.object != nullptr && (entry.object->state & kPdfObjectWritten) == 0) return true;
    }
    return false;
}

void MarkPageTreeChanged(PdfDocument* document) {
    PdfObject* catalog = PdfLoadedObject(document, document->root.number);
    PdfObject* pages = catalog == nullptr ? nullptr : PdfDictionaryGet(catalog, "Pages");
    if (pages != nullptr && pages->kind == PdfKind::Reference) MarkPdfObjectChanged(document, pages->number);
}

void WriteTableEntry(BufferedWriter* out, uint32_t offset, uint16_t generation, bool inUse, ErrorRecord* record) {
    char line[32];
    out->Write(line, FormatNarrow(line, sizeof line, "%010lu %05u %c\r\n", offset, generation, inUse ? 'n' : 'f'),
               record);
}

bool InUse(const PdfXrefEntry& entry) {
    return (entry.flags & kXrefFree) == 0 && (entry.flags & kXrefOffsetKnown) != 0;
}

void WriteFullTable(PdfDocument* document, ErrorRecord* record) {
    BufferedWriter* out = &document->out;
    out->Text("xref\r\n0 ", record);
    out->Unsigned(uint64_t{document->maxObjectNumber} + 1, record);
    out->Text("\r\n", record);
    WriteTableEntry(out, 0, 65535, false, record);
    for (uint32_t number = 1; number <= document->maxObjectNumber && record->ok(); ++number) {
        const PdfXrefEntry& entry = document->xref[number];
        WriteTableEntry(out, InUse(entry) ? entry.offset : 0, 0, InUse(entry), record);
    }
}

// Calls `run(first, count)` for every run of consecutive numbers listed in
// the next section.
template <typename Run>
void ForEachRun(PdfDocument* document, Run run) {
    size_t count = document->xref.size();
    for (size_t first = 0; first < count;) {
        if ((document->xref[first].flags & kXrefInNextSection) == 0) {
            ++first;
            continue;
        }
        size_t end = first;
        while (end < count && (document->xref[end].flags & kXrefInNextSection) != 0) ++end;
        run(static_cast<uint32_t>(first), static_cast<uint32_t>(end - first));
        first = end;
    }
}

void WriteUpdateTable(PdfDocument* document, ErrorRecord* record) {
    BufferedWriter* out = &document->out;
    out->Text("xref\r\n", record);
    ForEachRun(document, [&](uint32_t first, uint32_t count) {
        char line[32];
        out->Write(line, FormatNarrow(line, sizeof line, "%lu %lu\r\n", first, count), record);
        for (uint32_t number = first; number < first + count; ++number) {
            const PdfXrefEntry& entry = document->xref[number];
            WriteTableEntry(out, entry.offset, entry.generation, (entry.flags & kXrefFree) == 0, record);
        }
    });
}

// The /ID array: the file's first identifier as it was, or the new digest,
// then the new digest.
PdfObject* MakeIdentifier(PdfDocument* document, ErrorRecord* record) {
    CheckedArray<uint8_t> info;
    PdfObject* infoObject = PdfLoadedObject(document, document->info.number);
    if (infoObject != nullptr) {
        BufferedWriter serialiser;
        serialiser.AttachBytes(&info);
        WritePdfObject(&serialiser, infoObject, document->pdfVersion, record);
        serialiser.Flush(record);
    }
    SYSTEMTIME now;
    platform::UtcNow(&now);
    uint8_t digest[platform::kMd5Size];
    ComputeDocumentId(now, document->path, static_cast<uint32_t>(document->out.Position()), info.data(), info.size(),
                      digest, record);
    if (record->failed()) return nullptr;
    if (!document->hasFirstId && document->firstId.Sized(sizeof digest, record)) {
        for (size_t i = 0; i < sizeof digest; ++i) document->firstId[i] = digest[i];
        document->firstIdHex = true;
        document->hasFirstId = true;
    }
    PdfObject* id = PdfMakeArray(record);
    PdfArrayAppend(id, PdfMakeString(document->firstId.data(), document->firstId.size(), document->firstIdHex, record),
                   record);
    PdfArrayAppend(id, PdfMakeString(digest, sizeof digest, true, record), record);
    return id;
}

bool NeedsIdentifier(const PdfDocument* document) {
    return (document->flags & kPdfArchiveFile) != 0 || document->hasFirstId;
}

// The pairs the trailer and a cross-reference stream share.
void SetTrailerPairs(PdfDocument* document, PdfObject* trailer, ErrorRecord* record) {
    PdfDictionarySetUnsigned(trailer, "Size", document->maxObjectNumber + 1, record);
    PdfDictionarySetReference(trailer, "Root", document->root.number, document->root.generation, record);
    if (document->prevXref != 0) PdfDictionarySetUnsigned(trailer, "Prev", document->prevXref, record);
    if (document->info.number != 0) {
        PdfDictionarySetReference(trailer, "Info", document->info.number, document->info.generation, record);
    }
    if (NeedsIdentifier(document)) PdfDictionarySet(trailer, "ID", MakeIdentifier(document, record), record);
}

void WriteTrailer(PdfDocument* document, ErrorRecord* record) {
    PdfObject* trailer = PdfMakeDictionary(record);
    SetTrailerPairs(document, trailer, record);
    if (record->ok()) {
        document->trailerPos = static_cast<uint32_t>(document->out.Position());
        document->out.Text("trailer\r\n", record);
        WriteIndirectObject(document, trailer, 0, 0, record);
    }
    PdfFreeObject(trailer);
}

// The update as a cross-reference stream: entries of one type byte, a
// 32-bit offset and a 16-bit generation, the stream listing itself.
void WriteXrefStream(PdfDocument* document, uint32_t offset, ErrorRecord* record) {
    uint32_t self = NewPdfObjectNumber(document, record);
    if (record->failed()) return;
    PdfXrefEntry& own = document->xref[self];
    own.offset = offset;
    own.flags |= kXrefInNextSection | kXrefOffsetKnown;
    PdfObject* stream = PdfMakeStream(record);
    PdfObject* index = PdfMakeArray(record);
    CheckedArray<uint8_t> rows;
    ForEachRun(document, [&](uint32_t first, uint32_t count) {
        PdfArrayAppend(index, PdfMakeInteger(static_cast<int32_t>(first), record), record);
        PdfArrayAppend(index, PdfMakeInteger(static_cast<int32_t>(count), record), record);
        for (uint32_t number = first; number < first + count; ++number) {
            const PdfXrefEntry& entry = document->xref[number];
            uint32_t field = (entry.flags & kXrefFree) == 0 ? entry.offset : 0;
            const uint8_t row[7] = {static_cast<uint8_t>((entry.flags & kXrefFree) == 0 ? 1 : 0),
                                    static_cast<uint8_t>(field >> 24),
                                    static_cast<uint8_t>(field >> 16),
                                    static_cast<uint8_t>(field >> 8),
                                    static_cast<uint8_t>(field),
                                    static_cast<uint8_t>(entry.generation >> 8),
                                    static_cast<uint8_t>(entry.generation)};
            for (uint8_t byte : row) rows.Append(byte, record);
        }
    });
    PdfDictionarySetName(stream, "Type", "XRef", record);
    PdfDictionarySet(stream, "Index", index, record);
    PdfObject* widths = PdfMakeArray(record);
    for (int32_t width : {1, 4, 2}) PdfArrayAppend(widths, PdfMakeInteger(width, record), record);
    PdfDictionarySet(stream, "W", widths, record);
    SetTrailerPairs(document, stream, record);
    if (record->ok())
        WriteStreamObject(document, stream, self, rows.data(), static_cast<uint32_t>(rows.size()), record);
    PdfFreeObject(stream);
}

}  // namespace

void SaveDocument(PdfDocument* document, ErrorRecord* record) {
    if (record->failed() || !HasChanges(document)) return;
    UpdateModificationDate(document, record);
    if ((document->flags & kPdfPageTreeChanged) != 0) MarkPageTreeChanged(document);
    WritePendingObjects(document, record);
    if (record->failed()) return;
    document->flags &= ~kPdfPageTreeChanged;

    uint32_t offset = static_cast<uint32_t>(document->out.Position());
    if (document->prevXref == 0) {
        WriteFullTable(document, record);
        WriteTrailer(document, record);
    } else if ((document->flags & kPdfXrefStreams) != 0) {
        WriteXrefStream(document, offset, record);
    } else {
        WriteUpdateTable(document, record);
        WriteTrailer(document, record);
    }
    document->out.Text("\r\nstartxref\r\n", record);
    document->out.Unsigned(offset, record);
    document->out.Text("\r\n%%EOF\r\n", record);
    document->out.Flush(record);
    if (record->failed()) return;

    document->lastStartxref = offset;
    document->prevXref = offset;
    document->flags &= ~kPdfUpdateBegun;
    for (PdfXrefEntry& entry : document->xref) entry.flags &= static_cast<uint8_t>(~kXrefInNextSection);
    SetPendingComment(document, kCommentModifiedBy, record);
}

}  // namespace velmora
