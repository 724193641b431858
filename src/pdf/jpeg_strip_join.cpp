// Joining a JPEG page's strips into one stream. Two passes over the strips:
// the first checks each strip's segments and measures its entropy-coded
// data, the second copies. The joined stream is the JPEGTables segments,
// the first strip's segments up to its scan header with the frame height set
// to the page's length and a DRI segment added, then every strip's data
// with RSTm markers between them, then EOI.
#include "pdf/jpeg_strip_join.h"

#include <cstring>

#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint8_t kSoi = 0xD8, kEoi = 0xD9, kSos = 0xDA, kDqt = 0xDB, kDri = 0xDD, kDht = 0xC4, kCom = 0xFE;
constexpr uint8_t kRst0 = 0xD0;
constexpr uint32_t kMaxHeader = 0x10000;  // a strip's segments before its data

uint32_t Word(const uint8_t* p) { return uint32_t{p[0]} << 8 | p[1]; }

// What the segments of one strip (or of the tables block) say.
struct Segments {
    uint32_t end = 0;      // just past the scan header (or the tables' last segment)
    uint32_t scanAt = 0;   // the SOS marker
    uint32_t frameAt = 0;  // the SOF marker
    uint32_t height = 0;   // the frame's
    uint32_t mcuWidth = 8, mcuHeight = 8;
};

// Walks the segments after SOI. `tables` is the JPEGTables block, which
// holds table segments only and ends with EOI; a strip must reach one
// baseline or extended sequential frame header and a scan holding every
// component. A restart interval other than 0 is refused: its markers would
// clash with the ones the join adds.
bool ReadSegments(const uint8_t* data, uint32_t size, bool tables, const TiffPageInfo& info, Segments* out) {
    if (size < 4 || data[0] != 0xFF || data[1] != kSoi) return false;
    uint32_t at = 2;
    bool framed = false;
    uint32_t components = 0;
    while (at + 2 <= size) {
        if (data[at] != 0xFF) return false;
        const uint8_t marker = data[at + 1];
        if (marker == 0xFF) {  // fill byte
            ++at;
            continue;
        }
        if (marker == kEoi) {
            out->end = at;
            return tables;
        }
        if (at + 4 > size) return false;
        const uint32_t length = Word(data + at + 2);
        if (length < 2 || uint64_t{at} + 2 + length > size) return false;
        const uint8_t* body = data + at + 4;
        const bool app = marker >= 0xE0 && marker <= 0xEF;
        if (marker == 0xC0 || marker == 0xC1) {
            if (tables || framed || length < 8 || body[0] != 8) return false;
            components = body[5];
            if (components != info.samplesPerPixel || length != 8 + 3 * components || Word(body + 3) != info.width) {
                return false;
            }
            uint32_t hMax = 1, vMax = 1;
            for (uint32_t c = 0; c < components; ++c) {
                const uint32_t h = body[7 + 3 * c] >> 4, v = body[7 + 3 * c] & 15;
                if (h == 0 || v == 0) return false;
                hMax = h > hMax ? h : hMax;
                vMax = v > vMax ? v : vMax;
            }
            // A scan of one component has one block for an MCU.
            if (components > 1) out->mcuWidth = 8 * hMax, out->mcuHeight = 8 * vMax;
            out->height = Word(body + 1);
            out->frameAt = at;
            framed = true;
        } else if (marker == kSos) {
            if (tables || !framed || length < 6 || body[0] != components || length != 6 + 2 * components) return false;
            const uint8_t* tail = body + 1 + 2 * components;
            if (tail[0] != 0 || tail[1] != 63 || tail[2] != 0) return false;
            out->scanAt = at;
            out->end = at + 2 + length;
            return true;
        } else if (marker == kDri) {
            if (length != 4 || Word(body) != 0) return false;
        } else if (marker != kDqt && marker != kDht && marker != kCom && !app) {
            return false;
        }
        at += 2 + length;
    }
    return false;
}

// The length of the entropy-coded data from `at` to the strip's EOI; false
// for restart markers, other markers and a strip cut short.
bool DataLength(const uint8_t* data, uint32_t size, uint32_t at, uint32_t* length) {
    for (uint32_t i = at; i + 1 < size; ++i) {
        const void* mark = std::memchr(data + i, 0xFF, size - 1 - i);
        if (mark == nullptr) break;
        i = static_cast<uint32_t>(static_cast<const uint8_t*>(mark) - data);
        const uint8_t next = data[i + 1];
        if (next == 0x00 || next == 0xFF) {
            if (next == 0x00) ++i;
            continue;
        }
        if (next != kEoi) return false;
        *length = i - at;
        return true;
    }
    return false;
}

struct Writer {
    uint8_t* out;
    uint32_t at = 0;
    void Put(const uint8_t* bytes, uint32_t count) {
        std::memcpy(out + at, bytes, count);
        at += count;
    }
    void Marker(uint8_t marker) {
        out[at++] = 0xFF;
        out[at++] = marker;
    }
};

}  // namespace

