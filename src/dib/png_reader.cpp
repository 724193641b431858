#include "dib/png_reader.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <optional>

#include "codecs/inflater.h"
#include "dib/dib_layout.h"
#include "dib/image.h"
#include "frame/scratch_block.h"

namespace velmora {
namespace {

constexpr uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
// Chunk lengths and image dimensions are four-byte integers limited to 2^31 - 1.
constexpr uint32_t kMaxPngInteger = 0x7FFFFFFFu;
constexpr uint32_t kMaxPaletteEntries = 256;

constexpr uint32_t ChunkType(const char (&name)[5]) {
    return static_cast<uint32_t>(static_cast<uint8_t>(name[0])) << 24 |
           static_cast<uint32_t>(static_cast<uint8_t>(name[1])) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(name[2])) << 8 | static_cast<uint8_t>(name[3]);
}
constexpr uint32_t kChunkIhdr = ChunkType("IHDR");
constexpr uint32_t kChunkPlte = ChunkType("PLTE");
constexpr uint32_t kChunkIdat = ChunkType("IDAT");
constexpr uint32_t kChunkIend = ChunkType("IEND");
constexpr uint32_t kChunkBkgd = ChunkType("bKGD");
constexpr uint32_t kChunkPhys = ChunkType("pHYs");

// CRC-32 as PNG uses it: the reflected polynomial 0xEDB88320, register
// preset to all ones and inverted at the end.
constexpr std::array<uint32_t, 256> MakeCrcTable() {
    std::array<uint32_t, 256> table{};
    for (uint32_t n = 0; n < 256; ++n) {
        uint32_t c = n;
        for (int k = 0; k < 8; ++k) c = (c & 1) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
        table[n] = c;
    }
    return table;
}
constexpr std::array<uint32_t, 256> kCrcTable = MakeCrcTable();

// Continues a CRC register (start with 0xFFFFFFFF, invert the result).
uint32_t CrcUpdate(uint32_t crc, const uint8_t* data, size_t size) {
    for (size_t i = 0; i < size; ++i) crc = kCrcTable[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return crc;
}

uint32_t BigEndian32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 | static_cast<uint32_t>(p[2]) << 8 |
           p[3];
}
uint16_t BigEndian16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }

enum ColorType : uint8_t { kGrey = 0, kRgb = 2, kPalette = 3, kGreyAlpha = 4, kRgba = 6 };

// How the samples of one unfiltered row become DIB pixels.
enum class Layout : uint8_t {
    Copy,         // grey or palette at 1, 4 or 8 bits: the DIB has the same bits
    Grey2,        // 2-bit grey to 4 bits, levels spread over the 16-level ramp
    Palette2,     // 2-bit indices to 4 bits, indices kept
    Grey16,       // high byte of each sample
    GreyAlpha8,   // grey byte of each pair
    GreyAlpha16,  // high grey byte of each 4-byte pixel
    Rgb8,         // red, green, blue to blue, green, red
    Rgb16,
    Rgba8,  // as Rgb8, the alpha byte optionally to a second row
    Rgba16,
};

struct PngHeader {
    uint32_t width = 0;
    uint32_t height = 0;
    uint8_t depth = 0;
    uint8_t colorType = 0;
    uint8_t interlace = 0;
    uint32_t pixelBits = 0;   // bits of one pixel, all channels
    uint32_t filterUnit = 0;  // bytes between a byte and the one its filter refers to
    uint16_t dibBits = 0;
    Layout layout = Layout::Copy;
};

