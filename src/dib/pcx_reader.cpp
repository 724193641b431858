#include "dib/pcx_reader.h"

#include <cstring>

#include "dib/dib_layout.h"
#include "dib/image.h"
#include "frame/checked_array.h"

namespace velmora {
namespace {

constexpr uint8_t kPcxMagic = 10;
constexpr uint8_t kPcxRunLength = 1;
constexpr uint8_t kPaletteMarker = 12;
constexpr uint32_t kTrailingPaletteBytes = 1 + 768;  // the marker and 256 entries
// The smallest file that can hold a header, some data and a trailing table.
constexpr uint64_t kMinPalettedFile = kPcxHeaderSize + 897;
constexpr uint32_t kInputPiece = 2048;

uint16_t U16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }

// The run-length coded data after the header, read in pieces. A run longer
// than what is left of a scan line carries on into the next line.
class RunDecoder {
public:
    RunDecoder(Stream* stream, uint64_t end) : stream_(stream), end_(end) {}

    // Fills `count` bytes of `out`; false when the data ended first (what was
    // decoded stays, the rest is zero).
    bool Fill(uint8_t* out, uint32_t count, ErrorRecord* record) {
        uint32_t pos = 0;
        while (pos < count) {
            if (runLeft_ > 0) {
                uint32_t n = runLeft_ < count - pos ? runLeft_ : count - pos;
                std::memset(out + pos, runValue_, n);
                pos += n;
                runLeft_ -= n;
                continue;
            }
            uint8_t byte = 0;
            if (!Next(&byte, record)) break;
            if ((byte & 0xC0) != 0xC0) {
                out[pos++] = byte;
                continue;
            }
            if (!Next(&runValue_, record)) break;
            runLeft_ = byte & 0x3Fu;
            if (runLeft_ > count - pos) damaged = true;
        }
        if (pos == count) return true;
        std::memset(out + pos, 0, count - pos);
        damaged = true;
        return false;
    }

    bool damaged = false;

private:
    bool Next(uint8_t* byte, ErrorRecord* record) {
        if (at_ == have_) {
            uint64_t position = StreamTell(stream_);
            uint64_t left = position < end_ ? end_ - position : 0;
            uint32_t want = left < kInputPiece ? static_cast<uint32_t>(left) : kInputPiece;
            have_ = want > 0 ? StreamRead(stream_, buffer_, want, 0, record) : 0;
            at_ = 0;
            if (have_ == 0 || record->failed()) return false;
        }
        *byte = buffer_[at_++];
        return true;
    }

    Stream* stream_;
    uint64_t end_;
    uint8_t buffer_[kInputPiece];
    uint32_t have_ = 0;
    uint32_t at_ = 0;
    uint32_t runLeft_ = 0;
    uint8_t runValue_ = 0;
};

// One decoded scan line (its planes one after another) into a DIB row.
void MergePlanes(const PcxHeader& header, const uint8_t* line, uint8_t* row) {
    const uint32_t width = static_cast<uint32_t>(header.width);
    const uint8_t* plane0 = line;
    if (header.planes == 1) {
        std::memcpy(row, plane0, (size_t{width} * header.bitCount + 7) / 8);
    } else if (header.planes == 3) {
        const uint8_t* plane1 = line + header.bytesPerLine;
        const uint8_t* plane2 = plane1 + header.bytesPerLine;
        for (uint32_t x = 0; x < width; ++x) {
            row[3 * x] = plane2[x];
            row[3 * x + 1] = plane1[x];
            row[3 * x + 2] = plane0[x];
        }
    } else {  // four planes of one bit: plane p gives bit p of the pixel
        for (uint32_t x = 0; x < width; ++x) {
            uint32_t value = 0;
            for (uint32_t p = 0; p < 4; ++p) {
                value |= ((line[p * header.bytesPerLine + x / 8] >> (7 - x % 8)) & 1u) << p;
            }
            row[x / 2] |= static_cast<uint8_t>(x % 2 == 0 ? value << 4 : value);
        }
    }
}

}  // namespace

