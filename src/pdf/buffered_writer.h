// The small buffered writer that every PDF byte goes through: single bytes
// and runs collected in a fixed buffer and handed on to a stream (a PDF
// file) or to a growing byte array (a serialised object), with the position
// of the next byte.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "io/stream.h"

namespace velmora {

class BufferedWriter {
public:
    // Writes to `stream`, whose current end is `position`.
    void AttachStream(Stream* stream, uint64_t position);
    // Appends to `bytes`.
    void AttachBytes(CheckedArray<uint8_t>* bytes);

    void Put(uint8_t byte, ErrorRecord* record);
    void Write(const void* data, size_t size, ErrorRecord* record);
    void Text(const char* text, ErrorRecord* record);
    // Unsigned and signed decimals, and reals in the PDF format.
    void Unsigned(uint64_t value, ErrorRecord* record);
    void Integer(int32_t value, ErrorRecord* record);
    void Real(double value, ErrorRecord* record);
    // Hands the buffered bytes on.
    void Flush(ErrorRecord* record);

    // The offset of the next byte written.
    uint64_t Position() const { return position_ + used_; }

private:
    Stream* stream_ = nullptr;
    CheckedArray<uint8_t>* bytes_ = nullptr;
    uint64_t position_ = 0;
    size_t used_ = 0;
    uint8_t buffer_[4096];
};

}  // namespace velmora
