#include "codecs/fax_encoder.h"

#include <cstring>
#include <utility>

#include "codecs/fax_code_lists.h"
#include "codecs/fax_decoder.h"
#include "io/byte_order.h"

namespace velmora {
namespace {

// A code word as it is sent: `length` bits, the first sent in the highest.
struct FaxWord {
    uint16_t bits = 0;
    uint8_t length = 0;
};

// Run-length codes of one colour: terminating codes for 0 to 63, make-up
// codes for 64 to 1728 by run / 64, and the extended make-up codes for 1792
// to 2560 (shared by both colours) by (run - 1792) / 64.
struct FaxRunCodes {
    FaxWord terminating[64];
    FaxWord makeUp[28];
    FaxWord extended[13];
};

struct FaxEncoderTables {
    FaxRunCodes white;
    FaxRunCodes black;
    FaxWord pass;
    FaxWord horizontal;
    FaxWord vertical[7];  // by (a1 - b1) + 3: VL3, VL2, VL1, V0, VR1, VR2, VR3
    uint8_t bitReversal[256];
    bool built = false;
};

constexpr FaxWord kEndOfLine = {1, 12};  // 000000000001
constexpr uint32_t kLongestMakeUp = 2560;
constexpr uint32_t kFirstExtendedMakeUp = 1792;

// Calls `use(value, word)` for every code of list `id`. The lists store each
// code with its first sent bit in bit 0: reversed here into sending order.
template <typename Use>
bool ForEachCode(uint16_t id, Use use) {
    const uint8_t* bytes = nullptr;
    uint32_t size = 0;
    if (!FindFaxCodeResource(id, &bytes, &size)) return false;
    for (uint32_t at = 0; at + 4 <= size; at += 4) {
        uint16_t code = static_cast<uint16_t>(bytes[at] | (bytes[at + 1] << 8));
        uint16_t packed = static_cast<uint16_t>(bytes[at + 2] | (bytes[at + 3] << 8));
        if (packed == 0) return true;
        FaxWord word;
        word.length = static_cast<uint8_t>(packed & 0xF);
        for (unsigned bit = 0; bit < word.length; ++bit) {
            word.bits = static_cast<uint16_t>((word.bits << 1) | ((code >> bit) & 1));
        }
        if (!use(static_cast<uint32_t>(packed >> 4), word)) return false;
    }
    return false;
}

bool FillRunCodes(uint16_t terminatingId, uint16_t makeUpId, FaxRunCodes* codes) {
    bool ok = ForEachCode(terminatingId, [&](uint32_t run, FaxWord word) {
        if (run >= 64) return false;
        codes->terminating[run] = word;
        return true;
    });
    return ok && ForEachCode(makeUpId, [&](uint32_t run, FaxWord word) {
               if (run % 64 != 0 || run / 64 >= 28) return false;
               codes->makeUp[run / 64] = word;
               return true;
           });
}

bool BuildTables(FaxEncoderTables* tables) {
    auto single = [](FaxWord* out) {
        return [out](uint32_t, FaxWord word) {
            *out = word;
            return true;
        };
    };
    auto vertical = [tables](int sign) {
        return [tables, sign](uint32_t offset, FaxWord word) {
            if (offset < 1 || offset > 3) return false;
            tables->vertical[3 + sign * static_cast<int>(offset)] = word;
            return true;
        };
    };
    auto extended = [tables](uint32_t run, FaxWord word) {
        if (run < kFirstExtendedMakeUp || run > kLongestMakeUp || run % 64 != 0) return false;
        tables->white.extended[(run - kFirstExtendedMakeUp) / 64] = word;
        tables->black.extended[(run - kFirstExtendedMakeUp) / 64] = word;
        return true;
    };
    const uint8_t* reversal = nullptr;
    uint32_t size = 0;
    if (!FindFaxCodeResource(kFaxListBitReversal, &reversal, &size) || size != sizeof(tables->bitReversal)) {
        return false;
    }
    std::memcpy(tables->bitReversal, reversal, size);
    return FillRunCodes(kFaxListWhiteTerminating, kFaxListWhiteMakeUp, &tables->white) &&
           FillRunCodes(kFaxListBlackTerminating, kFaxListBlackMakeUp, &tables->black) &&
           ForEachCode(kFaxListExtendedMakeUp, extended) && ForEachCode(kFaxListPass, single(&tables->pass)) &&
           ForEachCode(kFaxListHorizontal, single(&tables->horizontal)) &&
           ForEachCode(kFaxListVertical0, single(&tables->vertical[3])) &&
           ForEachCode(kFaxListVerticalLeft, vertical(-1)) && ForEachCode(kFaxListVerticalRight, vertical(1));
}

const FaxEncoderTables* GetEncoderTables(ErrorRecord* record) {
    // A function-local static is initialised exactly once, other threads
    // waiting for it.
    static const FaxEncoderTables* const tables = [] {
        static FaxEncoderTables built;
        built.built = BuildTables(&built);
        return &built;
    }();
    if (!tables->built) {
        SetRecordError(record, kErrGeneral, 0);
        return nullptr;
    }
    return tables;
}

// The first pixel at or after `from` whose colour differs from `black`; the
// width when the rest of the row has that colour.
uint32_t NextChange(const uint8_t* row, uint32_t width, uint32_t from, bool black) {
    if (from >= width) return width;
    const uint8_t flip = black ? 0xFF : 0x00;
    size_t byte = from >> 3;
    const size_t end = (size_t{width} + 7) >> 3;
    unsigned bits = static_cast<uint8_t>(row[byte] ^ flip) & (0xFFu >> (from & 7));
    if (bits == 0) {
        ++byte;
        const uint64_t wordFlip = black ? ~uint64_t{0} : 0;
        for (; byte + 8 <= end; byte += 8) {
            uint64_t word = LoadBigEndian64(row + byte) ^ wordFlip;
            if (word != 0) {
                uint64_t at = byte * 8 + static_cast<unsigned>(__builtin_clzll(word));
                return at < width ? static_cast<uint32_t>(at) : width;
            }
        }
        for (; byte < end; ++byte) {
            bits = static_cast<uint8_t>(row[byte] ^ flip);
            if (bits != 0) break;
        }
        if (byte == end) return width;
    }
    uint64_t at = byte * 8 + static_cast<unsigned>(__builtin_clz(bits)) - 24;
    return at < width ? static_cast<uint32_t>(at) : width;
}

// Packs code words most significant bit first.
class FaxBitWriter {
public:
    FaxBitWriter(Stream* out, const uint8_t* reversal, ErrorRecord* record) : output_(out, reversal, record) {}

