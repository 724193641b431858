#include "annotations/companion_store.h"

#include <cstring>

#include "annotations/annotation.h"
#include "io/byte_order.h"

namespace velmora {

namespace {

constexpr char kCompanionSignature[20] = "VelmoraArt";
constexpr uint32_t kCompanionVersion = 1;

}  // namespace

bool IsCompanionStore(const uint8_t* bytes, size_t size) {
    if (bytes == nullptr || size < kCompanionHeaderSize) return false;
    const uint32_t total = LoadLittleEndian32(bytes);
    if (total < kCompanionHeaderSize || total > size) return false;
    if (std::memcmp(bytes + 4, kCompanionSignature, sizeof kCompanionSignature) != 0) return false;
    if (LoadLittleEndian32(bytes + 24) != kCompanionVersion) return false;
    const uint64_t pages = LoadLittleEndian32(bytes + 28);
    return kCompanionHeaderSize + pages * 8 <= total;
}

bool CompanionPageStream(const uint8_t* bytes, size_t size, uint32_t page, const uint8_t** stream,
                         uint32_t* streamSize, ErrorRecord* record) {
    *stream = nullptr;
    *streamSize = 0;
    if (record->failed()) return false;
    if (page == 0 || page > LoadLittleEndian32(bytes + 28)) {
        SetRecordError(record, kErrIfdNotFound, 0);
        return false;
    }
    const uint8_t* entry = bytes + kCompanionHeaderSize + uint64_t{page - 1} * 8;
    const uint32_t offset = LoadLittleEndian32(entry), length = LoadLittleEndian32(entry + 4);
    if (offset == 0 && length == 0) return true;
    const uint32_t total = LoadLittleEndian32(bytes);
    if (offset < kCompanionHeaderSize || uint64_t{offset} + length > total) {
        SetRecordError(record, kErrBadAnnotationData, 0);
        return false;
    }
    *stream = bytes + offset;
    *streamSize = length;
    return true;
}

}  // namespace velmora
