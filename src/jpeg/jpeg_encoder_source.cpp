#include "jpeg/jpeg_encoder_source.h"

#include "dib/dib_layout.h"
#include "frame/error_record.h"

namespace velmora::jpeg {
namespace {

constexpr uint32_t kErrInvalidImageType = 0x02000013;

}  // namespace

bool SourceFromDib(const BITMAPINFOHEADER* header, const void* bits, EncoderSource* source, ErrorRecord* record) {
    if (record->failed()) return false;
    if (header == nullptr || header->biWidth <= 0 || header->biHeight == 0 || header->biHeight == INT32_MIN) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    uint16_t bitCount = header->biBitCount;
    if (bitCount != 1 && bitCount != 4 && bitCount != 8 && bitCount != 24) {
        SetRecordError(record, kErrInvalidImageType, 0);
        return false;
    }
    const uint8_t* first = bits != nullptr ? static_cast<const uint8_t*>(bits) : PackedBits(header);
    uint32_t height = static_cast<uint32_t>(header->biHeight < 0 ? -header->biHeight : header->biHeight);
    ptrdiff_t stride = static_cast<ptrdiff_t>(RowStride(header));
    source->width = static_cast<uint32_t>(header->biWidth);
    source->height = height;
    if (header->biHeight > 0) {
        // Bottom-up: the top row is stored last.
        source->top = first + static_cast<ptrdiff_t>(height - 1) * stride;
        source->stride = -stride;
    } else {
        source->top = first;
        source->stride = stride;
    }
    if (bitCount == 24) {
        source->layout = EncoderSource::Layout::Bgr;
        source->components = 3;
        return true;
    }

    source->layout = EncoderSource::Layout::Indexed;
    source->bitCount = static_cast<uint8_t>(bitCount);
    uint32_t count = ColorCount(header);
    const RGBQUAD* table = ColorTable(header);
    bool grey = true;
    for (uint32_t i = 0; i < count && i < 256; ++i) {
        grey = grey && table[i].rgbRed == table[i].rgbGreen && table[i].rgbGreen == table[i].rgbBlue;
    }
    source->components = grey ? 1 : 3;
    for (uint32_t i = 0; i < 256; ++i) {
        RGBQUAD entry = i < count ? table[i] : RGBQUAD{0, 0, 0, 0};
        source->lookup[i][0] = grey ? entry.rgbRed : entry.rgbBlue;
        source->lookup[i][1] = entry.rgbGreen;
        source->lookup[i][2] = entry.rgbRed;
    }
    return true;
}

const uint8_t* SourceRow(const EncoderSource& source, uint32_t y, uint8_t* scratch, bool* redFirst) {
    const uint8_t* row = source.top + static_cast<ptrdiff_t>(y) * source.stride;
    *redFirst = source.layout == EncoderSource::Layout::Rgb;
    if (source.layout != EncoderSource::Layout::Indexed) return row;
    uint32_t bitCount = source.bitCount;
    uint32_t perByte = 8 / bitCount;
    uint32_t mask = (1u << bitCount) - 1;
    for (uint32_t x = 0; x < source.width; ++x) {
        uint32_t shift = 8 - bitCount * (x % perByte + 1);
        uint32_t index = (row[x / perByte] >> shift) & mask;
        if (source.components == 1) {
            scratch[x] = source.lookup[index][0];
        } else {
            scratch[3 * x] = source.lookup[index][0];
            scratch[3 * x + 1] = source.lookup[index][1];
            scratch[3 * x + 2] = source.lookup[index][2];
        }
    }
    return scratch;
}

}  // namespace velmora::jpeg
