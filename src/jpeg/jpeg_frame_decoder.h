// Decoding the scans of one frame into output rows.
//
// Two ways through a frame. A sequential DCT frame whose first scan holds
// every component is decoded as it streams in: each row of MCUs is
// transformed into per-component band planes and converted to output rows
// at once. Every other frame (progressive, sequential with separate scans
// per component, lossless) is collected for the whole image first, as
// quantised coefficients or as samples, and turned into output rows when
// its last scan is done.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/jpeg_bit_reader.h"
#include "jpeg/jpeg_coefficients.h"
#include "jpeg/jpeg_color.h"
#include "jpeg/jpeg_decoder.h"
#include "jpeg/jpeg_markers.h"
#include "frame/scratch_block.h"

namespace velmora::jpeg {

// The colour layout of a frame's components; false for the layout the
// decoder does not produce (two components, or more than four).
bool ChooseColorKind(uint32_t components, const JpegInfo& facts, const uint8_t* componentIds, ColorOverride color,
                     ColorKind* kind);

class FrameDecoder {
public:
    FrameDecoder(const Frame& frame, const DecoderTables& tables, const JpegDecodeOptions& options, ColorKind kind,
                 ErrorRecord* record);

    // Plans the geometry and allocates the working memory. The frame's
    // height must be known (non-zero).
    bool Begin(const ScanHeader& firstScan);
    // True when the frame is decoded as it streams in: after its first scan
    // nothing more is needed.
    bool streaming() const { return streaming_; }
    // Decodes one scan whose entropy-coded data the reader delivers. After
    // it the reader's marker (or kEndOfData) is what ended the data.
    bool DecodeScan(BitReader* reader, const ScanHeader& scan, uint32_t restartInterval);
    // For collected frames: transforms and converts the whole image.
    bool Finish();

    // Before Begin: collect every DCT frame as coefficients, whatever its
    // scans, for HandOver instead of Finish.
    void KeepCoefficients() { keepCoefficients_ = true; }
    // After the last scan of a frame read with KeepCoefficients: fills the
    // image's geometry and components (pointing into this decoder's
    // memory) and hands it to `consumer`.
    bool HandOver(CoefficientImage* image, CoefficientConsumer* consumer);

private:
    struct Component {
        uint8_t h = 1, v = 1;     // sampling factors as used (1 and 1 for a lone component)
        uint32_t blocksWide = 0;  // the MCU-padded grid, in blocks (samples when lossless)
        uint32_t blocksHigh = 0;
        uint32_t ownBlocksWide = 0;  // the component's own extent, for non-interleaved scans
        uint32_t ownBlocksHigh = 0;
        const uint16_t* quant = nullptr;  // natural order
        int16_t* coefficients = nullptr;  // collected DCT frames: 64 per block
        uint16_t* samples = nullptr;      // lossless frames
        uint8_t* band = nullptr;          // the MCU row of 8-bit samples being filled
        ptrdiff_t bandStride = 0;
        uint32_t bandRows = 0;            // sample rows of one MCU row
        uint32_t realRows = 0;            // sample rows of the image
        uint32_t samplesWide = 0;         // samples of a row that belong to the image
        // MCU rows alternate between two slots, so that the one before is
        // still there when it is converted with the rows around it; the last
        // row of the one before that is kept as the row above.
        uint8_t* slots[2] = {nullptr, nullptr};
        uint8_t* aboveCopy = nullptr;
        int32_t predictor = 0;       // DC predictor
        uint32_t lineStart = 0;      // lossless: the first line of the current restart interval
        bool restartSample = false;  // lossless: the next sample follows a restart
        uint8_t pointTransform = 0;  // lossless: of the component's scan
    };

    bool Restart(BitReader* reader, uint32_t* expected, const ScanHeader& scan);
    bool CheckEnd(BitReader* reader);
    bool DecodeStreamingScan(BitReader* reader, const ScanHeader& scan, uint32_t restartInterval);
    bool DecodeCollectedScan(BitReader* reader, const ScanHeader& scan, uint32_t restartInterval);
    bool DecodeLosslessScan(BitReader* reader, const ScanHeader& scan, uint32_t restartInterval);
    void TransformBlock(const int16_t* coefficients, const uint16_t* quant, uint8_t* out, ptrdiff_t stride);
    void PrepareBand(uint32_t mcuRow);
    bool EmitBand(uint32_t mcuRow);
    void ConvertStoredBand(uint32_t mcuRow, bool followed);
    void FillFlatBlock(uint32_t scanIndex, int16_t dc, const Component& c, uint8_t* out);
    bool Fail();

    const Frame& frame_;
    const DecoderTables& tables_;
    JpegDecodeOptions options_;
    ColorKind kind_;
    ErrorRecord* record_;

    bool streaming_ = false;
    bool keepCoefficients_ = false;
    uint32_t height_ = 0;
    uint32_t componentCount_ = 0;
    uint32_t mcusWide_ = 0, mcusHigh_ = 0;
    uint32_t mcuPixelsHigh_ = 0;  // output rows per MCU row
    uint8_t hMax_ = 1, vMax_ = 1;
    uint32_t outWidth_ = 0, outRows_ = 0;
    uint32_t transformBands_ = 0;  // MCU rows turned into samples: the output's and one below it
    int maxDcCategory_ = 11, maxAcSize_ = 10;
    uint32_t eobRun_ = 0;
    Component component_[kMaxScanComponents];
    // Samples of DC-only blocks by DC value (-1: not worked out yet), per
    // scan component, in a direct-mapped cache.
    static constexpr uint32_t kFlatCacheSize = 1024;
    int16_t flatValues_[kMaxScanComponents][kFlatCacheSize];
    int16_t flatKeys_[kMaxScanComponents][kFlatCacheSize];
    ScratchBlock collected_;
    ScratchBlock bands_;
    ScratchBlock scratch_;
};

}  // namespace velmora::jpeg
