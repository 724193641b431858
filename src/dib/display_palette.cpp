#include "dib/display_palette.h"

#include "dib/color_quantizer.h"
#include "dib/dib_layout.h"
#include "dib/pixel_fetch.h"
#include "dib/palette.h"
#include "dib/standing_palettes.h"

namespace velmora {
namespace {

void AppendStanding(uint16_t id, std::vector<PaletteColor>* out) {
    ResourceBytes bytes{};
    if (!FindStandingPalette(id, &bytes)) return;
    uint32_t count = StandingPaletteSize(bytes);
    for (uint32_t i = 0; i < count; ++i) {
        const uint8_t* entry = bytes.data + 2 + 3 * i;
        out->push_back(PaletteColor{entry[0], entry[1], entry[2]});
    }
}

void AppendTable(const BITMAPINFOHEADER* header, std::vector<PaletteColor>* out) {
    const RGBQUAD* table = ColorTable(header);
    for (uint32_t i = 0, n = ColorCount(header); i < n; ++i) {
        out->push_back(PaletteColor{table[i].rgbRed, table[i].rgbGreen, table[i].rgbBlue});
    }
}

// A palette of at most `room` colours fitted by the quantiser to the colours
// of every pixel; false when there is no room or no memory.
bool AppendQuantised(const BITMAPINFOHEADER* header, const void* bits, uint32_t room, std::vector<PaletteColor>* out) {
    if (room < 2) return false;
    ColorQuantizer quantizer;
    ErrorRecord record;
    if (!quantizer.Begin(room < 256 ? room : 256, &record)) return false;
    for (int32_t y = 0; y < header->biHeight; ++y) {
        for (int32_t x = 0; x < header->biWidth; ++x) quantizer.Add(PixelColor(header, bits, x, y));
    }
    RGBQUAD table[256];
    const uint32_t count = quantizer.Palette(table);
    for (uint32_t i = 0; i < count; ++i)
        out->push_back(PaletteColor{table[i].rgbRed, table[i].rgbGreen, table[i].rgbBlue});
    return true;
}

}  // namespace

std::vector<PaletteColor> BuildDisplayPalette(const platform::DisplayPaletteInfo& device,
                                              const BITMAPINFOHEADER* header, const void* bits, bool optimise) {
    uint32_t systemCount = device.systemCount <= 256 ? device.systemCount : 256;
    uint32_t reserved = device.reserved <= systemCount ? device.reserved : 0;
    uint32_t low = systemCount != 0 ? reserved / 2 : 0;
    uint32_t high = systemCount != 0 ? reserved - reserved / 2 : 0;
    uint32_t room = device.size > device.reserved ? device.size - device.reserved : 0;

    std::vector<PaletteColor> palette;
    for (uint32_t i = 0; i < low; ++i) {
        palette.push_back(PaletteColor{device.system[i][0], device.system[i][1], device.system[i][2]});
    }
    uint32_t count = ColorCount(header);
    if (count == 0) {
        if (!optimise || !AppendQuantised(header, bits, room, &palette))
            AppendStanding(kColorDisplayPaletteId, &palette);
    } else if (count <= room) {
        AppendTable(header, &palette);
    } else if (IsGreyTable(header)) {
        AppendStanding(kGreyDisplayPaletteId, &palette);
    } else if (!optimise || !AppendQuantised(header, bits, room, &palette)) {
        AppendStanding(kColorDisplayPaletteId, &palette);
    }
    for (uint32_t i = systemCount - high; i < systemCount; ++i) {
        palette.push_back(PaletteColor{device.system[i][0], device.system[i][1], device.system[i][2]});
    }
    return palette;
}

}  // namespace velmora
