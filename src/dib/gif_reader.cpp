#include "dib/gif_reader.h"

#include <cstring>

#include "dib/dib_layout.h"
#include "dib/image.h"

namespace velmora {
namespace {

constexpr uint32_t kErrNoSuchFrame = 0x02000003;
constexpr uint32_t kErrUnknownVersion = 0x0200001B;

constexpr uint8_t kImageDescriptor = 0x2C;
constexpr uint8_t kExtension = 0x21;
constexpr uint8_t kTrailer = 0x3B;
constexpr uint8_t kGraphicControl = 0xF9;
constexpr uint8_t kApplication = 0xFF;
constexpr uint8_t kCommentLabel = 0xFE;
constexpr uint8_t kPlainText = 0x01;

constexpr uint32_t kMaxCodeBits = 12;
constexpr uint32_t kMaxCodes = 1u << kMaxCodeBits;

uint16_t U16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

// Buffered reading of the block structure, with the stream offset of every
// byte known so that frame starts can be remembered. Reads past the end
// simply fail; the caller decides what that means.
class ByteSource {
public:
    explicit ByteSource(Stream* stream) : stream_(stream) {}

    void Seek(uint64_t offset, ErrorRecord* record) {
        StreamSeek64(stream_, offset, record);
        base_ = offset;
        have_ = at_ = 0;
    }
    uint64_t Offset() const { return base_ + at_; }

    bool Byte(uint8_t* byte, ErrorRecord* record) {
        if (at_ == have_ && !Refill(record)) return false;
        *byte = buffer_[at_++];
        return true;
    }
    bool Bytes(uint8_t* out, uint32_t count, ErrorRecord* record) {
        while (count > 0) {
            if (at_ == have_ && !Refill(record)) return false;
            uint32_t n = have_ - at_ < count ? have_ - at_ : count;
            std::memcpy(out, buffer_ + at_, n);
            at_ += n;
            out += n;
            count -= n;
        }
        return true;
    }
    void Skip(uint32_t count, ErrorRecord* record) {
        if (count <= have_ - at_) {
            at_ += count;
        } else {
            Seek(Offset() + count, record);
        }
    }
    // Passes over data sub-blocks up to and including their zero terminator.
    bool SkipSubBlocks(ErrorRecord* record) {
        for (uint8_t length = 0;;) {
            if (!Byte(&length, record)) return false;
            if (length == 0) return true;
            Skip(length, record);
        }
    }

private:
    bool Refill(ErrorRecord* record) {
        if (record->failed()) return false;
        base_ += have_;
        at_ = 0;
        have_ = StreamRead(stream_, buffer_, sizeof buffer_, 0, record);
        return have_ > 0 && record->ok();
    }

    Stream* stream_;
    uint8_t buffer_[4096];
    uint64_t base_ = 0;
    uint32_t have_ = 0;
    uint32_t at_ = 0;
};

bool ReadTable(ByteSource* source, uint32_t count, RGBQUAD* table, ErrorRecord* record) {
    uint8_t rgb[3 * 256];
    if (!source->Bytes(rgb, 3 * count, record)) return false;
    for (uint32_t i = 0; i < count; ++i) table[i] = RGBQUAD{rgb[3 * i + 2], rgb[3 * i + 1], rgb[3 * i], 0};
    return true;
}

// The codes of a frame's image data: bits packed least significant first
// into data sub-blocks of up to 255 bytes.
class CodeReader {
public:
    explicit CodeReader(ByteSource* source) : source_(source) {}

    // False when the data runs out (the terminator or the end of the file).
    bool Code(uint32_t bits, uint32_t* code, ErrorRecord* record) {
        while (held_ < bits) {
            if (blockLeft_ == 0) {
                uint8_t length = 0;
                if (ended_ || !source_->Byte(&length, record)) return ended_ = true, false;
                if (length == 0) return ended_ = terminated_ = true, false;
                blockLeft_ = length;
            }
            uint8_t byte = 0;
            if (!source_->Byte(&byte, record)) return ended_ = true, false;
            --blockLeft_;
            buffer_ |= uint32_t{byte} << held_;
            held_ += 8;
        }
        *code = buffer_ & ((1u << bits) - 1);
        buffer_ >>= bits;
        held_ -= bits;
        return true;
    }
    // Passes over what is left of the data; true when its terminator was met.
    bool Finish(ErrorRecord* record) {
        if (ended_) return terminated_;
        source_->Skip(blockLeft_, record);
        blockLeft_ = 0;
        ended_ = true;
        return terminated_ = source_->SkipSubBlocks(record);
    }

private:
    ByteSource* source_;
    uint32_t buffer_ = 0;
    uint32_t held_ = 0;
    uint32_t blockLeft_ = 0;
    bool ended_ = false;
    bool terminated_ = false;
};

// Where decoded pixels go: rows from the top, or in the four passes of an
// interlaced frame (every 8th row from 0, every 8th from 4, every 4th from 2,
// every 2nd from 1).
class PixelSink {
public:
    PixelSink(const DibRows& rows, uint32_t width, bool interlaced, ProgressReporter* progress)
        : rows_(rows), width_(width), interlaced_(interlaced), progress_(progress) {}

