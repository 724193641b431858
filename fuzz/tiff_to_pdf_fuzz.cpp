// Pages of any bytes converted into a PDF page: each page either becomes a
// page or fails with an error, and the document takes the next one after a
// failure. Pages are copied, joined (JPEG strips) or coded again, with the
// choices taken from the input's first byte.
#include <cstddef>
#include <cstdint>
#include <string>
#include <unistd.h>

#include "pdf/image_page.h"
#include "pdf/pdf_document.h"
#include "tiff/document.h"
#include "tiff/page_info.h"
#include "tiff/tiff_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint64_t kMaxPixels = 1u << 20;
    if (size < 9) return 0;
    velmora::ErrorRecord openRecord;
    velmora::TiffFile* source = velmora::OpenTiffFromMemory(data + 1, static_cast<uint32_t>(size - 1), &openRecord);
    if (source == nullptr) return 0;
    velmora::TiffDocument* document = velmora::BuildTiffDocument(source, true, nullptr, &openRecord);
    if (document == nullptr) return 0;
    // Large images take long without finding more.
    bool small = document->rowCount <= 8;
    for (uint32_t i = 0; small && i < document->rowCount; ++i) {
        velmora::ErrorRecord infoRecord;
        velmora::TiffPageInfo info;
        velmora::SetWanted(&info, velmora::kFieldImage);
        if (velmora::ReadPageInfo(source, document->rows[i].ifd, velmora::kReadStructure, &info, &infoRecord)) {
            small = uint64_t{info.width} * info.length <= kMaxPixels;
            velmora::FreePageInfo(&info);
        }
    }
    static const std::string kPath = "/tmp/velmora-tiff-to-pdf-fuzz-" + std::to_string(getpid()) + ".pdf";
    const std::u16string path(kPath.begin(), kPath.end());
    velmora::PdfDocument* pdf = small ? velmora::CreatePdfDocument(path.c_str(), false, &openRecord) : nullptr;
    velmora::ImagePageChoices choices;
    choices.forceBilevel = (data[0] & 0x01) != 0;
    choices.dither = (data[0] & 0x02) != 0;
    choices.enhanced = (data[0] & 0x04) != 0;
    choices.bilevelCompression = (data[0] & 0x08) != 0 ? 32773 : 0;
    choices.burnAnnotations = (data[0] & 0x10) != 0;
    choices.textLayer = (data[0] & 0x20) != 0;
    for (uint32_t page = 1; pdf != nullptr && page <= document->pageCount && page <= 3; ++page) {
        velmora::ErrorRecord record;
        velmora::AppendTiffPage(pdf, document, page, choices, &record);
    }
    if (pdf != nullptr) velmora::ClosePdfDocument(pdf);
    velmora::ErrorRecord closeRecord;
    velmora::CloseTiffDocument(document, &closeRecord);
    return 0;
}
