#include "dib/bmp_writer.h"

#include <cstring>
#include <string>

#include "dib/dib_layout.h"
#include "platform/platform.h"

namespace velmora {
namespace {

constexpr uint32_t kFileHeaderSize = 14;
constexpr int kTemporaryNameAttempts = 64;
constexpr uint32_t kErrFileExists = 80;

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

}  // namespace

bool WriteBmpFile(const std::u16string& path, const BITMAPINFOHEADER* header, const void* bits, ErrorRecord* record) {
    if (record->failed()) return false;
    uint64_t tableBytes = uint64_t{ColorCount(header)} * 4;
    uint64_t rowBytes = 0;
    uint64_t pixelOffset = kFileHeaderSize + kDibHeaderSize + tableBytes;
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
    bool written = platform::FileWrite(file, fileHeader, kFileHeaderSize, &error) &&
                   platform::FileWrite(file, header, static_cast<size_t>(kDibHeaderSize + tableBytes), &error) &&
                   platform::FileWrite(file, bits, static_cast<size_t>(rowBytes), &error);
    platform::FileClose(file);
    if (written && platform::FileReplace(temporary, path, &error)) return true;
    SetRecordError(record, error != 0 ? error : kUnexpectedError, 0);
    uint32_t ignored = 0;
    platform::FileDelete(temporary, &ignored);
    return false;
}

}  // namespace velmora
