// velmora sample: a small two-page TIFF (a black and white page and a colour
// page, uncompressed) to try the other commands on.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "command.h"

namespace velmora_cli {
namespace {

// The pixel of the sample pages at (x, y): soft gradients crossed by bars
// and a checkered block, so that every page shows detail and flat areas.
uint8_t SampleValue(uint32_t x, uint32_t y, uint32_t channel) {
    if (y >= 40 && y < 60 && (x / 8) % 2 == 0) return static_cast<uint8_t>(channel == 1 ? 40 : 20);
    if (x >= 220 && x < 300 && y >= 100 && y < 180) return ((x / 10 + y / 10) % 2) ? 250 : 10;
    return static_cast<uint8_t>((x * (channel + 1) * 255 / 320 + y * (3 - channel) * 255 / 600) % 256);
}

// A sample page as a packed DIB: 1-bit black and white (bars, a checkered
// block and lines of dashes standing for text) or 24-bit colour, at 200 dpi.
std::vector<uint32_t> SampleDib(uint16_t bits) {
    const int32_t width = 320, height = 200;
    const uint32_t stride = (width * bits + 31) / 32 * 4;
    const uint32_t colours = bits == 1 ? 2 : 0;
    std::vector<uint32_t> words((40 + 4 * colours + stride * height + 3) / 4, 0);
    auto* header = reinterpret_cast<BITMAPINFOHEADER*>(words.data());
    header->biSize = 40;
    header->biWidth = width;
    header->biHeight = height;
    header->biPlanes = 1;
    header->biBitCount = bits;
    header->biXPelsPerMeter = header->biYPelsPerMeter = 7874;  // 200 dpi
    header->biClrUsed = colours;
    auto* table = reinterpret_cast<uint8_t*>(header + 1);
    if (bits == 1) std::memset(table + 4, 255, 3);  // entry 0 black, entry 1 white
    uint8_t* rows = table + 4 * colours;
    for (uint32_t y = 0; y < height; ++y) {
        uint8_t* row = rows + stride * (height - 1 - y);  // bottom row first
        for (uint32_t x = 0; x < width; ++x) {
            if (bits == 24) {
                for (uint32_t c = 0; c < 3; ++c) row[3 * x + 2 - c] = SampleValue(x, y, c);
            } else {
                const bool text = y % 16 < 7 && y >= 80 && x >= 16 && x < 200 && (x / 6 + y / 16) % 5 != 0;
                const bool black = text || SampleValue(x, y, 1) < 60;
                if (!black) row[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
            }
        }
    }
    return words;
}

}  // namespace

int RunSample(int argc, char** argv) {
    if (argc != 1) {
        std::fprintf(stderr, "usage: velmora sample OUT.tif\n");
        return 2;
    }
    // Written by the library itself, uncompressed: the pages are there to be
    // converted.
    HGLOBAL tiff = OpenVelmoraTIFF(argv[0], 0xC0000000u, 1);
    if (tiff == nullptr) return Fail(argv[0]);
    for (uint16_t bits : {uint16_t{1}, uint16_t{24}}) {
        const std::vector<uint32_t> dib = SampleDib(bits);
        VelmoraAppendTIFF append = {};
        append.size = VELMORA_APPEND_TIFF_SIZE_V6;
        append.flags = VELMORA_APPEND_DIB_POINTER | VELMORA_APPEND_TEXT(1) | VELMORA_APPEND_TEXT(5);
        append.dib = dib.data();
        append.compression = VELMORA_COMPRESSION_NONE;
        append.texts[1] = bits == 1 ? "A black and white page" : "A colour page";
        append.texts[5] = "velmora sample";
        if (!AppendVelmoraOpenTIFFEx(tiff, &append)) {
            int result = Fail(argv[0]);
            CloseVelmoraTIFF(tiff);
            return result;
        }
    }
    if (!CloseVelmoraTIFF(tiff)) return Fail(argv[0]);
    return 0;
}

}  // namespace velmora_cli
