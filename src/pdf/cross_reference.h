// Saving: the cross-reference section, the trailer with the file identifier
// and the tail that close an update.
//
// A file without a cross-reference section yet gets the full table of
// objects 0 to the highest number; later saves append an update section
// that lists only the objects written (or freed) since the last save and
// points back at the previous section with /Prev. A file that keeps
// cross-reference streams gets its update as such a stream instead of a
// table and a trailer.
#pragma once

#include "frame/error_record.h"
#include "pdf/pdf_document.h"

namespace velmora {

// Closes the update in progress when the document has anything to save:
// sets ModDate, writes the pending objects (the page tree again when it
// changed), the cross-reference data, the trailer and the tail. After a
// failure the file ends in a partial update that readers skip.
void SaveDocument(PdfDocument* document, ErrorRecord* record);

}  // namespace velmora