// Checks the bit depth against the colour type; sets the derived fields.
bool DescribeFormat(PngHeader* h) {
    uint32_t channels = 0;
    bool depthOk = false;
    switch (h->colorType) {
        case kGrey:
            channels = 1;
            depthOk = h->depth == 1 || h->depth == 2 || h->depth == 4 || h->depth == 8 || h->depth == 16;
            h->dibBits = h->depth == 1 ? 1 : h->depth <= 4 ? 4 : 8;
            h->layout = h->depth == 2 ? Layout::Grey2 : h->depth == 16 ? Layout::Grey16 : Layout::Copy;
            break;
        case kPalette:
            channels = 1;
            depthOk = h->depth == 1 || h->depth == 2 || h->depth == 4 || h->depth == 8;
            h->dibBits = h->depth == 1 ? 1 : h->depth <= 4 ? 4 : 8;
            h->layout = h->depth == 2 ? Layout::Palette2 : Layout::Copy;
            break;
        case kRgb:
            channels = 3;
            depthOk = h->depth == 8 || h->depth == 16;
            h->dibBits = 24;
            h->layout = h->depth == 8 ? Layout::Rgb8 : Layout::Rgb16;
            break;
        case kGreyAlpha:
            channels = 2;
            depthOk = h->depth == 8 || h->depth == 16;
            h->dibBits = 8;
            h->layout = h->depth == 8 ? Layout::GreyAlpha8 : Layout::GreyAlpha16;
            break;
        case kRgba:
            channels = 4;
            depthOk = h->depth == 8 || h->depth == 16;
            h->dibBits = 24;
            h->layout = h->depth == 8 ? Layout::Rgba8 : Layout::Rgba16;
            break;
        default: return false;
    }
    h->pixelBits = channels * h->depth;
    h->filterUnit = h->pixelBits < 8 ? 1 : h->pixelBits / 8;
    return depthOk;
}

uint64_t RawRowBytes(const PngHeader& h, uint64_t width) { return (width * h.pixelBits + 7) / 8; }

// Reverses filter `type` (0 to 4) on one row in place; `prior` is the row
// above after its own unfiltering (zeros for a pass's first row).
void Unfilter(uint8_t type, uint8_t* row, const uint8_t* prior, size_t length, size_t unit) {
    switch (type) {
        case 1:  // Sub
            for (size_t i = unit; i < length; ++i) row[i] = static_cast<uint8_t>(row[i] + row[i - unit]);
            break;
        case 2:  // Up
            for (size_t i = 0; i < length; ++i) row[i] = static_cast<uint8_t>(row[i] + prior[i]);
            break;
        case 3: {  // Average
            size_t i = 0;
            for (; i < unit && i < length; ++i) row[i] = static_cast<uint8_t>(row[i] + (prior[i] >> 1));
            for (; i < length; ++i) row[i] = static_cast<uint8_t>(row[i] + ((row[i - unit] + prior[i]) >> 1));
            break;
        }
        case 4: {  // Paeth
            size_t i = 0;
            for (; i < unit && i < length; ++i) row[i] = static_cast<uint8_t>(row[i] + prior[i]);
            for (; i < length; ++i) {
                int a = row[i - unit], b = prior[i], c = prior[i - unit];
                int pa = b - c, pb = a - c;
                int pc = pa + pb;
                pa = pa < 0 ? -pa : pa;
                pb = pb < 0 ? -pb : pb;
                pc = pc < 0 ? -pc : pc;
                int predictor = (pa <= pb && pa <= pc) ? a : pb <= pc ? b : c;
                row[i] = static_cast<uint8_t>(row[i] + predictor);
            }
            break;
        }
        default:  // None
            break;
    }
}

