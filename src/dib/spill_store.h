// The spill store: the rows of an image too large for memory, kept in a
// temporary file in the library's temporary directory. Rows live at fixed
// places (row x stride) in a file made full-length at creation, so a row never
// written reads as zeros. Every open store is registered in a library-wide
// list under SharedObjectLock.
#pragma once

#include <cstdint>

#include "frame/error_record.h"

namespace velmora {

struct SpillStore;

// Null (with the record set) when the temporary file cannot be made.
SpillStore* CreateSpillStore(uint64_t stride, uint32_t height, ErrorRecord* record);
// Closes and deletes the file and unregisters the store; null is ignored.
void DestroySpillStore(SpillStore* store);

uint64_t SpillStride(const SpillStore* store);
// Stored row `row` (0 = the bottom row) as stride bytes.
bool ReadSpillRow(SpillStore* store, uint32_t row, void* out, ErrorRecord* record);
bool WriteSpillRow(SpillStore* store, uint32_t row, const void* in, ErrorRecord* record);

// The number of open stores.
size_t OpenSpillStoreCount();

}  // namespace velmora
