#include "tiff/image_file_reader.h"

#include "dib/bmp_reader.h"
#include "dib/bmp_writer.h"
#include "dib/gif_reader.h"
#include "dib/image.h"
#include "dib/pcx_reader.h"
#include "dib/png_reader.h"
#include "io/file_names.h"
#include "io/stream.h"
#include "jpeg/jpeg_decoder.h"
#include "jpeg/jpeg_encoder.h"
#include "tiff/document_type.h"
#include "tiff/page_decoder.h"
#include "tiff/page_info.h"
#include "tiff/page_writer.h"
#include "tiff/tiff_file.h"

namespace velmora {
namespace {

constexpr uint32_t kErrUnsupportedType = 0x0200001B;

bool Fail(ErrorRecord* record, uint32_t code) {
    SetRecordError(record, code, 0);
    return false;
}

// The document type of the bytes at `offset` of the open file.
int32_t ProbeType(Stream* stream, uint64_t offset, ErrorRecord* record) {
    uint8_t bytes[kDocumentProbeBytes];
    StreamSeek64(stream, offset, record);
    const uint32_t got = StreamRead(stream, bytes, sizeof bytes, 0, record);
    if (record->failed()) return kDocumentUnknown;
    return DocumentTypeOfBytes(bytes, got);
}

HGLOBAL ReadTiffPage(const std::u16string& path, uint32_t page, uint32_t readFlags, ProgressReporter* progress,
                     ErrorRecord* record) {
    TiffFile* tiff = OpenTiffFile(path.c_str(), kStreamRead, false, record);
    if (tiff == nullptr) return nullptr;
    HGLOBAL dib = nullptr;
    const uint32_t pages = CountPages(tiff, record);
    if (record->ok() && page > pages) {
        Fail(record, kErrInvalidParameter);
    } else if (record->ok()) {
        dib = ReadUprightPage(tiff, page, readFlags, progress, record);
    }
    CloseTiff(tiff, nullptr);
    if (record->failed()) FreeImage(&dib);
    return dib;
}

// The DIB's resolution in dots per inch (rounded), 0 when it has none.
uint16_t DotsPerInch(int32_t pelsPerMeter) {
    if (pelsPerMeter <= 0) return 0;
    const uint64_t dots = (uint64_t{static_cast<uint32_t>(pelsPerMeter)} * 254 + 5000) / 10000;
    return dots > 0xFFFF ? 0xFFFF : static_cast<uint16_t>(dots);
}

bool WriteJpegFile(const std::u16string& path, const BITMAPINFOHEADER* header, const void* bits,
                   const SaveFileOptions& options, ErrorRecord* record) {
    jpeg::JpegEncoderSettings settings;
    settings.quality = options.jpegQuality;
    settings.writeJfif = options.jpegJfif;
    const uint16_t x = DotsPerInch(header->biXPelsPerMeter), y = DotsPerInch(header->biYPelsPerMeter);
    if (x != 0 && y != 0) {
        settings.densityUnit = 1;
        settings.xDensity = x;
        settings.yDensity = y;
    }
    if (options.jpegResolution && header->biXPelsPerMeter > 0 && header->biYPelsPerMeter > 0) {
        // Pixels per metre are exactly a hundredth as many per centimetre.
        settings.writeResolution = true;
        settings.resolution = jpeg::PrivateSegment{jpeg::PrivateSegmentKind::Resolution,           3,
                                                   static_cast<uint32_t>(header->biXPelsPerMeter), 100,
                                                   static_cast<uint32_t>(header->biYPelsPerMeter), 100};
    }
    if (options.jpegScale) {
        settings.writeScale = true;
        settings.scale = jpeg::PrivateSegment{jpeg::PrivateSegmentKind::Scale, 1, 1, 1, 1, 1};
    }
    Stream* stream = OpenFileStream(path.c_str(), kStreamWrite, false, true, record);
    if (stream == nullptr) return false;
    jpeg::EncodeJpegDib(header, bits, settings, stream, nullptr, record);
    CloseStream(stream, record);
    return record->ok();
}

bool WriteTiffFile(const std::u16string& path, const BITMAPINFOHEADER* header, const void* bits, ErrorRecord* record) {
    TiffFile* tiff = OpenTiffFile(path.c_str(), kStreamRead | kStreamWrite, true, record);
    if (tiff == nullptr) return false;
    AppendDibPage(tiff, nullptr, header, static_cast<const uint8_t*>(bits), PageWriteOptions{}, record);
    CloseTiff(tiff, record);
    return record->ok();
}

}  // namespace

HGLOBAL ReadImageFileDib(const std::u16string& path, uint32_t page, uint64_t offset, uint32_t options,
                         ProgressReporter* progress, bool* damaged, ErrorRecord* record) {
    bool repaired = false;
    if (damaged == nullptr) damaged = &repaired;
    *damaged = false;
    if (record->failed()) return nullptr;
    Stream* stream = OpenFileStream(path.c_str(), kStreamRead, true, false, record);
    if (stream == nullptr) return nullptr;
    const int32_t type = ProbeType(stream, offset, record);
    HGLOBAL dib = nullptr;
    if (record->failed()) {
        // the probe's own error stands
    } else if ((type == kDocumentPcx || type == kDocumentPng || type == kDocumentTiff) && offset != 0) {
        Fail(record, kErrInvalidParameter);
    } else if (type == kDocumentUnknown) {
        Fail(record, kErrUnrecognizedFormat);
    } else if (type != kDocumentBmp && type != kDocumentGif && type != kDocumentJpeg && type != kDocumentPcx &&
               type != kDocumentPng && type != kDocumentTiff) {
        Fail(record, kErrUnsupportedType);
    } else if (type != kDocumentGif && type != kDocumentTiff && page != 1) {
        Fail(record, kErrInvalidParameter);
    } else {
        StreamSeek64(stream, offset, record);
        switch (type) {
            case kDocumentBmp: dib = ReadBmpDib(stream, progress, damaged, record); break;
            case kDocumentJpeg:
                dib = jpeg::DecodeJpegToDib(jpeg::JpegSource::FromStream(stream), progress, record);
                break;
            case kDocumentTiff: break;  // read below, through its own file
            case kDocumentGif: dib = ReadGifDib(stream, page, progress, damaged, record); break;
            case kDocumentPcx: dib = ReadPcxImage(stream, progress, damaged, record); break;
            case kDocumentPng: dib = ReadPngDib(stream, progress, nullptr, damaged, record); break;
            default: Fail(record, kErrUnsupportedType); break;
        }
    }
    CloseStream(stream, nullptr);
    if (record->ok() && type == kDocumentTiff) {
        dib = ReadTiffPage(path, page, (options & kReadImageFast) ? kReadFast : 0, progress, record);
    }
    if (record->failed()) FreeImage(&dib);
    return dib;
}

bool SaveImageFile(const std::u16string& path, const BITMAPINFOHEADER* header, const void* bits, int32_t type,
                   const SaveFileOptions& options, ErrorRecord* record) {
    if (record->failed()) return false;
    if (type != kDocumentBmp && type != kDocumentJpeg && type != kDocumentTiff) {
        return Fail(record, kErrInvalidParameter);
    }
    if (type == kDocumentBmp) {
        const BmpForm form = options.bmpCore        ? BmpForm::Core
                             : options.bmpRunLength ? BmpForm::RunLength
                                                    : BmpForm::Plain;
        return WriteBmpFile(path, header, bits, form, record);
    }
    // The new file is written beside the old one and takes its place only
    // once it is complete.
    std::u16string full, temporary;
    if (!FullPath(path.c_str(), &full, record) ||
        !MakeTempFile(DirectoryOf(full).c_str(), kTempPrefixId, nullptr, &temporary, record)) {
        return false;
    }
    if (type == kDocumentJpeg) {
        WriteJpegFile(temporary, header, bits, options, record);
    } else {
        WriteTiffFile(temporary, header, bits, record);
    }
    if (record->ok()) {
        if (FileNameExists(full.c_str())) {
            ReplaceThroughTemp(full.c_str(), temporary.c_str(), false, nullptr, record);
        } else {
            MoveFileName(temporary.c_str(), full.c_str(), record);
        }
    }
    if (record->failed()) {
        ErrorRecord ignored;
        DeleteFileName(temporary.c_str(), &ignored);
    }
    return record->ok();
}

}  // namespace velmora