// Converts `count` pixels of an unfiltered row into DIB pixels at the start
// of `out` (and alpha bytes into `alpha` when it is not null).
void ConvertRow(Layout layout, uint32_t pixelBits, const uint8_t* in, uint32_t count, uint8_t* out, uint8_t* alpha) {
    switch (layout) {
        case Layout::Copy: std::memcpy(out, in, static_cast<size_t>((uint64_t{count} * pixelBits + 7) / 8)); break;
        case Layout::Grey2:
        case Layout::Palette2: {
            // Grey levels 0..3 become ramp entries 0, 5, 10, 15 (grey 0, 85,
            // 170, 255 as before); palette indices stay the same numbers.
            const unsigned scale = layout == Layout::Grey2 ? 5 : 1;
            const uint32_t outBytes = (count + 1) / 2;
            for (uint32_t o = 0; o < outBytes; ++o) {
                unsigned pair = (in[o / 2] >> ((o & 1) ? 0 : 4)) & 0xF;
                out[o] = static_cast<uint8_t>(((pair >> 2) * scale) << 4 | (pair & 3) * scale);
            }
            break;
        }
        case Layout::Grey16:
            for (uint32_t i = 0; i < count; ++i) out[i] = in[2 * i];
            break;
        case Layout::GreyAlpha8:
            for (uint32_t i = 0; i < count; ++i) out[i] = in[2 * i];
            break;
        case Layout::GreyAlpha16:
            for (uint32_t i = 0; i < count; ++i) out[i] = in[4 * i];
            break;
        case Layout::Rgb8:
            for (uint32_t i = 0; i < count; ++i, in += 3, out += 3) {
                out[0] = in[2];
                out[1] = in[1];
                out[2] = in[0];
            }
            break;
        case Layout::Rgb16:
            for (uint32_t i = 0; i < count; ++i, in += 6, out += 3) {
                out[0] = in[4];
                out[1] = in[2];
                out[2] = in[0];
            }
            break;
        case Layout::Rgba8:
            for (uint32_t i = 0; i < count; ++i, in += 4, out += 3) {
                out[0] = in[2];
                out[1] = in[1];
                out[2] = in[0];
                if (alpha != nullptr) alpha[i] = in[3];
            }
            break;
        case Layout::Rgba16:
            for (uint32_t i = 0; i < count; ++i, in += 8, out += 3) {
                out[0] = in[4];
                out[1] = in[2];
                out[2] = in[0];
            }
            break;
    }
}

// Places `count` packed DIB pixels of `bits` each from `in` at x = x0,
// x0 + dx, ... of a DIB row that is zero where they go.
void ScatterPixels(const uint8_t* in, uint32_t count, uint16_t bits, uint8_t* row, uint32_t x0, uint32_t dx) {
    uint32_t x = x0;
    switch (bits) {
        case 1:
            for (uint32_t i = 0; i < count; ++i, x += dx) {
                if ((in[i >> 3] >> (7 - (i & 7))) & 1) row[x >> 3] |= static_cast<uint8_t>(0x80 >> (x & 7));
            }
            break;
        case 4:
            for (uint32_t i = 0; i < count; ++i, x += dx) {
                unsigned nibble = (in[i >> 1] >> ((i & 1) ? 0 : 4)) & 0xF;
                row[x >> 1] |= static_cast<uint8_t>(nibble << ((x & 1) ? 0 : 4));
            }
            break;
        case 8:
            for (uint32_t i = 0; i < count; ++i, x += dx) row[x] = in[i];
            break;
        default:  // 24
            for (uint32_t i = 0; i < count; ++i, x += dx) std::memcpy(row + size_t{x} * 3, in + size_t{i} * 3, 3);
            break;
    }
}

struct Pass {
    uint32_t x0, y0, dx, dy;
};
constexpr Pass kWholeImage[1] = {{0, 0, 1, 1}};
constexpr Pass kAdam7[7] = {{0, 0, 8, 8}, {4, 0, 8, 8}, {0, 4, 4, 8}, {2, 0, 4, 4},
                            {0, 2, 2, 4}, {1, 0, 2, 2}, {0, 1, 1, 2}};

uint32_t PassExtent(uint32_t size, uint32_t start, uint32_t step) {
    return size > start ? (size - start + step - 1) / step : 0;
}

// Turns the inflated image data into DIB rows as it arrives: each row is
// gathered, unfiltered against the row before it and converted into its
// place; interlaced passes are scattered into the rows they belong to.
class ImageDecoder final : private InflateSink {
public:
    ImageDecoder(const PngHeader& header, DibRows rows, DibRows alphaRows, ProgressReporter* progress)
        : h_(header), rows_(rows), alphaRows_(alphaRows), progress_(progress) {
        passes_ = header.interlace ? kAdam7 : kWholeImage;
        passCount_ = header.interlace ? 7 : 1;
    }

