#include "codecs/fax_decoder.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>

#include "codecs/fax_bit_reader.h"
#include "codecs/fax_tables.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint32_t kTwoDimensional = 0x1;       // T4Options
constexpr uint32_t kFillBits = 0x4;             // T4Options
constexpr uint32_t kUncompressedAllowed = 0x2;  // T6Options

// A row is held as its changing elements: the columns where the colour
// changes, the first one from white to black, in increasing order (equal
// columns only in bad data). At least kSentinels copies of the row width
// follow the last one, so that walks along a reference row stop by
// themselves.
constexpr uint32_t kSentinels = 3;

enum class Coding { kModifiedHuffman, kGroup3, kGroup4 };
enum class RowEnd { kComplete, kEndOfLine, kFailed };
enum class RunEnd { kTerminated, kEndOfLine, kFailed };

// Reads one run of the given colour, adding it to `column`: make-up codes
// and then a terminating code. An EOL is left in the input; a run past
// `width` fails (with the column cut at the width).
template <bool kBlack>
inline RunEnd ReadRun(FaxBitReader& in, const FaxTables& tables, uint32_t& column, uint32_t width) {
    const FaxCode* table = kBlack ? tables.black : tables.white;
    constexpr uint64_t kMask = kBlack ? (1u << kFaxBlackBits) - 1 : (1u << kFaxWhiteBits) - 1;
    constexpr uint8_t kTerminating = kBlack ? kFaxBlackTerminating : kFaxWhiteTerminating;
    constexpr uint8_t kMakeUp = kBlack ? kFaxBlackMakeUpCode : kFaxWhiteMakeUpCode;
    for (;;) {
        if (!in.Fill()) return RunEnd::kFailed;
        const FaxCode code = table[in.Peek() & kMask];
        if (code.kind == kTerminating || code.kind == kMakeUp || code.kind == kFaxExtendedMakeUpCode) {
            in.Drop(code.length);
            column += code.value;
            if (column > width) {
                column = width;
                return RunEnd::kFailed;
            }
            if (code.kind == kTerminating) return RunEnd::kTerminated;
            continue;
        }
        return code.kind == kFaxZeros ? RunEnd::kEndOfLine : RunEnd::kFailed;
    }
}

inline RunEnd ReadRunOfColour(bool black, FaxBitReader& in, const FaxTables& tables, uint32_t& column, uint32_t width) {
    return black ? ReadRun<true>(in, tables, column, width) : ReadRun<false>(in, tables, column, width);
}

inline RowEnd RowEndOf(RunEnd end) { return end == RunEnd::kEndOfLine ? RowEnd::kEndOfLine : RowEnd::kFailed; }

inline void EndRow(int32_t* changes, uint32_t count, uint32_t width) {
    for (uint32_t i = 0; i < kSentinels; ++i) changes[count + i] = static_cast<int32_t>(width);
}

// One row of alternating white and black runs (Modified Huffman, and the
// one-dimensional rows of Group 3). A row cut short keeps the black run in
// progress as far as it was decoded; the rest of the row is white.
RowEnd DecodeOneDimensionalRow(FaxBitReader* reader, const FaxTables& tables, uint32_t width, uint32_t capacity,
                               int32_t* changes) {
    FaxBitReader in = *reader;
    uint32_t count = 0;
    uint32_t column = 0;
    RowEnd end = RowEnd::kComplete;
    for (;;) {
        RunEnd run = ReadRun<false>(in, tables, column, width);
        if (run != RunEnd::kTerminated) {
            end = RowEndOf(run);
            break;
        }
        if (column >= width) break;
        if (count + 2 > capacity) {  // room for this black run and its end
            end = RowEnd::kFailed;
            break;
        }
        changes[count++] = static_cast<int32_t>(column);
        run = ReadRun<true>(in, tables, column, width);
        if (run != RunEnd::kTerminated) end = RowEndOf(run);
        if (column >= width) break;
        changes[count++] = static_cast<int32_t>(column);
        if (end != RowEnd::kComplete) break;
    }
    EndRow(changes, count, width);
    *reader = in;
    return end;
}

