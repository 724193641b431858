// The fax code lists compiled into the library, generated at build time by
// tools/resgen/faxcodes.py from fax_codes.txt.
//
// Each list is a raw-data resource (type 10): little-endian u16 pairs, the
// code with its first transmitted bit in bit 0, then (code length in the low
// 4 bits, value in the upper 12 bits), ended by a pair whose second word is 0.
#pragma once

#include <cstdint>

namespace velmora {

struct FaxCodeResource {
    uint16_t id;
    const uint8_t* bytes;
    uint32_t size;
};

// Ids of the lists, one per group of codes.
enum : uint16_t {
    kFaxListWhiteTerminating = 1101,
    kFaxListBlackTerminating = 1102,
    kFaxListWhiteMakeUp = 1103,
    kFaxListBlackMakeUp = 1104,
    kFaxListExtendedMakeUp = 1105,   // 1792 to 2560, both colours
    kFaxListEndOfLinePrefix = 1106,  // eleven zeros
    kFaxListPass = 1107,
    kFaxListHorizontal = 1108,
    kFaxListVertical0 = 1109,
    kFaxListVerticalLeft = 1110,   // value: the offset 1 to 3
    kFaxListVerticalRight = 1111,  // value: the offset 1 to 3
    kFaxListExtension = 1112,
    kFaxListModeEndOfLinePrefix = 1113,  // seven zeros
    kFaxListBitReversal = 1120,          // 256 bytes, not a code list
};

extern const FaxCodeResource kFaxCodeResources[];
extern const uint32_t kFaxCodeResourceCount;

// The bytes of list `id`; false when there is none.
bool FindFaxCodeResource(uint16_t id, const uint8_t** bytes, uint32_t* size);

}  // namespace velmora