    // Decodes the zlib stream. False with the record set for a failure that
    // loses the image (memory, cancel); *damaged tells whether the data
    // stopped before the last row or was faulty.
    bool Run(const uint8_t* data, size_t size, bool* damaged, ErrorRecord* record) {
        *damaged = false;
        record_ = record;
        uint64_t fullRow = RawRowBytes(h_, h_.width);
        if (!buffer_.Allocate(static_cast<size_t>(2 * (fullRow + 1)), true, record)) return false;
        if (h_.interlace) {
            uint64_t compact = RowStride(h_.dibBits, h_.width) + h_.width;  // DIB pixels and alpha of one pass row
            if (!compact_.Allocate(static_cast<size_t>(compact), false, record)) return false;
        }
        cur_ = buffer_.data();
        prev_ = cur_ + fullRow + 1;
        for (uint32_t p = 0; p < passCount_; ++p) {
            totalRows_ += PassExtent(h_.width, passes_[p].x0, passes_[p].dx) == 0
                              ? 0
                              : PassExtent(h_.height, passes_[p].y0, passes_[p].dy);
        }
        pass_ = 0;
        StartPass();

        ErrorRecord inflate;
        bool ok = inflater_.DecodeZlibStream(data, size, this, &inflate);
        inflater_.Release();
        if (record->failed()) return false;  // cancelled in a progress report
        if (inflate.code == kErrNotEnoughMemory) {
            *record = inflate;
            return false;
        }
        *damaged = !ok || inflate.failed() || pass_ < passCount_;
        return true;
    }

private:
    // Moves to the first pass from pass_ on that has pixels.
    void StartPass() {
        for (; pass_ < passCount_; ++pass_) {
            const Pass& p = passes_[pass_];
            passWidth_ = PassExtent(h_.width, p.x0, p.dx);
            passHeight_ = PassExtent(h_.height, p.y0, p.dy);
            if (passWidth_ == 0 || passHeight_ == 0) continue;  // an empty pass holds no bytes at all
            rowLength_ = static_cast<size_t>(RawRowBytes(h_, passWidth_)) + 1;
            std::memset(prev_, 0, rowLength_);
            filled_ = 0;
            passRow_ = 0;
            return;
        }
    }

    bool Take(const uint8_t* bytes, size_t count, ErrorRecord* record) override {
        while (count > 0 && pass_ < passCount_) {
            size_t n = rowLength_ - filled_;
            if (n > count) n = count;
            std::memcpy(cur_ + filled_, bytes, n);
            filled_ += n;
            bytes += n;
            count -= n;
            if (filled_ == rowLength_ && !FinishRow(record)) return false;
        }
        return true;  // bytes past the last row are decoded and dropped
    }

    bool FinishRow(ErrorRecord* record) {
        uint8_t filter = cur_[0];
        if (filter > 4) {
            SetRecordError(record, kErrBadImageData, 0);
            return false;
        }
        size_t length = rowLength_ - 1;
        Unfilter(filter, cur_ + 1, prev_ + 1, length, h_.filterUnit);

        const Pass& p = passes_[pass_];
        uint32_t y = p.y0 + passRow_ * p.dy;
        uint8_t* target = rows_.top + rows_.stride * static_cast<ptrdiff_t>(y);
        uint8_t* alphaTarget =
            alphaRows_.top != nullptr ? alphaRows_.top + alphaRows_.stride * static_cast<ptrdiff_t>(y) : nullptr;
        if (p.dx == 1) {
            ConvertRow(h_.layout, h_.pixelBits, cur_ + 1, passWidth_, target, alphaTarget);
        } else {
            uint8_t* pixels = compact_.data();
            uint8_t* alpha = pixels + RowStride(h_.dibBits, passWidth_);
            ConvertRow(h_.layout, h_.pixelBits, cur_ + 1, passWidth_, pixels, alphaTarget ? alpha : nullptr);
            ScatterPixels(pixels, passWidth_, h_.dibBits, target, p.x0, p.dx);
            if (alphaTarget != nullptr) ScatterPixels(alpha, passWidth_, 8, alphaTarget, p.x0, p.dx);
        }

        uint8_t* swap = cur_;
        cur_ = prev_;
        prev_ = swap;
        filled_ = 0;
        if (progress_ != nullptr && !progress_->Row(doneRows_, totalRows_, record_)) return false;
        ++doneRows_;
        if (++passRow_ == passHeight_) {
            ++pass_;
            StartPass();
        }
        return true;
    }

