// OCR text records come from TIFF pages and from hosts. The record's own
// size field says how much of the input it takes.
#include <cstddef>
#include <cstdint>

#include "frame/checked_array.h"
#include "pdf/ocr_text.h"
#include "pdf/text_layer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    const uint32_t length = data[0] | data[1] << 8 | data[2] << 16 | static_cast<uint32_t>(data[3]) << 24;
    if (length > size) return 0;
    velmora::ErrorRecord record, turnRecord, layerRecord;
    velmora::OcrTextView view;
    if (!velmora::OpenOcrText(data, length, &view, &record)) return 0;
    velmora::OcrEntry entry;
    velmora::CheckedArray<velmora::OcrBox> boxes;
    for (uint32_t i = 0; i < view.count && velmora::ReadOcrEntry(view, i, &entry, &record); ++i) {
        velmora::MergeOcrBoxes(entry.chars.data(), entry.chars.size(), view.rotation, &boxes, &record);
    }
    velmora::CheckedArray<uint8_t> out;
    velmora::RotateOcrText(view, 90, 2550, 3300, &out, &turnRecord);
    const velmora::OcrBox redaction = {100, 100, 400, 200};
    velmora::BuildTextLayer(data, length, {2550, 3300, 300, 300, 270}, &redaction, 1, &out, &layerRecord);
    return 0;
}