bool ParsePcxHeader(const uint8_t* bytes, PcxHeader* header, ErrorRecord* record) {
    if (record->failed()) return false;
    *header = PcxHeader();
    const uint8_t version = bytes[1];
    if (bytes[0] != kPcxMagic || (version != 0 && version != 2 && version != 3 && version != 5) ||
        bytes[2] != kPcxRunLength) {
        SetRecordError(record, kErrUnrecognizedFormat, 0);
        return false;
    }
    header->version = version;
    header->bitsPerPlane = bytes[3];
    header->width = int32_t{U16(bytes + 8)} - U16(bytes + 4) + 1;
    header->height = int32_t{U16(bytes + 10)} - U16(bytes + 6) + 1;
    std::memcpy(header->palette16, bytes + 16, sizeof header->palette16);
    header->planes = bytes[65];
    header->bytesPerLine = U16(bytes + 66);
    if (header->width <= 0 || header->height <= 0) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    const uint32_t planes = header->planes, bits = header->bitsPerPlane;
    const bool accepted = (planes == 1 && (bits == 1 || bits == 4 || bits == 8)) || (planes == 4 && bits == 1) ||
                          (planes == 3 && bits == 8);
    if (!accepted) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    header->bitCount = static_cast<uint16_t>(planes * bits);
    if (header->bytesPerLine < (uint64_t{static_cast<uint32_t>(header->width)} * bits + 7) / 8) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    return true;
}

HGLOBAL ReadPcxImage(Stream* stream, ProgressReporter* progress, bool* damaged, ErrorRecord* record) {
    if (damaged != nullptr) *damaged = false;
    if (record->failed()) return nullptr;
    const uint64_t start = StreamTell(stream);
    uint8_t bytes[kPcxHeaderSize];
    StreamRead(stream, bytes, kPcxHeaderSize, kErrBadFileData, record);
    PcxHeader header;
    if (record->failed() || !ParsePcxHeader(bytes, &header, record)) return nullptr;

    RGBQUAD table[256] = {};
    uint32_t tableCount = header.bitCount <= 8 ? 1u << header.bitCount : 0;
    uint64_t dataEnd = StreamSize64(stream, record);
    if (record->failed()) return nullptr;
    if (header.version == 3) {
        for (uint32_t i = 0; i < tableCount; ++i) {
            auto level = static_cast<BYTE>(i * 255 / (tableCount - 1));
            table[i] = RGBQUAD{level, level, level, 0};
        }
    } else if (header.bitCount == 8 && header.version == 5) {
        uint8_t trailing[kTrailingPaletteBytes];
        if (dataEnd < start || dataEnd - start < kMinPalettedFile) {
            SetRecordError(record, kErrBadFileData, 0);
            return nullptr;
        }
        dataEnd -= kTrailingPaletteBytes;
        StreamSeek64(stream, dataEnd, record);
        StreamRead(stream, trailing, kTrailingPaletteBytes, kErrBadFileData, record);
        if (record->ok() && trailing[0] != kPaletteMarker) SetRecordError(record, kErrBadFileData, 0);
        if (record->failed()) return nullptr;
        for (uint32_t i = 0; i < 256; ++i) {
            const uint8_t* rgb = trailing + 1 + 3 * i;
            table[i] = RGBQUAD{rgb[2], rgb[1], rgb[0], 0};
        }
        StreamSeek64(stream, start + kPcxHeaderSize, record);
    } else if (header.bitCount == 1) {
        table[1] = RGBQUAD{255, 255, 255, 0};
    } else if (header.bitCount == 4) {
        for (uint32_t i = 0; i < 16; ++i) {
            const uint8_t* rgb = header.palette16 + 3 * i;
            table[i] = RGBQUAD{rgb[2], rgb[1], rgb[0], 0};
        }
    } else if (header.bitCount != 24) {
        // An 8-bit image of an early version has no table of its own.
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return nullptr;
    }

    HGLOBAL dib = CreatePackedDib(header.width, header.height, header.bitCount, table, tableCount, 0, 0, record);
    if (dib == nullptr) return nullptr;
    CheckedArray<uint8_t> line;
    line.Sized(uint64_t{header.bytesPerLine} * header.planes, record);
    RunDecoder decoder(stream, dataEnd);
    {
        ImageLock lock(dib);
        DibRows rows = RowsFromTop(lock.header(), lock.bits());
        const uint32_t lineBytes = static_cast<uint32_t>(line.size());
        for (uint32_t y = 0; record->ok() && y < rows.height; ++y) {
            bool complete = decoder.Fill(line.data(), lineBytes, record);
            if (record->failed()) break;
            MergePlanes(header, line.data(), rows.top + rows.stride * static_cast<ptrdiff_t>(y));
            if (!complete) break;  // the rows below stay zero
            if (progress != nullptr) progress->Row(y, rows.height, record);
        }
    }
    if (record->failed()) {
        FreeImage(&dib);
        return nullptr;
    }
    if (damaged != nullptr) *damaged = decoder.damaged;
    return dib;
}

HGLOBAL ReadPcxDib(Stream* stream, ProgressReporter* progress, ErrorRecord* record) {
    return ReadPcxImage(stream, progress, nullptr, record);
}

}  // namespace velmora
