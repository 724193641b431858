// Resources compiled into the library and the compact formats they use.
//
// Resources are addressed by a 16-bit type and a 16-bit id, as in a Windows
// module. The library's own strings live in compact string blocks (type 262):
// block b holds the 16 strings with ids 16 * (b - 1) to 16 * (b - 1) + 15,
// one after the other, each as
//
//   length  1 byte when below 128, else 2 bytes: (first - 128) + 128 * second
//   text    `length` bytes, one byte per character (0 to 255), no terminator
//
// A missing string has length 0. The character 0x01 separates the members of
// a string list, and a list ends with it.
//
// The message table (type 10, id 1) is a run of 6-byte little-endian rows,
// u32 error code and u16 string id, ended by a row whose code is 0.

#ifndef VELMORA_FRAME_RESOURCES_H
#define VELMORA_FRAME_RESOURCES_H

#include <cstdint>

namespace velmora {

inline constexpr uint16_t kResourceTypeString = 6;  // standard string table
inline constexpr uint16_t kResourceTypeRawData = 10;
inline constexpr uint16_t kResourceTypeCompactMenu = 260;
inline constexpr uint16_t kResourceTypeCompactDialog = 261;
inline constexpr uint16_t kResourceTypeCompactString = 262;

inline constexpr uint16_t kMessageTableId = 1;      // raw data
inline constexpr uint16_t kBuiltInLanguage = 1033;  // US English
inline constexpr unsigned kStringsPerBlock = 16;
inline constexpr uint32_t kMaxCompactStringLength = 32767;
inline constexpr uint8_t kStringListSeparator = 0x01;
inline constexpr uint16_t kFirstUntranslatedStringId = 10000;  // identifiers, templates

struct ResourceBytes {
    const uint8_t* data;
    uint32_t size;
};

// The compact block holding string `stringId`, and the string's place in it.
inline constexpr uint16_t CompactBlockId(uint16_t stringId) {
    return static_cast<uint16_t>(stringId / kStringsPerBlock + 1);
}
inline constexpr unsigned CompactBlockIndex(uint16_t stringId) { return stringId % kStringsPerBlock; }

// Looks up a built-in resource. All built-in resources are US English, so
// there is no language to choose. False when there is none.
bool FindResourceBytes(uint16_t type, uint16_t id, ResourceBytes* out);

// Locates entry `index` (0 to 15) of a compact string block. False when the
// index is out of range or the block is too short for what its lengths claim;
// nothing past the block is ever read. A missing string is a valid entry of
// size 0.
bool CompactStringAt(ResourceBytes block, unsigned index, ResourceBytes* text);

// Finds the string id of `code` in a message table: the first matching row
// wins. False for code 0, for a code without a row, and for a table that is
// cut short before its end row.
bool MessageStringId(ResourceBytes table, uint32_t code, uint16_t* stringId);

}  // namespace velmora

#endif  // VELMORA_FRAME_RESOURCES_H
