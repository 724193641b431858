#include "pdf/ocr_text.h"

#include <algorithm>
#include <cstring>

namespace velmora {

namespace {

const char kSignature[16] = "VelmoraOCRText";
constexpr uint32_t kSignatureOffset = 4;
constexpr uint32_t kEntryBase = 8;

uint32_t ReadU32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24; }
uint16_t ReadU16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

bool Bad(ErrorRecord* record) {
    SetRecordError(record, kErrBadOcrTextData, 0);
    return false;
}

uint32_t HeaderSize(const OcrTextView& view) { return view.format == 1 ? kOcrTextHeaderSizeV1 : kOcrTextHeaderSizeV2; }

const uint8_t* EntryAt(const OcrTextView& view, uint32_t index) {
    return view.bytes + HeaderSize(view) + static_cast<uint64_t>(index) * view.entrySize;
}

uint32_t CharWidth(const OcrTextView& view) { return (view.options & kOcrTextNarrow) ? 1 : 2; }

// The number of characters of the text at `offset`, or false when its
// terminator does not come before `end`.
bool TextLength(const OcrTextView& view, uint32_t offset, uint32_t* length) {
    const uint32_t width = CharWidth(view);
    uint32_t n = 0;
    for (uint64_t at = offset; at + width <= view.size; at += width, ++n) {
        if (view.bytes[at] == 0 && (width == 1 || view.bytes[at + 1] == 0)) {
            *length = n;
            return true;
        }
    }
    return false;
}

class BitReader {
public:
    BitReader(const uint8_t* bytes, uint64_t firstByte, uint64_t endByte)
        : bytes_(bytes), at_(firstByte * 8), end_(endByte * 8) {}
    bool Bits(unsigned count, uint32_t* value) {
        if (end_ - at_ < count) return false;
        uint32_t v = 0;
        for (unsigned i = 0; i < count; ++i, ++at_) v = v << 1 | ((bytes_[at_ >> 3] >> (7 - (at_ & 7))) & 1);
        *value = v;
        return true;
    }
    bool Number(int32_t* value) {
        static const unsigned kWidths[] = {5, 8, 16, 32};
        unsigned code = 0;
        uint32_t bit = 1;
        while (code < 3 && bit == 1) {
            if (!Bits(1, &bit)) return false;
            if (bit == 1) ++code;
        }
        uint32_t raw = 0;
        if (!Bits(kWidths[code], &raw)) return false;
        const unsigned shift = 32 - kWidths[code];
        *value = static_cast<int32_t>(raw << shift) >> shift;
        return true;
    }

private:
    const uint8_t* bytes_;
    uint64_t at_, end_;
};

class BitWriter {
public:
    explicit BitWriter(CheckedArray<uint8_t>* out) : out_(out) {}
    bool Bits(unsigned count, uint32_t value, ErrorRecord* record) {
        for (unsigned i = count; i-- > 0;) {
            if (used_ == 0 && !out_->Append(0, record)) return false;
            if ((value >> i) & 1) (*out_)[out_->size() - 1] |= static_cast<uint8_t>(0x80 >> used_);
            used_ = (used_ + 1) & 7;
        }
        return true;
    }
    bool Number(int32_t value, ErrorRecord* record) {
        if (value >= -16 && value < 16) return Bits(1, 0, record) && Bits(5, value & 0x1F, record);
        if (value >= -128 && value < 128) return Bits(2, 2, record) && Bits(8, value & 0xFF, record);
        if (value >= -32768 && value < 32768) return Bits(3, 6, record) && Bits(16, value & 0xFFFF, record);
        return Bits(3, 7, record) && Bits(32, static_cast<uint32_t>(value), record);
    }

private:
    CheckedArray<uint8_t>* out_;
    unsigned used_ = 0;
};

bool AppendU32(CheckedArray<uint8_t>* out, uint32_t value, ErrorRecord* record) {
    for (int i = 0; i < 4; ++i) {
        if (!out->Append(static_cast<uint8_t>(value >> (8 * i)), record)) return false;
    }
    return true;
}

int32_t Middle(int32_t low, int32_t high) { return static_cast<int32_t>((int64_t{low} + high) / 2); }

// Whether `next` continues `current` along a line read left to right, when
// the coordinates are given as (along, across) pairs.
bool Continues(int64_t curLow, int64_t curHigh, int64_t curAcrossHigh, int64_t nextLow, int64_t nextHigh,
               int64_t nextAcrossLow, bool reversed) {
    const int64_t reach = std::max(curHigh - curLow, nextHigh - nextLow) + 1;
    if (curAcrossHigh < nextAcrossLow) return false;
    const int64_t middle = Middle(static_cast<int32_t>(curLow), static_cast<int32_t>(curHigh));
    if (!reversed) return nextLow >= middle && nextLow < curHigh + reach;
    return nextHigh <= middle && nextHigh > curLow - reach;
}

bool Joins(const OcrBox& current, const OcrBox& next, uint16_t rotation) {
    if (rotation == 90 || rotation == 270) {
        return Continues(current.top, current.bottom, current.right, next.top, next.bottom, next.left, rotation == 270);
    }
    return Continues(current.left, current.right, current.bottom, next.left, next.right, next.top, rotation == 180);
}

}  // namespace

