// BMP files come from any path a host reads. Images of more than a few
// million pixels are left out: run-length files may declare them in a few
// bytes, and only the allocation would be exercised.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "dib/bmp_reader.h"
#include "dib/image.h"
#include "io/stream.h"

namespace {

uint32_t U32(const uint8_t* p) {
    return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

bool Small(const uint8_t* data, size_t size) {
    constexpr int64_t kMaxPixels = 4 << 20;
    if (size < 26) return true;
    if (U32(data + 14) == 12) return int64_t{data[18] | data[19] << 8} * (data[20] | data[21] << 8) <= kMaxPixels;
    int64_t width = static_cast<int32_t>(U32(data + 18));
    int64_t height = size >= 26 ? static_cast<int32_t>(U32(data + 22)) : 0;
    return std::llabs(width) * std::llabs(height) <= kMaxPixels;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!Small(data, size)) return 0;
    velmora::ErrorRecord record;
    velmora::Stream* stream = velmora::OpenFixedMemoryStream(data, static_cast<uint32_t>(size), &record);
    if (stream == nullptr) return 0;
    bool warning = false;
    HGLOBAL dib = velmora::ReadBmpDib(stream, nullptr, &warning, &record);
    velmora::FreeImage(&dib);
    velmora::CloseStream(stream, nullptr);
    return 0;
}
