// Little-endian fields at any alignment inside the foreign annotation blocks.
// Callers check that the field lies inside the block before they read it.
#pragma once

#include <cstdint>

#include "io/byte_order.h"

namespace velmora {

inline int32_t LittleI32(const uint8_t* p) { return static_cast<int32_t>(LoadLittleEndian32(p)); }

// A coordinate moved by an offset, wrapping as 32-bit arithmetic does rather
// than overflowing.
inline int32_t OffsetCoordinate(int32_t value, int32_t offset) {
    return static_cast<int32_t>(static_cast<uint32_t>(value) + static_cast<uint32_t>(offset));
}

}  // namespace velmora
