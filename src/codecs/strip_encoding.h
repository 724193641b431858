// What every strip encoder shares: the strip job the page writer hands it,
// and the 2048-byte output buffer that goes to the stream whenever it fills.
//
// Encoders read the strip's rows top row first, each next `stride` bytes on
// (negative for bottom-up DIBs), and append the coded bytes to `out`. Each
// returns the bytes it wrote, which the writer records as the strip's byte
// count; after a failure (a stream error, or 1223 when the progress callback
// cancelled) that is what was written before it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "frame/error_record.h"
#include "frame/progress.h"
#include "frame/scratch_block.h"
#include "io/stream.h"

namespace velmora {

struct EncoderStrip {
    const uint8_t* topRow = nullptr;
    ptrdiff_t stride = 0;
    uint32_t rows = 0;      // rows of this strip
    uint32_t rowBytes = 0;  // bytes of a row (the byte codecs; the fax encoder takes the page width)
    // 24-bit rows of a DIB hold blue, green, red: with `swapRgb` each row is
    // coded with the first and third byte of every pixel exchanged.
    bool swapRgb = false;
    uint32_t index = 0;         // the strip's index,
    uint32_t stripCount = 0;    // the page's strips and
    uint32_t rowsPerStrip = 0;  // rows of a full strip, for progress
    Stream* out = nullptr;
    ProgressReporter* progress = nullptr;  // may be null

    const uint8_t* Row(uint32_t r) const { return topRow + static_cast<ptrdiff_t>(r) * stride; }
    // The row a byte encoder codes: row `r` itself, or with `swapRgb` its
    // copy in `scratch` (made ready by PrepareScratch) with red and blue
    // exchanged.
    bool PrepareScratch(ScratchBlock* scratch, ErrorRecord* record) const {
        return !swapRgb || scratch->Allocate(rowBytes, false, record) != nullptr;
    }
    const uint8_t* CodedRow(uint32_t r, const ScratchBlock& scratch) const {
        if (!swapRgb) return Row(r);
        uint8_t* copy = scratch.data();
        std::memcpy(copy, Row(r), rowBytes);
        for (uint32_t i = 0; i + 2 < rowBytes; i += 3) std::swap(copy[i], copy[i + 2]);
        return copy;
    }
    // Reports `done` rows of this strip finished: 100 x (index x rowsPerStrip
    // + done) / (stripCount x rowsPerStrip) percent. False once cancelled.
    bool ReportRows(uint32_t done, ErrorRecord* record) const {
        uint64_t total = uint64_t{stripCount} * rowsPerStrip;
        if (progress == nullptr || total == 0) return !record->failed();
        uint64_t percent = (uint64_t{index} * rowsPerStrip + done) * 100 / total;
        return progress->Percent(percent > 100 ? 100 : static_cast<uint32_t>(percent), record);
    }
};

// Buffers coded bytes and writes them to a stream 2048 at a time, bit-reversed
// when `reversal` (a 256-byte table) is given for FillOrder 2.
class EncodedOutput {
public:
    EncodedOutput(Stream* out, const uint8_t* reversal, ErrorRecord* record)
        : out_(out), reversal_(reversal), record_(record) {}

    void Put(uint8_t byte) {
        if (fill_ == sizeof(buffer_)) Flush();
        buffer_[fill_++] = byte;
    }
    // Room for `count` bytes (at most 2048) at the end of the buffer, to be
    // filled before the next call.
    uint8_t* Reserve(size_t count) {
        if (fill_ + count > sizeof(buffer_)) Flush();
        uint8_t* at = buffer_ + fill_;
        fill_ += count;
        return at;
    }
    // Writes what is buffered; returns the bytes written so far.
    uint64_t Flush() {
        if (fill_ != 0 && !record_->failed()) {
            if (reversal_ != nullptr) {
                for (size_t i = 0; i < fill_; ++i) buffer_[i] = reversal_[buffer_[i]];
            }
            StreamWrite(out_, buffer_, static_cast<uint32_t>(fill_), record_);
            if (!record_->failed()) written_ += fill_;
        }
        fill_ = 0;
        return written_;
    }

private:
    Stream* out_;
    const uint8_t* reversal_;
    ErrorRecord* record_;
    size_t fill_ = 0;
    uint64_t written_ = 0;
    uint8_t buffer_[2048];
};

}  // namespace velmora