bool OpenOcrText(const uint8_t* bytes, uint32_t size, OcrTextView* view, ErrorRecord* record) {
    if (record->failed()) return false;
    if (size < kOcrTextHeaderSizeV1 || ReadU32(bytes) != size ||
        std::memcmp(bytes + kSignatureOffset, kSignature, sizeof kSignature) != 0) {
        return Bad(record);
    }
    OcrTextView v;
    v.bytes = bytes;
    v.size = size;
    v.format = ReadU16(bytes + 20);
    v.rotation = ReadU16(bytes + 22);
    v.count = ReadU32(bytes + 24);
    if (v.format != 1 && v.format != 2) {
        SetRecordError(record, kErrUnsupportedOcrText, 0);
        return false;
    }
    if (v.rotation % 90 != 0 || v.rotation > 270) return Bad(record);
    v.entrySize = kEntryBase;
    if (v.format == 2) {
        if (size < kOcrTextHeaderSizeV2) return Bad(record);
        v.options = ReadU32(bytes + 28);
        if (v.options & ~(kOcrTextNarrow | kOcrTextWordFlags | kOcrTextEntryValue)) {
            SetRecordError(record, kErrUnsupportedOcrText, 0);
            return false;
        }
        if (v.options & kOcrTextWordFlags) v.entrySize += 4;
        if (v.options & kOcrTextEntryValue) v.entrySize += 4;
    }
    const uint64_t tableEnd = HeaderSize(v) + uint64_t{v.count} * v.entrySize;
    if (tableEnd > size) return Bad(record);
    for (uint32_t i = 0; i < v.count; ++i) {
        const uint8_t* entry = EntryAt(v, i);
        const uint32_t text = ReadU32(entry);
        const uint32_t boxes = ReadU32(entry + 4);
        uint32_t length = 0;
        if (text < tableEnd || !TextLength(v, text, &length)) return Bad(record);
        if (boxes < tableEnd || boxes > size) return Bad(record);
        if (v.options & kOcrTextWordFlags) {
            const uint32_t flags = ReadU32(entry + 8);
            if (flags != 0 && (flags < tableEnd || flags > size)) return Bad(record);
        }
    }
    *view = v;
    return true;
}

