#include "tiff/jpeg_strip_decoder.h"

#include <algorithm>
#include <cstring>

#include "frame/checked_array.h"
#include "jpeg/jpeg_decoder.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint16_t kPhotometricRgb = 2;
constexpr uint16_t kPhotometricSeparated = 5;
constexpr uint16_t kPhotometricYcbcr = 6;
constexpr uint16_t kJpegProcLossless = 14;
constexpr uint64_t kMaxWholeImage = uint64_t{1} << 31;

jpeg::ColorOverride ColorOf(const TiffPageInfo& info) {
    if (info.photometric == kPhotometricYcbcr) return jpeg::ColorOverride::YCbCr;
    if (info.photometric == kPhotometricRgb) return jpeg::ColorOverride::Rgb;
    if (info.photometric == kPhotometricSeparated) return jpeg::ColorOverride::Separated;
    return jpeg::ColorOverride::Auto;
}

class TiffJpegDecoder : public StripDecoder {
public:
    TiffJpegDecoder(TiffFile* tiff, const TiffPageInfo& info) : tiff_(tiff), info_(info) {}

    bool Begin(const CodecPage& page, ErrorRecord* record) override;
    bool Decode(const CodecStrip& strip, ErrorRecord* record) override;

private:
    bool BeginTables(ErrorRecord* record);
    bool BeginInterchange(ErrorRecord* record);
    bool BeginRawTables(ErrorRecord* record);
    bool MatchesPage(const jpeg::JpegSource& source, ErrorRecord* record);
    bool ReadRange(uint64_t offset, uint64_t count, CheckedArray<uint8_t>* out, ErrorRecord* record);
    bool Fail(ErrorRecord* record) {
        if (record->ok()) SetRecordError(record, kErrBadFileData, 0);
        return false;
    }

    TiffFile* tiff_;
    const TiffPageInfo& info_;
    CodecPage page_;
    jpeg::JpegDecoder decoder_;
    uint32_t pixelBytes_ = 1;
    // Old-style pages through JPEGInterchangeFormat: the whole image.
    bool whole_ = false;
    CheckedArray<uint8_t> image_;
    uint64_t imageStride_ = 0;
    // Old-style pages without it: the frame each strip's data belongs to.
    jpeg::JpegRawFrame raw_;
};

bool TiffJpegDecoder::ReadRange(uint64_t offset, uint64_t count, CheckedArray<uint8_t>* out, ErrorRecord* record) {
    TiffStripBuffer buffer;
    const uint8_t* data = buffer.ReadRange(tiff_, offset, count, record);
    if (data == nullptr || record->failed()) return Fail(record);
    if (!out->Sized(count, record)) return false;
    std::memcpy(out->data(), data, static_cast<size_t>(count));
    return true;
}

bool TiffJpegDecoder::Begin(const CodecPage& page, ErrorRecord* record) {
    page_ = page;
    pixelBytes_ = info_.samplesPerPixel >= 3 ? 3 : 1;
    if (!decoder_.valid()) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return false;
    }
    if (page.compression == 7) return BeginTables(record);
    if (info_.jpegInterchangeFormat != 0) return BeginInterchange(record);
    return BeginRawTables(record);
}

// JPEGTables: an abbreviated stream of tables for every strip.
bool TiffJpegDecoder::BeginTables(ErrorRecord* record) {
    if (info_.jpegTables.handle == nullptr || info_.jpegTables.size == 0) return true;
    const auto* bytes = static_cast<const uint8_t*>(platform::MemLock(info_.jpegTables.handle));
    bool ok = decoder_.LoadTables(jpeg::JpegSource::Memory(bytes, info_.jpegTables.size), record);
    platform::MemUnlock(info_.jpegTables.handle);
    return ok;
}

// A complete stream inside the file: decoded now into one image of the
// page's size; its length, when not recorded, runs to the end of the file.
bool TiffJpegDecoder::BeginInterchange(ErrorRecord* record) {
    const uint64_t end = TiffDataSize(tiff_, record);
    const uint64_t offset = info_.jpegInterchangeFormat;
    if (record->failed() || offset >= end) return Fail(record);
    uint64_t length = info_.jpegInterchangeFormatLength;
    if (length == 0 || length > end - offset) length = end - offset;
    CheckedArray<uint8_t> stream;
    if (!ReadRange(offset, length, &stream, record)) return false;
    const jpeg::JpegSource source = jpeg::JpegSource::Memory(stream.data(), stream.size());
    if (!MatchesPage(source, record)) return false;

    imageStride_ = uint64_t{info_.width} * pixelBytes_;
    const uint64_t bytes = imageStride_ * info_.length;
    if (bytes == 0 || bytes > kMaxWholeImage) return Fail(record);
    if (!image_.Zeroed(bytes, record)) return false;
    jpeg::JpegDecodeOptions options;
    options.output = {image_.data(), static_cast<ptrdiff_t>(imageStride_), info_.width, info_.length};
    options.color = ColorOf(info_);
    whole_ = true;
    return decoder_.Decode(source, options, record);
}

