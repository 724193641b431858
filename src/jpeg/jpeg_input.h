// The bytes of a JPEG stream as the marker layer and the entropy decoder
// read them: either one block of memory, or a stream read from its current
// position through a 2048-byte buffer. Readers use the window [cur, end)
// directly and call Refill when it is used up.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jpeg/jpeg_decoder.h"
#include "frame/error_record.h"

namespace velmora::jpeg {

// The marker value that stands for the end of the data where a marker was
// expected.
constexpr uint32_t kEndOfData = 0x100;

class JpegInput {
public:
    static constexpr size_t kBufferSize = 2048;

    explicit JpegInput(const JpegSource& source);

    // Makes more bytes available when the window is used up: true when
    // cur < end afterwards, false at the end of the data (or on a stream
    // error, which the record then holds).
    bool Refill(ErrorRecord* record);

    // Reads one byte; false at the end of the data.
    bool ReadByte(uint8_t* out, ErrorRecord* record) {
        if (cur == end && !Refill(record)) return false;
        *out = *cur++;
        return true;
    }
    // Reads `count` bytes; false when the data ends first.
    bool Read(uint8_t* out, size_t count, ErrorRecord* record);
    // Skips `count` bytes; false when the data ends first.
    bool Skip(uint64_t count, ErrorRecord* record);

    // Offset of `cur` from the start of the source.
    uint64_t Position() const { return base_ + static_cast<uint64_t>(cur - start_); }

    const uint8_t* cur = nullptr;
    const uint8_t* end = nullptr;

private:
    Stream* stream_ = nullptr;
    const uint8_t* start_ = nullptr;  // the first byte of the current window
    uint64_t base_ = 0;               // offset of `start_` from the start of the source
    uint8_t buffer_[kBufferSize];
};

}  // namespace velmora::jpeg
