#include "jpeg/jpeg_decoder.h"

#include <cstring>
#include <new>

#include "jpeg/jpeg_coefficients.h"
#include "jpeg/jpeg_frame_decoder.h"
#include "jpeg/jpeg_markers.h"
#include "dib/image.h"
#include "dib/resolution.h"
#include "io/stream.h"

namespace velmora::jpeg {

struct DecoderState {
    DecoderTables tables;
    uint8_t segment[65536];
};

namespace {

void SetUnsupported(ErrorRecord* record) { SetRecordError(record, kErrUnsupportedImageType, 0); }
void SetBadData(ErrorRecord* record) { SetRecordError(record, kErrBadFileData, 0); }

// Runs the frame's scans after the first scan header has been read. With a
// consumer the coefficients go to it instead of becoming pixels.
bool DecodeFrame(MarkerReader* markers, JpegInput* input, const DecoderTables& tables, ScanHeader scan,
                 const JpegDecodeOptions& options, ErrorRecord* record, CoefficientConsumer* consumer = nullptr,
                 CoefficientImage* image = nullptr) {
    const Frame& frame = markers->frame;
    if (markers->hierarchical || frame.arithmetic || (consumer != nullptr && frame.lossless)) {
        SetUnsupported(record);
        return false;
    }
    JpegInfo facts;
    markers->FillInfo(&facts);
    uint8_t ids[kMaxScanComponents] = {};
    for (uint32_t i = 0; i < kMaxScanComponents && i < frame.componentCount; ++i) ids[i] = frame.component[i].id;
    ColorKind kind = ColorKind::Grey;
    if (!ChooseColorKind(frame.componentCount, facts, ids, options.color, &kind)) {
        SetUnsupported(record);
        return false;
    }
    FrameDecoder decoder(frame, tables, options, kind, record);
    if (consumer != nullptr) decoder.KeepCoefficients();
    if (!decoder.Begin(scan)) return false;
    if (options.observer != nullptr && !decoder.streaming()) return true;
    BitReader reader(input, record);
    for (;;) {
        if (!decoder.DecodeScan(&reader, scan, markers->restartInterval)) return false;
        if (decoder.streaming()) return true;
        markers->SetPendingMarker(reader.marker());
        MarkerEvent event = markers->Next(&scan);
        if (record->failed()) return false;
        if (event != MarkerEvent::Scan) break;
    }
    if (consumer == nullptr) return decoder.Finish();
    // Coefficients are only meaningful under the tables of the first scan.
    if (markers->tablesChanged) {
        SetUnsupported(record);
        return false;
    }
    return decoder.HandOver(image, consumer);
}

}  // namespace

JpegDecoder::JpegDecoder() : state_(new (std::nothrow) DecoderState) {}

JpegDecoder::~JpegDecoder() { delete state_; }

static bool CheckState(const DecoderState* state, ErrorRecord* record) {
    if (record->failed()) return false;
    if (state == nullptr) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return false;
    }
    return true;
}

bool JpegDecoder::LoadTables(const JpegSource& source, ErrorRecord* record) {
    if (!CheckState(state_, record)) return false;
    JpegInput input(source);
    MarkerReader markers(&input, &state_->tables, state_->segment, 0, record);
    if (!markers.ReadStart()) return false;
    ScanHeader scan;
    MarkerEvent event = markers.Next(&scan);
    if (record->failed()) return false;
    // A table stream has no scan; one that has is not a table stream.
    if (event == MarkerEvent::Scan || markers.frame.present) {
        SetBadData(record);
        return false;
    }
    return true;
}

bool JpegDecoder::SetQuantTable(uint32_t id, const uint16_t* zigzagValues, ErrorRecord* record) {
    if (!CheckState(state_, record)) return false;
    if (id >= kMaxTables) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    QuantTable& table = state_->tables.quant[id];
    for (uint32_t k = 0; k < 64; ++k) table.natural[kZigZagToNatural[k]] = zigzagValues[k];
    table.defined = true;
    return true;
}

