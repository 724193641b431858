// The file identifier of the trailer's /ID: an MD5 digest of the time of
// the save, the file's path, its size and its information dictionary.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/error_record.h"
#include "platform/digest.h"
#include "velmora/wintypes.h"

namespace velmora {

// Digests, in order: the sixteen bytes of `now` (eight little-endian
// 16-bit fields), the path's UTF-16LE characters without the terminator,
// the 32-bit little-endian `fileSize` and the serialised information
// dictionary.
void ComputeDocumentId(const SYSTEMTIME& now, const char16_t* path, uint32_t fileSize, const uint8_t* info,
                       size_t infoLength, uint8_t id[platform::kMd5Size], ErrorRecord* record);

}  // namespace velmora
