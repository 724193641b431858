#include "jpeg/jpeg_copy.h"

#include <algorithm>
#include <memory>
#include <new>
#include <vector>

#include "jpeg/jpeg_bit_reader.h"
#include "jpeg/jpeg_coefficients.h"
#include "jpeg/jpeg_encoder_segments.h"
#include "jpeg/jpeg_encoder_thumbnail.h"
#include "jpeg/jpeg_huffman_encoder.h"
#include "jpeg/jpeg_marker_codes.h"
#include "jpeg/jpeg_markers.h"
#include "jpeg/jpeg_mcu_index.h"
#include "jpeg/jpeg_private_segment.h"
#include "jpeg/jpeg_tables.h"
#include "frame/scratch_block.h"
#include "frame/memory_handle.h"
#include "io/stream.h"

namespace velmora::jpeg {
namespace {


// What the segments of a copy say: the frame, the tables it uses (null where
// none is written) and its one scan.
struct CopyHeader {
    uint8_t sofMarker = kMarkerSof0;
    uint8_t precision = 8;
    uint32_t width = 0, height = 0;
    uint32_t componentCount = 0;
    JpegComponentInfo component[kMaxJpegInfoComponents];
    const uint16_t* quant[4] = {};  // natural order
    const HuffmanSpec* dc[4] = {};
    const HuffmanSpec* ac[4] = {};
    uint32_t scanCount = 0;
    uint8_t scanComponent[kMaxJpegInfoComponents] = {};  // index into `component`
    uint8_t scanDc[kMaxJpegInfoComponents] = {};
    uint8_t scanAc[kMaxJpegInfoComponents] = {};
};

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

// The library's own resolution and scale segments, as the stream had them.
void WritePrivateSegments(const JpegInfo& info, Stream* stream, ErrorRecord* record) {
    if (info.flags & kHasResolution) {
        WritePrivateSegment(stream,
                            PrivateSegment{PrivateSegmentKind::Resolution, info.densityUnit, info.xDensityNumerator,
                                           info.xDensityDenominator, info.yDensityNumerator, info.yDensityDenominator},
                            record);
    }
    if (info.hasScale) {
        WritePrivateSegment(stream,
                            PrivateSegment{PrivateSegmentKind::Scale, info.scaleUnit, info.xScaleNumerator,
                                           info.xScaleDenominator, info.yScaleNumerator, info.yScaleDenominator},
                            record);
    }
}

// Everything of a copy up to its entropy-coded data. The colour
// interpretation goes with it: a JFIF segment, an Adobe segment, or neither
// (then the component identifiers tell).
void WriteHeader(const JpegInfo& info, const CopyHeader& header, Stream* stream, ErrorRecord* record) {
    WriteMarker(stream, kMarkerSoi, record);
    if (info.flags & kHasJfif) WriteJfif(info, stream, record);
    if (info.flags & kHasAdobe) WriteAdobe(info, stream, record);
    WritePrivateSegments(info, stream, record);

    SegmentBytes dqt(kMarkerDqt);
    for (uint8_t t = 0; t < 4; ++t) {
        const uint16_t* table = header.quant[t];
        if (table == nullptr) continue;
        const bool wide = std::any_of(table, table + 64, [](uint16_t q) { return q > 255; });
        dqt.Put8((wide ? 0x10 : 0x00) | t);
        for (int k = 0; k < 64; ++k) {
            if (wide) {
                dqt.Put16(table[kZigZag[k]]);
            } else {
                dqt.Put8(table[kZigZag[k]]);
            }
        }
    }
    dqt.Write(stream, record);

    SegmentBytes sof(header.sofMarker);
    sof.Put8(header.precision);
    sof.Put16(header.height);
    sof.Put16(header.width);
    sof.Put8(header.componentCount);
    for (uint32_t i = 0; i < header.componentCount; ++i) {
        const JpegComponentInfo& c = header.component[i];
        sof.Put8(c.id);
        sof.Put8(static_cast<uint32_t>(c.h) << 4 | c.v);
        sof.Put8(c.quantTable);
    }
    sof.Write(stream, record);
    for (uint8_t t = 0; t < 4; ++t) {
        if (header.dc[t] != nullptr) WriteHuffmanSegment(stream, 0, t, *header.dc[t], record);
        if (header.ac[t] != nullptr) WriteHuffmanSegment(stream, 1, t, *header.ac[t], record);
    }
    SegmentBytes sos(kMarkerSos);
    sos.Put8(header.scanCount);
    for (uint32_t i = 0; i < header.scanCount; ++i) {
        sos.Put8(header.component[header.scanComponent[i]].id);
        sos.Put8(static_cast<uint32_t>(header.scanDc[i]) << 4 | header.scanAc[i]);
    }
    sos.Put8(0);
    sos.Put8(63);
    sos.Put8(0);
    sos.Write(stream, record);
}

// Ends a copy's stream and hands its bytes over.
HGLOBAL FinishCopy(Stream* stream, DWORD* size, ErrorRecord* record) {
    WriteMarker(stream, kMarkerEoi, record);
    const uint64_t bytes = StreamSize(stream, record);
    HGLOBAL copy = CloseStream(stream, record);
    if (record->failed()) {
        FreeHandle(&copy);
        return nullptr;
    }
    *size = static_cast<DWORD>(bytes);
    return copy;
}

// ---------------------------------------------------------------------------
// Re-coding the quantised coefficients.

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

// Codes the rectangle's MCUs of the image it is handed as a new stream.
class CoefficientCopier : public CoefficientConsumer {
public:
    explicit CoefficientCopier(const CopyRequest& request) : request_(request) {}
    bool Consume(const CoefficientImage& image, ErrorRecord* record) override;
    HGLOBAL TakeCopy(DWORD* size) {
        *size = size_;
        HGLOBAL copy = copy_;
        copy_ = nullptr;
        return copy;
    }
    ~CoefficientCopier() override { FreeHandle(&copy_); }

private:
    const CopyRequest& request_;
    HGLOBAL copy_ = nullptr;
    DWORD size_ = 0;
};

bool CoefficientCopier::Consume(const CoefficientImage& image, ErrorRecord* record) {
    const CopyRequest& request = request_;
    const uint32_t count = image.componentCount;
    const bool single = count == 1;
    const uint32_t mcuWidth = single ? 8u : 8u * image.hMax;
    const uint32_t mcuHeight = single ? 8u : 8u * image.vMax;
    const uint32_t mcusWide = (request.right - request.left) / mcuWidth;
    const uint32_t mcusHigh = (request.bottom - request.top) / mcuHeight;
    std::vector<ComponentWindow> windows;
    CopyHeader header;
    header.precision = image.precision;
    header.width = request.right - request.left;
    header.height = request.bottom - request.top;
    header.componentCount = header.scanCount = count;
    for (uint32_t c = 0; c < count; ++c) {
        const CoefficientComponent& component = image.components[c];
        const uint32_t h = single ? 1 : component.h;
        const uint32_t v = single ? 1 : component.v;
        const uint8_t huffman = static_cast<uint8_t>(c == 0 ? 0 : 1);
        windows.push_back({&component, request.left / mcuWidth * h, request.top / mcuHeight * v, huffman});
        header.component[c] = JpegComponentInfo{component.id, component.h, component.v, component.quantTable};
        header.scanComponent[c] = static_cast<uint8_t>(c);
        header.scanDc[c] = header.scanAc[c] = huffman;
        if (image.quantDefined[component.quantTable])
            header.quant[component.quantTable] = image.quant[component.quantTable];
    }
    bool wideTables = false;
    for (const uint16_t* table : header.quant) {
        if (table != nullptr) wideTables |= std::any_of(table, table + 64, [](uint16_t q) { return q > 255; });
    }
    header.sofMarker = image.precision == 8 && !wideTables ? uint8_t{kMarkerSof0} : uint8_t{kMarkerSof1};

    // Huffman tables: the examples of Annex K, or tables for these symbols
    // (always at precisions the examples do not cover).
    const bool optimise = request.optimiseTables || image.precision != 8;
    const uint8_t tableSets = single ? 1 : 2;
    OptimalHuffman optimal[2][2];  // [set][0 DC, 1 AC]
    uint32_t frequencies[2][2][257] = {};
    int32_t lastDc[4] = {};
    // The DC values of a damaged stream can drift so far that a difference
    // between two blocks brought together by the copy has no category, and
    // successive approximation can shift AC values beyond any.
    const uint32_t maxDcCategory = image.precision + 3u, maxAcCategory = image.precision + 2u;
    bool codable = true;
    ForEachBlock(windows, mcusWide, mcusHigh, nullptr, record, [&](const ComponentWindow& w, const int16_t* block) {
        const size_t index = static_cast<size_t>(w.component - image.components);
        if (Category(block[0] - lastDc[index]) > maxDcCategory) codable = false;
        for (int k = 1; k < 64; ++k) {
            if (Category(block[k]) > maxAcCategory) codable = false;
        }
        CountBlock(block, &lastDc[index], frequencies[w.huffman][0], frequencies[w.huffman][1]);
    });
    if (!codable) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    if (optimise) {
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
        header.dc[set] = specs[set][0];
        header.ac[set] = specs[set][1];
        for (int kind = 0; kind < 2; ++kind) MakeHuffmanCodes(*specs[set][kind], &codes[set][kind]);
    }

    Stream* stream = OpenMemoryStream(false, record);
    if (stream == nullptr) return false;
    WriteHeader(image.info, header, stream, record);
    EntropyWriter writer;
    std::fill(lastDc, lastDc + 4, 0);
    if (writer.Begin(stream, record)) {
        ForEachBlock(windows, mcusWide, mcusHigh, request.progress, record,
                     [&](const ComponentWindow& w, const int16_t* block) {
                         const size_t index = static_cast<size_t>(w.component - image.components);
                         writer.EncodeBlock(block, &lastDc[index], codes[w.huffman][0], codes[w.huffman][1]);
                     });
        writer.Finish();
    }
    copy_ = FinishCopy(stream, &size_, record);
    return copy_ != nullptr;
}

HGLOBAL RecodeMcus(const JpegSource& source, const CopyRequest& request, DWORD* size, ErrorRecord* record) {
    CoefficientCopier copier(request);
    if (!ReadJpegCoefficients(source, &copier, record)) return nullptr;
    return copier.TakeCopy(size);
}

// ---------------------------------------------------------------------------
// Splicing entropy-coded MCUs.

// Indexes the rectangle's MCUs while the scan is entropy-decoded, and stops
// the decode after the last of them.
class IndexBuilder : public McuObserver {
public:
    // The rectangle in MCUs; `mcusWide` is the image's width in MCUs.
    IndexBuilder(uint32_t mcusWide, uint32_t left, uint32_t top, uint32_t right, uint32_t bottom, ErrorRecord* record)
        : mcusWide_(mcusWide), left_(left), top_(top), right_(right), bottom_(bottom), record_(record) {}