bool JpegDecoder::SetHuffmanTable(uint32_t tableClass, uint32_t id, const uint8_t* counts, const uint8_t* values,
                                  size_t valueCount, ErrorRecord* record) {
    if (!CheckState(state_, record)) return false;
    if (tableClass > 1 || id >= kMaxTables) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    HuffmanTable& table = tableClass == 0 ? state_->tables.dc[id] : state_->tables.ac[id];
    if (!BuildHuffmanTable(counts, values, valueCount, &table)) {
        SetBadData(record);
        return false;
    }
    return true;
}

bool JpegDecoder::ReadInfo(const JpegSource& source, uint32_t request, JpegInfo* info, ErrorRecord* record) {
    if (!CheckState(state_, record)) return false;
    JpegInput input(source);
    MarkerReader markers(&input, &state_->tables, state_->segment, request, record);
    if (!markers.ReadStart()) return false;
    ScanHeader scan;
    bool scanSeen = false;
    for (;;) {
        MarkerEvent event = markers.Next(&scan);
        if (record->failed()) return false;
        if (event != MarkerEvent::Scan) break;
        scanSeen = true;
        if ((request & kInfoWhole) == 0) break;
        markers.SkipEntropyData();
    }
    if (!markers.frame.present || !scanSeen) {
        SetBadData(record);
        return false;
    }
    markers.FillInfo(info);
    return true;
}

// A whole stream: the segments up to the first scan, then the frame.
static bool DecodeStream(DecoderState* state, const JpegSource& source, const JpegDecodeOptions& options,
                         CoefficientConsumer* consumer, CoefficientImage* image, ErrorRecord* record) {
    JpegInput input(source);
    MarkerReader markers(&input, &state->tables, state->segment, 0, record);
    if (!markers.ReadStart()) return false;
    ScanHeader scan;
    MarkerEvent event = markers.Next(&scan);
    if (record->failed()) return false;
    if (event != MarkerEvent::Scan) {
        SetBadData(record);
        return false;
    }
    return DecodeFrame(&markers, &input, state->tables, scan, options, record, consumer, image);
}

bool JpegDecoder::Decode(const JpegSource& source, const JpegDecodeOptions& options, ErrorRecord* record) {
    return CheckState(state_, record) && DecodeStream(state_, source, options, nullptr, nullptr, record);
}

bool JpegDecoder::DecodeRaw(const JpegRawFrame& raw, const JpegSource& source, const JpegDecodeOptions& options,
                            ErrorRecord* record) {
    if (!CheckState(state_, record)) return false;
    if (raw.components < 1 || raw.components > kMaxJpegInfoComponents || raw.width == 0 || raw.width > 65535 ||
        raw.height > 65535 ||
        (raw.lossless ? raw.precision < 2 || raw.precision > 16 || raw.predictor < 1 || raw.predictor > 7
                      : raw.precision != 8 && raw.precision != 12)) {
        SetBadData(record);
        return false;
    }
    // The frame lives with the marker reader, as for a whole stream.
    JpegInput input(source);
    MarkerReader markers(&input, &state_->tables, state_->segment, 0, record);
    Frame& frame = markers.frame;
    frame.present = true;
    frame.marker = raw.lossless ? 0xC3 : 0xC1;
    frame.lossless = raw.lossless;
    frame.precision = raw.precision;
    frame.width = raw.width;
    frame.height = raw.height;
    frame.componentCount = raw.components;
    ScanHeader scan;
    scan.count = raw.components;
    scan.ss = raw.lossless ? raw.predictor : 0;
    scan.se = raw.lossless ? 0 : 63;
    uint32_t blocks = 0;
    for (uint32_t i = 0; i < raw.components; ++i) {
        const JpegComponentInfo& c = raw.component[i];
        if (c.h < 1 || c.h > 4 || c.v < 1 || c.v > 4 || c.quantTable > 3 || raw.dcTable[i] > 3 || raw.acTable[i] > 3) {
            SetBadData(record);
            return false;
        }
        frame.component[i] = FrameComponent{c.id, c.h, c.v, c.quantTable};
        if (c.h > frame.hMax) frame.hMax = c.h;
        if (c.v > frame.vMax) frame.vMax = c.v;
        blocks += uint32_t{c.h} * c.v;
        scan.componentIndex[i] = static_cast<uint8_t>(i);
        scan.dcTable[i] = raw.dcTable[i];
        scan.acTable[i] = raw.acTable[i];
        if (!state_->tables.dc[raw.dcTable[i]].defined ||
            (!raw.lossless && !state_->tables.ac[raw.acTable[i]].defined)) {
            SetBadData(record);
            return false;
        }
    }
    if (raw.components > 1 && blocks > kMaxBlocksInMcu) {
        SetBadData(record);
        return false;
    }
    markers.restartInterval = raw.restartInterval;
    return DecodeFrame(&markers, &input, state_->tables, scan, options, record);
}

