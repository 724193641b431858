// Any bytes as an exemption code document: groups whose codes lie inside the
// code list, sorted, or an error and no groups; never a crash or a leak.
#include <cstddef>
#include <cstdint>

#include "annotations/exemption_codes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velmora;
    ExemptionCodes codes;
    ErrorRecord record;
    if (!ReadExemptionCodesBuffer(data, size, &codes, &record)) {
        if (record.ok() || !codes.groups.empty()) __builtin_trap();
        return 0;
    }
    for (const ExemptionCodeGroup& group : codes.groups) {
        if (uint64_t{group.firstCode} + group.codeCount > codes.codes.size()) __builtin_trap();
        for (uint32_t i = 1; i < group.codeCount; ++i) {
            const char16_t* a = codes.Text(codes.codes[group.firstCode + i - 1].code);
            const char16_t* b = codes.Text(codes.codes[group.firstCode + i].code);
            while (*a != 0 && *a == *b) ++a, ++b;
            if (*a > *b) __builtin_trap();
        }
    }
    return 0;
}