    PngHeader h_;
    DibRows rows_;
    DibRows alphaRows_;
    ProgressReporter* progress_;
    ErrorRecord* record_ = nullptr;
    const Pass* passes_;
    uint32_t passCount_;
    uint32_t pass_ = 0;
    uint32_t passWidth_ = 0;
    uint32_t passHeight_ = 0;
    uint32_t passRow_ = 0;
    uint32_t doneRows_ = 0;
    uint32_t totalRows_ = 0;
    size_t rowLength_ = 0;  // the filter byte and the row's bytes
    size_t filled_ = 0;
    ScratchBlock buffer_;   // two raw rows: the one being gathered and the one above it
    ScratchBlock compact_;  // one converted pass row before it is scattered
    uint8_t* cur_ = nullptr;
    uint8_t* prev_ = nullptr;
    Inflater inflater_;
};

class PngReader {
public:
    PngReader(Stream* stream, ProgressReporter* progress, bool wantAlpha)
        : stream_(stream), progress_(progress), wantAlpha_(wantAlpha) {}
    ~PngReader() {
        FreeImage(&dib_);
        FreeImage(&alpha_);
    }
    PngReader(const PngReader&) = delete;
    PngReader& operator=(const PngReader&) = delete;

    bool Read(ErrorRecord* record);
    HGLOBAL TakeDib() {
        HGLOBAL dib = dib_;
        dib_ = nullptr;
        return dib;
    }
    HGLOBAL TakeAlpha() {
        HGLOBAL alpha = alpha_;
        alpha_ = nullptr;
        return alpha;
    }
    bool warning() const { return warning_; }

private:
    enum class Phase { BeforeData, InData, AfterData };

    bool ReadHeader(uint32_t length, ErrorRecord* record);
    bool ReadPalette(uint32_t length, ErrorRecord* record);
    bool ReadBackground(uint32_t length, ErrorRecord* record);
    bool ReadResolution(uint32_t length, ErrorRecord* record);
    bool AppendData(uint32_t length, ErrorRecord* record);
    bool DecodeImage(ErrorRecord* record);
    // Reads a chunk's data (at most sizeof data_) and its CRC, which must match.
    bool ReadCheckedData(uint32_t length, ErrorRecord* record);
    bool Skip(uint32_t length, ErrorRecord* record);
    uint64_t Remaining() const {
        uint64_t at = StreamTell(stream_);
        return at < end_ ? end_ - at : 0;
    }

    Stream* stream_;
    ProgressReporter* progress_;
    bool wantAlpha_;
    uint64_t end_ = 0;
    uint32_t type_ = 0;  // the current chunk's type
    uint8_t typeBytes_[4] = {};
    uint8_t data_[3 * kMaxPaletteEntries] = {};
    PngHeader header_;
    Phase phase_ = Phase::BeforeData;
    RGBQUAD palette_[kMaxPaletteEntries] = {};
    uint32_t paletteCount_ = 0;
    bool sawPalette_ = false;
    bool sawResolution_ = false;
    int32_t xPelsPerMeter_ = 0;
    int32_t yPelsPerMeter_ = 0;
    ScratchBlock compressed_;  // the IDAT chunks' data, one zlib stream
    uint64_t compressedSize_ = 0;
    HGLOBAL dib_ = nullptr;
    HGLOBAL alpha_ = nullptr;
    bool warning_ = false;
};

