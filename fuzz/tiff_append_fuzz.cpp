// Pages of any bytes appended to a TIFF, copied as they are and coded again:
// an append either succeeds or leaves the destination exactly as it was, and
// the destination always reads back with every page it had.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "frame/memory_handle.h"
#include "io/stream.h"
#include "platform/platform.h"
#include "tiff/page_info.h"
#include "tiff/page_writer.h"
#include "tiff/tiff_file.h"

namespace {

// The destination's bytes so far.
uint64_t SizeOf(velmora::TiffFile* tiff) {
    velmora::ErrorRecord record;
    return velmora::StreamSize64(velmora::GetTiffStream(tiff), &record);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint64_t kMaxPixels = 1u << 20;
    velmora::ErrorRecord openRecord;
    velmora::TiffFile* source = velmora::OpenTiffFromMemory(data, static_cast<uint32_t>(size), &openRecord);
    if (source == nullptr) return 0;
    velmora::TiffFile* destination = velmora::OpenMemoryTiff(&openRecord);
    if (destination == nullptr) std::abort();
    uint32_t pages = 0;
    for (uint32_t page = 1; page <= 3; ++page) {
        velmora::ErrorRecord infoRecord;
        velmora::TiffPageInfo info;
        velmora::SetWanted(&info, velmora::kFieldImage);
        if (!velmora::ReadPageInfo(source, page, velmora::kReadStructure, &info, &infoRecord)) break;
        const bool small = uint64_t{info.width} * info.length <= kMaxPixels;
        velmora::FreePageInfo(&info);
        for (uint16_t compression : {velmora::kWriteDefault, uint16_t{VELMORA_COMPRESSION_LZW}}) {
            if (compression != velmora::kWriteDefault && !small) continue;
            const uint64_t before = SizeOf(destination);
            velmora::PageWriteOptions options;
            options.compression = compression;
            velmora::ErrorRecord record;
            if (velmora::AppendTiffPage(destination, source, page, options, &record)) {
                ++pages;
            } else if (SizeOf(destination) != before) {
                std::abort();  // a failed append must leave the destination as it was
            }
        }
    }
    // Every page the destination holds reads back.
    velmora::ErrorRecord countRecord;
    if (velmora::CountPages(destination, &countRecord) != pages) std::abort();
    for (uint32_t page = 1; page <= pages; ++page) {
        velmora::ErrorRecord record;
        velmora::TiffPageInfo info;
        velmora::SetWanted(&info, velmora::kFieldImage);
        if (!velmora::ReadPageInfo(destination, page, velmora::kReadStructure | velmora::kReadCheckImage, &info,
                                   &record)) {
            std::abort();
        }
        velmora::FreePageInfo(&info);
    }
    velmora::ErrorRecord closeRecord;
    velmora::Stream* stream = velmora::CloseTiff(destination, &closeRecord);
    HGLOBAL bytes = velmora::CloseStream(stream, &closeRecord);
    velmora::FreeHandle(&bytes);
    velmora::CloseTiff(source, &closeRecord);
    return 0;
}
