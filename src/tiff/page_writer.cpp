#include "tiff/page_writer.h"

#include <cstring>

#include "codecs/byte_encoders.h"
#include "codecs/fax_encoder.h"
#include "codecs/strip_encoding.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "dib/palette.h"
#include "dib/resolution.h"
#include "frame/memory_handle.h"
#include "frame/scratch_block.h"
#include "io/stream.h"
#include "jpeg/jpeg_encoder.h"
#include "platform/platform.h"
#include "tiff/compression.h"
#include "tiff/directory_builder.h"
#include "tiff/outside_annotations.h"
#include "tiff/page_decoder.h"
#include "tiff/page_info.h"
#include "tiff/tags.h"
#include "velmora/velmora.h"

namespace velmora {

const uint16_t kExtraTextTags[8] = {kTagDocumentName, kTagImageDescription, kTagMake,   kTagModel,
                                    kTagPageName,     kTagSoftware,         kTagArtist, kTagHostComputer};

namespace {

// TIFF Compression values.
constexpr uint16_t kTiffNone = 1, kTiffModifiedHuffman = 2, kTiffGroup3 = 3, kTiffGroup4 = 4, kTiffLzw = 5,
                   kTiffJpeg = 7, kTiffDeflate = 8, kTiffPackBits = 32773, kTiffOldDeflate = 32946;
// PhotometricInterpretation values.
constexpr uint16_t kWhiteIsZero = 0, kBlackIsZero = 1, kRgb = 2, kPalette = 3, kYCbCr = 6;
constexpr uint16_t kTagIccProfile = 34675;

// Uncompressed bytes a strip holds at most: fax pages in large strips (each
// strip restarts the two-dimensional coding), the others in small ones.
constexpr uint64_t kFaxStripBytes = 1u << 20;
constexpr uint64_t kStripBytes = 64u << 10;
// JPEG strips hold whole rows of 2 x 2 subsampled blocks.
constexpr uint32_t kJpegRowGranule = 16;
// The largest piece of a strip copied at once.
constexpr uint32_t kCopyPiece = 1u << 16;
// Classic TIFF offsets are 32 bits.
constexpr uint64_t kMaxClassicSize = 0xFFFFFFFFu;

uint64_t Even(uint64_t n) { return n + (n & 1); }

// The TIFF Compression value of a library compression code; 0 for a code
// pages cannot be written with.
uint16_t TiffCompressionOf(uint16_t code) {
    switch (code) {
        case VELMORA_COMPRESSION_NONE: return kTiffNone;
        case VELMORA_COMPRESSION_PACKBITS: return kTiffPackBits;
        case VELMORA_COMPRESSION_GROUP4: return kTiffGroup4;
        case VELMORA_COMPRESSION_GROUP3:
        case kWriteGroup3TwoD: return kTiffGroup3;
        case VELMORA_COMPRESSION_LZW: return kTiffLzw;
        case VELMORA_COMPRESSION_JPEG: return kTiffJpeg;
        case VELMORA_COMPRESSION_CCITT_RLE: return kTiffModifiedHuffman;
        case VELMORA_COMPRESSION_DEFLATE: return kTiffDeflate;
        default: return 0;
    }
}

bool IsFax(uint16_t tiffCompression) {
    return tiffCompression == kTiffModifiedHuffman || tiffCompression == kTiffGroup3 || tiffCompression == kTiffGroup4;
}

// ---- The append transaction ----------------------------------------------

// Where the page goes, and the way back: until Commit succeeds, the
// destructor truncates the stream to its size before the append.
class AppendTransaction {
public:
    AppendTransaction() = default;
    ~AppendTransaction() {
        if (begun_ && !committed_) {
            ErrorRecord ignored;
            StreamSetSize(tiff_->stream, static_cast<uint32_t>(tiff_->baseOffset + start_), &ignored);
        }
    }
    AppendTransaction(const AppendTransaction&) = delete;
    AppendTransaction& operator=(const AppendTransaction&) = delete;

    bool Begin(TiffFile* tiff, ErrorRecord* record) {
        if (record->failed()) return false;
        if (TiffIsBig(tiff)) {
            SetRecordError(record, kErrUnsupportedFileType, 0);
            return false;
        }
        // The whole chain, so that its last directory is known.
        CountPages(tiff, record);
        uint64_t size = TiffDataSize(tiff, record);
        if (record->failed()) return false;
        if (tiff->baseOffset + size > kMaxClassicSize - 16) {
            SetRecordError(record, kErrInvalidParameter, 0);
            return false;
        }
        tiff_ = tiff;
        start_ = size;
        directory_ = Even(size);
        begun_ = true;
        if (directory_ != size) {
            static const uint8_t kZero = 0;
            StreamSeek64(tiff->stream, tiff->baseOffset + size, record);
            StreamWrite(tiff->stream, &kZero, 1, record);
        }
        return record->ok();
    }

    uint64_t directory() const { return directory_; }

