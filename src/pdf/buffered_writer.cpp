#include "pdf/buffered_writer.h"

#include <cstdint>
#include <cstring>

#include "frame/formatter.h"
#include "pdf/number_format.h"

namespace velmora {

void BufferedWriter::AttachStream(Stream* stream, uint64_t position) {
    stream_ = stream;
    bytes_ = nullptr;
    position_ = position;
    used_ = 0;
}

void BufferedWriter::AttachBytes(CheckedArray<uint8_t>* bytes) {
    stream_ = nullptr;
    bytes_ = bytes;
    position_ = bytes->size();
    used_ = 0;
}

void BufferedWriter::Put(uint8_t byte, ErrorRecord* record) {
    if (record->failed()) return;
    if (used_ == sizeof buffer_) Flush(record);
    buffer_[used_++] = byte;
}

void BufferedWriter::Write(const void* data, size_t size, ErrorRecord* record) {
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    // A run longer than the buffer (image data) goes to the stream as it is.
    if (stream_ != nullptr && size >= sizeof buffer_ && size <= UINT32_MAX && record->ok()) {
        Flush(record);
        StreamWrite(stream_, bytes, static_cast<uint32_t>(size), record);
        if (record->ok()) position_ += size;
        return;
    }
    while (size > 0 && record->ok()) {
        if (used_ == sizeof buffer_) Flush(record);
        size_t run = sizeof buffer_ - used_ < size ? sizeof buffer_ - used_ : size;
        std::memcpy(buffer_ + used_, bytes, run);
        used_ += run;
        bytes += run;
        size -= run;
    }
}

void BufferedWriter::Text(const char* text, ErrorRecord* record) { Write(text, std::strlen(text), record); }

void BufferedWriter::Unsigned(uint64_t value, ErrorRecord* record) {
    char text[32];
    Write(text, FormatNarrow(text, sizeof text, "%llu", static_cast<unsigned long long>(value)), record);
}

void BufferedWriter::Integer(int32_t value, ErrorRecord* record) {
    char text[kNumberTextSize];
    Write(text, FormatInteger(value, text), record);
}

void BufferedWriter::Real(double value, ErrorRecord* record) {
    char text[kNumberTextSize];
    Write(text, FormatReal(value, text), record);
}

void BufferedWriter::Flush(ErrorRecord* record) {
    if (record->failed() || used_ == 0) return;
    if (stream_ != nullptr) {
        StreamWrite(stream_, buffer_, static_cast<uint32_t>(used_), record);
    } else {
        for (size_t i = 0; i < used_ && bytes_->Append(buffer_[i], record); ++i) {
        }
    }
    if (record->failed()) return;
    position_ += used_;
    used_ = 0;
}

}  // namespace velmora