    bool OnScan(const Frame& frame, const DecoderTables& tables, const ScanHeader& scan) override {
        if (frame.componentCount > kMaxIndexComponents) return false;
        tables_.reset(new (std::nothrow) DecoderTables(tables));
        if (tables_ == nullptr) return false;
        frame_ = frame;
        scan_ = scan;
        index_.Reset(scan.count);
        return true;
    }

    bool OnMcu(uint32_t mcuIndex, const McuSpan& span, const int32_t* before, const int32_t* after,
               uint32_t componentCount) override {
        const uint32_t row = mcuIndex / mcusWide_, column = mcuIndex % mcusWide_;
        if (row < top_ || column < left_ || column >= right_) return true;
        McuIndexEntry entry;
        entry.span = span;
        for (uint32_t i = 0; i < componentCount && i < kMaxIndexComponents; ++i) {
            entry.before[i] = before[i];
            entry.after[i] = after[i];
        }
        if (!index_.Append(entry, record_)) {
            malformed_ = true;
            return false;
        }
        return !(row + 1 == bottom_ && column + 1 == right_);
    }

    // The scan was seen (the stream can be spliced) and fully indexed.
    bool scanSeen() const { return tables_ != nullptr; }
    bool complete() const { return !malformed_ && index_.entries() == uint64_t{right_ - left_} * (bottom_ - top_); }

