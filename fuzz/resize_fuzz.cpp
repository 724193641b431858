// Bytes choose a DIB (depth, table length, masks, size, then its table and
// pixels) and a new size and quality: resizing must stay inside the source
// and the result, and give the size asked for.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "dib/dib_layout.h"
#include "dib/dib_validation.h"
#include "dib/image.h"
#include "dib/resize.h"
#include "frame/error_record.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velmora;
    if (size < 8) return 0;
    static const uint16_t kDepths[] = {1, 4, 8, 16, 24, 32, 1, 8};
    BITMAPINFOHEADER model = {};
    model.biSize = 40;
    model.biPlanes = 1;
    model.biBitCount = kDepths[data[0] & 7];
    model.biCompression = (data[0] & 8) && (model.biBitCount == 16 || model.biBitCount == 32) ? BI_BITFIELDS : BI_RGB;
    model.biClrUsed = data[0] & 16 ? data[1] % 20 : 0;  // short tables, and palette hints at high depths
    model.biWidth = 1 + data[2] % 96;
    model.biHeight = 1 + data[3] % 96;
    model.biXPelsPerMeter = 3937;
    const uint32_t width = 1 + data[4] % 128, height = 1 + data[5] % 128;
    const ResizeQuality quality = data[6] & 1 ? ResizeQuality::Smooth : ResizeQuality::Nearest;
    const ResizeColors colors = data[6] & 2 ? ResizeColors::Optimize : ResizeColors::Keep;
    data += 8;
    size -= 8;

    uint64_t packed = 0;
    if (!PackedSize(&model, &packed)) return 0;
    // Exactly the DIB's bytes, so that any read past it is caught.
    std::vector<uint8_t> dib(static_cast<size_t>(packed));
    std::memcpy(dib.data(), &model, sizeof model);
    for (size_t i = sizeof model; i < dib.size(); ++i) dib[i] = size ? data[(i - sizeof model) % size] : 0;
    auto* header = reinterpret_cast<BITMAPINFOHEADER*>(dib.data());
    const uint8_t* bits = PackedBits(header);
    if (CheckDib(nullptr, bits, header) != 0) return 0;

    ErrorRecord record;
    HGLOBAL result = ResizeDib(header, bits, width, height, quality, colors, nullptr, &record);
    if (result == nullptr) {
        if (record.ok()) std::abort();
        return 0;
    }
    {
        ImageLock lock(result);
        if (lock.header()->biWidth != static_cast<int32_t>(width) ||
            lock.header()->biHeight != static_cast<int32_t>(height)) {
            std::abort();
        }
    }
    FreeImage(&result);
    return 0;
}