// Tables from the old-style tags, and the frame of every strip.
bool TiffJpegDecoder::BeginRawTables(ErrorRecord* record) {
    const uint32_t components = info_.samplesPerPixel;
    if (components != 1 && components != 3) return Fail(record);
    raw_.components = static_cast<uint8_t>(components);
    raw_.lossless = info_.jpegProc == kJpegProcLossless;
    raw_.restartInterval = static_cast<uint16_t>(std::min<uint32_t>(info_.jpegRestartInterval, 0xFFFF));
    for (uint32_t c = 0; c < components; ++c) {
        const bool luma = c == 0 && components == 3 && info_.photometric == kPhotometricYcbcr;
        raw_.component[c].id = static_cast<uint8_t>(c + 1);
        raw_.component[c].h = luma ? static_cast<uint8_t>(info_.ycbcrSubsampling[0]) : 1;
        raw_.component[c].v = luma ? static_cast<uint8_t>(info_.ycbcrSubsampling[1]) : 1;
        raw_.component[c].quantTable = static_cast<uint8_t>(c);
        raw_.dcTable[c] = static_cast<uint8_t>(c);
        raw_.acTable[c] = static_cast<uint8_t>(c);
        if (raw_.lossless) {
            if (c == 0 && info_.jpegLosslessPredictors.count > 0) {
                raw_.predictor = static_cast<uint8_t>(info_.jpegLosslessPredictors.values[0]);
            }
        } else {
            if (c >= info_.jpegQTables.count) return Fail(record);
            CheckedArray<uint8_t> bytes;
            if (!ReadRange(info_.jpegQTables.values[c], 64, &bytes, record)) return false;
            uint16_t values[64];
            for (int i = 0; i < 64; ++i) values[i] = bytes[i];
            if (!decoder_.SetQuantTable(c, values, record)) return false;
        }
        const TiffArray* huffman[2] = {&info_.jpegDCTables, &info_.jpegACTables};
        for (uint32_t tableClass = 0; tableClass < 2; ++tableClass) {
            if (raw_.lossless && tableClass == 1) break;
            if (c >= huffman[tableClass]->count) return Fail(record);
            const uint64_t offset = huffman[tableClass]->values[c];
            CheckedArray<uint8_t> counts;
            if (!ReadRange(offset, 16, &counts, record)) return false;
            size_t total = 0;
            for (uint8_t n : counts) total += n;
            if (total > 256) return Fail(record);
            CheckedArray<uint8_t> symbols;
            if (!ReadRange(offset + 16, total, &symbols, record)) return false;
            if (!decoder_.SetHuffmanTable(tableClass, c, counts.data(), symbols.data(), total, record)) return false;
        }
    }
    return true;
}

bool TiffJpegDecoder::Decode(const CodecStrip& strip, ErrorRecord* record) {
    if (record->failed()) return false;
    const uint32_t width = page_.imageWidth;
    if (whole_) {
        // Cut the strip or tile out of the decoded image; what lies beyond
        // the image stays empty.
        for (uint32_t r = 0; r < strip.rows; ++r) {
            const uint64_t y = uint64_t{strip.firstRow} + r;
            uint8_t* out = strip.topRow + strip.stride * static_cast<ptrdiff_t>(r);
            std::memset(out, 0, uint64_t{width} * pixelBytes_);
            if (y >= info_.length || strip.xOffset >= info_.width) continue;
            const uint32_t visible = std::min(width, info_.width - strip.xOffset);
            std::memcpy(out, image_.data() + y * imageStride_ + uint64_t{strip.xOffset} * pixelBytes_,
                        uint64_t{visible} * pixelBytes_);
        }
        return true;
    }
    jpeg::JpegDecodeOptions options;
    options.output = {strip.topRow, strip.stride, width, strip.rows};
    options.color = ColorOf(info_);
    const jpeg::JpegSource source = jpeg::JpegSource::Memory(strip.data, strip.size);
    bool ok;
    if (page_.compression == 7) {
        ok = MatchesPage(source, record) && decoder_.Decode(source, options, record);
    } else {
        jpeg::JpegRawFrame frame = raw_;
        frame.width = width;
        frame.height = strip.rows;
        ok = decoder_.DecodeRaw(frame, source, options, record);
    }
    return ok && (strip.progress == nullptr ||
                  strip.progress->Row(strip.firstRow + strip.rows - 1, page_.imageLength, record));
}

// A stream whose pixels would not fit the page's rows (colour data in a grey
// page, or the reverse) is bad data.
bool TiffJpegDecoder::MatchesPage(const jpeg::JpegSource& source, ErrorRecord* record) {
    jpeg::JpegInfo facts;
    if (!decoder_.ReadInfo(source, 0, &facts, record)) return false;
    const uint32_t bytes = facts.components == 1 ? 1 : 3;
    return bytes == pixelBytes_ || Fail(record);
}

}  // namespace

std::unique_ptr<StripDecoder> CreateTiffJpegDecoder(TiffFile* tiff, const TiffPageInfo& info) {
    return NewDecoder<TiffJpegDecoder>(tiff, info);
}

}  // namespace velmora
