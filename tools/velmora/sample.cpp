// velmora sample: a small two-page TIFF written without the library, to try
// the other commands on.
#include <cerrno>
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

// A little-endian TIFF page, uncompressed, in one strip.
// The new directory is linked after the last one in the file.
void AppendSamplePage(std::vector<uint8_t>* file, uint16_t samples) {
    auto put = [file](uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) file->push_back(static_cast<uint8_t>(value >> (8 * i)));
    };
    const uint32_t width = 320, height = 200;
    const uint32_t pixels = static_cast<uint32_t>(file->size());
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            for (uint32_t c = 0; c < samples; ++c) file->push_back(SampleValue(x, y, samples == 1 ? 1 : c));
        }
    }
    const uint32_t bits = static_cast<uint32_t>(file->size());
    for (uint16_t c = 0; c < samples; ++c) put(8, 2);
    const uint32_t resolution = static_cast<uint32_t>(file->size());
    put(200, 4);
    put(1, 4);
    if (file->size() % 2 != 0) file->push_back(0);
    struct Entry {
        uint16_t tag, type;
        uint32_t count, value;
    };
    const Entry entries[] = {
        {256, 4, 1, width},
        {257, 4, 1, height},
        {258, 3, samples, samples == 1 ? 8u : bits},
        {259, 3, 1, 1},
        {262, 3, 1, samples == 1 ? 1u : 2u},
        {273, 4, 1, pixels},
        {277, 3, 1, samples},
        {278, 4, 1, height},
        {279, 4, 1, width * height * samples},
        {282, 5, 1, resolution},
        {283, 5, 1, resolution},
        {296, 3, 1, 2},
    };
    const uint32_t directory = static_cast<uint32_t>(file->size());
    put(sizeof entries / sizeof entries[0], 2);
    for (const Entry& e : entries) {
        put(e.tag, 2);
        put(e.type, 2);
        put(e.count, 4);
        put(e.value, 4);
    }
    put(0, 4);
    uint32_t link = 4;
    while (true) {
        uint32_t at =
            (*file)[link] | (*file)[link + 1] << 8 | (*file)[link + 2] << 16 | uint32_t{(*file)[link + 3]} << 24;
        if (at == 0) break;
        link = at + 2 + 12 * ((*file)[at] | (*file)[at + 1] << 8);
    }
    for (int i = 0; i < 4; ++i) (*file)[link + i] = static_cast<uint8_t>(directory >> (8 * i));
}

}  // namespace

int RunSample(int argc, char** argv) {
    if (argc != 1) {
        std::fprintf(stderr, "usage: velmora sample OUT.tif\n");
        return 2;
    }
    std::vector<uint8_t> file = {'I', 'I', 42, 0, 0, 0, 0, 0};
    AppendSamplePage(&file, 1);
    AppendSamplePage(&file, 3);
    FILE* out = std::fopen(argv[0], "wb");
    if (out == nullptr || std::fwrite(file.data(), 1, file.size(), out) != file.size() || std::fclose(out) != 0) {
        std::fprintf(stderr, "velmora: %s: %s\n", argv[0], std::strerror(errno));
        return 1;
    }
    return 0;
}

}  // namespace velmora_cli
