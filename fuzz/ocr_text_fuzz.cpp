// OCR text records come from TIFF pages and from hosts. The input's first
// four bytes are replaced by its length, so that the record's own size
// agrees and the fuzzer reaches the entries behind the header.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/checked_array.h"
#include "pdf/ocr_text.h"
#include "pdf/text_layer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4 || size > 1 << 20) return 0;
    velmora::ErrorRecord record;
    velmora::CheckedArray<uint8_t> bytes;
    if (!bytes.Sized(size, &record)) return 0;
    std::memcpy(bytes.data(), data, size);
    const uint32_t length = static_cast<uint32_t>(size);
    std::memcpy(bytes.data(), &length, 4);

    velmora::OcrTextView view;
    if (!velmora::OpenOcrText(bytes.data(), length, &view, &record)) return 0;
    velmora::OcrEntry entry;
    velmora::CheckedArray<velmora::OcrBox> boxes;
    for (uint32_t i = 0; i < view.count && velmora::ReadOcrEntry(view, i, &entry, &record); ++i) {
        velmora::MergeOcrBoxes(entry.chars.data(), entry.chars.size(), view.rotation, &boxes, &record);
    }
    velmora::ErrorRecord turnRecord, layerRecord;
    velmora::CheckedArray<uint8_t> out;
    velmora::RotateOcrText(view, 90, 2550, 3300, &out, &turnRecord);
    const velmora::TextLayerPage page = {2550, 3300, 300, 300, 270};
    const velmora::OcrBox redaction = {100, 100, 400, 200};
    velmora::BuildTextLayer(bytes.data(), length, page, &redaction, 1, &out, &layerRecord);
    return 0;
}
