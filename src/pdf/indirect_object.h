// Indirect objects: "n g obj", the object, "endobj", appended at the end of
// the document's file and recorded in its cross-reference table.
//
// The first object after the document was opened or last saved opens an
// update: it is preceded by one line end (CR LF, or the byte the opened file
// uses) and, when one is pending, the comment line. Nested objects are
// written inline; an indirect child is a reference.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/error_record.h"
#include "pdf/pdf_document.h"
#include "pdf/pdf_object.h"

namespace velmora {

// Writes `object` as object `number`, marks it written and returns the
// offset of its header. A stream ends after "stream" and its line end: the
// caller follows with WriteStreamData and EndStream. Number 0 writes the bare
// object, with no header and no table entry (the trailer dictionary).
uint32_t WriteIndirectObject(PdfDocument* document, PdfObject* object, uint32_t number, uint16_t generation,
                             ErrorRecord* record);
void WriteStreamData(PdfDocument* document, const void* data, size_t size, ErrorRecord* record);
// Writes "endstream" and "endobj".
void EndStream(PdfDocument* document, ErrorRecord* record);
// Writes a stream object whose whole data is at hand; sets its /Length.
uint32_t WriteStreamObject(PdfDocument* document, PdfObject* stream, uint32_t number, const void* data, uint32_t size,
                           ErrorRecord* record);
// Writes every object the table holds that is not written yet, in number
// order.
void WritePendingObjects(PdfDocument* document, ErrorRecord* record);

}  // namespace velmora