    // Writes the directory (its values in place), links it into the chain
    // and cuts the stream at `end`, the end of the page's data.
    bool Commit(const DirectoryBuilder& builder, uint64_t end, ErrorRecord* record) {
        if (record->failed()) return false;
        if (tiff_->baseOffset + end > kMaxClassicSize) {
            SetRecordError(record, kErrInvalidParameter, 0);
            return false;
        }
        const bool bigEndian = (tiff_->flags & kTiffBigEndian) != 0;
        if (!builder.Write(tiff_->stream, tiff_->baseOffset + directory_, static_cast<uint32_t>(directory_), bigEndian,
                           record)) {
            return false;
        }
        StreamSetSize(tiff_->stream, static_cast<uint32_t>(tiff_->baseOffset + end), record);
        // The link: the last directory's next-IFD field, or the header's
        // first-IFD field.
        uint64_t link = 4;
        if (tiff_->cacheCount != 0) {
            const TiffDirectoryRow& last = tiff_->cache[tiff_->cacheCount - 1];
            link = last.offset + 2 + 12 * last.count;
        }
        uint32_t value = static_cast<uint32_t>(directory_);
        if (bigEndian) value = __builtin_bswap32(value);
        StreamSeek64(tiff_->stream, tiff_->baseOffset + link, record);
        StreamWrite(tiff_->stream, &value, 4, record);
        if (record->failed()) return false;
        AppendDirectoryToCache(tiff_, directory_, builder.EntryCount(), 0, record);
        committed_ = record->ok();
        return committed_;
    }

private:
    TiffFile* tiff_ = nullptr;
    uint64_t start_ = 0;
    uint64_t directory_ = 0;
    bool begun_ = false;
    bool committed_ = false;
};

// ---- Entries taken over from a source page --------------------------------

// Tags a page copied unchanged keeps: everything describing its image data
// and the page. Offsets into the source file (strips, tiles, the JPEG
// interchange block) are rebuilt; sub-directories and tags the library does
// not know are left behind.
static const uint16_t kCopiedTags[] = {
    kTagNewSubfileType,
    kTagSubfileType,
    kTagImageWidth,
    kTagImageLength,
    kTagBitsPerSample,
    kTagCompression,
    kTagPhotometric,
    263 /* Threshholding */,
    kTagFillOrder,
    kTagDocumentName,
    kTagImageDescription,
    kTagMake,
    kTagModel,
    kTagOrientation,
    kTagSamplesPerPixel,
    kTagRowsPerStrip,
    280 /* MinSampleValue */,
    281 /* MaxSampleValue */,
    kTagXResolution,
    kTagYResolution,
    kTagPlanarConfiguration,
    kTagPageName,
    kTagXPosition,
    kTagYPosition,
    290 /* GrayResponseUnit */,
    291 /* GrayResponseCurve */,
    kTagT4Options,
    kTagT6Options,
    kTagResolutionUnit,
    kTagPageNumber,
    301 /* TransferFunction */,
    kTagSoftware,
    kTagDateTime,
    kTagArtist,
    kTagHostComputer,
    kTagPredictor,
    318 /* WhitePoint */,
    319 /* PrimaryChromaticities */,
    kTagColorMap,
    321 /* HalftoneHints */,
    kTagTileWidth,
    kTagTileLength,
    kTagInkSet,
    333 /* InkNames */,
    334 /* NumberOfInks */,
    kTagDotRange,
    kTagExtraSamples,
    kTagSampleFormat,
    340 /* SMinSampleValue */,
    341 /* SMaxSampleValue */,
    kTagJpegTables,
    kTagJpegProc,
    kTagJpegRestartInterval,
    kTagJpegLosslessPredictors,
    kTagJpegPointTransforms,
    kTagYCbCrCoefficients,
    kTagYCbCrSubSampling,
    kTagYCbCrPositioning,
    kTagReferenceBlackWhite,
    kTagAnnotations,
    kTagScaleUnit,
    kTagXScale,
    kTagYScale,
    kTagOcrText,
    kTagPageInformation,
    kTagIccProfile,
};

// Tags a page coded again keeps: those that describe the page, not its
// image data.
static const uint16_t kDescriptiveTags[] = {
    kTagNewSubfileType, kTagDocumentName,    kTagImageDescription, kTagMake,      kTagModel,
    kTagXResolution,    kTagYResolution,     kTagPageName,         kTagXPosition, kTagYPosition,
    kTagResolutionUnit, kTagPageNumber,      kTagSoftware,         kTagDateTime,  kTagArtist,
    kTagHostComputer,   kTagAnnotations,     kTagScaleUnit,        kTagXScale,    kTagYScale,
    kTagOcrText,        kTagPageInformation,
};

// Adds the source's entry as it is, 64-bit integers narrowed to LONG (a value
// that does not fit drops the entry).
bool CopyEntry(TiffFile* source, const TiffEntry& entry, DirectoryBuilder* builder, ErrorRecord* record) {
    if (entry.count > 0xFFFFFFFFu || TiffTypeSize(entry.type) == 0 || entry.type == kTypeIfd ||
        entry.type == kTypeIfd8 || entry.type == kTypeSLong8) {
        return true;
    }
    HGLOBAL values = GetValues(source, &entry, record);
    if (values == nullptr) return false;
    auto* bytes = static_cast<uint8_t*>(platform::MemLock(values));
    uint32_t count = static_cast<uint32_t>(entry.count);
    bool ok = true;
    if (entry.type == kTypeLong8) {
        auto* wide = reinterpret_cast<uint64_t*>(bytes);
        auto* narrow = reinterpret_cast<uint32_t*>(bytes);
        bool fits = true;
        for (uint32_t i = 0; i < count; ++i) {
            uint64_t v;
            std::memcpy(&v, wide + i, 8);
            fits = fits && v <= 0xFFFFFFFFu;
            narrow[i] = static_cast<uint32_t>(v);
        }
        if (fits) ok = builder->Add(entry.tag, kTypeLong, count, bytes, record);
    } else {
        ok = builder->Add(entry.tag, entry.type, count, bytes, record);
    }
    platform::MemUnlock(values);
    FreeHandle(&values);
    return ok;
}

// Adds the entries of page `page` of `source` whose tags are in the list.
template <size_t N>
bool CopyEntries(TiffFile* source, uint32_t page, const uint16_t (&list)[N], DirectoryBuilder* builder,
                 ErrorRecord* record) {
    if (!LocatePage(source, page, 0, record)) return false;
    // The entry the reader finds for each tag (the first, when a damaged
    // directory has two).
    for (uint16_t tag : list) {
        const TiffEntry* entry = FindEntry(source, tag);
        if (entry != nullptr && !CopyEntry(source, *entry, builder, record)) return false;
    }
    return record->ok();
}

// The host's texts, resolution, scale and blocks, over whatever the page had.
bool AddExtras(const PageExtras& extras, DirectoryBuilder* builder, ErrorRecord* record) {
    if (extras.hasSubfileType) builder->AddLong(kTagNewSubfileType, extras.newSubfileType, record);
    for (int i = 0; i < 8; ++i) {
        if (extras.texts[i] == nullptr) continue;
        size_t length = std::strlen(extras.texts[i]);
        if (length >= 0xFFFFFFFEu) {
            SetRecordError(record, kErrInvalidParameter, 0);
            return false;
        }
        builder->AddAscii(kExtraTextTags[i], extras.texts[i], static_cast<uint32_t>(length), record);
    }
    if (extras.hasResolution) {
        builder->AddRational(kTagXResolution, extras.resolution[0], extras.resolution[1], record);
        builder->AddRational(kTagYResolution, extras.resolution[2], extras.resolution[3], record);
        builder->AddShort(kTagResolutionUnit, extras.resolutionUnit, record);
    }
    if (extras.hasScale) {
        builder->AddShort(kTagScaleUnit, extras.scaleUnit, record);
        builder->AddRational(kTagXScale, extras.scale[0], extras.scale[1], record);
        builder->AddRational(kTagYScale, extras.scale[2], extras.scale[3], record);
    }
    if (extras.annotations != nullptr) {
        builder->Add(kTagAnnotations, kTypeUndefined, extras.annotationsSize, extras.annotations, record);
    }
    if (extras.ocrText != nullptr) {
        builder->Add(kTagOcrText, kTypeUndefined, extras.ocrTextSize, extras.ocrText, record);
    }
    if (extras.pageInformation != nullptr) {
        builder->Add(kTagPageInformation, kTypeUndefined, extras.pageInformationSize, extras.pageInformation, record);
    }
    return record->ok();
}

// Adds StripOffsets and StripByteCounts (or the tile pair) of `count` values
// to be filled in once the data is written.
bool AddDataArrays(uint16_t offsetsTag, uint16_t countsTag, uint32_t count, DirectoryBuilder* builder,
                   ErrorRecord* record) {
    ScratchBlock zeros;
    if (zeros.Allocate(size_t{count} * 4, true, record) == nullptr) return false;
    return builder->Add(offsetsTag, kTypeLong, count, zeros.data(), record) &&
           builder->Add(countsTag, kTypeLong, count, zeros.data(), record);
}

// ---- DIB pages ------------------------------------------------------------

// Colour masks of 16- and 32-bit rows.
struct Masks {
    uint32_t mask[3];  // red, green, blue
    uint8_t shift[3];
    uint32_t max[3];
};

bool MasksOf(const BITMAPINFOHEADER* header, Masks* masks) {
    uint32_t m[3];
    if (header->biCompression == BI_BITFIELDS) {
        std::memcpy(m, reinterpret_cast<const uint8_t*>(header) + header->biSize, sizeof m);
    } else if (header->biBitCount == 16) {
        m[0] = 0x7C00, m[1] = 0x03E0, m[2] = 0x001F;
    } else {
        m[0] = 0xFF0000, m[1] = 0xFF00, m[2] = 0xFF;
    }
    for (int c = 0; c < 3; ++c) {
        if (m[c] == 0) return false;
        uint8_t shift = static_cast<uint8_t>(__builtin_ctz(m[c]));
        uint32_t max = m[c] >> shift;
        if ((max & (max + 1)) != 0) return false;  // not one run of bits
        masks->mask[c] = m[c];
        masks->shift[c] = shift;
        masks->max[c] = max;
    }
    return true;
}

// How one DIB is written.
struct DibPlan {
    PageKind kind = PageKind::BiLevel;
    uint32_t width = 0, height = 0;
    uint16_t dibBits = 0;
    uint16_t bitsPerSample = 1, samples = 1, photometric = kWhiteIsZero;
    bool invert = false;      // bi-level rows with 0 = black, or a descending grey ramp coded as JPEG
    bool expandGrey = false;  // 4-bit grey coded as 8-bit JPEG
    Masks masks = {};
    uint32_t rowBytes = 0;  // of a coded row
    uint16_t tiffCompression = kTiffNone;
    uint32_t t4Options = 0;
    uint32_t rowsPerStrip = 0, strips = 0;
};

bool PlanDib(const BITMAPINFOHEADER* header, uint16_t choice, DibPlan* plan, ErrorRecord* record) {
    if (!DibPageKind(header, &plan->kind)) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    if (choice == kWriteDefault) choice = DefaultCompression(plan->kind);
    if (!CompressionWritable(choice, plan->kind)) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    plan->width = static_cast<uint32_t>(header->biWidth);
    plan->height = static_cast<uint32_t>(header->biHeight < 0 ? -int64_t{header->biHeight} : header->biHeight);
    plan->dibBits = header->biBitCount;
    plan->tiffCompression = TiffCompressionOf(choice);
    plan->t4Options = choice == kWriteGroup3TwoD ? 1 : 0;
    const bool jpeg = plan->tiffCompression == kTiffJpeg;
    const RGBQUAD* table = ColorTable(header);
    switch (plan->kind) {
        case PageKind::BiLevel: {
            auto level = [](const RGBQUAD& q) { return q.rgbRed + q.rgbGreen + q.rgbBlue; };
            // 1 must mean black: rows whose index 0 is the darker entry are inverted.
            plan->invert = ColorCount(header) >= 2 && level(table[0]) < level(table[1]);
            break;
        }
        case PageKind::Grey: {
            bool descending = ClassifyGrey(header) == GreyKind::Descending;
            plan->bitsPerSample = jpeg ? 8 : plan->dibBits;
            plan->photometric = descending && !jpeg ? kWhiteIsZero : kBlackIsZero;
            plan->invert = descending && jpeg;
            plan->expandGrey = jpeg && plan->dibBits == 4;
            break;
        }
        case PageKind::Palette:
            plan->bitsPerSample = plan->dibBits;
            plan->photometric = kPalette;
            break;
        case PageKind::Rgb:
            plan->bitsPerSample = 8;
            plan->samples = 3;
            plan->photometric = jpeg ? kYCbCr : kRgb;
            if (plan->dibBits != 24) MasksOf(header, &plan->masks);
            break;
    }
    plan->rowBytes = static_cast<uint32_t>((uint64_t{plan->width} * plan->bitsPerSample * plan->samples + 7) / 8);
    uint64_t target = IsFax(plan->tiffCompression) ? kFaxStripBytes : kStripBytes;
    uint64_t rows = target / plan->rowBytes;
    if (jpeg) rows = rows / kJpegRowGranule * kJpegRowGranule;
    if (rows == 0) rows = jpeg ? kJpegRowGranule : 1;
    if (rows > plan->height) rows = plan->height;
    plan->rowsPerStrip = static_cast<uint32_t>(rows);
    plan->strips = static_cast<uint32_t>((uint64_t{plan->height} + rows - 1) / rows);
    return true;
}

// Turns one DIB row (top row first) into a coded row.
void ConvertRow(const DibPlan& plan, const uint8_t* in, uint8_t* out) {
    switch (plan.kind) {
        case PageKind::BiLevel:
        case PageKind::Palette:
        case PageKind::Grey:
            if (plan.expandGrey) {
                for (uint32_t x = 0; x < plan.width; ++x) {
                    uint8_t v = static_cast<uint8_t>(((in[x / 2] >> (x & 1 ? 0 : 4)) & 15) * 17);
                    out[x] = plan.invert ? static_cast<uint8_t>(255 - v) : v;
                }
            } else if (plan.invert) {
                for (uint32_t i = 0; i < plan.rowBytes; ++i) out[i] = static_cast<uint8_t>(~in[i]);
            } else {
                std::memcpy(out, in, plan.rowBytes);
            }
            return;
        case PageKind::Rgb:
            if (plan.dibBits == 24) {
                for (uint32_t x = 0; x < plan.width; ++x, in += 3, out += 3) {
                    out[0] = in[2];
                    out[1] = in[1];
                    out[2] = in[0];
                }
                return;
            }
            for (uint32_t x = 0; x < plan.width; ++x, out += 3) {
                uint32_t pixel;
                if (plan.dibBits == 16) {
                    pixel = uint32_t{in[2 * x]} | uint32_t{in[2 * x + 1]} << 8;
                } else {
                    std::memcpy(&pixel, in + 4 * x, 4);
                }
                for (int c = 0; c < 3; ++c) {
                    uint32_t v = (pixel & plan.masks.mask[c]) >> plan.masks.shift[c];
                    out[c] = static_cast<uint8_t>(v * 255 / plan.masks.max[c]);
                }
            }
            return;
    }
}

// The rows of a DIB, top row first, from a packed block or any image kind.
class DibRowReader {
public:
    DibRowReader(HGLOBAL image, const BITMAPINFOHEADER* header, const uint8_t* bits)
        : image_(image), header_(header), bits_(bits), stride_(RowStride(header)) {}
    bool Prepare(ErrorRecord* record) {
        if (bits_ == nullptr && image_ != nullptr) {
            bits_ = ImageBits(image_, const_cast<BITMAPINFOHEADER*>(header_));
        }
        return bits_ != nullptr || row_.Allocate(static_cast<size_t>(stride_), false, record) != nullptr;
    }
    const uint8_t* Row(uint32_t top, ErrorRecord* record) {
        uint32_t height = static_cast<uint32_t>(header_->biHeight);
        uint32_t stored = height - 1 - top;
        if (bits_ != nullptr) return bits_ + stored * stride_;
        return ReadImageRow(image_, stored, row_.data(), record) ? row_.data() : nullptr;
    }

private:
    HGLOBAL image_;
    const BITMAPINFOHEADER* header_;
    const uint8_t* bits_;
    uint64_t stride_;
    ScratchBlock row_;
};

// The structural entries of a DIB page.
bool AddDibStructure(const BITMAPINFOHEADER* header, const DibPlan& plan, DirectoryBuilder* builder,
                     ErrorRecord* record) {
    builder->AddLong(kTagImageWidth, plan.width, record);
    builder->AddLong(kTagImageLength, plan.height, record);
    const uint16_t bits[3] = {plan.bitsPerSample, plan.bitsPerSample, plan.bitsPerSample};
    builder->Add(kTagBitsPerSample, kTypeShort, plan.samples, bits, record);
    builder->AddShort(kTagCompression, plan.tiffCompression, record);
    builder->AddShort(kTagPhotometric, plan.photometric, record);
    builder->AddShort(kTagSamplesPerPixel, plan.samples, record);
    builder->AddLong(kTagRowsPerStrip, plan.rowsPerStrip, record);
    if (plan.samples > 1) builder->AddShort(kTagPlanarConfiguration, 1, record);
    if (plan.tiffCompression == kTiffGroup3) builder->AddLong(kTagT4Options, plan.t4Options, record);
    if (plan.tiffCompression == kTiffGroup4) builder->AddLong(kTagT6Options, 0, record);
    uint32_t x = 0, y = 0;
    uint16_t xUnit = 0, yUnit = 0;
    DotsFromPelsPerMeter(header->biXPelsPerMeter, &x, &xUnit);
    DotsFromPelsPerMeter(header->biYPelsPerMeter, &y, &yUnit);
    if (x != 0 && y != 0 && xUnit == yUnit) {
        builder->AddRational(kTagXResolution, x, 1, record);
        builder->AddRational(kTagYResolution, y, 1, record);
        builder->AddShort(kTagResolutionUnit, xUnit, record);
    }
    if (plan.kind == PageKind::Palette) {
        const uint32_t entries = 1u << plan.bitsPerSample;
        uint16_t map[3 * 256] = {};
        const RGBQUAD* table = ColorTable(header);
        const uint32_t count = ColorCount(header) < entries ? ColorCount(header) : entries;
        for (uint32_t i = 0; i < count; ++i) {
            map[i] = static_cast<uint16_t>(table[i].rgbRed * 257);
            map[entries + i] = static_cast<uint16_t>(table[i].rgbGreen * 257);
            map[2 * entries + i] = static_cast<uint16_t>(table[i].rgbBlue * 257);
        }
        builder->Add(kTagColorMap, kTypeShort, 3 * entries, map, record);
    }
    if (plan.photometric == kYCbCr) {
        const uint16_t sampling[2] = {2, 2};
        builder->Add(kTagYCbCrSubSampling, kTypeShort, 2, sampling, record);
    }
    return AddDataArrays(kTagStripOffsets, kTagStripByteCounts, plan.strips, builder, record);
}

// The JPEGTables of a JPEG page: a tables-only stream.
bool AddJpegTables(const DibPlan& plan, const jpeg::JpegEncoderSettings& settings, DirectoryBuilder* builder,
                   ErrorRecord* record) {
    Stream* memory = OpenMemoryStream(false, record);
    if (memory == nullptr) return false;
    jpeg::WriteJpegTables(static_cast<uint8_t>(plan.samples), settings, memory, record);
    uint32_t size = StreamSize(memory, record);
    HGLOBAL data = CloseStream(memory, record);
    if (record->ok() && data != nullptr) {
        builder->Add(kTagJpegTables, kTypeUndefined, size, platform::MemLock(data), record);
        platform::MemUnlock(data);
    }
    FreeHandle(&data);
    return record->ok();
}

// Codes the DIB's strips at the end of the stream, from `start`; fills in
// the offsets and byte counts; *end receives where the data ends.
bool WriteDibStrips(TiffFile* tiff, DibRowReader* rows, const DibPlan& plan, const PageWriteOptions& options,
                    const jpeg::JpegEncoderSettings& jpegSettings, uint64_t start, DirectoryBuilder* builder,
                    uint64_t* end, ErrorRecord* record) {
    ScratchBlock strip;
    if (!rows->Prepare(record) ||
        strip.Allocate(static_cast<size_t>(uint64_t{plan.rowsPerStrip} * plan.rowBytes), false, record) == nullptr) {
        return false;
    }
    FaxEncoder fax;
    if (IsFax(plan.tiffCompression)) {
        FaxEncoderPage page;
        page.compression = plan.tiffCompression;
        page.width = plan.width;
        page.t4Options = plan.t4Options;
        if (!fax.Begin(page, record)) return false;
    }
    uint32_t* offsets = builder->MutableLongs(kTagStripOffsets);
    uint32_t* counts = builder->MutableLongs(kTagStripByteCounts);
    Stream* out = tiff->stream;
    uint64_t at = start;
    StreamSeek64(out, tiff->baseOffset + at, record);
    for (uint32_t s = 0; s < plan.strips && record->ok(); ++s) {
        uint32_t first = s * plan.rowsPerStrip;
        uint32_t count = plan.height - first < plan.rowsPerStrip ? plan.height - first : plan.rowsPerStrip;
        for (uint32_t r = 0; r < count; ++r) {
            const uint8_t* row = rows->Row(first + r, record);
            if (row == nullptr) return false;
            ConvertRow(plan, row, strip.data() + size_t{r} * plan.rowBytes);
        }
        EncoderStrip job;
        job.topRow = strip.data();
        job.stride = plan.rowBytes;
        job.rows = count;
        job.rowBytes = plan.rowBytes;
        job.index = s;
        job.stripCount = plan.strips;
        job.rowsPerStrip = plan.rowsPerStrip;
        job.out = out;
        job.progress = options.progress;
        switch (plan.tiffCompression) {
            case kTiffLzw: EncodeLzwStrip(job, record); break;
            case kTiffPackBits: EncodePackBitsStrip(job, record); break;
            case kTiffDeflate: EncodeDeflateStrip(job, record); break;
            case kTiffModifiedHuffman:
            case kTiffGroup3:
            case kTiffGroup4: fax.Encode(job, record); break;
            case kTiffJpeg: {
                jpeg::JpegRows jpegRows;
                jpegRows.top = strip.data();
                jpegRows.stride = plan.rowBytes;
                jpegRows.width = plan.width;
                jpegRows.height = count;
                jpegRows.bytesPerPixel = static_cast<uint8_t>(plan.samples);
                jpegRows.redFirst = true;
                jpeg::EncodeJpegRows(jpegRows, jpegSettings, out, nullptr, record);
                job.ReportRows(count, record);
                break;
            }
            default:
                StreamWrite(out, strip.data(), static_cast<uint32_t>(uint64_t{count} * plan.rowBytes), record);
                job.ReportRows(count, record);
                break;
        }
        uint64_t next = StreamTell(out) - tiff->baseOffset;
        if (record->failed()) return false;
        if (next > kMaxClassicSize) {
            SetRecordError(record, kErrInvalidParameter, 0);
            return false;
        }
        offsets[s] = static_cast<uint32_t>(at);
        counts[s] = static_cast<uint32_t>(next - at);
        if (next & 1) {
            static const uint8_t kZero = 0;
            StreamWrite(out, &kZero, 1, record);
            ++next;
        }
        at = next;
    }
    fax.End();
    *end = at;
    return record->ok();
}

bool WriteDib(TiffFile* tiff, HGLOBAL image, const BITMAPINFOHEADER* header, const uint8_t* bits,
              const PageWriteOptions& options, TiffFile* from, uint32_t fromPage, ErrorRecord* record) {
    DibPlan plan;
    if (!PlanDib(header, options.compression, &plan, record)) return false;
    jpeg::JpegEncoderSettings jpegSettings;
    jpegSettings.quality = options.jpegQuality;
    jpegSettings.sampling = jpeg::ChromaSampling::H2V2;
    jpegSettings.omitTables = true;
    jpegSettings.writeComment = false;
    DirectoryBuilder builder;
    if (!AddDibStructure(header, plan, &builder, record)) return false;
    if (plan.tiffCompression == kTiffJpeg && !AddJpegTables(plan, jpegSettings, &builder, record)) return false;
    if (from != nullptr && !CopyEntries(from, fromPage, kDescriptiveTags, &builder, record)) return false;
    if (!AddExtras(options.extras, &builder, record)) return false;
    AppendTransaction append;
    if (!append.Begin(tiff, record)) return false;
    DibRowReader rows(image, header, bits);
    uint64_t end = 0;
    uint64_t start = append.directory() + builder.Size();
    if (!WriteDibStrips(tiff, &rows, plan, options, jpegSettings, start, &builder, &end, record)) return false;
    return append.Commit(builder, end, record);
}

// ---- Pages copied unchanged -----------------------------------------------

// The compression code a page's own coding is chosen by; 0xFFFE for one
// that has none.
uint16_t WriteCodeOf(const TiffPageInfo& info) {
    if (info.compression == kTiffDeflate || info.compression == kTiffOldDeflate) return VELMORA_COMPRESSION_DEFLATE;
    const TiffCompression* coding = FindCompression(info.compression);
    if (coding == nullptr || coding->reported == VELMORA_COMPRESSION_OTHER) return 0xFFFE;
    if (info.compression == kTiffGroup3 && (info.t4Options & 1) != 0) return kWriteGroup3TwoD;
    return coding->reported;
}

// Whether page `info` of `source` can have its data copied as it is into
// `tiff`.
bool CanCopyData(const TiffFile* tiff, const TiffFile* source, const TiffPageInfo& info) {
    if (info.stripCount == 0 || !IsPresent(&info, kFieldDataByteCounts)) return false;
    // Old-style JPEG pages whose tables lie elsewhere in the file.
    if (info.compression == 6 && (info.jpegQTables.count != 0 || info.jpegDCTables.count != 0)) return false;
    // Samples of several bytes are stored in the file's byte order.
    const bool sameOrder = ((tiff->flags ^ source->flags) & kTiffBigEndian) == 0;
    return sameOrder || (info.bitsPerSample <= 8 && !info.bitsPerSampleDiffer);
}

// Copies `count` bytes at `from` of the source to `to` of the destination.
bool CopyBytes(TiffFile* tiff, TiffFile* source, uint64_t from, uint64_t to, uint64_t count, ScratchBlock* piece,
               ErrorRecord* record) {
    while (count != 0 && record->ok()) {
        uint32_t n = count < kCopyPiece ? static_cast<uint32_t>(count) : kCopyPiece;
        if (!ReadTiffData(source, from, piece->data(), n, record)) return false;
        StreamSeek64(tiff->stream, tiff->baseOffset + to, record);
        StreamWrite(tiff->stream, piece->data(), n, record);
        from += n;
        to += n;
        count -= n;
    }
    if (record->ok() && (to & 1)) {
        static const uint8_t kZero = 0;
        StreamWrite(tiff->stream, &kZero, 1, record);
    }
    return record->ok();
}

bool CopyPage(TiffFile* tiff, TiffFile* source, uint32_t page, const TiffPageInfo& info,
              const PageWriteOptions& options, ErrorRecord* record) {
    // The strips must lie inside the source before anything is written.
    for (uint32_t i = 0; i < info.stripCount; ++i) {
        ErrorRecord range;
        if (!CheckTiffRange(source, info.offsets.values[i], info.byteCounts.values[i], &range)) {
            SetRecordError(record, kErrBadImageData, 0);
            return false;
        }
    }
    uint64_t jpegStart = info.jpegInterchangeFormat, jpegLength = info.jpegInterchangeFormatLength;
    if (jpegStart != 0 && jpegLength != 0) {
        ErrorRecord range;
        if (!CheckTiffRange(source, jpegStart, jpegLength, &range)) {
            SetRecordError(record, kErrBadImageData, 0);
            return false;
        }
    } else {
        jpegStart = jpegLength = 0;
    }
    DirectoryBuilder builder;
    if (!CopyEntries(source, page, kCopiedTags, &builder, record)) return false;
    const uint16_t offsetsTag = info.tiled ? kTagTileOffsets : kTagStripOffsets;
    const uint16_t countsTag = info.tiled ? kTagTileByteCounts : kTagStripByteCounts;
    if (!AddDataArrays(offsetsTag, countsTag, info.stripCount, &builder, record)) return false;
    if (jpegLength != 0) {
        builder.AddLong(kTagJpegInterchangeFormat, 0, record);
        builder.AddLong(kTagJpegInterchangeFormatLength, static_cast<uint32_t>(jpegLength), record);
    }
    if (!AddExtras(options.extras, &builder, record)) return false;

    AppendTransaction append;
    if (!append.Begin(tiff, record)) return false;
    // Lay the data out: the JPEG interchange block, then every strip not
    // inside it.
    const uint64_t start = append.directory() + builder.Size();
    uint64_t end = start + Even(jpegLength);
    uint32_t* offsets = builder.MutableLongs(offsetsTag);
    uint32_t* counts = builder.MutableLongs(countsTag);
    for (uint32_t i = 0; i < info.stripCount; ++i) {
        uint64_t from = info.offsets.values[i], count = info.byteCounts.values[i];
        counts[i] = static_cast<uint32_t>(count);
        if (jpegLength != 0 && from >= jpegStart && from + count <= jpegStart + jpegLength) {
            offsets[i] = static_cast<uint32_t>(start + (from - jpegStart));
        } else {
            offsets[i] = static_cast<uint32_t>(end);
            end += Even(count);
        }
        if (end > kMaxClassicSize) {
            SetRecordError(record, kErrInvalidParameter, 0);
            return false;
        }
    }
    if (jpegLength != 0) *builder.MutableLongs(kTagJpegInterchangeFormat) = static_cast<uint32_t>(start);
    // The stream takes its final size in one step, then the data is copied.
    StreamSetSize(tiff->stream, static_cast<uint32_t>(tiff->baseOffset + end), record);
    ScratchBlock piece;
    if (piece.Allocate(kCopyPiece, false, record) == nullptr) return false;
    if (jpegLength != 0 && !CopyBytes(tiff, source, jpegStart, start, jpegLength, &piece, record)) return false;
    for (uint32_t i = 0; i < info.stripCount && record->ok(); ++i) {
        uint64_t from = info.offsets.values[i], count = info.byteCounts.values[i];
        if (jpegLength != 0 && from >= jpegStart && from + count <= jpegStart + jpegLength) continue;
        CopyBytes(tiff, source, from, offsets[i], count, &piece, record);
        if (options.progress != nullptr) options.progress->Row(i, info.stripCount, record);
    }
    return append.Commit(builder, end, record);
}

// The own annotation block a copied page gets when its source carries
// annotations in an outside format: those tags are never written, so their
// annotations are merged, converted, into the own block. A caller's own block
// wins. An outside block that cannot be read (it runs past the end of the
// source, say) does not stop the copy: the page keeps its own block as
// stored, as it would without the outside blocks; only a lack of memory fails.
class MergedAnnotations {
public:
    MergedAnnotations() = default;
    ~MergedAnnotations() {
        if (bytes_ != nullptr) platform::MemUnlock(handle_);
        FreeHandle(&handle_);
    }
    MergedAnnotations(const MergedAnnotations&) = delete;
    MergedAnnotations& operator=(const MergedAnnotations&) = delete;

