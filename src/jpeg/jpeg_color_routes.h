// The ways ConvertBand can do its work: the portable code, which every
// build has, and vector code for x86 processors chosen when the library
// first converts a band. All routes give identical bytes; tests run each
// one this processor can execute.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/jpeg_color.h"

namespace velmora::jpeg {

enum class ColorRoute : uint8_t {
    Portable,  // plain C++, vectorised by the compiler where it can
    Sse2,      // 16 pixels a step in SSE2 registers
    Ssse3,     // the same arithmetic, pixels interleaved with byte shuffles
    Avx2,      // 32 pixels a step
};

// Whether this build has `route` and this processor can execute it.
bool ColorRouteAvailable(ColorRoute route);

// The fastest available route; ConvertBand takes it.
ColorRoute BestColorRoute();

// ConvertBand by the given route, which must be available.
void ConvertBandBy(ColorRoute route, ColorKind kind, const ComponentBand* components, uint32_t width, uint32_t rows,
                   uint8_t hMax, uint8_t vMax, uint8_t* output, ptrdiff_t outputStride, uint8_t* scratch);

// ---- Between the band loop and the vector code -------------------------------------

// One step of the vector routes: one output row, or two that read the same
// rows of components 1 and 2 (two luma rows of a 4:2:0 image share their
// chroma rows). Every component row holds a sample per pixel, except that
// with `halved` components 1 and 2 hold one per two pixels (YCbCr and YCCK
// only).
struct VectorRows {
    const uint8_t* planes[2][4] = {};   // per output row, each component's row
    uint8_t* out[2] = {};               // the output rows
    uint32_t count = 1;                 // output rows, 1 or 2
    uint32_t width = 0;                 // pixels
    ColorKind kind = ColorKind::YCbCr;  // not Grey
    bool halved = false;
};

// Converts by a vector route (not Portable), which must be available.
void ConvertVectorRows(ColorRoute route, const VectorRows& rows);

}  // namespace velmora::jpeg
