// Any bytes as a Wang annotation block: marks converted or passed over,
// never a crash, a leak or a read outside the data. Inputs that name a
// picture file are skipped: they would read arbitrary files of the machine.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "annotations/wang_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velmora;
    if (size >= 8 && memmem(data, size, "OiFilNam", 8) != nullptr) return 0;
    AnnotationList list;
    uint32_t loadResult = 0;
    ErrorRecord record;
    const bool ok = ReadWangAnnotations(data, size, &list, &loadResult, &record);
    if (ok != record.ok() || (loadResult & ~kLoadUnknownMarks) != 0) __builtin_trap();
    for (const Annotation* annotation : list) {
        if (!annotation->known()) __builtin_trap();
        const FreehandFields& freehand = annotation->freehand;
        size_t points = 0;
        for (uint32_t length : freehand.strokeLengths) points += length;
        if (points != freehand.points.size()) __builtin_trap();
    }
    return 0;
}
