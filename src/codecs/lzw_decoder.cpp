// LZW strips (TIFF compression 5, TIFF 6.0 section 13), in the TIFF form
// (codes most significant bit first, the code width growing one code early)
// and in the old form of early writers (least significant bit first, the
// width growing on time).
//
// The string table keeps, for every entry, its prefix entry, length, first
// and last byte; a string is these links followed back from its last byte.
// Strings built since the last Clear from such strings are also kept whole
// in an arena, so that most codes are expanded with one block copy; the links
// remain the reference for everything else (codes of entries left over from
// before a Clear).
#include <algorithm>
#include <cstring>

#include "io/byte_order.h"
#include "codecs/byte_decoders.h"
#include "codecs/predictor.h"
#include "codecs/strip_input.h"
#include "codecs/strip_rows.h"

namespace velmora {
namespace {

constexpr uint32_t kClearCode = 256;
constexpr uint32_t kEndCode = 257;
constexpr uint32_t kFirstFree = 258;
constexpr uint32_t kTableSize = 4096;
constexpr uint32_t kNoCode = 0xFFFFFFFF;
constexpr unsigned kMaxWidth = 12;
constexpr size_t kArenaStart = 64 * 1024;
constexpr size_t kCopySlack = 16;  // the arena's room for 16-byte block copies

// Copies `count` bytes in 16-byte blocks; the last block may copy up to 15
// bytes more, which both buffers must have room for.
inline void BlockCopy(uint8_t* to, const uint8_t* from, size_t count) {
    for (size_t i = 0; i < count; i += 16) std::memmove(to + i, from + i, 16);
}

// The strip's codes, read through 64-bit loads; the last bytes come from a
// zero-padded copy.
class CodeReader {
public:
    CodeReader(const uint8_t* data, size_t size, bool leastSignificantFirst)
        : data_(data), size_(size), totalBits_(uint64_t{size} * 8), lsbFirst_(leastSignificantFirst) {
        tailStart_ = size >= 8 ? size - 8 : 0;
        std::memset(tail_, 0, sizeof tail_);
        if (size > 0) std::memcpy(tail_, data + tailStart_, size - tailStart_);
    }

    bool Has(unsigned width) const { return totalBits_ - bitPos_ >= width; }

    uint32_t Read(unsigned width) {
        size_t byte = static_cast<size_t>(bitPos_ >> 3);
        const uint8_t* p = byte + 8 <= size_ ? data_ + byte : tail_ + (byte - tailStart_);
        unsigned shift = static_cast<unsigned>(bitPos_ & 7);
        bitPos_ += width;
        if (lsbFirst_) return static_cast<uint32_t>((LoadLittleEndian64(p) >> shift) & ((1u << width) - 1));
        return static_cast<uint32_t>((LoadBigEndian64(p) << shift) >> (64 - width));
    }

private:
    const uint8_t* data_;
    size_t size_;
    uint64_t totalBits_;
    uint64_t bitPos_ = 0;
    size_t tailStart_;
    bool lsbFirst_;
    uint8_t tail_[16];
};

class LzwDecoder final : public StripDecoder {
public:
    bool Begin(const CodecPage& page, ErrorRecord* record) override;
    bool Decode(const CodecStrip& strip, ErrorRecord* record) override;
    void End() override;

private:
    bool DecodeCodes(const uint8_t* data, size_t size, bool oldForm, ErrorRecord* record);
    bool AddToArena(uint32_t entry, uint32_t prefix, ErrorRecord* record);
    bool WriteByLinks(uint32_t code, ErrorRecord* record);

    CodecPage page_;
    RowRoutine predictor_ = nullptr;
    size_t rowBytes_ = 0;
    size_t visible_ = 0;
    StripInput input_;
    StripRowWriter rows_;

