#include "pdf/document_id.h"

#include "frame/checked_array.h"

namespace velmora {

void ComputeDocumentId(const SYSTEMTIME& now, const char16_t* path, uint32_t fileSize, const uint8_t* info,
                       size_t infoLength, uint8_t id[platform::kMd5Size], ErrorRecord* record) {
    if (record->failed()) return;
    const uint16_t fields[8] = {now.wYear, now.wMonth,  now.wDayOfWeek, now.wDay,
                                now.wHour, now.wMinute, now.wSecond,    now.wMilliseconds};
    uint8_t time[16];
    for (int i = 0; i < 8; ++i) {
        time[2 * i] = static_cast<uint8_t>(fields[i]);
        time[2 * i + 1] = static_cast<uint8_t>(fields[i] >> 8);
    }
    size_t length = 0;
    while (path[length] != 0) ++length;
    CheckedArray<uint8_t> pathBytes;
    if (!pathBytes.Sized(uint64_t{length} * 2, record)) return;
    for (size_t i = 0; i < length; ++i) {
        pathBytes[2 * i] = static_cast<uint8_t>(path[i]);
        pathBytes[2 * i + 1] = static_cast<uint8_t>(path[i] >> 8);
    }
    const uint8_t size[4] = {static_cast<uint8_t>(fileSize), static_cast<uint8_t>(fileSize >> 8),
                             static_cast<uint8_t>(fileSize >> 16), static_cast<uint8_t>(fileSize >> 24)};
    const platform::DigestPiece pieces[] = {
        {time, sizeof time}, {pathBytes.data(), pathBytes.size()}, {size, sizeof size}, {info, infoLength}};
    uint32_t error = 0;
    if (!platform::Md5Digest(pieces, sizeof pieces / sizeof pieces[0], id, &error)) {
        SetRecordError(record, error, 0);
    }
}

}  // namespace velmora
