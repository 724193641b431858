// Display palettes on Windows: the device's palette capabilities and GDI
// logical palettes.
#include <windows.h>

#include <cstdlib>

#include "platform/platform.h"

namespace velmora::platform {

bool ReadDisplayPalette(HDC dc, DisplayPaletteInfo* info) {
    HDC device = dc != nullptr ? dc : ::GetDC(nullptr);
    if (device == nullptr) return false;
    bool palette = (::GetDeviceCaps(device, RASTERCAPS) & RC_PALETTE) != 0;
    if (palette) {
        int size = ::GetDeviceCaps(device, SIZEPALETTE);
        int reserved = ::GetDeviceCaps(device, NUMRESERVED);
        info->size = size > 0 ? static_cast<uint32_t>(size) : 0;
        info->reserved = reserved > 0 ? static_cast<uint32_t>(reserved) : 0;
        info->systemCount = 0;
        if (info->reserved < info->size && info->size <= 256) {
            PALETTEENTRY entries[256];
            UINT read = ::GetSystemPaletteEntries(device, 0, info->size, entries);
            // Entries that are all reserved ones tell nothing.
            if (read > info->reserved && read <= 256) {
                info->systemCount = read;
                for (UINT i = 0; i < read; ++i) {
                    info->system[i][0] = entries[i].peRed;
                    info->system[i][1] = entries[i].peGreen;
                    info->system[i][2] = entries[i].peBlue;
                }
            }
        }
    }
    if (dc == nullptr) ::ReleaseDC(nullptr, device);
    return palette;
}

HPALETTE CreateLogicalPalette(const uint8_t* rgb, uint32_t count, uint32_t* error) {
    if (count == 0 || count > 0xFFFF) {
        *error = ERROR_INVALID_PARAMETER;
        return nullptr;
    }
    size_t bytes = sizeof(LOGPALETTE) + sizeof(PALETTEENTRY) * count;
    auto* palette = static_cast<LOGPALETTE*>(std::calloc(1, bytes));
    if (palette == nullptr) {
        *error = ERROR_NOT_ENOUGH_MEMORY;
        return nullptr;
    }
    palette->palVersion = 0x300;
    palette->palNumEntries = static_cast<WORD>(count);
    for (uint32_t i = 0; i < count; ++i) {
        palette->palPalEntry[i].peRed = rgb[3 * i];
        palette->palPalEntry[i].peGreen = rgb[3 * i + 1];
        palette->palPalEntry[i].peBlue = rgb[3 * i + 2];
        palette->palPalEntry[i].peFlags = 0;
    }
    HPALETTE result = ::CreatePalette(palette);
    if (result == nullptr) *error = ::GetLastError() != 0 ? ::GetLastError() : ERROR_NOT_ENOUGH_MEMORY;
    std::free(palette);
    return result;
}

}  // namespace velmora::platform
