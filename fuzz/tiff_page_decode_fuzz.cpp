// Whole pages from any bytes: the directory, then the decoding pipeline with
// every codec behind it. Pages larger than a few million pixels are only
// described, to keep each run short.
#include <cstddef>
#include <cstdint>

#include "dib/image.h"
#include "tiff/page_decoder.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint64_t kMaxPixels = 4u << 20;
    velmora::ErrorRecord openRecord;
    velmora::TiffFile* tiff = velmora::OpenTiffFromMemory(data, static_cast<uint32_t>(size), &openRecord);
    if (tiff == nullptr) return 0;
    for (uint32_t page = 1; page <= 3; ++page) {
        velmora::ErrorRecord record;
        velmora::TiffPageInfo info;
        velmora::SetWanted(&info, velmora::kFieldImage);
        if (!velmora::ReadPageInfo(tiff, page, velmora::kReadStructure, &info, &record)) break;
        bool small = uint64_t{info.width} * info.length <= kMaxPixels;
        velmora::FreePageInfo(&info);
        if (!small) continue;
        velmora::TiffPageInfo decoded;
        velmora::SetWanted(&decoded, velmora::kFieldImage);
        velmora::ErrorRecord decodeRecord;
        if (velmora::ReadPageInfo(tiff, page, velmora::kReadStructure | velmora::kReadCheckImage, &decoded,
                                  &decodeRecord)) {
            uint16_t rotation = 0;
            HGLOBAL dib = velmora::DecodePage(tiff, decoded, nullptr, &rotation, &decodeRecord);
            velmora::FreeImage(&dib);
            velmora::FreePageInfo(&decoded);
        }
    }
    velmora::ErrorRecord closeRecord;
    velmora::CloseTiff(tiff, &closeRecord);
    return 0;
}
