// Unaligned loads and stores in a fixed byte order: 64-bit loads for the
// codecs' bit readers, 16- and 32-bit little-endian fields for the formats
// that store them.
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

inline uint16_t LoadLittleEndian16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

inline uint32_t LoadLittleEndian32(const uint8_t* p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

inline void StoreLittleEndian16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

inline void StoreLittleEndian32(uint8_t* p, uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

}  // namespace velmora
