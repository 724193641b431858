#include "jpeg/jpeg_encoder.h"

#include "jpeg/jpeg_encoder_scan.h"
#include "jpeg/jpeg_encoder_segments.h"
#include "jpeg/jpeg_encoder_source.h"
#include "jpeg/jpeg_encoder_thumbnail.h"
#include "jpeg/jpeg_tables.h"

namespace velmora::jpeg {
namespace {

// A frame header holds the image size in 16 bits.
constexpr uint32_t kMaxFrameSide = 65535;
constexpr char kCommentText[] = "Velmora";

FrameLayout LayoutFor(const EncoderSource& source, const JpegEncoderSettings& settings) {
    FrameLayout frame;
    frame.width = source.width;
    frame.height = source.height;
    frame.components = source.components;
    if (source.components == 3 && settings.process == JpegProcess::Baseline) {
        frame.hMax = settings.sampling == ChromaSampling::H1V1 ? 1 : 2;
        frame.vMax = settings.sampling == ChromaSampling::H2V2 ? 2 : 1;
        frame.h[0] = frame.hMax;
        frame.v[0] = frame.vMax;
    }
    return frame;
}

bool Encode(const EncoderSource& source, const JpegEncoderSettings& settings, Stream* stream,
            ProgressReporter* progress, ErrorRecord* record) {
    if (source.width == 0 || source.height == 0) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    if (source.width > kMaxFrameSide || source.height > kMaxFrameSide) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    if (settings.process != JpegProcess::Baseline && settings.process != JpegProcess::Lossless) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    FrameLayout frame = LayoutFor(source, settings);

    WriteMarker(stream, kMarkerSoi, record);
    if (settings.writeJfif) WriteJfifSegments(settings, stream, record);
    if (settings.writeComment) WriteCommentSegment(stream, kCommentText, record);
    if (settings.writeResolution) WritePrivateSegment(stream, settings.resolution, record);
    if (settings.writeScale) WritePrivateSegment(stream, settings.scale, record);
    if (record->failed()) return false;

    if (settings.process == JpegProcess::Lossless) {
        EncodeLosslessScan(source, frame, stream, progress, record);
    } else {
        uint16_t tables[2][64];
        MakeQuantisationTables(settings, tables);
        BaselineOptions options;
        options.quantisation = tables;
        options.optimiseHuffman = settings.optimiseHuffman;
        options.omitTables = settings.omitTables;
        EncodeBaselineScan(source, frame, options, stream, progress, record);
    }
    WriteMarker(stream, kMarkerEoi, record);
    return record->ok();
}

}  // namespace

void MakeQuantisationTables(const JpegEncoderSettings& settings, uint16_t tables[2][64]) {
    if (settings.tables != nullptr) {
        for (int t = 0; t < 2; ++t) {
            for (int i = 0; i < 64; ++i) {
                uint8_t value = settings.tables[t * 64 + i];
                tables[t][i] = value == 0 ? 1 : value;
            }
        }
        return;
    }
    uint32_t scale = QualityScale(settings.quality);
    ScaleQuantisation(kLuminanceQuantisation, scale, tables[0]);
    ScaleQuantisation(kChrominanceQuantisation, scale, tables[1]);
}

bool EncodeJpegDib(const BITMAPINFOHEADER* header, const void* bits, const JpegEncoderSettings& settings,
                   Stream* stream, ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return false;
    EncoderSource source;
    if (!SourceFromDib(header, bits, &source, record)) return false;
    return Encode(source, settings, stream, progress, record);
}

bool EncodeJpegRows(const JpegRows& rows, const JpegEncoderSettings& settings, Stream* stream,
                    ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return false;
    if (rows.planarConfiguration != 1) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    if (rows.top == nullptr || (rows.bytesPerPixel != 1 && rows.bytesPerPixel != 3)) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    EncoderSource source;
    source.top = rows.top;
    source.stride = rows.stride;
    source.width = rows.width;
    source.height = rows.height;
    source.components = rows.bytesPerPixel;
    source.layout = rows.bytesPerPixel == 1 ? EncoderSource::Layout::Grey
                    : rows.redFirst         ? EncoderSource::Layout::Rgb
                                            : EncoderSource::Layout::Bgr;
    return Encode(source, settings, stream, progress, record);
}

bool WriteJpegTables(uint8_t components, const JpegEncoderSettings& settings, Stream* stream, ErrorRecord* record) {
    if (record->failed()) return false;
    if (components != 1 && components != 3) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    WriteMarker(stream, kMarkerSoi, record);
    if (settings.process == JpegProcess::Baseline) {
        uint16_t tables[2][64];
        MakeQuantisationTables(settings, tables);
        uint8_t count = components == 1 ? 1 : 2;
        WriteQuantisationSegment(stream, tables, count, record);
        WriteHuffmanSegment(stream, 0, 0, kDcLuminanceHuffman, record);
        WriteHuffmanSegment(stream, 1, 0, kAcLuminanceHuffman, record);
        if (count == 2) {
            WriteHuffmanSegment(stream, 0, 1, kDcChrominanceHuffman, record);
            WriteHuffmanSegment(stream, 1, 1, kAcChrominanceHuffman, record);
        }
    }
    WriteMarker(stream, kMarkerEoi, record);
    return record->ok();
}

}  // namespace velmora::jpeg
