// Choosing the entries of a logical palette that shows a DIB well on a
// palette display, beside the colours the system reserves.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "frame/error_record.h"
#include "platform/platform.h"
#include "velmora/wintypes.h"

namespace velmora {

using PaletteColor = std::array<uint8_t, 3>;  // red, green, blue

// The palette for `header`/`bits` on a device described by `device`: the
// first half of the reserved system entries, then the DIB's own table when
// it fits in the free slots (palette size minus reserved), else the grey
// standing palette for a grey table, else (with `optimise`) the colours the
// pixels actually use, else the colour standing palette; then the second half
// of the reserved entries. The halves are empty when the system entries were
// not read.
std::vector<PaletteColor> BuildDisplayPalette(const platform::DisplayPaletteInfo& device,
                                              const BITMAPINFOHEADER* header, const void* bits, bool optimise);

}  // namespace velmora
