#include "annotations/clipboard.h"

#include "annotations/annotation_stream.h"
#include "frame/memory_handle.h"
#include "platform/clipboard.h"

namespace velmora {

const char16_t kClipboardAnnotationsFormat[] = u"Solvenir Velmora Annotations";
const char16_t kClipboardRedactionsFormat[] = u"Solvenir Velmora Redactions";

bool CopyAnnotationsToClipboard(const AnnotationList& list, ErrorRecord* record) {
    if (record->failed()) return false;
    uint32_t size = 0;
    HGLOBAL blocks[2] = {WriteAnnotationStream(list, true, &size, record), nullptr};
    if (blocks[0] == nullptr) return false;
    blocks[1] = BuildRedactionIndex(list, true, &size, record);
    if (record->failed()) {
        FreeHandle(&blocks[0]);
        return false;
    }
    const char16_t* const names[2] = {kClipboardAnnotationsFormat, kClipboardRedactionsFormat};
    uint32_t error = 0;
    if (!platform::PutOnClipboard(names, blocks, blocks[1] != nullptr ? 2 : 1, &error)) {
        SetRecordError(record, error, 0);
        return false;
    }
    return true;
}

}  // namespace velmora
