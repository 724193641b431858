#include "tiff/page_decoder.h"

#include <cstring>
#include <memory>

#include "codecs/byte_decoders.h"
#include "codecs/fax_decoder.h"
#include "codecs/strip_input.h"
#include "dib/image.h"
#include "dib/dib_layout.h"
#include "dib/resolution.h"
#include "dib/rotate.h"
#include "frame/checked_array.h"
#include "io/stream.h"
#include "tiff/compression.h"
#include "tiff/jpeg_strip_decoder.h"
#include "tiff/page_format.h"

namespace velmora {
namespace {

constexpr uint16_t kFillOrderLsbFirst = 2;
constexpr uint64_t kMaxRowBuffer = uint64_t{1} << 31;

// Uncompressed strips: the stored rows as they are.
class CopyDecoder : public StripDecoder {
public:
    bool Begin(const CodecPage& page, ErrorRecord*) override {
        rowBytes_ = StoredRowBytes(page.imageWidth, page.bitsPerSample, page.samplesPerPixel);
        imageRows_ = page.imageLength;
        return true;
    }
    bool Decode(const CodecStrip& strip, ErrorRecord* record) override {
        uint8_t* row = strip.topRow;
        for (uint32_t r = 0; r < strip.rows; ++r, row += strip.stride) {
            uint64_t at = uint64_t{r} * rowBytes_;
            if (at + rowBytes_ > strip.size) {
                SetRecordError(record, kErrBadImageData, 0);
                return false;
            }
            std::memcpy(row, strip.data + at, rowBytes_);
            if (strip.progress != nullptr && !strip.progress->Row(strip.firstRow + r, imageRows_, record)) return false;
        }
        return true;
    }
private:
    uint64_t rowBytes_ = 0;
    uint32_t imageRows_ = 0;
};

std::unique_ptr<StripDecoder> CreateDecoder(TiffFile* tiff, const TiffPageInfo& info) {
    const TiffCompression* compression = FindCompression(info.compression);
    if (compression == nullptr) return nullptr;
    switch (compression->coding) {
        case StripCoding::Stored: return NewDecoder<CopyDecoder>();
        case StripCoding::Fax: return CreateFaxDecoder(info.compression);
        case StripCoding::Lzw: return CreateLzwDecoder();
        case StripCoding::Deflate: return CreateDeflateDecoder();
        case StripCoding::PackBits: return CreatePackBitsDecoder();
        case StripCoding::ThunderScan: return CreateThunderScanDecoder();
        case StripCoding::RunLength: return CreateRunLengthDecoder();
        case StripCoding::Jpeg: return CreateTiffJpegDecoder(tiff, info);
    }
    return nullptr;
}

// Where a stored pixel goes in the DIB for each orientation (TIFF 6.0
// Orientation: where row 0 and column 0 lie).
struct Placement {
    uint16_t orientation;
    uint32_t width, length;  // stored
    void Map(uint32_t x, uint32_t y, uint32_t* ox, uint32_t* oy) const {
        uint32_t lastX = width - 1, lastY = length - 1;
        switch (orientation) {
            case 2: *ox = lastX - x; *oy = y; break;
            case 3: *ox = lastX - x; *oy = lastY - y; break;
            case 4: *ox = x; *oy = lastY - y; break;
            case 5: *ox = y; *oy = x; break;
            case 6: *ox = lastY - y; *oy = x; break;
            case 7: *ox = lastY - y; *oy = lastX - x; break;
            case 8: *ox = y; *oy = lastX - x; break;
            default: *ox = x; *oy = y; break;
        }
    }
};

uint32_t GetPixel(const uint8_t* row, uint32_t x, uint16_t bits) {
    switch (bits) {
        case 1: return (row[x / 8] >> (7 - x % 8)) & 1;
        case 4: return (row[x / 2] >> (x % 2 ? 0 : 4)) & 0xF;
        case 8: return row[x];
        default: return uint32_t{row[3 * x]} | uint32_t{row[3 * x + 1]} << 8 | uint32_t{row[3 * x + 2]} << 16;
    }
}

void SetPixel(uint8_t* row, uint32_t x, uint16_t bits, uint32_t v) {
    switch (bits) {
        case 1: {
            uint8_t mask = static_cast<uint8_t>(0x80 >> (x % 8));
            row[x / 8] = static_cast<uint8_t>(v ? row[x / 8] | mask : row[x / 8] & ~mask);
            break;
        }
        case 4: {
            uint8_t shift = x % 2 ? 0 : 4;
            row[x / 2] = static_cast<uint8_t>((row[x / 2] & ~(0xF << shift)) | (v & 0xF) << shift);
            break;
        }
        case 8: row[x] = static_cast<uint8_t>(v); break;
        default:
            row[3 * x] = static_cast<uint8_t>(v);
            row[3 * x + 1] = static_cast<uint8_t>(v >> 8);
            row[3 * x + 2] = static_cast<uint8_t>(v >> 16);
            break;
    }
}

// Copies `count` pixels of a DIB-format row to stored position (x0, y).
void PlaceRow(const DibRows& dib, const Placement& placement, uint16_t bits, const uint8_t* row, uint32_t x0,
              uint32_t y, uint32_t count) {
    if (placement.orientation == 1 && (uint64_t{x0} * bits) % 8 == 0) {
        std::memcpy(dib.top + dib.stride * static_cast<ptrdiff_t>(y) + uint64_t{x0} * bits / 8, row,
                    (uint64_t{count} * bits + 7) / 8);
        if ((uint64_t{count} * bits) % 8 == 0 || x0 + count == placement.width) return;
    }
    for (uint32_t x = 0; x < count; ++x) {
        uint32_t ox, oy;
        placement.Map(x0 + x, y, &ox, &oy);
        SetPixel(dib.top + dib.stride * static_cast<ptrdiff_t>(oy), ox, bits, GetPixel(row, x, bits));
    }
}

class PageDecoder {
public:
    PageDecoder(TiffFile* tiff, const TiffPageInfo* info, ProgressReporter* progress)
        : tiff_(tiff), info_(info), progress_(progress) {}

