// The entries of a classic TIFF directory being written: collected in any
// order, laid out in ascending tag order as TIFF 6.0 requires, and written in
// either byte order as one block, the directory (u16 count, 12-byte entries,
// u32 next-IFD offset 0) followed directly by the values too long for their
// entries, each padded to an even length.
//
// Values are held in the machine's byte order. Image data offsets are not
// known until the data is written, so the writer adds the offset entries
// first (their size is fixed by their count) and fills them in later
// through MutableLongs.
#pragma once

#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "frame/scratch_block.h"
#include "io/stream.h"

namespace velmora {

class DirectoryBuilder {
public:
    // Adds or replaces the entry of `tag` with `count` values of `type`
    // (`count` x the type's size bytes at `values`). False with the record
    // set for an unknown type, a value too long for a classic TIFF, or short
    // memory.
    bool Add(uint16_t tag, uint16_t type, uint32_t count, const void* values, ErrorRecord* record);
    bool AddShort(uint16_t tag, uint16_t value, ErrorRecord* record);
    bool AddLong(uint16_t tag, uint32_t value, ErrorRecord* record);
    bool AddRational(uint16_t tag, uint32_t numerator, uint32_t denominator, ErrorRecord* record);
    // An ASCII entry: `size` bytes of text and a terminating NUL.
    bool AddAscii(uint16_t tag, const char* text, uint32_t size, ErrorRecord* record);
    bool Has(uint16_t tag) const { return Find(tag) != nullptr; }
    // The values of a LONG entry, to be filled in before Write; null when
    // the tag is absent or not LONG.
    uint32_t* MutableLongs(uint16_t tag);

    uint32_t EntryCount() const { return static_cast<uint32_t>(entries_.size()); }
    // Bytes of the directory and its out-of-line values together.
    uint64_t Size() const;
    // Writes the directory and its values at `offset` of the stream (the
    // directory's position relative to the TIFF's start is `tiffOffset`), in
    // big-endian order when `bigEndian`.
    bool Write(Stream* stream, uint64_t offset, uint32_t tiffOffset, bool bigEndian, ErrorRecord* record) const;

private:
    struct Entry {
        uint16_t tag;
        uint16_t type;
        uint32_t count;
        uint32_t start;  // of the values in pool_
        uint32_t bytes;
    };
    const Entry* Find(uint16_t tag) const;
    Entry* Find(uint16_t tag) { return const_cast<Entry*>(static_cast<const DirectoryBuilder*>(this)->Find(tag)); }

    CheckedArray<Entry> entries_;
    ScratchBlock pool_;
    uint32_t poolUsed_ = 0;
};

}  // namespace velmora
