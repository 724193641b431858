#include "tiff/cals_reader.h"

#include <cstring>

#include "codecs/fax_decoder.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "frame/checked_array.h"
#include "frame/memory_handle.h"

namespace velmora {
namespace {

constexpr uint32_t kErrIfdNotFoundCode = 0x02000003;
constexpr uint32_t kHeaderReadSize = kCalsHeaderSize + 1;

}  // namespace

bool ReadCalsHeader(Stream* stream, CalsHeader* header, ErrorRecord* record) {
    if (record->failed()) return false;
    uint8_t bytes[kHeaderReadSize];
    StreamSeek(stream, 0, record);
    StreamRead(stream, bytes, kHeaderReadSize, kErrUnrecognizedFormat, record);
    return record->ok() && ParseCalsHeader(bytes, kHeaderReadSize, header, record);
}

bool ReadCalsPage(Stream* stream, const CalsHeader& header, uint32_t page, uint32_t flags, CalsPage* out,
                  ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return false;
    *out = CalsPage();
    if (page != 1) {
        SetRecordError(record, kErrIfdNotFoundCode, 0);
        return false;
    }
    CalsOrientation orientation = CalsPageOrientation(header);
    out->width = header.width;
    out->height = header.height;
    out->density = header.density;
    out->orientation = orientation.orientation;
    out->angle = orientation.angle;
    uint64_t size = StreamSize64(stream, record);
    if (record->failed()) return false;
    out->dataSize = size > kCalsHeaderSize ? size - kCalsHeaderSize : 0;
    if (!(flags & kCalsDecode)) return true;

    if (out->dataSize > 0xFFFFFFFFu || header.width > kMaxFaxWidth) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    // The density in dots per centimetre, kept in whole centimetres.
    int32_t pelsPerMeter = static_cast<int32_t>(uint64_t{header.density} * 100 / 254 * 100);
    static const RGBQUAD kWhiteBlack[2] = {{255, 255, 255, 0}, {0, 0, 0, 0}};
    HGLOBAL dib = CreatePackedDib(static_cast<int32_t>(header.width), static_cast<int32_t>(header.height), 1,
                                  kWhiteBlack, 2, pelsPerMeter, pelsPerMeter, record);
    if (dib == nullptr) return false;
    CheckedArray<uint8_t> data;
    data.Sized(out->dataSize, record);
    StreamSeek64(stream, kCalsHeaderSize, record);
    StreamRead(stream, data.data(), static_cast<uint32_t>(data.size()), kErrBadFileData, record);
    if (record->ok()) {
        ImageLock lock(dib);
        DibRows rows = RowsFromTop(lock.header(), lock.bits());
        DecodeGroup4Raster(data.data(), data.size(), header.width, header.height, (flags & kCalsLsbFirst) ? 2 : 1,
                           rows.top, rows.stride, progress, record);
        if (record->ok() && orientation.mirrored && !(flags & kCalsKeepStored)) {
            // Flip top to bottom.
            CheckedArray<uint8_t> swap;
            swap.Sized(rows.rowBytes, record);
            for (uint32_t y = 0; record->ok() && y < rows.height / 2; ++y) {
                uint8_t* a = rows.top + rows.stride * static_cast<ptrdiff_t>(y);
                uint8_t* b = rows.top + rows.stride * static_cast<ptrdiff_t>(rows.height - 1 - y);
                std::memcpy(swap.data(), a, rows.rowBytes);
                std::memcpy(a, b, rows.rowBytes);
                std::memcpy(b, swap.data(), rows.rowBytes);
            }
        }
    }
    if (record->failed()) {
        FreeImage(&dib);
        return false;
    }
    out->dib = dib;
    return true;
}

}  // namespace velmora