    bool full() const { return full_; }

    // Takes `count` pixels; false once the frame is full or the host cancelled.
    bool Put(const uint8_t* pixels, uint32_t count, ErrorRecord* record) {
        while (count > 0 && !full_) {
            uint32_t n = width_ - x_ < count ? width_ - x_ : count;
            std::memcpy(rows_.top + rows_.stride * static_cast<ptrdiff_t>(y_) + x_, pixels, n);
            pixels += n;
            count -= n;
            x_ += n;
            if (x_ == width_ && !NextRow(record)) return false;
        }
        return !full_;
    }

private:
    bool NextRow(ErrorRecord* record) {
        x_ = 0;
        if (progress_ != nullptr && !progress_->Row(finished_, rows_.height, record)) {
            full_ = true;
            return false;
        }
        if (++finished_ == rows_.height) {
            full_ = true;
            return true;
        }
        if (!interlaced_) {
            ++y_;
            return true;
        }
        static constexpr uint32_t kStart[4] = {0, 4, 2, 1};
        static constexpr uint32_t kStep[4] = {8, 8, 4, 2};
        y_ += kStep[pass_];
        while (y_ >= rows_.height && pass_ < 3) y_ = kStart[++pass_];
        full_ = y_ >= rows_.height;
        return true;
    }

