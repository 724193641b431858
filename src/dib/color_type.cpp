#include "dib/color_type.h"

#include "dib/palette.h"

namespace velmora {

int32_t DibColorType(const BITMAPINFOHEADER* header) {
    if (header->biPlanes != 1) return 8;
    int32_t colour = IsGreyTable(header) ? 0 : 1;
    switch (header->biBitCount) {
        case 1: return colour;
        case 4: return 2 + colour;
        case 8: return 4 + colour;
        case 24: return 6;
        default: return 8;
    }
}

}  // namespace velmora
