// Any bytes as a packed DIB: the checks every DIB export runs, and the
// accessors that trust a DIB once it passed them, must never read outside it.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "dib/color_type.h"
#include "dib/dib_layout.h"
#include "dib/dib_validation.h"
#include "dib/display_palette.h"
#include "dib/image.h"
#include "dib/palette.h"
#include "dib/pixel_fetch.h"
#include "dib/rotate.h"
#include "frame/error_record.h"
#include "platform/platform.h"

namespace {

constexpr uint64_t kMaxPixels = 1u << 16;  // keeps whole-image passes quick

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velmora;
    if (size < 4) return 0;
    // The bytes are the whole readable DIB; this system's pointer checks only
    // see null, so the size is enforced here as a host's memory would be.
    std::vector<uint32_t> words((size + 3) / 4);
    std::memcpy(words.data(), data, size);
    auto* header = reinterpret_cast<BITMAPINFOHEADER*>(words.data());
    if (size < sizeof(BITMAPINFOHEADER)) {
        (void)CheckDibHeader(header->biSize == 40 ? nullptr : header, true);
        return 0;
    }
    uint64_t packed = 0;
    if (!PackedSize(header, &packed) || packed > size) {
        (void)ColorCount(header);
        (void)BitsOffset(header);
        return 0;
    }
    const uint8_t* bits = PackedBits(header);
    RECT rect = {header->biWidth / 3, 0, header->biWidth, header->biHeight / 2};
    if (CheckDibHeader(header, false) != 0 || CheckDib(&rect, bits, header) != 0) return 0;

    (void)DibColorType(header);
    (void)ClassifyGrey(header);
    (void)SamePalette(header, header);
    uint32_t count = ColorCount(header);
    COLORREF found = 0;
    (void)NearestColor(ColorTable(header), count, 0x808080, &found);
    (void)NearestColorExcluding(ColorTable(header), count, found, found, nullptr);
    int32_t w = header->biWidth, h = header->biHeight;
    for (int32_t y : {0, h / 2, h - 1, h}) {
        for (int32_t x : {0, w / 2, w - 1, w, -1}) (void)PixelColor(header, bits, x, y);
    }
    if (uint64_t{static_cast<uint32_t>(w)} * static_cast<uint32_t>(h) > kMaxPixels) return 0;

    platform::DisplayPaletteInfo device = {};
    device.size = 256;
    device.reserved = 20;
    device.systemCount = 256;
    (void)BuildDisplayPalette(device, header, bits, true);

    ErrorRecord record;
    HGLOBAL image = platform::MemAlloc(GMEM_MOVEABLE, static_cast<size_t>(packed));
    if (image == nullptr) return 0;
    std::memcpy(platform::MemLock(image), header, static_cast<size_t>(packed));
    platform::MemUnlock(image);
    HGLOBAL turned = RotateDib(image, 90, &record);
    FreeImage(&turned);
    FreeImage(&image);
    return 0;
}
