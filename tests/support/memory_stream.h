// The bytes of a movable block, and of what a library memory stream
// collected, for tests of the writers.
#pragma once

#include <cstdint>
#include <vector>

#include "frame/error_record.h"
#include "io/stream.h"
#include "platform/platform.h"

namespace velmora::testing_support {

// Frees `block` (which may be null) and returns its bytes.
inline std::vector<uint8_t> TakeBlock(HGLOBAL block) {
    std::vector<uint8_t> bytes;
    if (block != nullptr) {
        auto* p = static_cast<const uint8_t*>(platform::MemLock(block));
        bytes.assign(p, p + platform::MemSize(block));
        platform::MemUnlock(block);
        platform::MemFree(block);
    }
    return bytes;
}

// Closes `stream` and returns what was written to it.
inline std::vector<uint8_t> CloseAndTake(Stream* stream, ErrorRecord* record) {
    return TakeBlock(CloseStream(stream, record));
}

}  // namespace velmora::testing_support
