// The companion annotation file of a TIFF document ("<name>.art"): the
// annotations of each page of the document, kept beside the TIFF instead of
// in it. Little-endian:
//
//   0   u32  total size of the store, header included (at most the file's)
//   4   20   "VelmoraArt" and ten zero bytes (all 20 compared)
//   24  u32  version, 1
//   28  u32  number of pages n
//   32  n × (u32 offset, u32 size): page 1 first, the page's annotation
//            stream at `offset` from the start of the store; 0 and 0 for a
//            page without annotations
//
// Every stream lies inside the store.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/error_record.h"

namespace velmora {

constexpr uint32_t kCompanionHeaderSize = 32;

// Whether `bytes` hold a companion store whose header and page table fit.
bool IsCompanionStore(const uint8_t* bytes, size_t size);

// The annotation stream of `page` (1-based) of a store that IsCompanionStore
// accepted: true with *stream null and *streamSize 0 when the page has none;
// false with "IFD not found." (0x02000003) for a page beyond the store's and
// "Bad annotation data." for an entry that does not lie inside the store.
bool CompanionPageStream(const uint8_t* bytes, size_t size, uint32_t page, const uint8_t** stream,
                         uint32_t* streamSize, ErrorRecord* record);

}  // namespace velmora
