// Builds small TIFF files byte by byte for tests that need damage a real
// writer would never produce: any byte order, classic or BigTIFF (with 20- or
// 16-byte entries), any chain of directories.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <vector>

namespace velmora::testing {

struct Field {
    uint16_t tag;
    uint16_t type;
    uint64_t count;
    std::vector<uint64_t> values;  // one per element; rationals as numerator, denominator pairs
    uint64_t rawOffset = 0;        // when set: the value field, with no data written
};

inline Field Short(uint16_t tag, std::initializer_list<uint64_t> v) { return {tag, 3, v.size(), v}; }
inline Field Long(uint16_t tag, std::initializer_list<uint64_t> v) { return {tag, 4, v.size(), v}; }
inline Field Rational(uint16_t tag, uint64_t num, uint64_t den) { return {tag, 5, 1, {num, den}}; }
inline Field Ascii(uint16_t tag, const char* text) {
    Field f{tag, 2, std::strlen(text) + 1, {}};
    for (size_t i = 0; i <= std::strlen(text); ++i) f.values.push_back(static_cast<uint8_t>(text[i]));
    return f;
}

class TiffBuilder {
public:
    // entrySize: 12 for classic, 20 or 16 for BigTIFF.
    TiffBuilder(bool bigEndian, bool big, uint32_t entrySize = 0)
        : bigEndian_(bigEndian), big_(big), entrySize_(entrySize != 0 ? entrySize : (big ? 20 : 12)) {
        Put(bigEndian ? 'M' : 'I', 1);
        Put(bigEndian ? 'M' : 'I', 1);
        Put(big ? 43 : 42, 2);
        if (big) {
            Put(8, 2);
            Put(0, 2);
            Put(0, 8);
        } else {
            Put(0, 4);
        }
    }

    // Appends a directory (and its out-of-line values) and links it after
    // the previous one; returns its offset.
    uint64_t AddDirectory(const std::vector<Field>& fields) {
        std::vector<uint64_t> dataOffsets;
        for (const Field& f : fields) {
            uint64_t size = f.count * TypeSize(f.type);
            if (f.rawOffset != 0) {
                dataOffsets.push_back(f.rawOffset);
            } else if (size > InlineSize()) {
                Align();
                dataOffsets.push_back(bytes_.size());
                PutValues(f);
            } else {
                dataOffsets.push_back(0);
            }
        }
        Align();
        uint64_t at = bytes_.size();
        Put(fields.size(), big_ ? 8 : 2);
        for (size_t i = 0; i < fields.size(); ++i) {
            const Field& f = fields[i];
            Put(f.tag, 2);
            Put(f.type, 2);
            Put(f.count, big_ && entrySize_ == 20 ? 8 : 4);
            size_t valueStart = bytes_.size();
            if (dataOffsets[i] != 0) {
                Put(dataOffsets[i], InlineSize());
            } else {
                PutValues(f);
                while (bytes_.size() < valueStart + InlineSize()) bytes_.push_back(0);
            }
        }
        size_t nextAt = bytes_.size();
        Put(0, big_ ? 8 : 4);
        SetLink(lastNext_, at);
        lastNext_ = nextAt;
        directories_.push_back(at);
        return at;
    }

    // Points the next-IFD field of directory `index` (0-based) at `offset`.
    void SetNext(size_t index, uint64_t offset) {
        uint64_t at = directories_[index];
        uint64_t count = Get(at, big_ ? 8 : 2);
        SetLink(at + (big_ ? 8 : 2) + count * entrySize_, offset);
    }
    void SetFirst(uint64_t offset) { SetLink(0, offset); }
    uint64_t directory(size_t index) const { return directories_[index]; }
    std::vector<uint8_t>& bytes() { return bytes_; }

    void Put(uint64_t value, int width) {
        for (int i = 0; i < width; ++i) {
            int shift = bigEndian_ ? (width - 1 - i) * 8 : i * 8;
            bytes_.push_back(static_cast<uint8_t>(value >> shift));
        }
    }
    void PutAt(size_t at, uint64_t value, int width) {
        for (int i = 0; i < width; ++i) {
            int shift = bigEndian_ ? (width - 1 - i) * 8 : i * 8;
            bytes_[at + i] = static_cast<uint8_t>(value >> shift);
        }
    }

private:
    static uint32_t TypeSize(uint16_t type) {
        static const uint32_t kSizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
        return type < 19 ? kSizes[type] : 0;
    }
    uint32_t InlineSize() const { return big_ && entrySize_ != 12 ? 8 : 4; }
    void Align() {
        if (bytes_.size() % 2 != 0) bytes_.push_back(0);
    }
    void PutValues(const Field& f) {
        uint32_t size = TypeSize(f.type);
        if (f.type == 5 || f.type == 10) {
            for (uint64_t v : f.values) Put(v, 4);
        } else {
            for (uint64_t v : f.values) Put(v, static_cast<int>(size));
        }
    }
    uint64_t Get(uint64_t at, int width) const {
        uint64_t v = 0;
        for (int i = 0; i < width; ++i) {
            int shift = bigEndian_ ? (width - 1 - i) * 8 : i * 8;
            v |= uint64_t{bytes_[at + i]} << shift;
        }
        return v;
    }
    void SetLink(size_t at, uint64_t offset) {
        if (at == 0) {
            PutAt(big_ ? 8 : 4, offset, big_ ? 8 : 4);
        } else {
            PutAt(at, offset, big_ ? 8 : 4);
        }
    }

    bool bigEndian_;
    bool big_;
    uint32_t entrySize_;
    std::vector<uint8_t> bytes_;
    size_t lastNext_ = 0;  // 0: the header's first-IFD field
    std::vector<uint64_t> directories_;
};

}  // namespace velmora::testing
