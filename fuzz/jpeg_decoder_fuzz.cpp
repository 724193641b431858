// JPEG streams come from files and from TIFF pages: the decoder must take
// any bytes. Each input is described (whole), loaded as a table stream and,
// when its frame is of a size a fuzzer can afford, decoded into rows that
// clip it. The last byte picks the colour interpretation.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "jpeg/jpeg_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velmora;
    using namespace velmora::jpeg;
    JpegSource source = JpegSource::Memory(data, size);
    JpegInfo info;
    ErrorRecord infoRecord;
    bool described = ReadJpegInfo(source, kInfoWhole | kInfoThumbnail, &info, &infoRecord);
    if (described != infoRecord.ok()) __builtin_trap();
    if (described && info.thumbnailBytes != 0 && info.thumbnailOffset + info.thumbnailBytes > size) __builtin_trap();

    JpegDecoder decoder;
    ErrorRecord tableRecord;
    decoder.LoadTables(source, &tableRecord);

    if (!described) return 0;
    uint32_t height = info.height != 0 ? info.height : 64;
    if (uint64_t{info.width} * height > (uint64_t{1} << 22)) return 0;
    uint32_t outWidth = info.width > 512 ? 512 : info.width;
    uint32_t outHeight = height > 512 ? 512 : height;
    std::vector<uint8_t> pixels(size_t{outWidth} * outHeight * 3);
    JpegDecodeOptions options;
    options.output = JpegOutput{pixels.data(), static_cast<ptrdiff_t>(outWidth * 3), outWidth, outHeight};
    options.color = static_cast<ColorOverride>(size > 0 ? data[size - 1] % 3 : 0);
    ErrorRecord record;
    bool ok = decoder.Decode(source, options, &record);
    if (ok != record.ok()) __builtin_trap();
    if (!ok && record.code != kErrBadFileData && record.code != kErrUnsupportedImageType &&
        record.code != kErrUnrecognizedFormat && record.code != kErrNotEnoughMemory) {
        __builtin_trap();
    }
    return 0;
}
