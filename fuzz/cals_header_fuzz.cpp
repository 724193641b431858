// CALS headers come from any file a host opens.
#include <cstddef>
#include <cstdint>

#include "tiff/cals_header.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    velmora::CalsHeader header;
    velmora::ErrorRecord record;
    if (velmora::ParseCalsHeader(data, size, &header, &record)) (void)velmora::CalsPageOrientation(header);
    return 0;
}
