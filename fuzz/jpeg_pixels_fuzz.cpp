// The sample pipeline takes whatever coefficients and quantisers a stream
// declares, and whatever sampling factors its frame header has: no
// coefficient block may overflow or read out of bounds, and a band is
// converted within the buffers its sizes promise. The first bytes choose
// the colour kind, the factors and the width; the rest fills one block,
// its quantisers and the component samples.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "jpeg/jpeg_color.h"
#include "jpeg/jpeg_idct.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velmora::jpeg;
    if (size < 8 + 256) return 0;
    int16_t coefficients[64];
    uint16_t quantiser[64];
    std::memcpy(coefficients, data + 8, sizeof coefficients);
    std::memcpy(quantiser, data + 8 + sizeof coefficients, sizeof quantiser);
    uint8_t samples8[8 * 9];
    uint16_t samples12[8 * 8];
    InverseDct8(coefficients, quantiser, samples8 + 8 * 8, -8);
    InverseDct12(coefficients, quantiser, samples12, 8);

    static const ColorKind kKinds[] = {ColorKind::Grey, ColorKind::YCbCr, ColorKind::Rgb, ColorKind::Cmyk,
                                       ColorKind::Ycck};
    static const uint32_t kCounts[] = {1, 3, 3, 4, 4};
    const unsigned kind = data[0] % 5;
    const uint32_t width = 1 + (data[1] | (static_cast<uint32_t>(data[2] & 1) << 8));  // 1 to 512
    const uint32_t rows = 1 + data[3] % 32;
    ComponentBand bands[4];
    uint8_t hMax = 1, vMax = 1;
    for (uint32_t i = 0; i < kCounts[kind]; ++i) {
        bands[i].h = static_cast<uint8_t>(1 + (data[4 + i] & 3));
        bands[i].v = static_cast<uint8_t>(1 + (data[4 + i] >> 2 & 3));
        hMax = bands[i].h > hMax ? bands[i].h : hMax;
        vMax = bands[i].v > vMax ? bands[i].v : vMax;
    }
    // Each plane exactly as large as the factors require, filled from the
    // input over and over.
    std::vector<std::vector<uint8_t>> planes(kCounts[kind]);
    const uint8_t* fill = data + 8;
    const size_t fillSize = size - 8;
    for (uint32_t i = 0; i < kCounts[kind]; ++i) {
        const uint32_t planeWidth = (width * bands[i].h + hMax - 1) / hMax;
        const uint32_t planeRows = (rows * bands[i].v + vMax - 1) / vMax;
        planes[i].resize(size_t{planeWidth} * planeRows);
        for (size_t j = 0; j < planes[i].size(); ++j) planes[i][j] = fill[(j * 7 + i) % fillSize];
        bands[i].samples = planes[i].data();
        bands[i].stride = planeWidth;
    }
    const size_t rowBytes = size_t{width} * (kKinds[kind] == ColorKind::Grey ? 1 : 3);
    std::vector<uint8_t> output(rowBytes * rows), scratch(4 * size_t{width});
    ConvertBand(kKinds[kind], bands, width, rows, hMax, vMax, output.data() + rowBytes * (rows - 1),
                -static_cast<ptrdiff_t>(rowBytes), scratch.data());
    return 0;
}
