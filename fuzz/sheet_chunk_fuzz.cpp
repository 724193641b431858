// Any bytes as a sheet-chunk annotation block, read with a resolution taken
// from the input's first byte (0 included): items converted or passed over,
// never a crash, a leak or a read outside the data.
#include <cstddef>
#include <cstdint>

#include "annotations/sheet_chunk_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velmora;
    if (size == 0) return 0;
    const double resolution = data[0] * 4.0;
    AnnotationList list;
    ErrorRecord record;
    if (ReadSheetChunkAnnotations(data + 1, size - 1, resolution, resolution / 2, &list, &record) != record.ok()) {
        __builtin_trap();
    }
    return 0;
}