bool PngReader::Read(ErrorRecord* record) {
    end_ = StreamSize64(stream_, record);
    uint8_t signature[8];
    StreamRead(stream_, signature, 8, kErrUnrecognizedFormat, record);
    if (record->failed()) return false;
    if (std::memcmp(signature, kSignature, 8) != 0) {
        SetRecordError(record, kErrUnrecognizedFormat, 0);
        return false;
    }
    bool first = true;
    for (;;) {
        uint8_t head[8];
        uint32_t got = StreamRead(stream_, head, 8, 0, record);
        if (record->failed()) return false;
        if (got != 8) {
            // A file that ends cleanly between chunks lacks its IEND; one
            // that ends inside a chunk's length or type is short.
            SetRecordError(record, got == 0 && !first ? kErrBadImageData : kErrBadFileData, 0);
            return false;
        }
        uint32_t length = BigEndian32(head);
        std::memcpy(typeBytes_, head + 4, 4);
        type_ = BigEndian32(head + 4);
        if (first) {
            if (type_ != kChunkIhdr || length != 13) {
                SetRecordError(record, kErrBadFileData, 0);
                return false;
            }
            first = false;
            if (!ReadHeader(length, record)) return false;
            continue;
        }
        if (length > kMaxPngInteger) {
            SetRecordError(record, kErrBadImageData, 0);
            return false;
        }
        if (type_ == kChunkIdat) {
            if (phase_ == Phase::AfterData) {
                SetRecordError(record, kErrBadImageData, 0);
                return false;
            }
            if (phase_ == Phase::BeforeData && header_.colorType == kPalette && !sawPalette_) {
                SetRecordError(record, kErrBadImageData, 0);
                return false;
            }
            phase_ = Phase::InData;
            if (!AppendData(length, record)) return false;
            continue;
        }
        if (phase_ == Phase::InData && !DecodeImage(record)) return false;
        bool ok = true;
        switch (type_) {
            case kChunkIhdr: SetRecordError(record, kErrBadImageData, 0); return false;
            case kChunkPlte: ok = ReadPalette(length, record); break;
            case kChunkBkgd:
                if (phase_ == Phase::AfterData) {
                    warning_ = true;
                    ok = Skip(length, record);
                } else {
                    ok = ReadBackground(length, record);
                }
                break;
            case kChunkPhys: ok = ReadResolution(length, record); break;
            case kChunkIend:
                if (length != 0 || phase_ != Phase::AfterData) {
                    SetRecordError(record, kErrBadImageData, 0);
                    return false;
                }
                // The image ends here; whatever follows is not read.
                StreamRead(stream_, data_, 4, kErrBadFileData, record);
                return record->ok();
            default: ok = Skip(length, record); break;
        }
        if (!ok) return false;
    }
}

bool PngReader::ReadCheckedData(uint32_t length, ErrorRecord* record) {
    StreamRead(stream_, data_, length, kErrBadFileData, record);
    uint8_t stored[4];
    StreamRead(stream_, stored, 4, kErrBadFileData, record);
    if (record->failed()) return false;
    uint32_t crc = CrcUpdate(0xFFFFFFFFu, typeBytes_, 4);
    crc = CrcUpdate(crc, data_, length) ^ 0xFFFFFFFFu;
    if (crc != BigEndian32(stored)) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    return true;
}

bool PngReader::Skip(uint32_t length, ErrorRecord* record) {
    uint64_t bytes = uint64_t{length} + 4;
    if (bytes > Remaining()) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    StreamSeek64(stream_, StreamTell(stream_) + bytes, record);
    return record->ok();
}