    uint16_t link_[kTableSize];
    uint32_t length_[kTableSize];
    uint8_t first_[kTableSize];
    uint8_t last_[kTableSize];
    uint32_t offset_[kTableSize];  // the entry's string in the arena
    bool byLinks_[kTableSize];     // the entry's string is found only through its links
    ScratchBlock arena_;
    size_t arenaUsed_ = 0;
    ScratchBlock spill_;  // a long string on its way to several rows
};

bool LzwDecoder::Begin(const CodecPage& page, ErrorRecord* record) {
    page_ = page;
    if (!SelectPredictor(page, &predictor_, record)) return false;
    if (!StripRowSizes(page, &rowBytes_, &visible_, record)) return false;
    for (uint32_t i = 0; i < 256; ++i) {
        link_[i] = 0;
        length_[i] = 1;
        first_[i] = last_[i] = static_cast<uint8_t>(i);
        byLinks_[i] = false;
    }
    length_[kClearCode] = length_[kEndCode] = 0;
    return arena_.Allocate(kArenaStart + kCopySlack, false, record) != nullptr;
}

void LzwDecoder::End() {
    arena_.Release();
    spill_.Release();
}

bool LzwDecoder::Decode(const CodecStrip& strip, ErrorRecord* record) {
    if (record->failed()) return false;
    if (!input_.Load(page_, strip, record)) return false;
    if (!rows_.Start(page_, strip, rowBytes_, visible_, predictor_, record)) return false;
    const uint8_t* data = input_.data();
    size_t size = input_.size();
    // Early writers put codes least significant bit first; their strips start
    // with a Clear code, whose nine bits give a first byte of 0 and an odd
    // second byte in that order.
    bool oldForm = size > 1 && data[0] == 0 && (data[1] & 1) != 0;
    bool ok = DecodeCodes(data, size, oldForm, record);
    rows_.Close();
    return ok;
}

bool LzwDecoder::AddToArena(uint32_t entry, uint32_t prefix, ErrorRecord* record) {
    size_t length = length_[entry];
    if (arenaUsed_ + length + kCopySlack > arena_.size()) {
        size_t wanted = std::max(arena_.size() * 2, arenaUsed_ + length + kCopySlack);
        if (arena_.Grow(wanted, record) == nullptr) return false;
    }
    uint8_t* to = arena_.data() + arenaUsed_;
    if (prefix < 256) {
        to[0] = static_cast<uint8_t>(prefix);
    } else {
        BlockCopy(to, arena_.data() + offset_[prefix], length - 1);
    }
    to[length - 1] = last_[entry];
    offset_[entry] = static_cast<uint32_t>(arenaUsed_);
    arenaUsed_ += length;
    return true;
}

// Writes a string by following its links from the last byte back, as far as
// the strip's rows can take its leading bytes.
bool LzwDecoder::WriteByLinks(uint32_t code, ErrorRecord* record) {
    uint64_t length = length_[code];
    uint32_t entry = code;
    if (length <= rows_.room()) {
        uint8_t* to = rows_.cursor();
        for (uint64_t i = length; i-- > 0;) {
            to[i] = last_[entry];
            entry = link_[entry];
        }
        return rows_.Advance(static_cast<size_t>(length), record);
    }
    uint64_t wanted = std::min(length, rows_.remaining());
    for (uint64_t skip = length - wanted; skip > 0; --skip) entry = link_[entry];
    if (spill_.size() < wanted && spill_.Allocate(static_cast<size_t>(wanted), false, record) == nullptr) return false;
    uint8_t* to = spill_.data();
    for (uint64_t i = wanted; i-- > 0;) {
        to[i] = last_[entry];
        entry = link_[entry];
    }
    return rows_.Put(to, static_cast<size_t>(wanted), record);
}

bool LzwDecoder::DecodeCodes(const uint8_t* data, size_t size, bool oldForm, ErrorRecord* record) {
    CodeReader reader(data, size, oldForm);
    // Entries from 258 on are empty at the start of every strip.
    std::memset(length_ + kFirstFree, 0, sizeof(length_[0]) * (kTableSize - kFirstFree));
    unsigned width = 9;
    uint32_t nextFree = kFirstFree;
    uint32_t previous = kNoCode;
    arenaUsed_ = 0;
    // The TIFF form widens the code when the next free entry reaches
    // 2^width - 1, one code before it is needed; the old form at 2^width.
    const uint32_t early = oldForm ? 0 : 1;
    uint32_t widenAt = (1u << width) - early;

    // The current row's cursor lives in locals, which the output's byte
    // stores cannot alias; the writer learns of the bytes at each row's end
    // and before anything else uses it.
    uint8_t* cursor = nullptr;
    uint8_t* rowEnd = nullptr;
    uint8_t* synced = nullptr;
    auto load = [&] {
        if (rows_.done()) {
            cursor = rowEnd = synced = nullptr;
        } else {
            cursor = synced = rows_.cursor();
            rowEnd = cursor + rows_.room();
        }
    };
    auto sync = [&]() -> bool {
        size_t n = static_cast<size_t>(cursor - synced);
        bool ok = n == 0 || rows_.Advance(n, record);
        load();
        return ok;
    };
    load();
    while (cursor != nullptr) {
        if (!reader.Has(width)) {
            if (!sync()) return false;
            if (page_.endCodeRequired) {
                SetRecordError(record, kErrBadFileData, 0);
                return false;
            }
            return true;
        }
        uint32_t code = reader.Read(width);
        if (code == kEndCode) break;
        if (code == kClearCode) {
            width = 9;
            widenAt = (1u << width) - early;
            nextFree = kFirstFree;
            previous = kNoCode;
            arenaUsed_ = 0;
            continue;
        }
        if (previous != kNoCode && nextFree < kTableSize) {
            // The new entry: the previous string and the first byte of this
            // one, or its own first byte when this code is the new entry.
            uint32_t entry = nextFree;
            link_[entry] = static_cast<uint16_t>(previous);
            length_[entry] = length_[previous] + 1;
            first_[entry] = first_[previous];
            last_[entry] = code == entry ? first_[previous] : first_[code];
            // A prefix at or past the next free entry was left over from
            // before a Clear: its string is known only through its links.
            byLinks_[entry] = previous >= kFirstFree && (previous >= entry || byLinks_[previous]);
            if (!byLinks_[entry] && !AddToArena(entry, previous, record)) {
                sync();
                return false;
            }
            ++nextFree;
            if (nextFree >= widenAt && width < kMaxWidth) {
                ++width;
                widenAt = (1u << width) - early;
            }
        }
        previous = code;
        if (code < 256) {
            *cursor++ = static_cast<uint8_t>(code);
            if (cursor == rowEnd && !sync()) return false;
            continue;
        }
        if (length_[code] == 0) {
            sync();
            SetRecordError(record, kErrBadFileData, 0);
            return false;
        }
        if (code >= nextFree || byLinks_[code]) {
            if (!sync() || !WriteByLinks(code, record)) return false;
            load();
            continue;
        }
        size_t length = length_[code];
        const uint8_t* from = arena_.data() + offset_[code];
        size_t room = static_cast<size_t>(rowEnd - cursor);
        if (((length + 15) & ~size_t{15}) <= room) {
            BlockCopy(cursor, from, length);
        } else if (length <= room) {
            std::memcpy(cursor, from, length);
        } else {
            if (!sync() || !rows_.Put(from, length, record)) return false;
            load();
            continue;
        }
        cursor += length;
        if (cursor == rowEnd && !sync()) return false;
    }
    return sync();
}

}  // namespace

std::unique_ptr<StripDecoder> CreateLzwDecoder() { return NewDecoder<LzwDecoder>(); }

}  // namespace velmora
