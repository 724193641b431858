// A PDF document being written: its file, the cross-reference table that
// owns the in-memory objects by number, and the state of the update in
// progress.
//
// Nothing written is ever rewritten in place. Objects are appended at the
// end of the file as they are made; an object that changes is written again
// under its number in the next update, whose cross-reference section points
// at the new copy. Objects the table owns and that are not yet written (the
// information dictionary, the catalog, the page tree) are written at save.
#pragma once

#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "io/stream.h"
#include "pdf/buffered_writer.h"
#include "pdf/pdf_object.h"

namespace velmora {

// PdfDocument::flags.
constexpr uint32_t kPdfOpenModeBits = 0x07;      // copied from a template document
constexpr uint32_t kPdfNewFile = 0x48;           // created by this library
constexpr uint32_t kPdfUpdateBegun = 0x10;       // the separator and comment of this update are written
constexpr uint32_t kPdfPageTreeChanged = 0x200;  // the page tree is written again at save
constexpr uint32_t kPdfArchiveFile = 0x400;      // created for PDF/A-1 output
constexpr uint32_t kPdfXrefStreams = 0x1000;     // the file keeps cross-reference streams

// PdfDocument::pdfaMode.
constexpr uint8_t kPdfaPlain = 0;
constexpr uint8_t kPdfaPart1 = 2;

// PdfXrefEntry::flags.
constexpr uint8_t kXrefWritten = 0x01;        // written since the document was opened
constexpr uint8_t kXrefFree = 0x02;           // listed as a free entry
constexpr uint8_t kXrefInNextSection = 0x04;  // belongs to the next cross-reference section
constexpr uint8_t kXrefOffsetKnown = 0x10;

// PdfXrefEntry::marker of objects written since the document was opened.
constexpr uint16_t kXrefMarkerWritten = 0xFFFF;

// PdfDocument::contentCompression.
constexpr uint8_t kPdfContentPlain = 0;
constexpr uint8_t kPdfContentLzw = 5;  // text layers LZW-coded, outside PDF/A and encryption

// Object numbers of a new file.
constexpr uint32_t kPdfInfoNumber = 1;
constexpr uint32_t kPdfCatalogNumber = 2;
constexpr uint32_t kPdfPagesNumber = 3;
constexpr uint32_t kPdfOutputProfileNumber = 4;  // PDF/A only
constexpr uint32_t kPdfMetadataNumber = 5;       // PDF/A only

struct PdfReference {
    uint32_t number;
    uint16_t generation;
};

struct PdfXrefEntry {
    uint32_t number;
    uint16_t generation;
    uint32_t offset;
    uint8_t flags;
    uint16_t marker;
    PdfObject* object;  // owned; null when not loaded
};

struct PdfDocument {
    uint32_t flags = 0;
    uint8_t pdfaMode = kPdfaPlain;
    uint8_t lineEndChar = 0;  // 0: CR LF before an update, else this byte
    uint8_t contentCompression = kPdfContentPlain;
    Stream* file = nullptr;
    BufferedWriter out;  // its position is the end of the file
    uint32_t maxObjectNumber = 0;
    uint32_t lastStartxref = 0;  // 0 for a file never saved
    uint32_t prevXref = 0;       // 0 while the file has no cross-reference section
    uint32_t trailerPos = 0;
    PdfReference root = {0, 0};
    PdfReference info = {0, 0};
    CheckedArray<uint8_t> pendingComment;  // empty for none
    CheckedArray<PdfXrefEntry> xref;       // indexed by object number
    uint8_t encrypted = 0;
    bool hasFirstId = false;
    bool firstIdHex = false;
    CheckedArray<uint8_t> firstId;
    uint16_t pdfVersion = 0;
    char16_t path[261] = {};
};

// Creates a new PDF file at `path` (replacing one that exists): writes the
// header and makes the information dictionary, the catalog and the page tree
// root, to be written at the first save. `archive` makes the catalog of a
// PDF/A-1 file and keeps numbers 4 and 5 for the output profile and the
// metadata stream, which the caller writes.
PdfDocument* CreatePdfDocument(const char16_t* path, bool archive, ErrorRecord* record);
// Frees the document and closes its file without saving; null is allowed.
void ClosePdfDocument(PdfDocument* document);

// Takes the next free object number.
uint32_t NewPdfObjectNumber(PdfDocument* document, ErrorRecord* record);
// The entry of `number`, or null when the number is not in the table.
PdfXrefEntry* PdfEntry(PdfDocument* document, uint32_t number);
// The object the table holds under `number`, or null.
PdfObject* PdfLoadedObject(PdfDocument* document, uint32_t number);
// Hands `object` to the table under `number` (replacing and freeing one held
// there), to be written at save. The table adopts it also on failure.
void SetPdfObject(PdfDocument* document, uint32_t number, PdfObject* object, ErrorRecord* record);
// Has the object held under `number` written again at the next save.
void MarkPdfObjectChanged(PdfDocument* document, uint32_t number);
// Lists `number` as a free entry in the next cross-reference section.
void FreePdfObjectNumber(PdfDocument* document, uint32_t number);

// Makes the comment line that opens the next update ("%" + text); the
// library's own texts are "Created by <product>" and "Modified by <product>".
void SetPendingComment(PdfDocument* document, uint16_t templateId, ErrorRecord* record);
constexpr uint16_t kCommentCreatedBy = 10300;
constexpr uint16_t kCommentModifiedBy = 10301;

}  // namespace velmora
