// The document information dictionary and its dates.
//
// Dates are "D:YYYYMMDDHHmmSS" in local time followed by the zone: nothing
// when the zone is unknown, "Z" for UTC, else a sign and "HH'mm'" of the
// zone's standard bias (UTC = local + bias). The sign is that of the bias
// itself, "-" for zones east of UTC: readers that expect the offset from UTC
// see the opposite sign, and files the library wrote before keep theirs, so
// it stays. Daylight saving is left out.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/error_record.h"
#include "pdf/pdf_document.h"
#include "pdf/pdf_object.h"
#include "velmora/wintypes.h"

namespace velmora {

constexpr size_t kPdfDateSize = 32;

// Formats `local` with the zone suffix of `bias` (when `zoneKnown`) into
// `out` (kPdfDateSize characters); returns the length.
size_t FormatPdfDate(const SYSTEMTIME& local, bool zoneKnown, int32_t bias, char* out);
// Sets `key` to the current time as a literal string.
void PdfDictionarySetDate(PdfObject* dictionary, const char* key, ErrorRecord* record);
// A new file's information dictionary: Creator and Producer are the
// library's product name and version, CreationDate and ModDate the time now.
PdfObject* MakeDocumentInformation(ErrorRecord* record);
// Sets ModDate of the document's information dictionary to the time now and
// has it written again; a document without one gets one holding only
// ModDate.
void UpdateModificationDate(PdfDocument* document, ErrorRecord* record);

}  // namespace velmora
