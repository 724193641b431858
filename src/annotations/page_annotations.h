// The annotations of one TIFF page, gathered from every place they can be:
// the page's own annotation block, its Wang/Eastman block, its sheet-chunk
// block and the companion file of the document the TIFF belongs to.
#pragma once

#include <cstdint>

#include "annotations/annotation.h"
#include "frame/error_record.h"
#include "tiff/tiff_file.h"

namespace velmora {

// Where an annotation came from (for tools that report it).
enum class AnnotationSource : uint8_t { Own = 0, Wang = 1, SheetChunks = 2, Companion = 3 };

// A set of sources: bit 1 << source for each.
constexpr uint32_t SourceBit(AnnotationSource source) { return 1u << static_cast<uint32_t>(source); }
constexpr uint32_t kAllAnnotationSources = 0xF;

// Appends the annotations of `page` (1-based) to `list` in the order own
// block, Wang block, sheet-chunk block (converted with the page's
// resolution, 0 when absent), companion file. With a companion, its mode
// decides: "replace" ignores the page's own blocks, "add" uses both, and
// otherwise the companion is consulted only for a page that has none of the
// three blocks. `sources`, when not null, receives one entry per annotation
// appended. *loadResult collects the load-result bits of the readers.
bool ReadPageAnnotations(TiffFile* tiff, uint32_t page, AnnotationList* list, CheckedArray<AnnotationSource>* sources,
                         uint32_t* loadResult, ErrorRecord* record);

// The page's annotations from the sources in `sources` (a set of SourceBit)
// as one annotation stream: which sources the page uses is decided first, as
// for ReadPageAnnotations, and `sources` then leaves some out. The page's own
// block as stored when it is the only source left, else the sources left
// merged and written anew. *stream is null and *size 0 when they hold no
// annotations.
bool PageAnnotationStream(TiffFile* tiff, uint32_t page, uint32_t sources, HGLOBAL* stream, uint32_t* size,
                          ErrorRecord* record);

}  // namespace velmora
