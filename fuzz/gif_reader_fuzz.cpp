// Any bytes as a GIF file: frames 1 and 2, each read alone and again through
// one reader that remembers where frames start. Frames larger than a few
// million pixels are only found, not decoded, to keep each run short.
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "dib/gif_reader.h"
#include "dib/image.h"
#include "io/stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velmora;
    constexpr uint64_t kMaxPixels = 4u << 20;
    ErrorRecord openRecord;
    Stream* stream = OpenFixedMemoryStream(data, static_cast<uint32_t>(size), &openRecord);
    if (stream == nullptr) return 0;
    GifReader shared;
    ErrorRecord sharedRecord;
    shared.Open(stream, &sharedRecord);
    for (uint32_t frame : {2u, 1u, 2u}) {
        ErrorRecord record;
        GifReader reader;
        GifFrame found;
        StreamSeek(stream, 0, &record);
        if (!reader.Open(stream, &record) || !reader.FindFrame(frame, &found, &record)) continue;
        if (uint64_t{found.width} * found.height > kMaxPixels) continue;
        StreamSeek(stream, 0, &record);
        HGLOBAL dib = ReadGifDib(stream, frame, nullptr, nullptr, &record);
        FreeImage(&dib);
        ErrorRecord again;
        dib = shared.ReadFrame(frame, nullptr, &again);
        FreeImage(&dib);
    }
    CloseStream(stream, nullptr);
    return 0;
}
