// TIFF documents on arbitrary bytes: read every IFD of the chain, number the
// pages, and check what the rows promise.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "frame/error_record.h"
#include "io/stream.h"
#include "tiff/document.h"
#include "tiff/tiff_file.h"

using namespace velmora;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 0xFFFFFFFFu) return 0;
    ErrorRecord record;
    TiffFile* tiff = OpenTiffFromMemory(data, static_cast<uint32_t>(size), &record);
    if (tiff == nullptr) return 0;
    TiffDocument* document = BuildTiffDocument(tiff, true, nullptr, &record);
    if (document == nullptr) {
        Stream* stream = CloseTiff(tiff, nullptr);
        if (stream != nullptr) CloseStream(stream, nullptr);
        return 0;
    }
    // Every IFD belongs to a page between 1 and the page count.
    for (uint32_t ifd = 1; ifd <= document->rowCount; ++ifd) {
        const TiffIfdRow* row = TiffDocumentRow(document, ifd);
        if (row == nullptr || row->ifd != ifd || row->page == 0 || row->page > document->pageCount) std::abort();
    }
    if (TiffDocumentRow(document, document->rowCount + 1) != nullptr) std::abort();
    CloseTiffDocument(document, nullptr);
    return 0;
}
