#include "pdf/indirect_object.h"

#include "pdf/object_writer.h"

namespace velmora {
namespace {

void WriteLineEnd(PdfDocument* document, ErrorRecord* record) {
    if (document->lineEndChar == 0) {
        document->out.Text("\r\n", record);
    } else {
        document->out.Put(document->lineEndChar, record);
    }
}

void BeginUpdate(PdfDocument* document, ErrorRecord* record) {
    if ((document->flags & kPdfUpdateBegun) != 0 || record->failed()) return;
    document->flags |= kPdfUpdateBegun;
    WriteLineEnd(document, record);
    if (!document->pendingComment.empty()) {
        document->out.Put('%', record);
        document->out.Write(document->pendingComment.data(), document->pendingComment.size(), record);
        WriteLineEnd(document, record);
        document->pendingComment.Clear();
    }
}

}  // namespace

uint32_t WriteIndirectObject(PdfDocument* document, PdfObject* object, uint32_t number, uint16_t generation,
                             ErrorRecord* record) {
    if (record->failed()) return 0;
    BufferedWriter& out = document->out;
    if (number == 0) {
        uint32_t offset = static_cast<uint32_t>(out.Position());
        WritePdfObject(&out, object, document->pdfVersion, record);
        return offset;
    }
    PdfXrefEntry* entry = PdfEntry(document, number);
    if (entry == nullptr) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return 0;
    }
    BeginUpdate(document, record);
    uint64_t offset = out.Position();
    if (offset > 0xFFFFFFFFu) {
        // Cross-reference entries hold ten digits of a 32-bit offset.
        SetRecordError(record, kErrGeneral, 0);
        return 0;
    }
    out.Unsigned(number, record);
    out.Put(' ', record);
    out.Unsigned(generation, record);
    out.Text(" obj\r\n", record);
    WritePdfObject(&out, object, document->pdfVersion, record);
    if (object->kind != PdfKind::Stream) out.Text("\r\nendobj\r\n", record);
    if (record->failed()) return 0;
    entry->offset = static_cast<uint32_t>(offset);
    entry->generation = generation;
    entry->flags =
        static_cast<uint8_t>((entry->flags & ~kXrefFree) | kXrefWritten | kXrefInNextSection | kXrefOffsetKnown);
    entry->marker = kXrefMarkerWritten;
    object->state |= kPdfObjectWritten;
    return static_cast<uint32_t>(offset);
}

void WriteStreamData(PdfDocument* document, const void* data, size_t size, ErrorRecord* record) {
    document->out.Write(data, size, record);
}

void EndStream(PdfDocument* document, ErrorRecord* record) {
    document->out.Text("\r\nendstream\r\nendobj\r\n", record);
}

uint32_t WriteStreamObject(PdfDocument* document, PdfObject* stream, uint32_t number, const void* data, uint32_t size,
                           ErrorRecord* record) {
    PdfDictionarySetUnsigned(stream, "Length", size, record);
    uint32_t offset = WriteIndirectObject(document, stream, number, 0, record);
    WriteStreamData(document, data, size, record);
    EndStream(document, record);
    return offset;
}

void WritePendingObjects(PdfDocument* document, ErrorRecord* record) {
    for (size_t number = 1; number < document->xref.size() && record->ok(); ++number) {
        PdfObject* object = document->xref[number].object;
        if (object != nullptr && (object->state & kPdfObjectWritten) == 0 && object->kind != PdfKind::Stream) {
            WriteIndirectObject(document, object, static_cast<uint32_t>(number), document->xref[number].generation,
                                record);
        }
    }
}

}  // namespace velmora
