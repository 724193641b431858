#include "jpeg/jpeg_input.h"

#include <algorithm>
#include <cstring>

#include "io/stream.h"

namespace velmora::jpeg {

JpegInput::JpegInput(const JpegSource& source) : stream_(source.stream) {
    if (stream_ == nullptr) {
        cur = start_ = source.data;
        end = source.data != nullptr ? source.data + source.size : nullptr;
    } else {
        cur = end = start_ = buffer_;
    }
}

bool JpegInput::Refill(ErrorRecord* record) {
    if (cur < end) return true;
    if (stream_ == nullptr || record->failed()) return false;
    base_ += static_cast<uint64_t>(end - start_);
    uint32_t got = StreamRead(stream_, buffer_, static_cast<uint32_t>(kBufferSize), 0, record);
    start_ = cur = buffer_;
    end = buffer_ + (record->failed() ? 0 : got);
    return cur < end;
}

bool JpegInput::Read(uint8_t* out, size_t count, ErrorRecord* record) {
    while (count > 0) {
        if (cur == end && !Refill(record)) return false;
        size_t take = std::min(count, static_cast<size_t>(end - cur));
        std::memcpy(out, cur, take);
        cur += take;
        out += take;
        count -= take;
    }
    return true;
}

bool JpegInput::Skip(uint64_t count, ErrorRecord* record) {
    while (count > 0) {
        if (cur == end && !Refill(record)) return false;
        uint64_t take = std::min<uint64_t>(count, static_cast<uint64_t>(end - cur));
        cur += take;
        count -= take;
    }
    return true;
}

}  // namespace velmora::jpeg