bool ReadOcrEntry(const OcrTextView& view, uint32_t index, OcrEntry* entry, ErrorRecord* record) {
    if (record->failed()) return false;
    const uint8_t* raw = EntryAt(view, index);
    const uint32_t text = ReadU32(raw);
    uint32_t length = 0;
    if (!TextLength(view, text, &length)) return Bad(record);
    if (!entry->chars.Sized(length, record)) return false;
    BitReader bits(view.bytes, ReadU32(raw + 4), view.size);
    const uint32_t width = CharWidth(view);
    for (uint32_t i = 0; i < length; ++i) {
        OcrChar& c = entry->chars[i];
        const uint8_t* at = view.bytes + text + static_cast<uint64_t>(i) * width;
        c.code = width == 1 ? at[0] : ReadU16(at);
        c.box = OcrBox{};
        uint32_t bit = 0;
        if (!bits.Bits(1, &bit)) return Bad(record);
        if (bit == 0) {
            c.kind = OcrCharKind::Boxed;
            if (!bits.Number(&c.box.left) || !bits.Number(&c.box.top) || !bits.Number(&c.box.right) ||
                !bits.Number(&c.box.bottom)) {
                return Bad(record);
            }
        } else {
            if (!bits.Bits(1, &bit)) return Bad(record);
            c.kind = bit == 0 ? OcrCharKind::Separator : OcrCharKind::Joined;
        }
    }
    uint32_t next = 8;
    entry->hasWordFlags = false;
    entry->wordFlags.Clear();
    if (view.options & kOcrTextWordFlags) {
        const uint32_t flags = ReadU32(raw + next);
        next += 4;
        const size_t words = CountOcrWords(entry->chars.data(), entry->chars.size());
        if (flags != 0) {
            if (!entry->wordFlags.Sized(words, record)) return false;
            BitReader flagBits(view.bytes, flags, view.size);
            for (size_t w = 0; w < words; ++w) {
                uint32_t bit = 0;
                if (!flagBits.Bits(1, &bit)) return Bad(record);
                entry->wordFlags[w] = static_cast<uint8_t>(bit);
            }
            entry->hasWordFlags = true;
        }
    }
    entry->value = (view.options & kOcrTextEntryValue) ? ReadU32(raw + next) : 1;
    return true;
}

size_t CountOcrWords(const OcrChar* chars, size_t count) {
    size_t words = 0;
    bool inWord = false;
    for (size_t i = 0; i < count; ++i) {
        const bool separator = chars[i].kind == OcrCharKind::Separator;
        if (!separator && !inWord) ++words;
        inWord = !separator;
    }
    return words;
}

bool MergeOcrBoxes(const OcrChar* chars, size_t count, uint16_t rotation, CheckedArray<OcrBox>* out,
                   ErrorRecord* record) {
    bool open = false;
    OcrBox current{};
    for (size_t i = 0; i < count && record->ok(); ++i) {
        if (chars[i].kind != OcrCharKind::Boxed) continue;
        const OcrBox& next = chars[i].box;
        if (open && Joins(current, next, rotation)) {
            current = {std::min(current.left, next.left), std::min(current.top, next.top),
                       std::max(current.right, next.right), std::max(current.bottom, next.bottom)};
            continue;
        }
        if (open) out->Append(current, record);
        current = next;
        open = true;
    }
    if (open) out->Append(current, record);
    return record->ok();
}

OcrBox RotateOcrBox(const OcrBox& b, uint16_t degrees, int32_t width, int32_t height) {
    // The far edge of a page seen from a coordinate; boxes from outside hold any
    // value, so the difference is taken modulo 2^32 like the coded numbers.
    auto mirror = [](int32_t extent, int32_t at) {
        return static_cast<int32_t>(static_cast<uint32_t>(extent) - static_cast<uint32_t>(at) - 1u);
    };
    switch (degrees) {
        case 90: return {mirror(height, b.bottom), b.left, mirror(height, b.top), b.right};
        case 180:
            return {mirror(width, b.right), mirror(height, b.bottom), mirror(width, b.left), mirror(height, b.top)};
        case 270: return {b.top, mirror(width, b.right), b.bottom, mirror(width, b.left)};
        default: return b;
    }
}

void OcrTextWriter::Begin(uint16_t format, uint16_t rotation, uint32_t options, uint32_t count) {
    format_ = format;
    rotation_ = rotation;
    options_ = format == 2 ? options : 0;
    count_ = count;
    table_.Clear();
    data_.Clear();
}