// One two-dimensional row coded against the reference row `reference`
// (ITU-T T.4 section 4.2, T.6). A row cut short is completed to the width:
// the colour after its last changing element runs to the end.
RowEnd DecodeTwoDimensionalRow(FaxBitReader* reader, const FaxTables& tables, uint32_t width, uint32_t capacity,
                               const int32_t* reference, int32_t* changes) {
    FaxBitReader in = *reader;
    const int32_t lastColumn = static_cast<int32_t>(width);
    uint32_t count = 0;
    uint32_t b = 0;   // index of b1 on the reference row; same parity as `count`
    int32_t a0 = -1;  // the imaginary white pixel before the row
    RowEnd end = RowEnd::kComplete;
    for (;;) {
        // b1: the first changing element right of a0 of the colour opposite
        // to a0's, which is the parity of its index.
        while (reference[b] <= a0) b += 2;
        if (!in.Fill()) {
            end = RowEnd::kFailed;
            break;
        }
        const FaxCode code = tables.mode[in.Peek() & ((1u << kFaxModeBits) - 1)];
        if (code.kind == kFaxVertical0 || code.kind == kFaxVerticalLeft || code.kind == kFaxVerticalRight) {
            int32_t offset = code.kind == kFaxVerticalLeft    ? -static_cast<int32_t>(code.value)
                             : code.kind == kFaxVerticalRight ? static_cast<int32_t>(code.value)
                                                              : 0;
            int32_t a1 = reference[b] + offset;
            if (a1 < std::max(a0, 0) || a1 > lastColumn) {
                end = RowEnd::kFailed;
                break;
            }
            in.Drop(code.length);
            if (a1 == lastColumn) break;
            if (count >= capacity) {
                end = RowEnd::kFailed;
                break;
            }
            changes[count++] = a1;
            a0 = a1;
            b = b > 0 ? b - 1 : 1;  // the colour changed: b1 has the other parity
            continue;
        }
        if (code.kind == kFaxPass) {
            in.Drop(code.length);
            a0 = reference[b + 1];  // b2; a0's colour goes on
            b += 2;
            if (a0 >= lastColumn) break;
            continue;
        }
        if (code.kind == kFaxHorizontal) {
            in.Drop(code.length);
            const bool black = (count & 1) != 0;
            uint32_t column = static_cast<uint32_t>(std::max(a0, 0));
            RunEnd run = ReadRunOfColour(black, in, tables, column, width);
            if (run != RunEnd::kTerminated) {
                end = RowEndOf(run);
                break;
            }
            uint32_t a1 = column;
            run = ReadRunOfColour(!black, in, tables, column, width);
            if (count + 2 > capacity) {
                end = RowEnd::kFailed;
                break;
            }
            if (a1 < width) changes[count++] = static_cast<int32_t>(a1);
            if (run != RunEnd::kTerminated) {
                end = RowEndOf(run);
                break;
            }
            if (column < width) changes[count++] = static_cast<int32_t>(column);
            a0 = static_cast<int32_t>(column);
            if (a0 >= lastColumn) break;
            continue;
        }
        // An EOL, the extension code (uncompressed mode) or no code at all.
        end = code.kind == kFaxZeros ? RowEnd::kEndOfLine : RowEnd::kFailed;
        break;
    }
    EndRow(changes, count, width);
    *reader = in;
    return end;
}

// Skips past the next EOL: up to eleven zeros in a row, any further zeros
// (fill bits), and the one that ends it. False when the data ends first.
bool SkipEndOfLine(FaxBitReader* reader) {
    FaxBitReader in = *reader;
    bool found = false;
    for (;;) {
        if (!in.Fill()) break;
        if ((in.Peek() & 0xFFF) == 0x800) {  // the plain EOL
            in.Drop(12);
            found = true;
            break;
        }
        uint32_t window = static_cast<uint32_t>(in.Peek() & 0x7FF);
        if (window != 0) {
            in.Drop(static_cast<unsigned>(std::bit_width(window)));  // past the window's last one
            continue;
        }
        for (;;) {
            if (!in.Fill()) break;
            int held = in.count();
            uint64_t real = in.Peek() & (held >= 64 ? ~uint64_t{0} : (uint64_t{1} << held) - 1);
            if (real != 0) {
                in.Drop(static_cast<unsigned>(std::countr_zero(real)) + 1);
                found = true;
                break;
            }
            in.Drop(static_cast<unsigned>(held));
        }
        break;
    }
    *reader = in;
    return found;
}

// Sets bits [from, to) of a row, most significant bit first.
inline void SetBits(uint8_t* row, uint32_t from, uint32_t to) {
    uint32_t first = from >> 3;
    uint32_t last = (to - 1) >> 3;
    uint8_t head = static_cast<uint8_t>(0xFFu >> (from & 7));
    uint8_t tail = static_cast<uint8_t>(0xFF00u >> (((to - 1) & 7) + 1));
    if (first == last) {
        row[first] |= head & tail;
        return;
    }
    row[first] |= head;
    uint32_t middle = last - first - 1;
    if (middle <= 4) {
        for (uint32_t i = 1; i <= middle; ++i) row[first + i] = 0xFF;
    } else {
        std::memset(row + first + 1, 0xFF, middle);
    }
    row[last] |= tail;
}

