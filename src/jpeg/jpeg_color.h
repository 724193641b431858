// Turning the decoded component planes of a JPEG image into DIB rows:
// upsampling of subsampled components, and the colour conversions of the
// colour kinds a frame may have.
#pragma once

#include <cstddef>
#include <cstdint>

namespace velmora::jpeg {

enum class ColorKind : uint8_t {
    Grey,   // one component
    YCbCr,  // three components, JFIF YCbCr
    Rgb,    // three components stored as RGB (Adobe transform 0)
    Cmyk,   // four components, Adobe (inverted) CMYK
    Ycck,   // four components, YCbCr + K (Adobe transform 2)
    // Separated TIFF pages: four components of ink (0 = none), coloured
    // red = (255 - c)(255 - k) / 255 and likewise; InkYcck has the first
    // three as YCbCr whose RGB is 255 - c, 255 - m, 255 - y.
    InkCmyk,
    InkYcck,
};

// One component's samples for a band of output rows, at the component's own
// resolution: `rows` rows of at least ceil(width * h / hMax) samples.
//
// Components subsampled 2:1 across, down or both are interpolated with
// triangle filters (each output sample 3/4 from its own sample and 1/4 from
// the nearest other, in both directions), as JPEG viewers show them; other
// ratios are replicated. The vertical filter reads the component row above
// the band's first row (`above`) and below its last (`below`); null at the
// top and bottom of the image, where the edge row stands in. Rows after
// `lastRow` are padding and never read; the filters stop at sample
// `samplesWide` - 1, the last one of the image.
struct ComponentBand {
    const uint8_t* samples = nullptr;  // the band's first row
    ptrdiff_t stride = 0;              // bytes from one row to the next
    uint8_t h = 1;                     // the component's sampling factors
    uint8_t v = 1;
    const uint8_t* above = nullptr;
    const uint8_t* below = nullptr;
    uint32_t lastRow = 0xFFFFFFFF;  // unstated: the last row the band's output rows use
    uint32_t samplesWide = 0;  // 0: as many as the output width needs
};

// Writes `rows` output rows of `width` pixels, the first one at `output`
// and the next ones `outputStride` bytes further each (negative for a
// bottom-up DIB): one byte per pixel for Grey, blue-green-red triples for
// every other kind. Output row r of the band takes component row
// r * v / vMax and column x takes component sample x * h / hMax, or their
// neighbourhood where the component is interpolated.
// `scratch` holds at least 4 * width bytes.
void ConvertBand(ColorKind kind, const ComponentBand* components, uint32_t width, uint32_t rows, uint8_t hMax,
                 uint8_t vMax, uint8_t* output, ptrdiff_t outputStride, uint8_t* scratch);

}  // namespace velmora::jpeg
