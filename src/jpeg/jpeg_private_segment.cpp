#include "jpeg/jpeg_private_segment.h"

#include <cstring>

namespace velmora::jpeg {
namespace {

constexpr char kSignature[8] = {'V', 'e', 'l', 'm', 'o', 'r', 'a', '\0'};

void PutBig16(uint8_t* out, uint16_t value) {
    out[0] = static_cast<uint8_t>(value >> 8);
    out[1] = static_cast<uint8_t>(value);
}

void PutBig32(uint8_t* out, uint32_t value) {
    PutBig16(out, static_cast<uint16_t>(value >> 16));
    PutBig16(out + 2, static_cast<uint16_t>(value));
}

uint32_t GetBig32(const uint8_t* in) {
    return (uint32_t{in[0]} << 24) | (uint32_t{in[1]} << 16) | (uint32_t{in[2]} << 8) | in[3];
}

}  // namespace

void BuildPrivateSegment(const PrivateSegment& segment, uint8_t* out) {
    out[0] = 0xFF;
    out[1] = kPrivateSegmentMarker;
    PutBig16(out + 2, static_cast<uint16_t>(kPrivateSegmentDataSize + 2));
    uint8_t* data = out + 4;
    std::memcpy(data, kSignature, sizeof kSignature);
    data[8] = static_cast<uint8_t>(segment.kind);
    PutBig16(data + 9, segment.unit);
    PutBig32(data + 11, segment.xNumerator);
    PutBig32(data + 15, segment.xDenominator);
    PutBig32(data + 19, segment.yNumerator);
    PutBig32(data + 23, segment.yDenominator);
}

bool ParsePrivateSegment(const uint8_t* data, size_t size, PrivateSegment* segment) {
    if (size != kPrivateSegmentDataSize || std::memcmp(data, kSignature, sizeof kSignature) != 0) {
        return false;
    }
    const uint8_t kind = data[8];
    if (kind != static_cast<uint8_t>(PrivateSegmentKind::Resolution) &&
        kind != static_cast<uint8_t>(PrivateSegmentKind::Scale)) {
        return false;
    }
    PrivateSegment parsed;
    parsed.kind = static_cast<PrivateSegmentKind>(kind);
    parsed.unit = static_cast<uint16_t>((data[9] << 8) | data[10]);
    parsed.xNumerator = GetBig32(data + 11);
    parsed.xDenominator = GetBig32(data + 15);
    parsed.yNumerator = GetBig32(data + 19);
    parsed.yDenominator = GetBig32(data + 23);
    if (parsed.xDenominator == 0 || parsed.yDenominator == 0) {
        return false;
    }
    *segment = parsed;
    return true;
}

}  // namespace velmora::jpeg
