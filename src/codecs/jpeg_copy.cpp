#include "codecs/jpeg_copy.h"

#include <algorithm>
#include <vector>

#include "codecs/jpeg_coefficients.h"
#include "codecs/jpeg_encoder_segments.h"
#include "codecs/jpeg_encoder_thumbnail.h"
#include "codecs/jpeg_huffman_encoder.h"
#include "codecs/jpeg_private_segment.h"
#include "codecs/jpeg_tables.h"
#include "frame/memory_handle.h"
#include "io/stream.h"

namespace velmora::jpeg {
namespace {

constexpr uint8_t kMarkerSof1 = 0xC1;
constexpr uint8_t kMarkerApp14 = 0xEE;

// Where a component's blocks of the rectangle are.
struct ComponentWindow {
    const CoefficientComponent* component;
    uint32_t firstColumn, firstRow;  // in blocks
    uint8_t huffman;                 // 0 for the first component, 1 for the others
};

// Calls `visit(window, block)` for every block of the copy, in the order an
// interleaved scan (or, for one component, a plain one) codes them.
template <typename Visit>
bool ForEachBlock(const std::vector<ComponentWindow>& windows, uint32_t mcusWide, uint32_t mcusHigh,
                  ProgressReporter* progress, ErrorRecord* record, Visit visit) {
    const bool single = windows.size() == 1;
    for (uint32_t my = 0; my < mcusHigh; ++my) {
        for (uint32_t mx = 0; mx < mcusWide; ++mx) {
            for (const ComponentWindow& w : windows) {
                const uint32_t h = single ? 1 : w.component->h;
                const uint32_t v = single ? 1 : w.component->v;
                for (uint32_t by = 0; by < v; ++by) {
                    for (uint32_t bx = 0; bx < h; ++bx) {
                        const uint64_t row = w.firstRow + uint64_t{my} * v + by;
                        const uint64_t column = w.firstColumn + uint64_t{mx} * h + bx;
                        visit(w, w.component->blocks + (row * w.component->blocksWide + column) * 64);
                    }
                }
            }
        }
        if (progress != nullptr && !progress->Row(my, mcusHigh, record)) return false;
    }
    return true;
}

// JFIF with the stream's density. Densities that JFIF cannot hold as whole
// numbers are left out (unit 0, aspect 1:1); the library's own segment keeps
// the exact values.
void WriteJfif(const JpegInfo& info, Stream* stream, ErrorRecord* record) {
    JpegEncoderSettings jfif;
    const bool whole = info.xDensityDenominator == 1 && info.yDensityDenominator == 1 && info.xDensityNumerator > 0 &&
                       info.xDensityNumerator <= 0xFFFF && info.yDensityNumerator > 0 &&
                       info.yDensityNumerator <= 0xFFFF && info.densityUnit >= 2;
    if (whole) {
        jfif.densityUnit = static_cast<uint8_t>(info.densityUnit - 1);
        jfif.xDensity = static_cast<uint16_t>(info.xDensityNumerator);
        jfif.yDensity = static_cast<uint16_t>(info.yDensityNumerator);
    }
    WriteJfifSegments(jfif, stream, record);
}

// The Adobe segment with the stream's colour transform, so that RGB and
// CMYK data keep their meaning.
void WriteAdobe(const JpegInfo& info, Stream* stream, ErrorRecord* record) {
    SegmentBytes segment(kMarkerApp14);
    for (char c : {'A', 'd', 'o', 'b', 'e'}) segment.Put8(static_cast<uint8_t>(c));
    segment.Put16(100);  // version
    segment.Put16(0);    // flags
    segment.Put16(0);
    segment.Put8(info.adobeTransform);
    segment.Write(stream, record);
}

void WriteResolution(const JpegInfo& info, Stream* stream, ErrorRecord* record) {
    PrivateSegment resolution;
    resolution.unit = info.densityUnit;
    resolution.xNumerator = info.xDensityNumerator;
    resolution.xDenominator = info.xDensityDenominator;
    resolution.yNumerator = info.yDensityNumerator;
    resolution.yDenominator = info.yDensityDenominator;
    uint8_t bytes[kPrivateSegmentTotalSize];
    BuildPrivateSegment(resolution, bytes);
    StreamWrite(stream, bytes, sizeof bytes, record);
}

// Codes the rectangle's MCUs of the image it is handed as a new stream.
class McuCopier : public CoefficientConsumer {
public:
    McuCopier(const CopyRequest& request) : request_(request) {}
    bool Consume(const CoefficientImage& image, ErrorRecord* record) override;
    HGLOBAL TakeCopy(DWORD* size) {
        *size = size_;
        HGLOBAL copy = copy_;
        copy_ = nullptr;
        return copy;
    }
    ~McuCopier() override { FreeHandle(&copy_); }

private:
    const CopyRequest& request_;
    HGLOBAL copy_ = nullptr;
    DWORD size_ = 0;
};

bool McuCopier::Consume(const CoefficientImage& image, ErrorRecord* record) {
    const CopyRequest& request = request_;
    const uint32_t count = image.componentCount;
    const bool single = count == 1;
    const uint32_t mcuWidth = single ? 8u : 8u * image.hMax;
    const uint32_t mcuHeight = single ? 8u : 8u * image.vMax;
    if (request.right > image.width || request.bottom > image.height || request.left >= request.right ||
        request.top >= request.bottom || request.left % mcuWidth != 0 || request.top % mcuHeight != 0 ||
        request.right % mcuWidth != 0 || request.bottom % mcuHeight != 0) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    const uint32_t mcusWide = (request.right - request.left) / mcuWidth;
    const uint32_t mcusHigh = (request.bottom - request.top) / mcuHeight;
    std::vector<ComponentWindow> windows;
    for (uint32_t c = 0; c < count; ++c) {
        const CoefficientComponent& component = image.components[c];
        const uint32_t h = single ? 1 : component.h;
        const uint32_t v = single ? 1 : component.v;
        windows.push_back({&component, request.left / mcuWidth * h, request.top / mcuHeight * v,
                           static_cast<uint8_t>(c == 0 ? 0 : 1)});
    }
    // Huffman tables: the examples of Annex K, or tables for these symbols
    // (always at precisions the examples do not cover).
    const bool optimise = request.optimiseTables || image.precision != 8;
    const uint8_t tableSets = single ? 1 : 2;
    OptimalHuffman optimal[2][2];  // [set][0 DC, 1 AC]
    if (optimise) {
        uint32_t frequencies[2][2][257] = {};
        int32_t lastDc[4] = {};
        bool ok = ForEachBlock(
            windows, mcusWide, mcusHigh, nullptr, record, [&](const ComponentWindow& w, const int16_t* block) {
                const size_t index = static_cast<size_t>(w.component - image.components);
                CountBlock(block, &lastDc[index], frequencies[w.huffman][0], frequencies[w.huffman][1]);
            });
        if (!ok) return false;
        for (uint8_t set = 0; set < tableSets; ++set) {
            for (int kind = 0; kind < 2; ++kind) MakeOptimalHuffman(frequencies[set][kind], &optimal[set][kind]);
        }
    }
    const HuffmanSpec* specs[2][2] = {
        {optimise ? &optimal[0][0].spec : &kDcLuminanceHuffman, optimise ? &optimal[0][1].spec : &kAcLuminanceHuffman},
        {optimise ? &optimal[1][0].spec : &kDcChrominanceHuffman,
         optimise ? &optimal[1][1].spec : &kAcChrominanceHuffman}};
    HuffmanCodes codes[2][2];
    for (uint8_t set = 0; set < tableSets; ++set) {
        for (int kind = 0; kind < 2; ++kind) MakeHuffmanCodes(*specs[set][kind], &codes[set][kind]);
    }

    Stream* stream = OpenMemoryStream(false, record);
    if (stream == nullptr) return false;
    WriteMarker(stream, kMarkerSoi, record);
    // The colour interpretation goes with the copy: a JFIF segment, an Adobe
    // segment, or neither (then the component identifiers tell).
    if (image.info.flags & kHasJfif) WriteJfif(image.info, stream, record);
    if (image.info.flags & kHasAdobe) WriteAdobe(image.info, stream, record);
    if (image.info.flags & kHasResolution) WriteResolution(image.info, stream, record);

    // The quantisation tables the components use, as they were.
    SegmentBytes dqt(kMarkerDqt);
    bool wideTables = false;
    for (uint8_t t = 0; t < 4; ++t) {
        const bool used = std::any_of(image.components, image.components + count,
                                      [t](const CoefficientComponent& c) { return c.quantTable == t; });
        if (!used || !image.quantDefined[t]) continue;
        const bool wide = std::any_of(image.quant[t], image.quant[t] + 64, [](uint16_t q) { return q > 255; });
        wideTables |= wide;
        dqt.Put8((wide ? 0x10 : 0x00) | t);
        for (int k = 0; k < 64; ++k) {
            const uint16_t value = image.quant[t][kZigZag[k]];
            if (wide) {
                dqt.Put16(value);
            } else {
                dqt.Put8(value);
            }
        }
    }
    dqt.Write(stream, record);

    SegmentBytes sof(image.precision == 8 && !wideTables ? uint8_t{kMarkerSof0} : kMarkerSof1);
    sof.Put8(image.precision);
    sof.Put16(request.bottom - request.top);
    sof.Put16(request.right - request.left);
    sof.Put8(count);
    for (uint32_t i = 0; i < count; ++i) {
        const CoefficientComponent& c = image.components[i];
        sof.Put8(c.id);
        sof.Put8(static_cast<uint32_t>(c.h) << 4 | c.v);
        sof.Put8(c.quantTable);
    }
    sof.Write(stream, record);
    for (uint8_t set = 0; set < tableSets; ++set) {
        WriteHuffmanSegment(stream, 0, set, *specs[set][0], record);
        WriteHuffmanSegment(stream, 1, set, *specs[set][1], record);
    }
    SegmentBytes sos(kMarkerSos);
    sos.Put8(count);
    for (const ComponentWindow& w : windows) {
        sos.Put8(w.component->id);
        sos.Put8(static_cast<uint32_t>(w.huffman) << 4 | w.huffman);
    }
    sos.Put8(0);
    sos.Put8(63);
    sos.Put8(0);
    sos.Write(stream, record);

    EntropyWriter writer;
    int32_t lastDc[4] = {};
    if (writer.Begin(stream, record)) {
        ForEachBlock(windows, mcusWide, mcusHigh, request.progress, record,
                     [&](const ComponentWindow& w, const int16_t* block) {
                         const size_t index = static_cast<size_t>(w.component - image.components);
                         writer.EncodeBlock(block, &lastDc[index], codes[w.huffman][0], codes[w.huffman][1]);
                     });
        writer.Finish();
    }
    WriteMarker(stream, kMarkerEoi, record);

    size_ = StreamSize(stream, record);
    copy_ = CloseStream(stream, record);
    return record->ok();
}

}  // namespace

HGLOBAL CopyJpegMcus(const JpegSource& source, const CopyRequest& request, DWORD* size, ErrorRecord* record) {
    McuCopier copier(request);
    if (!ReadJpegCoefficients(source, &copier, record)) return nullptr;
    return copier.TakeCopy(size);
}

}  // namespace velmora::jpeg
