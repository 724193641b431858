// Placement of a strip's decoded bytes into the destination rows.
//
// Decoders produce the bytes of the strip's rows one after another; the
// writer puts each row's visible part (the output width) at the row pointer,
// runs the row routine (the predictor, or a channel swap) on the finished row,
// reports progress and moves one row down. Bytes of a row past its visible
// part are dropped; a row of which only the visible part is decoded is
// assembled in a scratch row so that it never spills into its neighbours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "codecs/codec.h"
#include "codecs/predictor.h"
#include "frame/scratch_block.h"

namespace velmora {

// The decoded and the written bytes of one row of a page, from its widths;
// false with the record set when a row would be too large to handle.
bool StripRowSizes(const CodecPage& page, size_t* rowBytes, size_t* visibleBytes, ErrorRecord* record);

class StripRowWriter {
public:
    // Prepares the strip's rows of `rowBytes` decoded bytes, of which the
    // first `visibleBytes` are written. The rows stop at the strip's row count
    // and at the image's last row.
    bool Start(const CodecPage& page, const CodecStrip& strip, size_t rowBytes, size_t visibleBytes, RowRoutine routine,
               ErrorRecord* record);

    // True once every row of the strip is complete.
    bool done() const { return row_ >= rows_; }
    uint32_t rowsDone() const { return row_; }
    // Bytes the strip's remaining rows can still take.
    uint64_t remaining() const { return done() ? 0 : uint64_t{rows_ - row_ - 1} * rowBytes_ + room(); }

    // The current row: where the next decoded byte goes and how many bytes
    // are left in it. Only valid while !done().
    uint8_t* cursor() const { return target_ + pos_; }
    size_t room() const { return rowBytes_ - pos_; }
    size_t rowBytes() const { return rowBytes_; }
    // Counts `count` bytes written at the cursor (at most room()); a full row
    // is finished. False when the host cancelled (record set).
    bool Advance(size_t count, ErrorRecord* record) {
        pos_ += count;
        return pos_ < rowBytes_ || FinishRow(record);
    }
    // True when the strip's rows follow one another in memory and are
    // written whole, so that a decoder may write them in one run from the
    // cursor on, `remaining()` bytes long.
    bool contiguous() const {
        return !done() && visible_ == rowBytes_ && strip_->stride > 0 &&
               static_cast<size_t>(strip_->stride) == rowBytes_;
    }
    // Counts `count` bytes that the decoder wrote from the cursor on across
    // contiguous rows, finishing every row they complete. False when the
    // host cancelled (record set).
    bool Written(size_t count, ErrorRecord* record) {
        while (count > 0 && !done()) {
            size_t n = count < room() ? count : room();
            count -= n;
            if (!Advance(n, record)) return false;
        }
        return true;
    }

    // Appends bytes and a run of one repeated byte. Bytes past the strip's
    // last row are dropped. False when the host cancelled (record set).
    bool Put(const uint8_t* bytes, size_t count, ErrorRecord* record);
    bool PutRun(uint8_t value, size_t count, ErrorRecord* record);

    // Finishes the current row early, as though the rest were decoded
    // (bytes not written keep what the destination held).
    bool SkipRest(ErrorRecord* record) { return done() || FinishRow(record); }

    // Writes what there is of an incomplete last row. Call once at the end of
    // the strip, whatever its outcome.
    void Close();

private:
    bool FinishRow(ErrorRecord* record);
    void SelectTarget();

    const CodecStrip* strip_ = nullptr;
    uint32_t imageLength_ = 0;
    size_t rowBytes_ = 0;
    size_t visible_ = 0;
    RowRoutine routine_ = nullptr;
    uint32_t rows_ = 0;
    uint32_t row_ = 0;
    size_t pos_ = 0;
    uint8_t* dest_ = nullptr;    // the destination's current row
    uint8_t* target_ = nullptr;  // where bytes go: dest_ or the scratch row
    ScratchBlock scratch_;
};

}  // namespace velmora
