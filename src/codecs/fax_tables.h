// Lookup tables of the fax decoder, built once per process from the code
// lists compiled into the library (fax_code_lists.h).
//
// The decoder reads its input least significant bit first, so the next bits
// of the stream are the low bits of its accumulator: the white table is
// indexed by the next 12 bits, the black table by the next 13 and the mode
// table by the next 7. A code of length L fills every slot whose low L bits
// equal it.
#pragma once

#include <cstdint>

#include "frame/error_record.h"

namespace velmora {

enum FaxCodeKind : uint8_t {
    kFaxInvalid = 0,
    kFaxWhiteTerminating = 1,
    kFaxBlackTerminating = 2,
    kFaxWhiteMakeUpCode = 3,
    kFaxBlackMakeUpCode = 4,
    kFaxExtendedMakeUpCode = 5,  // in both colour tables
    kFaxZeros = 6,               // the start of an EOL
    kFaxPass = 7,
    kFaxHorizontal = 8,
    kFaxVertical0 = 9,
    kFaxVerticalLeft = 10,   // value: 1 to 3
    kFaxVerticalRight = 11,  // value: 1 to 3
    kFaxExtension = 12,      // 0000001: uncompressed mode follows
};

struct FaxCode {
    uint8_t kind;
    uint8_t length;  // bits
    uint16_t value;  // run length, or the vertical offset
};
static_assert(sizeof(FaxCode) == 4);

inline constexpr unsigned kFaxWhiteBits = 12;
inline constexpr unsigned kFaxBlackBits = 13;
inline constexpr unsigned kFaxModeBits = 7;

struct FaxTables {
    FaxCode white[1u << kFaxWhiteBits];
    FaxCode black[1u << kFaxBlackBits];
    FaxCode mode[1u << kFaxModeBits];
    uint8_t bitReversal[256];
};

// The shared tables, built on first use (thread-safe); null with the record
// set when the compiled-in code lists cannot be read.
const FaxTables* GetFaxTables(ErrorRecord* record);

}  // namespace velmora