bool OcrTextWriter::Add(const OcrEntry& entry, ErrorRecord* record) {
    if (record->failed()) return false;
    const bool narrow = (options_ & kOcrTextNarrow) != 0;
    // Offsets are kept relative to the data area until Finish knows where it starts.
    table_.Append(static_cast<uint32_t>(data_.size()), record);
    for (const OcrChar& c : entry.chars) {
        data_.Append(static_cast<uint8_t>(c.code), record);
        if (!narrow) data_.Append(static_cast<uint8_t>(c.code >> 8), record);
    }
    data_.Append(0, record);
    if (!narrow) data_.Append(0, record);
    table_.Append(static_cast<uint32_t>(data_.size()), record);
    BitWriter bits(&data_);
    for (const OcrChar& c : entry.chars) {
        if (c.kind == OcrCharKind::Boxed) {
            bits.Bits(1, 0, record) && bits.Number(c.box.left, record) && bits.Number(c.box.top, record) &&
                bits.Number(c.box.right, record) && bits.Number(c.box.bottom, record);
        } else {
            bits.Bits(2, c.kind == OcrCharKind::Separator ? 2 : 3, record);
        }
    }
    if (options_ & kOcrTextWordFlags) {
        table_.Append(entry.hasWordFlags ? static_cast<uint32_t>(data_.size()) : UINT32_MAX, record);
        BitWriter flags(&data_);
        for (size_t w = 0; entry.hasWordFlags && w < entry.wordFlags.size(); ++w) {
            flags.Bits(1, entry.wordFlags[w] != 0, record);
        }
    }
    if (options_ & kOcrTextEntryValue) table_.Append(entry.value, record);
    return record->ok();
}

bool OcrTextWriter::Finish(CheckedArray<uint8_t>* out, ErrorRecord* record) {
    if (record->failed()) return false;
    const uint32_t header = format_ == 1 ? kOcrTextHeaderSizeV1 : kOcrTextHeaderSizeV2;
    const uint64_t dataStart = header + uint64_t{table_.size()} * 4;
    const uint64_t total = dataStart + data_.size();
    if (total > UINT32_MAX) {
        SetRecordError(record, kErrNotEnoughMemory, 0);
        return false;
    }
    out->Clear();
    AppendU32(out, static_cast<uint32_t>(total), record);
    for (char c : kSignature) out->Append(static_cast<uint8_t>(c), record);
    AppendU32(out, format_ | static_cast<uint32_t>(rotation_) << 16, record);
    AppendU32(out, count_, record);
    if (format_ == 2) AppendU32(out, options_, record);
    const uint32_t perEntry = 2 + ((options_ & kOcrTextWordFlags) ? 1 : 0) + ((options_ & kOcrTextEntryValue) ? 1 : 0);
    for (size_t i = 0; i < table_.size(); ++i) {
        const size_t field = i % perEntry;
        const bool offset = field < 2 || (field == 2 && (options_ & kOcrTextWordFlags));
        uint32_t value = table_[i];
        if (offset) value = value == UINT32_MAX ? 0 : static_cast<uint32_t>(value + dataStart);
        AppendU32(out, value, record);
    }
    for (uint8_t byte : data_) out->Append(byte, record);
    return record->ok();
}

bool RotateOcrText(const OcrTextView& view, uint16_t degrees, int32_t width, int32_t height, CheckedArray<uint8_t>* out,
                   ErrorRecord* record) {
    OcrTextWriter writer;
    writer.Begin(view.format, static_cast<uint16_t>((view.rotation + degrees) % 360), view.options, view.count);
    OcrEntry entry;
    for (uint32_t i = 0; i < view.count && ReadOcrEntry(view, i, &entry, record); ++i) {
        for (OcrChar& c : entry.chars) {
            if (c.kind == OcrCharKind::Boxed) c.box = RotateOcrBox(c.box, degrees, width, height);
        }
        writer.Add(entry, record);
    }
    return writer.Finish(out, record);
}

}  // namespace velmora
