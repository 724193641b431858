#include "dib/bmp_writer.h"

#include <cstring>
#include <string>

#include "dib/dib_layout.h"
#include "frame/checked_array.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint32_t kFileHeaderSize = 14;
constexpr uint32_t kCoreHeaderSize = 12;
constexpr uint32_t kCompressionOffset = kFileHeaderSize + 16;  // then the image size
constexpr uint32_t kRle8 = 1;
constexpr uint32_t kRle4 = 2;
constexpr size_t kOutputBytes = 2048;
constexpr uint32_t kMaxRun = 255;
constexpr int kTemporaryNameAttempts = 64;
constexpr uint32_t kErrFileExists = 80;
constexpr uint32_t kErrImageTooLarge = 0x0200002D;

void PutU16(uint8_t* p, uint16_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
}

void PutU32(uint8_t* p, uint32_t v) {
    PutU16(p, static_cast<uint16_t>(v));
    PutU16(p + 2, static_cast<uint16_t>(v >> 16));
}

// A new file beside `path`, named "<path>.<n>.tmp" for the first free n.
platform::FileHandle CreateSibling(const std::u16string& path, std::u16string* name, uint32_t* error) {
    uint32_t start = platform::TickCount();
    for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
        std::string number = std::to_string((start + static_cast<uint32_t>(attempt)) % 100000u);
        *name = path + u"." + std::u16string(number.begin(), number.end()) + u".tmp";
        platform::FileHandle file = platform::FileOpen(*name, platform::FileAccess::CreateNew, error);
        if (file != platform::kNoFile || (*error != kErrFileExists && *error != ERROR_ALREADY_EXISTS)) return file;
    }
    return platform::kNoFile;
}

// File output through a buffer; the first failure stops every later write.
class Output {
public:
    Output(platform::FileHandle file, uint32_t* error) : file_(file), error_(error) {}
    bool Put(uint8_t byte) {
        if (used_ == kOutputBytes && !Flush()) return false;
        buffer_[used_++] = byte;
        ++total_;
        return ok_;
    }
    bool Write(const void* bytes, size_t size) {
        if (!Flush()) return false;
        ok_ = platform::FileWrite(file_, bytes, size, error_);
        total_ += size;
        return ok_;
    }
    bool Flush() {
        if (ok_ && used_ != 0) ok_ = platform::FileWrite(file_, buffer_, used_, error_);
        used_ = 0;
        return ok_;
    }
    uint64_t total() const { return total_; }

private:
    platform::FileHandle file_;
    uint32_t* error_;
    uint8_t buffer_[kOutputBytes];
    size_t used_ = 0;
    uint64_t total_ = 0;
    bool ok_ = true;
};

// Length of the stretch of `pixels` from `at` that ends before the next 3
// equal pixels, at the row's end or at 255.
uint32_t LiteralLength(const uint8_t* pixels, uint32_t count, uint32_t at) {
    uint32_t length = 0;
    while (at + length < count && length < kMaxRun) {
        const uint32_t i = at + length;
        if (i + 2 < count && pixels[i] == pixels[i + 1] && pixels[i + 1] == pixels[i + 2]) break;
        ++length;
    }
    return length;
}

// Codes one row of pixels (one per byte; 4-bit values when `nibbles`).
bool CodeRow(const uint8_t* pixels, uint32_t count, bool nibbles, Output* out) {
    uint32_t i = 0;
    while (i < count) {
        if (count - i >= 4) {
            uint32_t length = LiteralLength(pixels, count, i);
            // RLE4 stretches are whole bytes; an odd pixel goes to the next run.
            if (nibbles) length &= ~1u;
            if (length > 3) {
                out->Put(0);
                out->Put(static_cast<uint8_t>(length));
                uint32_t bytes = 0;
                for (uint32_t k = 0; k < length; k += nibbles ? 2 : 1, ++bytes) {
                    const uint8_t low = nibbles && k + 1 < length ? pixels[i + k + 1] : 0;
                    out->Put(nibbles ? static_cast<uint8_t>(pixels[i + k] << 4 | low) : pixels[i + k]);
                }
                if (bytes & 1) out->Put(0);
                i += length;
                continue;
            }
        }
        uint32_t run = 1;
        if (nibbles) {
            while (i + run < count && run < kMaxRun && pixels[i + run] == pixels[i + (run & 1)]) ++run;
            const uint8_t low = run > 1 ? pixels[i + 1] : 0;
            out->Put(static_cast<uint8_t>(run));
            out->Put(static_cast<uint8_t>(pixels[i] << 4 | low));
        } else {
            while (i + run < count && run < kMaxRun && pixels[i + run] == pixels[i]) ++run;
            out->Put(static_cast<uint8_t>(run));
            out->Put(pixels[i]);
        }
        i += run;
    }
    out->Put(0);
    return out->Put(0);
}

