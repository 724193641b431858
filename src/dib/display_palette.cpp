#include "dib/display_palette.h"

#include "dib/dib_layout.h"
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

// The table entries the pixels use, in table order, when they fit in `room`.
bool AppendUsedColors(const BITMAPINFOHEADER* header, const void* bits, uint32_t room, std::vector<PaletteColor>* out) {
    uint32_t bitCount = header->biBitCount;
    if (bitCount != 1 && bitCount != 4 && bitCount != 8) return false;
    bool used[256] = {};
    size_t stride = static_cast<size_t>(RowStride(header));
    uint32_t perByte = 8 / bitCount;
    uint32_t mask = (1u << bitCount) - 1;
    for (int32_t y = 0; y < header->biHeight; ++y) {
        const uint8_t* row = static_cast<const uint8_t*>(bits) + stride * static_cast<size_t>(y);
        for (int32_t x = 0; x < header->biWidth; ++x) {
            uint32_t ux = static_cast<uint32_t>(x);
            used[row[ux / perByte] >> (perByte - 1 - ux % perByte) * bitCount & mask] = true;
        }
    }
    const RGBQUAD* table = ColorTable(header);
    uint32_t count = ColorCount(header);
    std::vector<PaletteColor> colors;
    for (uint32_t i = 0; i < 256 && i < count; ++i) {
        if (used[i]) colors.push_back(PaletteColor{table[i].rgbRed, table[i].rgbGreen, table[i].rgbBlue});
    }
    if (colors.size() > room) return false;
    out->insert(out->end(), colors.begin(), colors.end());
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
        AppendStanding(kColorDisplayPaletteId, &palette);
    } else if (count <= room) {
        AppendTable(header, &palette);
    } else if (IsGreyTable(header)) {
        AppendStanding(kGreyDisplayPaletteId, &palette);
    } else if (!optimise || !AppendUsedColors(header, bits, room, &palette)) {
        AppendStanding(kColorDisplayPaletteId, &palette);
    }
    for (uint32_t i = systemCount - high; i < systemCount; ++i) {
        palette.push_back(PaletteColor{device.system[i][0], device.system[i][1], device.system[i][2]});
    }
    return palette;
}

}  // namespace velmora
