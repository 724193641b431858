// The standing display palettes built into the library (raw-data resources
// 29 and 30): a u16 entry count, then red, green, blue per entry. Their
// readable source is standing_palettes.txt.
#pragma once

#include <cstdint>

#include "frame/resources.h"

namespace velmora {

constexpr uint16_t kColorDisplayPaletteId = 29;  // 28 greys and a colour cube, 236 entries
constexpr uint16_t kGreyDisplayPaletteId = 30;   // 236 greys the reserved colours lack

struct StandingPaletteEntry {
    uint16_t id;
    uint32_t size;
    const uint8_t* bytes;
};
extern const StandingPaletteEntry kStandingPalettes[];
extern const uint32_t kStandingPaletteCount;

// The palette's bytes; false for an unknown id.
bool FindStandingPalette(uint16_t id, ResourceBytes* out);
// The entry count of a palette's bytes, never more than the bytes hold.
uint32_t StandingPaletteSize(ResourceBytes palette);

}  // namespace velmora
