// The sequential DCT scan: source rows gathered one MCU row at a time into
// component bands (colour converted, padded to whole MCUs by repeating the
// last column and row, chroma downsampled), transformed, quantised and
// Huffman coded.
#include <cstring>

#include "jpeg/jpeg_encoder_color.h"
#include "jpeg/jpeg_encoder_scan.h"
#include "jpeg/jpeg_forward_dct.h"
#include "jpeg/jpeg_huffman_encoder.h"
#include "frame/scratch_block.h"

namespace velmora::jpeg {
namespace {

// One MCU row of every component at the component's own resolution.
class ComponentBands {
public:
    bool Allocate(const EncoderSource& source, const FrameLayout& frame, ErrorRecord* record) {
        frame_ = frame;
        uint32_t mcuWidth = 8u * frame.hMax;
        paddedWidth_ = static_cast<uint32_t>((uint64_t{frame.width} + mcuWidth - 1) / mcuWidth * mcuWidth);
        bandRows_ = 8u * frame.vMax;
        bool subsampled = frame.components == 3 && (frame.hMax > 1 || frame.vMax > 1);
        uint64_t full = uint64_t{paddedWidth_} * bandRows_;
        uint64_t chroma = uint64_t{paddedWidth_ / frame.hMax} * 8;
        uint64_t total = full * frame.components + (subsampled ? 2 * chroma : 0) + 3 * uint64_t{source.width};
        uint8_t* memory = memory_.Allocate(static_cast<size_t>(total), false, record);
        if (memory == nullptr) return false;
        for (uint8_t c = 0; c < frame.components; ++c) {
            full_[c] = memory;
            memory += full;
            plane_[c] = full_[c];
            stride_[c] = paddedWidth_;
        }
        if (subsampled) {
            for (int c = 1; c < 3; ++c) {
                plane_[c] = memory;
                memory += chroma;
                stride_[c] = paddedWidth_ / frame.hMax;
            }
        }
        scratch_ = memory;
        return true;
    }

    void Fill(const EncoderSource& source, uint32_t mcuRow) {
        uint32_t top = mcuRow * bandRows_;
        for (uint32_t r = 0; r < bandRows_; ++r) {
            uint32_t y = top + r < source.height ? top + r : source.height - 1;
            bool redFirst = false;
            const uint8_t* row = SourceRow(source, y, scratch_, &redFirst);
            size_t offset = size_t{r} * paddedWidth_;
            if (frame_.components == 1) {
                std::memcpy(full_[0] + offset, row, source.width);
            } else {
                ConvertToYCbCr(row, redFirst, source.width, full_[0] + offset, full_[1] + offset, full_[2] + offset);
            }
            for (uint8_t c = 0; c < frame_.components; ++c) {
                uint8_t* samples = full_[c] + offset;
                std::memset(samples + source.width, samples[source.width - 1], paddedWidth_ - source.width);
            }
        }
        if (plane_[1] == full_[1] || frame_.components == 1) return;
        uint32_t chromaWidth = paddedWidth_ / frame_.hMax;
        for (int c = 1; c < 3; ++c) {
            for (uint32_t r = 0; r < 8; ++r) {
                const uint8_t* row = full_[c] + size_t{r} * frame_.vMax * paddedWidth_;
                const uint8_t* below = frame_.vMax == 2 ? row + paddedWidth_ : nullptr;
                if (frame_.hMax == 2) {
                    Downsample(row, below, chromaWidth, plane_[c] + size_t{r} * chromaWidth);
                }
            }
        }
    }

