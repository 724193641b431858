#include "dib/standing_palettes.h"

namespace velmora {

bool FindStandingPalette(uint16_t id, ResourceBytes* out) {
    for (uint32_t i = 0; i < kStandingPaletteCount; ++i) {
        if (kStandingPalettes[i].id == id) {
            out->data = kStandingPalettes[i].bytes;
            out->size = kStandingPalettes[i].size;
            return true;
        }
    }
    return false;
}

uint32_t StandingPaletteSize(ResourceBytes palette) {
    if (palette.size < 2) return 0;
    uint32_t count = palette.data[0] | palette.data[1] << 8;
    uint32_t room = (palette.size - 2) / 3;
    return count < room ? count : room;
}

}  // namespace velmora
