// The exported functions that read OCR text records.
#include <cstring>

#include "frame/checked_array.h"
#include "frame/error_record.h"
#include "frame/export_call.h"
#include "frame/memory_handle.h"
#include "pdf/ocr_text.h"
#include "platform/platform.h"
#include "velmora/velmora.h"

using velmora::ExportCall;

namespace {

// A host's record locked for the length of a call.
class LockedText {
public:
    explicit LockedText(HGLOBAL text)
        : text_(text), bytes_(static_cast<const uint8_t*>(velmora::platform::MemLock(text))) {}
    ~LockedText() {
        if (bytes_ != nullptr) velmora::platform::MemUnlock(text_);
    }
    LockedText(const LockedText&) = delete;
    LockedText& operator=(const LockedText&) = delete;
    const uint8_t* bytes() const { return bytes_; }

private:
    HGLOBAL text_;
    const uint8_t* bytes_;
};

// The handle (6) and the caller's size, which may not exceed the block (87).
bool CheckBlock(ExportCall* call, HGLOBAL text, DWORD size) {
    return call->Handle(text) && call->Value(size <= velmora::platform::MemSize(text));
}

}  // namespace

LONG VELMORA_API GetVelmoraOCRTextCount(HGLOBAL text, DWORD size) {
    ExportCall call;
    if (!call.Gate()) return -1;
    if (text == nullptr) return 0;
    if (!CheckBlock(&call, text, size)) return -1;
    LockedText locked(text);
    velmora::OcrTextView view;
    velmora::OpenOcrText(locked.bytes(), size, &view, &call.record);
    return call.Finish() ? static_cast<LONG>(view.count) : -1;
}

LONG VELMORA_API GetVelmoraOCRTextRects(HGLOBAL text, DWORD size, DWORD index, DWORD first, DWORD count, LPRECT rects) {
    ExportCall call;
    if (!call.Gate() || !CheckBlock(&call, text, size)) return -1;
    if (rects != nullptr && !call.Writable(rects, sizeof(RECT))) return -1;
    LockedText locked(text);
    velmora::OcrTextView view;
    if (!velmora::OpenOcrText(locked.bytes(), size, &view, &call.record)) {
        call.Finish();
        return -1;
    }
    if (index >= view.count) {
        ExportCall::Fail(velmora::kErrFileNotFound);
        return -1;
    }
    velmora::OcrEntry entry;
    velmora::CheckedArray<velmora::OcrBox> boxes;
    if (velmora::ReadOcrEntry(view, index, &entry, &call.record)) {
        const size_t length = entry.chars.size();
        if (!call.Value(first < length && uint64_t{first} + count <= length)) return -1;
        velmora::MergeOcrBoxes(entry.chars.data() + first, count, view.rotation, &boxes, &call.record);
    }
    if (!call.Finish()) return -1;
    if (rects != nullptr) {
        if (!call.Writable(rects, boxes.size() * sizeof(RECT))) return -1;
        for (size_t i = 0; i < boxes.size(); ++i) {
            rects[i] = RECT{boxes[i].left, boxes[i].top, boxes[i].right, boxes[i].bottom};
        }
    }
    return static_cast<LONG>(boxes.size());
}

BOOL VELMORA_API DestroyVelmoraOCRText(HGLOBAL text) {
    ExportCall call;
    if (!call.Gate()) return 0;
    if (text == nullptr) return 1;
    if (!call.Handle(text)) return 0;
    velmora::FreeHandle(&text);
    return 1;
}
