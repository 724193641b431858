#include "tiff/directory_builder.h"

#include <cstring>

#include "tiff/tiff_file.h"

namespace velmora {
namespace {

constexpr uint32_t kEntryBytes = 12;
// All the out-of-line values of one directory; far beyond any real page.
constexpr uint64_t kMaxPoolBytes = 1u << 30;

uint64_t Even(uint64_t n) { return n + (n & 1); }

void Put16(uint8_t* p, uint16_t v, bool bigEndian) {
    if (bigEndian) v = static_cast<uint16_t>(v >> 8 | v << 8);
    std::memcpy(p, &v, 2);
}

void Put32(uint8_t* p, uint32_t v, bool bigEndian) {
    if (bigEndian) v = __builtin_bswap32(v);
    std::memcpy(p, &v, 4);
}

// Copies `bytes` of values in machine order to `out` in the file's order:
// every element of 2 or 4 bytes (rationals are two 4-byte elements, doubles
// one 8-byte element) is swapped for a big-endian file.
void PutValues(uint8_t* out, const uint8_t* in, uint32_t bytes, uint16_t type, bool bigEndian) {
    std::memcpy(out, in, bytes);
    if (!bigEndian) return;
    uint32_t unit = TiffTypeSize(type);
    if (type == kTypeRational || type == kTypeSRational) unit = 4;
    for (uint32_t i = 0; unit > 1 && i + unit <= bytes; i += unit) {
        for (uint32_t a = i, b = i + unit - 1; a < b; ++a, --b) {
            uint8_t t = out[a];
            out[a] = out[b];
            out[b] = t;
        }
    }
}

}  // namespace

const DirectoryBuilder::Entry* DirectoryBuilder::Find(uint16_t tag) const {
    for (const Entry& entry : entries_) {
        if (entry.tag == tag) return &entry;
    }
    return nullptr;
}

bool DirectoryBuilder::Add(uint16_t tag, uint16_t type, uint32_t count, const void* values, ErrorRecord* record) {
    if (record->failed()) return false;
    uint32_t size = TiffTypeSize(type);
    uint64_t bytes = uint64_t{count} * size;
    const bool wide = size == 8 && type != kTypeRational && type != kTypeSRational && type != kTypeDouble;
    if (size == 0 || wide || bytes > kMaxPoolBytes) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    // Values start 8-byte aligned in the pool, so that MutableLongs hands out
    // an aligned array.
    const uint64_t start = (uint64_t{poolUsed_} + 7) & ~uint64_t{7};
    const uint64_t end = start + Even(bytes);
    if (end > kMaxPoolBytes) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    if (end > pool_.size() && pool_.Grow(static_cast<size_t>(end < 256                 ? 256
                                                             : end * 2 > kMaxPoolBytes ? end
                                                                                       : end * 2),
                                         record) == nullptr) {
        return false;
    }
    if (bytes != 0) std::memcpy(pool_.data() + start, values, static_cast<size_t>(bytes));
    if (bytes & 1) pool_.data()[start + bytes] = 0;
    Entry entry{tag, type, count, static_cast<uint32_t>(start), static_cast<uint32_t>(bytes)};
    poolUsed_ = static_cast<uint32_t>(end);
    if (Entry* existing = Find(tag)) {
        *existing = entry;
        return true;
    }
    if (!entries_.Append(entry, record)) return false;
    // Keep the entries in ascending tag order.
    for (size_t i = entries_.size() - 1; i > 0 && entries_[i - 1].tag > entries_[i].tag; --i) {
        Entry t = entries_[i - 1];
        entries_[i - 1] = entries_[i];
        entries_[i] = t;
    }
    return true;
}

bool DirectoryBuilder::AddShort(uint16_t tag, uint16_t value, ErrorRecord* record) {
    return Add(tag, kTypeShort, 1, &value, record);
}

bool DirectoryBuilder::AddLong(uint16_t tag, uint32_t value, ErrorRecord* record) {
    return Add(tag, kTypeLong, 1, &value, record);
}

bool DirectoryBuilder::AddRational(uint16_t tag, uint32_t numerator, uint32_t denominator, ErrorRecord* record) {
    const uint32_t value[2] = {numerator, denominator};
    return Add(tag, kTypeRational, 1, value, record);
}

bool DirectoryBuilder::AddAscii(uint16_t tag, const char* text, uint32_t size, ErrorRecord* record) {
    if (record->failed()) return false;
    ScratchBlock copy;
    if (size == 0xFFFFFFFFu || copy.Allocate(size_t{size} + 1, false, record) == nullptr) {
        if (record->ok()) SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    if (size != 0) std::memcpy(copy.data(), text, size);
    copy.data()[size] = 0;
    return Add(tag, kTypeAscii, size + 1, copy.data(), record);
}

uint32_t* DirectoryBuilder::MutableLongs(uint16_t tag) {
    Entry* entry = Find(tag);
    if (entry == nullptr || entry->type != kTypeLong) return nullptr;
    return reinterpret_cast<uint32_t*>(pool_.data() + entry->start);
}

uint64_t DirectoryBuilder::Size() const {
    uint64_t size = 2 + uint64_t{kEntryBytes} * entries_.size() + 4;
    for (const Entry& entry : entries_) {
        if (entry.bytes > 4) size += Even(entry.bytes);
    }
    return size;
}

bool DirectoryBuilder::Write(Stream* stream, uint64_t offset, uint32_t tiffOffset, bool bigEndian,
                             ErrorRecord* record) const {
    if (record->failed()) return false;
    uint64_t size = Size();
    if (tiffOffset + size > 0xFFFFFFFFu) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    ScratchBlock block;
    uint8_t* out = block.Allocate(static_cast<size_t>(size), true, record);
    if (out == nullptr) return false;
    Put16(out, static_cast<uint16_t>(entries_.size()), bigEndian);
    uint8_t* at = out + 2;
    uint32_t valueOffset = tiffOffset + static_cast<uint32_t>(2 + kEntryBytes * entries_.size() + 4);
    uint8_t* values = out + (valueOffset - tiffOffset);
    const uint8_t* pool = pool_.data();
    for (const Entry& entry : entries_) {
        Put16(at, entry.tag, bigEndian);
        Put16(at + 2, entry.type, bigEndian);
        Put32(at + 4, entry.count, bigEndian);
        if (entry.bytes <= 4) {
            // Inline values sit left-justified in the 4-byte field.
            PutValues(at + 8, pool + entry.start, entry.bytes, entry.type, bigEndian);
        } else {
            Put32(at + 8, valueOffset, bigEndian);
            PutValues(values, pool + entry.start, entry.bytes, entry.type, bigEndian);
            values += Even(entry.bytes);
            valueOffset += static_cast<uint32_t>(Even(entry.bytes));
        }
        at += kEntryBytes;
    }
    StreamSeek64(stream, offset, record);
    StreamWrite(stream, out, static_cast<uint32_t>(size), record);
    return record->ok();
}

}  // namespace velmora