    // Sets extras->annotations to the merged block when there is one.
    bool Merge(TiffFile* source, uint32_t page, PageExtras* extras, ErrorRecord* record) {
        if (extras->annotations != nullptr) return true;
        ErrorRecord merge;
        if (!MergeOutsideAnnotations(source, page, &handle_, &size_, &merge)) {
            if (merge.code != kErrNotEnoughMemory) return true;
            *record = merge;
            return false;
        }
        if (handle_ == nullptr) return true;
        bytes_ = static_cast<const uint8_t*>(platform::MemLock(handle_));
        extras->annotations = bytes_;
        extras->annotationsSize = size_;
        return true;
    }

private:
    HGLOBAL handle_ = nullptr;
    const uint8_t* bytes_ = nullptr;
    uint32_t size_ = 0;
};

}  // namespace

bool DibPageKind(const BITMAPINFOHEADER* header, PageKind* kind) {
    if (header->biPlanes != 1 || header->biWidth <= 0 || header->biHeight <= 0) return false;
    const uint16_t bits = header->biBitCount;
    const bool bitFields = header->biCompression == BI_BITFIELDS && (bits == 16 || bits == 32);
    if (header->biCompression != BI_RGB && !bitFields) return false;
    switch (bits) {
        case 1: *kind = ClassifyGrey(header) != GreyKind::NotGrey ? PageKind::BiLevel : PageKind::Palette; return true;
        case 4:
        case 8: {
            GreyKind grey = ClassifyGrey(header);
            *kind = grey == GreyKind::Ascending || grey == GreyKind::Descending ? PageKind::Grey : PageKind::Palette;
            return true;
        }
        case 16:
        case 32: {
            Masks masks;
            *kind = PageKind::Rgb;
            return MasksOf(header, &masks);
        }
        case 24: *kind = PageKind::Rgb; return true;
        default: return false;
    }
}

bool CompressionWritable(uint16_t compression, PageKind kind) {
    switch (TiffCompressionOf(compression)) {
        case kTiffNone:
        case kTiffPackBits:
        case kTiffDeflate:
        case kTiffLzw: return true;
        case kTiffModifiedHuffman:
        case kTiffGroup3:
        case kTiffGroup4: return kind == PageKind::BiLevel;
        case kTiffJpeg: return kind == PageKind::Grey || kind == PageKind::Rgb;
        default: return false;
    }
}

uint16_t DefaultCompression(PageKind kind) {
    return kind == PageKind::BiLevel ? VELMORA_COMPRESSION_GROUP4 : VELMORA_COMPRESSION_LZW;
}

bool AppendDibPage(TiffFile* tiff, HGLOBAL image, const BITMAPINFOHEADER* header, const uint8_t* bits,
                   const PageWriteOptions& options, ErrorRecord* record) {
    if (record->failed()) return false;
    return WriteDib(tiff, image, header, bits, options, nullptr, 0, record);
}

bool AppendTiffPage(TiffFile* tiff, TiffFile* source, uint32_t page, const PageWriteOptions& options,
                    ErrorRecord* record) {
    if (record->failed()) return false;
    if (TiffIsBig(tiff)) {
        SetRecordError(record, kErrUnsupportedFileType, 0);
        return false;
    }
    TiffPageInfo info;
    SetWanted(&info, kFieldImage);
    if (!ReadPageInfo(source, page, kReadStructure, &info, record)) return false;
    PageWriteOptions withAnnotations = options;
    MergedAnnotations merged;
    if (info.hasAnnotations && !merged.Merge(source, page, &withAnnotations.extras, record)) {
        FreePageInfo(&info);
        return false;
    }
    const bool keep = options.compression == kWriteDefault || options.compression == WriteCodeOf(info);
    bool done = false;
    ErrorRecord structure;
    if (keep && CheckImageStructure(source, &info, &structure) && CanCopyData(tiff, source, info)) {
        done = CopyPage(tiff, source, page, info, withAnnotations, record);
        FreePageInfo(&info);
        return done;
    }
    FreePageInfo(&info);
    HGLOBAL dib = ReadUprightPage(source, page, 0, nullptr, record);
    if (dib == nullptr) return false;
    {
        ImageLock lock(dib);
        done = WriteDib(tiff, dib, lock.header(), nullptr, withAnnotations, source, page, record);
    }
    FreeImage(&dib);
    return done;
}

}  // namespace velmora
