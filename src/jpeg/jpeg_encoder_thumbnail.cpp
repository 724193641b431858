#include "jpeg/jpeg_encoder_thumbnail.h"

#include "jpeg/jpeg_encoder_segments.h"
#include "jpeg/jpeg_encoder_source.h"
#include "dib/dib_layout.h"
#include "dib/palette.h"
#include "platform/platform.h"

namespace velmora::jpeg {
namespace {

constexpr uint32_t kErrInvalidImageType = 0x02000013;
constexpr uint32_t kErrThumbnailTooLarge = 0x0200002C;

// A segment's length field cannot reach this; the limits of the thumbnails
// inside JFIF and JFXX segments are stated against it.
constexpr uint64_t kSegmentLimit = 65534;
constexpr uint32_t kMaxThumbnailSide = 255;

constexpr uint8_t kJfxxJpeg = 0x10;
constexpr uint8_t kJfxxPalette = 0x11;

void PutBig16(uint8_t* out, uint32_t value) {
    out[0] = static_cast<uint8_t>(value >> 8);
    out[1] = static_cast<uint8_t>(value);
}

// The start of an APP0 segment of `length` (the length field's value) with
// the identifier "JFIF" or "JFXX" and its terminating zero.
void WriteApp0Start(Stream* stream, uint32_t length, const char* identifier, ErrorRecord* record) {
    uint8_t bytes[9] = {0xFF, kMarkerApp0};
    PutBig16(bytes + 2, length);
    for (int i = 0; i < 4; ++i) bytes[4 + i] = static_cast<uint8_t>(identifier[i]);
    bytes[8] = 0;
    StreamWrite(stream, bytes, sizeof bytes, record);
}

void WriteJfifSegment(const JpegEncoderSettings& settings, uint32_t thumbnailWidth, uint32_t thumbnailHeight,
                      Stream* stream, ErrorRecord* record) {
    uint32_t pixels = 3 * thumbnailWidth * thumbnailHeight;
    WriteApp0Start(stream, 16 + pixels, "JFIF", record);
    uint8_t fields[9] = {1, 2, settings.densityUnit};
    PutBig16(fields + 3, settings.xDensity);
    PutBig16(fields + 5, settings.yDensity);
    fields[7] = static_cast<uint8_t>(thumbnailWidth);
    fields[8] = static_cast<uint8_t>(thumbnailHeight);
    StreamWrite(stream, fields, sizeof fields, record);
}

bool TooLarge(uint32_t width, uint32_t height, uint64_t bytesPerPixel, uint64_t overhead, ErrorRecord* record) {
    if (width <= kMaxThumbnailSide && height <= kMaxThumbnailSide &&
        bytesPerPixel * width * height + overhead < kSegmentLimit) {
        return false;
    }
    SetRecordError(record, kErrThumbnailTooLarge, 0);
    return true;
}

// Plain JFIF: the pixels in the JFIF segment, red, green, blue.
void WriteRgbThumbnail(const JpegEncoderSettings& settings, const EncoderSource& source, Stream* stream,
                       ErrorRecord* record) {
    if (TooLarge(source.width, source.height, 3, 14, record)) return;
    WriteJfifSegment(settings, source.width, source.height, stream, record);
    uint8_t scratch[3 * kMaxThumbnailSide];
    uint8_t rgb[3 * kMaxThumbnailSide];
    for (uint32_t y = 0; y < source.height && record->ok(); ++y) {
        bool redFirst = false;
        const uint8_t* row = SourceRow(source, y, scratch, &redFirst);
        for (uint32_t x = 0; x < source.width; ++x) {
            rgb[3 * x] = row[3 * x + (redFirst ? 0 : 2)];
            rgb[3 * x + 1] = row[3 * x + 1];
            rgb[3 * x + 2] = row[3 * x + (redFirst ? 2 : 0)];
        }
        StreamWrite(stream, rgb, 3 * source.width, record);
    }
}

// Plain JFIF with a palette thumbnail: an empty JFIF segment, then JFXX with
// a 256-entry palette and one index per pixel.
void WritePaletteThumbnail(const JpegEncoderSettings& settings, const BITMAPINFOHEADER* header,
                           const EncoderSource& source, Stream* stream, ErrorRecord* record) {
    if (TooLarge(source.width, source.height, 1, 776, record)) return;
    WriteJfifSegment(settings, 0, 0, stream, record);
    WriteApp0Start(stream, 2 + 5 + 3 + 768 + source.width * source.height, "JFXX", record);
    uint8_t size[3] = {kJfxxPalette, static_cast<uint8_t>(source.width), static_cast<uint8_t>(source.height)};
    StreamWrite(stream, size, sizeof size, record);
    uint8_t palette[768] = {};
    uint32_t count = ColorCount(header);
    const RGBQUAD* table = ColorTable(header);
    for (uint32_t i = 0; i < count && i < 256; ++i) {
        palette[3 * i] = table[i].rgbRed;
        palette[3 * i + 1] = table[i].rgbGreen;
        palette[3 * i + 2] = table[i].rgbBlue;
    }
    StreamWrite(stream, palette, sizeof palette, record);
    uint8_t indices[kMaxThumbnailSide];
    uint32_t bitCount = source.bitCount;
    uint32_t perByte = 8 / bitCount;
    uint32_t mask = (1u << bitCount) - 1;
    for (uint32_t y = 0; y < source.height && record->ok(); ++y) {
        const uint8_t* row = source.top + static_cast<ptrdiff_t>(y) * source.stride;
        for (uint32_t x = 0; x < source.width; ++x) {
            indices[x] = static_cast<uint8_t>((row[x / perByte] >> (8 - bitCount * (x % perByte + 1))) & mask);
        }
        StreamWrite(stream, indices, source.width, record);
    }
}

// JFXX mode: an empty JFIF segment, then JFXX holding a JPEG of the
// thumbnail made by this encoder.
void WriteJpegThumbnail(const JpegEncoderSettings& settings, Stream* stream, ErrorRecord* record) {
    JpegEncoderSettings inner;
    inner.quality = settings.quality;
    inner.tables = settings.tables;
    inner.sampling = settings.sampling;
    inner.optimiseHuffman = settings.optimiseHuffman;
    inner.writeComment = false;
    Stream* memory = OpenMemoryStream(false, record);
    if (memory == nullptr) return;
    EncodeJpegDib(settings.thumbnail, settings.thumbnailBits, inner, memory, nullptr, record);
    uint64_t size = record->ok() ? StreamSize64(memory, record) : 0;
    HGLOBAL data = CloseStream(memory, record);
    if (record->ok() && size + 8 >= kSegmentLimit) SetRecordError(record, kErrThumbnailTooLarge, 0);
    if (record->ok() && data != nullptr) {
        WriteJfifSegment(settings, 0, 0, stream, record);
        WriteApp0Start(stream, static_cast<uint32_t>(2 + 5 + 1 + size), "JFXX", record);
        const uint8_t code = kJfxxJpeg;
        StreamWrite(stream, &code, 1, record);
        const void* bytes = platform::MemLock(data);
        if (bytes != nullptr) {
            StreamWrite(stream, bytes, static_cast<uint32_t>(size), record);
            platform::MemUnlock(data);
        } else {
            SetRecordError(record, kErrNotEnoughMemory, 0);
        }
    }
    if (data != nullptr) platform::MemFree(data);
}

}  // namespace

bool WriteJfifSegments(const JpegEncoderSettings& settings, Stream* stream, ErrorRecord* record) {
    if (record->failed()) return false;
    if (settings.thumbnail == nullptr) {
        WriteJfifSegment(settings, 0, 0, stream, record);
        return record->ok();
    }
    EncoderSource source;
    if (!SourceFromDib(settings.thumbnail, settings.thumbnailBits, &source, record)) return false;
    bool palette = source.layout == EncoderSource::Layout::Indexed;
    if (!settings.jfxxThumbnail) {
        if (palette) {
            WritePaletteThumbnail(settings, settings.thumbnail, source, stream, record);
        } else {
            WriteRgbThumbnail(settings, source, stream, record);
        }
        return record->ok();
    }
    if (palette && ClassifyGrey(settings.thumbnail) != GreyKind::Ascending) {
        SetRecordError(record, kErrInvalidImageType, 0);
        return false;
    }
    WriteJpegThumbnail(settings, stream, record);
    return record->ok();
}

}  // namespace velmora::jpeg