// Draws the black runs of a row (pairs of changing elements, ended by the
// sentinels) into an output row, clipped to `outputWidth`.
void DrawRow(uint8_t* row, const int32_t* changes, uint32_t outputWidth) {
    for (uint32_t i = 0;; i += 2) {
        uint32_t from = static_cast<uint32_t>(changes[i]);
        if (from >= outputWidth) break;
        uint32_t to = std::min(static_cast<uint32_t>(changes[i + 1]), outputWidth);
        if (from < to) SetBits(row, from, to);
    }
}

class FaxDecoder final : public StripDecoder {
public:
    explicit FaxDecoder(uint16_t compression) : compression_(compression) {}
    ~FaxDecoder() override { End(); }

    bool Begin(const CodecPage& page, ErrorRecord* record) override;
    bool Decode(const CodecStrip& strip, ErrorRecord* record) override;
    void End() override;

private:
    bool ReportProgress(const CodecStrip& strip, uint32_t rowsDone, ErrorRecord* record) const;

    uint16_t compression_;
    Coding coding_ = Coding::kModifiedHuffman;
    uint32_t alignBits_ = 8;  // Modified Huffman rows start on multiples of this
    bool twoDimensional_ = false;
    bool fillBits_ = false;
    bool mostSignificantFirst_ = true;
    uint32_t width_ = 0;
    uint32_t outputWidth_ = 0;
    uint32_t rowsPerStrip_ = 0;
    uint32_t stripCount_ = 0;
    uint32_t capacity_ = 0;
    const FaxTables* tables_ = nullptr;
    HGLOBAL state_ = nullptr;
    int32_t* lines_ = nullptr;  // two rows of changing elements
};

bool FaxDecoder::Begin(const CodecPage& page, ErrorRecord* record) {
    End();
    if (record->failed()) return false;
    switch (compression_) {
        case kCompressionCcittRle:
            coding_ = Coding::kModifiedHuffman;
            alignBits_ = 8;
            break;
        case kCompressionCcittRleWord:
            coding_ = Coding::kModifiedHuffman;
            alignBits_ = 16;
            break;
        case kCompressionCcittGroup3: coding_ = Coding::kGroup3; break;
        case kCompressionCcittGroup4:
            coding_ = Coding::kGroup4;
            if (page.t6Options & kUncompressedAllowed) {
                SetRecordError(record, kErrUnsupportedImageType, 0);
                return false;
            }
            break;
        default: SetRecordError(record, kErrUnknownImageType, 0); return false;
    }
    if (page.imageWidth == 0 || page.imageWidth > kMaxFaxWidth) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    twoDimensional_ = coding_ == Coding::kGroup3 && (page.t4Options & kTwoDimensional) != 0;
    fillBits_ = coding_ == Coding::kGroup3 && (page.t4Options & kFillBits) != 0;
    mostSignificantFirst_ = page.fillOrder != 2;
    width_ = page.imageWidth;
    outputWidth_ = std::min(page.outputWidth, page.imageWidth);
    rowsPerStrip_ = page.rowsPerStrip;
    stripCount_ = page.stripCount;
    tables_ = GetFaxTables(record);
    if (tables_ == nullptr) return false;
    // Room for every changing element of a good row plus the close of a
    // black run, rounded up to whole blocks of 32.
    capacity_ = (width_ + 32) & ~31u;
    size_t bytes = 2 * (size_t{capacity_} + kSentinels) * sizeof(int32_t);
    state_ = AllocHandle(bytes, 0, record);
    if (state_ == nullptr) return false;
    lines_ = static_cast<int32_t*>(platform::MemLock(state_));
    if (lines_ == nullptr) {
        FreeHandle(&state_);
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return false;
    }
    return true;
}

void FaxDecoder::End() {
    if (state_ != nullptr) {
        platform::MemUnlock(state_);
        FreeHandle(&state_);
    }
    lines_ = nullptr;
}

