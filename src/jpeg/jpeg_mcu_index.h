// The MCU index of a sequential JPEG scan: for each MCU of a range of MCU
// columns, row after row, where its entropy-coded bits lie and the DC
// predictors of the scan's components before and after it. With it a
// rectangle of MCUs can be cut out of the scan and joined into a new one:
// the bits are taken as they are, and only the first DC difference of each
// component of an MCU whose predictors differ in the new scan is coded anew.
//
// Entries are stored compactly, one after another:
//   - the length in bits from the MCU's start position to its end position
//     (positions count every byte of the source, stuffed zero bytes
//     included), 1 to 2113664:
//       below 129    one byte, length - 1;
//       below 16513  two bytes, 0x80 | (length - 129) >> 8, then the low byte;
//       otherwise    three bytes, 0xC0 | (length - 16513) >> 16, then the low
//                    16 bits, most significant byte first;
//   - the predictors before the MCU as differences from the predictors after
//     the entry before it (from 0 for the first entry), then the predictors
//     after it as differences from those before it. Each set is one byte of
//     size classes, two bits per component from the lowest bits up
//     (0: no change; 1: -8..7; 2: -128..127; 3: anything else), followed by
//     the class-1 differences as 4-bit values two to a byte (the first in the
//     high half), then the class-2 differences as bytes, then the class-3
//     differences as 32-bit values, most significant byte first, each group
//     in component order.
// Within a restart interval an MCU begins where the one before ended; where
// it does not (the first indexed MCU of a row, or one after a restart
// marker), its start position is kept beside the entries.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/checked_array.h"
#include "jpeg/jpeg_decoder.h"

namespace velmora::jpeg {

constexpr uint32_t kMaxIndexedMcuBits = 2113664;
constexpr uint32_t kMaxIndexComponents = 4;

struct McuIndexEntry {
    McuSpan span;
    int32_t before[kMaxIndexComponents] = {};
    int32_t after[kMaxIndexComponents] = {};
};

class McuIndex {
public:
    // Starts an empty index for a scan of `componentCount` (1..4) components.
    void Reset(uint32_t componentCount);
    // Adds the next MCU. False, with nothing added, when its span is empty,
    // runs backwards or is longer than kMaxIndexedMcuBits.
    bool Append(const McuIndexEntry& entry, ErrorRecord* record);

    size_t entries() const { return entries_; }
    // Bytes the compact entries take.
    size_t bytes() const { return data_.size(); }
    // From the first entry's start to the last one's end (all zero when
    // there is no entry).
    McuSpan Extent() const;

    // Reads the entries back in the order they were added.
    class Reader {
    public:
        explicit Reader(const McuIndex& index) : index_(index) {}
        // False after the last entry.
        bool Next(McuIndexEntry* entry);

    private:
        const McuIndex& index_;
        size_t at_ = 0;       // in the compact data
        size_t ordinal_ = 0;  // entries read
        size_t nextBreak_ = 0;
        McuIndexEntry last_;
    };

private:
    struct Break {
        size_t ordinal;
        uint64_t byte;
        uint32_t bit;
    };
    void PutDifferences(const int32_t* from, const int32_t* to, ErrorRecord* record);
    void Put(uint8_t byte, ErrorRecord* record) { data_.Append(byte, record); }

    uint32_t componentCount_ = 0;
    size_t entries_ = 0;
    McuIndexEntry last_;
    CheckedArray<uint8_t> data_;
    CheckedArray<Break> breaks_;
};

}  // namespace velmora::jpeg