    void Put(FaxWord word) { Put(word.bits, word.length); }
    void Put(uint32_t bits, unsigned length) {
        pending_ = (pending_ << length) | bits;
        count_ += length;
        if (count_ >= 32) {
            count_ -= 32;
            uint32_t word = static_cast<uint32_t>(pending_ >> count_);
            uint8_t* at = output_.Reserve(4);
            at[0] = static_cast<uint8_t>(word >> 24);
            at[1] = static_cast<uint8_t>(word >> 16);
            at[2] = static_cast<uint8_t>(word >> 8);
            at[3] = static_cast<uint8_t>(word);
        }
    }
    // Bits already in the byte being filled.
    unsigned UsedBitsOfByte() const { return count_ & 7; }
    void PadToByte() {
        if (UsedBitsOfByte() != 0) Put(0, 8 - UsedBitsOfByte());
    }
    // Pads the last byte and writes everything; returns the bytes written.
    uint64_t Finish() {
        PadToByte();
        while (count_ >= 8) {
            count_ -= 8;
            output_.Put(static_cast<uint8_t>(pending_ >> count_));
        }
        return output_.Flush();
    }

private:
    EncodedOutput output_;
    uint64_t pending_ = 0;
    unsigned count_ = 0;
};

void PutRun(FaxBitWriter* writer, const FaxRunCodes& codes, uint32_t run) {
    while (run >= kLongestMakeUp + 64) {
        writer->Put(codes.extended[(kLongestMakeUp - kFirstExtendedMakeUp) / 64]);
        run -= kLongestMakeUp;
    }
    if (run >= kFirstExtendedMakeUp) {
        writer->Put(codes.extended[(run - kFirstExtendedMakeUp) / 64]);
    } else if (run >= 64) {
        writer->Put(codes.makeUp[run / 64]);
    }
    writer->Put(codes.terminating[run % 64]);
}

// The changing elements of a row: the positions whose pixel differs from
// the one before (the first pixel compared with white), so that element i
// turns the row black when i is even and white when it is odd. Three copies
// of the width follow as end markers. `changes` holds width + 3 entries.
// Returns the number of changes.
uint32_t ListChanges(const uint8_t* row, uint32_t width, uint32_t* changes) {
    uint32_t count = 0;
    bool black = false;
    for (uint32_t at = NextChange(row, width, 0, false); at < width; at = NextChange(row, width, at, black)) {
        changes[count++] = at;
        black = !black;
    }
    changes[count] = changes[count + 1] = changes[count + 2] = width;
    return count;
}

// One row as alternate white and black runs (T.4 4.1).
void CodeOneDimensional(FaxBitWriter* writer, const FaxEncoderTables& tables, const uint32_t* changes,
                        uint32_t width) {
    uint32_t at = 0;
    for (uint32_t i = 0; at < width; ++i) {
        PutRun(writer, (i & 1) ? tables.black : tables.white, changes[i] - at);
        at = changes[i];
    }
}

// One row against the row above (T.4 4.2.1.3): pass, vertical and
// horizontal modes over the changing elements a0, a1, a2 of the row and b1,
// b2 of the reference row, both given as change lists.
void CodeTwoDimensional(FaxBitWriter* writer, const FaxEncoderTables& tables, const uint32_t* row,
                        const uint32_t* reference, uint32_t width) {
    uint32_t a0 = 0;
    bool started = false;  // false while a0 is the imaginary white pixel before the row
    uint32_t i = 0;        // row[i] = a1, the first change right of a0
    uint32_t j = 0;        // reference[j]: the first change right of a0
    for (;;) {
        const bool black = (i & 1) != 0;  // the colour of a0: the colour before a1
        // b1 is the first change right of a0 to the colour opposite a0's:
        // an even element when a0 is white, an odd one when black.
        uint32_t k = j + (((j & 1) != 0) != black ? 1 : 0);
        const uint32_t a1 = row[i], b1 = reference[k], b2 = reference[k + 1];
        if (b2 < a1) {
            writer->Put(tables.pass);
            a0 = b2;
        } else if (a1 <= b1 + 3 && b1 <= a1 + 3) {
            writer->Put(tables.vertical[3 + static_cast<int>(a1) - static_cast<int>(b1)]);
            a0 = a1;
            ++i;
        } else {
            const uint32_t a2 = row[i + 1];
            writer->Put(tables.horizontal);
            PutRun(writer, black ? tables.black : tables.white, a1 - (started ? a0 : 0));
            PutRun(writer, black ? tables.white : tables.black, a2 - a1);
            a0 = a2;
            i += 2;
        }
        started = true;
        if (a0 >= width) return;
        while (reference[j] <= a0) ++j;
    }
}

}  // namespace

uint32_t FaxRowsPerGroup(uint32_t rowsPerGroup, double yResolution, uint16_t resolutionUnit) {
    if (rowsPerGroup != 0) return rowsPerGroup;
    constexpr double kFineInch = 200.0;
    constexpr double kFineCentimetre = 7.874015748031496;  // 200 / 25.4, as written files have it
    if (resolutionUnit == 2 && yResolution > kFineInch) return 4;
    if (resolutionUnit == 3 && yResolution > kFineCentimetre) return 4;
    return 2;
}

bool FaxEncoder::Begin(const FaxEncoderPage& page, ErrorRecord* record) {
    if (record->failed()) return false;
    if (page.compression < kCompressionCcittRle || page.compression > kCompressionCcittGroup4) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    if (page.width == 0 || page.width > kMaxFaxWidth) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    if (GetEncoderTables(record) == nullptr) return false;
    page_ = page;
    rowsPerGroup_ = FaxRowsPerGroup(page.rowsPerGroup, page.yResolution, page.resolutionUnit);
    // Two change lists of width + 3 entries: at most 4 x (2^20 + 3) x 2 bytes.
    return changes_.Allocate((size_t{page.width} + 3) * 2 * sizeof(uint32_t), false, record) != nullptr;
}

uint64_t FaxEncoder::Encode(const EncoderStrip& strip, ErrorRecord* record) {
    const FaxEncoderTables* tables = GetEncoderTables(record);
    if (tables == nullptr || record->failed()) return 0;
    FaxBitWriter writer(strip.out, page_.fillOrder == 2 ? tables->bitReversal : nullptr, record);
    const bool group4 = page_.compression == kCompressionCcittGroup4;
    const bool modifiedHuffman = page_.compression == kCompressionCcittRle;
    const bool twoDimensional = page_.compression == kCompressionCcittGroup3 && (page_.t4Options & 1) != 0;
    const bool fillBits = page_.compression == kCompressionCcittGroup3 && (page_.t4Options & 4) != 0;

    // Change lists of the row being coded and of the row above it; a Group 4
    // strip starts against an all-white row.
    uint32_t* current = reinterpret_cast<uint32_t*>(changes_.data());
    uint32_t* above = current + page_.width + 3;
    above[0] = above[1] = above[2] = page_.width;
    for (uint32_t r = 0; r < strip.rows && !record->failed(); ++r) {
        ListChanges(strip.Row(r), page_.width, current);
        if (group4) {
            CodeTwoDimensional(&writer, *tables, current, above, page_.width);
        } else {
            bool oneDimensional = !twoDimensional || r % rowsPerGroup_ == 0;
            if (!modifiedHuffman) {
                // With fill bits the EOL ends on a byte boundary: 12 bits from
                // a byte with 4 bits used.
                if (fillBits) writer.Put(0, (12 - writer.UsedBitsOfByte()) % 8);
                writer.Put(kEndOfLine);
                if (twoDimensional) writer.Put(oneDimensional ? 1 : 0, 1);
            }
            if (oneDimensional) {
                CodeOneDimensional(&writer, *tables, current, page_.width);
            } else {
                CodeTwoDimensional(&writer, *tables, current, above, page_.width);
            }
            if (modifiedHuffman) writer.PadToByte();
        }
        std::swap(current, above);
        strip.ReportRows(r + 1, record);
    }
    if (group4 && !record->failed()) {
        writer.Put(kEndOfLine);
        writer.Put(kEndOfLine);
    }
    return writer.Finish();
}

}  // namespace velmora
