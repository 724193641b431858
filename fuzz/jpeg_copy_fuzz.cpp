// Copying rectangles of MCUs out of any bytes: the copy either fails with
// the library's error or is a stream that decodes. The first four bytes
// choose the rectangle in MCUs; the rest is the stream (the decoder's
// seeds serve here too).
#include <cstddef>
#include <cstdint>

#include "jpeg/jpeg_copy.h"
#include "jpeg/jpeg_decoder.h"
#include "platform/platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace velmora;
    using namespace velmora::jpeg;
    if (size < 4) return 0;
    const JpegSource source = JpegSource::Memory(data + 4, size - 4);
    JpegInfo info;
    ErrorRecord infoRecord;
    if (!ReadJpegInfo(source, 0, &info, &infoRecord) || info.mcuWidth == 0 || info.mcuHeight == 0 ||
        uint64_t{info.width} * info.height > (uint64_t{1} << 20)) {
        return 0;
    }
    CopyRequest request;
    request.left = (data[0] % 4u) * info.mcuWidth;
    request.top = (data[1] % 4u) * info.mcuHeight;
    request.right = request.left + (1u + data[2] % 4u) * info.mcuWidth;
    request.bottom = request.top + (1u + data[3] % 4u) * info.mcuHeight;
    request.optimiseTables = (data[0] & 0x80) != 0;
    ErrorRecord record;
    DWORD copySize = 0;
    HGLOBAL copy = CopyJpegMcus(source, request, &copySize, &record);
    if ((copy != nullptr) != record.ok()) __builtin_trap();
    if (copy == nullptr) {
        if (record.code != kErrBadFileData && record.code != kErrUnsupportedImageType &&
            record.code != kErrUnrecognizedFormat && record.code != kErrInvalidParameter &&
            record.code != kErrNotEnoughMemory) {
            __builtin_trap();
        }
        return 0;
    }
    const auto* bytes = static_cast<const uint8_t*>(platform::MemLock(copy));
    ErrorRecord decodeRecord;
    HGLOBAL dib = DecodeJpegToDib(JpegSource::Memory(bytes, copySize), nullptr, &decodeRecord);
    if (dib == nullptr) __builtin_trap();
    platform::MemFree(dib);
    platform::MemUnlock(copy);
    platform::MemFree(copy);
    return 0;
}
