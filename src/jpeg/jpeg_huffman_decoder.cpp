#include "jpeg/jpeg_huffman_decoder.h"

#include <cstring>

namespace velmora::jpeg {

bool BuildHuffmanTable(const uint8_t* counts, const uint8_t* values, size_t valueCount, HuffmanTable* table) {
    table->defined = false;
    size_t total = 0;
    for (int i = 0; i < 16; ++i) total += counts[i];
    if (total != valueCount || total > 256) return false;
    std::memset(table->lookup, 0, sizeof(table->lookup));
    std::memset(table->acFast, 0, sizeof(table->acFast));
    std::memset(table->values, 0, sizeof(table->values));
    std::memcpy(table->values, values, valueCount);
    std::memcpy(table->counts, counts, sizeof(table->counts));
    table->valueCount = static_cast<uint16_t>(valueCount);

    uint32_t code = 0;
    int32_t index = 0;
    table->maxCode[0] = -1;
    table->valueOffset[0] = 0;
    for (int length = 1; length <= 16; ++length) {
        uint32_t count = counts[length - 1];
        table->valueOffset[length] = index - static_cast<int32_t>(code);
        for (uint32_t i = 0; i < count; ++i, ++index, ++code) {
            if (code >= (1u << length)) return false;
            if (length <= kLookaheadBits) {
                uint32_t shift = kLookaheadBits - length;
                uint16_t entry = static_cast<uint16_t>((length << 8) | values[index]);
                for (uint32_t fill = 0; fill < (1u << shift); ++fill) table->lookup[(code << shift) | fill] = entry;
            }
        }
        // The next free code must still fit in this length: a length filled
        // to its all-ones code, or beyond, is over-subscribed.
        if (count > 0 && code >= (1u << length)) return false;
        table->maxCode[length] = count > 0 ? static_cast<int32_t>(code) - 1 : -1;
        code <<= 1;
    }

    for (uint32_t prefix = 0; prefix < (1u << kLookaheadBits); ++prefix) {
        uint16_t entry = table->lookup[prefix];
        if (entry == 0) continue;
        int length = entry >> 8;
        int run = (entry >> 4) & 15;
        int size = entry & 15;
        if (size == 0 || length + size > kLookaheadBits) continue;
        int32_t bits = static_cast<int32_t>((prefix >> (kLookaheadBits - length - size)) & ((1u << size) - 1));
        if (bits < (1 << (size - 1))) bits -= (1 << size) - 1;
        table->acFast[prefix] = static_cast<int32_t>(static_cast<uint32_t>(bits) << 16) | (run << 8) | (length + size);
    }
    table->defined = true;
    return true;
}

}  // namespace velmora::jpeg
