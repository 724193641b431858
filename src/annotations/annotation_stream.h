// The library's own byte formats for annotations: the annotation stream
// ("VelmoraAnnotations": a 32-byte header, fixed-size records, then a data
// area of texts, points, pictures and nested records that the records name
// by offset) and the redaction index ("VelmoraRedactions": which annotations
// of a stream are redactions and which labels belong to each).
#pragma once

#include <cstddef>
#include <cstdint>

#include "annotations/annotation.h"
#include "frame/error_record.h"
#include "io/byte_order.h"
#include "velmora/wintypes.h"

namespace velmora {

constexpr uint32_t kStreamHeaderSize = 32;
constexpr uint32_t kStreamVersion = 1;
constexpr uint32_t kGroupRecordAnsi = 6;
constexpr uint32_t kGroupRecordWide = 23;

// Walks the records of a stream (header checks, then each record's head and
// rounded size inside the stated size); calls visit(type, body, bodySize) for
// each; false with 0x02000025 / 0x02000026.
template <typename Visit>
bool WalkAnnotationRecords(const uint8_t* bytes, size_t size, Visit visit, ErrorRecord* record);

// Parses a stream into `list` (appended); *loadResult receives
// kLoadUnknownRecords when records of unknown types were dropped (may be null).
bool ReadAnnotationStream(const uint8_t* bytes, size_t size, AnnotationList* list, uint32_t* loadResult,
                          ErrorRecord* record);

// Serialises the list into a new movable block of exactly the stream's size;
// clipboard mode writes only selected annotations and those linked to them,
// without protection bits and redaction markers, and allocates the block
// shareable. Unknown objects are skipped.
HGLOBAL WriteAnnotationStream(const AnnotationList& list, bool clipboard, uint32_t* size, ErrorRecord* record);

// The redaction index of a list, or null (record untouched) when nothing
// qualifies.
HGLOBAL BuildRedactionIndex(const AnnotationList& list, bool clipboard, uint32_t* size, ErrorRecord* record);

// Applies a redaction index to the list read from the stream it travelled
// with: redaction flags, labels with their owners and exemption code texts.
// Entries naming annotations the list does not have are bad data.
bool ReadRedactionIndex(const uint8_t* bytes, size_t size, AnnotationList* list, ErrorRecord* record);

// Whether annotation `annotation` of `list` goes to a stream written in the
// given mode: everything outside clipboard mode; in clipboard mode the
// selected annotations, labels of a selected redaction, redactions with a
// selected label, and labels sharing their owner with a selected label.
bool IsLinkedToSelection(const Annotation& annotation, bool clipboard, const AnnotationList& list);

// Questions answered from the stored records without building annotations:
// whether a stream holds a pending redaction, and whether it holds a
// text-less rectangle record of the viewer's marker kind.
bool StreamHasPendingRedaction(const uint8_t* bytes, size_t size, bool* found, ErrorRecord* record);
bool StreamHasMarkerRectangle(const uint8_t* bytes, size_t size, bool* found, ErrorRecord* record);

// One entry of a table that refers to annotations of a list by index
// (0xFFFFFFFF for none): a kind word and three indices.
struct AnnotationCrossReference {
    uint32_t kind;
    uint32_t index[3];
};

// Deletes every annotation carrying the applied marker and renumbers `table`
// (*count entries): indices above a deleted annotation drop by one, and an
// entry naming a deleted annotation is removed (*count shrinks).
void RemoveAppliedAnnotations(AnnotationList* list, AnnotationCrossReference* table, size_t* count);

// ---- Record walking ------------------------------------------------------------

namespace stream_detail {
bool CheckStreamHeader(const uint8_t* bytes, size_t size, ErrorRecord* record);
}  // namespace stream_detail

template <typename Visit>
bool WalkAnnotationRecords(const uint8_t* bytes, size_t size, Visit visit, ErrorRecord* record) {
    if (!stream_detail::CheckStreamHeader(bytes, size, record)) return false;
    const uint32_t count = LoadLittleEndian32(bytes + 28);
    uint64_t position = kStreamHeaderSize;
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t recordSize = position + 8 <= size ? LoadLittleEndian32(bytes + position) : 0;
        const uint64_t rounded = (uint64_t{recordSize} + 3) & ~uint64_t{3};
        if (recordSize < 4 || position + rounded > size) {
            SetRecordError(record, kErrBadAnnotationData, 0);
            return false;
        }
        const size_t bodySize = recordSize > 8 ? recordSize - 8 : 0;
        if (!visit(LoadLittleEndian32(bytes + position + 4), bytes + position + 8, bodySize)) return false;
        position += rounded;
    }
    return true;
}

}  // namespace velmora