bool JoinJpegStrips(TiffFile* tiff, const TiffPageInfo& info, CheckedArray<uint8_t>* joined, ErrorRecord* record) {
    if (record->failed() || info.tiled || info.compression != 7 || info.stripCount < 2 ||
        info.planarConfiguration != 1 || info.bitsPerSample != 8 || info.length > 0xFFFF || info.rowsPerStrip == 0) {
        return false;
    }
    // The tables block, without its SOI and EOI.
    Segments tables;
    const uint8_t* tableBytes = nullptr;
    uint32_t tableSize = 0;
    if (info.jpegTables.handle != nullptr) {
        tableBytes = static_cast<const uint8_t*>(platform::MemLock(info.jpegTables.handle));
        const bool ok = tableBytes != nullptr && ReadSegments(tableBytes, info.jpegTables.size, true, info, &tables);
        if (!ok) {
            if (tableBytes != nullptr) platform::MemUnlock(info.jpegTables.handle);
            return false;
        }
        tableSize = tables.end - 2;
    }

    // First pass: every strip's segments equal the first strip's but for
    // the frame height, which must be the strip's share of the page.
    TiffStripBuffer buffer;
    CheckedArray<uint8_t> header;
    CheckedArray<uint32_t> lengths;  // of each strip's entropy-coded data
    if (!lengths.Sized(info.stripCount, record)) {
        if (tableBytes != nullptr) platform::MemUnlock(info.jpegTables.handle);
        return false;
    }
    Segments first;
    uint64_t total = 2 + uint64_t{tableSize} + 6 + 2 * uint64_t{info.stripCount};
    bool joinable = true;
    for (uint32_t i = 0; joinable && i < info.stripCount; ++i) {
        uint32_t size = 0;
        const uint8_t* strip = buffer.Read(tiff, &info, i, &size, record);
        if (strip == nullptr) break;
        Segments s;
        const uint32_t rows = i + 1 < info.stripCount ? info.rowsPerStrip : info.length - i * info.rowsPerStrip;
        uint32_t data = 0;
        joinable = ReadSegments(strip, size, false, info, &s) && s.height == rows && s.end <= kMaxHeader &&
                   DataLength(strip, size, s.end, &data);
        if (!joinable) break;
        if (i == 0) {
            const uint64_t mcus =
                (uint64_t{info.width} + s.mcuWidth - 1) / s.mcuWidth * (info.rowsPerStrip / s.mcuHeight);
            joinable =
                info.rowsPerStrip % s.mcuHeight == 0 && mcus != 0 && mcus <= 0xFFFF && header.Sized(s.end, record);
            if (!joinable) break;
            std::memcpy(header.data(), strip, s.end);
            first = s;
        } else {
            joinable = s.end == first.end && s.frameAt == first.frameAt &&
                       std::memcmp(strip, header.data(), s.frameAt + 5) == 0 &&
                       std::memcmp(strip + s.frameAt + 7, header.data() + s.frameAt + 7, s.end - s.frameAt - 7) == 0;
        }
        lengths[i] = data;
        total += uint64_t{s.end} + data;
    }
    if (!joinable || record->failed() || !joined->Sized(total, record)) {
        if (tableBytes != nullptr) platform::MemUnlock(info.jpegTables.handle);
        return false;
    }

    // Second pass: the joined stream.
    Writer w{joined->data()};
    w.Marker(kSoi);
    if (tableBytes != nullptr) {
        w.Put(tableBytes + 2, tableSize);
        platform::MemUnlock(info.jpegTables.handle);
    }
    header[first.frameAt + 5] = static_cast<uint8_t>(info.length >> 8);
    header[first.frameAt + 6] = static_cast<uint8_t>(info.length);
    w.Put(header.data() + 2, first.scanAt - 2);
    const uint32_t interval =
        (info.width + first.mcuWidth - 1) / first.mcuWidth * (info.rowsPerStrip / first.mcuHeight);
    const uint8_t restart[6] = {0xFF, kDri, 0, 4, static_cast<uint8_t>(interval >> 8), static_cast<uint8_t>(interval)};
    w.Put(restart, sizeof restart);
    w.Put(header.data() + first.scanAt, first.end - first.scanAt);
    for (uint32_t i = 0; i < info.stripCount; ++i) {
        uint32_t size = 0;
        const uint8_t* strip = buffer.Read(tiff, &info, i, &size, record);
        if (strip == nullptr) return false;
        // The strip's byte count comes from the directory read once, so the
        // strip is as long as when it was measured.
        const uint32_t data = lengths[i];
        if (uint64_t{first.end} + data > size || uint64_t{w.at} + data + 4 > total) return false;
        w.Put(strip + first.end, data);
        if (i + 1 < info.stripCount) w.Marker(static_cast<uint8_t>(kRst0 + i % 8));
    }
    w.Marker(kEoi);
    return joined->Sized(w.at, record);
}

}  // namespace velmora
