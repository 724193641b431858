// Annotation streams and redaction indexes come from hosts, TIFF files and
// the clipboard. A stream that reads is written again and the written stream
// must read back into a list that writes the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "annotations/annotation_stream.h"
#include "frame/memory_handle.h"
#include "platform/platform.h"

namespace {

// The stream of a list, copied out of its block; false when it cannot be written.
bool Write(const velmora::AnnotationList& list, velmora::CheckedArray<uint8_t>* bytes) {
    velmora::ErrorRecord record;
    uint32_t size = 0;
    HGLOBAL block = velmora::WriteAnnotationStream(list, false, &size, &record);
    if (block == nullptr || !bytes->Sized(size, &record)) return false;
    std::memcpy(bytes->data(), velmora::platform::MemLock(block), size);
    velmora::platform::MemUnlock(block);
    velmora::FreeHandle(&block);
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    velmora::ErrorRecord record;
    bool found = false;
    velmora::StreamHasPendingRedaction(data, size, &found, &record);
    record = velmora::ErrorRecord{};
    velmora::StreamHasMarkerRectangle(data, size, &found, &record);

    record = velmora::ErrorRecord{};
    velmora::AnnotationList first;
    if (!velmora::ReadAnnotationStream(data, size, &first, nullptr, &record)) {
        // Not a stream: perhaps an index, applied to nothing.
        record = velmora::ErrorRecord{};
        velmora::ReadRedactionIndex(data, size, &first, &record);
        return 0;
    }
    velmora::CheckedArray<uint8_t> once, twice;
    if (!Write(first, &once)) return 0;
    velmora::AnnotationList second;
    if (!velmora::ReadAnnotationStream(once.data(), once.size(), &second, nullptr, &record)) std::abort();
    if (!Write(second, &twice) || twice.size() != once.size() ||
        std::memcmp(once.data(), twice.data(), once.size()) != 0) {
        std::abort();
    }
    // An index written for the list reads back onto it.
    uint32_t indexSize = 0;
    HGLOBAL index = velmora::BuildRedactionIndex(first, false, &indexSize, &record);
    if (index != nullptr) {
        const uint8_t* entries = static_cast<const uint8_t*>(velmora::platform::MemLock(index));
        if (!velmora::ReadRedactionIndex(entries, indexSize, &second, &record)) std::abort();
        velmora::platform::MemUnlock(index);
        velmora::FreeHandle(&index);
    }
    return 0;
}
