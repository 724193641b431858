#include "jpeg/jpeg_frame_decoder.h"

#include <algorithm>
#include <cstring>

#include "jpeg/jpeg_idct.h"
#include "jpeg/jpeg_marker_codes.h"

namespace velmora::jpeg {
namespace {

// Working memory of one decode is capped so that a lying frame header cannot
// ask for more than a page of any real size needs.
constexpr uint64_t kMaxWorkingBytes = uint64_t{1} << 31;


uint32_t CeilDiv(uint64_t a, uint64_t b) { return static_cast<uint32_t>((a + b - 1) / b); }

// One sequential block (T.81 F.2.2): the DC difference and the AC
// coefficients, placed in natural order. `block` is zero beforehand.
inline bool DecodeSequentialBlock(BitReader* reader, const HuffmanTable& dc, const HuffmanTable& ac, int32_t* predictor,
                                  int16_t* block, int maxDcCategory, int maxAcSize, bool* hasAc = nullptr) {
    LocalBits bits(reader);
    bits.Fill();
    int category = bits.Decode(dc);
    if (category < 0 || category > maxDcCategory) return false;
    // The predictor wraps like the 16-bit coefficient it feeds.
    *predictor = static_cast<int16_t>(*predictor + bits.Receive(category));
    block[0] = static_cast<int16_t>(*predictor);
    int k = 1;
    while (k < 64) {
        bits.Fill();
        int32_t fast = ac.acFast[bits.Peek(kLookaheadBits)];
        if (fast != 0) {
            k += (fast >> 8) & 15;
            if (k > 63) return false;
            bits.Skip(fast & 0xFF);
            block[kZigZagToNatural[k]] = static_cast<int16_t>(fast >> 16);
            ++k;
            continue;
        }
        int symbol = bits.Decode(ac);
        if (symbol < 0) return false;
        int run = symbol >> 4;
        int size = symbol & 15;
        if (size == 0) {
            if (run != 15) break;  // end of block
            k += 16;
            if (k > 64) return false;
            continue;
        }
        k += run;
        if (k > 63 || size > maxAcSize) return false;
        block[kZigZagToNatural[k]] = static_cast<int16_t>(bits.Receive(size));
        ++k;
    }
    // A block that ended at once (k still 1) holds only its DC coefficient;
    // zero runs without a value do not count.
    if (hasAc != nullptr) *hasAc = k > 1;
    return true;
}

// Progressive DC scans (T.81 G.1.2.1).
inline bool DecodeDcFirst(BitReader* reader, const HuffmanTable& dc, int32_t* predictor, int16_t* block, int al,
                          int maxDcCategory) {
    reader->Fill();
    int category = reader->Decode(dc);
    if (category < 0 || category > maxDcCategory) return false;
    *predictor = static_cast<int16_t>(*predictor + reader->Receive(category));
    block[0] = static_cast<int16_t>(static_cast<uint32_t>(*predictor) << al);
    return true;
}

inline void DecodeDcRefine(BitReader* reader, int16_t* block, int al) {
    reader->Fill();
    if (reader->Bits(1) != 0) block[0] = static_cast<int16_t>(block[0] | (1 << al));
}

// Progressive AC scans, first pass (T.81 G.1.2.2).
inline bool DecodeAcFirst(BitReader* reader, const HuffmanTable& ac, int16_t* block, int ss, int se, int al,
                          uint32_t* eobRun, int maxAcSize) {
    if (*eobRun > 0) {
        --*eobRun;
        return true;
    }
    for (int k = ss; k <= se;) {
        reader->Fill();
        int symbol = reader->Decode(ac);
        if (symbol < 0) return false;
        int run = symbol >> 4;
        int size = symbol & 15;
        if (size == 0) {
            if (run == 15) {
                k += 16;
                if (k > se + 1) return false;
                continue;
            }
            *eobRun = (1u << run) - 1;
            if (run > 0) *eobRun += reader->Bits(run);
            break;
        }
        k += run;
        if (k > se || size > maxAcSize) return false;
        int32_t value = reader->Receive(size);
        block[kZigZagToNatural[k]] = static_cast<int16_t>(static_cast<uint32_t>(value) << al);
        ++k;
    }
    return true;
}

// Refines a coefficient that is already non-zero by one correction bit.
inline void RefineNonZero(BitReader* reader, int16_t* coefficient, int16_t bit) {
    if (reader->Bits(1) != 0 && (*coefficient & bit) == 0) {
        *coefficient = static_cast<int16_t>(*coefficient >= 0 ? *coefficient + bit : *coefficient - bit);
    }
}

// Progressive AC scans, refinement (T.81 G.1.2.3): new coefficients of
// magnitude 1 << al, and one correction bit for every coefficient already
// non-zero that a run passes over.
inline bool DecodeAcRefine(BitReader* reader, const HuffmanTable& ac, int16_t* block, int ss, int se, int al,
                           uint32_t* eobRun) {
    const int16_t bit = static_cast<int16_t>(1 << al);
    int k = ss;
    if (*eobRun == 0) {
        for (; k <= se; ++k) {
            reader->Fill();
            int symbol = reader->Decode(ac);
            if (symbol < 0) return false;
            int run = symbol >> 4;
            int size = symbol & 15;
            int16_t value = 0;
            if (size != 0) {
                if (size != 1) return false;
                value = reader->Bits(1) != 0 ? bit : static_cast<int16_t>(-bit);
            } else if (run != 15) {
                *eobRun = 1u << run;
                if (run > 0) *eobRun += reader->Bits(run);
                break;
            }
            // Pass `run` zero coefficients (refining non-zero ones on the
            // way); the new value, if any, goes to the next zero one.
            for (; k <= se; ++k) {
                int16_t* coefficient = &block[kZigZagToNatural[k]];
                reader->Fill();
                if (*coefficient != 0) {
                    RefineNonZero(reader, coefficient, bit);
                } else {
                    if (run == 0) break;
                    --run;
                }
            }
            if (k > se) {
                if (value != 0 || run > 0) return false;
                break;
            }
            if (value != 0) block[kZigZagToNatural[k]] = value;
        }
    }
    if (*eobRun > 0) {
        for (; k <= se; ++k) {
            int16_t* coefficient = &block[kZigZagToNatural[k]];
            if (*coefficient != 0) {
                reader->Fill();
                RefineNonZero(reader, coefficient, bit);
            }
        }
        --*eobRun;
    }
    return true;
}

}  // namespace

bool ChooseColorKind(uint32_t components, const JpegInfo& facts, const uint8_t* componentIds, ColorOverride color,
                     ColorKind* kind) {
    switch (components) {
        case 1: *kind = ColorKind::Grey; return true;
        case 3:
            if (color == ColorOverride::Rgb) {
                *kind = ColorKind::Rgb;
            } else if (color == ColorOverride::YCbCr) {
                *kind = ColorKind::YCbCr;
            } else if ((facts.flags & kHasAdobe) != 0) {
                *kind = facts.adobeTransform == 0 ? ColorKind::Rgb : ColorKind::YCbCr;
            } else if ((facts.flags & kHasJfif) == 0 && componentIds[0] == 'R' && componentIds[1] == 'G' &&
                       componentIds[2] == 'B') {
                *kind = ColorKind::Rgb;
            } else {
                *kind = ColorKind::YCbCr;
            }
            return true;
        case 4:
            if (color == ColorOverride::Separated) {
                *kind = (facts.flags & kHasAdobe) != 0 && facts.adobeTransform == 2 ? ColorKind::InkYcck
                                                                                       : ColorKind::InkCmyk;
            } else if (color == ColorOverride::Rgb) {
                *kind = ColorKind::Cmyk;
            } else if (color == ColorOverride::YCbCr) {
                *kind = ColorKind::Ycck;
            } else {
                *kind = (facts.flags & kHasAdobe) != 0 && facts.adobeTransform == 2 ? ColorKind::Ycck : ColorKind::Cmyk;
            }
            return true;
        default: return false;
    }
}

FrameDecoder::FrameDecoder(const Frame& frame, const DecoderTables& tables, const JpegDecodeOptions& options,
                           ColorKind kind, ErrorRecord* record)
    : frame_(frame), tables_(tables), options_(options), kind_(kind), record_(record) {}

bool FrameDecoder::Fail() {
    SetRecordError(record_, kErrBadFileData, 0);
    return false;
}

bool FrameDecoder::Begin(const ScanHeader& firstScan) {
    if (record_->failed()) return false;
    height_ = frame_.height != 0 ? frame_.height : options_.output.height;
    componentCount_ = frame_.componentCount;
    if (height_ == 0 || componentCount_ == 0 || componentCount_ > kMaxScanComponents) return Fail();
    bool single = componentCount_ == 1;
    hMax_ = single ? 1 : frame_.hMax;
    vMax_ = single ? 1 : frame_.vMax;
    uint32_t unit = frame_.lossless ? 1 : 8;
    mcusWide_ = CeilDiv(frame_.width, uint64_t{unit} * hMax_);
    mcusHigh_ = CeilDiv(height_, uint64_t{unit} * vMax_);
    mcuPixelsHigh_ = unit * vMax_;
    maxDcCategory_ = frame_.precision + 3;
    maxAcSize_ = frame_.precision + 2;
    streaming_ = !keepCoefficients_ && !frame_.progressive && !frame_.lossless && firstScan.count == componentCount_;
    outWidth_ = options_.output.topRow != nullptr ? std::min(frame_.width, options_.output.width) : 0;
    outRows_ = options_.output.topRow != nullptr && outWidth_ > 0 ? std::min(height_, options_.output.height) : 0;
    // Interpolated chroma of the last output rows may need the MCU row below.
    transformBands_ =
        outRows_ == 0 ? 0 : static_cast<uint32_t>(std::min<uint64_t>(mcusHigh_, (outRows_ - 1) / mcuPixelsHigh_ + 2));

    uint64_t collectedBytes = 0, bandBytes = 0;
    for (uint32_t i = 0; i < componentCount_; ++i) {
        const FrameComponent& fc = frame_.component[i];
        Component& c = component_[i];
        c.h = single ? 1 : fc.h;
        c.v = single ? 1 : fc.v;
        c.blocksWide = mcusWide_ * c.h;
        c.blocksHigh = mcusHigh_ * c.v;
        c.ownBlocksWide = CeilDiv(CeilDiv(uint64_t{frame_.width} * c.h, hMax_), unit);
        c.ownBlocksHigh = CeilDiv(CeilDiv(uint64_t{height_} * c.v, vMax_), unit);
        if (!frame_.lossless) {
            const QuantTable& q = tables_.quant[fc.quantTable];
            if (!q.defined) return Fail();
            c.quant = q.natural;
        }
        uint64_t units = uint64_t{c.blocksWide} * c.blocksHigh;
        if (!streaming_) collectedBytes += frame_.lossless ? units * 2 : units * 128;
        c.bandStride = static_cast<ptrdiff_t>(uint64_t{c.blocksWide} * unit);
        c.bandRows = c.v * unit;
        c.realRows = static_cast<uint32_t>(CeilDiv(uint64_t{height_} * c.v, vMax_));
        c.samplesWide = static_cast<uint32_t>(CeilDiv(uint64_t{frame_.width} * c.h, hMax_));
        // Two slots and the kept row above.
        bandBytes += uint64_t{c.blocksWide} * unit * (2 * c.v * unit + 1);
    }
    if (collectedBytes > kMaxWorkingBytes || bandBytes > kMaxWorkingBytes) {
        SetRecordError(record_, kErrNotEnoughMemory, 0);
        return false;
    }
    uint8_t* bands = bands_.Allocate(static_cast<size_t>(bandBytes), true, record_);
    uint8_t* collected = nullptr;
    if (!streaming_) collected = collected_.Allocate(static_cast<size_t>(collectedBytes), true, record_);
    if (scratch_.Allocate(uint64_t{frame_.width} * 4 + 64, false, record_) == nullptr) return false;
    if (bands == nullptr || (!streaming_ && collected == nullptr)) return false;
    for (uint32_t i = 0; i < componentCount_; ++i) {
        Component& c = component_[i];
        const size_t slotBytes = static_cast<size_t>(c.bandStride) * c.bandRows;
        c.slots[0] = bands;
        c.slots[1] = bands + slotBytes;
        c.aboveCopy = bands + 2 * slotBytes;
        c.band = c.slots[0];
        bands += 2 * slotBytes + static_cast<size_t>(c.bandStride);
        if (!streaming_) {
            uint64_t units = uint64_t{c.blocksWide} * c.blocksHigh;
            if (frame_.lossless) {
                c.samples = reinterpret_cast<uint16_t*>(collected);
                collected += units * 2;
            } else {
                c.coefficients = reinterpret_cast<int16_t*>(collected);
                collected += units * 128;
            }
        }
    }
    return true;
}

void FrameDecoder::TransformBlock(const int16_t* coefficients, const uint16_t* quant, uint8_t* out, ptrdiff_t stride) {
    if (frame_.precision == 8) {
        InverseDct8(coefficients, quant, out, stride);
        return;
    }
    uint16_t samples[64];
    InverseDct12(coefficients, quant, samples, 8);
    for (int y = 0; y < 8; ++y) {
        for (int x = 0; x < 8; ++x) out[y * stride + x] = static_cast<uint8_t>(samples[y * 8 + x] >> 4);
    }
}

// A block with only a DC coefficient transforms to 64 equal samples: the
// transform of each DC value is worked out once per component and scan.
void FrameDecoder::FillFlatBlock(uint32_t scanIndex, int16_t dc, const Component& c, uint8_t* out) {
    int16_t* cache = flatValues_[scanIndex];
    uint32_t slot = static_cast<uint16_t>(dc) & (kFlatCacheSize - 1);
    int16_t value = cache[slot];
    if (value < 0 || flatKeys_[scanIndex][slot] != dc) {
        alignas(16) int16_t only[64] = {};
        uint8_t samples[64];
        only[0] = dc;
        InverseDct8(only, c.quant, samples, 8);
        value = samples[0];
        cache[slot] = value;
        flatKeys_[scanIndex][slot] = dc;
    }
    for (int y = 0; y < 8; ++y) std::memset(out + y * c.bandStride, value, 8);
}

bool FrameDecoder::Restart(BitReader* reader, uint32_t* expected, const ScanHeader& scan) {
    if (reader->Overrun()) return Fail();
    uint32_t marker = reader->marker() != 0 ? reader->marker() : reader->FindMarker();
    if (record_->failed()) return false;
    if (marker != kMarkerRst0 + *expected) return Fail();
    *expected = (*expected + 1) & 7;
    reader->Reset();
    for (uint32_t i = 0; i < scan.count; ++i) component_[scan.componentIndex[i]].predictor = 0;
    eobRun_ = 0;
    return true;
}

// After the last MCU of a scan: the data must not have run out, and the
// marker that ends it is found.
bool FrameDecoder::CheckEnd(BitReader* reader) {
    if (record_->failed()) return false;
    if (reader->Overrun()) return Fail();
    if (reader->marker() == 0) reader->FindMarker();
    return record_->ok();
}

bool FrameDecoder::DecodeScan(BitReader* reader, const ScanHeader& scan, uint32_t restartInterval) {
    if (record_->failed()) return false;
    for (uint32_t i = 0; i < scan.count; ++i) component_[scan.componentIndex[i]].predictor = 0;
    eobRun_ = 0;
    reader->Reset();
    if (frame_.lossless) return DecodeLosslessScan(reader, scan, restartInterval);
    if (streaming_) return DecodeStreamingScan(reader, scan, restartInterval);
    return DecodeCollectedScan(reader, scan, restartInterval);
}

bool FrameDecoder::DecodeStreamingScan(BitReader* reader, const ScanHeader& scan, uint32_t restartInterval) {
    alignas(16) int16_t block[64];
    std::memset(block, 0, sizeof(block));
    const HuffmanTable* dc[kMaxScanComponents];
    const HuffmanTable* ac[kMaxScanComponents];
    Component* parts[kMaxScanComponents];
    for (uint32_t i = 0; i < scan.count; ++i) {
        dc[i] = &tables_.dc[scan.dcTable[i]];
        ac[i] = &tables_.ac[scan.acTable[i]];
        parts[i] = &component_[scan.componentIndex[i]];
    }
    McuObserver* observer = options_.observer;
    if (observer != nullptr && !observer->OnScan(frame_, tables_, scan)) return true;
    uint32_t mcuIndex = 0, expected = 0, sinceRestart = 0;
    McuSpan span;
    int32_t before[kMaxScanComponents], after[kMaxScanComponents];
    std::memset(flatValues_, 0xFF, sizeof(flatValues_));
    for (uint32_t row = 0; row < mcusHigh_; ++row) {
        // Rows below the output are not needed unless someone records the MCUs.
        const bool transform = row < transformBands_;
        if (observer == nullptr && !transform) return true;
        if (transform) PrepareBand(row);
        for (uint32_t column = 0; column < mcusWide_; ++column, ++mcuIndex) {
            if (restartInterval != 0 && sinceRestart == restartInterval) {
                if (!Restart(reader, &expected, scan)) return false;
                sinceRestart = 0;
            }
            ++sinceRestart;
            if (observer != nullptr) {
                reader->BitPosition(&span.startByte, &span.startBit);
                for (uint32_t i = 0; i < scan.count; ++i) before[i] = parts[i]->predictor;
            }
            for (uint32_t i = 0; i < scan.count; ++i) {
                Component& c = *parts[i];
                for (uint32_t y = 0; y < c.v; ++y) {
                    uint8_t* out = c.band + static_cast<ptrdiff_t>(y * 8) * c.bandStride + column * c.h * 8;
                    for (uint32_t x = 0; x < c.h; ++x, out += 8) {
                        bool hasAc = true;
                        if (!DecodeSequentialBlock(reader, *dc[i], *ac[i], &c.predictor, block, maxDcCategory_,
                                                   maxAcSize_, &hasAc)) {
                            return Fail();
                        }
                        if (!transform) {
                            std::memset(block, 0, sizeof(block));
                        } else if (hasAc || frame_.precision != 8) {
                            TransformBlock(block, c.quant, out, c.bandStride);
                            std::memset(block, 0, sizeof(block));
                        } else {
                            FillFlatBlock(i, block[0], c, out);
                            block[0] = 0;
                        }
                    }
                }
            }
            if (observer != nullptr) {
                if (reader->Overrun()) return Fail();
                reader->BitPosition(&span.endByte, &span.endBit);
                for (uint32_t i = 0; i < scan.count; ++i) after[i] = parts[i]->predictor;
                if (!observer->OnMcu(mcuIndex, span, before, after, scan.count)) return true;
            }
        }
        if (reader->Overrun()) return Fail();
        if (!EmitBand(row)) return false;
    }
    return CheckEnd(reader);
}

bool FrameDecoder::DecodeCollectedScan(BitReader* reader, const ScanHeader& scan, uint32_t restartInterval) {
    enum class Kind { Sequential, DcFirst, DcRefine, AcFirst, AcRefine } kindOfScan = Kind::Sequential;
    int ss = scan.ss, se = scan.se, al = scan.al;
    if (frame_.progressive) {
        if (ss == 0) {
            kindOfScan = scan.ah == 0 ? Kind::DcFirst : Kind::DcRefine;
        } else {
            kindOfScan = scan.ah == 0 ? Kind::AcFirst : Kind::AcRefine;
        }
    }
    uint32_t expected = 0, sinceRestart = 0;
    auto decodeBlock = [&](uint32_t i, int16_t* block) -> bool {
        Component& c = component_[scan.componentIndex[i]];
        const HuffmanTable& dc = tables_.dc[scan.dcTable[i]];
        const HuffmanTable& ac = tables_.ac[scan.acTable[i]];
        switch (kindOfScan) {
            case Kind::Sequential:
                return DecodeSequentialBlock(reader, dc, ac, &c.predictor, block, maxDcCategory_, maxAcSize_);
            case Kind::DcFirst: return DecodeDcFirst(reader, dc, &c.predictor, block, al, maxDcCategory_);
            case Kind::DcRefine: DecodeDcRefine(reader, block, al); return true;
            case Kind::AcFirst: return DecodeAcFirst(reader, ac, block, ss, se, al, &eobRun_, maxAcSize_);
            case Kind::AcRefine: return DecodeAcRefine(reader, ac, block, ss, se, al, &eobRun_);
        }
        return false;
    };
    auto restartIfDue = [&]() -> bool {
        if (restartInterval != 0 && sinceRestart == restartInterval) {
            if (!Restart(reader, &expected, scan)) return false;
            sinceRestart = 0;
        }
        ++sinceRestart;
        return true;
    };
    if (scan.count == 1) {
        Component& c = component_[scan.componentIndex[0]];
        for (uint32_t by = 0; by < c.ownBlocksHigh; ++by) {
            int16_t* row = c.coefficients + uint64_t{by} * c.blocksWide * 64;
            for (uint32_t bx = 0; bx < c.ownBlocksWide; ++bx) {
                if (!restartIfDue()) return false;
                if (kindOfScan == Kind::Sequential) std::memset(row + bx * 64, 0, 128);
                if (!decodeBlock(0, row + bx * 64)) return Fail();
            }
            if (reader->Overrun()) return Fail();
        }
        return CheckEnd(reader);
    }
    for (uint32_t my = 0; my < mcusHigh_; ++my) {
        for (uint32_t mx = 0; mx < mcusWide_; ++mx) {
            if (!restartIfDue()) return false;
            for (uint32_t i = 0; i < scan.count; ++i) {
                Component& c = component_[scan.componentIndex[i]];
                for (uint32_t y = 0; y < c.v; ++y) {
                    int16_t* block = c.coefficients + (uint64_t{my} * c.v + y) * c.blocksWide * 64 + mx * c.h * 64;
                    for (uint32_t x = 0; x < c.h; ++x, block += 64) {
                        if (kindOfScan == Kind::Sequential) std::memset(block, 0, 128);
                        if (!decodeBlock(i, block)) return Fail();
                    }
                }
            }
        }
        if (reader->Overrun()) return Fail();
    }
    return CheckEnd(reader);
}

bool FrameDecoder::DecodeLosslessScan(BitReader* reader, const ScanHeader& scan, uint32_t restartInterval) {
    const int predictorKind = scan.ss;
    const int pointTransform = scan.al;
    const int32_t initial = 1 << (frame_.precision - pointTransform - 1);
    uint32_t expected = 0, sinceRestart = 0;
    for (uint32_t i = 0; i < scan.count; ++i) {
        Component& c = component_[scan.componentIndex[i]];
        c.lineStart = 0;
        c.restartSample = true;
        c.pointTransform = static_cast<uint8_t>(pointTransform);
    }
    // One sample: its difference, its prediction from the neighbours left
    // (a), above (b) and above-left (c) (T.81 H.1.2.1).
    auto decodeSample = [&](uint32_t i, uint32_t x, uint32_t y) -> bool {
        Component& c = component_[scan.componentIndex[i]];
        const HuffmanTable& table = tables_.dc[scan.dcTable[i]];
        reader->Fill();
        int category = reader->Decode(table);
        if (category < 0 || category > 16) return false;
        int32_t difference = category == 16 ? 32768 : reader->Receive(category);
        uint16_t* here = c.samples + uint64_t{y} * c.blocksWide + x;
        const ptrdiff_t up = static_cast<ptrdiff_t>(c.blocksWide);
        int32_t prediction;
        if (c.restartSample) {
            prediction = initial;
            c.restartSample = false;
        } else if (y == c.lineStart) {
            prediction = x > 0 ? here[-1] : initial;
        } else if (x == 0) {
            prediction = here[-up];
        } else {
            int32_t a = here[-1], b = here[-up], cc = here[-up - 1];
            switch (predictorKind) {
                case 1: prediction = a; break;
                case 2: prediction = b; break;
                case 3: prediction = cc; break;
                case 4: prediction = a + b - cc; break;
                case 5: prediction = a + ((b - cc) >> 1); break;
                case 6: prediction = b + ((a - cc) >> 1); break;
                default: prediction = (a + b) >> 1; break;
            }
        }
        *here = static_cast<uint16_t>(prediction + difference);
        return true;
    };
    auto restartIfDue = [&](uint32_t mcuRow, bool rowStart) -> bool {
        if (restartInterval != 0 && sinceRestart == restartInterval) {
            if (!Restart(reader, &expected, scan)) return false;
            sinceRestart = 0;
            for (uint32_t i = 0; i < scan.count; ++i) {
                Component& c = component_[scan.componentIndex[i]];
                c.restartSample = true;
                if (rowStart) c.lineStart = scan.count == 1 ? mcuRow : mcuRow * c.v;
            }
        }
        ++sinceRestart;
        return true;
    };
    if (scan.count == 1) {
        Component& c = component_[scan.componentIndex[0]];
        for (uint32_t y = 0; y < c.ownBlocksHigh; ++y) {
            for (uint32_t x = 0; x < c.ownBlocksWide; ++x) {
                if (!restartIfDue(y, x == 0)) return false;
                if (!decodeSample(0, x, y)) return Fail();
            }
            if (reader->Overrun()) return Fail();
        }
        return CheckEnd(reader);
    }
    for (uint32_t my = 0; my < mcusHigh_; ++my) {
        for (uint32_t mx = 0; mx < mcusWide_; ++mx) {
            if (!restartIfDue(my, mx == 0)) return false;
            for (uint32_t i = 0; i < scan.count; ++i) {
                Component& c = component_[scan.componentIndex[i]];
                for (uint32_t y = 0; y < c.v; ++y) {
                    for (uint32_t x = 0; x < c.h; ++x) {
                        if (!decodeSample(i, mx * c.h + x, my * c.v + y)) return Fail();
                    }
                }
            }
        }
        if (reader->Overrun()) return Fail();
    }
    return CheckEnd(reader);
}

bool FrameDecoder::Finish() {
    if (record_->failed()) return false;
    if (streaming_) return true;
    for (uint32_t row = 0; row < transformBands_; ++row) {
        PrepareBand(row);
        for (uint32_t i = 0; i < componentCount_; ++i) {
            Component& c = component_[i];
            if (frame_.lossless) {
                // Samples back to their precision (undoing the point
                // transform), then to 8 bits.
                uint32_t shiftUp = 0, shiftDown = 0;
                int precision = frame_.precision;
                if (precision > 8)
                    shiftDown = precision - 8;
                else
                    shiftUp = 8 - precision;
                uint32_t mask = (1u << precision) - 1;
                for (uint32_t y = 0; y < c.v; ++y) {
                    const uint16_t* in = c.samples + (uint64_t{row} * c.v + y) * c.blocksWide;
                    uint8_t* out = c.band + static_cast<ptrdiff_t>(y) * c.bandStride;
                    for (uint32_t x = 0; x < c.blocksWide; ++x) {
                        uint32_t value = (static_cast<uint32_t>(in[x]) << c.pointTransform) & mask;
                        out[x] = static_cast<uint8_t>((value >> shiftDown) << shiftUp);
                    }
                }
                continue;
            }
            for (uint32_t y = 0; y < c.v; ++y) {
                const int16_t* block = c.coefficients + (uint64_t{row} * c.v + y) * c.blocksWide * 64;
                uint8_t* out = c.band + static_cast<ptrdiff_t>(y * 8) * c.bandStride;
                for (uint32_t x = 0; x < c.blocksWide; ++x, block += 64, out += 8) {
                    TransformBlock(block, c.quant, out, c.bandStride);
                }
            }
        }
        if (!EmitBand(row)) return false;
    }
    return true;
}

bool FrameDecoder::HandOver(CoefficientImage* image, CoefficientConsumer* consumer) {
    if (record_->failed()) return false;
    image->width = frame_.width;
    image->height = height_;
    image->precision = frame_.precision;
    image->hMax = hMax_;
    image->vMax = vMax_;
    image->componentCount = componentCount_;
    for (uint32_t i = 0; i < componentCount_; ++i) {
        const Component& c = component_[i];
        CoefficientComponent& out = image->components[i];
        out.id = frame_.component[i].id;
        out.h = frame_.component[i].h;
        out.v = frame_.component[i].v;
        out.quantTable = frame_.component[i].quantTable;
        out.blocksWide = c.blocksWide;
        out.blocksHigh = c.blocksHigh;
        out.blocks = c.coefficients;
    }
    for (uint32_t t = 0; t < kMaxTables; ++t) {
        image->quantDefined[t] = tables_.quant[t].defined;
        std::memcpy(image->quant[t], tables_.quant[t].natural, sizeof image->quant[t]);
    }
    return consumer->Consume(*image, record_);
}

void FrameDecoder::PrepareBand(uint32_t mcuRow) {
    for (uint32_t i = 0; i < componentCount_; ++i) {
        Component& c = component_[i];
        c.band = c.slots[mcuRow % 2];
        // The slot still holds MCU row mcuRow - 2, whose last row lies above
        // MCU row mcuRow - 1, not converted yet.
        if (mcuRow >= 2) {
            std::memcpy(c.aboveCopy, c.band + static_cast<ptrdiff_t>(c.bandRows - 1) * c.bandStride,
                        static_cast<size_t>(c.bandStride));
        }
    }
}

// MCU row `mcuRow` is decoded into its slot: the row before it can now be
// converted with its neighbours, and the last one at once.
bool FrameDecoder::EmitBand(uint32_t mcuRow) {
    if (mcuRow < transformBands_) {
        const uint32_t lastOutput = (outRows_ - 1) / mcuPixelsHigh_;
        if (mcuRow >= 1 && mcuRow - 1 <= lastOutput) ConvertStoredBand(mcuRow - 1, true);
        if (mcuRow == lastOutput && mcuRow + 1 == transformBands_) ConvertStoredBand(mcuRow, false);
    }
    if (options_.progress != nullptr && !options_.progress->Row(mcuRow, mcusHigh_, record_)) return false;
    return true;
}

// Converts the output rows of MCU row `mcuRow`; `followed` when the next MCU
// row sits in the other slot.
void FrameDecoder::ConvertStoredBand(uint32_t mcuRow, bool followed) {
    const uint64_t top = uint64_t{mcuRow} * mcuPixelsHigh_;
    if (top >= outRows_) return;
    const uint32_t rows = static_cast<uint32_t>(std::min<uint64_t>(mcuPixelsHigh_, outRows_ - top));
    ComponentBand bands[kMaxScanComponents];
    for (uint32_t i = 0; i < componentCount_; ++i) {
        const Component& c = component_[i];
        ComponentBand& band = bands[i];
        band.samples = c.slots[mcuRow % 2];
        band.stride = c.bandStride;
        band.h = c.h;
        band.v = c.v;
        if (mcuRow > 0) {
            band.above = followed ? c.aboveCopy
                                  : c.slots[(mcuRow - 1) % 2] + static_cast<ptrdiff_t>(c.bandRows - 1) * c.bandStride;
        }
        band.below = followed ? c.slots[(mcuRow + 1) % 2] : nullptr;
        const uint64_t firstRow = uint64_t{mcuRow} * c.bandRows;
        band.lastRow = followed || c.realRows <= firstRow
                           ? c.bandRows - 1
                           : static_cast<uint32_t>(std::min<uint64_t>(c.bandRows, c.realRows - firstRow) - 1);
        band.samplesWide = c.samplesWide;
    }
    uint8_t* out = options_.output.topRow + static_cast<ptrdiff_t>(top) * options_.output.stride;
    ConvertBand(kind_, bands, outWidth_, rows, hMax_, vMax_, out, options_.output.stride, scratch_.data());
}

}  // namespace velmora::jpeg
