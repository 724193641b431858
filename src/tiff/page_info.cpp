#include "tiff/page_info.h"

#include <cstdarg>
#include <cstring>

#include "frame/memory_handle.h"
#include "platform/platform.h"
#include "tiff/tags.h"

namespace velmora {
namespace {

constexpr uint32_t kMaxScaleUnit = 17;

uint64_t Bit(uint32_t field) { return uint64_t{1} << field; }

void UnlockAndFree(HGLOBAL* handle) {
    if (*handle == nullptr) return;
    platform::MemUnlock(*handle);
    FreeHandle(handle);
}

void FreeArray(TiffArray* array) {
    UnlockAndFree(&array->handle);
    *array = TiffArray{};
}

// One pass over a directory's entries into a page info.
class Interpreter {
public:
    Interpreter(TiffFile* tiff, TiffPageInfo* info, uint64_t wanted, bool structure, ErrorRecord* record)
        : tiff_(tiff), info_(info), wanted_(wanted), structure_(structure), record_(record) {}

    bool Want(uint32_t field) const { return (wanted_ & (Bit(field) | Bit(kFieldAll))) != 0; }
    bool structure() const { return structure_; }

    void Present(uint32_t field) { info_->fields |= Bit(field); }

    void BadImage() { StreamFail(tiff_->stream, kErrBadImageData, record_); }

    // A count-1 integer; absent leaves `fallback`. True when the tag was present.
    bool Scalar(uint16_t tag, uint32_t fallback, uint32_t* value) {
        *value = fallback;
        if (record_->failed()) return false;
        const TiffEntry* entry = FindEntry(tiff_, tag);
        if (entry == nullptr) return false;
        if (!ScalarValue(tiff_, entry, value)) {
            *value = fallback;
            BadImage();
            return false;
        }
        return true;
    }

    template <typename T>
    bool Scalar16(uint16_t tag, T* value) {
        uint32_t v = 0;
        if (!Scalar(tag, *value, &v)) return false;
        *value = static_cast<T>(v);
        return true;
    }

    // Integer values widened to 64 bits.
    bool Array(const TiffEntry* entry, TiffArray* out, uint64_t maxCount) {
        if (record_->failed() || entry == nullptr) return false;
        switch (entry->type) {
            case kTypeByte:
            case kTypeShort:
            case kTypeLong:
            case kTypeIfd:
            case kTypeLong8:
            case kTypeIfd8: break;
            default: BadImage(); return false;
        }
        // Values outside the file are damage; more values than any image
        // needs are a lie about the image.
        if (entry->count > UINT64_MAX / 8) {
            SetRecordError(record_, kErrBadFileData, 0);
            return false;
        }
        if (entry->inlined == 0 &&
            !CheckTiffRange(tiff_, entry->offset, entry->count * TiffTypeSize(entry->type), record_))
            return false;
        if (entry->count > maxCount) {
            BadImage();
            return false;
        }
        HGLOBAL raw = GetValues(tiff_, entry, record_);
        if (raw == nullptr) return false;
        uint32_t count = static_cast<uint32_t>(entry->count);
        HGLOBAL wide = AllocHandle(size_t{count == 0 ? 1u : count} * sizeof(uint64_t), 0, record_);
        if (wide == nullptr) {
            FreeHandle(&raw);
            return false;
        }
        const auto* in = static_cast<const uint8_t*>(platform::MemLock(raw));
        auto* values = static_cast<uint64_t*>(platform::MemLock(wide));
        uint32_t size = TiffTypeSize(entry->type);
        for (uint32_t i = 0; i < count; ++i) {
            const uint8_t* p = in + size_t{i} * size;
            if (size == 1) {
                values[i] = p[0];
            } else if (size == 2) {
                uint16_t v;
                std::memcpy(&v, p, 2);
                values[i] = v;
            } else if (size == 4) {
                uint32_t v;
                std::memcpy(&v, p, 4);
                values[i] = v;
            } else {
                std::memcpy(&values[i], p, 8);
            }
        }
        platform::MemUnlock(raw);
        FreeHandle(&raw);
        FreeArray(out);
        out->handle = wide;
        out->values = values;
        out->count = count;
        return true;
    }