    const Frame& frame() const { return frame_; }
    const ScanHeader& scan() const { return scan_; }
    const DecoderTables& tables() const { return *tables_; }
    const McuIndex& index() const { return index_; }

private:
    uint32_t mcusWide_, left_, top_, right_, bottom_;
    ErrorRecord* record_;
    bool malformed_ = false;
    std::unique_ptr<DecoderTables> tables_;
    Frame frame_;
    ScanHeader scan_;
    McuIndex index_;
};

// Entropy-coded data with its stuffed zero bytes, fill bytes and restart
// markers taken out, read from any bit on. Reads past the end give zero
// bits.
class PlainBits {
public:
    PlainBits(const uint8_t* data, size_t size, uint64_t position) : data_(data), size_(size), position_(position) {}

    uint32_t Peek(int n) const { return Window() >> (32 - n); }
    void Skip(int n) { position_ += static_cast<uint64_t>(n); }
    int32_t Receive(int n) {
        if (n == 0) return 0;
        const int32_t value = static_cast<int32_t>(Peek(n));
        Skip(n);
        return value < (1 << (n - 1)) ? value - (1 << n) + 1 : value;
    }
    uint64_t position() const { return position_; }

private:
    // 25 or more bits from the position on, at the top of the value.
    uint32_t Window() const {
        uint32_t word = 0;
        for (uint64_t at = position_ / 8, i = 0; i < 4; ++i, ++at) word = word << 8 | (at < size_ ? data_[at] : 0u);
        return word << (position_ % 8);
    }

