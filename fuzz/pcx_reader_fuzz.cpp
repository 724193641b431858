// Any bytes as a PCX file. Images larger than a few million pixels are
// refused by the header alone here, to keep each run short.
#include <cstddef>
#include <cstdint>

#include "dib/image.h"
#include "dib/pcx_reader.h"
#include "io/stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velmora;
    constexpr uint64_t kMaxPixels = 4u << 20;
    ErrorRecord record;
    PcxHeader header;
    if (size >= kPcxHeaderSize && ParsePcxHeader(data, &header, &record) &&
        uint64_t{static_cast<uint32_t>(header.width)} * static_cast<uint32_t>(header.height) > kMaxPixels) {
        return 0;
    }
    record = ErrorRecord();
    Stream* stream = OpenFixedMemoryStream(data, static_cast<uint32_t>(size), &record);
    if (stream == nullptr) return 0;
    bool damaged = false;
    HGLOBAL dib = ReadPcxImage(stream, nullptr, &damaged, &record);
    FreeImage(&dib);
    CloseStream(stream, nullptr);
    return 0;
}