bool FaxDecoder::ReportProgress(const CodecStrip& strip, uint32_t rowsDone, ErrorRecord* record) const {
    if (strip.progress == nullptr || !strip.progress->active()) return true;
    uint64_t done = uint64_t{strip.index} * rowsPerStrip_ + rowsDone;
    uint64_t total = uint64_t{stripCount_} * rowsPerStrip_;
    while (total > 0xFFFFFFFFu || done > 0xFFFFFFFFu) {
        done >>= 1;
        total >>= 1;
    }
    return strip.progress->Row(static_cast<uint32_t>(done), static_cast<uint32_t>(total), record);
}

bool FaxDecoder::Decode(const CodecStrip& strip, ErrorRecord* record) {
    if (record->failed()) return false;
    if (lines_ == nullptr || (strip.topRow == nullptr && strip.rows > 0)) {
        SetRecordError(record, kUnexpectedError, 0);
        return false;
    }
    const FaxTables& tables = *tables_;
    FaxBitReader in(strip.data, strip.data == nullptr ? 0 : strip.size, mostSignificantFirst_, tables.bitReversal);
    int32_t* reference = lines_;
    int32_t* current = lines_ + capacity_ + kSentinels;
    EndRow(reference, 0, width_);  // every strip starts below an all-white row

    bool failed = false;
    bool flagged = false;  // an EOL where none belongs: the strip fails once all rows are done
    for (uint32_t r = 0; r < strip.rows && !failed; ++r) {
        RowEnd end = RowEnd::kComplete;
        switch (coding_) {
            case Coding::kModifiedHuffman:
                end = DecodeOneDimensionalRow(&in, tables, width_, capacity_, current);
                if (end == RowEnd::kEndOfLine) {
                    flagged = true;
                    in.Drop(11);
                    end = RowEnd::kComplete;
                }
                if (end == RowEnd::kComplete && in.Fill()) {
                    uint32_t misalignment = static_cast<uint32_t>(in.Position() % alignBits_);
                    if (misalignment != 0) in.Drop(alignBits_ - misalignment);
                }
                break;
            case Coding::kGroup3:
                if (!SkipEndOfLine(&in)) {
                    end = RowEnd::kFailed;
                    EndRow(current, 0, width_);
                    break;
                }
                if (fillBits_ && !in.ByteAligned()) flagged = true;
                if (twoDimensional_) {
                    if (!in.Fill()) {
                        end = RowEnd::kFailed;
                        EndRow(current, 0, width_);
                        break;
                    }
                    bool oneDimensional = (in.Peek() & 1) != 0;
                    in.Drop(1);
                    if (!oneDimensional) {
                        end = DecodeTwoDimensionalRow(&in, tables, width_, capacity_, reference, current);
                        break;
                    }
                }
                end = DecodeOneDimensionalRow(&in, tables, width_, capacity_, current);
                break;
            case Coding::kGroup4:
                end = DecodeTwoDimensionalRow(&in, tables, width_, capacity_, reference, current);
                break;
        }
        failed = end == RowEnd::kFailed;
        DrawRow(strip.topRow + static_cast<ptrdiff_t>(r) * strip.stride, current, outputWidth_);
        std::swap(reference, current);
        if (!ReportProgress(strip, r + 1, record)) return false;
    }
    if (failed || flagged) {
        SetRecordError(record, kErrBadImageData, 0);
        return false;
    }
    return true;
}

}  // namespace

std::unique_ptr<StripDecoder> CreateFaxDecoder(uint16_t compression) {
    switch (compression) {
        case kCompressionCcittRle:
        case kCompressionCcittRleWord:
        case kCompressionCcittGroup3:
        case kCompressionCcittGroup4: return NewDecoder<FaxDecoder>(compression);
        default: return nullptr;
    }
}

bool DecodeGroup4Raster(const uint8_t* data, size_t size, uint32_t width, uint32_t height, uint16_t fillOrder,
                        uint8_t* topRow, ptrdiff_t stride, ProgressReporter* progress, ErrorRecord* record) {
    if (record->failed()) return false;
    FaxDecoder decoder(kCompressionCcittGroup4);
    CodecPage page;
    page.imageWidth = width;
    page.outputWidth = width;
    page.imageLength = height;
    page.rowsPerStrip = height;
    page.stripCount = 1;
    page.compression = kCompressionCcittGroup4;
    page.fillOrder = fillOrder;
    if (!decoder.Begin(page, record)) return false;
    CodecStrip strip;
    strip.data = data;
    strip.size = size;
    strip.rows = height;
    strip.topRow = topRow;
    strip.stride = stride;
    strip.progress = progress;
    bool decoded = decoder.Decode(strip, record);
    decoder.End();
    return decoded;
}

}  // namespace velmora
