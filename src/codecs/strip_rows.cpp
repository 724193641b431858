#include "codecs/strip_rows.h"

#include <algorithm>

namespace velmora {

namespace {

// Rows of more than 256 MiB come only from damaged or hostile files.
constexpr uint64_t kMaxRowBytes = uint64_t{1} << 28;

}  // namespace

bool StripRowSizes(const CodecPage& page, size_t* rowBytes, size_t* visibleBytes, ErrorRecord* record) {
    if (record->failed()) return false;
    uint32_t output = page.outputWidth == 0 ? page.imageWidth : std::min(page.outputWidth, page.imageWidth);
    uint64_t stored = StoredRowBytes(page.imageWidth, page.bitsPerSample, page.samplesPerPixel);
    if (stored > kMaxRowBytes) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    *rowBytes = static_cast<size_t>(stored);
    *visibleBytes = static_cast<size_t>(StoredRowBytes(output, page.bitsPerSample, page.samplesPerPixel));
    return true;
}

bool StripRowWriter::Start(const CodecPage& page, const CodecStrip& strip, size_t rowBytes, size_t visibleBytes,
                           RowRoutine routine, ErrorRecord* record) {
    if (record->failed()) return false;
    strip_ = &strip;
    imageLength_ = page.imageLength;
    rowBytes_ = rowBytes;
    visible_ = std::min(visibleBytes, rowBytes);
    routine_ = routine;
    row_ = 0;
    pos_ = 0;
    rows_ = strip.rows;
    if (page.imageLength != 0) {
        uint32_t left = strip.firstRow < page.imageLength ? page.imageLength - strip.firstRow : 0;
        rows_ = std::min(rows_, left);
    }
    if (strip.topRow == nullptr || rowBytes_ == 0) rows_ = 0;
    dest_ = strip.topRow;
    if (visible_ < rowBytes_ && rows_ > 0 && scratch_.size() < rowBytes_) {
        if (scratch_.Allocate(rowBytes_, false, record) == nullptr) return false;
    }
    SelectTarget();
    return true;
}

void StripRowWriter::SelectTarget() { target_ = visible_ < rowBytes_ ? scratch_.data() : dest_; }

bool StripRowWriter::FinishRow(ErrorRecord* record) {
    if (target_ != dest_) std::memcpy(dest_, target_, visible_);
    if (routine_ != nullptr) routine_(dest_, visible_);
    ++row_;
    pos_ = 0;
    if (row_ < rows_) {
        dest_ += strip_->stride;
        SelectTarget();
    }
    if (strip_->progress != nullptr && !strip_->progress->Row(strip_->firstRow + row_ - 1, imageLength_, record))
        return false;
    return true;
}

bool StripRowWriter::Put(const uint8_t* bytes, size_t count, ErrorRecord* record) {
    while (count > 0 && !done()) {
        size_t n = std::min(count, room());
        std::memcpy(cursor(), bytes, n);
        bytes += n;
        count -= n;
        if (!Advance(n, record)) return false;
    }
    return true;
}

bool StripRowWriter::PutRun(uint8_t value, size_t count, ErrorRecord* record) {
    while (count > 0 && !done()) {
        size_t n = std::min(count, room());
        std::memset(cursor(), value, n);
        count -= n;
        if (!Advance(n, record)) return false;
    }
    return true;
}

void StripRowWriter::Close() {
    if (!done() && target_ != dest_ && pos_ > 0) std::memcpy(dest_, target_, std::min(pos_, visible_));
    pos_ = 0;
}

}  // namespace velmora