// The run-length data of every stored row; the bytes written.
bool CodeRows(const BITMAPINFOHEADER* header, const uint8_t* bits, Output* out, ErrorRecord* record) {
    const bool nibbles = header->biBitCount == 4;
    const uint32_t width = static_cast<uint32_t>(header->biWidth);
    const uint64_t stride = RowStride(header);
    CheckedArray<uint8_t> pixels;
    if (nibbles && !pixels.Sized(width, record)) return false;
    for (uint32_t y = 0; y < static_cast<uint32_t>(header->biHeight); ++y) {
        const uint8_t* row = bits + stride * y;
        if (nibbles) {
            for (uint32_t x = 0; x < width; ++x) pixels[x] = (x & 1) ? row[x / 2] & 15 : row[x / 2] >> 4;
            row = pixels.data();
        }
        if (!CodeRow(row, width, nibbles, out)) return false;
    }
    out->Put(0);
    out->Put(1);
    return out->Flush();
}

// The core form's header and table: 12 bytes, then 3-byte entries.
size_t CoreHeader(const BITMAPINFOHEADER* header, uint8_t* out) {
    PutU32(out, kCoreHeaderSize);
    PutU16(out + 4, static_cast<uint16_t>(header->biWidth));
    PutU16(out + 6, static_cast<uint16_t>(header->biHeight));
    PutU16(out + 8, 1);
    PutU16(out + 10, header->biBitCount);
    size_t size = kCoreHeaderSize;
    if (header->biBitCount > 8) return size;
    const uint32_t entries = 1u << header->biBitCount;
    const uint32_t count = ColorCount(header);
    const RGBQUAD* table = ColorTable(header);
    for (uint32_t i = 0; i < entries; ++i, size += 3) {
        const RGBQUAD entry = i < count ? table[i] : RGBQUAD{};
        out[size] = entry.rgbBlue;
        out[size + 1] = entry.rgbGreen;
        out[size + 2] = entry.rgbRed;
    }
    return size;
}

}  // namespace

bool WriteBmpFile(const std::u16string& path, const BITMAPINFOHEADER* header, const void* bits, BmpForm form,
                  ErrorRecord* record) {
    if (record->failed()) return false;
    if (form == BmpForm::Core && (header->biWidth > 0xFFFF || header->biHeight > 0xFFFF)) {
        SetRecordError(record, kErrImageTooLarge, 0);
        return false;
    }
    uint32_t compression = 0;
    if (form == BmpForm::RunLength) compression = header->biBitCount == 8 ? kRle8 : header->biBitCount == 4 ? kRle4 : 0;
    uint8_t core[kCoreHeaderSize + 3 * 256];
    const size_t coreSize = form == BmpForm::Core ? CoreHeader(header, core) : 0;
    const uint64_t tableBytes = uint64_t{ColorCount(header)} * 4;
    const uint64_t headerBytes = form == BmpForm::Core ? coreSize : kDibHeaderSize + tableBytes;
    uint64_t rowBytes = 0;
    const uint64_t pixelOffset = kFileHeaderSize + headerBytes;
    if (!ImageBytes(header, &rowBytes) || pixelOffset + rowBytes > 0xFFFFFFFFu) {
        SetRecordError(record, kErrInvalidParameter, 0);
        return false;
    }
    uint8_t fileHeader[kFileHeaderSize] = {'B', 'M'};
    PutU32(fileHeader + 2, static_cast<uint32_t>(pixelOffset + rowBytes));
    PutU32(fileHeader + 10, static_cast<uint32_t>(pixelOffset));

    uint32_t error = 0;
    std::u16string temporary;
    platform::FileHandle file = CreateSibling(path, &temporary, &error);
    if (file == platform::kNoFile) {
        SetRecordError(record, error != 0 ? error : kUnexpectedError, 0);
        return false;
    }
    Output out(file, &error);
    bool written = out.Write(fileHeader, kFileHeaderSize) &&
                   (form == BmpForm::Core ? out.Write(core, coreSize)
                                          : out.Write(header, static_cast<size_t>(kDibHeaderSize + tableBytes)));
    if (written && compression == 0) {
        written = out.Write(bits, static_cast<size_t>(rowBytes));
    } else if (written) {
        // The coded size is known only now: the file size and the header's
        // compression and image size are written over the plain values.
        written = CodeRows(header, static_cast<const uint8_t*>(bits), &out, record);
        const uint64_t coded = out.total() - pixelOffset;
        uint8_t patch[8];
        PutU32(patch, compression);
        PutU32(patch + 4, static_cast<uint32_t>(coded));
        PutU32(fileHeader + 2, static_cast<uint32_t>(out.total()));
        written = written && coded <= 0xFFFFFFFFu && platform::FileSeek(file, 2, &error) &&
                  platform::FileWrite(file, fileHeader + 2, 4, &error) &&
                  platform::FileSeek(file, kCompressionOffset, &error) &&
                  platform::FileWrite(file, patch, sizeof patch, &error);
    }
    platform::FileClose(file);
    if (written && platform::FileReplace(temporary, path, &error)) return true;
    if (record->ok()) SetRecordError(record, error != 0 ? error : kUnexpectedError, 0);
    uint32_t ignored = 0;
    platform::FileDelete(temporary, &ignored);
    return false;
}

}  // namespace velmora