    // Block (bx, by) of component c within MCU column `mcuX`.
    const uint8_t* Block(uint8_t c, uint32_t mcuX, uint32_t bx, uint32_t by) const {
        return plane_[c] + size_t{by} * 8 * stride_[c] + (size_t{mcuX} * frame_.h[c] + bx) * 8;
    }
    size_t stride(uint8_t c) const { return stride_[c]; }
    uint32_t mcuColumns() const { return paddedWidth_ / (8u * frame_.hMax); }

private:
    ScratchBlock memory_;
    FrameLayout frame_;
    uint32_t paddedWidth_ = 0;
    uint32_t bandRows_ = 0;
    uint8_t* full_[3] = {};   // full-resolution rows of each component
    uint8_t* plane_[3] = {};  // the rows the blocks are cut from
    size_t stride_[3] = {};
    uint8_t* scratch_ = nullptr;  // one source row
};

// Runs `visit(component, coefficients)` over every block of the image in
// coding order, one MCU row at a time, reporting progress rows from
// `firstReport` of `totalReports`.
template <typename Visit>
bool ForEachBlock(const EncoderSource& source, const FrameLayout& frame, const DctDivisors* divisors,
                  ComponentBands* bands, ProgressReporter* progress, uint32_t firstReport, uint32_t totalReports,
                  ErrorRecord* record, Visit visit) {
    uint32_t mcuRows = static_cast<uint32_t>((uint64_t{frame.height} + 8u * frame.vMax - 1) / (8u * frame.vMax));
    int16_t coefficients[64];
    for (uint32_t mcuRow = 0; mcuRow < mcuRows; ++mcuRow) {
        bands->Fill(source, mcuRow);
        uint32_t columns = bands->mcuColumns();
        for (uint32_t mcuX = 0; mcuX < columns; ++mcuX) {
            for (uint8_t c = 0; c < frame.components; ++c) {
                for (uint32_t by = 0; by < frame.v[c]; ++by) {
                    for (uint32_t bx = 0; bx < frame.h[c]; ++bx) {
                        ForwardDctQuantise(bands->Block(c, mcuX, bx, by), static_cast<ptrdiff_t>(bands->stride(c)),
                                           divisors[c == 0 ? 0 : 1], coefficients);
                        visit(c, coefficients);
                    }
                }
            }
        }
        if (record->failed()) return false;
        if (progress != nullptr && !progress->Row(firstReport + mcuRow, totalReports, record)) return false;
    }
    return record->ok();
}

}  // namespace

bool EncodeBaselineScan(const EncoderSource& source, const FrameLayout& frame, const BaselineOptions& options,
                        Stream* stream, ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return false;
    uint8_t tables = frame.components == 1 ? 1 : 2;
    if (!options.omitTables) WriteQuantisationSegment(stream, options.quantisation, tables, record);
    WriteFrameHeader(stream, kMarkerSof0, frame, record);

    ComponentBands bands;
    if (!bands.Allocate(source, frame, record)) return false;
    DctDivisors divisors[2];
    for (uint8_t t = 0; t < tables; ++t) MakeDctDivisors(options.quantisation[t], &divisors[t]);
    uint32_t mcuRows = static_cast<uint32_t>((uint64_t{frame.height} + 8u * frame.vMax - 1) / (8u * frame.vMax));
    uint32_t reports = options.optimiseHuffman ? 2 * mcuRows : mcuRows;

    HuffmanSpec dcSpec[2] = {kDcLuminanceHuffman, kDcChrominanceHuffman};
    HuffmanSpec acSpec[2] = {kAcLuminanceHuffman, kAcChrominanceHuffman};
    OptimalHuffman optimal[2][2];
    if (options.optimiseHuffman) {
        // A first pass gathers the symbol statistics of the image.
        uint32_t dcFrequencies[2][256] = {};
        uint32_t acFrequencies[2][256] = {};
        int32_t lastDc[3] = {};
        bool counted = ForEachBlock(source, frame, divisors, &bands, progress, 0, reports, record,
                                    [&](uint8_t c, const int16_t* coefficients) {
                                        int t = c == 0 ? 0 : 1;
                                        CountBlock(coefficients, &lastDc[c], dcFrequencies[t], acFrequencies[t]);
                                    });
        if (!counted) return false;
        for (uint8_t t = 0; t < tables; ++t) {
            MakeOptimalHuffman(dcFrequencies[t], &optimal[t][0]);
            MakeOptimalHuffman(acFrequencies[t], &optimal[t][1]);
            dcSpec[t] = optimal[t][0].spec;
            acSpec[t] = optimal[t][1].spec;
        }
    }
    HuffmanCodes dcCodes[2];
    HuffmanCodes acCodes[2];
    for (uint8_t t = 0; t < tables; ++t) {
        MakeHuffmanCodes(dcSpec[t], &dcCodes[t]);
        MakeHuffmanCodes(acSpec[t], &acCodes[t]);
        if (!options.omitTables || options.optimiseHuffman) {
            WriteHuffmanSegment(stream, 0, t, dcSpec[t], record);
            WriteHuffmanSegment(stream, 1, t, acSpec[t], record);
        }
    }
    WriteScanHeader(stream, frame, false, record);

    EntropyWriter writer;
    if (!writer.Begin(stream, record)) return false;
    int32_t lastDc[3] = {};
    uint32_t first = options.optimiseHuffman ? mcuRows : 0;
    bool coded = ForEachBlock(source, frame, divisors, &bands, progress, first, reports, record,
                              [&](uint8_t c, const int16_t* coefficients) {
                                  int t = c == 0 ? 0 : 1;
                                  writer.EncodeBlock(coefficients, &lastDc[c], dcCodes[t], acCodes[t]);
                              });
    if (!coded) return false;
    writer.Finish();
    return record->ok();
}

}  // namespace velmora::jpeg
