// The objects that make a new file a PDF/A-1b file: the sRGB output profile
// the catalog's output intent points at, and the XMP metadata stream that
// declares the conformance level.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "pdf/pdf_document.h"

namespace velmora {

// Builds the metadata packet: the fixed declaration of PDF/A-1 level B
// followed by `padding` spaces, written as lines of at most 100 spaces each
// ended by LF, before the closing elements.
void BuildXmpPacket(uint32_t padding, CheckedArray<uint8_t>* packet, ErrorRecord* record);

// Writes objects 4 (the system's sRGB profile, whole) and 5 (the metadata
// packet, uncompressed) of a new archive document. A missing profile fails
// with the file's error; `extraMetadata` (additional metadata text, which
// archive files cannot carry) fails with 0x02000005.
void AddPdfaObjects(PdfDocument* document, uint32_t padding, bool extraMetadata, ErrorRecord* record);

}  // namespace velmora