    bool Array(uint16_t tag, TiffArray* out, uint64_t maxCount) { return Array(FindEntry(tiff_, tag), out, maxCount); }

    // A tag's bytes as a block; texts get a terminating NUL beyond `size`.
    bool Block(const TiffEntry* entry, TiffBlock* out) {
        if (record_->failed() || entry == nullptr || TiffTypeSize(entry->type) == 0) return false;
        HGLOBAL raw = GetValues(tiff_, entry, record_);
        if (raw == nullptr) return false;
        size_t size = static_cast<size_t>(entry->count * TiffTypeSize(entry->type));
        HGLOBAL block = platform::MemReAlloc(raw, size + 1, GMEM_MOVEABLE);
        if (block == nullptr) {
            FreeHandle(&raw);
            SetRecordError(record_, kErrNotEnoughMemory, 0);
            return false;
        }
        static_cast<uint8_t*>(platform::MemLock(block))[size] = 0;
        platform::MemUnlock(block);
        FreeHandle(&out->handle);
        out->handle = block;
        out->size = static_cast<uint32_t>(size);
        return true;
    }

    bool Text(uint16_t tag, uint32_t field, TiffBlock* out) {
        if (!Want(field)) return false;
        const TiffEntry* entry = FindEntry(tiff_, tag);
        if (entry == nullptr || TiffTypeSize(entry->type) != 1) return false;
        if (!Block(entry, out)) return false;
        Present(field);
        return true;
    }

    // A private block: its bytes when asked for, else only its value field.
    bool PrivateBlock(uint16_t tag, uint32_t field, TiffBlock* out) {
        const TiffEntry* entry = FindEntry(tiff_, tag);
        if (entry == nullptr) return false;
        uint32_t inlineValue = 0;
        if (entry->inlined != 0) {
            std::memcpy(&inlineValue, entry->value, 4);
        } else {
            inlineValue = static_cast<uint32_t>(entry->offset);
        }
        out->inlineValue = inlineValue;
        if (Want(field)) {
            if (!Block(entry, out)) return false;
            Present(field);
        }
        return true;
    }

    // The first `n` rationals of a RATIONAL tag.
    bool Rationals(uint16_t tag, TiffRational* out, uint32_t n) {
        if (record_->failed()) return false;
        const TiffEntry* entry = FindEntry(tiff_, tag);
        if (entry == nullptr) return false;
        if ((entry->type != kTypeRational && entry->type != kTypeSRational) || entry->count < n) {
            BadImage();
            return false;
        }
        TiffEntry first = *entry;
        first.count = n;  // only what is needed is read
        HGLOBAL raw = GetValues(tiff_, &first, record_);
        if (raw == nullptr) return false;
        const auto* words = static_cast<const uint32_t*>(platform::MemLock(raw));
        for (uint32_t i = 0; i < n; ++i) out[i] = TiffRational{words[2 * i], words[2 * i + 1]};
        platform::MemUnlock(raw);
        FreeHandle(&raw);
        return true;
    }

