// The bytes a library memory stream collected, for tests of the writers.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/error_record.h"
#include "io/stream.h"
#include "platform/platform.h"

namespace velmora::testing_support {

// Closes `stream` and returns what was written to it.
inline std::vector<uint8_t> CloseAndTake(Stream* stream, ErrorRecord* record) {
    HGLOBAL data = CloseStream(stream, record);
    std::vector<uint8_t> bytes;
    if (data != nullptr) {
        auto* p = static_cast<const uint8_t*>(platform::MemLock(data));
        bytes.assign(p, p + platform::MemSize(data));
        platform::MemUnlock(data);
        platform::MemFree(data);
    }
    return bytes;
}

}  // namespace velmora::testing_support
