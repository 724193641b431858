// Unaligned 64-bit loads in a fixed byte order, for the codecs' bit readers.
#pragma once

#include <cstdint>
#include <cstring>

namespace velmora {

inline uint64_t LoadLittleEndian64(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap64(v);
#endif
    return v;
}

inline uint64_t LoadBigEndian64(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, 8);
#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    v = __builtin_bswap64(v);
#endif
    return v;
}

}  // namespace velmora