    HGLOBAL Run(uint16_t* rotation, ErrorRecord* record);

private:
    bool DecodeUnit(uint32_t unit, StripDecoder* decoder, const CodecPage& page, ErrorRecord* record);

    TiffFile* tiff_;
    const TiffPageInfo* info_;
    ProgressReporter* progress_;
    PageFormat format_;
    Placement placement_ = {};
    DibRows dib_ = {};
    TiffStripBuffer raw_;
    CheckedArray<uint8_t> reversed_;
    CheckedArray<uint8_t> planeRows_[3];
    CheckedArray<uint8_t> converted_;
    uint32_t unitWidth_ = 0, unitLength_ = 0, unitsAcross_ = 1, unitsPerPlane_ = 0;
    uint64_t storedRowBytes_ = 0;
};

bool PageDecoder::DecodeUnit(uint32_t unit, StripDecoder* decoder, const CodecPage& page, ErrorRecord* record) {
    const uint32_t x0 = (unit % unitsAcross_) * unitWidth_;
    const uint32_t y0 = (unit / unitsAcross_) * unitLength_;
    // Strips stop at the image's last row; tiles are always whole.
    const uint32_t rows = info_->tiled ? unitLength_ : std::min(unitLength_, info_->length - y0);
    const uint32_t visibleRows = std::min(rows, info_->length - y0);
    const uint32_t visibleWidth = std::min(unitWidth_, info_->width - x0);
    const uint32_t codedRows = format_.kind == SampleKind::kYcbcr ? (rows + format_.subV - 1) / format_.subV : rows;

    for (uint16_t plane = 0; plane < format_.planes; ++plane) {
        const uint32_t index = plane * unitsPerPlane_ + unit;
        uint32_t size = 0;
        const uint8_t* data = nullptr;
        uint64_t byteCount = index < info_->byteCounts.count ? info_->byteCounts.values[index] : 0;
        if (byteCount == 0) {
            // A page stored as one strip may leave its size out: it runs to
            // the end of the file.
            if (info_->stripCount != 1) {
                SetRecordError(record, kErrBadImageData, 0);
                return false;
            }
            uint64_t end = TiffDataSize(tiff_, record);
            uint64_t offset = info_->offsets.values[0];
            if (record->failed() || offset >= end) {
                if (record->ok()) SetRecordError(record, kErrBadImageData, 0);
                return false;
            }
            data = raw_.ReadRange(tiff_, offset, end - offset, record);
            size = static_cast<uint32_t>(std::min<uint64_t>(end - offset, 0xFFFFFFFFu));
        } else {
            data = raw_.Read(tiff_, info_, index, &size, record);
        }
        if (data == nullptr || record->failed()) return false;
        // Codecs read bits in either order; stored rows are turned here.
        if (info_->fillOrder == kFillOrderLsbFirst && info_->compression == 1) {
            if (!reversed_.Sized(size, record)) return false;
            ReverseBitOrder(data, reversed_.data(), size);
            data = reversed_.data();
        }
        CheckedArray<uint8_t>& buffer = planeRows_[plane];
        if (!buffer.Zeroed(storedRowBytes_ * codedRows, record)) return false;
        CodecStrip strip;
        strip.data = data;
        strip.size = size;
        strip.firstRow = y0;
        strip.rows = codedRows;
        strip.index = index;
        strip.xOffset = x0;  // where the tile lies; its rows go to the start of the buffer
        strip.topRow = buffer.data();
        strip.stride = static_cast<ptrdiff_t>(storedRowBytes_);
        strip.progress = progress_;
        if (!decoder->Decode(strip, record)) return false;
    }

    const uint16_t bits = format_.dibBits;
    const size_t rowBytes = static_cast<size_t>((uint64_t{unitWidth_} * bits + 7) / 8);
    if (format_.kind == SampleKind::kYcbcr) {
        if (!converted_.Zeroed(uint64_t{rowBytes} * format_.subV, record)) return false;
        uint8_t* out[4];
        for (uint16_t r = 0; r < format_.subV; ++r) out[r] = converted_.data() + rowBytes * r;
        for (uint32_t band = 0; band * format_.subV < visibleRows; ++band) {
            uint32_t bandRows = std::min<uint32_t>(format_.subV, visibleRows - band * format_.subV);
            ConvertYcbcrBand(format_, planeRows_[0].data() + storedRowBytes_ * band, unitWidth_, bandRows, out);
            for (uint32_t r = 0; r < bandRows; ++r) {
                PlaceRow(dib_, placement_, bits, out[r], x0, y0 + band * format_.subV + r, visibleWidth);
            }
        }
        return true;
    }
    if (!converted_.Zeroed(rowBytes, record)) return false;
    for (uint32_t r = 0; r < visibleRows; ++r) {
        const uint8_t* planes[3];
        for (uint16_t p = 0; p < format_.planes; ++p) planes[p] = planeRows_[p].data() + storedRowBytes_ * r;
        ConvertRow(format_, planes, unitWidth_, converted_.data());
        PlaceRow(dib_, placement_, bits, converted_.data(), x0, y0 + r, visibleWidth);
    }
    return true;
}

HGLOBAL PageDecoder::Run(uint16_t* rotation, ErrorRecord* record) {
    *rotation = 0;
    if (!ChoosePageFormat(tiff_, *info_, &format_, record)) return nullptr;
    const TiffPageInfo& info = *info_;
    unitWidth_ = info.tiled ? info.tileWidth : info.width;
    unitLength_ = info.tiled ? info.tileLength : (info.rowsPerStrip == 0 ? info.length : info.rowsPerStrip);
    if (unitWidth_ == 0 || unitLength_ == 0) {
        SetRecordError(record, kErrBadImageData, 0);
        return nullptr;
    }
    // The strip or tile grid as the page description checked it.
    unitsAcross_ = info.tiled ? static_cast<uint32_t>((uint64_t{info.width} + unitWidth_ - 1) / unitWidth_) : 1;
    const uint32_t unitsDown = info.stripsPerPlane / unitsAcross_;
    unitsPerPlane_ = info.stripsPerPlane;
    if (uint64_t{unitsPerPlane_} * format_.planes > info.stripCount) {
        SetRecordError(record, kErrBadImageData, 0);
        return nullptr;
    }
    const uint16_t codedBits = format_.kind == SampleKind::kYcbcr ? 8 : info.bitsPerSample;
    const uint32_t codedWidth = format_.kind == SampleKind::kYcbcr
                                    ? ((unitWidth_ + format_.subH - 1) / format_.subH) *
                                          (uint32_t{format_.subH} * format_.subV + 2)
                                    : unitWidth_;
    const uint16_t codedSamples = format_.kind == SampleKind::kYcbcr ? 1 : format_.pixelSamples;
    storedRowBytes_ = StoredRowBytes(codedWidth, codedBits, codedSamples);
    if (storedRowBytes_ * unitLength_ > kMaxRowBuffer) {
        SetRecordError(record, kErrBadImageData, 0);
        return nullptr;
    }

    // One strip or tile covering the page decodes as stored and leaves the
    // rotation to the reader; otherwise every strip goes straight to its
    // oriented place.
    const bool wholePage = unitsPerPlane_ == 1 && unitWidth_ >= info.width && unitLength_ >= info.length;
    const uint16_t orientation = info.orientation >= 1 && info.orientation <= 8 ? info.orientation : 1;
    placement_ = Placement{wholePage ? uint16_t{1} : orientation, info.width, info.length};
    const bool exchange = placement_.orientation >= 5;
    const uint32_t dibWidth = exchange ? info.length : info.width;
    const uint32_t dibHeight = exchange ? info.width : info.length;
    int32_t xPels = PelsPerMeter(info.xResolution.numerator, info.xResolution.denominator, info.resolutionUnit);
    int32_t yPels = PelsPerMeter(info.yResolution.numerator, info.yResolution.denominator, info.resolutionUnit);
    if (exchange) std::swap(xPels, yPels);

    HGLOBAL dib = CreatePackedDib(static_cast<int32_t>(dibWidth), static_cast<int32_t>(dibHeight), format_.dibBits,
                                  format_.tableCount ? format_.table : nullptr, format_.tableCount, xPels, yPels,
                                  record);
    if (dib == nullptr) return nullptr;
    {
        ImageLock lock(dib);
        dib_ = RowsFromTop(lock.header(), lock.bits());

        std::unique_ptr<StripDecoder> decoder = CreateDecoder(tiff_, info);
        CodecPage page;
        page.imageWidth = format_.kind == SampleKind::kYcbcr ? codedWidth : unitWidth_;
        page.outputWidth = page.imageWidth;
        page.imageLength = info.tiled ? unitLength_ * unitsDown : info.length;
        page.rowsPerStrip = unitLength_;
        page.stripCount = info.stripCount;
        page.compression = info.compression;
        page.bitsPerSample = codedBits;
        page.samplesPerPixel = codedSamples;
        page.fillOrder = info.fillOrder;
        page.predictor = info.predictor;
        page.t4Options = info.t4Options;
        page.t6Options = info.t6Options;
        if (format_.kind == SampleKind::kYcbcr) page.imageLength = (page.imageLength + format_.subV - 1) / format_.subV;
        if (decoder == nullptr) SetRecordError(record, kErrNotEnoughMemory, 0);
        bool ok = decoder != nullptr && decoder->Begin(page, record);
        for (uint32_t unit = 0; ok && unit < unitsPerPlane_; ++unit) ok = DecodeUnit(unit, decoder.get(), page, record);
        if (decoder != nullptr) decoder->End();
        if (!ok || record->failed()) {
            if (record->ok()) SetRecordError(record, kErrBadImageData, 0);
        }
    }
    if (record->failed()) {
        FreeImage(&dib);
        return nullptr;
    }
    // 3 and 4 turn half way; 6 and 7 a quarter clockwise; 5 and 8 three quarters.
    static const uint16_t kAngles[9] = {0, 0, 0, 180, 180, 270, 90, 90, 270};
    *rotation = wholePage ? kAngles[orientation] : 0;
    return dib;
}

}  // namespace

HGLOBAL DecodePage(TiffFile* tiff, const TiffPageInfo& info, ProgressReporter* progress, uint16_t* rotation,
                   ErrorRecord* record) {
    *rotation = 0;
    if (record->failed()) return nullptr;
    PageDecoder decoder(tiff, &info, progress);
    return decoder.Run(rotation, record);
}

HGLOBAL ReadUprightPage(TiffFile* tiff, uint32_t page, uint32_t readFlags, ProgressReporter* progress,
                        ErrorRecord* record, const PageStep* step) {
    TiffPageInfo info;
    SetWanted(&info, kFieldImage);
    SetWanted(&info, kFieldXResolution);
    SetWanted(&info, kFieldYResolution);
    if (step != nullptr && step->field != kFieldListEnd) SetWanted(&info, step->field);
    readFlags |= kReadExported | kReadCheckImage | kReadStructure;
    if (!ReadPageInfo(tiff, page, readFlags, &info, record)) return nullptr;
    uint16_t rotation = 0;
    HGLOBAL dib = DecodePage(tiff, info, progress, &rotation, record);
    if (dib != nullptr && step != nullptr) {
        step->apply(info, &dib, step->context, record);
        if (record->failed()) FreeImage(&dib);
    }
    FreePageInfo(&info);
    if (rotation != 0 && dib != nullptr) {
        HGLOBAL turned = RotateDib(dib, rotation, record);
        FreeImage(&dib);
        dib = turned;
    }
    return dib;
}

}  // namespace velmora