    const uint8_t* data_;
    size_t size_;
    uint64_t position_;
};

class Splicer {
public:
    Splicer(const IndexBuilder& built, EntropyWriter* writer) : built_(built), writer_(writer) {}

    // Takes the source bytes from `rangeStart` (as the index counts them) on
    // out of their stuffing; false when memory is short or the data holds
    // a marker that no entropy-coded data can.
    bool Load(const uint8_t* bytes, size_t count, uint64_t rangeStart, ErrorRecord* record);
    // Codes the Huffman tables' DC codes for re-coding differences.
    void PrepareCodes(const HuffmanSpec* dcSpecs);
    // Writes every indexed MCU. Sets *recode (and leaves the copy
    // incomplete) when a DC difference has no code in the stream's table.
    bool Write(bool* recode, ErrorRecord* record);

private:
    uint64_t PlainPosition(uint64_t byte, uint32_t bit) const;
    void CopyBits(uint64_t from, uint64_t to);
    enum class Outcome { Written, Malformed, NoCode };
    Outcome RespliceMcu(const McuIndexEntry& entry, uint64_t start, uint64_t end, const int32_t* predictors);

    const IndexBuilder& built_;
    EntropyWriter* writer_;
    ScratchBlock plain_;
    size_t plainBytes_ = 0;
    uint64_t plainBits_ = 0;
    uint64_t rangeStart_ = 0;
    CheckedArray<uint64_t> removed_;  // offsets from rangeStart_ of the bytes taken out
    HuffmanCodes dcCodes_[4] = {};
};

bool Splicer::Load(const uint8_t* bytes, size_t count, uint64_t rangeStart, ErrorRecord* record) {
    uint8_t* plain = plain_.Allocate(count != 0 ? count : 1, false, record);
    if (plain == nullptr) return false;
    rangeStart_ = rangeStart;
    size_t used = 0;
    for (size_t i = 0; i < count; ++i) {
        const uint8_t byte = bytes[i];
        if (byte != 0xFF || i + 1 == count) {
            plain[used++] = byte;
            continue;
        }
        const uint8_t next = bytes[i + 1];
        if (next == 0x00) {  // a stuffed zero byte
            plain[used++] = byte;
            if (!removed_.Append(++i, record)) return false;
        } else if (next == 0xFF) {  // a fill byte before a marker
            if (!removed_.Append(i, record)) return false;
        } else if (next >= kMarkerRst0 && next < kMarkerRst0 + 8) {
            if (!removed_.Append(i, record) || !removed_.Append(++i, record)) return false;
        } else {
            SetRecordError(record, kErrBadFileData, 0);
            return false;
        }
    }
    plainBytes_ = used;
    plainBits_ = uint64_t{used} * 8;
    return true;
}

void Splicer::PrepareCodes(const HuffmanSpec* dcSpecs) {
    for (int t = 0; t < 4; ++t) {
        if (dcSpecs[t].symbolCount != 0) MakeHuffmanCodes(dcSpecs[t], &dcCodes_[t]);
    }
}

uint64_t Splicer::PlainPosition(uint64_t byte, uint32_t bit) const {
    const uint64_t offset = byte - rangeStart_;
    const uint64_t taken =
        static_cast<uint64_t>(std::lower_bound(removed_.begin(), removed_.end(), offset) - removed_.begin());
    return (offset - taken) * 8 + bit;
}

void Splicer::CopyBits(uint64_t from, uint64_t to) {
    PlainBits bits(plain_.data(), plainBytes_, from);
    uint64_t left = to - from;
    for (; left >= 24; left -= 24) {
        writer_->PutBits(bits.Peek(24), 24);
        bits.Skip(24);
    }
    if (left != 0) writer_->PutBits(bits.Peek(static_cast<int>(left)), static_cast<uint32_t>(left));
}

// An MCU whose DC predictors in the copy differ from those it was coded
// against: its bits are copied except the first DC difference of each
// component whose predictor differs, which is coded again so that the
// block keeps its DC value.
Splicer::Outcome Splicer::RespliceMcu(const McuIndexEntry& entry, uint64_t start, uint64_t end,
                                      const int32_t* predictors) {
    const Frame& frame = built_.frame();
    const ScanHeader& scan = built_.scan();
    const DecoderTables& tables = built_.tables();
    const int maxCategory = frame.precision + 3;
    PlainBits bits(plain_.data(), plainBytes_, start);
    uint64_t copied = start;
    for (uint32_t i = 0; i < scan.count; ++i) {
        const FrameComponent& c = frame.component[scan.componentIndex[i]];
        const uint32_t blocks = scan.count == 1 ? 1u : uint32_t{c.h} * c.v;
        const HuffmanTable& dc = tables.dc[scan.dcTable[i]];
        const HuffmanTable& ac = tables.ac[scan.acTable[i]];
        for (uint32_t b = 0; b < blocks; ++b) {
            const uint64_t dcStart = bits.position();
            const int category = DecodeSymbol(bits, dc);
            if (category < 0 || category > maxCategory) return Outcome::Malformed;
            const int32_t difference = bits.Receive(category);
            if (b == 0 && predictors[i] != entry.before[i]) {
                const uint32_t value = static_cast<uint32_t>(entry.before[i]) + static_cast<uint32_t>(difference);
                const int32_t again = static_cast<int32_t>(value - static_cast<uint32_t>(predictors[i]));
                const HuffmanCodes& codes = dcCodes_[scan.dcTable[i]];
                const uint32_t newCategory = Category(again);
                if (newCategory > static_cast<uint32_t>(maxCategory)) return Outcome::Malformed;
                if (codes.length[newCategory] == 0) return Outcome::NoCode;
                CopyBits(copied, dcStart);
                writer_->EncodeDifference(again, codes);
                copied = bits.position();
            }
            int k = 1;
            while (k < 64) {
                const int symbol = DecodeSymbol(bits, ac);
                if (symbol < 0) return Outcome::Malformed;
                const int run = symbol >> 4, size = symbol & 15;
                if (size == 0) {
                    if (run != 15) break;  // end of block
                    k += 16;
                    continue;
                }
                bits.Skip(size);
                k += run + 1;
            }
            if (k > 64 || bits.position() > end) return Outcome::Malformed;
        }
    }
    if (bits.position() != end) return Outcome::Malformed;
    CopyBits(copied, end);
    return Outcome::Written;
}

bool Splicer::Write(bool* recode, ErrorRecord* record) {
    const McuIndex& index = built_.index();
    const uint32_t count = built_.scan().count;
    int32_t predictors[kMaxIndexComponents] = {};  // the copy's, before the next MCU
    McuIndex::Reader reader(index);
    McuIndexEntry entry;
    while (reader.Next(&entry)) {
        const uint64_t start = PlainPosition(entry.span.startByte, entry.span.startBit);
        const uint64_t end = PlainPosition(entry.span.endByte, entry.span.endBit);
        if (end <= start || end > plainBits_) {
            SetRecordError(record, kErrBadFileData, 0);
            return false;
        }
        if (std::equal(predictors, predictors + count, entry.before)) {
            CopyBits(start, end);
        } else {
            const Outcome outcome = RespliceMcu(entry, start, end, predictors);
            if (outcome == Outcome::NoCode) {
                *recode = true;
                return true;
            }
            if (outcome == Outcome::Malformed) {
                SetRecordError(record, kErrBadFileData, 0);
                return false;
            }
        }
        std::copy(entry.after, entry.after + count, predictors);
    }
    return record->ok();
}

// Reads `count` bytes of the source from `offset` into `buffer`.
const uint8_t* SourceBytes(const JpegSource& source, uint64_t sourceStart, uint64_t offset, uint64_t count,
                           ScratchBlock* buffer, ErrorRecord* record) {
    if (source.stream == nullptr) {
        if (offset > source.size || count > source.size - offset) {
            SetRecordError(record, kErrBadFileData, 0);
            return nullptr;
        }
        return source.data + offset;
    }
    if (count > 0xFFFFFFFFu) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return nullptr;
    }
    uint8_t* bytes = buffer->Allocate(static_cast<size_t>(count), false, record);
    if (bytes == nullptr) return nullptr;
    StreamSeek64(source.stream, sourceStart + offset, record);
    StreamRead(source.stream, bytes, static_cast<uint32_t>(count), kErrBadFileData, record);
    return record->ok() ? bytes : nullptr;
}

// Splices the rectangle (in MCUs) out of the stream. Null with *recode set
// when the stream has to be re-coded instead.
HGLOBAL SpliceMcus(const JpegSource& source, uint64_t sourceStart, const JpegInfo& info, const CopyRequest& request,
                   bool* recode, DWORD* size, ErrorRecord* record) {
    const uint32_t mcusWide = (info.width + info.mcuWidth - 1) / info.mcuWidth;
    IndexBuilder built(mcusWide, request.left / info.mcuWidth, request.top / info.mcuHeight,
                       request.right / info.mcuWidth, request.bottom / info.mcuHeight, record);
    JpegDecoder decoder;
    JpegDecodeOptions options;
    options.output.width = info.width;
    options.output.height = info.height;  // for a frame whose height a DNL segment gives
    options.progress = request.progress;
    options.observer = &built;
    if (!decoder.Decode(source, options, record) || record->failed()) return nullptr;
    if (!built.scanSeen()) {
        *recode = true;
        return nullptr;
    }
    if (!built.complete()) {
        SetRecordError(record, kErrBadFileData, 0);
        return nullptr;
    }

    // The bytes from the first MCU's start to the last one's end.
    const McuSpan extent = built.index().Extent();
    const uint64_t rangeStart = extent.startByte;
    const uint64_t rangeEnd = extent.endByte + (extent.endBit != 0 ? 1 : 0);
    ScratchBlock buffer;
    const uint8_t* bytes = SourceBytes(source, sourceStart, rangeStart, rangeEnd - rangeStart, &buffer, record);
    if (bytes == nullptr) return nullptr;
    EntropyWriter writer;
    Splicer splicer(built, &writer);
    if (!splicer.Load(bytes, static_cast<size_t>(rangeEnd - rangeStart), rangeStart, record)) return nullptr;

    // The frame, tables and scan as the stream has them, over the rectangle.
    const Frame& frame = built.frame();
    const ScanHeader& scan = built.scan();
    const DecoderTables& tables = built.tables();
    CopyHeader header;
    header.sofMarker = frame.marker;
    header.precision = frame.precision;
    header.width = request.right - request.left;
    header.height = request.bottom - request.top;
    header.componentCount = header.scanCount = frame.componentCount;
    HuffmanSpec dcSpecs[4] = {}, acSpecs[4] = {};
    for (uint32_t c = 0; c < frame.componentCount; ++c) {
        const FrameComponent& fc = frame.component[c];
        header.component[c] = JpegComponentInfo{fc.id, fc.h, fc.v, fc.quantTable};
        header.quant[fc.quantTable] = tables.quant[fc.quantTable].natural;
    }
    auto specOf = [](const HuffmanTable& table, HuffmanSpec* spec) {
        std::copy(table.counts, table.counts + 16, spec->counts);
        spec->symbols = table.values;
        spec->symbolCount = table.valueCount;
        return spec;
    };
    for (uint32_t i = 0; i < scan.count; ++i) {
        header.scanComponent[i] = scan.componentIndex[i];
        header.scanDc[i] = scan.dcTable[i];
        header.scanAc[i] = scan.acTable[i];
        header.dc[scan.dcTable[i]] = specOf(tables.dc[scan.dcTable[i]], &dcSpecs[scan.dcTable[i]]);
        header.ac[scan.acTable[i]] = specOf(tables.ac[scan.acTable[i]], &acSpecs[scan.acTable[i]]);
    }
    splicer.PrepareCodes(dcSpecs);
    Stream* stream = OpenMemoryStream(false, record);
    if (stream == nullptr) return nullptr;
    WriteHeader(info, header, stream, record);
    if (writer.Begin(stream, record) && splicer.Write(recode, record)) writer.Finish();
    if (*recode || record->failed()) {
        HGLOBAL discarded = CloseStream(stream, record);
        FreeHandle(&discarded);
        return nullptr;
    }
    return FinishCopy(stream, size, record);
}

}  // namespace