    DibRows rows_;
    uint32_t width_;
    bool interlaced_;
    ProgressReporter* progress_;
    uint32_t x_ = 0;
    uint32_t y_ = 0;
    uint32_t pass_ = 0;
    uint32_t finished_ = 0;
    bool full_ = false;
};

// Decodes GIF LZW codes into the sink: codes start at minimum + 1 bits and
// grow by one bit as soon as the table fills the current width (up to 12
// bits, 4096 entries); Clear is 2^minimum and End is Clear + 1. Returns
// false when the data was damaged or ended before the frame was full.
bool DecodeLzw(uint32_t minimum, CodeReader* codes, PixelSink* sink, ErrorRecord* record) {
    if (minimum < 1 || minimum > 8) return false;  // roots must be byte values
    struct Entry {
        uint16_t prefix;
        uint16_t length;
        uint8_t suffix;
        uint8_t first;  // the first byte of the entry's string
    };
    Entry table[kMaxCodes];
    uint8_t string[kMaxCodes];
    const uint32_t clear = 1u << minimum;
    const uint32_t end = clear + 1;
    for (uint32_t i = 0; i < clear; ++i) {
        table[i] = Entry{0, 1, static_cast<uint8_t>(i), static_cast<uint8_t>(i)};
    }
    constexpr uint32_t kNone = kMaxCodes;
    uint32_t bits = minimum + 1;
    uint32_t next = end + 1;
    uint32_t previous = kNone;
    while (!sink->full()) {
        uint32_t code = 0;
        if (!codes->Code(bits, &code, record)) return false;
        if (code == clear) {
            bits = minimum + 1;
            next = end + 1;
            previous = kNone;
            continue;
        }
        if (code == end) return false;
        if (previous == kNone) {
            if (code > end) return false;  // only a single byte may follow Clear
        } else {
            uint8_t last;
            if (code < next) {
                last = table[code].first;
            } else if (code == next && next < kMaxCodes) {
                last = table[previous].first;  // the string of the previous code and its own first byte
            } else {
                return false;
            }
            if (next < kMaxCodes) {
                table[next] = Entry{static_cast<uint16_t>(previous), static_cast<uint16_t>(table[previous].length + 1),
                                    last, table[previous].first};
                if (++next == (1u << bits) && bits < kMaxCodeBits) ++bits;
            }
        }
        uint32_t at = table[code].length;
        for (uint32_t c = code; at > 0; c = table[c].prefix) string[--at] = table[c].suffix;
        if (!sink->Put(string, table[code].length, record)) break;
        previous = code;
    }
    return sink->full();
}

// Comment bytes as wide text: UTF-8 where they form it, any other byte
// taken as its Latin-1 character. Never longer than the bytes.
bool CommentText(const CheckedArray<uint8_t>& bytes, CheckedArray<char16_t>* text, ErrorRecord* record) {
    if (!text->Sized(uint64_t{bytes.size()} + 1, record)) return false;
    static constexpr uint32_t kSmallest[4] = {0, 0x80, 0x800, 0x10000};
    const size_t count = bytes.size();
    size_t out = 0;
    for (size_t i = 0; i < count;) {
        const uint32_t lead = bytes[i];
        uint32_t extra = lead >= 0xF0 && lead <= 0xF4   ? 3
                         : lead >= 0xE0 && lead <= 0xEF ? 2
                         : lead >= 0xC2 && lead <= 0xDF ? 1
                                                        : 0;
        uint32_t value = lead;
        size_t used = 1;
        if (extra > 0 && i + extra < count) {
            uint32_t decoded = lead & (0x3Fu >> extra);
            bool valid = true;
            for (uint32_t k = 1; k <= extra; ++k) {
                valid = valid && (bytes[i + k] & 0xC0) == 0x80;
                decoded = decoded << 6 | (bytes[i + k] & 0x3Fu);
            }
            if (valid && decoded >= kSmallest[extra] && decoded <= 0x10FFFF && (decoded < 0xD800 || decoded > 0xDFFF)) {
                value = decoded;
                used += extra;
            }
        }
        i += used;
        if (value >= 0x10000) {
            (*text)[out++] = static_cast<char16_t>(0xD800 + ((value - 0x10000) >> 10));
            (*text)[out++] = static_cast<char16_t>(0xDC00 + ((value - 0x10000) & 0x3FF));
        } else {
            (*text)[out++] = static_cast<char16_t>(value);
        }
    }
    (*text)[out] = 0;
    return true;
}

}  // namespace

bool GifReader::Open(Stream* stream, ErrorRecord* record) {
    if (record->failed()) return false;
    stream_ = stream;
    ByteSource source(stream);
    source.Seek(StreamTell(stream), record);
    uint8_t bytes[13];
    if (!source.Bytes(bytes, 6, record) || std::memcmp(bytes, "GIF", 3) != 0) {
        SetRecordError(record, kErrUnrecognizedFormat, 0);
        return false;
    }
    const bool is87a = std::memcmp(bytes + 3, "87a", 3) == 0;
    if (!is87a && std::memcmp(bytes + 3, "89a", 3) != 0) {
        SetRecordError(record, kErrUnknownVersion, 0);
        return false;
    }
    if (!source.Bytes(bytes + 6, 7, record)) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    screenWidth_ = U16(bytes + 6);
    screenHeight_ = U16(bytes + 8);
    const uint8_t flags = bytes[10];
    // GIF87a has neither a sorted table nor an aspect value; either is refused there.
    if (screenWidth_ == 0 || screenHeight_ == 0 || (is87a && ((flags & 0x08) != 0 || bytes[12] != 0))) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    colorResolution_ = static_cast<uint8_t>(((flags >> 4) & 7) + 1);
    aspect_ = bytes[12] != 0 ? static_cast<uint16_t>(bytes[12] + 15) : 0;
    globalCount_ = 0;
    if (flags & 0x80) {
        globalCount_ = 2u << (flags & 7);
        if (!ReadTable(&source, globalCount_, global_, record)) {
            SetRecordError(record, kErrBadFileData, 0);
            return false;
        }
    }
    frameStarts_.Clear();
    return frameStarts_.Append(source.Offset(), record);
}

bool GifReader::FindFrame(uint32_t frame, GifFrame* out, ErrorRecord* record) {
    if (record->failed()) return false;
    *out = GifFrame();
    hasComment_ = false;
    commentBytes_.Clear();
    comment_.Clear();
    if (stream_ == nullptr || frameStarts_.empty()) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    if (frame == 0) {
        SetRecordError(record, kErrNoSuchFrame, 0);
        return false;
    }
    uint32_t index = frame < frameStarts_.size() ? frame : static_cast<uint32_t>(frameStarts_.size());
    ByteSource source(stream_);
    source.Seek(frameStarts_[index - 1], record);
    bool plainText = false;
    auto malformed = [record] {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    };
    for (uint8_t block = 0; record->ok();) {
        if (!source.Byte(&block, record)) return malformed();
        if (block == kTrailer) {
            SetRecordError(record, kErrNoSuchFrame, 0);
            return false;
        }
        if (block == kExtension) {
            uint8_t label = 0, size = 0;
            if (!source.Byte(&label, record)) return malformed();
            if (label == kCommentLabel) {
                if (index != frame) {
                    if (!source.SkipSubBlocks(record)) return malformed();
                    continue;
                }
                hasComment_ = true;
                for (uint8_t piece[255];;) {
                    if (!source.Byte(&size, record)) return malformed();
                    if (size == 0) break;
                    if (!source.Bytes(piece, size, record)) return malformed();
                    for (uint32_t i = 0; i < size; ++i) {
                        if (!commentBytes_.Append(piece[i], record)) return false;
                    }
                }
                continue;
            }
            if (!source.Byte(&size, record)) return malformed();
            if (label == kGraphicControl) {
                uint8_t terminator = 1;
                source.Skip(size, record);
                if (size != 4 || !source.Byte(&terminator, record) || terminator != 0) return malformed();
            } else if ((label == kApplication && size == 11) || (label == kPlainText && size == 12)) {
                source.Skip(size, record);
                if (!source.SkipSubBlocks(record)) return malformed();
                plainText = plainText || label == kPlainText;
            } else {
                return malformed();
            }
            continue;
        }
        if (block != kImageDescriptor) return malformed();
        uint8_t descriptor[9];
        if (!source.Bytes(descriptor, 9, record)) return malformed();
        const uint8_t flags = descriptor[8];
        const uint32_t localCount = (flags & 0x80) ? 2u << (flags & 7) : 0;
        if (index == frame) {
            out->left = U16(descriptor);
            out->top = U16(descriptor + 2);
            out->width = U16(descriptor + 4);
            out->height = U16(descriptor + 6);
            out->interlaced = (flags & 0x40) != 0;
            if (localCount > 0) {
                if (!ReadTable(&source, localCount, out->table, record)) return malformed();
                out->tableCount = localCount;
            } else {
                std::memcpy(out->table, global_, sizeof out->table);
                out->tableCount = globalCount_;
            }
            out->dataOffset = source.Offset();
            if (plainText) {
                SetRecordError(record, kErrUnsupportedImageType, 0);
                return false;
            }
            return record->ok() && (!hasComment_ || CommentText(commentBytes_, &comment_, record));
        }
        source.Skip(3 * localCount + 1, record);  // the table and the minimum code size
        if (!source.SkipSubBlocks(record)) return malformed();
        ++index;
        if (index > frameStarts_.size() && !frameStarts_.Append(source.Offset(), record)) return false;
        plainText = false;
    }
    return false;
}

HGLOBAL GifReader::ReadFrame(uint32_t frame, ProgressReporter* progress, ErrorRecord* record) {
    damaged_ = false;
    GifFrame found;
    if (!FindFrame(frame, &found, record)) return nullptr;
    if (found.tableCount == 0) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return nullptr;
    }
    if (found.width == 0 || found.height == 0) {
        SetRecordError(record, kErrBadFileData, 0);
        return nullptr;
    }
    HGLOBAL dib = CreatePackedDib(found.width, found.height, 8, found.table, found.tableCount, 0, 0, record);
    if (dib == nullptr) return nullptr;
    ByteSource source(stream_);
    source.Seek(found.dataOffset, record);
    uint8_t minimum = 0;
    bool complete = false;
    bool terminated = false;
    if (source.Byte(&minimum, record)) {
        ImageLock lock(dib);
        PixelSink sink(RowsFromTop(lock.header(), lock.bits()), found.width, found.interlaced, progress);
        CodeReader codes(&source);
        complete = DecodeLzw(minimum, &codes, &sink, record);
        terminated = record->ok() && codes.Finish(record);
    }
    if (record->failed()) {
        FreeImage(&dib);
        return nullptr;
    }
    damaged_ = !complete;
    if (terminated && frame == frameStarts_.size()) frameStarts_.Append(source.Offset(), record);
    return dib;
}

HGLOBAL ReadGifDib(Stream* stream, uint32_t frame, ProgressReporter* progress, bool* damaged, ErrorRecord* record) {
    GifReader reader;
    if (!reader.Open(stream, record)) return nullptr;
    HGLOBAL dib = reader.ReadFrame(frame, progress, record);
    if (damaged != nullptr) *damaged = reader.damaged();
    return dib;
}

}  // namespace velmora
