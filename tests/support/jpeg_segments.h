// The marker segments of a JPEG stream, for tests that check what a writer
// put where.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace velmora::testing_support {

struct JpegSegment {
    uint8_t marker;
    std::vector<uint8_t> data;  // without marker and length
};

// The segments of a stream up to EOI, SOI and EOI among them without data.
// The entropy-coded data after a scan header (stuffed zeros and restart
// markers with it) is skipped.
inline std::vector<JpegSegment> JpegSegments(const std::vector<uint8_t>& bytes) {
    std::vector<JpegSegment> segments;
    for (size_t i = 0; i + 1 < bytes.size() && bytes[i] == 0xFF;) {
        const uint8_t marker = bytes[i + 1];
        i += 2;
        if (marker == 0xD8 || marker == 0xD9) {
            segments.push_back({marker, {}});
            if (marker == 0xD9) break;
            continue;
        }
        if (i + 2 > bytes.size()) break;
        const size_t length = size_t{bytes[i]} << 8 | bytes[i + 1];
        if (length < 2 || i + length > bytes.size()) break;
        segments.push_back({marker, std::vector<uint8_t>(bytes.begin() + i + 2, bytes.begin() + i + length)});
        i += length;
        if (marker != 0xDA) continue;
        while (i + 1 < bytes.size() && !(bytes[i] == 0xFF && bytes[i + 1] != 0 && (bytes[i + 1] & 0xF8) != 0xD0)) ++i;
    }
    return segments;
}

inline std::vector<uint8_t> JpegMarkers(const std::vector<uint8_t>& bytes) {
    std::vector<uint8_t> markers;
    for (const JpegSegment& s : JpegSegments(bytes)) markers.push_back(s.marker);
    return markers;
}

// The data of every segment with `marker`, concatenated: for tables, whose
// split into segments differs between writers.
inline std::vector<uint8_t> JpegPayloads(const std::vector<uint8_t>& bytes, uint8_t marker) {
    std::vector<uint8_t> out;
    for (const JpegSegment& s : JpegSegments(bytes)) {
        if (s.marker == marker) out.insert(out.end(), s.data.begin(), s.data.end());
    }
    return out;
}

}  // namespace velmora::testing_support
