// The Adler-32 checksum of zlib streams (RFC 1950 section 8.2).
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora {

// Continues the checksum `adler` (1 for an empty start) over `count` bytes.
uint32_t Adler32Update(uint32_t adler, const uint8_t* bytes, size_t count);

}  // namespace velmora