    // The private scale tags are read leniently: a value of another form is
    // ignored, never an error. The unit is one BYTE, SHORT or LONG; a scale
    // is one RATIONAL, or one BYTE, SHORT or LONG read as value/1.
    bool PrivateUnit(uint16_t tag, uint32_t* value) {
        const TiffEntry* entry = record_->ok() ? FindEntry(tiff_, tag) : nullptr;
        return entry != nullptr && ScalarValue(tiff_, entry, value);
    }
    bool PrivateScale(uint16_t tag, TiffRational* out) {
        const TiffEntry* entry = record_->ok() ? FindEntry(tiff_, tag) : nullptr;
        if (entry == nullptr || entry->count != 1) return false;
        uint32_t whole = 0;
        if (entry->type == kTypeRational) return Rationals(tag, out, 1);
        if (!ScalarValue(tiff_, entry, &whole)) return false;
        *out = TiffRational{whole, 1};
        return true;
    }

private:
    TiffFile* tiff_;
    TiffPageInfo* info_;
    uint64_t wanted_;
    bool structure_;
    ErrorRecord* record_;
};

uint32_t CeilDiv(uint32_t a, uint32_t b) { return static_cast<uint32_t>((uint64_t{a} + b - 1) / b); }

void InterpretDirectory(TiffFile* tiff, TiffPageInfo* info, uint64_t wanted, bool structure, ErrorRecord* record) {
    Interpreter in(tiff, info, wanted, structure, record);
    tiff->cursor = 0;
    bool resolution = structure || in.Want(kFieldXResolution) || in.Want(kFieldYResolution) || in.Want(kFieldXScale) ||
                      in.Want(kFieldYScale);

    if (in.Want(kFieldSubfileType)) {
        bool a = in.Scalar(kTagNewSubfileType, 0, &info->newSubfileType);
        bool b = in.Scalar(kTagSubfileType, 0, &info->subfileType);
        if (a || b) in.Present(kFieldSubfileType);
    }
    if (structure || in.Want(kFieldImageWidth)) {
        if (in.Scalar(kTagImageWidth, 0, &info->width)) in.Present(kFieldImageWidth);
    }
    if (structure || in.Want(kFieldImageLength)) {
        if (in.Scalar(kTagImageLength, 0, &info->length)) in.Present(kFieldImageLength);
    }
    TiffArray bits = {};
    if (structure) {
        // One value per sample; the pipeline works with the first and learns
        // whether the others differ once the sample count is known.
        in.Array(kTagBitsPerSample, &bits, kMaxSamplesPerPixel);
        if (bits.count > 0)
            info->bitsPerSample = static_cast<uint16_t>(bits.values[0] > 0xFFFF ? 0xFFFF : bits.values[0]);
        in.Scalar16(kTagCompression, &info->compression);
    }
    if (structure || in.Want(kFieldPhotometric)) {
        if (in.Scalar16(kTagPhotometric, &info->photometric)) in.Present(kFieldPhotometric);
    }
    if (structure) in.Scalar16(kTagFillOrder, &info->fillOrder);
    in.Text(kTagDocumentName, kFieldDocumentName, &info->documentName);
    in.Text(kTagImageDescription, kFieldImageDescription, &info->imageDescription);
    in.Text(kTagMake, kFieldMake, &info->make);
    in.Text(kTagModel, kFieldModel, &info->model);
    bool strips = structure || in.Want(kFieldDataOffsets) || in.Want(kFieldDataByteCounts);
    const TiffEntry* stripOffsets = strips ? FindEntry(tiff, kTagStripOffsets) : nullptr;
    uint32_t samples = 1, rowsPerStrip = 0xFFFFFFFFu;
    if (structure) {
        in.Scalar16(kTagOrientation, &info->orientation);
        in.Scalar(kTagSamplesPerPixel, 1, &samples);
        in.Scalar(kTagRowsPerStrip, 0xFFFFFFFFu, &rowsPerStrip);
    }
    const TiffEntry* stripByteCounts = strips ? FindEntry(tiff, kTagStripByteCounts) : nullptr;
    if (resolution) {
        if (in.Rationals(kTagXResolution, &info->xResolution, 1)) {
            info->xScale = info->xResolution;
            in.Present(kFieldXResolution);
            in.Present(kFieldXScale);
        }
        if (in.Rationals(kTagYResolution, &info->yResolution, 1)) {
            info->yScale = info->yResolution;
            in.Present(kFieldYResolution);
            in.Present(kFieldYScale);
        }
    }
    if (structure) in.Scalar16(kTagPlanarConfiguration, &info->planarConfiguration);
    in.Text(kTagPageName, kFieldPageName, &info->pageName);
    if (in.Want(kFieldXPosition) && in.Rationals(kTagXPosition, &info->xPosition, 1)) in.Present(kFieldXPosition);
    if (in.Want(kFieldYPosition) && in.Rationals(kTagYPosition, &info->yPosition, 1)) in.Present(kFieldYPosition);
    if (in.Want(kFieldFreeSpace)) {
        bool a = in.Array(kTagFreeOffsets, &info->freeOffsets, kMaxStrips);
        bool b = in.Array(kTagFreeByteCounts, &info->freeByteCounts, kMaxStrips);
        if (a || b) in.Present(kFieldFreeSpace);
    }
    if (structure || in.Want(kFieldFaxOptions)) {
        bool a = in.Scalar(kTagT4Options, 0, &info->t4Options);
        bool b = in.Scalar(kTagT6Options, 0, &info->t6Options);
        if (a || b) in.Present(kFieldFaxOptions);
    }
    if (resolution) {
        in.Scalar16(kTagResolutionUnit, &info->resolutionUnit);
        // Tolerant: an unknown unit means no absolute unit.
        if (info->resolutionUnit == 0 || info->resolutionUnit > 3) info->resolutionUnit = 1;
    }
    if (in.Want(kFieldPageNumber)) {
        TiffArray pair = {};
        if (in.Array(kTagPageNumber, &pair, 0xFFFF) && pair.count >= 2) {
            info->pageNumber[0] = static_cast<uint16_t>(pair.values[0]);
            info->pageNumber[1] = static_cast<uint16_t>(pair.values[1]);
            in.Present(kFieldPageNumber);
        }
        FreeArray(&pair);
    }
    in.Text(kTagSoftware, kFieldSoftware, &info->software);
    in.Text(kTagDateTime, kFieldDateTime, &info->dateTime);
    in.Text(kTagArtist, kFieldArtist, &info->artist);
    in.Text(kTagHostComputer, kFieldHostComputer, &info->hostComputer);
    if (structure) {
        in.Scalar16(kTagPredictor, &info->predictor);
        in.Array(kTagColorMap, &info->colorMap, 3u << 16);
    }
    const TiffEntry* tileOffsets = nullptr;
    const TiffEntry* tileByteCounts = nullptr;
    if (structure || in.Want(kFieldTileWidth) || in.Want(kFieldTileLength) || strips) {
        if (in.Scalar(kTagTileWidth, 0, &info->tileWidth)) in.Present(kFieldTileWidth);
        if (in.Scalar(kTagTileLength, 0, &info->tileLength)) in.Present(kFieldTileLength);
        tileOffsets = FindEntry(tiff, kTagTileOffsets);
        tileByteCounts = FindEntry(tiff, kTagTileByteCounts);
    }
    if (strips) {
        info->tiled = (info->fields & Bit(kFieldTileWidth)) != 0 || tileOffsets != nullptr;
        const TiffEntry* offsets = info->tiled ? tileOffsets : stripOffsets;
        const TiffEntry* counts = info->tiled ? tileByteCounts : stripByteCounts;
        if (in.Array(offsets, &info->offsets, kMaxStrips)) in.Present(kFieldDataOffsets);
        if (in.Array(counts, &info->byteCounts, kMaxStrips)) {
            in.Present(kFieldDataByteCounts);
            if (info->tiled) in.Present(kFieldTileByteCountsDone);
        }
    }
    if (structure) {
        in.Scalar16(kTagInkSet, &info->inkSet);
        in.Array(kTagDotRange, &info->dotRange, 2 * kMaxSamplesPerPixel);
    }
    if (structure || in.Want(kFieldExtraSamples)) {
        bool a = in.Array(kTagExtraSamples, &info->extraSamples, kMaxSamplesPerPixel);
        bool b = in.Array(kTagSampleFormat, &info->sampleFormats, kMaxSamplesPerPixel);
        if (info->sampleFormats.count > 0) info->sampleFormat = static_cast<uint16_t>(info->sampleFormats.values[0]);
        if (a || b) in.Present(kFieldExtraSamples);
    }
    if (structure) in.Block(FindEntry(tiff, kTagJpegTables), &info->jpegTables);
    if (structure || in.Want(kFieldJpegProc)) {
        if (in.Scalar16(kTagJpegProc, &info->jpegProc)) in.Present(kFieldJpegProc);
    }
    if (structure) {
        uint32_t value = 0;
        in.Scalar(kTagJpegInterchangeFormat, 0, &value);
        info->jpegInterchangeFormat = value;
        in.Scalar(kTagJpegInterchangeFormatLength, 0, &value);
        info->jpegInterchangeFormatLength = value;
        in.Scalar(kTagJpegRestartInterval, 0, &info->jpegRestartInterval);
        in.Array(kTagJpegLosslessPredictors, &info->jpegLosslessPredictors, kMaxSamplesPerPixel);
        in.Array(kTagJpegPointTransforms, &info->jpegPointTransforms, kMaxSamplesPerPixel);
        in.Array(kTagJpegQTables, &info->jpegQTables, kMaxSamplesPerPixel);
        in.Array(kTagJpegDCTables, &info->jpegDCTables, kMaxSamplesPerPixel);
        in.Array(kTagJpegACTables, &info->jpegACTables, kMaxSamplesPerPixel);
    }
    if (structure || in.Want(kFieldYCbCrCoefficients)) {
        if (in.Rationals(kTagYCbCrCoefficients, info->ycbcrCoefficients, 3)) in.Present(kFieldYCbCrCoefficients);
    }
    if (structure) {
        TiffArray pair = {};
        if (in.Array(kTagYCbCrSubSampling, &pair, 0xFFFF) && pair.count >= 2) {
            info->ycbcrSubsampling[0] = static_cast<uint16_t>(pair.values[0]);
            info->ycbcrSubsampling[1] = static_cast<uint16_t>(pair.values[1]);
        }
        FreeArray(&pair);
        in.Scalar16(kTagYCbCrPositioning, &info->ycbcrPositioning);
        info->hasReferenceBlackWhite = in.Rationals(kTagReferenceBlackWhite, info->referenceBlackWhite, 6);
    }
    bool blocks =
        structure || (wanted & (Bit(kFieldWangAnnotations) | Bit(kFieldSecondAnnotations) | Bit(kFieldAnnotations) |
                                Bit(kFieldOcrText) | Bit(kFieldPageInformation) | Bit(kFieldAll))) != 0;
    if (blocks) {
        bool wang = in.PrivateBlock(kTagWangAnnotations, kFieldWangAnnotations, &info->wangAnnotations);
        in.Text(kTagCopyright, kFieldCopyright, &info->copyright);
        bool second = in.PrivateBlock(kTagSecondAnnotations, kFieldSecondAnnotations, &info->secondAnnotations);
        bool own = in.PrivateBlock(kTagAnnotations, kFieldAnnotations, &info->annotations);
        info->hasAnnotations = wang || second || own;
    } else {
        in.Text(kTagCopyright, kFieldCopyright, &info->copyright);
    }
    if (resolution) {
        // The library's own scale replaces the resolution as scale.
        uint32_t unit = info->resolutionUnit;
        if (!in.PrivateUnit(kTagScaleUnit, &unit)) unit = info->resolutionUnit;
        info->scaleUnit = static_cast<uint16_t>(unit == 0 || unit > kMaxScaleUnit ? 1 : unit);
        if (in.PrivateScale(kTagXScale, &info->xScale)) {
            info->hasPrivateScale = true;
            in.Present(kFieldXScale);
        }
        if (in.PrivateScale(kTagYScale, &info->yScale)) {
            info->hasPrivateScale = true;
            in.Present(kFieldYScale);
        }
    }
    if (blocks) {
        info->hasOcrText = in.PrivateBlock(kTagOcrText, kFieldOcrText, &info->ocrText);
        in.PrivateBlock(kTagPageInformation, kFieldPageInformation, &info->pageInformation);
    }
    if (structure && record->ok()) {
        info->samplesPerPixel = static_cast<uint16_t>(samples > 0xFFFF ? 0xFFFF : samples);
        for (uint32_t i = 1; i < bits.count && i < samples; ++i) {
            if (bits.values[i] != bits.values[0]) info->bitsPerSampleDiffer = true;
        }
        info->rowsPerStrip = rowsPerStrip == 0 || rowsPerStrip > info->length ? info->length : rowsPerStrip;
        in.Present(kFieldStructureDone);
    }
    FreeArray(&bits);
}

// Resolutions with a zero part are absent; one present direction stands for
// both.
void NormaliseResolution(TiffPageInfo* info) {
    auto valid = [](const TiffRational& r) { return r.numerator != 0 && r.denominator != 0; };
    if (!valid(info->xResolution)) {
        info->xResolution = {};
        info->fields &= ~Bit(kFieldXResolution);
    }
    if (!valid(info->yResolution)) {
        info->yResolution = {};
        info->fields &= ~Bit(kFieldYResolution);
    }
    if (IsPresent(info, kFieldXResolution) && !IsPresent(info, kFieldYResolution)) {
        info->yResolution = info->xResolution;
        info->fields |= Bit(kFieldYResolution);
    } else if (IsPresent(info, kFieldYResolution) && !IsPresent(info, kFieldXResolution)) {
        info->xResolution = info->yResolution;
        info->fields |= Bit(kFieldXResolution);
    }
}

}  // namespace

void SetWanted(TiffPageInfo* info, uint32_t field) {
    if (field == kFieldEverything) {
        info->fields = ~uint64_t{0};
    } else if (field < 64) {
        info->fields |= Bit(field);
    }
}

void SetWantedList(TiffPageInfo* info, uint32_t field, ...) {
    va_list args;
    va_start(args, field);
    for (uint32_t f = field; f != kFieldListEnd; f = va_arg(args, uint32_t)) SetWanted(info, f);
    va_end(args);
}

bool IsPresent(const TiffPageInfo* info, uint32_t field) {
    if (field == kFieldAnyPresent) return info->fields != 0;
    return field < 64 && (info->fields & Bit(field)) != 0;
}

bool CheckImageStructure(TiffFile* tiff, TiffPageInfo* info, ErrorRecord* record) {
    if (record->failed()) return false;
    auto bad = [&]() {
        StreamFail(tiff->stream, kErrBadImageData, record);
        return false;
    };
    if (info->width == 0 || info->length == 0 || info->width > kMaxPageDimension || info->length > kMaxPageDimension)
        return bad();
    if (info->samplesPerPixel == 0 || info->samplesPerPixel > kMaxSamplesPerPixel) return bad();
    uint64_t planes = info->planarConfiguration == 2 ? info->samplesPerPixel : 1;
    uint64_t perPlane;
    if (info->tiled) {
        if (info->tileWidth == 0 || info->tileLength == 0 || info->tileWidth > kMaxPageDimension ||
            info->tileLength > kMaxPageDimension)
            return bad();
        perPlane = uint64_t{CeilDiv(info->width, info->tileWidth)} * CeilDiv(info->length, info->tileLength);
    } else {
        perPlane = CeilDiv(info->length, info->rowsPerStrip);
    }
    uint64_t expected = perPlane * planes;
    if (expected > kMaxStrips || info->offsets.count < expected) return bad();
    if (info->byteCounts.handle != nullptr && info->byteCounts.count < expected) return bad();
    if (info->byteCounts.handle == nullptr) {
        // No byte counts in the file: zeros, which the pipeline derives or refuses.
        HGLOBAL zeros = AllocHandle(static_cast<size_t>(expected) * sizeof(uint64_t), GMEM_ZEROINIT, record);
        if (zeros == nullptr) return false;
        info->byteCounts.handle = zeros;
        info->byteCounts.values = static_cast<const uint64_t*>(platform::MemLock(zeros));
    }
    info->offsets.count = static_cast<uint32_t>(expected);
    info->byteCounts.count = static_cast<uint32_t>(expected);
    info->stripCount = static_cast<uint32_t>(expected);
    info->stripsPerPlane = static_cast<uint32_t>(perPlane);
    if (info->photometric == 3 && info->bitsPerSample <= 16 && info->colorMap.count < (3u << info->bitsPerSample))
        return bad();
    info->fields |= Bit(kFieldStripsDone);
    return true;
}

bool ReadPageInfo(TiffFile* tiff, uint32_t page, uint32_t readFlags, TiffPageInfo* info, ErrorRecord* record) {
    if (record->failed()) return false;
    uint64_t wanted = info->fields;
    uint64_t start = info->startDirectory;
    FreePageInfo(info);
    info->startDirectory = start;

    bool conformant = (readFlags & kReadFromOffset) != 0 ? LocateDirectoryAt(tiff, start, page, readFlags, record)
                                                         : LocatePage(tiff, page, readFlags, record);
    if (record->failed()) return false;
    info->conformant = conformant;

    bool image = (wanted & (Bit(kFieldImage) | Bit(kFieldAll))) != 0;
    bool structure = image || (readFlags & kReadStructure) != 0;
    InterpretDirectory(tiff, info, wanted, structure, record);
    if ((wanted & Bit(kFieldImage)) != 0 && (readFlags & kReadCheckImage) != 0 && record->ok()) {
        if (CheckImageStructure(tiff, info, record)) {
            NormaliseResolution(info);
            info->fields |= Bit(kFieldDecodeDone);
        }
    }
    if (image && record->ok()) info->fields |= Bit(kFieldImage);
    if (record->failed()) {
        FreePageInfo(info);
        return false;
    }
    return true;
}

void FreePageInfo(TiffPageInfo* info) {
    TiffArray* arrays[] = {&info->offsets,
                           &info->byteCounts,
                           &info->colorMap,
                           &info->dotRange,
                           &info->extraSamples,
                           &info->sampleFormats,
                           &info->jpegLosslessPredictors,
                           &info->jpegPointTransforms,
                           &info->jpegQTables,
                           &info->jpegDCTables,
                           &info->jpegACTables,
                           &info->freeOffsets,
                           &info->freeByteCounts};
    for (TiffArray* array : arrays) FreeArray(array);
    TiffBlock* blocks[] = {&info->jpegTables,
                           &info->artist,
                           &info->copyright,
                           &info->dateTime,
                           &info->documentName,
                           &info->hostComputer,
                           &info->imageDescription,
                           &info->make,
                           &info->model,
                           &info->pageName,
                           &info->software,
                           &info->annotations,
                           &info->wangAnnotations,
                           &info->secondAnnotations,
                           &info->ocrText,
                           &info->pageInformation};
    for (TiffBlock* block : blocks) FreeHandle(&block->handle);
    *info = TiffPageInfo{};
}

TiffStripBuffer::~TiffStripBuffer() { UnlockAndFree(&handle_); }

const uint8_t* TiffStripBuffer::ReadRange(TiffFile* tiff, uint64_t offset, uint64_t count, ErrorRecord* record) {
    if (!CheckTiffRange(tiff, offset, count, record)) return nullptr;
    if (count > 0xFFFFFFFFu) {
        SetRecordError(record, kErrBadFileData, 0);
        return nullptr;
    }
    size_t need = count == 0 ? 1 : static_cast<size_t>(count);
    if (need > capacity_) {
        UnlockAndFree(&handle_);
        data_ = nullptr;
        capacity_ = 0;
        handle_ = AllocHandle(need, 0, record);
        if (handle_ == nullptr) return nullptr;
        data_ = static_cast<uint8_t*>(platform::MemLock(handle_));
        capacity_ = need;
    }
    if (count != 0 && !ReadTiffData(tiff, offset, data_, static_cast<uint32_t>(count), record)) return nullptr;
    return data_;
}

const uint8_t* TiffStripBuffer::Read(TiffFile* tiff, const TiffPageInfo* info, uint32_t index, uint32_t* size,
                                     ErrorRecord* record) {
    *size = 0;
    if (record->failed()) return nullptr;
    if (index >= info->offsets.count || index >= info->byteCounts.count) {
        SetRecordError(record, kErrBadImageData, 0);
        return nullptr;
    }
    uint64_t count = info->byteCounts.values[index];
    const uint8_t* data = ReadRange(tiff, info->offsets.values[index], count, record);
    if (data != nullptr) *size = static_cast<uint32_t>(count);
    return data;
}

}  // namespace velmora
