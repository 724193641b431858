// The TIFF structure reader on arbitrary bytes: open, walk the chain, read
// every page's information and every strip's bytes.
#include <cstddef>
#include <cstdint>

#include "frame/error_record.h"
#include "io/stream.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"

using namespace velmora;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 0xFFFFFFFFu) return 0;
    ErrorRecord record;
    TiffFile* tiff = OpenTiffFromMemory(data, static_cast<uint32_t>(size), &record);
    if (tiff == nullptr) return 0;
    uint32_t pages = CountPages(tiff, &record);
    if (pages > 64) pages = 64;
    for (uint32_t page = 1; page <= pages + 1; ++page) {
        ErrorRecord pageRecord;
        TiffPageInfo info;
        SetWanted(&info, kFieldAll);
        uint32_t flags = kReadStructure | (page % 2 == 0 ? kReadStrict : 0);
        if (ReadPageInfo(tiff, page, flags, &info, &pageRecord) &&
            CheckImageStructure(tiff, &info, &pageRecord)) {
            TiffStripBuffer buffer;
            for (uint32_t i = 0; i < info.stripCount && i < 4096; ++i) {
                ErrorRecord stripRecord;
                uint32_t got = 0;
                const uint8_t* bytes = buffer.Read(tiff, &info, i, &got, &stripRecord);
                if (bytes != nullptr && got > 0 && (bytes[0] ^ bytes[got - 1]) == 0x5A) record.code = 0;
            }
        }
        FreePageInfo(&info);
        ErrorRecord sizeRecord;
        GetPageDirectorySize(tiff, page, &sizeRecord);
    }
    // Directories counted from an explicit offset.
    ErrorRecord at;
    TiffPageInfo info;
    info.startDirectory = size > 8 ? data[size - 1] * 7u + 8u : 8u;
    SetWanted(&info, kFieldImageWidth);
    ReadPageInfo(tiff, 1 + (size % 3), kReadFromOffset, &info, &at);
    FreePageInfo(&info);
    CloseTiff(tiff, nullptr);
    return 0;
}