bool PngReader::ReadHeader(uint32_t length, ErrorRecord* record) {
    if (!ReadCheckedData(length, record)) return false;
    PngHeader& h = header_;
    h.width = BigEndian32(data_);
    h.height = BigEndian32(data_ + 4);
    h.depth = data_[8];
    h.colorType = data_[9];
    h.interlace = data_[12];
    if (h.width == 0 || h.height == 0 || h.width > kMaxPngInteger || h.height > kMaxPngInteger) {
        SetRecordError(record, kErrBadImageData, 0);
        return false;
    }
    if (!DescribeFormat(&h) || data_[10] != 0 || data_[11] != 0 || h.interlace > 1) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    // An alpha DIB is made only of 8-bit RGB with alpha.
    if (wantAlpha_ && (h.colorType == kGreyAlpha || (h.colorType == kRgba && h.depth != 8))) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    // Images larger than a DIB can be are not taken.
    uint64_t packed = kDibHeaderSize + 4 * kMaxPaletteEntries + RowStride(h.dibBits, h.width) * h.height;
    if (h.width > static_cast<uint32_t>(kMaxImageDimension) || h.height > static_cast<uint32_t>(kMaxImageDimension) ||
        packed > kMaxPackedDibBytes) {
        SetRecordError(record, kErrUnsupportedImageType, 0);
        return false;
    }
    return true;
}

bool PngReader::ReadPalette(uint32_t length, ErrorRecord* record) {
    uint32_t limit = header_.depth < 8 ? 1u << header_.depth : kMaxPaletteEntries;
    if (sawPalette_ || phase_ != Phase::BeforeData || length == 0 || length % 3 != 0 || length / 3 > limit) {
        SetRecordError(record, kErrBadImageData, 0);
        return false;
    }
    if (!ReadCheckedData(length, record)) return false;
    sawPalette_ = true;
    paletteCount_ = length / 3;
    for (uint32_t i = 0; i < paletteCount_; ++i) {
        palette_[i] = RGBQUAD{data_[3 * i + 2], data_[3 * i + 1], data_[3 * i], 0};
    }
    return true;
}

bool PngReader::ReadBackground(uint32_t length, ErrorRecord* record) {
    const uint8_t type = header_.colorType;
    uint32_t expected = type == kPalette ? 1 : (type == kGrey || type == kGreyAlpha) ? 2 : 6;
    if (length != expected || (type == kPalette && !sawPalette_)) {
        SetRecordError(record, kErrBadImageData, 0);
        return false;
    }
    if (!ReadCheckedData(length, record)) return false;
    bool inRange = true;
    if (type == kPalette) {
        inRange = data_[0] < paletteCount_;
    } else {
        for (uint32_t i = 0; i < length; i += 2) inRange = inRange && (BigEndian16(data_ + i) >> header_.depth) == 0;
    }
    if (!inRange) {
        SetRecordError(record, kErrBadImageData, 0);
        return false;
    }
    return true;
}

bool PngReader::ReadResolution(uint32_t length, ErrorRecord* record) {
    if (sawResolution_ || phase_ != Phase::BeforeData || length != 9) {
        SetRecordError(record, kErrBadImageData, 0);
        return false;
    }
    if (!ReadCheckedData(length, record)) return false;
    uint32_t x = BigEndian32(data_);
    uint32_t y = BigEndian32(data_ + 4);
    uint8_t unit = data_[8];
    if (unit > 1 || x > kMaxPngInteger || y > kMaxPngInteger) {
        SetRecordError(record, kErrBadImageData, 0);
        return false;
    }
    sawResolution_ = true;
    // Pixels per metre as they are; an aspect ratio alone is kept negated.
    xPelsPerMeter_ = unit == 1 ? static_cast<int32_t>(x) : -static_cast<int32_t>(x);
    yPelsPerMeter_ = unit == 1 ? static_cast<int32_t>(y) : -static_cast<int32_t>(y);
    return true;
}