bool JpegDecoder::ReadCoefficients(const JpegSource& source, CoefficientConsumer* consumer, ErrorRecord* record) {
    if (!CheckState(state_, record)) return false;
    CoefficientImage image;
    const uint64_t start = source.stream != nullptr ? StreamTell(source.stream) : 0;
    if (!ReadInfo(source, kInfoWhole, &image.info, record)) return false;
    if (source.stream != nullptr) StreamSeek64(source.stream, start, record);
    JpegDecodeOptions options;
    options.output.height = image.info.height;  // for a frame whose height a DNL segment gives
    return DecodeStream(state_, source, options, consumer, &image, record);
}

bool ReadJpegCoefficients(const JpegSource& source, CoefficientConsumer* consumer, ErrorRecord* record) {
    JpegDecoder decoder;
    return decoder.ReadCoefficients(source, consumer, record);
}

bool ReadJpegInfo(const JpegSource& source, uint32_t request, JpegInfo* info, ErrorRecord* record) {
    JpegDecoder decoder;
    return decoder.ReadInfo(source, request, info, record);
}

HGLOBAL DecodeJpegToDib(const JpegSource& source, ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    JpegDecoder decoder;
    uint64_t start = source.stream != nullptr ? StreamTell(source.stream) : 0;
    JpegInfo info;
    if (!decoder.ReadInfo(source, 0, &info, record)) return nullptr;
    if (info.height == 0) {
        // The height comes from a DNL segment after the first scan.
        if (source.stream != nullptr) StreamSeek64(source.stream, start, record);
        if (!decoder.ReadInfo(source, kInfoWhole, &info, record)) return nullptr;
        if (info.height == 0) {
            SetBadData(record);
            return nullptr;
        }
    }
    if (info.process == kProcessHierarchical || info.process >= kProcessArithmeticExtended ||
        (info.components != 1 && info.components != 3 && info.components != 4)) {
        SetUnsupported(record);
        return nullptr;
    }
    int32_t xPels = PelsPerMeter(info.xDensityNumerator, info.xDensityDenominator, info.densityUnit);
    int32_t yPels = PelsPerMeter(info.yDensityNumerator, info.yDensityDenominator, info.densityUnit);
    bool grey = info.components == 1;
    RGBQUAD ramp[256];
    for (uint32_t i = 0; i < 256; ++i) {
        ramp[i] = RGBQUAD{static_cast<BYTE>(i), static_cast<BYTE>(i), static_cast<BYTE>(i), 0};
    }
    HGLOBAL dib = CreatePackedDib(static_cast<int32_t>(info.width), static_cast<int32_t>(info.height), grey ? 8 : 24,
                                  grey ? ramp : nullptr, grey ? 256 : 0, xPels, yPels, record);
    if (dib == nullptr) return nullptr;
    bool ok = false;
    {
        ImageLock lock(dib);
        uint8_t* bits = lock.bits();
        if (bits != nullptr) {
            uint64_t stride = ((uint64_t{info.width} * (grey ? 8 : 24) + 31) / 32) * 4;
            JpegDecodeOptions options;
            options.output.topRow = bits + (info.height - 1) * stride;
            options.output.stride = -static_cast<ptrdiff_t>(stride);
            options.output.width = info.width;
            options.output.height = info.height;
            options.progress = progress;
            if (source.stream != nullptr) StreamSeek64(source.stream, start, record);
            ok = decoder.Decode(source, options, record);
        } else {
            SetRecordError(record, kErrNotEnoughMemory, 0);
        }
    }
    if (!ok) FreeImage(&dib);
    return dib;
}

}  // namespace velmora::jpeg
