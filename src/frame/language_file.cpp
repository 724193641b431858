#include "frame/language_file.h"

#include <cstring>

namespace velmora {

namespace {

constexpr char kMagic[8] = {'V', 'L', 'M', 'R', 'L', 'A', 'N', 'G'};

uint16_t ReadU16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

uint32_t ReadU32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

struct Row {
    uint16_t type;
    uint16_t id;
    uint32_t offset;
    uint32_t size;
};

// The caller guarantees that the row lies inside the table.
Row ReadRow(const uint8_t* data, uint32_t index) {
    const uint8_t* p = data + kLanguageFileHeaderSize + uint64_t{kLanguageFileEntrySize} * index;
    return Row{ReadU16(p), ReadU16(p + 2), ReadU32(p + 4), ReadU32(p + 8)};
}

bool RowBefore(const Row& row, uint16_t type, uint16_t id) {
    return row.type < type || (row.type == type && row.id < id);
}

}  // namespace

bool ParseLanguageFile(const uint8_t* data, size_t size, LanguageFile* out) {
    if (data == nullptr || size < kLanguageFileHeaderSize || std::memcmp(data, kMagic, sizeof kMagic) != 0 ||
        ReadU16(data + 8) != kLanguageFileFormatVersion) {
        return false;
    }
    const uint64_t fileSize = size;
    const uint32_t count = ReadU32(data + 16);
    const uint64_t tableEnd = uint64_t{kLanguageFileHeaderSize} + uint64_t{kLanguageFileEntrySize} * count;
    if (tableEnd > fileSize) {
        return false;
    }

    uint64_t previousEnd = tableEnd;
    for (uint32_t i = 0; i < count; ++i) {
        const Row row = ReadRow(data, i);
        if (i > 0) {
            const Row before = ReadRow(data, i - 1);
            if (!RowBefore(before, row.type, row.id)) {
                return false;  // out of order or a duplicate
            }
        }
        const uint64_t end = uint64_t{row.offset} + row.size;
        if (row.offset < previousEnd || end > fileSize) {
            return false;
        }
        previousEnd = end;
    }

    out->data_ = data;
    out->language_ = ReadU16(data + 10);
    out->languageVersion_ = ReadU32(data + 12);
    out->count_ = count;
    return true;
}

bool LanguageFile::ResourceAt(uint32_t index, LanguageResource* out) const {
    if (index >= count_) {
        return false;
    }
    const Row row = ReadRow(data_, index);
    out->type = row.type;
    out->id = row.id;
    out->bytes = ResourceBytes{data_ + row.offset, row.size};
    return true;
}

bool LanguageFile::FindResourceBytes(uint16_t type, uint16_t id, ResourceBytes* out) const {
    uint32_t low = 0;
    uint32_t high = count_;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (RowBefore(ReadRow(data_, middle), type, id)) {
            low = middle + 1;
        } else {
            high = middle;
        }
    }
    if (low == count_) {
        return false;
    }
    const Row row = ReadRow(data_, low);
    if (row.type != type || row.id != id) {
        return false;
    }
    out->data = data_ + row.offset;
    out->size = row.size;
    return true;
}

}  // namespace velmora