HGLOBAL CopyJpegMcus(const JpegSource& source, const CopyRequest& request, DWORD* size, ErrorRecord* record) {
    if (record->failed()) return nullptr;
    const uint64_t start = source.stream != nullptr ? StreamTell(source.stream) : 0;
    auto rewind = [&] {
        if (source.stream != nullptr) StreamSeek64(source.stream, start, record);
        return record->ok();
    };
    JpegInfo info;
    if (!ReadJpegInfo(source, kInfoWhole, &info, record)) return nullptr;
    if (info.process != kProcessBaseline && info.process != kProcessExtended && info.process != kProcessProgressive) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return nullptr;
    }
    // Coefficients and entropy-coded data are only meaningful under the
    // tables of the first scan.
    if ((info.flags & kSingleTables) == 0) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return nullptr;
    }
    if (info.height == 0) {
        SetRecordError(record, kErrBadFileData, 0);
        return nullptr;
    }
    if (request.right > info.width || request.bottom > info.height || request.left >= request.right ||
        request.top >= request.bottom || request.left % info.mcuWidth != 0 || request.top % info.mcuHeight != 0 ||
        request.right % info.mcuWidth != 0 || request.bottom % info.mcuHeight != 0) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return nullptr;
    }
    if (!request.optimiseTables && info.process != kProcessProgressive) {
        bool recode = false;
        if (!rewind()) return nullptr;
        HGLOBAL copy = SpliceMcus(source, start, info, request, &recode, size, record);
        if (!recode) return copy;
    }
    if (!rewind()) return nullptr;
    return RecodeMcus(source, request, size, record);
}

}  // namespace velmora::jpeg