bool PngReader::AppendData(uint32_t length, ErrorRecord* record) {
    uint64_t remaining = Remaining();
    if (uint64_t{length} + 4 > remaining) {
        SetRecordError(record, kErrBadFileData, 0);
        return false;
    }
    uint64_t needed = compressedSize_ + length;
    if (needed > compressed_.size()) {
        // Doubling keeps many small chunks linear; the data can never be
        // longer than what is left of the stream.
        uint64_t capacity = 2 * uint64_t{compressed_.size()};
        uint64_t most = compressedSize_ + remaining;
        if (capacity > most) capacity = most;
        if (capacity < needed) capacity = needed;
        if (capacity > SIZE_MAX) {
            SetRecordError(record, kErrNotEnoughMemory, 0);
            return false;
        }
        if (compressed_.Grow(static_cast<size_t>(capacity), record) == nullptr) return false;
    }
    StreamRead(stream_, compressed_.data() + compressedSize_, length, kErrBadFileData, record);
    compressedSize_ = needed;
    uint8_t crc[4];  // the data is checked by zlib's own Adler-32
    StreamRead(stream_, crc, 4, kErrBadFileData, record);
    return record->ok();
}

bool PngReader::DecodeImage(ErrorRecord* record) {
    phase_ = Phase::AfterData;
    const PngHeader& h = header_;
    const auto width = static_cast<int32_t>(h.width);
    const auto height = static_cast<int32_t>(h.height);
    RGBQUAD ramp[256];
    const RGBQUAD* table = nullptr;
    uint32_t tableCount = 0;
    if (h.colorType == kPalette) {
        table = palette_;
        tableCount = paletteCount_;
    } else if (h.dibBits <= 8) {
        tableCount = 1u << h.dibBits;
        for (uint32_t i = 0; i < tableCount; ++i) {
            auto level = static_cast<uint8_t>(i * 255 / (tableCount - 1));
            ramp[i] = RGBQUAD{level, level, level, 0};
        }
        table = ramp;
    }
    dib_ = CreatePackedDib(width, height, h.dibBits, table, tableCount, xPelsPerMeter_, yPelsPerMeter_, record);
    if (dib_ == nullptr) return false;
    if (wantAlpha_ && h.colorType == kRgba) {
        for (uint32_t i = 0; i < 256; ++i) ramp[i] = RGBQUAD{uint8_t(i), uint8_t(i), uint8_t(i), 0};
        alpha_ = CreatePackedDib(width, height, 8, ramp, 256, xPelsPerMeter_, yPelsPerMeter_, record);
        if (alpha_ == nullptr) return false;
    }

    ImageLock lock(dib_);
    DibRows rows = RowsFromTop(lock.header(), lock.bits());
    DibRows alphaRows = {};
    std::optional<ImageLock> alphaLock;
    if (alpha_ != nullptr) {
        alphaLock.emplace(alpha_);
        alphaRows = RowsFromTop(alphaLock->header(), alphaLock->bits());
    }
    bool damaged = false;
    ImageDecoder decoder(h, rows, alphaRows, progress_);
    bool ok = decoder.Run(compressed_.data(), static_cast<size_t>(compressedSize_), &damaged, record);
    compressed_.Release();
    compressedSize_ = 0;
    if (damaged) warning_ = true;
    return ok;
}

}  // namespace

HGLOBAL ReadPngDib(Stream* stream, ProgressReporter* progress, ErrorRecord* record) {
    return ReadPngDib(stream, progress, nullptr, nullptr, record);
}

HGLOBAL ReadPngDib(Stream* stream, ProgressReporter* progress, HGLOBAL* alpha, bool* warning, ErrorRecord* record) {
    if (alpha != nullptr) *alpha = nullptr;
    if (warning != nullptr) *warning = false;
    if (record->failed()) return nullptr;
    PngReader reader(stream, progress, alpha != nullptr);
    if (!reader.Read(record)) return nullptr;
    if (alpha != nullptr) *alpha = reader.TakeAlpha();
    if (warning != nullptr) *warning = reader.warning();
    return reader.TakeDib();
}

}  // namespace velmora
